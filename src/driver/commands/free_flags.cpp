#include "driver/commands/free_flags.h"

#include "driver/commands/command_error.h"

#include <quorix/cross.h>

#include <algorithm>
#include <cctype>

namespace qx {

namespace {

// FreeR_flag, freerflag and FREE-R-FLAG are one label.
std::string plain(const std::string& label) {
  std::string text;
  for (const char c : label) {
    if (std::isalnum(static_cast<unsigned char>(c))) {
      text += static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    }
  }
  return text;
}

std::int64_t count_of(const qx_flag_tally& tally, int value) {
  for (int i = 0; i < tally.n; ++i) {
    if (tally.values[i] == value) return tally.counts[i];
  }
  return 0;
}

std::string values_of(const qx_flag_tally& tally) {
  constexpr int most = 12;
  std::string text;
  for (int i = 0; i < std::min(tally.n, most); ++i) {
    text += format("%s%d (%lld)", i > 0 ? ", " : "", tally.values[i],
                   static_cast<long long>(tally.counts[i]));
  }
  return text + (tally.n > most ? ", ..." : "");
}

std::string why_none(const FileColumn& column, const qx_flag_tally& tally) {
  if (!tally.usable) return "column " + column.label + " holds no free-set flags";
  if (tally.n == 0) return "column " + column.label + " is empty";
  return format("column %s holds only %d", column.label.c_str(), tally.values[0]);
}

}  // namespace

std::string FreeSet::line() const {
  return format("%s = %d, %zu of %zu reflections (%.1f %%)", label.c_str(), value, count, flags,
                100.0 * static_cast<double>(count) / static_cast<double>(flags));
}

const FileColumn* usual_free_column(const ReflectionFile& file) {
  for (const char* name : {"free", "freerflag", "rfreeflags", "freer", "rfree", "freerflags",
                           "rfreeflag", "freeflag", "freeflags", "test"}) {
    for (const FileColumn& column : file.columns) {
      if (column.type == 'I' && plain(column.label) == name) return &column;
    }
  }
  return nullptr;
}

std::optional<FreeSet> choose_free_set(const FileColumn& column, std::optional<int> asked,
                                       std::string& problem) {
  qx_flag_tally tally;
  qx_tally_free_flags(static_cast<std::int64_t>(column.values.size()), column.values.data(),
                      column.label.c_str(), &tally);
  const std::optional<int> value = asked                 ? asked
                                   : tally.has_free == 1 ? std::optional(tally.free_value)
                                                         : std::nullopt;
  if (!value) {
    problem = why_none(column, tally);
    return {};
  }
  if (*value == -1 && tally.missing > 0) {  // to the data set a missing flag is -1
    problem = "column " + column.label + " has missing flags, which -1 cannot be told from";
    return {};
  }
  const auto count = static_cast<std::size_t>(tally.usable ? count_of(tally, *value) : 0);
  if (count == 0) {
    throw CommandError(2, format("--free-value %d: ", *value) +
                              (tally.n > 0 && tally.usable
                                   ? "column " + column.label + " holds " + values_of(tally)
                                   : why_none(column, tally)));
  }
  return FreeSet{column.label, *value, count, static_cast<std::size_t>(tally.flags)};
}

}  // namespace qx
