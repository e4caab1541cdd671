#include "core/kept_blocks.h"

#include "core/memory_system.h"
#include "support/engine.h"

#include <quorix/memory.h>

#include <atomic>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <thread>
#include <vector>

namespace qx::test {
namespace {

constexpr std::size_t large = 1'000'000;

class KeptBlocks : public Engine {
 protected:
  ~KeptBlocks() override { qx_keep_memory(0); }
};

TEST_F(KeptBlocks, comeAgainWhereTheyAreWanted) {
  void* first = xmalloc(large, "a");
  ASSERT_EQ(xfree(first), ok);
  EXPECT_EQ(take_kept_block(large), nullptr);  // nothing is kept unless somebody wishes so
  qx_keep_memory(4);
  void* block = xmalloc(large, "a");
  const double live = qx_get_xmalloc_memory_size();
  ASSERT_EQ(xfree(block), ok);
  EXPECT_EQ(do_we_open_this_ptr(block), 0);
  EXPECT_EQ(take_kept_block(large / 2), nullptr);  // too large by half
  EXPECT_EQ(take_kept_block(2 * large), nullptr);
  ASSERT_EQ(xmalloc(large - 1000, "b"), block);
  EXPECT_NEAR(live - qx_get_xmalloc_memory_size(), 0.001, 1e-9);
  std::memset(block, 7, large - 1000);
  ASSERT_TRUE(take_block(block));
  qx_end_block(block);
  EXPECT_EQ(xmalloc(large, "c"), block);  // of an engine once more
}

TEST_F(KeptBlocks, areAsMuchAsWasAllowedAndTheLatest) {
  qx_keep_memory(4.5);
  std::vector<void*> blocks(6);
  for (std::size_t i = 0; i < blocks.size(); ++i) blocks[i] = xmalloc(large + 64 * i, "a");
  for (void* block : blocks) ASSERT_EQ(xfree(block), ok);
  std::size_t kept = 0;
  while (void* block = take_kept_block(large)) {
    ++kept;
    EXPECT_NE(block, blocks[0]);
    EXPECT_NE(block, blocks[1]);
    std::free(block);
  }
  EXPECT_EQ(kept, 4U);
  void* unaligned = static_cast<char*>(std::malloc(3 * large));  // 16 bytes behind a page or a line
  const bool suits = reinterpret_cast<std::uintptr_t>(unaligned) % 64 == 0;
  qx_end_block(unaligned);
  qx_end_block(nullptr);
  EXPECT_EQ(take_kept_block(3 * large), nullptr) << suits;  // or more than half of what is allowed
}

TEST_F(KeptBlocks, goWhenNobodyAsksForThem) {
  qx_keep_memory(8);
  ASSERT_EQ(xfree(xmalloc(2 * large, "a")), ok);
  for (int i = 0; i < 700; ++i) ASSERT_EQ(xfree(xmalloc(large, "b")), ok);
  EXPECT_EQ(take_kept_block(2 * large), nullptr);
}

// Each thread fills what it gets: a block of two owners would show both.
TEST_F(KeptBlocks, belongToOneThreadAtATime) {
  qx_keep_memory(1);
  std::atomic<int> wrong = 0;
  const auto work = [&wrong](unsigned char mark) {
    for (int i = 0; i < 2000; ++i) {
      const std::size_t size = 20'000 + static_cast<std::size_t>(i % 7) * 3000;
      auto* block = static_cast<unsigned char*>(take_kept_block(size));
      if (!block)
        block = static_cast<unsigned char*>(std::aligned_alloc(64, (size + 63) / 64 * 64));
      std::memset(block, mark, size);
      std::this_thread::yield();
      for (std::size_t at = 0; at < size; at += 1000) wrong += block[at] != mark ? 1 : 0;
      end_block(block);
    }
  };
  std::vector<std::thread> threads;
  for (unsigned char i = 1; i <= 4; ++i) threads.emplace_back(work, i);
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(wrong, 0);
}

}  // namespace
}  // namespace qx::test
