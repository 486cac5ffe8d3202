// The work to parse a certificate grows linearly with its length, whatever it contains. Work is
// counted, not timed, so that the result does not depend on the machine and its load: the library
// is compiled to report each call of a function, inlined ones included, and linked to the functions
// below that count the octets copied, moved and compared.
#include <gtest/gtest.h>

#include "parsed.h"
#include "support/der_writer.h"

namespace {

unsigned long num_calls = 0;
unsigned long num_octets = 0;

}  // namespace

// GCC manual and Clang documentation, -finstrument-functions.
extern "C" __attribute__((no_instrument_function)) void __cyg_profile_func_enter(void*, void*) {
  ++num_calls;
}
extern "C" __attribute__((no_instrument_function)) void __cyg_profile_func_exit(void*, void*) {}

// ld's manual, --wrap.
extern "C" {

void* __real_memcpy(void* to, const void* from, std::size_t size);
void* __real_memmove(void* to, const void* from, std::size_t size);
int __real_memcmp(const void* a, const void* b, std::size_t size);

void* __wrap_memcpy(void* to, const void* from, std::size_t size) {
  num_octets += size;
  return __real_memcpy(to, from, size);
}
void* __wrap_memmove(void* to, const void* from, std::size_t size) {
  num_octets += size;
  return __real_memmove(to, from, size);
}
int __wrap_memcmp(const void* a, const void* b, std::size_t size) {
  num_octets += size;
  return __real_memcmp(a, b, size);
}

}  // extern "C"

namespace {

std::string Repeated(const std::string& element, int count) {
  std::string elements;
  for (int i = 0; i < count; ++i)
    elements += element;
  return elements;
}

std::string ManyRdns(int count) {
  der::Certificate certificate;
  certificate.subject =
      der::Sequence(Repeated(der::Set(der::Attribute("1.2", der::Utf8(""))), count));
  return certificate.Der();
}

std::string ManyAttributesInOneRdn(int count) {
  der::Certificate certificate;
  certificate.subject =
      der::Sequence(der::Set(Repeated(der::Attribute("1.2", der::Utf8("")), count)));
  return certificate.Der();
}

std::string ManyExtensions(int count) {
  der::Certificate certificate;
  for (int i = 0; i < count; ++i)
    certificate.Add(der::Extension("1.2." + std::to_string(i), ""));
  return certificate.Der();
}

struct Work {
  unsigned long num_calls;
  unsigned long num_octets;  // copied, moved and compared
};

Work WorkToAsk(const std::string& der) {
  num_calls = 0;
  num_octets = 0;
  const Parsed cert(der);
  EXPECT_EQ(cert.code(), 0);
  EXPECT_EQ(cert.SubjectAttr("title").code, -2);
  EXPECT_EQ(cert.SubjectAttr("1.2.3").code, -2);
  EXPECT_EQ(cert.IsCa(), 0);
  // The buffer holds the whole text: when a smaller one is full, the work ends.
  EXPECT_EQ(cert.Subject(std::size_t{1} << 20).code, 0);
  return {num_calls, num_octets};
}

// Ten times the input may take slightly more than ten times the work, because the search for
// duplicates sorts; quadratic work would be a hundred times.
void ExpectLinear(const Work& few, const Work& many) {
  constexpr unsigned long kAtMost = 15;
  EXPECT_LT(many.num_calls, kAtMost * few.num_calls);
  EXPECT_LT(many.num_octets, kAtMost * few.num_octets);
}

TEST(Work, GrowsLinearlyWithRdns) {
  const Work few = WorkToAsk(ManyRdns(10000));
  EXPECT_GT(few.num_calls, 10000u) << "the calls are not counted";
  EXPECT_GT(few.num_octets, 10000u * 20) << "the octets are not counted";
  ExpectLinear(few, WorkToAsk(ManyRdns(100000)));
}

TEST(Work, GrowsLinearlyWithAttributesOfOneRdn) {
  const Work few = WorkToAsk(ManyAttributesInOneRdn(10000));
  EXPECT_GT(few.num_calls, 10000u) << "the calls are not counted";
  EXPECT_GT(few.num_octets, 10000u * 20) << "the octets are not counted";
  ExpectLinear(few, WorkToAsk(ManyAttributesInOneRdn(100000)));
}

TEST(Work, GrowsLinearlyWithExtensions) {
  const Work few = WorkToAsk(ManyExtensions(5000));
  EXPECT_GT(few.num_calls, 5000u) << "the calls are not counted";
  ExpectLinear(few, WorkToAsk(ManyExtensions(50000)));
}

}  // namespace
