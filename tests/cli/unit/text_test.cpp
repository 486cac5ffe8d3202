#include "cli/terminal/text.h"

#include <gtest/gtest.h>

namespace cardcert::cli {
namespace {

struct Escape {
  const char* what;
  std::string text;
  std::string escaped;
};

class EscapeTest : public testing::TestWithParam<Escape> {};

TEST_P(EscapeTest, EscapesUnsafeCharacters) {
  EXPECT_EQ(EscapeForTerminal(GetParam().text), GetParam().escaped);
}

INSTANTIATE_TEST_SUITE_P(
    Text, EscapeTest,
    testing::Values(
        Escape{"Ascii", "Jane Doe, Ltd.", "Jane Doe, Ltd."},
        Escape{"Letters", "Jürgen 山田 🙂", "Jürgen 山田 🙂"},
        Escape{"CombiningMark", "e\u0301", "e\u0301"},
        Escape{"LineBreaks", "a\nb\r\nc\td", "a\\x0ab\\x0d\\x0ac\\x09d"},
        Escape{"EscapeSequence", "\033[2J", "\\x1b[2J"},
        Escape{"Nul", std::string("a\0b", 3), "a\\x00b"}, Escape{"Delete", "a\177", "a\\x7f"},
        Escape{"C1Control", "\u009b2J", "\\u{9b}2J"},
        Escape{"C1ControlAsByte",
               "\x9b"
               "2J",
               "\\x9b2J"},
        Escape{"RightToLeftOverride", "a\u202etxt.exe", "a\\u{202e}txt.exe"},
        Escape{"Isolate", "\u2066x\u2069", "\\u{2066}x\\u{2069}"},
        Escape{"ZeroWidthSpace", "a\u200bb", "a\\u{200b}b"},
        Escape{"LineSeparator", "a\u2028b", "a\\u{2028}b"},
        Escape{"ByteOrderMark", "\ufeff", "\\u{feff}"}, Escape{"Tag", "\U000e0041", "\\u{e0041}"},
        Escape{"NotUtf8", "\xff\xfe", "\\xff\\xfe"}, Escape{"Latin1", "J\xfcrgen", "J\\xfcrgen"},
        Escape{"Overlong", "\xc0\xaf", "\\xc0\\xaf"},
        Escape{"Surrogate", "\xed\xa0\x80", "\\xed\\xa0\\x80"},
        Escape{"CutOff", "a\xe5\xb1", "a\\xe5\\xb1"}),
    [](const auto& test) { return test.param.what; });

TEST(TextTest, CollapsesBlanks) {
  EXPECT_EQ(WithSingleBlanks("a b  c   d"), "a b c d");
  EXPECT_EQ(WithSingleBlanks("  a  "), " a ");
  EXPECT_EQ(WithSingleBlanks("山\u3000\u2003 田\u00a0x\u2800\u3164y"), "山 田 x y");
  EXPECT_EQ(WithSingleBlanks("Jürgen"), "Jürgen");
}

TEST(TextTest, CountsDisplayColumns) {
  EXPECT_EQ(DisplayWidth("Jürgen"), 6U);
  EXPECT_EQ(DisplayWidth("山田"), 4U);
  EXPECT_EQ(DisplayWidth("e\u0301"), 1U);
  EXPECT_EQ(DisplayWidth(""), 0U);
}

TEST(TextTest, TruncatesAtACharacterWithAnEllipsis) {
  EXPECT_EQ(CutToWidth("abcdef", 6), "abcdef");
  EXPECT_EQ(CutToWidth("abcdefg", 6), "abcde…");
  EXPECT_EQ(CutToWidth("山田山田", 6), "山田…");
  EXPECT_EQ(DisplayWidth(CutToWidth("山田山田", 6)), 5U);
}

TEST(TextTest, WritesHexadecimal) {
  const unsigned char bytes[] = {0x00, 0xab, 0x7f};
  EXPECT_EQ(Hex(bytes, sizeof bytes), "00ab7f");
  EXPECT_EQ(Hex(bytes, 0), "");
}

TEST(QuotedLineTest, CannotBeEndedByTheText) {
  EXPECT_EQ(QuotedLine("Anna Albers"), "'Anna Albers'");
  EXPECT_EQ(QuotedLine("x'. PIN: "), "'x\\'. PIN: '");
  EXPECT_EQ(QuotedLine("x\\'y"), "'x\\\\\\'y'");
  EXPECT_EQ(QuotedLine("a\n\rb     c"), "'a\\x0a\\x0db c'");
}

TEST(QuotedLineTest, CutsLongText) {
  EXPECT_EQ(QuotedLine(std::string(kQuotedColumns, 'x')),
            "'" + std::string(kQuotedColumns, 'x') + "'");
  EXPECT_EQ(QuotedLine(std::string(8000, 'x')),
            "'" + std::string(kQuotedColumns - 1, 'x') + "\u2026'");
}

}  // namespace
}  // namespace cardcert::cli
