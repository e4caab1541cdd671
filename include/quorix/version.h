// The version that these headers belong to.
#pragma once

#define QUORIX_VERSION "0.1.0"
