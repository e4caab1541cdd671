// Where a program finds its data.
#pragma once

namespace qx {

// Points ZENVI_DATA, unless it is set, at share/quorix beside the program's folder or, for a
// program in a build folder of the checkout, at the checkout's data. Changes nothing if neither is
// there.
void point_to_installed_data();

}  // namespace qx
