// Text data files: significant lines only.
#pragma once

#include <cstddef>
#include <cstdio>

namespace qx {

// The next line that is neither empty nor a comment (first non-blank character '#'), leading and
// trailing white space removed. Lines longer than the buffer come in pieces. False at the end.
bool next_significant_line(std::FILE* stream, char* line, std::size_t size) noexcept;

}  // namespace qx
