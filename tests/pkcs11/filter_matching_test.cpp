// MatchesFilter: which certificates match, and which fields are read.
#include "pkcs11/module_test.h"

namespace {

struct MatchCase {
  std::vector<std::string> filters;
  std::string cert;
  bool matches;
  std::string log = {};
};

class FilterMatching : public ModuleTest, public testing::WithParamInterface<MatchCase> {};

TEST_P(FilterMatching, ReturnsWhetherCertificateMatches) {
  for (const std::string& filter : GetParam().filters)
    ASSERT_TRUE(module.AddFilter(filter));
  const Parsed cert(GetParam().cert);
  EXPECT_EQ(module.MatchesFilter(cert), GetParam().matches);
  EXPECT_TRACE(GetParam().log);
}

const char kUnreadable[] = "log 3: Unable to read issuer attribute \"commonName\" from certificate";

INSTANTIATE_TEST_SUITE_P(NoFilters, FilterMatching,
                         testing::Values(MatchCase{{}, "A", true},
                                         MatchCase{{}, "A;usage=0;fail.issuer_attr=-1", true},
                                         MatchCase{{}, "A;fail.key_usage=-1", true}));

INSTANTIATE_TEST_SUITE_P(
    Issuer, FilterMatching,
    testing::Values(
        MatchCase{{"||0"}, "A;usage=0", true}, MatchCase{{"|commonName=Example CA|0"}, "A", true},
        MatchCase{{"|commonName=Example CA|0"}, "A;issuer.commonName=example ca", false},
        MatchCase{{"|commonName=Example CA|0"}, "A;issuer.commonName=Example CA ", false},
        MatchCase{{"|commonName=Example CA|0"}, "A;issuer.commonName=Example C", false},
        MatchCase{{"|commonName=|0"}, "A;issuer.commonName=", true},
        MatchCase{{"|=x|0"}, "A", false},
        // Every attribute must match.
        MatchCase{{"|commonName=Example CA,c=X|0"}, "A;issuer.c=X", true},
        MatchCase{{"|commonName=Example CA,c=X|0"}, "A;issuer.c=Y", false},
        MatchCase{{"|commonName=Other CA,c=X|0"}, "A;issuer.c=X", false},
        // An absent attribute is not reported, an unreadable one is.
        MatchCase{{"|c=X|0"}, "A", false},
        MatchCase{{"|commonName=Example CA|0"}, "A;fail.issuer_attr=-2", false},
        MatchCase{{"|commonName=Example CA|0"}, "A;fail.issuer_attr=-1", false, kUnreadable},
        MatchCase{{"|commonName=Example CA|0"}, "A;fail.issuer_attr=2", false, kUnreadable},
        // Neither matches an empty value, or what the call wrote before it failed.
        MatchCase{{"|c=|0"}, "A", false},
        MatchCase{{"|commonName=|0"}, "A;fail.issuer_attr=-2", false},
        MatchCase{{"|commonName=|0"}, "A;fail.issuer_attr=-1", false, kUnreadable},
        MatchCase{{"|commonName=Example CA|0"},
                  "A;fail.issuer_attr=-2;partial.issuer_attr=Example CA",
                  false},
        MatchCase{{"|commonName=Example CA|0"},
                  "A;fail.issuer_attr=-1;partial.issuer_attr=Example CA",
                  false,
                  kUnreadable}));

INSTANTIATE_TEST_SUITE_P(
    KeyUsage, FilterMatching,
    testing::Values(
        MatchCase{{"||128"}, "A;usage=128", true}, MatchCase{{"||128"}, "A;usage=127", false},
        MatchCase{{"||128"}, "A;usage=255", true}, MatchCase{{"||129"}, "A;usage=129", true},
        MatchCase{{"||129"}, "A;usage=128", false}, MatchCase{{"||129"}, "A;usage=1", false},
        MatchCase{{"||0"}, "A;usage=0", true},
        // Without the extension every usage is allowed, even all of them together.
        MatchCase{{"||128"}, "A;usage=absent", true}, MatchCase{{"||-1"}, "A;usage=absent", true},
        MatchCase{{"||-1"}, "A;usage=32767", false},
        // A usage that cannot be read allows none.
        MatchCase{{"||128"}, "A;fail.key_usage=-1", false},
        MatchCase{{"||0"}, "A;fail.key_usage=-1", true},
        // The stored value counts, not the result of the call.
        MatchCase{{"||128"}, "A;usage=absent;claim.usage=0", false},
        MatchCase{{"||128"}, "A;fail.key_usage=-1;claim.usage=128", true},
        // The issuer must match, too.
        MatchCase{{"|commonName=Example CA|128"}, "A;usage=128", true},
        MatchCase{{"|commonName=Example CA|128"}, "A;usage=1", false},
        MatchCase{{"|commonName=Other CA|128"}, "A;usage=128", false}));

INSTANTIATE_TEST_SUITE_P(
    SeveralFilters, FilterMatching,
    testing::Values(
        MatchCase{{"||1", "||128"}, "A;usage=128", true},
        MatchCase{{"||1", "||2"}, "A;usage=128", false},
        // One filter must match entirely.
        MatchCase{{"|c=X|0", "||128"}, "A;usage=128", true},
        MatchCase{{"|commonName=Other CA|128", "|commonName=Example CA|1"}, "A;usage=128", false},
        MatchCase{{"|commonName=Example CA|0", "||128"},
                  "A;usage=128;fail.issuer_attr=-1",
                  true,
                  kUnreadable},
        MatchCase{{"|commonName=Example CA|0", "|commonName=Example CA|0"},
                  "A;fail.issuer_attr=-1",
                  false,
                  std::string(kUnreadable) + '\n' + kUnreadable}));

class FilterReads : public ModuleTest {
 protected:
  FilterReads() { host.RecordInspection(); }
};

TEST_F(FilterReads, KeyUsageOnceAndFirstEvenWithoutFilters) {
  const Parsed cert("A;usage=1");
  module.MatchesFilter(cert);
  EXPECT_TRACE("cert_key_usage(A) = 0");
}

TEST_F(FilterReads, IssuerAttributesOnlyUntilDecided) {
  for (const char* filter : {"|a=1,b=2,c=3|0", "|a=1|128", "|d=4|0", "|e=5|0"})
    ASSERT_TRUE(module.AddFilter(filter));
  const Parsed cert("A;usage=1;issuer.a=1;issuer.b=no;issuer.c=3;issuer.d=4;issuer.e=5");
  EXPECT_TRUE(module.MatchesFilter(cert));
  EXPECT_TRACE(R"(
    cert_key_usage(A) = 0
    cert_issuer_attr(A, a, size 1024) = 0
    cert_issuer_attr(A, b, size 1024) = 0
    cert_issuer_attr(A, a, size 1024) = 0
    cert_issuer_attr(A, d, size 1024) = 0
  )");
}

TEST_F(FilterReads, NothingAfterAbsentAttribute) {
  ASSERT_TRUE(module.AddFilter("|a=1,b=2|0"));
  const Parsed cert("A;issuer.b=2");
  EXPECT_FALSE(module.MatchesFilter(cert));
  EXPECT_TRACE(R"(
    cert_key_usage(A) = -2
    cert_issuer_attr(A, a, size 1024) = -2
  )");
}

TEST_F(FilterReads, NothingAfterUnreadableAttribute) {
  ASSERT_TRUE(module.AddFilter("|a=1,b=2|0"));
  const Parsed cert("A;issuer.a=1;issuer.b=2;fail.issuer_attr=-1");
  EXPECT_FALSE(module.MatchesFilter(cert));
  EXPECT_TRACE(R"(
    cert_key_usage(A) = -2
    cert_issuer_attr(A, a, size 1024) = -1
    log 3: Unable to read issuer attribute "a" from certificate
  )");
}

}  // namespace
