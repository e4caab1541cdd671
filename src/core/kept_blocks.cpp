#include "core/kept_blocks.h"

#include <quorix/memory.h>

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <cstdlib>
#include <malloc.h>
#include <mutex>

#if defined(__has_feature)
#define QX_ADDRESSES_CHECKED __has_feature(address_sanitizer)
#elif defined(__SANITIZE_ADDRESS__)
#define QX_ADDRESSES_CHECKED 1
#endif
#if QX_ADDRESSES_CHECKED
#include <sanitizer/asan_interface.h>
#else
#define ASAN_POISON_MEMORY_REGION(block, size) ((void)(block), (void)(size))
#define ASAN_UNPOISON_MEMORY_REGION(block, size) ((void)(block), (void)(size))
#endif

namespace qx {

namespace {

constexpr std::size_t line = 64;
constexpr std::size_t smallest = 16384;  // below, malloc is as fast
constexpr std::size_t places = 128;
constexpr std::uint64_t most_idle = 512;  // blocks that came since: those of many small maps

struct Kept {
  void* block;
  std::size_t size;
  std::uint64_t since;
};

struct Shelf {
  std::mutex mutex;
  Kept kept[places];
  std::size_t count;
  std::size_t size;
  std::uint64_t arrivals;

  void* remove(std::size_t i) noexcept {
    const Kept found = kept[i];
    kept[i] = kept[--count];
    size -= found.size;
    ASAN_UNPOISON_MEMORY_REGION(found.block, found.size);
    return found.block;
  }
  void add(void* block, std::size_t bytes) noexcept {
    kept[count++] = {block, bytes, ++arrivals};
    size += bytes;
    ASAN_POISON_MEMORY_REGION(block, bytes);
  }
  // Sizes that nobody asks for any more go first.
  void shrink_to(std::size_t most, std::size_t most_blocks) noexcept {
    while (count > 0 && (size > most || count > most_blocks)) {
      const Kept* oldest = std::min_element(
          kept, kept + count, [](const Kept& a, const Kept& b) { return a.since < b.since; });
      std::free(remove(static_cast<std::size_t>(oldest - kept)));
    }
  }
  void drop_idle() noexcept {
    for (std::size_t i = count; i-- > 0;) {
      if (arrivals - kept[i].since > most_idle) std::free(remove(i));
    }
  }
};

Shelf shelf;
std::atomic<std::size_t> most_kept = 0;

}  // namespace

// Nobody waits for the shelf: it may also be locked for good, in a child of a process of threads.
void* take_kept_block(std::size_t size) noexcept {
  if (size < smallest || most_kept.load(std::memory_order_relaxed) == 0) return nullptr;
  const std::unique_lock<std::mutex> alone(shelf.mutex, std::try_to_lock);
  if (!alone) return nullptr;
  std::size_t best = shelf.count;
  std::size_t least = size + size / 4 + 1;
  for (std::size_t i = 0; i < shelf.count; ++i) {
    const std::size_t has = shelf.kept[i].size;
    if (has < size || has >= least) continue;
    best = i;
    least = has;
  }
  return best < shelf.count ? shelf.remove(best) : nullptr;
}

void end_block(void* block) noexcept {
  const std::size_t most = most_kept.load(std::memory_order_relaxed);
  const std::size_t size = most > 0 && block ? malloc_usable_size(block) : 0;
  const bool worth =
      size >= smallest && size <= most / 2 && reinterpret_cast<std::uintptr_t>(block) % line == 0;
  const std::unique_lock<std::mutex> alone =
      worth ? std::unique_lock<std::mutex>(shelf.mutex, std::try_to_lock)
            : std::unique_lock<std::mutex>();
  if (!alone) return std::free(block);
  shelf.shrink_to(most - size, places - 1);
  shelf.add(block, size);
  if (shelf.arrivals % places == 0) shelf.drop_idle();
}

}  // namespace qx

void qx_keep_memory(double megabytes) {
  constexpr double most = 1e6;
  const double wanted = std::clamp(megabytes, 0.0, most);
  const std::lock_guard<std::mutex> alone(qx::shelf.mutex);
  qx::most_kept = static_cast<std::size_t>(wanted * 1e6);
  qx::shelf.shrink_to(qx::most_kept, qx::places);
}

void qx_end_block(void* block) { qx::end_block(block); }
