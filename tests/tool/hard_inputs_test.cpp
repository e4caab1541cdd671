// Data and models of which little can be made, given to every command with a model and data: a
// result of finite numbers, or one report and no output.
#include "support/mtz_maker.h"
#include "tool/fcalc_command.h"

#include <algorithm>
#include <cmath>
#include <nlohmann/json.hpp>
#include <random>

namespace qx::test {
namespace {

struct Data {
  std::vector<std::vector<int>> indices;
  std::vector<float> f, sigma, flags;

  template <class Keep>
  void keep(Keep wanted) {
    Data kept;
    for (std::size_t i = 0; i < f.size(); ++i) {
      if (!wanted(i)) continue;
      kept.indices.push_back(indices[i]);
      kept.f.push_back(f[i]);
      kept.sigma.push_back(sigma[i]);
      kept.flags.push_back(flags[i]);
    }
    *this = kept;
  }
};

std::string whole_model() { return read_file(model); }

// Every ATOM and HETATM record through `change`.
std::string changed_model(const std::function<void(std::string&)>& change) {
  std::istringstream in(whole_model());
  std::string out;
  for (std::string line; std::getline(in, line);) {
    if (line.starts_with("ATOM") || line.starts_with("HETATM")) change(line);
    if (!line.starts_with("ANISOU")) out += line + '\n';
  }
  return out;
}

// Atoms of water at every second point of the cell: no room for solvent.
std::string crowded_model() {
  std::string text = "CRYST1   50.840   42.770   28.950  90.00  90.00  90.00 P 1           1\n";
  int serial = 0;
  for (double x = 0.0; x < 50.0; x += 2.0) {
    for (double y = 0.0; y < 42.0; y += 2.0) {
      for (double z = 0.0; z < 28.0; z += 2.0) text += atom_record("O", ++serial % 9999, {x, y, z});
    }
  }
  return text;
}

std::string scattered_model(int atoms) {
  std::mt19937 random(4);
  std::uniform_real_distribution<double> unit(0.0, 1.0);
  std::string text = "CRYST1   50.840   42.770   28.950  90.00  90.00  90.00 P 21 21 21    4\n";
  for (int i = 0; i < atoms; ++i) {
    text +=
        atom_record("C", i % 9999, {50.0 * unit(random), 42.0 * unit(random), 28.0 * unit(random)});
  }
  return text;
}

struct Hard {
  const char* name;
  const char* report;                       // of maps and validate; null: a result
  const char* fcalc_report = nullptr;       // of fcalc; null: a result
  std::function<void(Data&)> change = {};   // none: the data as they are
  std::function<std::string()> atoms = {};  // none: the model as it is
  bool triclinic = false;
};

class HardInput : public ::testing::TestWithParam<Hard> {
 protected:
  void SetUp() override {
    Data data_of;
    const Columns in = read_columns(data);
    for (std::size_t i = 0; i < in.at("H").size(); ++i) {
      const auto index = [&](const char* label) { return static_cast<int>(in.at(label)[i]); };
      const double s = std::hypot(index("H") / 50.84, index("K") / 42.77, index("L") / 28.95);
      if (s > 1 / 2.6) continue;
      data_of.indices.push_back({index("H"), index("K"), index("L")});
      data_of.f.push_back(in.at("FP")[i]);
      data_of.sigma.push_back(in.at("SIGFP")[i]);
      data_of.flags.push_back(in.at("FREE")[i]);
    }
    if (GetParam().change) GetParam().change(data_of);
    MtzMaker maker(data_of.indices);
    maker.cell = "50.84 42.77 28.95 90 90 90";
    if (!GetParam().triclinic) {
      maker.symmetry = "4 4 P 19 'P 21 21 21' PG222";
      maker.operators = {"x,y,z", "-x+1/2,-y,z+1/2", "-x,y+1/2,-z+1/2", "x+1/2,-y+1/2,-z"};
    }
    maker.add("FP", 'F', data_of.f).add("SIGFP", 'Q', data_of.sigma);
    write_file(data_, maker.add("FREE", 'I', data_of.flags).bytes());
    write_file(model_, GetParam().atoms ? GetParam().atoms() : whole_model());
  }

  // JSON has no infinities and writes what is no number as null: that stands for an empty set only.
  static void expect_finite(const nlohmann::json& json, const std::string& key = "") {
    if (json.is_null()) {
      EXPECT_TRUE(key == "free" || key == "work") << key;
    }
    if (!json.is_structured()) return;
    for (const auto& [name, value] : json.items()) {
      expect_finite(value, json.is_object() ? name : key);
    }
  }
  void expect_finite_columns() const {
    for (const auto& [label, values] : read_columns(out_)) {
      if (label.starts_with("FP") || label.starts_with("SIG") || label == "FREE" ||
          label.ends_with("_nofill")) {
        continue;  // as they came, or missing on purpose
      }
      EXPECT_TRUE(std::all_of(values.begin(), values.end(), [](float v) {
        return std::isfinite(v);
      })) << label;
    }
  }
  void expect(Arguments arguments, const char* report) const {
    arguments.push_back("--json");
    const ProgramResult r = run_program("quorix", arguments);
    SCOPED_TRACE(arguments.front() + ": " + r.output + r.errors);
    if (!report) {
      ASSERT_EQ(r.status, 0);
      expect_finite(nlohmann::json::parse(r.output));
      expect_finite_columns();
    } else {
      EXPECT_TRUE(r.status == 1 || r.status == 2) << r.status;
      EXPECT_NE(r.errors.find(report), std::string::npos);
      EXPECT_EQ(std::count(r.errors.begin(), r.errors.end(), '\n'), 1);
      EXPECT_EQ(r.output, "");
      EXPECT_FALSE(std::filesystem::exists(out_));
    }
    std::filesystem::remove(out_);
  }

  ScratchDirectory scratch_;
  std::string model_ = scratch_.file("m.pdb"), data_ = scratch_.file("d.mtz"),
              out_ = scratch_.file("out.mtz");
};

TEST_P(HardInput, givesAResultOrOneReport) {
  expect({"maps", model_, data_, "-o", out_, "--maps", scratch_.file("map")}, GetParam().report);
  expect({"validate", model_, data_, "--solvent", "smooth"}, GetParam().report);
  expect({"fcalc", model_, "--hkl", data_, "-o", out_}, GetParam().fcalc_report);
}

void fill(std::vector<float>& values, float value) { values.assign(values.size(), value); }
constexpr const char* no_amplitude = "there is no amplitude above 0 in column FP";
constexpr const char* too_few = "observed reflections are too few to estimate sigmaA from";

INSTANTIATE_TEST_SUITE_P(
    each, HardInput,
    ::testing::Values(
        Hard{"noneMeasured", no_amplitude, nullptr, [](Data& d) { fill(d.f, NAN); }},
        Hard{"zeroAmplitudes", no_amplitude, nullptr, [](Data& d) { fill(d.f, 0.0F); }},
        Hard{"negativeAmplitudes", no_amplitude, nullptr, [](Data& d) { fill(d.f, -3.0F); }},
        Hard{"oneReflection", too_few, nullptr,
             [](Data& d) { d.keep([](std::size_t i) { return i == 200; }); }},
        Hard{"oneObserved", too_few, nullptr,
             [](Data& d) { std::fill(d.f.begin() + 1, d.f.end(), NAN); }},
        Hard{"thirtyReflections", nullptr, nullptr,
             [](Data& d) { d.keep([](std::size_t i) { return i / 30 == 7; }); }},
        Hard{"allCentric", nullptr, nullptr,
             [](Data& d) { d.keep([&](std::size_t i) { return d.indices[i][2] == 0; }); }},
        Hard{"allFree", nullptr, nullptr, [](Data& d) { fill(d.flags, 0.0F); }},
        Hard{"noneFree", nullptr, nullptr, [](Data& d) { fill(d.flags, 1.0F); }},
        Hard{"noFlags", nullptr, nullptr, [](Data& d) { fill(d.flags, NAN); }},
        Hard{"nothingOfTheWorkingSet", "reflections of the working set was observed",
             "reflections of the working set was observed",
             [](Data& d) {
               for (std::size_t i = 0; i < d.f.size(); ++i) {
                 if (d.flags[i] != 0.0F) d.f[i] = NAN;
               }
             }},
        Hard{"constantAmplitudes", nullptr, nullptr, [](Data& d) { fill(d.f, 50.0F); }},
        Hard{"enormousAmplitudes", nullptr, nullptr,
             [](Data& d) {
               for (float& f : d.f) f *= 1e30F;
             }},
        Hard{"tinyAmplitudes", nullptr, nullptr,
             [](Data& d) {
               for (float& f : d.f) f *= 1e-30F;
             }},
        Hard{"shuffledAmplitudes", nullptr, nullptr,
             [](Data& d) { std::shuffle(d.f.begin(), d.f.end(), std::mt19937(2)); }},
        Hard{"infiniteAmplitudes", nullptr, nullptr,
             [](Data& d) { std::fill_n(d.f.begin(), 40, INFINITY); }},
        Hard{"errorsOfZero", nullptr, nullptr, [](Data& d) { fill(d.sigma, 0.0F); }},
        Hard{"modelFarOutside",
             nullptr,
             nullptr,
             {},
             [] { return changed_model([](std::string& l) { l.replace(30, 8, " 900.125"); }); }},
        Hard{"modelInOnePoint",
             nullptr,
             nullptr,
             {},
             [] {
               return changed_model(
                   [](std::string& l) { l.replace(30, 24, "   1.000   1.000   1.000"); });
             }},
        Hard{"modelOfOccupancyZero",
             "structure factors are zero throughout",
             "structure factors are zero throughout",
             {},
             [] { return changed_model([](std::string& l) { l.replace(54, 6, "  0.00"); }); }},
        Hard{"noRoomForSolvent", nullptr, nullptr, {}, crowded_model, true},
        Hard{"twentyThousandAtoms", nullptr, nullptr, {}, [] { return scattered_model(20000); }},
        Hard{"oneAtom", nullptr, nullptr, {}, [] { return scattered_model(1); }}),
    [](const auto& row) { return std::string(row.param.name); });

}  // namespace
}  // namespace qx::test
