// The map section.
#include "core/refsys.h"
#include "core/say.h"
#include "core/tagged.h"
#include "crystal/crystal.h"
#include "map/map.h"
#include "sections/map_commands.h"
#include "sections/values.h"

#include <quorix/engine.h>
#include <quorix/parser.h>
#include <quorix/reflections.h>

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

Status kick(MapSection& section) {
  qxmap& map = *section.map;
  map.kick = 2;
  if (qx::take_int("seed", map.seed) == qx::key_died) return failed;
  double length = 0;
  QX_TRY(qx::take_number("length", length));
  if (length > 0) map.kick_length = length;
  return qx::take_int("naverage", map.kick_average) == qx::key_died ? failed : ok;
}

// What is set but changes nothing must not pass for done.
void warn_of_idle(const qxmap& map) {
  if (map.amplitude_source != qx::input_source && map.phase_source != qx::input_source) return;
  if (map.kick == qx::kicked) {
    qx::say(
        "WARNING: kicks displace the atoms of a model: the map of input coefficients has none \n");
  }
  if (map.type != qx::unweighted_map) {
    qx::say(
        "WARNING: weights belong to maps of a model: of input coefficients \"type\" changes "
        "nothing "
        "\n");
  }
}

Status generate(MapSection& section) {
  warn_of_idle(*section.map);
  return qx_generate_map();
}

Status finish(MapSection& /*section*/) {
  qx::say("end map generation.\n");
  return ok;
}

constexpr qx::SectionTexts texts = {heading, "Failed to get quorix command. ",
                                    "*** Unknow xmap task: \"", "\" ****"};

Status parameters(MapSection& section) { return qx::take_map_parameters(heading, *section.map); }
Status extent(MapSection& section) { return qx::take_map_extent(heading, *section.map); }
Status write(MapSection& section) { return qx::write_map_as_told(heading, *section.map); }

constexpr qx::Command<MapSection> commands[] = {
    {"MAPD", define}, {"READ", read},     {"PARA", parameters}, {"KICK", kick},
    {"EXTE", extent}, {"GENE", generate}, {"WRIT", write},      {"XEND", finish, true},
};

Status run() {
  qx::say("begin map generation:\n");
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
