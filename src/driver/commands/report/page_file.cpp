// quorix report: the page as a file, put together of its parts and what was composed.
#include "driver/commands/command_error.h"
#include "driver/commands/report/report.h"
#include "driver/commands/whole_file.h"

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>
#include <nlohmann/json.hpp>

namespace qx {

namespace {

using Json = nlohmann::ordered_json;

std::string read_whole(const std::filesystem::path& path) {
  std::ifstream file(path, std::ios::binary);
  if (!file) {
    throw CommandError(2,
                       "cannot read " + path.string() +
                           ", a part of the page: is quorix installed whole, or ZENVI_DATA set?");
  }
  return {std::istreambuf_iterator<char>(file), {}};
}

std::filesystem::path parts_folder() {
  const char* data = std::getenv("ZENVI_DATA");
  return std::filesystem::path(data ? data : ".") / "report";
}

// JSON that may stand in an HTML element: nothing in it ends the element.
std::string embedded(const Json& page) {
  std::string text = page.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
  std::string safe;
  safe.reserve(text.size());
  for (const char c : text) {
    if (c == '<') {
      safe += "\\u003c";
    } else {
      safe += c;
    }
  }
  return safe;
}

std::string fill(const std::string& page, const std::map<std::string, std::string>& parts) {
  std::string text;
  std::size_t from = 0;
  for (std::size_t at = 0; (at = page.find('@', from)) != std::string::npos;) {
    const std::size_t end = page.find('@', at + 1);
    const auto part =
        end == std::string::npos ? parts.end() : parts.find(page.substr(at + 1, end - at - 1));
    if (part == parts.end()) {
      text += page.substr(from, at + 1 - from);
      from = at + 1;
    } else {
      text += page.substr(from, at - from) + part->second;
      from = end + 1;
    }
  }
  return text + page.substr(from);
}

}  // namespace

void write_page(const std::string& path, const Json& page) {
  const std::filesystem::path parts = parts_folder();
  std::string libraries;
  for (const char* name : {"d3-array.min.js", "d3-contour.min.js", "uglymol.js"}) {
    libraries += read_whole(parts / "third-party" / name) + "\n";
  }
  std::string script;
  for (const char* name : {"page.js", "view.js", "charts.js", "start.js"}) {
    script += read_whole(parts / name) + "\n";
  }
  const std::string html =
      fill(read_whole(parts / "page.html"), {{"STYLE", read_whole(parts / "page.css")},
                                             {"DATA", embedded(page)},
                                             {"LIBRARIES", libraries},
                                             {"SCRIPT", script}});
  write_whole(path, html);
}

}  // namespace qx
