#include "driver/commands/batch/pool.h"

#include "core/parallel.h"
#include "driver/commands/command_error.h"
#include "driver/commands/commands.h"

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <spawn.h>
#include <sstream>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

namespace qx {

namespace {

constexpr off_t most_kept = off_t{16} << 20;  // bytes of what a child says

std::string end_of(const TemporaryFile& file) {
  struct stat state = {};
  if (fstat(file.descriptor(), &state) != 0) return {};
  const off_t size = std::min(state.st_size, most_kept);
  std::string text(static_cast<std::size_t>(size), '\0');
  const ssize_t n = pread(file.descriptor(), text.data(), text.size(), state.st_size - size);
  text.resize(n > 0 ? static_cast<std::size_t>(n) : 0);
  return text;
}

// The lines behind the last one that is empty, as one: a report of the engine.
std::string last_paragraph(const std::string& text) {
  std::istringstream in(text);
  std::string lines;
  std::string line;
  for (bool begins = true; std::getline(in, line);) {
    line.erase(line.find_last_not_of(" \t\r") + 1);
    if (line.empty()) {
      begins = true;
      continue;
    }
    if (begins) lines.clear();
    if (!lines.empty()) lines += ' ';
    lines += line;
    begins = false;
  }
  return lines;
}

// What a command writes on its way out comes behind its name; lines of advice may follow.
std::string reason_of(const std::string& output, const std::string& errors) {
  constexpr const char* own_name = "quorix: ";
  std::size_t at = errors.rfind(own_name);
  while (at != std::string::npos && at > 0 && errors[at - 1] != '\n') {
    at = errors.rfind(own_name, at - 1);
  }
  if (at == std::string::npos) return last_paragraph(errors);
  at += std::strlen(own_name);
  std::string line = errors.substr(at, errors.find('\n', at) - at);
  const std::string report = last_paragraph(output);
  if (line == "the engine reported a failure" && !report.empty()) line = report;
  return line;
}

constexpr const char* parent_variable = "QUORIX_ENDS_WITH";

void make_empty(const TemporaryFile& file) {
  if (ftruncate(file.descriptor(), 0) != 0 || lseek(file.descriptor(), 0, SEEK_SET) != 0) {
    throw CommandError(2, std::string("a temporary file fails: ") + std::strerror(errno));
  }
}

// How a child begins: with its own streams, the usual signals, and as a group, which ends as a
// whole and not by the keyboard.
class SpawnSettings {
 public:
  SpawnSettings(int output, int errors, const sigset_t& signals) {
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
    posix_spawn_file_actions_adddup2(&actions, output, STDOUT_FILENO);
    posix_spawn_file_actions_adddup2(&actions, errors, STDERR_FILENO);
    posix_spawnattr_init(&attributes);
    posix_spawnattr_setsigmask(&attributes, &signals);
    posix_spawnattr_setpgroup(&attributes, 0);
    posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETPGROUP);
  }
  SpawnSettings(const SpawnSettings&) = delete;
  SpawnSettings& operator=(const SpawnSettings&) = delete;
  ~SpawnSettings() {
    posix_spawn_file_actions_destroy(&actions);
    posix_spawnattr_destroy(&attributes);
  }

  posix_spawn_file_actions_t actions;
  posix_spawnattr_t attributes;
};

}  // namespace

Pool::Pool(std::size_t places, double timeout) : places_(places), timeout_(timeout) {
  std::signal(SIGCHLD, SIG_DFL);  // one that is ignored would leave nothing to wait for
  sigemptyset(&wanted_);
  sigaddset(&wanted_, SIGCHLD);
  for (const int number : {SIGINT, SIGTERM, SIGHUP}) {
    struct sigaction now = {};
    sigaction(number, nullptr, &now);
    if (now.sa_handler != SIG_IGN) sigaddset(&wanted_, number);  // nohup stays nohup
  }
  sigprocmask(SIG_BLOCK, &wanted_, &before_);
  setenv(parent_variable, std::to_string(getpid()).c_str(), 1);
  // Children share the processors already.
  setenv("QUORIX_THREADS", std::to_string(std::max(1, threads_set())).c_str(), 1);
}

Pool::~Pool() {
  end_all();
  sigprocmask(SIG_SETMASK, &before_, nullptr);
}

void Pool::end_all() {
  for (const Child& child : children_) kill(-child.process, SIGKILL);
  for (const Child& child : children_) waitpid(child.process, nullptr, 0);
  children_.clear();
}

Pool::Said Pool::spare_files() {
  Said said;
  if (spare_.empty()) {
    said.output = std::make_unique<TemporaryFile>();
    said.errors = std::make_unique<TemporaryFile>();
  } else {
    said = std::move(spare_.back());
    spare_.pop_back();
  }
  return said;
}

void Pool::start(std::size_t item, const std::vector<std::string>& arguments) {
  Child child = {item, -1, Clock::now(), spare_files()};
  make_empty(*child.said.output);
  make_empty(*child.said.errors);
  std::vector<std::string> words = {"quorix"};
  words.insert(words.end(), arguments.begin(), arguments.end());
  std::vector<char*> pointers;
  pointers.reserve(words.size() + 1);
  for (std::string& word : words) pointers.push_back(word.data());
  pointers.push_back(nullptr);
  const SpawnSettings settings(child.said.output->descriptor(), child.said.errors->descriptor(),
                               before_);
  const int problem = posix_spawn(&child.process, "/proc/self/exe", &settings.actions,
                                  &settings.attributes, pointers.data(), environ);
  if (problem != 0) {
    throw CommandError(2, std::string("no process can be started: ") + std::strerror(problem));
  }
  children_.push_back(std::move(child));
}

ChildResult Pool::result_of(const Child& child, int status) const {
  ChildResult result;
  result.item = child.item;
  result.done = WIFEXITED(status) && WEXITSTATUS(status) == 0;
  result.seconds = std::chrono::duration<double>(Clock::now() - child.begin).count();
  result.output = end_of(*child.said.output);
  result.errors = end_of(*child.said.errors);
  if (result.done) return result;
  if (child.timed_out && WIFSIGNALED(status)) {
    result.timed_out = true;
    result.reason = format("no end after %g s", timeout_);
  } else if (WIFSIGNALED(status)) {
    const char* name = sigabbrev_np(WTERMSIG(status));
    result.reason = name ? format("ended by signal SIG%s", name)
                         : format("ended by signal %d", WTERMSIG(status));
  } else {
    result.refused = WEXITSTATUS(status) == 2;
    result.reason = reason_of(result.output, result.errors);
    if (result.reason.empty()) result.reason = format("exit status %d", WEXITSTATUS(status));
  }
  return result;
}

std::optional<ChildResult> Pool::reap() {
  for (auto child = children_.begin(); child != children_.end(); ++child) {
    int status = 0;
    if (waitpid(child->process, &status, WNOHANG) != child->process) continue;
    ChildResult result = result_of(*child, status);
    spare_.push_back(std::move(child->said));
    children_.erase(child);
    return result;
  }
  return {};
}

void Pool::end_late_ones() {
  if (!(timeout_ > 0.0)) return;
  for (Child& child : children_) {
    const double seconds = std::chrono::duration<double>(Clock::now() - child.begin).count();
    if (seconds < timeout_ || child.timed_out) continue;
    child.timed_out = true;
    kill(-child.process, SIGKILL);
  }
}

std::optional<ChildResult> Pool::wait(double patience) {
  const auto end = Clock::now() + std::chrono::duration<double>(patience);
  for (;;) {
    end_late_ones();
    if (auto result = reap()) return result;
    auto until = end;
    for (const Child& child : children_) {
      if (!(timeout_ > 0.0) || child.timed_out) continue;
      until = std::min(until, child.begin + std::chrono::duration<double>(timeout_));
    }
    const double left = std::chrono::duration<double>(until - Clock::now()).count();
    if (left <= 0.0 && until == end) return {};
    timespec time = {};
    time.tv_sec = static_cast<time_t>(std::max(left, 0.0));
    time.tv_nsec = static_cast<long>((std::max(left, 0.0) - std::floor(std::max(left, 0.0))) * 1e9);
    const int number = sigtimedwait(&wanted_, nullptr, &time);
    if (number > 0 && number != SIGCHLD) {
      stopped_ = number;
      return {};
    }
  }
}

void end_with_the_batch() {
  const char* text = std::getenv(parent_variable);
  if (!text) return;
  const long parent = std::strtol(text, nullptr, 10);
  unsetenv(parent_variable);
  prctl(PR_SET_PDEATHSIG, SIGKILL);
  if (getppid() != parent) _exit(1);  // it went before the line above
}

}  // namespace qx
