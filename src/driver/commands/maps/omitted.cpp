#include "driver/commands/maps/omitted.h"

namespace qx {

// Numbers from 1, neighbours as a range.
std::string omitted_atoms_line(const FcalcJob& job, const std::string& selection,
                               const std::string& option) {
  const std::vector<std::size_t> entries =
      job.coordinates.entries_of(selection, job.options.model, option);
  std::string line = "region atoms";
  for (std::size_t i = 0; i < entries.size();) {
    std::size_t last = i;
    while (last + 1 < entries.size() && entries[last + 1] == entries[last] + 1) ++last;
    line += format(" %zu", entries[i] + 1);
    if (last > i) line += format(":%zu", entries[last] + 1);
    i = last + 1;
  }
  return line;
}

}  // namespace qx
