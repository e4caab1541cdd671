// Space groups as people name them.
#pragma once

#include <string>

namespace gemmi {
struct SpaceGroup;
}

namespace qx {

// The group of a name in any spelling that the engine takes (P212121, P 2_1 2_1 2_1, P2(1)2(1)2(1))
// or of a number, in its default setting. The angles tell R groups on rhombohedral axes from those
// on hexagonal ones, which a bare name means without them. Null if there is none.
const gemmi::SpaceGroup* find_space_group(std::string name, double alpha = 0.0, double gamma = 0.0);

}  // namespace qx
