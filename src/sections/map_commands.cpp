#include "sections/map_commands.h"

#include "core/tagged.h"
#include "map/other_maps.h"
#include "sections/values.h"

#include <quorix/parser.h>

#include <cstring>

namespace qx {

namespace {

// A text of the command line, empty if there is none; `failed` after a report.
Status text_of(Key key, const char*& text) {
  if (key == key_died) return failed;
  if (key == absent) text = "";
  return ok;
}

Status set_type(const char* heading, qxmap& map, const char* word) {
  constexpr std::pair<const char*, std::int32_t> types[] = {
      {"sigm", sigmaa_map},
      {"comb", combined_map},
      {"unwe", unweighted_map},
      {"expe", expected_map},
  };
  for (const auto& [name, type] : types) {
    if (!begins_with(word, name)) continue;
    map.type = type;
    return ok;
  }
  return fail(heading, " Unknow map type: %s ", word);
}

Status set_scale(const char* heading, qxmap& map, const char* word) {
  if (begins_with(word, "yes")) {
    map.scale = box_scale;
  } else if (begins_with(word, "cell")) {
    map.scale = cell_scale;
  } else if (begins_with(word, "no")) {
    map.scale = no_scale;
  } else {
    return fail(heading, " Unknow scale value: %s ", word);
  }
  return ok;
}

Status set_weight(const char* heading, qxmap& map, const char* word) {
  map.weighted = begins_with(word, "yes");
  if (map.weighted || begins_with(word, "no")) return ok;
  return fail(heading, "Unknown value \"%s\" for weight.", word);
}

// Runs `set` on the value of a key, if the key is there.
Status with_value(const char* heading, const char* key, qxmap& map,
                  Status (*set)(const char*, qxmap&, const char*)) {
  const char* text = "";
  const Key state = take_value(key, text);
  if (state == key_died) return failed;
  return state == found ? set(heading, map, text) : ok;
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
Status take_option(const char* heading, const char* key, const char* on, const char* off,
                   bool& option) {
  const char* word = "";
  const Key state = take_value(key, word);
  if (state == key_died) return failed;
  option = state == found && begins_with(word, on);
  if (state == absent || option || begins_with(word, off)) return ok;
  return fail(heading, "Unknown value \"%s\" for %s.", word, key);
}

// A text that the map's labels may carry.
Status take_label(const char* key, char*& label) {
  const char* text = "";
  const Key state = take_name(key, text);
  if (state == key_died) return failed;
  QX_TRY(release(label));
  return state == absent ? ok : open_text(label, text, "pgm_lab");
}

Status take_options(const char* heading, qxmap& map) {
  // Texts first: a word within one is no option.
  QX_TRY(take_label("prov", map.input));
  QX_TRY(take_label("columns", map.columns));
  QX_TRY(take_label("kind", map.kind));
  QX_TRY(take_option(heading, "symm", "yes", "no", map.symmetry_records));
  QX_TRY(take_option(heading, "density", "yes", "no", map.density_label));
  return take_option(heading, "origin", "zero", "blank", map.zero_origin);
}

}  // namespace

Status take_map_parameters(const char* heading, qxmap& map) {
  QX_TRY(with_value(heading, "type", map, set_type));
  QX_TRY(with_value(heading, "scale", map, set_scale));
  QX_TRY(with_value(heading, "weight", map, set_weight));
  QX_TRY(take_number("cushion", map.cushion));
  // u after type: "unweighted" begins with it.
  QX_TRY(take_number("u", map.u));
  return take_number("v", map.v);
}

Status take_map_limits(const char* heading, const char* name, double (&limits)[6]) {
  constexpr const char* keys[6] = {"xmin", "xmax", "ymin", "ymax", "zmin", "zmax"};
  const char* rest = "";
  QX_TRY(text_of(take_rest(rest), rest));
  for (int i = 0; i < 6; ++i) {
    if (!qx_get_key_double_value(rest, keys[i], &limits[i])) {
      return fail(heading, "No %s for %s defined. ", keys[i], name);
    }
  }
  return ok;
}

Status take_map_extent(const char* heading, qxmap& map) {
  constexpr std::pair<const char*, std::int32_t> extents[] = {
      {"ASYM", asym_extent}, {"UNIT", unit_extent},  {"BOX", box_extent},
      {"FRAC", frac_extent}, {"MODE", model_extent},
  };
  char word[5];
  QX_TRY(next_choice(word));
  for (const auto& [name, value] : extents) {
    if (!begins_with(word, name)) continue;
    map.extent = value;
    if (value == box_extent) return take_map_limits(heading, "box", map.limits);
    if (value == frac_extent) return take_map_limits(heading, "frac", map.limits);
    return ok;
  }
  return fail(heading, "Unknown extent type. ");
}

Status write_map_as_told(const char* heading, qxmap& map) {
  const char* word = "";
  QX_TRY(text_of(take_word(word), word));
  const char* format = format_of(word);
  if (!format) return fail(heading, "Unknown map format: %s", word);
  bool unformatted = false;
  if (std::strcmp(format, "cns") == 0) {
    unformatted = take_key("unformatted");
    if (!unformatted && !take_key("formatted")) {
      return fail(heading, "Has not declared to write formated or unformated map file.");
    }
  }
  const char* path = "";
  QX_TRY(text_of(take_name("file", path), path));
  if (path[0] == '\0') return fail(heading, "Undefined map file name. ");
  char* copy = duplicate_text(path, "pgm_file");
  if (!copy) return failed;
  QX_TRY(release(map.path));
  map.path = copy;
  QX_TRY(take_options(heading, map));
  return unformatted ? write_other_map(heading, map, OtherMap::cns_unformatted)
                     : qx_write_map(format);
}

}  // namespace qx
