#include "core/memory_system.h"
#include "core/tagged.h"
#include "support/engine.h"

#include <quorix/memory.h>

#include <cstdlib>

namespace qx::test {
namespace {

class Memory : public Engine {
 protected:
  double live() { return qx_get_xmalloc_memory_size() * 1e6; }
};

TEST_F(Memory, countsLiveAndPeakBytes) {
  const double before = live();
  void* small = xmalloc(1000, "a");
  void* large = xmalloc(2000000, "b");
  EXPECT_DOUBLE_EQ(live() - before, 2001000.0);
  const double peak = qx_get_max_memory_size() * 1e6;
  EXPECT_EQ(xfree(large), ok);
  EXPECT_DOUBLE_EQ(live() - before, 1000.0);
  EXPECT_DOUBLE_EQ(qx_get_max_memory_size() * 1e6, peak);
  EXPECT_EQ(do_we_open_this_ptr(small), 1);
  EXPECT_EQ(do_we_open_this_ptr(static_cast<char*>(small) + 1), 0);
  EXPECT_EQ(do_we_open_this_ptr(nullptr), 0);
}

TEST_F(Memory, zeroSizesAndNullPointersOnlyTalk) {
  const std::string output = captured([] {
    EXPECT_EQ(xmalloc(0, "x"), nullptr);
    EXPECT_EQ(xfree(nullptr), ok);
  });
  EXPECT_EQ(output,
            "The requested memory size (= 0) for x is < 1 \n"
            "Free a NULL pointer, nothing will be done \n");
  EXPECT_EQ(qx_exist_quorix(), 1);
}

TEST_F(Memory, refusesWhatItDoesNotKnow) {
  char mine[8];
  for (const bool inside : {true, false}) {
    ASSERT_EQ(qx_create_quorix(), ok);
    char* block = static_cast<char*>(xmalloc(64, "own"));
    void* address = inside ? block + 8 : mine;
    const std::string output = captured([&] { EXPECT_EQ(xfree(address), failed); });
    EXPECT_NE(output.find("Try to free invalid pointer 0x"), std::string::npos) << output;
    EXPECT_EQ(qx_exist_quorix(), 0);
  }
}

TEST_F(Memory, aSecondReleaseIsRefusedAndListsTheBlocks) {
  (void)xmalloc(64, "witness");
  void* block = xmalloc(64, "twice");
  ASSERT_EQ(xfree(block), ok);
  const std::string output = captured([&] { EXPECT_EQ(xfree(block), failed); });
  EXPECT_NE(output.find("Try to free invalid pointer"), std::string::npos);
  EXPECT_EQ(qx_exist_quorix(), 0);
}

TEST_F(Memory, reportsARequestThatCannotBeHad) {
  const std::string output =
      captured([] { EXPECT_EQ(xmalloc(SIZE_MAX / 2 + 10, "huge"), nullptr); });
  EXPECT_NE(output.find("\nxmalloc():\nFailed to open memory with size = 2147483647 for huge \n"
                        "Total opened heap memory is "),
            std::string::npos)
      << output;
  EXPECT_NE(output.find("npp_parser"), std::string::npos) << "lists the live blocks";
  EXPECT_EQ(qx_exist_quorix(), 0);
}

TEST_F(Memory, countProductsAreReportedNotWrapped) {
  const std::string output =
      captured([] { EXPECT_EQ(xopen_3d_double(1 << 15, 1 << 15, 1 << 30, "wrap"), nullptr); });
  EXPECT_NE(output.find("Failed to open memory with size ="), std::string::npos);
  ASSERT_EQ(qx_create_quorix(), ok);
  EXPECT_EQ(allocate<double>(SIZE_MAX / 4, "wrap"), nullptr);
}

TEST_F(Memory, arraysAreContiguousInTheStatedOrder) {
  const std::int32_t lengths[] = {1, 2, 3};
  const double before = live();
  double** ragged = xopen_2d_double(3, lengths, "t");
  EXPECT_DOUBLE_EQ(live() - before, 3 * 8 + 144.0);
  EXPECT_EQ(ragged[1] - ragged[0], 1);
  EXPECT_EQ(ragged[2] - ragged[0], 3);

  float*** cube = xopen_3d_float(2, 3, 4, "t");
  EXPECT_EQ(&cube[1][2][3] - &cube[0][0][0], 23);
  std::int16_t** matrix = xopen_matrix_shortint(2, 5, "t");
  EXPECT_EQ(&matrix[1][4] - &matrix[0][0], 9);
  const double held = live();
  EXPECT_EQ(xfree_3d_float(cube), ok);
  EXPECT_EQ(xfree_matrix_shortint(matrix), ok);
  EXPECT_DOUBLE_EQ(held - live(), 16 + 48 + 96 + 16 + 20.0);
}

TEST_F(Memory, emptyArraysGiveNoPointers) {
  const std::string output = captured([] {
    EXPECT_EQ(xopen_2d_int(0, nullptr, "none"), nullptr);
    EXPECT_EQ(xfree_3d_int(nullptr), ok);
  });
  EXPECT_EQ(output,
            "The requested memory size (= 0) for none is < 1 \n"
            "The requested memory size (= 0) for none is < 1 \n");
}

TEST_F(Memory, reallocationMovesAndKeeps) {
  char* block = static_cast<char*>(xmalloc(4, "r"));
  std::memcpy(block, "abc", 4);
  char* moved = static_cast<char*>(xrealloc(block, 4, 8, "r"));
  EXPECT_STREQ(moved, "abc");
  EXPECT_EQ(do_we_open_this_ptr(moved), 1);
  EXPECT_NE(xrealloc(nullptr, 0, 8, "r"), nullptr);
}

TEST_F(Memory, scratchStaysSilentAfterADie) {
  const std::string output = captured([] {
    Tagged<int> first(10, "scratch");
    die();
    ASSERT_EQ(qx_create_quorix(), ok);
    Tagged<int> second(10, "scratch");
    first = std::move(second);
  });
  EXPECT_EQ(output, "");
}

int countdown = 0;
void* failing(std::size_t size) { return countdown-- == 0 ? nullptr : std::malloc(size); }

// Scratch of one engine outlives the time in which another registry is in force: it goes back to
// its own, and never to the other.
TEST_F(Memory, eachRegistryTakesBackItsOwnBlocks) {
  qxmemmonitor* first = qx_get_qxmemmonitor();
  const double before = qx_get_xmalloc_memory_size();
  Tagged<char> kept(100, "kept");
  Tagged<char> early(100, "early");
  ASSERT_EQ(qx_set_qxmemmonitor(nullptr), ok);
  ASSERT_EQ(qx_new_qxmemmonitor(), ok);
  char* block = early.get();
  early.reset();
  EXPECT_EQ(qx_get_xmalloc_memory_size(), 0.0);
  qx_delete_qxmemmonitor();
  ASSERT_EQ(qx_set_qxmemmonitor(first), ok);
  kept.reset();
  EXPECT_EQ(xfree(block), ok);
  EXPECT_NEAR(qx_get_xmalloc_memory_size(), before, 1e-12);
}

TEST_F(Memory, everyFailedAllocationOfARootIsReportedOnce) {
  qx_terminate_quorix();
  int succeeded_at = -1;
  for (int n = 0; n < 200 && succeeded_at < 0; ++n) {
    countdown = n;
    const auto previous = set_system_allocator(failing);
    Status status = failed;
    const std::string output = captured([&] { status = qx_create_quorix(); });
    set_system_allocator(previous);
    if (status == ok) {
      succeeded_at = n;
    } else {
      EXPECT_EQ(qx_exist_quorix(), 0) << n;
      EXPECT_NE(output, "") << n;
    }
  }
  EXPECT_GT(succeeded_at, 20);
}

}  // namespace
}  // namespace qx::test
