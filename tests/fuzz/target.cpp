#include "fuzz/target.h"

#include "core/memory_system.h"
#include "crystal/symop.h"
#include "driver/commands/app.h"
#include "driver/commands/batch/inputs.h"
#include "driver/commands/command_error.h"
#include "support/engine.h"

#include <quorix/engine.h>
#include <quorix/formfactors.h>
#include <quorix/map.h>
#include <quorix/memory.h>
#include <quorix/mtz.h>
#include <quorix/reflections.h>
#include <quorix/spacegroup.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <unistd.h>
#include <vector>

namespace qx::fuzz {

namespace {

// A larger request fails, as on a machine without the memory: the engine reports it.
void* limited(std::size_t size) {
  constexpr std::size_t most = std::size_t{32} << 20;
  return size > most ? nullptr : std::malloc(size);
}

// Texts may name files: none outside the scratch folder.
std::string without_paths(Bytes input) {
  std::string text(input.begin(), input.end());
  std::replace(text.begin(), text.end(), '/', '_');
  return text;
}

// The command line in this process; what is wrong with the input is told by an exception.
void run_command(std::vector<std::string> words) {
  qx_terminate_quorix();
  int status = 0;
  CLI::App app;
  build_app(app, status);
  std::reverse(words.begin(), words.end());
  try {
    app.parse(words);
  } catch (const CLI::Error&) {
  } catch (const std::exception&) {
  }
}

void mtz(Bytes input) {
  if (qx_create_quorix() != ok) return;
  qxrefdata* data = qx_new_qxrefdata_obj();
  if (data && qx_read_refdata_mtz_file_obj(data, as_file(input, "in.mtz").c_str()) == ok) {
    (void)qx_delete_qxrefdata_obj(data);
  }
  qx_terminate_quorix();
}

void ccp4(Bytes input) {
  if (qx_create_quorix() != ok) return;
  qx_ccp4_map map = {};
  if (qx_rd_ccp4_map(as_file(input, "in.ccp4").c_str(), &map) == ok) {
    (void)xfree_3d_double(map.density);
  }
  qx_terminate_quorix();
}

void sections(Bytes input) {
  if (qx_create_quorix() != ok) return;
  std::string text = without_paths(input);
  // One section a piece, as front ends hand them over.
  for (std::size_t start = 0; start < text.size();) {
    std::size_t end = text.find("xend", start);
    end = end == std::string::npos ? text.size() : end + 4;
    const std::string piece = text.substr(start, end - start);
    if (!test::run_section_text(piece.substr(piece.find_first_not_of('\n') == std::string::npos
                                                 ? 0
                                                 : piece.find_first_not_of('\n')))) {
      break;
    }
    start = end;
  }
  qx_terminate_quorix();
}

void run(Bytes input) {
  const std::string text = without_paths(input);
  const auto* bytes = reinterpret_cast<const std::uint8_t*>(text.data());
  run_command({"run", as_file({bytes, text.size()}, "job.qx")});
}

// A data folder that holds the input under a name of the engine's, and the repository's others.
void with_data_file(Bytes input, const char* name, void (*work)()) {
  const std::filesystem::path folder = std::filesystem::path(scratch_folder()) / "data" / "xray";
  std::error_code ignored;
  std::filesystem::create_directories(folder, ignored);
  as_file(input, (std::string("data/xray/") + name).c_str());
  const std::string before = std::getenv("ZENVI_DATA") ? std::getenv("ZENVI_DATA") : "";
  setenv("ZENVI_DATA", (std::filesystem::path(scratch_folder()) / "data").c_str(), 1);
  if (qx_create_quorix() == ok) work();
  qx_terminate_quorix();
  setenv("ZENVI_DATA", before.c_str(), 1);
}

void groups(Bytes input) {
  with_data_file(input, "spgbase.dat", [] {
    (void)test::run_section_text("xcry\nspgname P 21 21 21\ncell 10 20 30\nxend\n");
  });
}

void formfactors(Bytes input) {
  const std::filesystem::path second =
      std::filesystem::path(scratch_folder()) / "data" / "xray" / "atomformfactor2.dat";
  if (!std::filesystem::exists(second)) {
    std::error_code ignored;
    std::filesystem::create_directories(second.parent_path(), ignored);
    std::filesystem::copy_file(test::data_directory() / "xray" / "atomformfactor2.dat", second,
                               ignored);
  }
  with_data_file(input, "atomformfactor5.dat", [] { (void)qx_fill_atfrmfactbase(0); });
}

void operators(Bytes input) {
  const std::string text(input.begin(), input.end());
  double op[16];
  int denominators[3];
  if (parse_operator(text.c_str(), op, denominators).size == 0) {
    char out[operator_text_size];
    (void)format_operator(op, out);
    double inverse[16];
    (void)invert_operator(op, inverse);
  }
  float low = 0.0F;
  float high = 0.0F;
  int limits[2];
  (void)parse_limits(text.c_str(), &low, &high, limits);
}

void info(Bytes input) { run_command({"info", as_file(input, "in"), "--json"}); }

void map(Bytes input) {
  run_command({"map", as_file(input, "in.mtz"), "--prefix", scratch_folder() + "/out"});
}

void report(Bytes input) {
  run_command({"report", as_file(input, "in.ccp4"), "-o", scratch_folder() + "/out.html", "-q"});
}

void fcalc(Bytes input) {
  run_command(
      {"fcalc", as_file(input, "in.pdb"), "--dmin", "4", "-o", scratch_folder() + "/out.mtz"});
}

void batch_lists(Bytes input) {
  const std::string text = without_paths(input);
  const auto* bytes = reinterpret_cast<const std::uint8_t*>(text.data());
  try {
    (void)find_data_sets({as_file({bytes, text.size()}, "list.txt")}, scratch_folder() + "/out");
  } catch (const CommandError&) {
  }
}

constexpr Target list[] = {
    {"mtz", mtz, false},
    {"ccp4", ccp4, false},
    {"sections", sections, true},
    {"run", run, true},
    {"groups", groups, true},
    {"formfactors", formfactors, true},
    {"operators", operators, true},
    {"info", info, false},
    {"map", map, false},
    {"report", report, false},
    {"fcalc", fcalc, true},
    {"batch", batch_lists, true},
};

}  // namespace

std::span<const Target> targets() { return list; }

const std::string& scratch_folder() {
  static const test::ScratchDirectory scratch;
  static const std::string path = scratch.path().string();
  return path;
}

std::string as_file(Bytes input, const char* name) {
  const std::string path = scratch_folder() + "/" + name;
  std::ofstream(path, std::ios::binary)
      .write(reinterpret_cast<const char*>(input.data()),
             static_cast<std::streamsize>(input.size()));
  return path;
}

void set_up_process() {
  set_system_allocator(limited);
  setenv("ZENVI_DATA", test::data_directory().c_str(), 1);
  if (!std::freopen("/dev/null", "w", stdout)) std::abort();
  std::cout.setstate(std::ios::badbit);
  std::cerr.setstate(std::ios::badbit);
  // What a text writes without a path lands in the scratch folder.
  if (chdir(scratch_folder().c_str()) != 0) std::abort();
}

}  // namespace qx::fuzz
