// AddFilter and ClearFilters: which filter specifications are accepted, and what is logged for the
// others.
#include "pkcs11/module_test.h"

namespace {

using Attributes = std::list<std::pair<std::string, std::string>>;
using testing::IsEmpty;
using testing::SizeIs;

struct Accepted {
  std::string spec;
  std::string name;
  Attributes issuer_attributes;
  int key_usage;
};

class AcceptedFilter : public ModuleTest, public testing::WithParamInterface<Accepted> {};

TEST_P(AcceptedFilter, IsAppendedAndSetsChange) {
  ASSERT_TRUE(module.AddFilter("first||1"));
  module.changed = false;
  EXPECT_TRUE(module.AddFilter(GetParam().spec));
  ASSERT_THAT(module.filters, SizeIs(2));
  EXPECT_EQ(module.filters.front().name, "first");
  EXPECT_EQ(module.filters.back().name, GetParam().name);
  EXPECT_EQ(module.filters.back().issuer_attributes, GetParam().issuer_attributes);
  EXPECT_EQ(module.filters.back().key_usage, GetParam().key_usage);
  EXPECT_TRUE(module.changed);
  EXPECT_TRACE("");
}

INSTANTIATE_TEST_SUITE_P(
    Texts, AcceptedFilter,
    testing::Values(Accepted{"Issuer check|commonName=Example Issuing CA|0",
                             "Issuer check",
                             {{"commonName", "Example Issuing CA"}},
                             0},
                    Accepted{
                        "Signing|commonName=Example Issuing CA,organizationName=Example|128",
                        "Signing",
                        {{"commonName", "Example Issuing CA"}, {"organizationName", "Example"}},
                        128},
                    Accepted{"||", "", {}, 0},  //
                    Accepted{" verbatim ||3", " verbatim ", {}, 3},
                    // The first "=" is the separator; either side may be empty.
                    Accepted{"x|commonName=A=B|0", "x", {{"commonName", "A=B"}}, 0},
                    Accepted{"x|=x|0", "x", {{"", "x"}}, 0},  //
                    Accepted{"x|commonName=|0", "x", {{"commonName", ""}}, 0},
                    Accepted{"x|a=1,a=1|0", "x", {{"a", "1"}, {"a", "1"}}, 0},
                    // The key usage is parsed like atoi().
                    Accepted{"x||abc", "x", {}, 0},      //
                    Accepted{"x|| 12xyz", "x", {}, 12},  //
                    Accepted{"x||-1", "x", {}, -1},      //
                    Accepted{"x||+5", "x", {}, 5},       //
                    Accepted{"x||0x80", "x", {}, 0}));

struct Refused {
  std::string spec;
  std::string message;
};

class RefusedFilter : public ModuleTest, public testing::WithParamInterface<Refused> {};

TEST_P(RefusedFilter, KeepsFiltersAndChangeFlag) {
  ASSERT_TRUE(module.AddFilter("first|commonName=Example CA,c=X|129"));
  for (const bool changed : {false, true}) {
    module.changed = changed;
    EXPECT_FALSE(module.AddFilter(GetParam().spec));
    ASSERT_THAT(module.filters, SizeIs(1));
    const pkcs11_certificate_filter& filter = module.filters.front();
    EXPECT_EQ(filter.name, "first");
    EXPECT_EQ(filter.issuer_attributes, (Attributes{{"commonName", "Example CA"}, {"c", "X"}}));
    EXPECT_EQ(filter.key_usage, 129);
    EXPECT_EQ(module.changed, changed);
    EXPECT_TRACE("log 3: " + GetParam().message);
  }
}

INSTANTIATE_TEST_SUITE_P(
    Texts, RefusedFilter,
    testing::Values(Refused{"x||0\\", "Unable to decode smartcard filter fields"},
                    Refused{"", "Smartcard filter does not have 3 fields"},
                    Refused{"x", "Smartcard filter does not have 3 fields"},
                    Refused{"x|commonName=A", "Smartcard filter does not have 3 fields"},
                    Refused{"x|commonName=A|0|", "Smartcard filter does not have 3 fields"},
                    Refused{"x|commonName=A\\|0",
                            "Unable to decode smartcard filter issuer attributes"},
                    Refused{"x|commonName|0", "Malformed token \"commonName\""},
                    Refused{"x|commonName=A,,b=B|0", "Malformed token \"\""},
                    Refused{"x|commonName=A,|0", "Malformed token \"\""},
                    // Only the first malformed element is reported.
                    Refused{"x|commonName=A,bad,worse|0", "Malformed token \"bad\""}));

using FilterDefinitionTest = ModuleTest;

TEST_F(FilterDefinitionTest, KeepsDuplicateFilters) {
  ASSERT_TRUE(module.AddFilter("x||1"));
  ASSERT_TRUE(module.AddFilter("x||1"));
  EXPECT_THAT(module.filters, SizeIs(2));
}

TEST_F(FilterDefinitionTest, ClearingSetsChangeEvenWithoutFilters) {
  EXPECT_FALSE(module.changed);
  module.ClearFilters();
  EXPECT_TRUE(module.changed);
  EXPECT_THAT(module.filters, IsEmpty());
  EXPECT_TRACE("");
}

TEST_F(FilterDefinitionTest, ClearingLetsEveryCertificateMatch) {
  const Parsed cert("A;usage=0");
  ASSERT_TRUE(module.AddFilter("x||1"));
  EXPECT_FALSE(module.MatchesFilter(cert));
  module.changed = false;
  module.ClearFilters();
  EXPECT_TRUE(module.changed);
  EXPECT_THAT(module.filters, IsEmpty());
  EXPECT_TRUE(module.MatchesFilter(cert));
  EXPECT_TRACE("");
}

}  // namespace
