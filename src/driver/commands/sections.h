// What a subcommand needs that runs sections through an engine.
#pragma once

#include "driver/commands/command_error.h"
#include "driver/commands/engine_run.h"
#include "driver/commands/progress_line.h"
#include "driver/commands/section_text.h"
