// Whole subcommands within the process, and what a batch is about.
#include "density.h"
#include "driver/commands/app.h"
#include "driver/commands/batch/inputs.h"
#include "driver/commands/command_error.h"
#include "session.h"

#include <algorithm>
#include <iostream>
#include <mutex>
#include <pybind11/stl.h>
#include <sstream>

namespace py = pybind11;

namespace qx::python {

namespace {

// Takes what is written to a stream meanwhile.
class Diverted {
 public:
  explicit Diverted(std::ostream& stream) : stream_(stream), before_(stream.rdbuf(&here_)) {}
  Diverted(const Diverted&) = delete;
  Diverted& operator=(const Diverted&) = delete;
  ~Diverted() { stream_.rdbuf(before_); }
  [[nodiscard]] std::string text() const { return here_.str(); }

 private:
  std::ostream& stream_;
  std::stringbuf here_;
  std::streambuf* before_;
};

void warn_of(Session& session, const std::string& errors) {
  std::istringstream lines(errors);
  for (std::string line; std::getline(lines, line);) session.warn(line);
}

// What the subcommand writes to standard output.
std::string command(std::vector<std::string> words) {
  return with_engine([&](Session& session) {
    session.pause();
    static auto& streams = *new std::mutex;  // outlives threads that are at work when Python ends
    const std::lock_guard<std::mutex> alone(streams);
    const Diverted output(std::cout);
    const Diverted errors(std::cerr);
    int status = 0;
    CLI::App app;
    build_app(app, status);
    std::reverse(words.begin(), words.end());  // as CLI11 takes them
    try {
      app.parse(words);
    } catch (const CLI::ParseError& error) {
      throw CommandError(2, error.what());
    }
    warn_of(session, errors.text());
    if (status != 0) throw CommandError(status, errors.text());
    return output.text();
  });
}

// Names and paths of the data sets; what was left out is told to the logger.
std::vector<std::pair<std::string, std::string>> find_sets(const std::vector<std::string>& inputs) {
  return with_engine([&](Session& session) {
    const BatchInputs found = find_data_sets(inputs, {});
    session.warn(found.notes);
    std::vector<std::pair<std::string, std::string>> sets;
    for (const DataSet& set : found.sets) sets.emplace_back(set.name, set.path);
    return sets;
  });
}

}  // namespace

void bind_commands(py::module_& module) {
  module.def("command", command, py::arg("words"));
  module.def(
      "set_threads", [](std::int32_t n) { qx_set_threads(n); }, py::arg("count"));
  module.def("find_data_sets", find_sets, py::arg("inputs"));
}

}  // namespace qx::python
