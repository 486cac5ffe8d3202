// What each query writes into buffers of various sizes, and that it never writes beyond them.
#include <gtest/gtest.h>

#include <vector>

#include "parsed.h"
#include "support/der_writer.h"

namespace {

using der::Certificate;

const std::size_t kBufferSize = 16834;

// A buffer that fails the test if an octet beyond the size is written.
class WatchedBuffer {
 public:
  explicit WatchedBuffer(std::size_t size) : size_(size), octets_(size + 64, kUntouched) {}
  ~WatchedBuffer() {
    for (std::size_t i = size_; i < octets_.size(); ++i)
      EXPECT_EQ(octets_[i], kUntouched) << "written " << i - size_ << " octets beyond " << size_;
  }
  WatchedBuffer(const WatchedBuffer&) = delete;
  WatchedBuffer& operator=(const WatchedBuffer&) = delete;

  char* text() { return reinterpret_cast<char*>(octets_.data()); }
  unsigned char* octets() { return octets_.data(); }
  bool untouched() const {
    return octets_ == std::vector<unsigned char>(octets_.size(), kUntouched);
  }
  unsigned long size() const { return size_; }

 private:
  static constexpr unsigned char kUntouched = 0xa5;
  std::size_t size_;
  std::vector<unsigned char> octets_;
};

using TextQuery = int (*)(const certificate*, char*, unsigned long);

const TextQuery kTextQuerys[] = {cert_subject,
                                 [](const certificate* cert, char* buffer, unsigned long size) {
                                   return cert_subject_attr(cert, "CN", buffer, size);
                                 },
                                 [](const certificate* cert, char* buffer, unsigned long size) {
                                   return cert_issuer_attr(cert, "CN", buffer, size);
                                 }};

void ExpectTextAtEverySize(TextQuery ask, const certificate* cert, const std::string& answer) {
  for (const std::size_t size :
       {std::size_t{0}, std::size_t{1}, std::size_t{2}, answer.size() - 1, answer.size(),
        answer.size() + 1, answer.size() + 2, kBufferSize}) {
    WatchedBuffer buffer(size);
    const int code = ask(cert, buffer.text(), size);
    if (size > answer.size()) {
      EXPECT_EQ(code, 0) << size;
      EXPECT_EQ(buffer.text(), answer) << size;
    } else {
      EXPECT_EQ(code, CodeOf(Reason::kBufferTooSmall)) << size;
      if (size == 0)
        EXPECT_TRUE(buffer.untouched());
      else
        EXPECT_STREQ(buffer.text(), "") << size;
    }
  }
}

TEST(Buffers, TextIsCompleteOrEmpty) {
  for (const std::string& value :
       {std::string("Alice"), std::string("\xc3\xa9\xe2\x82\xac\xf0\x9f\x99\x82"),
        std::string(1023, 'x'), std::string(16830, 'x')}) {
    const Parsed cert(Certificate().Subject({{"CN", value}}).Issuer({{"CN", value}}).Der());
    ASSERT_EQ(cert.code(), 0);
    ExpectTextAtEverySize(kTextQuerys[0], cert.get(), "CN=" + value);
    ExpectTextAtEverySize(kTextQuerys[1], cert.get(), value);
    ExpectTextAtEverySize(kTextQuerys[2], cert.get(), value);
  }
}

TEST(Buffers, LongestSubjectHas16833Octets) {
  const std::string longest(kBufferSize - 1 - 3, 'x');
  EXPECT_EQ(Parsed(Certificate().Subject({{"CN", longest}}).Der()).Subject().text, "CN=" + longest);
  const Parsed longer(Certificate().Subject({{"CN", longest + "x"}}).Der());
  EXPECT_EQ(longer.Subject().code, CodeOf(Reason::kBufferTooSmall));
  EXPECT_EQ(longer.Subject().text, "");
}

TEST(Buffers, SubjectOfSeveralAttributesIsCompleteOrEmpty) {
  const Parsed cert(Certificate().Subject({{"C", "XX"}, {"O", "a,b"}, {"CN", " c"}}).Der());
  ExpectTextAtEverySize(cert_subject, cert.get(), "CN=\\ c,O=a\\,b,C=XX");
  for (std::size_t size = 0; size < 30; ++size) {
    WatchedBuffer buffer(size);
    EXPECT_EQ(cert_subject(cert.get(), buffer.text(), size) == 0, size > 18) << size;
  }
}

TEST(Buffers, EmptyTextFitsOneOctet) {
  const Parsed cert(Certificate().Subject({{"CN", ""}}).Der());
  EXPECT_EQ(cert.SubjectAttr("CN", 1).code, 0);
  EXPECT_EQ(cert.SubjectAttr("CN", 0).code, CodeOf(Reason::kBufferTooSmall));
}

TEST(Buffers, SerialIsCompleteOrBufferUntouched) {
  for (const std::size_t serial_size : {std::size_t{1}, std::size_t{20}, kBufferSize}) {
    const std::string serial(serial_size, 's');
    const Parsed cert(Certificate().Serial(serial).Der());
    for (const std::size_t size :
         {std::size_t{0}, std::size_t{1}, serial_size - 1, serial_size, kBufferSize}) {
      WatchedBuffer buffer(size);
      unsigned long length = size;
      const int code = cert_serial(cert.get(), buffer.octets(), &length);
      if (size >= serial_size) {
        EXPECT_EQ(code, 0);
        EXPECT_EQ(std::string(buffer.text(), length), serial);
      } else {
        EXPECT_EQ(code, CodeOf(Reason::kBufferTooSmall));
        EXPECT_EQ(length, size);
        EXPECT_TRUE(buffer.untouched());
      }
    }
  }
}

TEST(Buffers, RefusesSerialLongerThanBuffer) {
  const Parsed cert(Certificate().Serial(std::string(kBufferSize + 1, 's')).Der());
  EXPECT_EQ(cert.code(), 0);
  EXPECT_EQ(cert.Serial().code, CodeOf(Reason::kBufferTooSmall));
}

struct KeySizes {
  std::size_t exponent;
  std::size_t modulus;
};

TEST(Buffers, KeyIsCompleteOrBuffersUntouched) {
  for (const KeySizes key : {KeySizes{1, 1}, KeySizes{3, 256}, KeySizes{17, 8193}}) {
    const std::string exponent(key.exponent, '\x83');
    const std::string modulus(key.modulus, '\xc1');
    const Parsed cert(Certificate().Rsa(modulus, exponent).Der());
    for (const std::size_t exponent_size :
         {std::size_t{0}, std::size_t{1}, key.exponent - 1, key.exponent, std::size_t{17}}) {
      for (const std::size_t modulus_size :
           {std::size_t{0}, std::size_t{1}, key.modulus - 1, key.modulus, std::size_t{8193}}) {
        WatchedBuffer exponent_buffer(exponent_size);
        WatchedBuffer modulus_buffer(modulus_size);
        unsigned long exponent_len = exponent_size;
        unsigned long modulus_len = modulus_size;
        const int code =
            cert_rsa_public_key_components(cert.get(), exponent_buffer.octets(), &exponent_len,
                                           modulus_buffer.octets(), &modulus_len);
        if (exponent_size >= key.exponent && modulus_size >= key.modulus) {
          EXPECT_EQ(code, 0);
          EXPECT_EQ(std::string(exponent_buffer.text(), exponent_len), exponent);
          EXPECT_EQ(std::string(modulus_buffer.text(), modulus_len), modulus);
        } else {
          EXPECT_EQ(code, CodeOf(Reason::kBufferTooSmall));
          EXPECT_EQ(exponent_len, exponent_size);
          EXPECT_EQ(modulus_len, modulus_size);
          EXPECT_TRUE(exponent_buffer.untouched());
          EXPECT_TRUE(modulus_buffer.untouched());
        }
      }
    }
  }
}

TEST(Buffers, RefusesKeyLongerThanBuffer) {
  const int code = CodeOf(Reason::kBufferTooSmall);
  EXPECT_EQ(Parsed(Certificate().Rsa(std::string(8194, '\xc1')).Der()).Modulus().code, code);
  EXPECT_EQ(Parsed(Certificate().Rsa("\xc1", std::string(18, '\x83')).Der()).Modulus().code, code);
}

}  // namespace
