// Large blocks that were let go, kept for who asks next. Pages that go back to the system are
// cleared before they come again, which costs a small map as much as its transforms, and threads of
// a process wait for each other there.
#pragma once

#include <cstddef>

namespace qx {

// A kept block of at least `size` bytes that starts on a cache line; null if none suits.
void* take_kept_block(std::size_t size) noexcept;
// Ends a block that malloc or a kin of it gave: it is kept or freed.
void end_block(void* block) noexcept;

}  // namespace qx
