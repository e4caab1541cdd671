// Keeps two batches from the same data sets.
#pragma once

#include <cstdint>
#include <filesystem>

namespace qx {

// Byte i of a hidden file in the output folder stands for data set i, and one far behind them for
// the shared grids. The system forgets the locks of a process that is gone, however it went.
class BatchLock {
 public:
  static constexpr const char* file_name = ".lock";

  // Throws CommandError if the folder cannot be written to.
  explicit BatchLock(const std::filesystem::path& output);
  BatchLock(const BatchLock&) = delete;
  BatchLock& operator=(const BatchLock&) = delete;
  ~BatchLock();

  // False if another process holds any of them. True where the file system knows no locks.
  bool take_data_sets(std::size_t first, std::size_t count) const;
  bool take_grids() const;
  void leave_grids() const;

 private:
  [[nodiscard]] bool set(std::int64_t first, std::int64_t count, short kind) const;

  int descriptor_;
};

}  // namespace qx
