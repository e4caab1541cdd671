#include "crystal/reflections.h"
#include "reflio/mtz.h"
#include "support/engine.h"
#include "support/mtz_maker.h"

#include <quorix/memory.h>

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstring>

namespace qx::test {
namespace {

constexpr float nan = std::numeric_limits<float>::quiet_NaN();

bool same_bits(const std::vector<float>& made, const float* read) {
  return std::equal(made.begin(), made.end(), read, [](float a, float b) {
    return std::bit_cast<std::uint32_t>(a) == std::bit_cast<std::uint32_t>(b);
  });
}

MtzMaker sample() {
  MtzMaker file({{1, 0, 0}, {0, 2, -3}, {-4, 5, 6}, {0, 0, 7}});
  file.add("F", 'F', {1.5F, nan, -2.25F, 1e6F}).add("PHI", 'P', {0, 90, 180, 359.5F});
  return file;
}

class MtzRead : public Engine {
 protected:
  void SetUp() override {
    Engine::SetUp();
    refdata_ = qx_new_qxrefdata_obj();
  }

  // Reads the bytes as a file; the output goes to `output`.
  const qxmtz* read(const std::string& bytes) {
    write_file(path_, bytes);
    Status status = failed;
    output = captured([&] { status = qx_read_refdata_mtz_file_obj(refdata_, path_.c_str()); });
    EXPECT_EQ(status == ok, qx_exist_quorix() == 1);
    return status == ok ? refdata_->mtz : nullptr;
  }

  // Reads what must be refused, and puts a fresh engine in place of the one that died.
  std::string refused(const std::string& bytes) {
    EXPECT_EQ(read(bytes), nullptr);
    revive();
    return output;
  }

  void revive() {
    EXPECT_EQ(qx_exist_quorix(), 0);
    EXPECT_EQ(qx_create_quorix(), ok);
    refdata_ = qx_new_qxrefdata_obj();
  }

  std::string output;

 private:
  ScratchDirectory scratch_;
  std::string path_ = scratch_.file("sample.mtz");
  qxrefdata* refdata_ = nullptr;
};

TEST_F(MtzRead, everythingInTheFileIsKept) {
  for (const bool big_endian : {false, true}) {
    for (const bool wide : {false, true}) {
      MtzMaker file = sample();
      file.big_endian = big_endian;
      file.wide_location = wide;
      file.symmetry = "8 2 C 5 'C 1 2 1' PG2";
      file.operators = {"x,y,z", "-x,y,-z"};
      file.history = {"From somewhere", "  indented"};
      file.batches = {{17, "first", {1, -2, 3}, {0.5F}}, {18, "second", {}, {1.0F, 2.0F}}};
      file.datasets[1].crystal = "'a crystal'";
      const qxmtz* mtz = read(file.bytes());
      ASSERT_NE(mtz, nullptr) << output;
      EXPECT_EQ(output, "");
      ASSERT_EQ(mtz->columns.count, 5);
      ASSERT_EQ(mtz->nreflections, 4);
      for (int c = 0; c < 5; ++c) {
        const MadeColumn& made = file.columns[static_cast<std::size_t>(c)];
        EXPECT_EQ(mtz->columns[c].label, made.label);
        EXPECT_EQ(mtz->columns[c].type, made.type);
        EXPECT_EQ(mtz->columns[c].dataset_id, made.dataset);
        EXPECT_TRUE(same_bits(made.values, mtz->columns[c].values));
      }
      EXPECT_STREQ(mtz->title, "made by the tests");
      EXPECT_EQ(mtz->cell[2], 30.0);
      EXPECT_EQ(mtz->sort[1], 2);
      EXPECT_STREQ(mtz->spacegroup_name, "C 1 2 1");
      EXPECT_EQ(mtz->lattice, 'C');
      ASSERT_EQ(mtz->symops.count, 2);
      EXPECT_STREQ(mtz->symops[1].text, "-x,y,-z");
      EXPECT_TRUE(std::isnan(mtz->missing));
      ASSERT_EQ(mtz->datasets.count, 2);
      EXPECT_STREQ(mtz->datasets[1].crystal, "a crystal");
      EXPECT_EQ(mtz->datasets[1].wavelength, 0.9793);
      ASSERT_EQ(mtz->history.count, 2);
      EXPECT_STREQ(mtz->history[1].text, "  indented");
      ASSERT_EQ(mtz->batches.count, 2);
      EXPECT_EQ(mtz->batches[0].integers[1], -2);
      EXPECT_EQ(mtz->batches[1].number, 18);
      EXPECT_EQ(mtz->batches[1].reals[1], 2.0F);
      EXPECT_STREQ(mtz->batches[1].axes[2], "AX3");
    }
  }
}

TEST_F(MtzRead, aFileOfManyBlocksIsReadInOrder) {
  MtzMaker file(half_sphere(20, 20, 20));  // more rows than one block of the reader holds
  std::vector<float> serial(file.rows());
  for (std::size_t i = 0; i < serial.size(); ++i) serial[i] = static_cast<float>(i);
  for (char name = 'a'; name < 'k'; ++name) file.add({name}, 'R', serial);
  const qxmtz* mtz = read(file.bytes());
  ASSERT_NE(mtz, nullptr) << output;
  for (int c = 0; c < 13; ++c) {
    const auto& made = file.columns[static_cast<std::size_t>(c)].values;
    ASSERT_TRUE(same_bits(made, mtz->columns[c].values)) << c;
  }
}

TEST_F(MtzRead, unknownAndAbsentRecordsAreNoFault) {
  MtzMaker file = sample();
  file.extra = {"COLSRC F created_by_someone 1", "COLGRP F FP 1 F", "BATCH      1     2"};
  file.edits = {{"NDIF", ""},
                {"PROJECT", ""},
                {"CRYSTAL", ""},
                {"DATASET", ""},
                {"DCELL", ""},
                {"DWAVEL", ""},
                {"COLUMN F", "COLUMN F F 0 1"},
                {"SYMINF", "SYMINF 1 1 P 1 P1 PG1 X"}};
  const qxmtz* mtz = read(file.bytes());
  ASSERT_NE(mtz, nullptr) << output;
  EXPECT_EQ(mtz->datasets.count, 0);
  std::int32_t position = -1;
  ASSERT_EQ(locate_column(*mtz, "PHI", position), ok);
  EXPECT_EQ(position, 4);
}

TEST_F(MtzRead, theMissingMarkerMayBeANumber) {
  MtzMaker file = sample();
  file.missing = "-999.0000";
  ASSERT_NE(read(file.bytes()), nullptr);
  EXPECT_EQ(read(file.bytes())->missing, -999.0F);
}

TEST_F(MtzRead, textsAfterTheEndAndAShortLastRecordAreLeftAlone) {
  const std::string bytes = sample().bytes();
  EXPECT_NE(read(bytes + "data_collection\nanything\n"), nullptr);
  EXPECT_NE(read(bytes.substr(0, bytes.size() - 60)), nullptr);
}

struct Altered {
  const char* start;
  const char* replacement;
  const char* report;
};

// One altered record, one report of it by its text.
TEST_F(MtzRead, malformedRecordsAreReported) {
  const Altered cases[] = {
      {"VERS", "VERS MTZ:V1.2", "\nQuorix Only supports MTZ:V1.1 mtz file \n"},
      {"VERS", "", "\nQuorix Only supports MTZ:V1.1 mtz file \n"},
      {"NCOL", "NCOL 5 4", "Not a valid format on NCOL line \"NCOL 5 4\" \n"},
      {"NCOL", "NCOL x 4 0", "Failed to get number of columns from NCOL line NCOL x 4 0 \n"},
      {"NCOL", "NCOL 5 -4 0", "Failed to get number of reflection data from NCOL line "},
      {"NCOL", "NCOL 5 99999999999 0", "Failed to get number of reflection data from NCOL line "},
      {"NCOL", "NCOL 5 4 b", "Failed to get number of batches from NCOL line "},
      {"NCOL", "NCOL -5 4 0", "There are less than 3 columns in the mtz file: "},
      {"NCOL", "NCOL 2 4 0", "There are less than 3 columns in the mtz file: "},
      {"NCOL", "NCOL 4 4 0", "There are more COLU lines than declared \n"},
      {"NCOL", "NCOL 5 5 0", "Failed to read 5 reflection data from file "},
      {"NCOL", "NCOL 2147483647 2147483647 0", "Failed to read 2147483647 reflection data from "},
      {"NCOL", "NCOL 6 3 0", " appears broken \n"},
      {"NCOL", "", "There are less than 3 columns in the mtz file: "},
      {"NDIF", "NDIF", "Not a valid format on NDIF line NDIF \n"},
      {"NDIF", "NDIF -1", "Failed to get number of dataset from NDIF line NDIF -1 \n"},
      {"NDIF", "NDIF 1", "There are more PROJ lines than declared \n"},
      {"SYMINF", "SYMINF 1 1 P 1 'P 1'", "Not a valid format on SYMI line "},
      {"SYMINF", "SYMINF ? 1 P 1 'P 1' PG1", "Failed to get number of symmetry from SYMINF line "},
      {"SYMINF", "SYMINF 1 ? P 1 'P 1' PG1",
       "Failed to get number of primitive symmetry from SYMI line "},
      {"SYMINF", "SYMINF 1 1 P ? 'P 1' PG1", "Failed to get space group number from SYMI line "},
      {"SYMINF", "SYMINF 0 1 P 1 'P 1' PG1", "There are more symmetry operations than declared \n"},
      {"COLUMN F", "COLUMN F F 1", "Not a valid format on COLUMN line COLUMN F F 1 \n"},
      {"COLUMN F", "COLUMN F F **** 1 1", "Failed to get minimum value from COLU line "},
      {"COLUMN F", "COLUMN F F 1 **** 1", "Failed to get maximum value from COLU line "},
      {"COLUMN F", "COLUMN F F 1 1 x", "Failed to get dataset ID number from COLU line "},
      {"COLUMN F", "COLUMN F F 1 1 1 x", "Failed to get 7th int number from COLU line "},
      {"COLUMN F", "COLUMN F F 1 1 1 1 x", "Failed to get 8th int number from COLU line "},
      {"COLUMN F", "", " appears broken \n"},
      {"CELL", "CELL 1 2 3", "Not a valid format on CEL line CELL 1 2 3 \n"},
      {"CELL", "CELL 1 2 3 4 5 x", "Failed to get cell data from CELL line "},
      {"SORT", "SORT 1 2", "Not a valid format on SORT line SORT 1 2 \n"},
      {"SORT", "SORT 1 2 3 4 x", "Failed to get sort value from SORT line "},
      {"PROJECT", "PROJECT x name", "Failed to get project ID number from PROJ line "},
      {"CRYSTAL", "CRYSTAL x name", "Failed to get crystal ID number from CRYS line "},
      {"DATASET", "DATASET", "Not a valid format on DATASET line "},
      {"DATASET", "DATASET x name", "Failed to get Dataset ID number from DATA line "},
      {"DCELL", "DCELL 1 2 3", "Not a valid format on DCEL line "},
      {"DCELL", "DCELL x 1 2 3 4 5 6", "Failed to get dcell ID from DCEL line "},
      {"DCELL", "DCELL 1 1 2 3 4 5 x", "Failed get cell data from DCEL line "},
      {"DWAVEL", "DWAVEL x 1", "Failed to get dwave ID from DWAV line "},
      {"DWAVEL", "DWAVEL 1 x", "Failed to get wavelength from DWAV line "},
      {"END", "", " appears broken \n"},
      {"MTZHIST", "MTZHIST", "Not a valid format for MTZH line MTZHIST \n"},
      {"MTZHIST", "MTZHIST x", "Failed to get number of history lines from MTZH line MTZHIST x \n"},
      {"BH", "BX", "Not a valid format under MTZB BX \n"},
      {"BH", "BH x 1 1 0", "Failed to get batch number from BATCH line "},
      {"BH", "BH 1 1 x 0", "Failed to get integer size from BATCH line "},
      {"BH", "BH 1 1 1 -1", "Failed to get real size from BATCH line "},
      {"BH", "BH 1 1 2147483647 2147483647", " appears broken \n"},
  };
  for (const Altered& altered : cases) {
    MtzMaker file = sample();
    file.batches = {{1, "a batch", {1}, {}}};
    file.edits = {{altered.start, altered.replacement}};
    if (std::strcmp(altered.start, "END") == 0) file.edits.push_back({"MTZE", ""});
    const std::string report = refused(file.bytes());
    EXPECT_NE(report.find(altered.report), std::string::npos)
        << altered.start << " -> " << altered.replacement << ":\n"
        << report;
    EXPECT_EQ(report.compare(0, 28, "\nqx_read_refdata_mtz_file():"), 0) << report;
  }
}

TEST_F(MtzRead, falseBeginningsAreReported) {
  const std::string good = sample().bytes();
  const auto with = [&](std::size_t at, const std::string& bytes) {
    return std::string(good).replace(at, bytes.size(), bytes);
  };
  EXPECT_NE(refused("").find("is empty \n"), std::string::npos);
  EXPECT_NE(refused("MTZ 12345").find("is empty \n"), std::string::npos);
  EXPECT_NE(
      refused(with(8, std::string(4, '\0'))).find("Not valid machine number format information "),
      std::string::npos);
  EXPECT_NE(refused(with(0, "MAP ")).find("Wrong with the first 3 characters is MAP, shold be"),
            std::string::npos);
  EXPECT_NE(refused(with(9, "\x51")).find("Donot know to how convert the bits for int "),
            std::string::npos);
  EXPECT_NE(refused(with(8, "\x51"))
                .find("\nqx_read_mtz_flaot():\nDonot know how to handle this file arch code: 5 \n"),
            std::string::npos);
  for (const char* location : {"\xfe\xff\xff\xff", "\xff\xff\xff\xff"}) {
    EXPECT_NE(refused(with(4, location)).find("It appears the bits for int is not read correctly"),
              std::string::npos);
  }
  for (const char* location : {"\x01\0\0\0", "\x14\0\0\0", "\xff\xff\xff\x7f"}) {
    EXPECT_NE(refused(with(4, {location, 4})).find(" appears broken \n"), std::string::npos);
  }
}

// A cut anywhere before the end mark is noticed, and nothing is allocated for what is not there.
TEST_F(MtzRead, cutFilesAreRefused) {
  MtzMaker file = sample();
  file.history = {"a line"};
  file.batches = {{1, "a batch", {1, 2}, {3.0F}}};
  const std::string bytes = file.bytes();
  const std::size_t complete = file.header_start() + bytes.substr(file.header_start()).find("MTZH");
  for (std::size_t size = 0; size < bytes.size() - 76; size += 13) {
    if (size == complete) continue;
    EXPECT_NE(refused(bytes.substr(0, size)), "") << size;
  }
}

TEST_F(MtzRead, noRandomByteCrashes) {
  MtzMaker file = sample();
  file.history = {"a line"};
  file.batches = {{1, "a batch", {1, 2}, {3.0F}}};
  const std::string good = file.bytes();
  unsigned state = 1;
  for (int round = 0; round < 2000; ++round) {
    std::string bytes = good;
    for (int i = 0; i < 3; ++i) {
      state = state * 1664525U + 1013904223U;
      bytes[(state >> 8U) % bytes.size()] = static_cast<char>(state >> 24U);
    }
    if (!read(bytes)) revive();
  }
}

TEST_F(MtzRead, pathsThatAreNoFilesAreRefused) {
  for (const std::string& path : {std::string("/dev/null"), std::string("/"),
                                  std::string("/no/file"), std::string(4000, 'x')}) {
    qxrefdata* refdata = qx_new_qxrefdata_obj();
    const std::string report =
        captured([&] { EXPECT_EQ(qx_read_refdata_mtz_file_obj(refdata, path.c_str()), failed); });
    EXPECT_EQ(report, "\nqx_read_refdata_mtz_file():\nFailed to open file " + path +
                          " for reading reflection data \n");
    ASSERT_EQ(qx_create_quorix(), ok);
  }
}

TEST_F(MtzRead, aSecondFileReplacesTheFirst) {
  ASSERT_NE(read(sample().bytes()), nullptr);
  const double before = qx_get_xmalloc_memory_size();
  ASSERT_NE(read(sample().bytes()), nullptr);
  EXPECT_EQ(qx_get_xmalloc_memory_size(), before);
}

}  // namespace
}  // namespace qx::test
