// How many processors this process may use.
#pragma once

#include <cstdint>

namespace qx {

// By affinity and by the quota of its control groups; asked of the system once. At least 1.
std::int32_t usable_processors() noexcept;

// The tightest quota from a process' own group upwards, in whole processors, at least 1; 0: none.
// `membership` is what the system writes to /proc/self/cgroup, `mount` where the groups' folders
// are.
std::int32_t processors_of_quota(const char* membership, const char* mount) noexcept;

}  // namespace qx
