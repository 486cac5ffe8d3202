#include "host/kvutils.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <climits>
#include <clocale>

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

TEST(LongToString, WritesSignedDecimal) {
  EXPECT_EQ(KVUtils::LongToString(0), "0");
  EXPECT_EQ(KVUtils::LongToString(160), "160");
  EXPECT_EQ(KVUtils::LongToString(-1), "-1");
  EXPECT_EQ(KVUtils::LongToString(LONG_MAX), "9223372036854775807");
  EXPECT_EQ(KVUtils::LongToString(LONG_MIN), "-9223372036854775808");
}

struct LinesCase {
  const char* text;
  std::vector<std::string> lines;
  std::string rest;
};

class StringLines : public testing::TestWithParam<LinesCase> {};

TEST_P(StringLines, SplitsAtLineEnds) {
  std::string rest;
  EXPECT_EQ(KVUtils::StringLines(GetParam().text, &rest), GetParam().lines);
  EXPECT_EQ(rest, GetParam().rest);
}

INSTANTIATE_TEST_SUITE_P(Texts, StringLines,
                         testing::Values(LinesCase{"", {}, ""},                            //
                                         LinesCase{"one", {}, "one"},                      //
                                         LinesCase{"one\n", {"one"}, ""},                  //
                                         LinesCase{"one\ntwo", {"one"}, "two"},            //
                                         LinesCase{"one\r\ntwo\r\n", {"one", "two"}, ""},  //
                                         LinesCase{"\n\r\n", {"", ""}, ""},                //
                                         LinesCase{"a\rb\n\rc", {"a\rb"}, "\rc"},          //
                                         LinesCase{"\r", {}, "\r"}));

TEST(StringLines, KeepsRestIfTextEndsWithLineEnd) {
  std::string rest = "before";
  KVUtils::StringLines("one\n", &rest);
  EXPECT_EQ(rest, "before");
}

struct ListCase {
  std::string text;
  std::list<std::string> elements;
};

class DecodeStringList : public testing::TestWithParam<ListCase> {};

TEST_P(DecodeStringList, DecodesElementsInOrder) {
  std::list<std::string> elements;
  EXPECT_TRUE(KVUtils::DecodeStringList(GetParam().text, &elements, ','));
  EXPECT_EQ(elements, GetParam().elements);
}

INSTANTIATE_TEST_SUITE_P(Texts, DecodeStringList,
                         testing::Values(ListCase{"", {}},                     //
                                         ListCase{"a", {"a"}},                 //
                                         ListCase{"a,b", {"a", "b"}},          //
                                         ListCase{"a,,b", {"a", "", "b"}},     //
                                         ListCase{",", {"", ""}},              //
                                         ListCase{"a,", {"a", ""}},            //
                                         ListCase{" a , b ", {" a ", " b "}},  //
                                         ListCase{"a\\,b", {"a,b"}},           //
                                         ListCase{"a\\\\,b", {"a\\", "b"}},    //
                                         ListCase{"a\\|b\\n", {"a\\|b\\n"}},   //
                                         ListCase{"a\\\\\\,b", {"a\\,b"}},     //
                                         ListCase{std::string("a\0b,c", 5),    //
                                                  {std::string("a\0b", 3), "c"}}));

TEST(DecodeStringList, RefusesTrailingBackslash) {
  for (const char* text : {"\\", "a,b\\", "a\\\\\\"}) {
    std::list<std::string> elements = {"before"};
    EXPECT_FALSE(KVUtils::DecodeStringList(text, &elements, ',')) << text;
    EXPECT_THAT(elements, ElementsAre("before"));
  }
}

TEST(DecodeStringList, AppendsToList) {
  std::list<std::string> elements = {"before"};
  EXPECT_TRUE(KVUtils::DecodeStringList("a|b", &elements, '|'));
  EXPECT_THAT(elements, ElementsAre("before", "a", "b"));
}

TEST(DecodeStringList, DecodesNestedLists) {
  std::list<std::string> fields;
  ASSERT_TRUE(KVUtils::DecodeStringList("x|o=Smith\\, Jones,cn=a\\|b|0", &fields, '|'));
  ASSERT_THAT(fields, ElementsAre("x", "o=Smith\\, Jones,cn=a|b", "0"));
  std::list<std::string> elements;
  ASSERT_TRUE(KVUtils::DecodeStringList(*std::next(fields.begin()), &elements, ','));
  EXPECT_THAT(elements, ElementsAre("o=Smith, Jones", "cn=a|b"));
}

TEST(Strip, RemovesCharactersFromBothEnds) {
  const std::string blanks = " \f\n\r\t\v";
  EXPECT_EQ(KVUtils::Strip("Example Ltd       ", blanks), "Example Ltd");
  EXPECT_EQ(KVUtils::Strip("\v\t\r\n\f a b\f", blanks), "a b");
  EXPECT_EQ(KVUtils::Strip("ab", blanks), "ab");
  EXPECT_EQ(KVUtils::Strip("", blanks), "");
  EXPECT_EQ(KVUtils::Strip(" a ", ""), " a ");
}

TEST(Strip, BlanksBecomeEmpty) {
  EXPECT_EQ(KVUtils::Strip(std::string(32, ' '), " \f\n\r\t\v"), "");
}

TEST(Transcode, ConvertsFromFirstEncodingToSecond) {
  EXPECT_EQ(KVUtils::Transcode("UTF-8", "ISO-8859-1", "M\xc3\xbcller"), "M\xfcller");
  EXPECT_EQ(KVUtils::Transcode("ISO-8859-1", "UTF-8", "M\xfcller"), "M\xc3\xbcller");
}

TEST(Transcode, KeepsTextBetweenEqualEncodings) {
  EXPECT_EQ(KVUtils::Transcode("UTF-8", "UTF-8", "M\xc3\xbcller"), "M\xc3\xbcller");
  EXPECT_EQ(KVUtils::Transcode("UTF-8", "UTF-8", "M\xfcller"), "M\xfcller");
  // iconv() would add a byte order mark.
  EXPECT_EQ(KVUtils::Transcode("UTF-16", "utf-16", std::string("a\0b\0", 4)),
            std::string("a\0b\0", 4));
}

TEST(Transcode, KeepsTextThatCannotBeConverted) {
  EXPECT_EQ(KVUtils::Transcode("UTF-8", "US-ASCII", "M\xc3\xbcller"), "M\xc3\xbcller");
  EXPECT_EQ(KVUtils::Transcode("UTF-8", "ISO-8859-1", "ok \xff\xfe"), "ok \xff\xfe");
  EXPECT_EQ(KVUtils::Transcode("UTF-8", "ISO-8859-1", "cut \xc3"), "cut \xc3");
  // Approximations ("M?ller", "Muller") are not accepted; the text may be a file name.
  EXPECT_EQ(KVUtils::Transcode("UTF-8", "US-ASCII//TRANSLIT", "M\xc3\xbcller"), "M\xc3\xbcller");
}

TEST(Transcode, KeepsTextIfEncodingIsUnknown) {
  EXPECT_EQ(KVUtils::Transcode("UTF-8", "no-such-encoding", "text"), "text");
}

TEST(Transcode, EmptyNameMeansEncodingOfLocale) {
  ASSERT_NE(std::setlocale(LC_ALL, "C.UTF-8"), nullptr);
  EXPECT_EQ(KVUtils::Transcode("ISO-8859-1", "", "M\xfcller"), "M\xc3\xbcller");
  ASSERT_NE(std::setlocale(LC_ALL, "C"), nullptr);
  EXPECT_EQ(KVUtils::Transcode("UTF-8", "", "M\xc3\xbcller"), "M\xc3\xbcller");
}

TEST(Transcode, EndsStatefulEncoding) {
  EXPECT_EQ(KVUtils::Transcode("UTF-8", "ISO-2022-JP", "\xe6\x97\xa5"), "\x1b$B\x46\x7c\x1b(B");
}

TEST(Transcode, AcceptsTextOfAnyLength) {
  const std::string text(10000, 'x');
  EXPECT_EQ(KVUtils::Transcode("UTF-8", "UTF-16LE", text).size(), 20000u);
  EXPECT_EQ(KVUtils::Transcode("UTF-8", "UTF-16LE", ""), "");
}

}  // namespace
