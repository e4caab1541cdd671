// What every command that takes a model and data does first.
#pragma once

#include "driver/commands/fcalc/job.h"

namespace qx {

// Crystal and observations of the job, with warnings. Throws CommandError for what cannot be used.
void prepare(Engine& engine, FcalcJob& job);

// Crystal, reflections, grid, model and free set, as sections.
void set_up(Engine& engine, FcalcJob& job);

// The text of that, once the crystal's section has run.
std::vector<SectionText> set_up_sections(const FcalcJob& job);

// Warns of the atoms that the calculation, whose output this is, cut off.
void note_wide_atoms(FcalcJob& job, const std::string& printed);

// Reports name atoms as the file does, for as long as this lives.
class NamedAtoms {
 public:
  explicit NamedAtoms(const Coordinates& coordinates);
  NamedAtoms(const NamedAtoms&) = delete;
  NamedAtoms& operator=(const NamedAtoms&) = delete;
  ~NamedAtoms();

 private:
  static const char* name(std::int32_t atom, void* self);

  const Coordinates& coordinates_;
  std::string text_;
};

}  // namespace qx
