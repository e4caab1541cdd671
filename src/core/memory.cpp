// The registry of tagged blocks: accounting, refusal of unknown addresses, one sweep at the end.
#include "core/kept_blocks.h"
#include "core/memory_system.h"
#include "core/report.h"
#include "core/say.h"
#include "core/tagged.h"

#include <quorix/engine.h>
#include <quorix/memory.h>

#if defined(__linux__)
#include <sys/mman.h>
#endif

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace {

constexpr std::size_t chain_count = 500;

struct BlockRecord {
  char* tag;  // null when the caller gave none
  void* address;
  std::size_t size;
  BlockRecord* next;
};

}  // namespace

// All that the registry of an engine knows: two engines share nothing but the source of serials.
struct qxmemmonitor {
  std::int64_t serial;  // from 1 on, no two alike in the process
  BlockRecord** chains;
  double current_size;
  double maximum_size;
};

namespace {

std::size_t chain_of(const void* address) {
  static const char anchor = 0;
  const auto a = reinterpret_cast<std::uintptr_t>(address);
  const auto b = reinterpret_cast<std::uintptr_t>(&anchor);
  return (a > b ? a - b : b - a) % chain_count;
}

#if defined(__linux__) && defined(MADV_HUGEPAGE)
// The pages that lie wholly within a block.
struct PageRange {
  PageRange(void* block, std::size_t size, std::uintptr_t page)
      : first((reinterpret_cast<std::uintptr_t>(block) + page - 1) & ~(page - 1)),
        last((reinterpret_cast<std::uintptr_t>(block) + size) & ~(page - 1)) {}
  std::uintptr_t first, last;
};

void advise(const PageRange& pages, int advice) {
  if (pages.last <= pages.first) return;
  (void)madvise(reinterpret_cast<void*>(pages.first), pages.last - pages.first, advice);
}

// Large arrays are swept with long strides: huge pages spare most of the address translation. Of
// smaller ones all pages come at once, for half of what as many faults cost: blocks are opened in
// the size that will be filled.
void prepare_pages(void* block, std::size_t size) {
  constexpr std::size_t huge = std::size_t{1} << 21;
  constexpr std::size_t worth_a_call = std::size_t{1} << 16;
  constexpr int populate_write = 23;  // MADV_POPULATE_WRITE, which older headers lack
  if (size >= 2 * huge) return advise({block, size, huge}, MADV_HUGEPAGE);
  if (size >= worth_a_call) advise({block, size, 4096}, populate_write);
}
#else
void prepare_pages(void*, std::size_t) {}
#endif

// Arrays start on a cache line: vector loads that straddle two cost the transforms up to 60 %. Of a
// block that was kept the pages are there.
void* aligned_block(std::size_t size) {
  constexpr std::size_t line = 64;
  if (size < 4 * line) return std::malloc(size);
  if (void* kept = qx::take_kept_block(size)) return kept;
  void* block = nullptr;
  if (posix_memalign(&block, line, size) != 0) return nullptr;
  prepare_pages(block, size);
  return block;
}

std::atomic<qx::SystemAllocator> system_allocator = aligned_block;
std::atomic<std::int64_t> last_serial = 0;

void* open_system_block(std::size_t size) { return system_allocator.load()(size); }

void free_record(BlockRecord* record) {
  qx::end_block(record->address);
  std::free(record->tag);
  std::free(record);
}

qx::Status fail_to_open(const qxmemmonitor* monitor, std::size_t size, const char* tag) {
  qx::say("\nxmalloc():\nFailed to open memory with size = %d for %s \n",
          static_cast<std::int32_t>(std::min<std::size_t>(size, INT32_MAX)), tag);
  qx::say("Total opened heap memory is %10.3f MB \n", monitor->current_size / 1e6);
  qx_print_xmalloc_memory();
  die();
  return qx::failed;
}

// Enters the block; on failure the block is released and the engine is gone.
qx::Status enter(qxmemmonitor* monitor, void* block, std::size_t size, const char* tag) {
  if (!monitor->chains) {
    monitor->chains =
        static_cast<BlockRecord**>(open_system_block(chain_count * sizeof(BlockRecord*)));
    if (!monitor->chains) {
      std::free(block);
      return qx::fail("xmalloc():", "Failed to open memory for memory registar ");
    }
    std::fill_n(monitor->chains, chain_count, nullptr);
  }
  auto* record = static_cast<BlockRecord*>(open_system_block(sizeof(BlockRecord)));
  if (!record) {
    std::free(block);
    return qx::fail("xmalloc():", "Failed to open memory for memory registar ");
  }
  *record = {nullptr, block, size, nullptr};
  if (tag) {
    record->tag = static_cast<char*>(open_system_block(std::strlen(tag) + 1));
    if (!record->tag) {
      free_record(record);
      return qx::fail("strdump():", "failed to dump the string %s \n", tag);
    }
    std::strcpy(record->tag, tag);
  }
  BlockRecord*& head = monitor->chains[chain_of(block)];
  record->next = head;
  head = record;
  return qx::ok;
}

// The link that holds the record of `block`; null when it is not registered.
BlockRecord** find_link(const qxmemmonitor* monitor, const void* block) {
  if (!monitor->chains) return nullptr;
  for (BlockRecord** link = &monitor->chains[chain_of(block)]; *link; link = &(*link)->next) {
    if ((*link)->address == block) return link;
  }
  return nullptr;
}

qxmemmonitor* monitor_or_null() { return qx_exist_quorix() ? qx_get_qxmemmonitor() : nullptr; }

}  // namespace

namespace qx {

SystemAllocator set_system_allocator(SystemAllocator allocator) noexcept {
  return system_allocator.exchange(allocator);
}

std::int64_t memory_epoch() noexcept {
  const qxmemmonitor* monitor = monitor_or_null();
  return monitor ? monitor->serial : 0;
}

}  // namespace qx

using qx::ok;

bool qx::take_block(void* block) noexcept {
  qxmemmonitor* monitor = monitor_or_null();
  BlockRecord** link = monitor ? find_link(monitor, block) : nullptr;
  if (!link) return false;
  BlockRecord* record = std::exchange(*link, (*link)->next);
  monitor->current_size -= static_cast<double>(record->size);
  record->address = nullptr;
  free_record(record);
  return true;
}

qx::Status qx_new_qxmemmonitor() {
  auto* monitor = static_cast<qxmemmonitor*>(open_system_block(sizeof(qxmemmonitor)));
  if (!monitor) {
    qx::note("qx_new_qxmemmonitor():", "Failed to malloc qxmemmonitor ");
    return qx::failed;
  }
  *monitor = {};
  monitor->serial = ++last_serial;
  return qx_set_qxmemmonitor(monitor);
}

void qx_delete_qxmemmonitor() {
  qxmemmonitor* monitor = monitor_or_null();
  if (!monitor) return;
  (void)qx_set_qxmemmonitor(nullptr);
  if (monitor->chains) {
    for (std::size_t i = 0; i < chain_count; ++i) {
      for (BlockRecord* record = monitor->chains[i]; record;) {
        free_record(std::exchange(record, record->next));
      }
    }
  }
  std::free(monitor->chains);
  std::free(monitor);
}

void* xmalloc(std::size_t size, const char* tag) {
  qxmemmonitor* monitor = monitor_or_null();
  if (!monitor) {
    (void)qx::fail("xmalloc():", "quorix memory monitor has not been set up yet");
    return nullptr;
  }
  const char* name = tag ? tag : "";
  if (size == 0) {
    qx::say("The requested memory size (= %d) for %s is < 1 \n", 0, name);
    return nullptr;
  }
  void* block = size > PTRDIFF_MAX ? nullptr : open_system_block(size);
  if (!block) {
    (void)fail_to_open(monitor, size, name);
    return nullptr;
  }
  monitor->current_size += static_cast<double>(size);
  monitor->maximum_size = std::max(monitor->maximum_size, monitor->current_size);
  return enter(monitor, block, size, tag) == ok ? block : nullptr;
}

qx::Status xfree(void* block) {
  if (!block) {
    qx::say("Free a NULL pointer, nothing will be done \n");
    return ok;
  }
  qxmemmonitor* monitor = monitor_or_null();
  if (!monitor) return qx::fail("xfree():", "quorix memory monitor has not been set up yet");
  if (!monitor->chains || !monitor->chains[chain_of(block)]) {
    qx::say("Try to free invalid pointer %p \n", block);
    die();
    return qx::failed;
  }
  BlockRecord** link = find_link(monitor, block);
  if (!link) {
    qx::say("\nxfree():\nTry to free invalid pointer %p \n", block);
    qx_print_xmalloc_memory();
    die();
    return qx::failed;
  }
  BlockRecord* record = std::exchange(*link, (*link)->next);
  monitor->current_size -= static_cast<double>(record->size);
  free_record(record);
  return ok;
}

void* xrealloc(void* block, std::size_t oldsize, std::size_t newsize, const char* tag) {
  void* moved = xmalloc(newsize, tag);
  if (!block || (!moved && newsize > 0)) return moved;
  if (moved) std::memcpy(moved, block, std::min(oldsize, newsize));
  return xfree(block) == ok ? moved : nullptr;
}

std::int32_t do_we_open_this_ptr(const void* block) {
  if (!block) return 0;
  const qxmemmonitor* monitor = monitor_or_null();
  if (!monitor) {
    qx::note("do_we_open_this_ptr():", "quorix memory monitor has not been set up yet");
    return 0;
  }
  return find_link(monitor, block) ? 1 : 0;
}

double qx_get_xmalloc_memory_size() {
  const qxmemmonitor* monitor = monitor_or_null();
  return monitor ? monitor->current_size / 1e6 : 0.0;
}

double qx_get_max_memory_size() {
  const qxmemmonitor* monitor = monitor_or_null();
  return monitor ? monitor->maximum_size / 1e6 : 0.0;
}

void qx_print_xmalloc_memory() {
  const qxmemmonitor* monitor = monitor_or_null();
  if (!monitor || !monitor->chains) return;
  qx::say("    ID       address   size(byte) \n");
  for (std::size_t i = 0; i < chain_count; ++i) {
    for (const BlockRecord* record = monitor->chains[i]; record; record = record->next) {
      qx::say("%-10s   %p          %zu \n", record->tag ? record->tag : "", record->address,
              record->size);
    }
  }
}
