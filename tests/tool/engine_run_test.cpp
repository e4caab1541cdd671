// Calls of the engine by the commands, when something is thrown inside.
#include "driver/commands/engine_run.h"

#include "driver/commands/command_error.h"
#include "support/engine.h"

#include <quorix/memory.h>

#include <new>

namespace qx::test {
namespace {

// The engine says something each time.
Status speak() {
  EXPECT_EQ(xmalloc(0, "spoken"), nullptr);
  return ok;
}
// What `work` leaves on standard output, by the engine or by the command.
template <class Work>
std::string printed_by(Work work) {
  ::testing::internal::CaptureStdout();
  work();
  return ::testing::internal::GetCapturedStdout();
}

constexpr auto spoken = "The requested memory size (= 0) for spoken is < 1 \n";

TEST(EngineCall, whatIsThrownInsideLeavesTheEngineUsable) {
  qx::Engine engine(false);
  EXPECT_THROW(engine.call([]() -> Status { throw std::bad_alloc(); }), std::bad_alloc);
  EXPECT_EQ(printed_by([] { EXPECT_EQ(speak(), ok); }), spoken);
  EXPECT_EQ(engine.call(speak), spoken);
}

TEST(EngineCall, aCallInsideACallKeepsToItself) {
  qx::Engine engine(false);
  std::string inner;
  const std::string outer = engine.call([&] {
    EXPECT_THROW(engine.call([]() -> Status { throw CommandError(2, "inside"); }), CommandError);
    inner = engine.call(speak);
    return speak();
  });
  EXPECT_EQ(inner, spoken);
  EXPECT_EQ(outer, spoken);
}

TEST(EngineCall, aReportBeforeTheThrowIsTheCause) {
  qx::Engine engine(false);
  const std::string output = printed_by([&] {
    try {
      engine.call([]() -> Status {
        EXPECT_EQ(xfree(reinterpret_cast<void*>(64)), failed);
        throw std::bad_alloc();
      });
      ADD_FAILURE() << "nothing was thrown";
    } catch (const CommandError& error) {
      EXPECT_EQ(error.status(), 1);
    }
  });
  EXPECT_NE(output.find("Try to free invalid pointer"), std::string::npos) << output;
}

}  // namespace
}  // namespace qx::test
