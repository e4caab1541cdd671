// Work in parts on several threads, the same to the last bit on any number of them.
#pragma once

#include <cstdint>
#include <memory>
#include <type_traits>

namespace qx {

// How many threads heavy work of this engine may use: what qx_set_threads said, else
// QUORIX_THREADS, else OMP_NUM_THREADS, else the processors this process may use. At least 1.
std::int32_t thread_count() noexcept;
// What qx_set_threads said; 0: nothing.
std::int32_t threads_set() noexcept;
// What QUORIX_THREADS holds if that is no number of threads, and is passed over; else null.
const char* unusable_threads_variable() noexcept;
// As many of them as work of so many elementary operations (a product and a sum) is worth.
std::int32_t threads_worth(double operations) noexcept;

// Runs task(context, part, worker) for every part of 0 .. parts - 1 on at most `threads` threads,
// the caller among them, and returns when all have run. Which worker takes which part is chance, so
// a part's result must not depend on it: `worker` (below `threads`) only tells whose scratch to
// use. Tasks are kernels: they never print, allocate tagged memory, report or touch the root.
using Task = void (*)(void* context, std::int32_t part, std::int32_t worker) noexcept;
void run_parts(std::int32_t parts, std::int32_t threads, Task task, void* context) noexcept;

// The same for a callable f(part, worker).
template <class F>
void parallel(std::int32_t parts, std::int32_t threads, F&& f) noexcept {
  using Callable = std::remove_reference_t<F>;
  auto* context = const_cast<std::remove_const_t<Callable>*>(std::addressof(f));
  run_parts(
      parts, threads,
      [](void* callable, std::int32_t part, std::int32_t worker) noexcept {
        (*static_cast<Callable*>(callable))(part, worker);
      },
      context);
}

// First item of a part when `count` items are cut into `parts` of equal size but for one.
constexpr std::int64_t part_begin(std::int64_t count, std::int32_t parts,
                                  std::int32_t part) noexcept {
  return count / parts * part + (part < count % parts ? part : count % parts);
}

}  // namespace qx
