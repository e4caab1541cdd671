#include "core/command.h"
#include "support/engine.h"

#include <quorix/parser.h>

#include <cstdio>
#include <cstring>
#include <vector>

namespace qx::test {
namespace {

class Parser : public Engine {
 protected:
  // Loads lines as a front end does, in slots of 1024 bytes.
  static void load(const std::vector<std::string>& lines, int start = 0) {
    std::vector<char> slots(lines.size() * 1024, '\0');
    std::vector<std::int32_t> lengths;
    for (std::size_t i = 0; i < lines.size(); ++i) {
      std::memcpy(slots.data() + i * 1024, lines[i].data(), lines[i].size());
      lengths.push_back(static_cast<std::int32_t>(lines[i].size()));
    }
    ASSERT_EQ(qx_set_parser_from_text(static_cast<std::int32_t>(lines.size()), slots.data(),
                                      lengths.data(), start),
              ok);
  }
  static std::string command() {
    char word[5];
    EXPECT_EQ(qx_get_quorix_cmd_word(word), ok);
    return word;
  }
  static std::string rest() {
    const char* text = nullptr;
    EXPECT_NE(take_rest(text), key_died);
    return text;
  }
};

TEST_F(Parser, assemblesCommandsFromLines) {
  load({"  cell 10\t20 30 90 90 90 ! comment\n", "", "# all comment", "read refl -", "-", "  mtz &",
        "", "file x \r\n", "xendless"},
       100);
  EXPECT_EQ(command(), "CELL");
  EXPECT_EQ(rest(), "10 20 30 90 90 90");
  EXPECT_EQ(command(), "READ");
  std::int32_t index = 0;
  EXPECT_EQ(qx_get_quorix_cmd_line_index(&index), ok);
  EXPECT_EQ(index, 103);
  EXPECT_EQ(rest(), "refl mtz file x");
  EXPECT_EQ(command(), "XEND");
  EXPECT_EQ(command(), "");
  EXPECT_EQ(command(), "");
}

TEST_F(Parser, commentsEndALineAlsoInsideQuotes) {
  load({"read refl mtz file \"a#b.mtz\""});
  EXPECT_EQ(command(), "READ");
  EXPECT_EQ(rest(), "refl mtz file \"a");
}

TEST_F(Parser, warnsOfWhatACommandLeaves) {
  load({"one two  three", "four"});
  EXPECT_EQ(command(), "ONE");
  const std::string output = captured([] { EXPECT_EQ(command(), "FOUR"); });
  EXPECT_EQ(output, "Warning: extraneous input discarded: \" two  three\" from line 1\n");
}

TEST_F(Parser, keysMatchByPrefixAndTakeTheirValues) {
  load({"param FOMWEIGHT 3 file \"a name.mtz\" coid A=b C = d"});
  EXPECT_EQ(command(), "PARA");
  double value = 0;
  EXPECT_EQ(qx_get_quorix_key_double_value("fom", &value), found);
  EXPECT_EQ(value, 3.0);
  EXPECT_EQ(qx_get_quorix_key_double_value("fom", &value), absent);
  const char* text = nullptr;
  EXPECT_EQ(take_value("FILE", text), found);
  EXPECT_STREQ(text, "a name.mtz");
  EXPECT_EQ(take_end("coid", text), found);
  EXPECT_STREQ(text, "A=b C = d");
  EXPECT_EQ(rest(), "\" ") << "the closing quote stays where the key was";
}

TEST_F(Parser, anEqualsSignMayStandBetweenKeyAndValue) {
  for (const char* line :
       {"param percent 10 left", "param percent=10 left", "param percent = 10 left",
        "param percent= 10 left", "param percent =10 left", "param percentage=10 left"}) {
    load({line});
    EXPECT_EQ(command(), "PARA");
    double value = 0;
    EXPECT_EQ(take_double("percent", value), found) << line;
    EXPECT_EQ(value, 10.0) << line;
    EXPECT_EQ(rest(), "left") << line;
  }
  const std::pair<const char*, const char*> names[] = {
      {"read file=x.mtz mtz", "x.mtz"},     {"read file = x.mtz mtz", "x.mtz"},
      {"read file=\"a b=c\" mtz", "a b=c"}, {"read file = \"a b\" mtz", "a b"},
      {"read filename=a=b mtz", "a=b"},     {"read file \"=a\" mtz", "=a"}};
  for (const auto& [line, name] : names) {
    load({line});
    EXPECT_EQ(command(), "READ");
    const char* text = nullptr;
    EXPECT_EQ(take_value("file", text), found);
    EXPECT_STREQ(text, name) << line;
    EXPECT_NE(rest().find("mtz"), std::string::npos);
  }
  for (const char* line : {"read coid A=b C = d", "read coid=A=b C = d", "read coid = A=b C = d"}) {
    load({line});
    EXPECT_EQ(command(), "READ");
    const char* text = nullptr;
    EXPECT_EQ(take_end("coid", text), found);
    EXPECT_STREQ(text, "A=b C = d") << line;
  }
}

// A text whose meaning is old keeps it, and says how the other is written.
TEST_F(Parser, warnsOfAnEqualsSignThatIsPartOfAWord) {
  load({"", "reso=2 50", "read file =x.mtz"}, 1);
  EXPECT_EQ(captured([] { EXPECT_EQ(command(), "RESO"); }),
            "WARNING: \"=2\" of line 2 is not read: leave a blank before the \"=\" \n");
  EXPECT_EQ(rest(), "50");
  EXPECT_EQ(command(), "READ");
  const char* text = nullptr;
  const std::string output = captured([&] { EXPECT_EQ(take_value("file", text), found); });
  EXPECT_STREQ(text, "=x.mtz");
  EXPECT_EQ(output.rfind("WARNING: the value \"=x.mtz\" of file begins with \"=\"", 0), 0U);
}

TEST_F(Parser, integersThatDoNotFitAreReported) {
  std::int32_t value = 0;
  for (const char* number : {"2147483648", "-2147483649", "99999999999999999999"}) {
    ASSERT_EQ(qx_create_quorix(), ok);
    load({std::string("param seed ") + number});
    EXPECT_EQ(command(), "PARA");
    EXPECT_EQ(captured([&] { EXPECT_EQ(take_int("seed", value), key_died); }),
              "\nqx_get_quorix_cmd_word():\nFailed to convert int value from string " +
                  std::string(number) + " of key seed\n");
  }
  EXPECT_EQ(qx_get_key_int_value("nx=4294967306", "nx", &value), 0);
  EXPECT_EQ(qx_get_key_int_value("nx=2147483647", "nx", &value), 1);
}

TEST_F(Parser, aKeyWithoutAValueOnlyWarns) {
  load({"param scale"});
  EXPECT_EQ(command(), "PARA");
  const std::string output = captured([] {
    const char* text = nullptr;
    EXPECT_EQ(take_value("scale", text), absent);
    EXPECT_STREQ(text, "");
  });
  EXPECT_EQ(output, "qx_get_key_value():\nWarning: key scale defined with no value\n");
}

TEST_F(Parser, unreadableValuesAreFatal) {
  struct Case {
    std::function<int()> read;
    const char* report;
  };
  std::int32_t i = 0;
  double d = 0;
  float f = 0;
  char c = 0;
  char word[64];
  const Case cases[] = {
      {[&] { return qx_get_quorix_key_int_value("key", &i); },
       "\nqx_get_quorix_cmd_word():\nFailed to convert int value from string xy of key key\n"},
      {[&] { return qx_get_quorix_key_double_value("key", &d); },
       "\nqx_get_quorix_cmd_word():\n"
       "Failed to convert double value from string \"xy\" of key \"key\"\n"},
      {[&] { return qx_get_quorix_key_float_value("key", &f); },
       "\nqx_get_quorix_cmd_word():\n"
       "Failed to convert float value from string \"xy\" of key \"key\"\n"},
      {[&] { return qx_get_quorix_key_char_value("key", &c); },
       "\nqx_get_quorix_key_char_value():\nstring \"xy\" has more than one char for key key\n"},
      {[&] { return qx_get_quorix_pair_string_int(word, &i) + 2; },
       "\nqx_get_quorix_pair_string_int():\nFailed to get pair (string, int) \n"},
      {[&] { return qx_get_quorix_pair_string_double(word, &d) + 2; },
       "\nqx_get_quorix_pair_string_double():\nFailed to get pair (string, double) \n"},
  };
  for (const Case& row : cases) {
    ASSERT_EQ(qx_create_quorix(), ok);
    load({"param key xy"});
    EXPECT_EQ(command(), "PARA");
    EXPECT_EQ(captured([&] { EXPECT_EQ(row.read(), 2); }), row.report);
    EXPECT_EQ(qx_exist_quorix(), 0);
  }
}

TEST_F(Parser, pairsOfNumbersCarrySinglePrecision) {
  load({"atmf C 5 N 0.1"});
  EXPECT_EQ(command(), "ATMF");
  char word[32];
  std::int32_t i = 0;
  double d = 0;
  EXPECT_EQ(qx_get_quorix_pair_string_int(word, &i), 1);
  EXPECT_STREQ(word, "C");
  EXPECT_EQ(i, 5);
  EXPECT_EQ(qx_get_quorix_pair_string_double(word, &d), 1);
  EXPECT_EQ(d, static_cast<double>(0.1F));
  EXPECT_EQ(qx_get_quorix_pair_string_int(word, &i), 0);
}

TEST_F(Parser, joinedLinesMayBeOfAnyLength) {
  std::vector<std::string> lines(200, std::string(900, 'x') + " &");
  lines.emplace_back("last");
  load(lines);
  EXPECT_EQ(command(), "XXXX");
  EXPECT_GE(qx_get_quorix_cmdline_size(), 199 * 901U);
  const std::string text = rest();
  EXPECT_EQ(text.size(), 199 * 901U + 4);
  EXPECT_EQ(text.substr(text.size() - 5), " last");
}

TEST_F(Parser, readsAndEchoesAStream) {
  std::FILE* stream = std::tmpfile();
  const std::string longer(3000, 'y');
  std::fputs(("\n  \nxcry\n\n\tcell 1 2 3\nname " + longer + " &\n end\nxend\n\n \n").c_str(),
             stream);
  const std::string output = captured([&] { EXPECT_EQ(qx_set_parser_from_stream(stream), ok); });
  std::fclose(stream);
  EXPECT_EQ(output.rfind("\nxcry\n\n\tcell 1 2 3\nname yyy", 0), 0U) << output.substr(0, 60);
  EXPECT_EQ(output.substr(output.size() - 8), "\nxend\n\n\n");
  EXPECT_EQ(command(), "XCRY");
  EXPECT_EQ(command(), "CELL");
}

TEST_F(Parser, anEmptyStreamIsNotFatal) {
  std::FILE* stream = std::tmpfile();
  std::fputs("  \n\n", stream);
  EXPECT_EQ(captured([&] { EXPECT_EQ(qx_set_parser_from_stream(stream), failed); }),
            "\nqx_set_parser_from_stream():\nThe input file is empty \n");
  EXPECT_EQ(qx_exist_quorix(), 1);
  std::fclose(stream);
}

TEST_F(Parser, withoutTextThereAreNoCommands) {
  EXPECT_EQ(command(), "");
  double value = 0;
  EXPECT_EQ(qx_get_quorix_key_double_value("x", &value), absent);
  EXPECT_EQ(qx_does_quorix_key_exist("x"), 0);
}

TEST(KeyReaders, wantWholeWords) {
  double d = -1;
  std::int32_t i = -1;
  char text[32];
  float a = 0;
  float b = 0;
  EXPECT_EQ(qx_get_key_int_value("nx=48 ny = 50 NZ 54", "ny", &i), 1);
  EXPECT_EQ(i, 50);
  EXPECT_EQ(qx_get_key_int_value("nx=48 ny = 50 NZ 54", "nz", &i), 1);
  EXPECT_EQ(i, 54);
  EXPECT_EQ(qx_get_key_int_value("nxx=48", "nx", &i), 0);
  EXPECT_EQ(i, 0);
  EXPECT_EQ(qx_get_key_double_value("sx", "sx", &d), 0);
  EXPECT_EQ(qx_get_key_string_value("a b=c=d e", "b", text), 1);
  EXPECT_STREQ(text, "c=d");
  EXPECT_EQ(qx_get_key_two_float_value("reso 2.5 40", "reso", &a, &b), 1);
  EXPECT_EQ(b, 40.0F);
  EXPECT_EQ(qx_get_key_two_float_value("reso 2.5", "reso", &a, &b), 0);
}

TEST(Text, utilitiesWorkInPlace) {
  char text[64] = "  caf\xc3\xa9\x07 \"a b\",c=d  ";
  qx_replace_nonprint_with_blank(text);
  qx_chop_left_right_whitespaces(text);
  EXPECT_STREQ(text, "caf\xc3\xa9  \"a b\",c=d");
  char word[64];
  qx_get_and_chop_first_word(text, word);
  EXPECT_STREQ(word, "caf\xc3\xa9");
  qx_chop_double_quote(text);
  qx_replace_comma_with_blank(text);
  EXPECT_STREQ(text, "  a b c=d");
  qx_chop_first_word(text);
  qx_get_and_chop_rightside_word(text, word);
  qx_get_and_chop_rightside_word(text, word);
  EXPECT_STREQ(word, "c");
  EXPECT_STREQ(text, "=d");
  EXPECT_EQ(qx_strncmp_nocase("ab", "AB", 5), 0);
  EXPECT_EQ(qx_strncmp_nocase("abc", "abd", 2), 0);
  EXPECT_EQ(qx_strncmp_nocase("a", "b", 0), 0);
  EXPECT_EQ(qx_strcmp_nocase("abc", "ab"), 1);
  EXPECT_EQ(qx_is_string_start_with_this_token("ab", "abc"), 0);
  EXPECT_EQ(qx_is_string_start_with_this_token("ab", ""), 1);
  qx_chop_right_whitespaces(nullptr);
  qx_chop_newline_char(nullptr);
}

}  // namespace
}  // namespace qx::test
