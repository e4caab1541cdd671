// Columns of an MTZ file, read without the engine.
#pragma once

#include <string>
#include <vector>

namespace qx::test {

// The values of a column of a little-endian file, NaN where missing; empty without such a column.
std::vector<float> column_of(const std::string& path, const std::string& label);

}  // namespace qx::test
