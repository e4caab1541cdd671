// Coded names: whatever a name holds, it comes out of a line of a section as it went in; lines that
// have worked without them mean what they meant.
#include "core/name_code.h"

#include "core/command.h"
#include "core/load_lines.h"
#include "support/engine.h"

#include <quorix/parser.h>

#include <random>

namespace qx::test {
namespace {

std::string coded(const std::string& name) {
  std::string code(coded_size(name.c_str()), '?');
  code_name(name.c_str(), code.data());
  return code.c_str();
}

class NameCode : public Engine {
 protected:
  // What the key gives of a line, and what stays of it.
  static std::pair<std::string, std::string> taken(const std::string& line) {
    (void)qx_clean_qxparser();
    const char* lines[] = {line.c_str(), "xend"};
    EXPECT_EQ(load_lines(2, lines), ok);
    char word[5];
    EXPECT_EQ(next_command(word), ok);
    const char* text = "";
    const std::string name = take_name("file", text) == found ? text : "";
    const std::string rest = take_rest(text) == found ? text : "";
    return {name, rest};
  }
};

TEST_F(NameCode, carriesAnyBytes) {
  std::mt19937 random(5);
  std::string all;
  for (int byte = 1; byte < 256; ++byte) all += static_cast<char>(byte);
  std::vector<std::string> names = {all,   "a#1.mtz", "!",    "\"",     "\"\"", "a \"\" b",   "%",
                                    "%23", "out-",    "out&", " both ", "file", "coid file x"};
  for (int i = 0; i < 300; ++i) {
    names.emplace_back();
    for (int n = 0; n < 6; ++n) names.back() += "#!\"% -&\t\n=a2\xc3"[random() % 13];
  }
  for (const std::string& name : names) {
    const auto [found_name, rest] = taken("read refl mtz file " + coded(name) + " coid FC=FC");
    EXPECT_EQ(found_name, name) << coded(name);
    EXPECT_EQ(rest, "refl mtz  coid FC=FC") << coded(name);
    EXPECT_EQ(taken("write file " + coded(name)).first, name);
    EXPECT_EQ(taken("write file=" + coded(name)).first, name);
  }
}

TEST_F(NameCode, linesWithoutItMeanWhatTheyMeant) {
  using Pair = std::pair<std::string, std::string>;
  EXPECT_EQ(taken("w file \"a b.mtz\" x"), Pair("a b.mtz", "\" x"));
  EXPECT_EQ(taken("w file \"a%23b\""), Pair("a%23b", "\""));
  EXPECT_EQ(taken("w file a%23b"), Pair("a%23b", ""));
  EXPECT_EQ(taken("w file \"a#b.mtz\""), Pair("a", ""));
  EXPECT_EQ(taken("w file \"\""), Pair("", "\""));
  EXPECT_EQ(taken("w file \"\" x"), Pair("", "\" x"));
  EXPECT_EQ(taken("w file \"\"\"\" x"), Pair("", "\"\"\" x"));
  EXPECT_EQ(taken("w file a\"\"b\"\" x"), Pair("a\"\"b\"\"", "x"));
  // Damaged codes are read as far as they go.
  EXPECT_EQ(taken("w file \"\"a%2"), Pair("a%2", ""));
  EXPECT_EQ(taken("w file \"\"a%zz%00b\"c\"\" x"), Pair("a%zz%00b\"c", "x"));
}

}  // namespace
}  // namespace qx::test
