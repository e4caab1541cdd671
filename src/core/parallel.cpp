// Threads of the process that wait for parts of any engine's work. Why threads that stay: a call
// then costs 2 microseconds (threads made for each call: 8 a thread), and a caller never waits for
// a thread that has taken no part, be the machine as busy as it may; threads made for a call must
// be joined, and those of OpenMP meet spinning at a barrier, which costs tens of milliseconds where
// other programs use the processors (bench/threads_bench.cpp). The first call that wants threads
// starts them.
#include "core/parallel.h"

#include "core/processor_count.h"

#include <quorix/engine.h>

#include <algorithm>
#include <atomic>
#include <csignal>
#include <cstdlib>
#include <pthread.h>

namespace qx {

namespace {

// One caller's work while it is open to others; it lives on the caller's stack.
struct Job {
  Task task = nullptr;
  void* context = nullptr;
  std::int32_t parts = 0;
  std::atomic<std::int32_t> next_part = 0;
  std::int32_t seats = 0;    // threads that may still join
  std::int32_t workers = 1;  // the caller and who has joined
  std::int32_t busy = 0;     // who has joined and not left
  pthread_cond_t left = PTHREAD_COND_INITIALIZER;
  Job* next = nullptr;
};

constexpr std::int32_t most_threads = 512;

// All that the engines of a process share; nothing of it is ever destroyed, since its threads are
// not.
struct Pool {
  pthread_mutex_t mutex = PTHREAD_MUTEX_INITIALIZER;
  pthread_cond_t work = PTHREAD_COND_INITIALIZER;
  Job* jobs = nullptr;       // open ones
  std::int32_t started = 0;  // threads
  std::int32_t wanted = 0;   // by open jobs
};
constinit Pool pool;

void run_open_parts(Job& job, std::int32_t worker) {
  while (true) {
    const std::int32_t part = job.next_part.fetch_add(1, std::memory_order_relaxed);
    if (part >= job.parts) return;
    job.task(job.context, part, worker);
  }
}

bool has_work(const Job& job) {
  return job.seats > 0 && job.next_part.load(std::memory_order_relaxed) < job.parts;
}

Job* job_to_join() {
  Job* job = pool.jobs;
  while (job && !has_work(*job)) job = job->next;
  return job;
}

void* work_for_ever(void*) {
  pthread_mutex_lock(&pool.mutex);
  while (true) {
    Job* job = job_to_join();
    if (!job) {
      pthread_cond_wait(&pool.work, &pool.mutex);
      continue;
    }
    --job->seats;
    ++job->busy;
    const std::int32_t worker = job->workers++;
    pthread_mutex_unlock(&pool.mutex);
    run_open_parts(*job, worker);
    pthread_mutex_lock(&pool.mutex);
    if (--job->busy == 0) pthread_cond_signal(&job->left);
  }
}

// A child of fork has the forking thread alone, and the locks as they were: held by prepare.
void before_fork() { pthread_mutex_lock(&pool.mutex); }
void in_parent() { pthread_mutex_unlock(&pool.mutex); }
void in_child() {
  pool.mutex = PTHREAD_MUTEX_INITIALIZER;
  pool.work = PTHREAD_COND_INITIALIZER;
  pool.jobs = nullptr;
  pool.started = 0;
  pool.wanted = 0;
}

bool start_thread() {
  pthread_attr_t attributes;
  if (pthread_attr_init(&attributes) != 0) return false;
  pthread_attr_setdetachstate(&attributes, PTHREAD_CREATE_DETACHED);
  pthread_attr_setstacksize(&attributes, std::size_t{2} << 20);
  // The program's signals are for its own threads.
  sigset_t all;
  sigset_t before;
  sigfillset(&all);
  pthread_sigmask(SIG_SETMASK, &all, &before);
  pthread_t thread;
  const bool started = pthread_create(&thread, &attributes, work_for_ever, nullptr) == 0;
  pthread_sigmask(SIG_SETMASK, &before, nullptr);
  pthread_attr_destroy(&attributes);
  return started;
}

// Where the system gives no more threads, those that are there do the work, or the caller alone.
void start_threads() {
  static const int prepared = pthread_atfork(before_fork, in_parent, in_child);
  const std::int32_t enough = std::min(pool.wanted, most_threads);
  while (prepared == 0 && pool.started < enough && start_thread()) ++pool.started;
}

void open_job(Job& job, std::int32_t seats) {
  pthread_mutex_lock(&pool.mutex);
  job.next = pool.jobs;
  pool.jobs = &job;
  pool.wanted += seats;
  start_threads();
  for (std::int32_t i = 0; i < seats; ++i) pthread_cond_signal(&pool.work);
  pthread_mutex_unlock(&pool.mutex);
}

// From here on nobody joins; who has joined is waited for.
void close_job(Job& job, std::int32_t seats) {
  pthread_mutex_lock(&pool.mutex);
  Job** link = &pool.jobs;
  while (*link != &job) link = &(*link)->next;
  *link = job.next;
  pool.wanted -= seats;
  while (job.busy > 0) pthread_cond_wait(&job.left, &pool.mutex);
  pthread_mutex_unlock(&pool.mutex);
  pthread_cond_destroy(&job.left);
}

QX_PER_THREAD std::int32_t set_by_caller = 0;

constexpr const char* own_variable = "QUORIX_THREADS";

// The first number of a variable (OMP_NUM_THREADS may hold one for each level); 0: there is none.
std::int32_t number_in(const char* variable) {
  const char* text = std::getenv(variable);
  if (!text) return 0;
  char* end = nullptr;
  const long number = std::strtol(text, &end, 10);
  const bool whole = end != text && (*end == '\0' || *end == ',');
  return whole && number > 0 ? static_cast<std::int32_t>(std::min(number, 1024L)) : 0;
}

}  // namespace

std::int32_t thread_count() noexcept {
  if (set_by_caller > 0) return set_by_caller;
  for (const char* variable : {own_variable, "OMP_NUM_THREADS"}) {
    const std::int32_t number = number_in(variable);
    if (number > 0) return number;
  }
  return usable_processors();
}

std::int32_t threads_set() noexcept { return set_by_caller; }

const char* unusable_threads_variable() noexcept {
  const char* text = std::getenv(own_variable);
  return text && *text && number_in(own_variable) == 0 ? text : nullptr;
}

std::int32_t threads_worth(double operations) noexcept {
  // About 0.2 ms: a hundred times what a thread that waits costs.
  constexpr double worth_a_thread = 5e5;
  if (!(operations >= 2.0 * worth_a_thread)) return 1;
  const double worth = std::min(operations / worth_a_thread, 1024.0);
  return std::min(static_cast<std::int32_t>(worth), thread_count());
}

void run_parts(std::int32_t parts, std::int32_t threads, Task task, void* context) noexcept {
  const std::int32_t seats = std::min({threads, parts, most_threads + 1}) - 1;
  if (seats < 1) {
    for (std::int32_t part = 0; part < parts; ++part) task(context, part, 0);
    return;
  }
  Job job{.task = task, .context = context, .parts = parts, .seats = seats};
  open_job(job, seats);
  run_open_parts(job, 0);
  close_job(job, seats);
}

}  // namespace qx

void qx_set_threads(std::int32_t threads) { qx::set_by_caller = std::max(threads, 0); }

std::int32_t qx_get_threads() { return qx::thread_count(); }
