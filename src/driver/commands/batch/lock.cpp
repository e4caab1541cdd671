#include "driver/commands/batch/lock.h"

#include "driver/commands/command_error.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <unistd.h>

namespace qx {

namespace {

constexpr std::int64_t grids_byte = std::int64_t{1} << 40;

}  // namespace

BatchLock::BatchLock(const std::filesystem::path& output)
    : descriptor_(open((output / file_name).c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0666)) {
  if (descriptor_ < 0) {
    throw CommandError(2, "cannot write in " + output.string() + ": " + std::strerror(errno));
  }
}

BatchLock::~BatchLock() { close(descriptor_); }

bool BatchLock::set(std::int64_t first, std::int64_t count, short kind) const {
  struct flock range = {};
  range.l_type = kind;
  range.l_whence = SEEK_SET;
  range.l_start = first;
  range.l_len = count;
  return fcntl(descriptor_, F_OFD_SETLK, &range) == 0 || (errno != EAGAIN && errno != EACCES);
}

bool BatchLock::take_data_sets(std::size_t first, std::size_t count) const {
  if (count == 0) return true;  // a length of 0 would mean everything behind
  return set(static_cast<std::int64_t>(first), static_cast<std::int64_t>(count), F_WRLCK);
}

bool BatchLock::take_grids() const { return set(grids_byte, 1, F_WRLCK); }

void BatchLock::leave_grids() const { (void)set(grids_byte, 1, F_UNLCK); }

}  // namespace qx
