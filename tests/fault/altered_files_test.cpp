// Cut and altered files: never a crash, a hang or an allocation out of proportion; a map or a
// report.
#include "support/engine.h"
#include "support/mtz_maker.h"

#include <quorix/driver.h>
#include <quorix/engine.h>
#include <quorix/memory.h>

#include <cstring>
#include <random>

namespace qx::test {
namespace {

class AlteredMtz : public Engine {
 protected:
  void SetUp() override {
    Engine::SetUp();
    MtzMaker maker(half_sphere(2, 3, 2));
    maker.history = {"line one", "line two"};
    std::vector<float> values;
    for (std::size_t i = 0; i < maker.rows(); ++i) values.push_back(static_cast<float>(i % 11));
    bytes_ = maker.add("FWT", 'F', values).add("PHWT", 'P', values).bytes();
    header_ = maker.header_start();
  }

  // One run on the given bytes; its outcome is either a whole map or a report.
  void run(const std::string& bytes) {
    write_file(mtz_, bytes);
    std::filesystem::remove(map_);
    const double cell[6] = {10, 20, 30, 90, 90, 90};
    const auto deaths = qx_get_die_count();
    Status status = failed;
    const std::string output = captured([&] {
      status = quorix_zenvi_driver2("P 1", cell, mtz_.c_str(), "FWT", "PHWT", "", map_.c_str(), 2.0,
                                    50.0);
    });
    EXPECT_EQ(status == ok, std::filesystem::exists(map_)) << output;
    EXPECT_EQ(status == ok, qx_get_die_count() == deaths) << output;
    EXPECT_EQ(qx_exist_quorix(), 0);
  }

  ScratchDirectory scratch_;
  std::string mtz_ = scratch_.file("in.mtz");
  std::string map_ = scratch_.file("out.ccp4");
  std::string bytes_;
  std::size_t header_ = 0;
};

TEST_F(AlteredMtz, cutAtEveryLength) {
  for (std::size_t size = 0; size < bytes_.size(); size += size < 200 || size > header_ ? 13 : 97) {
    run(bytes_.substr(0, size));
  }
}

TEST_F(AlteredMtz, withAnyByteChanged) {
  std::mt19937 random(5);
  for (int i = 0; i < 1500; ++i) {
    std::string bytes = bytes_;
    const bool in_header = i % 4 != 0;
    const std::size_t first = in_header ? header_ : 0;
    for (int changes = 1 + static_cast<int>(random() % 4); changes > 0; --changes) {
      bytes[first + random() % (bytes.size() - first)] = static_cast<char>(random());
    }
    run(bytes);
  }
}

TEST_F(AlteredMtz, withCountsThatTheLengthBelies) {
  const std::size_t at = bytes_.find("NCOL ");
  ASSERT_NE(at, std::string::npos);
  for (const char* counts :
       {"2147483647 2147483647 0", "5 2147483647 0", "1000000000 1 0", "-5 10 0", "5 -1 0",
        "5 99999999999999 0", "5 0 0", "0 0 0", "2 10 0", "5 30 2147483647"}) {
    std::string bytes = bytes_;
    std::string record = std::string("NCOL ") + counts;
    record.resize(80, ' ');
    bytes.replace(at, 80, record);
    run(bytes);
  }
  for (const std::int32_t location : {0, 1, 20, 21, -1, -2, 0x7fffffff, INT32_MIN}) {
    std::string bytes = bytes_;
    std::memcpy(bytes.data() + 4, &location, 4);
    run(bytes);
  }
}

}  // namespace
}  // namespace qx::test
