// Where tagged memory comes from; tests put an allocator in its place that fails on demand.
#pragma once

#include <cstddef>

namespace qx {

// Must give memory that std::free takes, or null.
using SystemAllocator = void* (*)(std::size_t);
// Installs an allocator for every later request and gives the one it replaces.
SystemAllocator set_system_allocator(SystemAllocator allocator) noexcept;

// Takes a block out of the registry: it is the caller's from then on, who ends it with std::free.
// False, without a report, if it is not registered.
bool take_block(void* block) noexcept;

}  // namespace qx
