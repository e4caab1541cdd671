// Which maps are made of which files, and what they are called: settled before the first is made.
#pragma once

#include "driver/commands/map/job.h"

#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace qx {

// The maps of one file of reflections.
struct MapTask {
  MapOptions options;
  std::optional<ReadableMtz> readable = {};
  std::unique_ptr<Engine> engine = {};  // holds the file
  std::optional<ReflectionFile> file = {};
  std::vector<MapLabels> labels = {};
  std::vector<std::string> outputs = {};  // a name for each of the labels
  std::vector<std::string> notes = {};    // on what is not made
};

// Throws CommandError for what cannot be made.
std::vector<MapTask> plan_maps(MapOptions options);
// Throws CommandError for a name that is not to be written over.
void check_outputs_of(const std::vector<MapTask>& tasks);

// Reads the task's file into an engine of its own, if that has not been done.
void open_input(MapTask& task);

// What the scripts for viewers are named after.
std::string viewer_stem(const MapTask& task);

}  // namespace qx
