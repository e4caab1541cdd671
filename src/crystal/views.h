// Views that more than one folder hands out.
#pragma once

#include <quorix/views.h>

namespace qx {

// The record that a view shows, or null without a report.
const qxrefdata* shown_refdata();
qx_reflections_view view_of(const qxrefdata& set);

}  // namespace qx
