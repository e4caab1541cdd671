// quorix omit: maps without a part of the model.
#pragma once

#include "driver/commands/maps/job.h"

namespace qx {

struct OmitOptions {
  MapsOptions maps;  // its outputs are the omit maps
  std::string selection;
  bool composite = false;
  int boxes = 20;
  double rim = 1.5;  // Angstrom
  std::string mask = "keep";
  bool print_sections = false;
};

void add_omit_options(CLI::App& command, OmitOptions& options);
// Throws CommandError for values that no section is to see.
void check_options(OmitOptions& options);

SectionText omit_map_section(const FcalcJob& job, const OmitOptions& options,
                             const std::string& path, bool difference);

}  // namespace qx
