// Reflection file formats as the rest of the engine sees them: a row each, in a table that stands
// above the data set, with the readers and writers themselves.
#pragma once

#include "crystal/reflections.h"

#include <span>

struct qxrefreject;

namespace qx {

struct FileFormat {
  const char* word;  // three letters, upper case, as `read refl` and `write refl` take them
  ReflectionFormat code;
  const char* name;  // as reports say it
  // Keeps the file's contents in the data set; null: not built yet.
  Status (*read)(qxrefdata* refdata, const char* path);
  // Fills the data set's arrays from what was read; rows that `reject` names stay out if `apply`
  // is 1.
  Status (*build)(qxrefdata* refdata, const qxrefreject* reject, std::int32_t apply);
  // Writes the data set; `labels` by identifier, null for the columns and labels of the source;
  // `others`: also the source's columns that are not among them.
  Status (*write)(const char* path, const qxrefdata& refdata, const char* const* labels,
                  bool others);
  // Lets go of the file's contents.
  Status (*forget)(qxrefdata* refdata);
};

std::span<const FileFormat> file_formats() noexcept;

}  // namespace qx
