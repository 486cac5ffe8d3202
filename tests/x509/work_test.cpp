// The work that a certificate takes grows with its length, whatever it holds. Counted, not timed:
// the library is compiled so that each of its functions, inlined ones included, reports that it is
// entered, which comes out the same on every machine and under every load.
#include <gtest/gtest.h>

#include "der_writer.h"
#include "parsed.h"

namespace {

unsigned long num_calls = 0;

}  // namespace

// GCC manual and Clang documentation, -finstrument-functions.
extern "C" __attribute__((no_instrument_function)) void __cyg_profile_func_enter(void*, void*) {
  ++num_calls;
}
extern "C" __attribute__((no_instrument_function)) void __cyg_profile_func_exit(void*, void*) {}

namespace {

std::string ManyRdns(int count) {
  const std::string rdn = der::Set(der::Attribute("1.2", der::Utf8("")));
  std::string rdns;
  for (int i = 0; i < count; ++i)
    rdns += rdn;
  der::Certificate certificate;
  certificate.subject = der::Sequence(rdns);
  return certificate.Der();
}

std::string ManyExtensions(int count) {
  der::Certificate certificate;
  for (int i = 0; i < count; ++i)
    certificate.Add(der::Extension("1.2." + std::to_string(i), ""));
  return certificate.Der();
}

unsigned long CallsToAsk(const std::string& der) {
  num_calls = 0;
  const Parsed cert(der);
  EXPECT_EQ(cert.code(), 0);
  EXPECT_EQ(cert.SubjectAttr("title").code, -2);
  EXPECT_EQ(cert.SubjectAttr("1.2.3").code, -2);
  EXPECT_EQ(cert.IsCa(), 0);
  cert.Subject();
  return num_calls;
}

// Ten times the input may take a little more than ten times the work (a sorted search for
// duplicates does), and by no means a hundred times.
constexpr unsigned long kAtMost = 15;

TEST(Careless, QuadraticWorkOnManyNames) {
  const unsigned long few = CallsToAsk(ManyRdns(10000));
  EXPECT_GT(few, 10000u) << "the calls are not counted";
  EXPECT_LT(CallsToAsk(ManyRdns(100000)), kAtMost * few);
}

TEST(Careless, QuadraticWorkOnManyExtensions) {
  const unsigned long few = CallsToAsk(ManyExtensions(5000));
  EXPECT_GT(few, 5000u) << "the calls are not counted";
  EXPECT_LT(CallsToAsk(ManyExtensions(50000)), kAtMost * few);
}

}  // namespace
