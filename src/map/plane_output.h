// Planes of a map into a file as they are made.
#pragma once

#include "core/tagged.h"
#include "map/recipe.h"

#include <cstdio>

namespace qx {

// Whether planes may be written at their places, whichever comes first.
bool takes_places(std::FILE* stream) noexcept;

// All planes as 32-bit reals, from byte `offset` of the stream's file on; reported under `heading`
// if that fails. The stream stays where it was.
Status write_planes(const char* heading, std::FILE* stream, std::int64_t offset,
                    const MapRecipe& recipe, Extremes& extremes);

// The same for a stream that only goes on: a header wants the extremes first. What the symmetry
// makes of few planes is kept meanwhile; without symmetry each plane is made twice.
class OrderedPlanes {
 public:
  Status open(const MapRecipe& recipe, Extremes& extremes);
  Status write(const char* heading, std::FILE* stream) const;

 private:
  Status write_kept(const char* heading, std::FILE* stream) const;
  Status write_anew(const char* heading, std::FILE* stream) const;

  const MapRecipe* recipe_ = nullptr;
  Tagged<float> kept_;  // the planes that are calculated
};

}  // namespace qx
