// The map section.
#include "core/refsys.h"
#include "core/tagged.h"
#include "crystal/crystal.h"
#include "map/map.h"
#include "sections/section.h"

#include <quorix/engine.h>
#include <quorix/parser.h>
#include <quorix/reflections.h>

#include <cstdio>
#include <utility>

using qx::begins_with;
using qx::fail;
using qx::failed;
using qx::ok;
using qx::Status;

namespace {

constexpr auto heading = "qx_map_generation_ctrl():";

struct MapSection {
  qxmap* map;
};

// A text of the command line, empty if there is none; `failed` after a report.
Status text_of(qx::Key key, const char*& text) {
  if (key == qx::key_died) return failed;
  if (key == qx::absent) text = "";
  return ok;
}

Status next_word(const char*& word) { return text_of(qx::take_word(word), word); }

Status source_of(const char* what, std::int32_t& source) {
  const char* word = "";
  QX_TRY(next_word(word));
  if (begins_with(word, "calc")) {
    source = qx::calculated_source;
  } else if (begins_with(word, "inpu")) {
    source = qx::input_source;
  } else {
    return fail(heading, "Unknown value \"%s\" for %s.", word, what);
  }
  return ok;
}

// The next word of `mapdef`, an empty one for its end; another word is reported.
Status expect_word(const char* keyword) {
  const char* word = "";
  QX_TRY(next_word(word));
  if (*keyword ? begins_with(word, keyword) : *word == '\0') return ok;
  return fail(heading,
              "Unknown keyword in mapdef command: \"%s\"\n"
              "The command line should be:\n"
              "mapdef generated with amplitude [calc | input] phase [calc | input]",
              word);
}

Status define(MapSection& section) {
  QX_TRY(expect_word("gene"));
  QX_TRY(expect_word("with"));
  QX_TRY(expect_word("ampl"));
  QX_TRY(source_of("amplitude", section.map->amplitude_source));
  QX_TRY(expect_word("phas"));
  QX_TRY(source_of("phase", section.map->phase_source));
  return expect_word("");
}

Status read_reflections(MapSection& section) {
  if (qxrefdata* earlier = std::exchange(section.map->refdata, nullptr)) {
    QX_TRY(qx_delete_qxrefdata_obj(earlier));
  }
  qxrefdata* set = qx_new_qxrefdata_obj();
  if (!set) return failed;
  section.map->refdata = set;
  if (qx_read_refdata_ctrl(set, 0) != ok ||
      qx_build_qxrefdata(set, qx_get_qxrefreject(), 1) != ok) {
    return fail(heading, "Failed to read reflection data.");
  }
  return ok;
}

Status read(MapSection& section) {
  char word[5];
  QX_TRY(qx::next_short_word(word));
  if (begins_with(word, "REFL")) return read_reflections(section);
  if (begins_with(word, "MAP")) {
    return fail(heading, "Feature for reading map data has not been implemented yet.");
  }
  return fail(heading, "Failed to read reflection data.");
}

Status set_type(qxmap& map, const char* word) {
  constexpr std::pair<const char*, std::int32_t> types[] = {
      {"sigm", qx::sigmaa_map},
      {"comb", qx::combined_map},
      {"unwe", qx::unweighted_map},
      {"expe", qx::expected_map},
  };
  for (const auto& [name, type] : types) {
    if (!begins_with(word, name)) continue;
    map.type = type;
    return ok;
  }
  return fail(heading, " Unknow map type: %s ", word);
}

Status set_scale(qxmap& map, const char* word) {
  if (begins_with(word, "yes")) {
    map.scale = qx::box_scale;
  } else if (begins_with(word, "cell")) {
    map.scale = qx::cell_scale;
  } else if (begins_with(word, "no")) {
    map.scale = qx::no_scale;
  } else {
    return fail(heading, " Unknow scale value: %s ", word);
  }
  return ok;
}

Status set_weight(qxmap& map, const char* word) {
  map.weighted = begins_with(word, "yes");
  if (map.weighted || begins_with(word, "no")) return ok;
  return fail(heading, "Unknown value \"%s\" for weight.", word);
}

// Runs `set` on the value of a key, if the key is there.
Status with_value(const char* key, qxmap& map, Status (*set)(qxmap&, const char*)) {
  const char* text = "";
  const qx::Key state = qx::take_value(key, text);
  if (state == qx::key_died) return failed;
  return state == qx::found ? set(map, text) : ok;
}

Status take_number(const char* key, double& value) {
  return qx::take_double(key, value) == qx::key_died ? failed : ok;
}

Status parameters(MapSection& section) {
  qxmap& map = *section.map;
  QX_TRY(with_value("type", map, set_type));
  QX_TRY(with_value("scale", map, set_scale));
  QX_TRY(with_value("weight", map, set_weight));
  QX_TRY(take_number("cushion", map.cushion));
  // u after type: "unweighted" begins with it.
  QX_TRY(take_number("u", map.u));
  return take_number("v", map.v);
}

Status kick(MapSection& section) {
  qxmap& map = *section.map;
  map.kick = 2;
  if (qx::take_int("seed", map.seed) == qx::key_died) return failed;
  double length = 0;
  QX_TRY(take_number("length", length));
  if (length > 0) map.kick_length = length;
  return qx::take_int("naverage", map.kick_average) == qx::key_died ? failed : ok;
}

Status read_limits(qxmap& map, const char* name) {
  constexpr const char* keys[6] = {"xmin", "xmax", "ymin", "ymax", "zmin", "zmax"};
  const char* rest = "";
  QX_TRY(text_of(qx::take_rest(rest), rest));
  for (int i = 0; i < 6; ++i) {
    if (!qx_get_key_double_value(rest, keys[i], &map.limits[i])) {
      return fail(heading, "No %s for %s defined. ", keys[i], name);
    }
  }
  return ok;
}

Status extent(MapSection& section) {
  constexpr std::pair<const char*, std::int32_t> extents[] = {
      {"ASYM", qx::asym_extent}, {"UNIT", qx::unit_extent},  {"BOX", qx::box_extent},
      {"FRAC", qx::frac_extent}, {"MODE", qx::model_extent},
  };
  char word[5];
  QX_TRY(qx::next_choice(word));
  for (const auto& [name, value] : extents) {
    if (!begins_with(word, name)) continue;
    section.map->extent = value;
    if (value == qx::box_extent) return read_limits(*section.map, "box");
    if (value == qx::frac_extent) return read_limits(*section.map, "frac");
    return ok;
  }
  return fail(heading, "Unknown extent type. ");
}

// What is set but changes nothing must not pass for done.
void warn_of_idle(const qxmap& map) {
  if (map.amplitude_source != qx::input_source && map.phase_source != qx::input_source) return;
  if (map.kick == qx::kicked) {
    std::printf(
        "WARNING: kicks displace the atoms of a model: the map of input coefficients has none \n");
  }
  if (map.type != qx::unweighted_map) {
    std::printf(
        "WARNING: weights belong to maps of a model: of input coefficients \"type\" changes "
        "nothing "
        "\n");
  }
}

Status generate(MapSection& section) {
  warn_of_idle(*section.map);
  return qx_generate_map();
}

// The name of the format that `word` begins; null if it is none.
const char* format_of(const char* word) {
  constexpr std::pair<const char*, const char*> formats[] = {
      {"ccp4", "ccp4"}, {"cns", "cns"}, {"quor", "quorix"}, {"xyz", "xyz"}};
  for (const auto& [key, name] : formats) {
    if (begins_with(word, key)) return name;
  }
  return nullptr;
}

// An option of the file to be written: one of two words, the first of which turns it on.
Status take_option(const char* key, const char* on, const char* off, bool& option) {
  const char* word = "";
  const qx::Key state = qx::take_value(key, word);
  if (state == qx::key_died) return failed;
  option = state == qx::found && begins_with(word, on);
  if (state == qx::absent || option || begins_with(word, off)) return ok;
  return fail(heading, "Unknown value \"%s\" for %s.", word, key);
}

// A text that the map's labels may carry.
Status take_label(const char* key, char*& label) {
  const char* text = "";
  const qx::Key state = qx::take_name(key, text);
  if (state == qx::key_died) return failed;
  QX_TRY(qx::release(label));
  return state == qx::absent ? ok : qx::open_text(label, text, "pgm_lab");
}

Status take_options(qxmap& map) {
  // Texts first: a word within one is no option.
  QX_TRY(take_label("prov", map.input));
  QX_TRY(take_label("columns", map.columns));
  QX_TRY(take_label("kind", map.kind));
  QX_TRY(take_option("symm", "yes", "no", map.symmetry_records));
  return take_option("origin", "zero", "blank", map.zero_origin);
}

Status write(MapSection& section) {
  const char* word = "";
  QX_TRY(next_word(word));
  const char* format = format_of(word);
  if (!format) return fail(heading, "Unknown map format: %s", word);
  if (std::strcmp(format, "cns") == 0 && !qx::take_key("unformatted") &&
      !qx::take_key("formatted")) {
    return fail(heading, "Has not declared to write formated or unformated map file.");
  }
  const char* path = "";
  QX_TRY(text_of(qx::take_name("file", path), path));
  if (path[0] == '\0') return fail(heading, "Undefined map file name. ");
  char* copy = qx::duplicate_text(path, "pgm_file");
  if (!copy) return failed;
  QX_TRY(qx::release(section.map->path));
  section.map->path = copy;
  QX_TRY(take_options(*section.map));
  return qx_write_map(format);
}

Status finish(MapSection& /*section*/) {
  std::printf("end map generation.\n");
  return ok;
}

constexpr qx::SectionTexts texts = {heading, "Failed to get quorix command. ",
                                    "*** Unknow xmap task: \"", "\" ****"};

constexpr qx::Command<MapSection> commands[] = {
    {"MAPD", define}, {"READ", read},     {"PARA", parameters}, {"KICK", kick},
    {"EXTE", extent}, {"GENE", generate}, {"WRIT", write},      {"XEND", finish, true},
};

Status run() {
  std::printf("begin map generation:\n");
  if (!qx_get_refsys()) return failed;
  if (!qx_get_qxmap()) QX_TRY(qx_new_qxmap());
  QX_TRY(qx_set_map_default());
  MapSection section = {qx_get_qxmap()};
  return qx::run_section(texts, commands, section);
}

}  // namespace

Status qx_map_generation_ctrl() {
  (void)run();
  return ok;
}
