#include "core/root.h"

#include "core/report.h"
#include "support/engine.h"

#include <quorix/engine.h>
#include <quorix/memory.h>
#include <quorix/parser.h>

#include <cstdlib>

namespace qx::test {
namespace {

class Root : public Engine {};

TEST_F(Root, hasItsMembersButNoTimer) {
  EXPECT_NE(qx_get_qxmemmonitor(), nullptr);
  EXPECT_NE(qx_get_qxparser(), nullptr);
  EXPECT_NE(qx_get_refsys(), nullptr);
  EXPECT_NE(qx_get_qxwilson(), nullptr);
  EXPECT_EQ(qx_get_qxtimerfactory(), nullptr);
  EXPECT_EQ(do_we_open_this_ptr(quorix->message), 1);
}

TEST_F(Root, aTimerIsMadeAndDeletedOnRequest) {
  ASSERT_EQ(qx_new_qxtimerfactory(), ok);
  const double with = qx_get_max_memory_size();
  ASSERT_EQ(qx_new_qxtimerfactory(), ok);  // replaces the first
  EXPECT_EQ(qx_get_max_memory_size(), with);
  ASSERT_EQ(qx_delete_qxtimerfactory(), ok);
  EXPECT_EQ(qx_get_qxtimerfactory(), nullptr);
  ASSERT_EQ(qx_delete_qxtimerfactory(), ok);
  ASSERT_EQ(qx_new_qxtimerfactory(), ok);  // goes with the root
  ASSERT_EQ(qx_create_quorix(), ok);
  EXPECT_EQ(qx_get_qxtimerfactory(), nullptr);
}

TEST_F(Root, gettersReportAnAbsentRoot) {
  qx_terminate_quorix();
  EXPECT_EQ(qx_exist_quorix(), 0);
  EXPECT_EQ(captured([] { EXPECT_EQ(qx_get_qxparser(), nullptr); }),
            "\nqx_get_qxparser\nquorix system has not been set up yet.\n");
  EXPECT_EQ(captured([] { EXPECT_EQ(qx_set_refsys(nullptr), failed); }),
            "\nqx_set_refsys\nquorix object does not exist yet!\n");
}

TEST_F(Root, dyingTwiceIsHarmless) {
  const auto before = qx_get_die_count();
  die();
  fdie_();
  EXPECT_EQ(qx_get_die_count() - before, 2);
  EXPECT_EQ(die_reentrant, 1);
  qx_terminate_quorix();
  ASSERT_EQ(qx_create_quorix(), ok);
  EXPECT_EQ(qx_exist_quorix(), 1);
}

TEST_F(Root, aReportDuringTearDownNeitherRecursesNorFreesTwice) {
  // A parser that the registry does not know: its deletion reports while the root goes.
  static char foreign[256] = {};
  ASSERT_EQ(qx_set_qxparser(reinterpret_cast<qxparser*>(foreign)), ok);
  const std::string output = captured([] { die(); });
  EXPECT_NE(output.find("Try to free invalid pointer"), std::string::npos);
  EXPECT_EQ(qx_exist_quorix(), 0);
}

TEST_F(Root, installingAnotherDeletesTheFirst) {
  qxroot* first = qx_get_quorix();
  quorix = nullptr;
  ASSERT_EQ(qx_create_quorix(), ok);
  qx_set_quorix(first);
  EXPECT_EQ(qx_get_quorix(), first);
}

struct WordCase {
  const char* text;
  const char* report;
};

class SectionWords : public Engine, public ::testing::WithParamInterface<WordCase> {};

TEST_P(SectionWords, areReportedAndEndTheEngine) {
  const SectionResult result = section(GetParam().text);
  EXPECT_FALSE(result.ok);
  EXPECT_EQ(result.output, GetParam().report);
  EXPECT_EQ(qx_exist_quorix(), 0);
}

INSTANTIATE_TEST_SUITE_P(
    unknownOrEmpty, SectionWords,
    ::testing::Values(
        WordCase{"xgr\nxend\n", "\nqx_quorix_ctrl():\n*** Unknow quorix task: XGR ***\n"},
        WordCase{"xfc\nxend\n", "\nqx_quorix_ctrl():\n*** Unknow quorix task: XFC ***\n"},
        WordCase{"xend\n", "\nqx_quorix_ctrl():\n*** Unknow quorix task: XEND ***\n"},
        WordCase{"  ! nothing\n#\n", "\nqx_quorix_ctrl():\nFailed to get quorix command. \n"},
        WordCase{"xwater\nxend\n",
                 "\nqx_quorix_ctrl():\nFailed to process xwater pick up section. \n"},
        WordCase{"xOmItting\nfoo\n", "\nqx_xomit_ctrl():\n*** Unknow xomit task: FOO ***\n"},
        WordCase{"xter\nfoo\n", "\n qx_xter_ctrl():\n *** Unknow xter task: FOO *** \n"},
        WordCase{"xter\n", "\n qx_xter_ctrl():\n Failed to get quorix command. \n"},
        WordCase{"xter\nwrite\n", "\n qx_xter_ctrl():\nFailed to write keyword.\n"},
        WordCase{"xter\nwrite map\n", "\n qx_xter_ctrl():\nUnknown write keyword.\n"},
        WordCase{"xverbose\nlevel 3\n",
                 "\nqx_xverbose_ctrl():\n *** Unknow xverb task: LEVE ***\n"},
        WordCase{"xverbose\nparam verb_ls 3\n",
                 "\nqx_xverbose_ctrl():\n Failed to get quorix command . \n"},
        WordCase{"xverbose\nparam verb_ls three\n",
                 "\nqx_get_quorix_cmd_word():\n"
                 "Failed to convert int value from string three of key verb_ls\n"}));

TEST_F(Root, terminationPrintsThePeakWhenAsked) {
  ASSERT_TRUE(section("xverbose\nparam verb_mem 1 verb_mtz 2\nxend\n").ok);
  EXPECT_EQ(qx_get_qxverbsys_verb_mem(), 1);
  const SectionResult result = section("xter\nxend\n");
  EXPECT_TRUE(result.ok);
  EXPECT_EQ(result.output.rfind("Maximum memory used in Quorix: ", 0), 0U) << result.output;
  EXPECT_EQ(qx_exist_quorix(), 0);
  ASSERT_EQ(qx_create_quorix(), ok);
  EXPECT_EQ(qx_get_qxverbsys_verb_mem(), 0);
}

TEST_F(Root, databaseFilesAreLookedUpLocallyThenInTheDataDirectory) {
  ScratchDirectory scratch;
  std::filesystem::create_directory(scratch.path() / "xray");
  write_file(scratch.file("xray/table.dat"), "far");
  setenv("ZENVI_DATA", scratch.path().c_str(), 1);
  char* path = qx_get_database_file("table.dat");
  ASSERT_NE(path, nullptr);
  EXPECT_EQ(path, scratch.path().string() + "/xray/table.dat");
  write_file(scratch.file("local.dat"), "near");
  path = qx_get_database_file(scratch.file("local.dat").c_str());
  EXPECT_EQ(path, scratch.file("local.dat"));
  unsetenv("ZENVI_DATA");
  EXPECT_EQ(captured([] { EXPECT_EQ(qx_get_database_file("table.dat"), nullptr); }),
            "\nqx_get_database_file():\nZenvi does not know where to get file table.dat \n"
            "make sure environmental variable HALDEN_EXEC has been defined \n");
  EXPECT_EQ(qx_exist_quorix(), 0);
}

}  // namespace
}  // namespace qx::test
