// The program in locales with another encoding or decimal separator.
#include <unistd.h>

#include "cli/cardcert_fixture.h"

namespace {

using testing::HasSubstr;

class LocaleTest : public CardcertTest {
 protected:
  // Makes a locale from a definition of one category, and uses it for that category.
  void UseLocale(const std::string& category, const std::string& definition,
                 const std::string& charmap) {
    const std::string input =
        Write("input", category + "\n" + definition + "\nEND " + category + "\n");
    RunProgram({"localedef", "--force", "-f", charmap, "-i", input, File("made")});
    environment_.erase("LC_ALL");
    environment_["LOCPATH"] = File(".");
    environment_[category] = "made";
    // In Debian 12, setlocale() leaks memory when it sets one category from LOCPATH.
    environment_["ASAN_OPTIONS"] = "detect_leaks=0";
  }
};

TEST_F(LocaleTest, ReadsADecimalPointInALocaleWithCommas) {
  UseLocale("LC_NUMERIC", "decimal_point \",\"\nthousands_sep \"\"\ngrouping -1", "UTF-8");
  ASSERT_EQ(RunProgram({"/usr/bin/printf", "%.1f", "1"}, environment_).out, "1,0");
  const Finished watch = Cardcert({"watch", "--count", "1", "--interval", "0.5"});
  EXPECT_EQ(watch.status, 0) << watch.err;
}

class Latin1Test : public LocaleTest {
 protected:
  void SetUp() override {
    LocaleTest::SetUp();
    UseLocale("LC_CTYPE", "copy \"POSIX\"", "ISO-8859-1");
    ASSERT_EQ(RunProgram({"locale", "charmap"}, environment_).out, "ISO-8859-1\n");
  }
};

TEST_F(Latin1Test, ConvertsNamesAndFilters) {
  EXPECT_EQ(Cardcert({"list", "--filter", "J\xfcrgen"}).err,
            Error("invalid --filter 'Jürgen': Smartcard filter does not have 3 fields") +
                Hint("cardcert list --help describes the form of --filter"));
  EXPECT_EQ(Cardcert({"list", "--name", "J\xfcrgen"}).err,
            Error("invalid --name 'Jürgen': Malformed token \"Jürgen\"") +
                Hint("cardcert list --help describes the form of --name"));
}

TEST_F(Latin1Test, LoadsAProviderWithANonAsciiPath) {
  const std::string path = File("J\xfcrgen.so");
  ASSERT_EQ(symlink(SOFTHSM2_LIBRARY, path.c_str()), 0);
  const Finished run = CardcertWithoutModule({"list", "--json", "-m", path});
  EXPECT_EQ(run.status, 0) << run.err;
  EXPECT_EQ(nlohmann::json::parse(run.out)[0]["module"], File("Jürgen.so"));
}

}  // namespace
