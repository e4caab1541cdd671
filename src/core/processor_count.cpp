#include "core/processor_count.h"

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <sched.h>

namespace qx {

namespace {

constexpr std::size_t longest_path = 4096;

std::int32_t processors_of_affinity() {
  // Room for 16384: a set that is too small for the machine is refused.
  cpu_set_t sets[16];
  if (sched_getaffinity(0, sizeof sets, sets) != 0) return 1;
  return std::max(1, CPU_COUNT_S(sizeof sets, sets));
}

std::int32_t whole(double quota, double period) {
  if (!(quota > 0.0) || !(period > 0.0)) return 0;
  return std::max(1, static_cast<std::int32_t>(std::min(quota / period, 65536.0)));
}

bool read_line(const char* folder, const char* name, char (&line)[128]) {
  char path[longest_path + 64];
  std::snprintf(path, sizeof path, "%s/%s", folder, name);
  std::FILE* file = std::fopen(path, "re");
  if (!file) return false;
  const bool read = std::fgets(line, sizeof line, file) != nullptr;
  std::fclose(file);
  return read;
}

// Both generations of control groups, by what lies in the folder; "max" and -1 are no quota.
std::int32_t quota_of_folder(const char* folder) {
  char line[128];
  char* rest = nullptr;
  if (read_line(folder, "cpu.max", line)) {
    const double quota = std::strtod(line, &rest);
    return whole(quota, std::strtod(rest, nullptr));
  }
  if (!read_line(folder, "cpu.cfs_quota_us", line)) return 0;
  const double quota = std::strtod(line, nullptr);
  if (!read_line(folder, "cpu.cfs_period_us", line)) return 0;
  return whole(quota, std::strtod(line, nullptr));
}

// A group is bound by those above it as well; the own one may not be visible in a container.
std::int32_t tightest_upwards(char (&path)[longest_path], std::size_t mount_length) {
  std::int32_t tightest = 0;
  while (true) {
    const std::int32_t own = quota_of_folder(path);
    if (own > 0 && (tightest == 0 || own < tightest)) tightest = own;
    char* slash = std::strrchr(path + mount_length, '/');
    if (!slash) return tightest;
    *slash = '\0';
  }
}

// A line "number:controllers:/path"; the first generation mounts a controller by its name.
std::int32_t quota_of_line(char* line, const char* mount) {
  char* controllers = std::strchr(line, ':');
  char* group = controllers ? std::strchr(controllers + 1, ':') : nullptr;
  if (!group) return 0;
  *group++ = '\0';
  group[std::strcspn(group, "\n")] = '\0';
  ++controllers;
  const bool unified = *controllers == '\0';
  const bool of_cpu =
      std::strcmp(controllers, "cpu") == 0 || std::strncmp(controllers, "cpu,", 4) == 0;
  if (!unified && !of_cpu) return 0;
  char path[longest_path];
  const int root = std::snprintf(path, sizeof path, "%s%s", mount, unified ? "" : "/cpu");
  const auto length = static_cast<std::size_t>(root);
  if (root < 0 || length + std::strlen(group) >= sizeof path) return 0;
  std::strcpy(path + length, group);
  return tightest_upwards(path, length);
}

}  // namespace

std::int32_t processors_of_quota(const char* membership, const char* mount) noexcept {
  std::FILE* file = std::fopen(membership, "re");
  if (!file) return 0;
  std::int32_t tightest = 0;
  char line[longest_path];
  while (std::fgets(line, sizeof line, file)) {
    const std::int32_t own = quota_of_line(line, mount);
    if (own > 0 && (tightest == 0 || own < tightest)) tightest = own;
  }
  std::fclose(file);
  return tightest;
}

std::int32_t usable_processors() noexcept {
  static std::atomic<std::int32_t> known = 0;
  std::int32_t number = known.load(std::memory_order_relaxed);
  if (number == 0) {
    number = processors_of_affinity();
    const std::int32_t quota = processors_of_quota("/proc/self/cgroup", "/sys/fs/cgroup");
    if (quota > 0) number = std::min(number, quota);
    known.store(number, std::memory_order_relaxed);
  }
  return number;
}

}  // namespace qx
