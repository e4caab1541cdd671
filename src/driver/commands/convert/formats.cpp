// Which format a file of reflections has.
#include "driver/commands/convert/formats.h"

#include "driver/commands/command_error.h"
#include "driver/commands/file_kind.h"
#include "driver/commands/readable_file.h"

#include <algorithm>
#include <cctype>
#include <iterator>

namespace qx {

namespace {

constexpr TableFormat formats[] = {{"MTZ", "MTZ", " mtz "},
                                   {"CIF", "mmCIF", " cif mmcif ent "},
                                   {"CNS", "CNS", " cns cv fobs fob "},
                                   {"HKL", "HKL", " hkl "},
                                   {"SCA", "scalepack", " sca "},
                                   {"DTR", "d*TREK", " ref dtr "}};

std::string lower(std::string text) {
  std::transform(text.begin(), text.end(), text.begin(),
                 [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
  return text;
}

std::string ending_of(const std::string& path) {
  std::string name = lower(path.substr(path.find_last_of('/') + 1));
  if (name.ends_with(".gz")) name.resize(name.size() - 3);
  const std::size_t dot = name.rfind('.');
  return dot == std::string::npos ? std::string() : name.substr(dot + 1);
}

}  // namespace

const TableFormat& format_of_word(const std::string& word) {
  const std::string begin = lower(word).substr(0, 3);
  for (const TableFormat& format : formats) {
    if (lower(format.word) == begin ||
        (begin == "mmc" && format.word[0] == 'C' && format.word[1] == 'I')) {
      return format;
    }
  }
  throw CommandError(2, "there is no format '" + word + "': mtz, cif, cns, hkl, sca or dtr");
}

namespace {

const TableFormat* find_by_name(const std::string& path) {
  const std::string ending = " " + ending_of(path) + " ";
  if (ending == "  ") return nullptr;
  const auto* const found =
      std::find_if(std::begin(formats), std::end(formats), [&](const TableFormat& format) {
        return std::string(format.endings).find(ending) != std::string::npos;
      });
  return found == std::end(formats) ? nullptr : found;
}

}  // namespace

bool is_named_like_table(const std::string& path) {
  const TableFormat* format = find_by_name(path);
  return format && format != &formats[0] && format != &formats[1];
}

const TableFormat& format_of_name(const std::string& path) {
  if (const TableFormat* format = find_by_name(path)) return *format;
  throw CommandError(2, "the name " + path +
                            " tells no format: give --to mtz, cif, cns, hkl, sca "
                            "or dtr");
}

const TableFormat& format_of_content(const std::string& path) {
  switch (kind_of(path)) {
    case FileKind::missing:
      throw CommandError(2, "there is no file " + path);
    case FileKind::mtz:
      return formats[0];
    case FileKind::reflections:
      return formats[1];
    case FileKind::table: {
      const std::string start = first_bytes(path, 4096);
      return format_of_word(table_word(start));
    }
    default:
      break;
  }
  throw CommandError(2, path + " is in no format that is known: give --from if it is");
}

}  // namespace qx
