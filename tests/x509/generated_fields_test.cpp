// Generated certificates with missing, duplicate, exchanged and oversized fields and every tag.
#include <gtest/gtest.h>
#include <sys/mman.h>

#include <climits>

#include "certificate_parts.h"
#include "expect_agreement.h"
#include "parsed.h"

namespace {

using der::Certificate;

TEST(Generated, AgreesOn10000LevelsOfNesting) {
  std::string reversed;
  std::size_t size = 0;
  for (int depth = 0; depth < 10000; ++depth) {
    const std::string header = "\x30" + der::Length(size);
    reversed.append(header.rbegin(), header.rend());
    size += header.size();
  }
  const std::string nested(reversed.rbegin(), reversed.rend());

  Certificate algorithm;
  algorithm.signed_algorithm = der::Algorithm("1.2.3", nested);
  EXPECT_EQ(ExpectAgreement(algorithm.Der()), 0);
  Certificate name;
  name.subject = NameOf(nested);
  EXPECT_EQ(ExpectAgreement(name.Der()), 0);
  EXPECT_EQ(ExpectAgreement(Certificate().Add(der::Extension("1.2.3", nested)).Der()), 0);
  EXPECT_EQ(ExpectAgreement(Certificate().Add(der::Extension("2.5.29.19", nested)).Der()), 0);
  EXPECT_EQ(ExpectAgreement(Certificate().Add(der::Extension("2.5.29.15", nested)).Der()), 0);
  Certificate key;
  key.public_key = der::PublicKey(der::Algorithm("1.2.840.113549.1.1.1"), nested);
  EXPECT_EQ(ExpectAgreement(key.Der()), 0);
  EXPECT_EQ(ExpectAgreement(nested), CodeOf(Reason::kSerialType));
}

TEST(Generated, FindsDuplicateAmong10000Extensions) {
  Certificate certificate;
  for (int i = 0; i < 10000; ++i)
    certificate.Add(der::Extension("1.2.840." + std::to_string(i), "x"));
  certificate.KeyUsage(4);
  EXPECT_EQ(ExpectAgreement(certificate.Der()), 0);
  EXPECT_EQ(Parsed(certificate.Der()).KeyUsage(), 4);
  certificate.Add(der::Extension("1.2.840.5000", "x"));
  EXPECT_EQ(ExpectAgreement(certificate.Der()), CodeOf(Reason::kExtensionDuplicate));
}

TEST(Generated, AgreesOnAlgorithmParametersOfEveryTag) {
  for (int tag = 0; tag < 256; ++tag) {
    for (const std::string& contents :
         {Bytes(""), Bytes("\x00"), Bytes("\x00\x31"), Bytes("\x80"), Bytes("\x05\x00")}) {
      Certificate certificate;
      certificate.signed_algorithm = der::Algorithm("1.2.3", der::Tlv(tag, contents));
      ExpectAgreement(certificate.Der());
      Certificate key;
      key.public_key =
          der::PublicKey(der::Algorithm("1.2.840.113549.1.1.1", der::Tlv(tag, contents)),
                         der::Sequence(der::Unsigned("\xc1"), der::Unsigned("\x03")));
      ExpectAgreement(key.Der());
    }
  }
}

// Returns the fields of a tbsCertificate, all optional ones included.
std::vector<std::string> TbsParts() {
  const Certificate c;
  return {c.version,
          c.serial,
          c.signed_algorithm,
          c.issuer,
          c.validity,
          c.subject,
          c.public_key,
          der::Tlv(0x81, Bytes("\x00i")),
          der::Tlv(0x82, Bytes("\x00s")),
          der::Context(3, der::Sequence(der::BasicConstraints("")))};
}

bool IsOptional(std::size_t part) {
  return part == 7 || part == 8 || part == 9;
}

int ExpectPartsAgreement(const std::vector<std::string>& parts) {
  std::string fields;
  for (const std::string& part : parts)
    fields += part;
  return ExpectAgreement(Certificate().DerAround(fields));
}

TEST(Generated, RefusesMissingMandatoryField) {
  EXPECT_EQ(ExpectPartsAgreement(TbsParts()), 0);
  for (std::size_t missing = 0; missing < TbsParts().size(); ++missing) {
    std::vector<std::string> parts = TbsParts();
    parts[missing] = "";
    EXPECT_EQ(ExpectPartsAgreement(parts) == 0, IsOptional(missing)) << missing;
  }
}

TEST(Generated, RefusesDuplicateField) {
  for (std::size_t doubled = 0; doubled < TbsParts().size(); ++doubled) {
    std::vector<std::string> parts = TbsParts();
    parts[doubled] += parts[doubled];
    EXPECT_NE(ExpectPartsAgreement(parts), 0) << doubled;
  }
}

TEST(Generated, RefusesExchangedFields) {
  for (std::size_t a = 0; a < TbsParts().size(); ++a) {
    for (std::size_t b = a + 1; b < TbsParts().size(); ++b) {
      std::vector<std::string> parts = TbsParts();
      std::swap(parts[a], parts[b]);
      // Issuer and subject have the same type.
      EXPECT_EQ(ExpectPartsAgreement(parts) == 0, a == 3 && b == 5) << a << " " << b;
    }
  }
}

TEST(Generated, AgreesOnEveryFieldReplacedByAnother) {
  for (std::size_t a = 0; a < TbsParts().size(); ++a) {
    for (std::size_t b = 0; b < TbsParts().size(); ++b) {
      if (a == b)
        continue;
      std::vector<std::string> parts = TbsParts();
      parts[a] = TbsParts()[b];
      ExpectPartsAgreement(parts);
    }
  }
}

TEST(Generated, AgreesOnEveryTagOfEveryField) {
  for (std::size_t part = 0; part < TbsParts().size(); ++part) {
    for (int tag = 0; tag < 256; ++tag) {
      std::vector<std::string> parts = TbsParts();
      parts[part][0] = static_cast<char>(tag);
      ExpectPartsAgreement(parts);
    }
  }
}

// Encodes one tag in `der` in the form for tag numbers above 30 (X.690 8.1.2.4), in which BER
// parsers accept any number. `*countdown` is the index of its element, counting nested elements; it
// is decreased by the number of elements, so it stays positive or 0 if there are too few.
std::string WithHighTagForm(const std::string& der, int* countdown) {
  std::string result;
  for (std::size_t begin = 0; begin < der.size();) {
    const auto tag = static_cast<unsigned char>(der[begin]);
    const auto first = static_cast<unsigned char>(der[begin + 1]);
    const std::size_t num_more = first < 0x80 ? 0 : first & 0x7f;
    std::size_t size = num_more == 0 ? first : 0;
    for (std::size_t i = 0; i < num_more; ++i)
      size = size << 8 | static_cast<unsigned char>(der[begin + 2 + i]);
    const std::size_t contents_at = begin + 2 + num_more;
    const bool here = (*countdown)-- == 0;
    std::string contents = der.substr(contents_at, size);
    // Each OCTET STRING in these certificates contains the value of an extension.
    if ((tag & 0x20) != 0 || tag == 0x04)
      contents = WithHighTagForm(contents, countdown);
    result += here ? std::string{static_cast<char>(tag | 0x1f), static_cast<char>(tag & 0x1f)}
                   : std::string{static_cast<char>(tag)};
    result += der::Length(contents.size()) + contents;
    begin = contents_at + size;
  }
  return result;
}

TEST(Generated, RefusesHighTagFormOfEveryTag) {
  std::vector<std::string> parts = TbsParts();
  parts.back() = der::Context(
      3, der::Sequence(der::BasicConstraints(der::Boolean(0xff) + der::Integer("\x01"))));
  std::string fields;
  for (const std::string& part : parts)
    fields += part;
  const std::string der = Certificate().DerAround(fields);
  ASSERT_EQ(ExpectAgreement(der), 0);
  int index = 0;
  for (;; ++index) {
    int countdown = index;
    const std::string changed = WithHighTagForm(der, &countdown);
    if (countdown >= 0)
      break;
    const int code = ExpectAgreement(changed);
    // An error inside an extension is reported by the query for it.
    const int answer = code != 0 ? code : -Parsed(changed).IsCa();
    EXPECT_EQ(answer, CodeOf(Reason::kHighTagNumber)) << "element " << index;
  }
  EXPECT_GT(index, 40);
}

TEST(Generated, RefusesMoreThanOneMebibyte) {
  const std::size_t kLimit = 1 << 20;
  Certificate certificate;
  certificate.Add(der::Extension("1.2.3", std::string(kLimit - 2000, 'x')));
  std::string der = certificate.Der();
  ASSERT_LT(der.size(), kLimit);
  certificate.padding = std::string(kLimit - der.size(), '\xff');
  EXPECT_EQ(Parsed(certificate.Der()).code(), 0);
  certificate.padding += '\xff';
  EXPECT_EQ(Parsed(certificate.Der()).code(), CodeOf(Reason::kInputTooLarge));
}

TEST(Generated, DoesNotReadInputBeyondOneMebibyte) {
  // Any read of this memory ends the program.
  const std::size_t kSize = (1 << 20) + 1;
  void* const unreadable =
      mmap(nullptr, kSize, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
  ASSERT_NE(unreadable, MAP_FAILED);
  const std::unique_ptr<certificate, void (*)(certificate*)> cert(cert_alloc(), cert_free);
  for (const int length : {static_cast<int>(kSize), INT_MAX}) {
    EXPECT_EQ(cert_parse(static_cast<unsigned char*>(unreadable), length, cert.get()),
              CodeOf(Reason::kInputTooLarge));
  }
  munmap(unreadable, kSize);
}

}  // namespace
