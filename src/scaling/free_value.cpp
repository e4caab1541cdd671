// Which flags of a file mark the free set, for programs.
#include "stats/free_flags.h"

#include <quorix/cross.h>

void qx_tally_free_flags(std::int64_t n, const float* column, const char* label,
                         qx_flag_tally* tally) {
  const qx::FlagTally found = qx::tally_flags({column, static_cast<std::size_t>(n)});
  *tally = {};
  tally->usable = found.usable ? 1 : 0;
  tally->n = found.n;
  for (int i = 0; i < found.n; ++i) {
    tally->values[i] = found.values[i].value;
    tally->counts[i] = static_cast<std::int64_t>(found.values[i].count);
  }
  tally->flags = static_cast<std::int64_t>(found.flags);
  tally->missing = static_cast<std::int64_t>(found.missing);
  const auto value = qx::free_value(found, qx::is_one_free_label(label));
  tally->has_free = value ? 1 : 0;
  tally->free_value = value.value_or(0);
}
