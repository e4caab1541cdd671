// Owners for tagged blocks and files that stay safe when a die happens under them.
#pragma once

#include <quorix/memory.h>

#include <cstdint>
#include <cstdio>
#include <cstring>
#include <limits>
#include <new>
#include <type_traits>
#include <utility>

namespace qx {

// Number of the registry in force, 0 without one. Every monitor has its own, so a block is released
// only into the registry it came from.
std::int64_t memory_epoch() noexcept;

// `count` uninitialised elements in tagged memory; null after a report (engine gone) and, with the
// allocator's own line, for count 0.
template <class T>
T* allocate(std::size_t count, const char* tag) {
  static_assert(std::is_trivially_destructible_v<T>, "tagged memory is swept without destructors");
  constexpr std::size_t most = std::numeric_limits<std::size_t>::max() / sizeof(T);
  return static_cast<T*>(
      xmalloc(count > most ? std::numeric_limits<std::size_t>::max() : count * sizeof(T), tag));
}

// `count` elements, all bytes zero.
template <class T>
T* allocate_zeroed(std::size_t count, const char* tag) {
  T* block = allocate<T>(count, tag);
  if (block) std::memset(static_cast<void*>(block), 0, count * sizeof(T));
  return block;
}

// A record with its member initialisers applied, in tagged memory; null after a report.
template <class T>
T* new_object(const char* tag) {
  static_assert(std::is_trivially_destructible_v<T>, "tagged memory is swept without destructors");
  void* block = xmalloc(sizeof(T), tag);
  return block ? new (block) T{} : nullptr;
}

// A private copy of `text` in tagged memory; null after a report.
inline char* duplicate_text(const char* text, const char* tag) {
  const std::size_t size = std::strlen(text) + 1;
  char* copy = allocate<char>(size, tag);
  if (copy) std::memcpy(copy, text, size);
  return copy;
}

// Fills a field of a record: the record goes with the engine when the allocation fails, so nothing
// may be stored before the block is known to be there. A field is never assigned an allocation
// directly (tools/check_allocations.py).
template <class T>
Status open_block(T*& field, std::size_t count, const char* tag) {
  T* block = allocate<T>(count, tag);
  if (!block) return failed;
  field = block;
  return ok;
}
// The same for a list that may be empty: the field of an empty one stays null.
template <class T>
Status open_list(T*& field, std::int32_t count, const char* tag) {
  return count < 1 ? ok : open_block(field, static_cast<std::size_t>(count), tag);
}
template <class T>
Status open_zeroed(T*& field, std::size_t count, const char* tag) {
  T* block = allocate_zeroed<T>(count, tag);
  if (!block) return failed;
  field = block;
  return ok;
}
template <class T>
Status open_object(T*& field, const char* tag) {
  T* object = new_object<T>(tag);
  if (!object) return failed;
  field = object;
  return ok;
}
inline Status open_text(char*& field, const char* text, const char* tag) {
  char* copy = duplicate_text(text, tag);
  if (!copy) return failed;
  field = copy;
  return ok;
}
// The same for a block that another routine gives: adopt(grid.ref_ix, xopen_matrix_int(...)).
template <class T>
Status adopt(T*& field, T* block) {
  if (!block) return failed;
  field = block;
  return ok;
}

// Empties the field, then releases what it held: a report raised on the way cannot release twice.
template <class T>
Status release(T*& field) {
  T* block = std::exchange(field, nullptr);
  return block ? xfree(block) : ok;
}

// Scratch in tagged memory. After a die the destructor is silent, also when a new root exists.
template <class T>
class Tagged {
 public:
  Tagged() = default;
  Tagged(std::size_t count, const char* tag)
      : block_(allocate<T>(count, tag)), epoch_(memory_epoch()) {}
  // Takes over a block that came from the registry in force.
  explicit Tagged(T* block) : block_(block), epoch_(memory_epoch()) {}
  Tagged(const Tagged&) = delete;
  Tagged& operator=(const Tagged&) = delete;
  Tagged(Tagged&& other) noexcept
      : block_(std::exchange(other.block_, nullptr)), epoch_(other.epoch_) {}
  Tagged& operator=(Tagged&& other) noexcept {
    if (this != &other) {
      reset();
      block_ = std::exchange(other.block_, nullptr);
      epoch_ = other.epoch_;
    }
    return *this;
  }
  ~Tagged() { reset(); }

  [[nodiscard]] T* get() const { return block_; }
  T& operator[](std::size_t i) const { return block_[i]; }
  explicit operator bool() const { return block_ != nullptr; }
  // Gives the block away, typically into an object's field.
  [[nodiscard]] T* release() { return std::exchange(block_, nullptr); }
  void reset() {
    T* block = std::exchange(block_, nullptr);
    if (block && epoch_ == memory_epoch()) (void)xfree(block);
  }

 private:
  T* block_ = nullptr;
  std::int64_t epoch_ = 0;
};

// An open stream, closed on every way out, also after a report.
class File {
 public:
  File() = default;
  File(const char* path, const char* mode) : stream_(std::fopen(path, mode)) {}
  File(const File&) = delete;
  File& operator=(const File&) = delete;
  ~File() {
    if (stream_) std::fclose(stream_);
  }
  [[nodiscard]] std::FILE* get() const { return stream_; }
  explicit operator bool() const { return stream_ != nullptr; }

 private:
  std::FILE* stream_ = nullptr;
};

}  // namespace qx
