// Export mark and result types shared by every public header.
#pragma once

#include <cstdint>

#if defined(__GNUC__) || defined(__clang__)
#define QX_API __attribute__((visibility("default")))
#else
#define QX_API
#endif

namespace qx {

// Result of a routine: a plain signed 32-bit 0 or 1 to callers of the C interface.
// `failed` means that a report was printed and the whole engine is gone: touch nothing, return.
enum [[nodiscard]] Status : std::int32_t{ok = 0, failed = 1};

// Result of a key reader. A missing key is not a failure; `key_died` is (engine gone, as above).
enum [[nodiscard]] Key : std::int32_t{found = 0, absent = 1, key_died = 2};

}  // namespace qx

// Passes a failure on at once; the engine no longer exists, so there is nothing to clean up.
#define QX_TRY(call)                             \
  do {                                           \
    if ((call) != ::qx::ok) return ::qx::failed; \
  } while (false)
