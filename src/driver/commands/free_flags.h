// The free set that a reflection file marks: by which value, how many, and the line that says so.
#pragma once

#include "driver/commands/reflection_file.h"

#include <optional>
#include <string>

namespace qx {

struct FreeSet {
  std::string label;
  int value = 0;
  std::size_t count = 0, flags = 0;  // reflections of that value, and of any

  [[nodiscard]] std::string line() const;
};

// The column that usually holds the flags; null without one.
const FileColumn* usual_free_column(const ReflectionFile& file);

// The free set of the column, by the value asked for or else by what counts and label tell. None if
// the column marks none: `problem` says why. Throws CommandError for a value that does not occur.
std::optional<FreeSet> choose_free_set(const FileColumn& column, std::optional<int> asked,
                                       std::string& problem);

}  // namespace qx
