// Export mark and result types shared by every public header; all of them are C11 as well as C++.
#pragma once

#ifdef __cplusplus
#include <cstddef>
#include <cstdint>
#endif
#include <stddef.h>
#include <stdint.h>

#if defined(__GNUC__) || defined(__clang__)
#define QX_API __attribute__((visibility("default")))
#else
#define QX_API
#endif

// A variable that each thread has for itself. GNU compilers know its value of a constant in both
// languages, so that C++ asks no routine for its address.
#if defined(__GNUC__) || defined(__clang__)
#define QX_PER_THREAD __thread
#elif defined(__cplusplus)
#define QX_PER_THREAD thread_local
#else
#define QX_PER_THREAD _Thread_local
#endif

#ifdef __cplusplus
#define QX_C_BEGIN extern "C" {
#define QX_C_END }

namespace qx {

// Result of a routine: a plain signed 32-bit 0 or 1 to callers of the C interface.
// `failed` means that a report was printed and the whole engine is gone: touch nothing, return.
enum [[nodiscard]] Status : std::int32_t{ok = 0, failed = 1};

// Result of a key reader. A missing key is not a failure; `key_died` is (engine gone, as above).
enum [[nodiscard]] Key : std::int32_t{found = 0, absent = 1, key_died = 2};

}  // namespace qx

using qx_status = qx::Status;
using qx_key = qx::Key;

// Passes a failure on at once; the engine no longer exists, so there is nothing to clean up.
#define QX_TRY(call)                             \
  do {                                           \
    if ((call) != ::qx::ok) return ::qx::failed; \
  } while (false)

#else
#define QX_C_BEGIN
#define QX_C_END

typedef int32_t qx_status;  // 0: done; 1: a report was printed and the whole engine is gone
typedef int32_t qx_key;     // 0: found, 1: absent, 2: a report was printed and the engine is gone

#endif
