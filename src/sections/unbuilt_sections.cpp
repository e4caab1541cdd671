// Sections that dispatch but have no behaviour yet: their row's failure text is the report.
#include <quorix/engine.h>

using qx::failed;
using qx::Status;

Status qx_water_ctrl() { return failed; }
