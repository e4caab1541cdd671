#include "crystal/reflections.h"
#include "reflio/mtz.h"
#include "support/engine.h"
#include "support/mtz_maker.h"

#include <bit>
#include <cmath>
#include <cstring>

#if __has_include(<gemmi/mtz.hpp>)
#define GEMMI_WRITE_IMPLEMENTATION
#define USE_STD_SNPRINTF 1
#include <gemmi/mtz.hpp>
#define HAVE_GEMMI 1
#endif

namespace qx::test {
namespace {

class MtzWrite : public Engine {
 protected:
  const qxmtz* read(const std::string& path) {
    qxrefdata* refdata = qx_new_qxrefdata_obj();
    EXPECT_EQ(qx_read_refdata_mtz_file_obj(refdata, path.c_str()), ok) << path;
    return refdata->mtz;
  }

  qxmtz* sample() {
    MtzMaker file(half_sphere(3, 3, 3));
    std::vector<float> values(file.rows());
    for (std::size_t i = 0; i < values.size(); ++i) values[i] = std::sqrt(static_cast<float>(i));
    values[1] = std::nanf("");
    file.add("F", 'F', values).add("M/ISYM", 'Y', values, 0);
    file.symmetry = "1 1 P 1 'P 1' PG1";
    file.history = {"one", "two"};
    file.batches = {
        {7, "a batch", std::vector<std::int32_t>(29, 5), std::vector<float>(156, 2.5F)},
        {8, "another", std::vector<std::int32_t>(29, 6), std::vector<float>(156, 3.5F)}};
    write_file(scratch_.file("in.mtz"), file.bytes());
    return const_cast<qxmtz*>(read(scratch_.file("in.mtz")));
  }

  std::string file(const char* name) { return scratch_.file(name); }

  // The report of a write that fails; the engine stands afterwards.
  std::string refused(const qxmtz* mtz, const std::string& path) {
    std::string report =
        captured([&] { EXPECT_NE(qx_write_refdata_mtz_file(path.c_str(), mtz), 0); });
    EXPECT_EQ(qx_exist_quorix(), 1);
    return report;
  }

 private:
  ScratchDirectory scratch_;
};

void expect_same(const qxmtz& a, const qxmtz& b) {
  ASSERT_EQ(a.nreflections, b.nreflections);
  ASSERT_EQ(a.columns.count, b.columns.count);
  for (int c = 0; c < a.columns.count; ++c) {
    EXPECT_STREQ(a.columns[c].label, b.columns[c].label);
    EXPECT_EQ(a.columns[c].type, b.columns[c].type);
    EXPECT_EQ(a.columns[c].dataset_id, b.columns[c].dataset_id);
    EXPECT_EQ(std::memcmp(a.columns[c].values, b.columns[c].values,
                          4 * static_cast<std::size_t>(a.nreflections)),
              0);
  }
  ASSERT_EQ(a.history.count, b.history.count);
  for (int i = 0; i < a.history.count; ++i) EXPECT_STREQ(a.history[i].text, b.history[i].text);
  ASSERT_EQ(a.batches.count, b.batches.count);
  for (int i = 0; i < a.batches.count; ++i) {
    EXPECT_EQ(a.batches[i].number, b.batches[i].number);
    EXPECT_STREQ(a.batches[i].title, b.batches[i].title);
    ASSERT_EQ(a.batches[i].nreals, b.batches[i].nreals);
    const auto size = 4 * static_cast<std::size_t>(a.batches[i].nreals);
    EXPECT_EQ(std::memcmp(a.batches[i].reals, b.batches[i].reals, size), 0);
  }
  ASSERT_EQ(a.datasets.count, b.datasets.count);
  for (int i = 0; i < a.datasets.count; ++i) {
    EXPECT_STREQ(a.datasets[i].project, b.datasets[i].project);
    EXPECT_STREQ(a.datasets[i].name, b.datasets[i].name);
    EXPECT_NEAR(a.datasets[i].wavelength, b.datasets[i].wavelength, 1e-5);
  }
}

TEST_F(MtzWrite, theObjectComesBackWhole) {
  const qxmtz* mtz = sample();
  ASSERT_EQ(qx_write_refdata_mtz_file(file("out.mtz").c_str(), mtz), 0);
  expect_same(*mtz, *read(file("out.mtz")));
}

TEST_F(MtzWrite, recordsStandWhereTheFormatPutsThem) {
  const qxmtz* mtz = sample();
  ASSERT_EQ(qx_write_refdata_mtz_file(file("out.mtz").c_str(), mtz), 0);
  const std::string bytes = read_file(file("out.mtz"));
  EXPECT_EQ(bytes.compare(0, 4, "MTZ "), 0);
  EXPECT_EQ(bytes.compare(8, 4, std::string("\x40\x40\0\0", 4)), 0);
  std::int32_t location = 0;
  std::memcpy(&location, bytes.data() + 4, 4);
  EXPECT_EQ(location, 21 + 5 * mtz->nreflections);
  float h = 0;
  std::memcpy(&h, bytes.data() + 80 + 5 * 4, 4);  // second row, first column
  EXPECT_EQ(h, mtz->columns[0].values[1]);
  std::string at = bytes.substr(4 * static_cast<std::size_t>(location - 1));
  for (const char* text :
       {"VERS MTZ:V1.1            ", "TITLE made by the tests",
        "NCOL            5          171            2",
        "CELL    10.00000    20.00000    30.00000    90.00000    90.00000    90.00000",
        "SORT    1    2    3    0    0",
        "SYMINF   1   1 P     1                          'P 1'        PG1", "SYMM x,y,z",
        "RESO     0.0010     0.2500", "VALM NAN",
        "COLUMN H                              H         -1.0000          1.0000    0"}) {
    EXPECT_EQ(at.substr(0, std::strlen(text)), text);
    EXPECT_EQ(at.find_first_not_of(' ', std::strlen(text)) >= 80, true) << text;
    at.erase(0, 80);
  }
  for (const char* text : {"COLUMN M/ISYM ", "NDIF          2 ", "PROJECT      1 project ",
                           "DCELL      1    10.0000    20.0000 ", "DWAVELEN      1    0.97930 ",
                           "END ", "MTZHIST     2 ", "MTZBATS ",
                           "BH        7     185      29     156", "BHCH ", "MTZENDOFHEADERS"}) {
    EXPECT_NE(at.find(text), std::string::npos) << text;
  }
}

TEST_F(MtzWrite, withoutAnOverallCellTheBaseDataSetGivesIt) {
  qxmtz* mtz = sample();
  mtz->has_cell = false;
  mtz->datasets[0].cell[0] = 77.0;
  ASSERT_EQ(qx_write_refdata_mtz_file(file("out.mtz").c_str(), mtz), 0);
  EXPECT_NE(read_file(file("out.mtz")).find("CELL    77.00000 "), std::string::npos);
}

TEST_F(MtzWrite, aBrokenWriteLeavesTheGoodFile) {
  qxmtz* mtz = sample();
  write_file(file("out.mtz"), "precious");
  copy_text(mtz->datasets[1].project, std::string(70, 'p').c_str());
  EXPECT_EQ(refused(mtz, file("out.mtz")),
            "\nqx_write_refdata_mtz_file():\nFailed to write PROJECT record. \n");
  copy_text(mtz->columns[3].label, std::string(60, 'l').c_str());
  EXPECT_EQ(refused(mtz, file("out.mtz")),
            "\nqx_write_refdata_mtz_file():\nFailed to write COLUMN record. \n");
  EXPECT_EQ(read_file(file("out.mtz")), "precious");
  EXPECT_NE(refused(mtz, file("none/out.mtz")).find("Failed to open file "), std::string::npos);
  EXPECT_NE(refused(sample(), "/dev/full").find("Failed to write "), std::string::npos);
  EXPECT_EQ(qx_write_refdata_mtz_file("/dev/null", sample()), 0);
}

#ifdef HAVE_GEMMI

void expect_same_as(const qxmtz& mtz, const gemmi::Mtz& other) {
  ASSERT_EQ(mtz.nreflections, other.nreflections);
  ASSERT_EQ(static_cast<std::size_t>(mtz.columns.count), other.columns.size());
  for (int c = 0; c < mtz.columns.count; ++c) {
    const auto& column = other.columns[static_cast<std::size_t>(c)];
    EXPECT_EQ(mtz.columns[c].label, column.label);
    EXPECT_EQ(mtz.columns[c].type, column.type);
    EXPECT_EQ(mtz.columns[c].dataset_id, column.dataset_id);
    int different = 0;
    for (int i = 0; i < mtz.nreflections; ++i) {
      different += std::bit_cast<std::uint32_t>(column[static_cast<std::size_t>(i)]) !=
                   std::bit_cast<std::uint32_t>(mtz.columns[c].values[i]);
    }
    EXPECT_EQ(different, 0) << column.label;
  }
  ASSERT_EQ(static_cast<std::size_t>(mtz.datasets.count), other.datasets.size());
  for (int i = 0; i < mtz.datasets.count; ++i) {
    const auto& set = other.datasets[static_cast<std::size_t>(i)];
    EXPECT_EQ(mtz.datasets[i].id, set.id);
    EXPECT_EQ(mtz.datasets[i].project, set.project_name);
    EXPECT_EQ(mtz.datasets[i].crystal, set.crystal_name);
    EXPECT_EQ(mtz.datasets[i].name, set.dataset_name);
    EXPECT_NEAR(mtz.datasets[i].wavelength, set.wavelength, 1e-4);
    EXPECT_NEAR(mtz.datasets[i].cell[0], set.cell.a, 1e-3);
  }
  EXPECT_NEAR(mtz.cell[5], other.cell.gamma, 1e-4);
  EXPECT_EQ(mtz.spacegroup_name, other.spacegroup_name);
  EXPECT_EQ(mtz.symops.count, static_cast<int>(other.symops.size()));
  EXPECT_EQ(mtz.batches.count, static_cast<int>(other.batches.size()));
  EXPECT_EQ(mtz.history.count, static_cast<int>(other.history.size()));
}

TEST_F(MtzWrite, gemmiReadsOursAndWeReadGemmis) {
  const qxmtz* mtz = sample();
  ASSERT_EQ(qx_write_refdata_mtz_file(file("ours.mtz").c_str(), mtz), 0);
  gemmi::Mtz other;
  other.read_file(file("ours.mtz"));
  expect_same_as(*mtz, other);
  EXPECT_EQ(other.batches[1].number, 8);
  EXPECT_EQ(other.batches[1].floats[155], 3.5F);
  EXPECT_EQ(other.batches[1].ints[28], 6);
  for (auto& batch : other.batches) batch.title.erase(0, 6);  // it keeps the keyword
  other.spacegroup = gemmi::find_spacegroup_by_name("P 1");
  other.write_to_file(file("theirs.mtz"));
  const qxmtz* back = read(file("theirs.mtz"));
  expect_same_as(*back, other);
  expect_same(*mtz, *back);
}

TEST_F(MtzWrite, realFilesReadLikeGemmiAndComeBackFromADisc) {
  if (real_data().empty()) GTEST_SKIP() << "no real data here";
  int files = 0;
  for (const auto& entry : std::filesystem::recursive_directory_iterator(real_data())) {
    if (entry.path().extension() != ".mtz") continue;
    SCOPED_TRACE(entry.path().filename());
    const qxmtz* mtz = read(entry.path());
    gemmi::Mtz other;
    other.read_file(entry.path());
    expect_same_as(*mtz, other);
    ASSERT_EQ(qx_write_refdata_mtz_file(file("copy.mtz").c_str(), mtz), 0);
    expect_same(*mtz, *read(file("copy.mtz")));
    gemmi::Mtz copy;
    copy.read_file(file("copy.mtz"));
    expect_same_as(*mtz, copy);
    ASSERT_EQ(qx_create_quorix(), ok);
    ++files;
  }
  EXPECT_GE(files, 70);
}

#endif

}  // namespace
}  // namespace qx::test
