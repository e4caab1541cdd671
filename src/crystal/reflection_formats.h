// Reflection file formats as the rest of the engine sees them: a row each, in a table that stands
// above the data set, with the readers and writers themselves.
#pragma once

#include "crystal/reflections.h"

#include <span>

struct qxmtz;
struct qxrefreject;

namespace qx {

struct FileFormat {
  const char* word;  // three letters, upper case, as `read refl` and `write refl` take them
  ReflectionFormat code;
  const char* name;  // as reports say it
  // Keeps the file's contents in the data set, as a table of columns whatever the format.
  Status (*read)(qxrefdata* refdata, const char* path);
  // Fills the data set's arrays from what was read; rows that `reject` names stay out if `apply`
  // is 1.
  Status (*build)(qxrefdata* refdata, const qxrefreject* reject, std::int32_t apply);
  // Writes a table; false after a note that leaves the engine standing, or after a report.
  bool (*write)(const char* path, const qxmtz& table);
  // The column that an identifier without a name means, null without one; null: they have none.
  const char* (*usual)(const qxmtz& table, std::int32_t coid) noexcept;
  // Lets go of the file's contents.
  Status (*forget)(qxrefdata* refdata);
};

std::span<const FileFormat> file_formats() noexcept;
// The row of a word that begins with three letters of one, in any case; null: there is none.
const FileFormat* find_format(const char* word) noexcept;
const FileFormat* find_format(std::int32_t code) noexcept;

// Writes the data set; `labels` by identifier, null for the columns and labels of the source;
// `others`: also the source's columns that are not among them.
Status write_reflections(const FileFormat& format, const char* path, const qxrefdata& refdata,
                         const char* const* labels, bool others);

}  // namespace qx
