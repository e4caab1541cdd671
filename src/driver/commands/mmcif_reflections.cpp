// Structure-factor mmCIF to MTZ, by gemmi.
#include "driver/commands/command_error.h"
#include "driver/commands/readable_file.h"

// gemmi's writer is in its headers; the printf that it would bundle is not in Debian's package.
#define GEMMI_WRITE_IMPLEMENTATION
#define USE_STD_SNPRINTF

#include <algorithm>
#include <gemmi/cif.hpp>      // for read_file
#include <gemmi/cif2mtz.hpp>  // for CifToMtz
#include <sstream>

namespace qx {

namespace {

// gemmi's own table under the labels that map programs look for.
std::vector<std::string> label_table() {
  std::vector<std::string> lines;
  for (const char** line = gemmi::CifToMtz::default_spec(true); *line; ++line) {
    lines.emplace_back(*line);
    const std::string tag = lines.back().substr(0, lines.back().find(' '));
    if (tag == "pdbx_DELPHWT") lines.back() = "pdbx_DELPHWT PHDELWT P 1";
  }
  return lines;
}

}  // namespace

void convert_mmcif(const std::string& from, const TemporaryFile& to, const std::string& path) {
  try {
    gemmi::cif::Document document = gemmi::cif::read_file(from);
    const auto blocks = gemmi::as_refln_blocks(std::move(document.blocks));
    const auto block = std::find_if(blocks.begin(), blocks.end(),
                                    [](const auto& b) { return b.refln_loop != nullptr; });
    if (block == blocks.end()) throw CommandError(2, path + " holds no reflections");
    gemmi::CifToMtz converter;
    converter.spec_lines = label_table();
    std::ostringstream log;
    converter.convert_block_to_mtz(*block, log).write_to_file(to.path());
  } catch (const CommandError&) {
    throw;
  } catch (const std::exception& error) {
    throw CommandError(2, "cannot read reflections from " + path + ": " + error.what());
  }
}

}  // namespace qx
