// The numbers of coordinate files as they stand there. gemmi reads what is no number as 0 or as a
// default without a word.
#pragma once

#include <cstddef>
#include <string>

namespace gemmi::cif {
struct Document;
}

namespace qx {

// Atoms without a value of their own, by what is taken instead.
struct DefaultValues {
  std::size_t occupancies = 0, b_factors = 0;
  double b_factor = 20.0;  // A^2; an occupancy is 1
};

// Both throw CommandError with line and atom for a coordinate, occupancy, B factor or tensor that
// is no finite number. In PDB text values that are left blank are filled in.
DefaultValues check_pdb_numbers(std::string& text, const std::string& path);
DefaultValues check_mmcif_numbers(gemmi::cif::Document& document, const std::string& text,
                                  const std::string& path);

}  // namespace qx
