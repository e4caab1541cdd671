// Texts of sections: what quorix run does.
#include "density.h"
#include "driver/commands/engine_report.h"
#include "driver/commands/job_run.h"
#include "session.h"

#include <quorix/engine.h>

#include <cstdio>
#include <memory>

namespace py = pybind11;

namespace qx::python {

namespace {

// What the engine prints while this lives.
class Printed {
 public:
  Printed() { qx_set_output(keep, &text_); }
  Printed(const Printed&) = delete;
  Printed& operator=(const Printed&) = delete;
  ~Printed() { qx_set_output(nullptr, nullptr); }
  [[nodiscard]] const std::string& text() const { return text_; }

 private:
  static void keep(void* text, const char* piece, std::size_t size) noexcept {
    try {
      static_cast<std::string*>(text)->append(piece, size);
    } catch (const std::bad_alloc&) {  // the rest of the run matters more than its words
    }
  }
  std::string text_;
};

JobText parsed(const std::string& sections) {
  JobText text;
  const std::unique_ptr<std::FILE, int (*)(std::FILE*)> stream(
      fmemopen(const_cast<char*>(sections.data()), sections.size(), "rb"), std::fclose);
  if (sections.empty() || !stream || !text.read(stream.get()) || text.commands().empty()) {
    throw CommandError(2, "the text holds no section");
  }
  return text;
}

std::string run(const std::string& sections, bool force) {
  return with_engine([&](Session& session) {
    JobText text = parsed(sections);
    check_job_files(text, {}, force);
    JobStandIns others;
    others.stand_in(text);
    const Printed printed;
    for (const JobPart& part : text.parts()) {
      const JobResult result = run_job_part(text, part, nullptr, [&] { session.pause(); });
      if (result.done) continue;
      std::optional<std::size_t> line;
      if (result.stop) line = result.stop->line;
      throw JobFailure(first_report(printed.text()).text, printed.text(), line);
    }
    others.deliver();
    session.said(printed.text());
    return printed.text();
  });
}

}  // namespace

void bind_jobs(py::module_& module) { module.def("run", run, py::arg("text"), py::arg("force")); }

}  // namespace qx::python
