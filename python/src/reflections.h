// A reflection file as Python sees it: read once, its columns lent out.
#pragma once

#include "driver/commands/reflection_file.h"

#include <map>
#include <mutex>
#include <pybind11/numpy.h>
#include <string>
#include <vector>

namespace qx::python {

// The file is kept open: maps are made of what was read, also when the name is gone by then.
class Reflections {
 public:
  Reflections(const std::string& path, const std::string& name);
  Reflections(const Reflections&) = delete;
  Reflections& operator=(const Reflections&) = delete;
  ~Reflections();
  [[nodiscard]] const ReflectionFile& file() const { return file_; }
  // What is odd about maps of one kind: the same each time, so that `look` is called once.
  template <class Look>
  std::vector<std::string> warnings(const std::string& kind, Look look) const {
    const std::lock_guard<std::mutex> alone(mutex_);
    auto found = warnings_.find(kind);
    if (found == warnings_.end()) found = warnings_.emplace(kind, look()).first;
    return found->second;
  }

 private:
  ReflectionFile file_;
  int descriptor_ = -1;
  mutable std::mutex mutex_;
  mutable std::map<std::string, std::vector<std::string>> warnings_;
};

void bind_reflections(pybind11::module_& module);

}  // namespace qx::python
