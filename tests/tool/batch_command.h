// Running quorix batch, in the foreground or to be interrupted, and reading its tables.
#pragma once

#include "support/engine.h"
#include "support/mtz_maker.h"
#include "support/program.h"

#include <chrono>
#include <csignal>
#include <gtest/gtest.h>
#include <map>
#include <sstream>
#include <string>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <vector>

namespace qx::test {

using Arguments = std::vector<std::string>;
using Row = std::map<std::string, std::string>;  // column to field

// Waits for at most a minute.
template <class Condition>
bool eventually(Condition condition) {
  for (int i = 0; i < 60000; ++i) {
    if (condition()) return true;
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
  return false;
}

// A batch that a test interrupts.
class Background {
 public:
  explicit Background(Arguments arguments) {
    arguments.insert(arguments.begin(), {"quorix", "batch"});
    std::vector<char*> words;
    for (std::string& argument : arguments) words.push_back(argument.data());
    words.push_back(nullptr);
    const std::string program = std::string(QUORIX_BINARY_DIR) + "/bin/quorix";
    const std::string data = data_directory().string();
    process_ = fork();
    if (process_ != 0) return;
    // However the tests were started: under nohup, or behind the shell.
    for (const int number : {SIGINT, SIGTERM, SIGHUP}) (void)std::signal(number, SIG_DFL);
    sigset_t none;
    sigemptyset(&none);
    sigprocmask(SIG_SETMASK, &none, nullptr);
    setenv("ZENVI_DATA", data.c_str(), 1);
    for (const int stream : {STDOUT_FILENO, STDERR_FILENO}) close(stream);
    execv(program.c_str(), words.data());
    _exit(126);
  }
  Background(const Background&) = delete;
  Background& operator=(const Background&) = delete;
  ~Background() {
    if (process_ > 0) (void)end(SIGKILL);
  }
  [[nodiscard]] std::vector<pid_t> children() const {
    const std::string id = std::to_string(process_);
    std::istringstream list(read_file("/proc/" + id + "/task/" + id + "/children"));
    std::vector<pid_t> found;
    for (pid_t child = 0; list >> child;) found.push_back(child);
    return found;
  }
  void pause() const { kill(process_, SIGSTOP); }
  // Sends a signal (0: none) and waits: exit status, or minus the signal that ended it.
  int end(int signal) {
    kill(process_, signal);
    int status = 0;
    waitpid(process_, &status, 0);
    process_ = 0;
    return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
  }

 private:
  pid_t process_;
};

// A folder of its own with small data sets.
class BatchCommand : public ::testing::Test {
 protected:
  void SetUp() override { std::filesystem::current_path(scratch_.path()); }
  void TearDown() override { std::filesystem::current_path(before_); }

  static ProgramResult batch(Arguments arguments) {
    arguments.insert(arguments.begin(), "batch");
    return run_program("quorix", arguments);
  }

  // A reflection file, and the folders above it.
  static void make(const std::string& path, const std::string& cell = "10 12 14 90 90 90") {
    const auto indices = half_sphere(2, 2, 2);
    MtzMaker maker(indices);
    maker.cell = cell;
    std::vector<float> f(indices.size());
    for (std::size_t i = 0; i < f.size(); ++i) f[i] = static_cast<float>((path.size() + i) % 17);
    maker.add("FWT", 'F', f);
    maker.add("PHWT", 'P', std::vector<float>(indices.size(), 30.0F));
    maker.add("DELFWT", 'F', std::vector<float>(indices.size(), 2.0F));
    maker.add("PHDELWT", 'P', f);
    if (const auto folder = std::filesystem::path(path).parent_path(); !folder.empty()) {
      std::filesystem::create_directories(folder);
    }
    write_file(path, maker.bytes());
  }
  // Copies of the example, each of which takes a moment with `fine`.
  static void make_large(int count) {
    std::filesystem::create_directories("large");
    for (int i = 0; i < count; ++i) {
      std::filesystem::copy_file(std::string(QUORIX_SOURCE_DIR) + "/examples/1ubq.mtz",
                                 "large/x" + std::to_string(i) + ".mtz");
    }
  }
  static Arguments fine(Arguments arguments) {
    arguments.insert(arguments.end(), {"--", "--spacing", "0.5"});
    return arguments;
  }

  static std::vector<Row> table(const std::string& path = "out/results.tsv") {
    std::istringstream file(read_file(path));
    std::vector<std::vector<std::string>> lines;
    for (std::string line; std::getline(file, line);) {
      lines.emplace_back();
      std::istringstream fields(line + "\t");
      for (std::string field; std::getline(fields, field, '\t');) lines.back().push_back(field);
    }
    std::vector<Row> rows;
    for (std::size_t i = 1; i < lines.size(); ++i) {
      EXPECT_EQ(lines[i].size(), lines[0].size()) << path;
      rows.emplace_back();
      for (std::size_t c = 0; c < std::min(lines[i].size(), lines[0].size()); ++c) {
        rows.back()[lines[0][c]] = lines[i][c];
      }
    }
    return rows;
  }
  static std::string column(const std::string& name, const std::string& path = "out/results.tsv") {
    std::string all;
    for (const Row& row : table(path)) all += (all.empty() ? "" : "|") + row.at(name);
    return all;
  }

  // What must not depend on how a batch went: every file with its bytes, and the table.
  static std::map<std::string, std::string> contents(const std::string& folder) {
    std::map<std::string, std::string> all;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(folder)) {
      const std::string path = entry.path().lexically_relative(folder).string();
      if (entry.path().extension() == ".ccp4" || path.find("/.") != std::string::npos) {
        all[path] = entry.is_directory() ? "" : read_file(entry.path().string());
      }
    }
    for (Row row : table(folder + "/results.tsv")) {
      row.erase("seconds");
      for (const auto& [name, field] : row) all["table: " + row.at("name") + " " + name] = field;
    }
    return all;
  }

  ScratchDirectory scratch_;
  std::filesystem::path before_ = std::filesystem::current_path();
};

}  // namespace qx::test
