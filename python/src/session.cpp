#include "session.h"

#include "driver/commands/command_error.h"
#include "driver/commands/engine_report.h"
#include "driver/commands/map_labels.h"

namespace py = pybind11;

namespace qx::python {

void Session::pause() {
  constexpr auto interval = std::chrono::milliseconds(50);
  const auto now = std::chrono::steady_clock::now();
  if (now - asked_ < interval) return;
  asked_ = now;
  const py::gil_scoped_acquire python;
  if (PyErr_CheckSignals() != 0) throw py::error_already_set();
}

namespace {

// What was imported is at hand for less than another import.
py::object logger() {
  constexpr const char* name = "quorix._log";
  const auto there = py::reinterpret_steal<py::object>(PyImport_GetModule(py::str(name).ptr()));
  return there ? there : py::object(py::module_::import(name));
}

}  // namespace

void Session::tell() const {
  const auto is_urgent = [](const auto& line) {
    return line.first || line.second.find("WARNING") != std::string::npos;
  };
  if (lines_.empty()) return;
  const py::object log = logger();
  constexpr int info = 20;  // as logging has them
  constexpr int warning = 30;
  const int from = log.attr("heard_from")().cast<int>();
  if (from > warning) return;
  const py::object hear = log.attr("hear");
  for (const auto& line : lines_) {
    if (from > info && !is_urgent(line)) continue;
    const auto& [is_warning, text] = line;
    // What stands in files may be in any encoding.
    hear(is_warning, py::reinterpret_steal<py::str>(PyUnicode_DecodeUTF8(
                         text.data(), static_cast<Py_ssize_t>(text.size()), "replace")));
  }
}

namespace {

py::str shown(const std::string& text) {
  return py::reinterpret_steal<py::str>(
      PyUnicode_DecodeUTF8(text.data(), static_cast<Py_ssize_t>(text.size()), "replace"));
}

void raise(const std::string& message, const py::dict& facts) {
  const py::object type = py::module_::import("quorix._error").attr("Error");
  const py::object error = type(shown(message), **facts);
  PyErr_SetObject(type.ptr(), error.ptr());
}

py::dict facts_of(const EngineFailure& failure) {
  py::dict facts;
  facts["text"] = shown(failure.printed());
  const std::string routine = first_report(failure.printed()).routine;
  if (!routine.empty()) facts["routine"] = routine;
  return facts;
}

std::string with_candidates(const LabelError& error) {
  std::string text = error.problem();
  for (const MapLabels& pair : error.candidates()) {
    text += (&pair == error.candidates().data() ? "; amplitudes with phases in the file: " : ", ") +
            pair.amplitude + "/" + pair.phase;
  }
  return error.candidates().empty() ? error.what() : text;
}

py::dict facts_of(const LabelError& error) {
  py::list candidates;
  for (const MapLabels& pair : error.candidates()) {
    candidates.append(py::make_tuple(shown(pair.amplitude), shown(pair.phase)));
  }
  py::dict facts;
  facts["candidates"] = candidates;
  return facts;
}

void translate(std::exception_ptr thrown) {
  try {
    if (thrown) std::rethrow_exception(thrown);
  } catch (const JobFailure& failure) {
    py::dict facts = facts_of(failure);
    if (failure.at()) facts["line"] = *failure.at();
    raise(failure.what(), facts);
  } catch (const EngineFailure& failure) {
    raise(failure.what(), facts_of(failure));
  } catch (const LabelError& error) {
    raise(with_candidates(error), facts_of(error));
  } catch (const CommandError& error) {
    raise(error.what(), py::dict());
  }
}

}  // namespace

void translate_errors() { py::register_exception_translator(translate); }

}  // namespace qx::python
