#include "driver/commands/coordinate_text.h"

#include "driver/commands/command_error.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <gemmi/cifdoc.hpp>  // for Document
#include <gemmi/numb.hpp>    // for is_numb
#include <string_view>
#include <strings.h>

namespace qx {

namespace {

std::string_view trimmed(std::string_view text) {
  const std::size_t from = text.find_first_not_of(" \t\r");
  if (from == std::string_view::npos) return {};
  return text.substr(from, text.find_last_not_of(" \t\r") + 1 - from);
}

bool is_number(std::string_view text) {
  text = trimmed(text);
  if (!text.empty() && text.front() == '+') text.remove_prefix(1);
  double value = 0.0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
  return error == std::errc() && end == text.data() + text.size() && std::isfinite(value);
}

struct Field {
  const char* what;
  std::size_t start, length;
};

constexpr Field coordinates[] = {
    {"x coordinate", 30, 8}, {"y coordinate", 38, 8}, {"z coordinate", 46, 8}};
constexpr Field occupancy = {"occupancy", 54, 6};
constexpr Field b_factor = {"B factor", 60, 6};
constexpr Field tensor[] = {{"U11", 28, 7}, {"U22", 35, 7}, {"U33", 42, 7},
                            {"U12", 49, 7}, {"U13", 56, 7}, {"U23", 63, 7}};
constexpr Field cell[] = {{"cell edge a", 6, 9},      {"cell edge b", 15, 9},
                          {"cell edge c", 24, 9},     {"cell angle alpha", 33, 7},
                          {"cell angle beta", 40, 7}, {"cell angle gamma", 47, 7}};
constexpr Field scale[] = {{"first number of the scale matrix", 10, 10},
                           {"second number of the scale matrix", 20, 10},
                           {"third number of the scale matrix", 30, 10},
                           {"shift of the scale matrix", 45, 10}};

std::string_view field_of(std::string_view line, const Field& field) {
  return line.size() > field.start ? line.substr(field.start, field.length) : std::string_view();
}

[[noreturn]] void refuse_number(const std::string& where, const std::string& whose,
                                const char* what, std::string_view value) {
  throw CommandError(
      2, where + ": the " + what + whose + " is no number: '" + std::string(trimmed(value)) + "'");
}

// The records of a PDB text, line by line.
class PdbNumbers {
 public:
  PdbNumbers(std::string& text, const std::string& path) : text_(text), path_(path) {}

  DefaultValues check() {
    for (std::size_t end = 0; start_ < text_.size(); start_ = end + 1) {
      ++number_;
      end = std::min(text_.find('\n', start_), text_.size());
      line_ = std::string_view(text_).substr(start_, end - start_);
      if (is_end()) break;
      check_line();
    }
    return defaults_;
  }

 private:
  // Four letters in any case tell a record, as they do to gemmi.
  [[nodiscard]] bool is_record(const char* letters) const {
    return line_.size() >= 4 && strncasecmp(line_.data(), letters, 4) == 0;
  }
  [[nodiscard]] bool is_end() const {
    const std::string_view word = trimmed(line_.substr(0, 4));
    return word.size() == 3 && strncasecmp(word.data(), "END", 3) == 0;
  }

  // Serial, name, residue, chain and number as they stand in the columns.
  [[nodiscard]] std::string atom() const {
    std::string text = " of atom";
    constexpr Field names[] = {{"", 6, 5}, {"", 12, 4}, {"", 17, 3}, {"", 20, 2}, {"", 22, 5}};
    for (const Field& name : names) {
      const std::string_view part = trimmed(field_of(line_, name));
      if (!part.empty()) text.append(" ").append(part);
    }
    return text;
  }

  [[noreturn]] void refuse(const Field& field, const std::string& whose) const {
    refuse_number(path_ + ", line " + std::to_string(number_), whose, field.what,
                  field_of(line_, field));
  }

  void check_line() {
    if (is_record("ATOM") || is_record("HETATM")) {
      check_all(coordinates, atom());
      check_or_fill(occupancy, "  1.00", defaults_.occupancies);
      check_or_fill(b_factor, " 20.00", defaults_.b_factors);
    } else if (is_record("ANISOU")) {
      check_all(tensor, atom());
    } else if (is_record("CRYST1") && !trimmed(line_.substr(6)).empty()) {
      check_all(cell, "");
    } else if (is_record("SCALE")) {
      check_all(scale, "");
    }
  }

  template <std::size_t n>
  void check_all(const Field (&fields)[n], const std::string& whose) const {
    for (const Field& field : fields) {
      if (!is_number(field_of(line_, field))) refuse(field, whose);
    }
  }

  // A line that ends before the field gets gemmi's default, which is the same.
  void check_or_fill(const Field& field, const char* standard, std::size_t& filled) {
    const std::string_view value = field_of(line_, field);
    if (trimmed(value).empty()) {
      ++filled;
      text_.replace(start_ + std::min(field.start, line_.size()), value.size(), standard,
                    value.size());
    } else if (!is_number(value)) {
      refuse(field, atom());
    }
  }

  std::string& text_;
  const std::string& path_;
  std::string_view line_;
  std::size_t start_ = 0, number_ = 0;
  DefaultValues defaults_;
};

using gemmi::cif::Table;

std::string atom_of(const Table::Row& row) {
  std::string text = " of atom";
  for (int i = 0; i < 5; ++i) {
    if (row.has2(static_cast<std::size_t>(i))) text += " " + row.str(i);
  }
  return text;
}

// The line of a row, counted from the loop's on and then looked at, since a row may take several.
std::string row_place(const gemmi::cif::Item* loop, int row, const std::string& text,
                      const std::string& value) {
  std::string counted = format("row %d of the atoms", row + 1);
  if (!loop || loop->line_number < 1) return counted;
  const std::size_t wanted = static_cast<std::size_t>(loop->line_number) + loop->loop.tags.size() +
                             static_cast<std::size_t>(row) + 1;
  std::size_t at = 0;
  for (std::size_t line = 1; line < wanted && at != std::string::npos; ++line) {
    at = text.find('\n', at);
    if (at != std::string::npos) ++at;
  }
  if (at == std::string::npos) return counted;
  const std::string found = text.substr(at, text.find('\n', at) - at);
  return found.find(value) == std::string::npos ? counted : format("line %zu", wanted);
}

// The numbers of one loop.
struct Numbers {
  Table& table;
  const gemmi::cif::Item* loop;
  const std::string& text;
  const std::string& path;

  // False for a value that is left open.
  bool check(int row, int column, const char* what) {
    const Table::Row at = table[row];
    const std::string& value = at.at(column);
    if (gemmi::cif::is_null(value)) return false;
    const double number = gemmi::cif::as_number(value);
    if (!std::isfinite(number)) {
      refuse_number(path + ", " + row_place(loop, row, text, value), atom_of(at), what, value);
    }
    return true;
  }
  void require(int row, int column, const char* what) {
    if (!check(row, column, what)) {
      refuse_number(path + ", " + row_place(loop, row, text, ""), atom_of(table[row]), what,
                    table[row].at(column));
    }
  }
};

void check_atoms(gemmi::cif::Block& block, const std::string& text, const std::string& path,
                 DefaultValues& defaults) {
  Table atoms = block.find(
      "_atom_site.", {"id", "?label_atom_id", "?label_comp_id", "?auth_asym_id", "?auth_seq_id",
                      "Cartn_x", "Cartn_y", "Cartn_z", "?occupancy", "?B_iso_or_equiv"});
  Numbers numbers = {atoms, block.find_loop_item("_atom_site.id"), text, path};
  for (int row = 0; row < static_cast<int>(atoms.length()); ++row) {
    for (int axis = 0; axis < 3; ++axis) numbers.require(row, 5 + axis, coordinates[axis].what);
    if (!atoms.has_column(8) || !numbers.check(row, 8, occupancy.what)) ++defaults.occupancies;
    if (!atoms.has_column(9) || !numbers.check(row, 9, b_factor.what)) ++defaults.b_factors;
  }
}

void check_tensors(gemmi::cif::Block& block, const std::string& text, const std::string& path) {
  Table tensors =
      block.find("_atom_site_anisotrop.", {"id", "?pdbx_label_atom_id", "?pdbx_label_comp_id",
                                           "?pdbx_auth_asym_id", "?pdbx_auth_seq_id", "U[1][1]",
                                           "U[2][2]", "U[3][3]", "U[1][2]", "U[1][3]", "U[2][3]"});
  Numbers numbers = {tensors, block.find_loop_item("_atom_site_anisotrop.id"), text, path};
  for (int row = 0; row < static_cast<int>(tensors.length()); ++row) {
    for (int i = 0; i < 6; ++i) numbers.require(row, 5 + i, tensor[i].what);
  }
}

}  // namespace

DefaultValues check_pdb_numbers(std::string& text, const std::string& path) {
  return PdbNumbers(text, path).check();
}

DefaultValues check_mmcif_numbers(gemmi::cif::Document& document, const std::string& text,
                                  const std::string& path) {
  DefaultValues defaults;
  defaults.b_factor = 50.0;
  for (gemmi::cif::Block& block : document.blocks) {
    check_atoms(block, text, path, defaults);
    check_tensors(block, text, path);
  }
  return defaults;
}

}  // namespace qx
