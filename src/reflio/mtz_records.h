// The header records of an MTZ file: a row per keyword.
#pragma once

#include "reflio/mtz.h"

namespace qx {

// One record split at blanks; a token in single quotes keeps its blanks.
struct MtzTokens {
  MtzText line = {};  // the record without trailing blanks, for reports
  MtzText text = {};
  std::int32_t count = 0;
  const char* token[mtz_record_size] = {};
};

// `size` bytes of a record, at most 80; control characters count as blanks.
void split_record(const char* record, std::size_t size, MtzTokens& tokens) noexcept;

// The first four letters of the record are `keyword`.
bool is_record(const MtzTokens& tokens, const char* keyword) noexcept;

// Whole-token numbers; false when the token is not one or does not fit.
bool read_number(const char* token, std::int32_t& value) noexcept;
bool read_number(const char* token, double& value) noexcept;

// What the two passes over the main header take: counts first, everything else second. Unknown
// keywords are left alone; `failed` after the report of a malformed record.
enum class HeaderPass { counts, contents };
Status parse_record(qxmtz& mtz, const MtzTokens& tokens, HeaderPass pass);

// Reports a malformed record: `before`, the record itself, `after`.
Status record_fault(const char* before, const MtzTokens& tokens, const char* after = " ");

}  // namespace qx
