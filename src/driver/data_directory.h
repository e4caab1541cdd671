// Where an installed program finds its data.
#pragma once

namespace qx {

// Points ZENVI_DATA at ../share/quorix beside the program's folder, if that is there and the
// variable is not set. A program in a build tree finds nothing and changes nothing.
void point_to_installed_data();

}  // namespace qx
