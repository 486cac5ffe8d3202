// Certificates that nobody issues, made by rule: what they answer, and that the differential rule
// holds for each.
#include <gtest/gtest.h>
#include <sys/mman.h>

#include <climits>

#include "differential.h"
#include "host/x509/names.h"
#include "parsed.h"
#include "support/der_writer.h"

namespace {

namespace x509 = cardcert::x509;
using der::Certificate;

template <std::size_t size>
std::string Z(const char (&octets)[size]) {
  return std::string(octets, size - 1);
}

std::string NameOf(const std::string& value) {
  return der::Sequence(der::Set(der::Attribute("CN", value)));
}

// Every certificate of this file comes through here.
int Compare(const std::string& der) {
  const Comparison comparison = CompareWithOpenssl(der);
  EXPECT_EQ(comparison.violation, "");
  return comparison.parse_code;
}

TEST(Generated, RsaModuliOfEverySizeUpTo16384Bits) {
  for (std::size_t bits = 1; bits <= 16384; bits += bits < 64 ? 1 : bits / 16) {
    std::string modulus((bits + 7) / 8, '\x5a');
    modulus[0] = static_cast<char>(1 << ((bits - 1) % 8));
    const std::string der = Certificate().Rsa(modulus).Der();
    EXPECT_EQ(Parsed(der).Modulus().octets, modulus) << bits;
    EXPECT_EQ(Compare(der), 0);
  }
}

TEST(Generated, RsaModuliOf8193OctetsAndOneMore) {
  for (const std::size_t size : {2048U, 2049U, 8192U, 8193U}) {
    for (const char first : {'\x01', '\x7f', '\x80', '\xff'}) {
      const std::string modulus = first + std::string(size - 1, 'm');
      const std::string der = Certificate().Rsa(modulus).Der();
      EXPECT_EQ(Parsed(der).Modulus().octets, modulus) << size;
      EXPECT_EQ(Compare(der), 0);
    }
  }
  const std::string der = Certificate().Rsa(std::string(8194, 'm')).Der();
  EXPECT_EQ(Parsed(der).Modulus().code, CodeOf(Reason::kBufferTooSmall));
  EXPECT_EQ(Compare(der), 0);
}

TEST(Generated, RsaExponentsOfUpTo17OctetsAndOneMore) {
  for (std::size_t size = 1; size <= 17; ++size) {
    for (const char first : {'\x01', '\x80', '\xff'}) {
      const std::string exponent = first + std::string(size - 1, '\x01');
      const std::string der = Certificate().Rsa("\xc1\x01", exponent).Der();
      EXPECT_EQ(Parsed(der).Exponent().octets, exponent) << size;
      EXPECT_EQ(Compare(der), 0);
    }
  }
  const std::string der = Certificate().Rsa("\xc1\x01", std::string(18, '\x01')).Der();
  EXPECT_EQ(Parsed(der).Exponent().code, CodeOf(Reason::kBufferTooSmall));
  EXPECT_EQ(Compare(der), 0);
}

TEST(Generated, NestingOf10000) {
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
  EXPECT_EQ(Compare(algorithm.Der()), 0);
  Certificate name;
  name.subject = NameOf(nested);
  EXPECT_EQ(Compare(name.Der()), 0);
  EXPECT_EQ(Compare(Certificate().Add(der::Extension("1.2.3", nested)).Der()), 0);
  EXPECT_EQ(Compare(Certificate().Add(der::Extension("2.5.29.19", nested)).Der()), 0);
  EXPECT_EQ(Compare(Certificate().Add(der::Extension("2.5.29.15", nested)).Der()), 0);
  Certificate key;
  key.public_key = der::PublicKey(der::Algorithm("1.2.840.113549.1.1.1"), nested);
  EXPECT_EQ(Compare(key.Der()), 0);
  EXPECT_EQ(Compare(nested), CodeOf(Reason::kSerialType));
}

TEST(Generated, Of100000Rdns) {
  const std::string rdn = der::Set(der::Sequence(der::Tlv(0x06, "\x2a"), der::Utf8("")));
  std::string rdns;
  for (int i = 0; i < 100000; ++i)
    rdns += rdn;
  Certificate certificate;
  certificate.subject = der::Sequence(rdns);
  const Parsed cert(certificate.Der());
  EXPECT_EQ(cert.code(), 0);
  EXPECT_EQ(cert.Subject().code, CodeOf(Reason::kBufferTooSmall));
  const Text whole = cert.Subject(100000 * 10);
  EXPECT_EQ(whole.code, 0);
  EXPECT_EQ(whole.text.size(), 100000 * std::string("1.2=#0C00,").size() - 1);
}

TEST(Generated, Of10000Rdns) {
  Certificate certificate;
  std::string rdns;
  for (int i = 0; i < 10000; ++i)
    rdns += der::Set(der::Attribute("CN", der::Utf8("")));
  certificate.subject = der::Sequence(rdns);
  EXPECT_EQ(Compare(certificate.Der()), 0);
}

TEST(Generated, OfAnRdnOf10000Attributes) {
  std::string attributes;
  for (int i = 0; i < 10000; ++i)
    attributes += der::Attribute("CN", der::Utf8("x"));
  Certificate certificate;
  certificate.subject = der::Sequence(der::Set(attributes));
  EXPECT_EQ(Compare(certificate.Der()), 0);
}

TEST(Generated, Of10000Extensions) {
  Certificate certificate;
  for (int i = 0; i < 10000; ++i)
    certificate.Add(der::Extension("1.2.840." + std::to_string(i), "x"));
  certificate.KeyUsage(4);
  EXPECT_EQ(Compare(certificate.Der()), 0);
  EXPECT_EQ(Parsed(certificate.Der()).KeyUsage(), 4);
  certificate.Add(der::Extension("1.2.840.5000", "x"));
  EXPECT_EQ(Compare(certificate.Der()), CodeOf(Reason::kExtensionDuplicate));
}

TEST(Generated, StringsOfEveryTypeAndEverySingleOctet) {
  for (const int tag : {0x0c, 0x12, 0x13, 0x14, 0x16, 0x1a, 0x1c, 0x1e}) {
    for (int octet = 0; octet < 256; ++octet) {
      for (const std::string& before : {Z(""), Z("a"), Z("\0"), Z("\0\0\0"), Z("\0\0\0a\0\0\0")}) {
        Certificate certificate;
        certificate.subject = NameOf(der::Tlv(tag, before + static_cast<char>(octet)));
        Compare(certificate.Der());
      }
    }
  }
}

TEST(Generated, VisibleStringsOfEveryCharacterInBothNames) {
  std::string characters;
  for (char c = 0x20; c < 0x7f; ++c)
    characters += c;
  const std::string visible = der::Tlv(0x1a, characters);
  const std::string names[] = {NameOf(visible),
                               der::Sequence(der::Set(der::Attribute("CN", der::Printable("a")),
                                                      der::Attribute("O", visible)),
                                             der::Set(der::Attribute("C", visible))),
                               // A type without a word.
                               der::Sequence(der::Set(der::Attribute("1.2.3", visible)))};
  for (const std::string& subject : names) {
    for (const std::string& issuer : names) {
      Certificate certificate;
      certificate.subject = subject;
      certificate.issuer = issuer;
      EXPECT_EQ(Compare(certificate.Der()), 0);
    }
  }
}

TEST(Generated, AttributeValuesOfEveryTag) {
  for (int tag = 0; tag < 256; ++tag) {
    for (const std::string& contents : {Z(""), Z("\x00"), Z("\x00\x31"), Z("1234")}) {
      Certificate certificate;
      certificate.subject = NameOf(der::Tlv(tag, contents));
      Compare(certificate.Der());
    }
  }
}

TEST(Generated, AlgorithmParametersOfEveryTag) {
  for (int tag = 0; tag < 256; ++tag) {
    for (const std::string& contents :
         {Z(""), Z("\x00"), Z("\x00\x31"), Z("\x80"), Z("\x05\x00")}) {
      Certificate certificate;
      certificate.signed_algorithm = der::Algorithm("1.2.3", der::Tlv(tag, contents));
      Compare(certificate.Der());
      Certificate key;
      key.public_key =
          der::PublicKey(der::Algorithm("1.2.840.113549.1.1.1", der::Tlv(tag, contents)),
                         der::Sequence(der::Unsigned("\xc1"), der::Unsigned("\x03")));
      Compare(key.Der());
    }
  }
}

TEST(Generated, KeyUsagesOfEveryCombinationInDer) {
  for (int bits = 0; bits < 512; ++bits) {
    const int usage = (bits & 0xff) | (bits >> 8 << 15);
    const std::string der = Certificate().KeyUsage(usage).Der();
    const Parsed cert(der);
    EXPECT_EQ(cert.KeyUsageCode(), 0);
    EXPECT_EQ(cert.KeyUsage(), usage);
    EXPECT_EQ(Compare(der), 0);
  }
}

TEST(Generated, KeyUsagesOfEveryCombinationWithTrailingZeroBits) {
  for (int bits = 0; bits < 512; ++bits) {
    const int usage = (bits & 0xff) | (bits >> 8 << 15);
    const std::string first(1, static_cast<char>(bits & 0xff));
    const std::string second(1, static_cast<char>(bits >> 8 << 7));
    std::vector<std::string> encodings;
    for (int num_unused_bits = 0; num_unused_bits < 8; ++num_unused_bits) {
      encodings.push_back(der::BitString(first + second, num_unused_bits));
      encodings.push_back(der::BitString(first + second + Z("\0"), num_unused_bits));
      if (bits < 256 && (bits & ((1 << num_unused_bits) - 1)) == 0)
        encodings.push_back(der::BitString(first, num_unused_bits));
    }
    for (const std::string& encoding : encodings) {
      const std::string der = Certificate().Add(der::KeyUsageExtension(encoding)).Der();
      const Parsed cert(der);
      EXPECT_EQ(cert.KeyUsageCode(), 0);
      EXPECT_EQ(cert.KeyUsage(), usage);
      if (bits % 16 == 0) {
        EXPECT_EQ(Compare(der), 0);
      }
    }
  }
}

TEST(Generated, SerialsFromEmptyTo16834OctetsAndOneMore) {
  EXPECT_EQ(Compare(Certificate().Serial("").Der()), CodeOf(Reason::kIntegerEmpty));
  for (std::size_t size = 1; size <= 16834; size += size < 40 ? 1 : size / 3) {
    for (const char first : {'\x01', '\x7f', '\x80', '\xfe'}) {
      const std::string serial = first + std::string(size - 1, 's');
      const std::string der = Certificate().Serial(serial).Der();
      EXPECT_EQ(Parsed(der).Serial().octets, serial);
      EXPECT_EQ(Compare(der), 0);
    }
  }
  const std::string exact(16834, 's');
  EXPECT_EQ(Parsed(Certificate().Serial(exact).Der()).Serial().octets, exact);
  EXPECT_EQ(Compare(Certificate().Serial(exact).Der()), 0);
  const std::string longer = Certificate().Serial(exact + "s").Der();
  EXPECT_EQ(Parsed(longer).Serial().code, CodeOf(Reason::kBufferTooSmall));
  EXPECT_EQ(Compare(longer), 0);
}

TEST(Generated, SerialsOfEveryTwoOctets) {
  for (int number = 0; number < 65536; number += 97) {
    const std::string serial = {static_cast<char>(number >> 8), static_cast<char>(number & 0xff)};
    Compare(Certificate().Serial(serial).Der());
  }
}

// The parts of a tbsCertificate with every optional one.
std::vector<std::string> TbsParts() {
  const Certificate c;
  return {c.version,
          c.serial,
          c.signed_algorithm,
          c.issuer,
          c.validity,
          c.subject,
          c.public_key,
          der::Tlv(0x81, Z("\x00i")),
          der::Tlv(0x82, Z("\x00s")),
          der::Context(3, der::Sequence(der::BasicConstraints("")))};
}

bool IsOptional(std::size_t part) {
  return part == 7 || part == 8 || part == 9;
}

int CompareParts(const std::vector<std::string>& parts) {
  std::string fields;
  for (const std::string& part : parts)
    fields += part;
  return Compare(Certificate().DerAround(fields));
}

TEST(Generated, EveryFieldMissing) {
  EXPECT_EQ(CompareParts(TbsParts()), 0);
  for (std::size_t missing = 0; missing < TbsParts().size(); ++missing) {
    std::vector<std::string> parts = TbsParts();
    parts[missing] = "";
    EXPECT_EQ(CompareParts(parts) == 0, IsOptional(missing)) << missing;
  }
}

TEST(Generated, EveryFieldDoubled) {
  for (std::size_t doubled = 0; doubled < TbsParts().size(); ++doubled) {
    std::vector<std::string> parts = TbsParts();
    parts[doubled] += parts[doubled];
    EXPECT_NE(CompareParts(parts), 0) << doubled;
  }
}

TEST(Generated, EveryTwoFieldsExchanged) {
  for (std::size_t a = 0; a < TbsParts().size(); ++a) {
    for (std::size_t b = a + 1; b < TbsParts().size(); ++b) {
      std::vector<std::string> parts = TbsParts();
      std::swap(parts[a], parts[b]);
      // Issuer and subject are of the same form.
      EXPECT_EQ(CompareParts(parts) == 0, a == 3 && b == 5) << a << " " << b;
    }
  }
}

TEST(Generated, EveryFieldReplacedByEveryOther) {
  for (std::size_t a = 0; a < TbsParts().size(); ++a) {
    for (std::size_t b = 0; b < TbsParts().size(); ++b) {
      if (a == b)
        continue;
      std::vector<std::string> parts = TbsParts();
      parts[a] = TbsParts()[b];
      CompareParts(parts);
    }
  }
}

TEST(Generated, EveryTagOfEveryFieldChanged) {
  for (std::size_t part = 0; part < TbsParts().size(); ++part) {
    for (int tag = 0; tag < 256; ++tag) {
      std::vector<std::string> parts = TbsParts();
      parts[part][0] = static_cast<char>(tag);
      CompareParts(parts);
    }
  }
}

// The elements `der` with the tag of the `*countdown`-th of them, those inside included, in the
// form for numbers above 30 (X.690 8.1.2.4), in which BER readers take any number.
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
    // An OCTET STRING here holds the value of an extension.
    if ((tag & 0x20) != 0 || tag == 0x04)
      contents = WithHighTagForm(contents, countdown);
    result += here ? std::string{static_cast<char>(tag | 0x1f), static_cast<char>(tag & 0x1f)}
                   : std::string{static_cast<char>(tag)};
    result += der::Length(contents.size()) + contents;
    begin = contents_at + size;
  }
  return result;
}

TEST(Generated, EveryTagInTheFormForHighNumbers) {
  std::vector<std::string> parts = TbsParts();
  parts.back() = der::Context(
      3, der::Sequence(der::BasicConstraints(der::Boolean(0xff) + der::Integer("\x01"))));
  std::string fields;
  for (const std::string& part : parts)
    fields += part;
  const std::string der = Certificate().DerAround(fields);
  ASSERT_EQ(Compare(der), 0);
  int index = 0;
  for (;; ++index) {
    int countdown = index;
    const std::string changed = WithHighTagForm(der, &countdown);
    if (countdown >= 0)
      break;
    const int code = Compare(changed);
    // What is wrong inside an extension shows when it is asked for.
    const int answer = code != 0 ? code : -Parsed(changed).IsCa();
    EXPECT_EQ(answer, CodeOf(Reason::kHighTagNumber)) << "element " << index;
  }
  EXPECT_GT(index, 40);
}

TEST(Generated, InputOfOneMebibyteAndOneOctetMore) {
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

TEST(Generated, InputOfMoreThanOneMebibyteIsNotRead) {
  // Octets of which each read ends the program.
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

// Characters, one by one, against the definitions.

x509::Refusal ReadOne(int tag, const std::string& contents, std::uint32_t* code_point) {
  x509::Element string;
  string.tag = static_cast<unsigned char>(tag);
  string.value = {reinterpret_cast<const unsigned char*>(contents.data()), contents.size()};
  x509::CharacterReader reader(string);
  const x509::Refusal refusal = reader.Next(code_point);
  EXPECT_TRUE(refusal || reader.AtEnd());
  return refusal;
}

bool IsCharacter(std::uint32_t code_point) {
  return code_point != 0 && code_point <= 0x10ffff && (code_point < 0xd800 || code_point > 0xdfff);
}

TEST(Characters, OfBmpStringAreAllButNulAndSurrogates) {
  for (std::uint32_t unit = 0; unit < 0x10000; ++unit) {
    std::uint32_t read = 0;
    const std::string contents = {static_cast<char>(unit >> 8), static_cast<char>(unit & 0xff)};
    ASSERT_EQ(!ReadOne(0x1e, contents, &read), IsCharacter(unit)) << unit;
    ASSERT_EQ(read, unit);
  }
}

TEST(Characters, OfUniversalStringAndUtf8StringAreAllOfUnicodeButNul) {
  for (std::uint32_t unit = 0; unit < 0x120000; ++unit) {
    std::uint32_t read = 0;
    const std::string contents = {
        static_cast<char>(unit >> 24), static_cast<char>(unit >> 16 & 0xff),
        static_cast<char>(unit >> 8 & 0xff), static_cast<char>(unit & 0xff)};
    ASSERT_EQ(!ReadOne(0x1c, contents, &read), IsCharacter(unit)) << unit;
    if (!IsCharacter(unit))
      continue;
    char utf8[8];
    x509::TextWriter writer(utf8, sizeof utf8);
    writer.PutUtf8(unit);
    ASSERT_FALSE(ReadOne(0x0c, std::string(utf8, writer.Length()), &read)) << unit;
    ASSERT_EQ(read, unit);
  }
}

// The writers take names that were checked. Given others they refuse, too, and stay in bounds.
TEST(Names, ThatWereNeverCheckedAreRefusedByTheWritersAsWell) {
  const auto bytes = [](const std::string& octets) {
    return x509::Bytes{reinterpret_cast<const unsigned char*>(octets.data()), octets.size()};
  };
  char buffer[100];
  const std::string no_rdn = "x";
  EXPECT_EQ(WriteName(bytes(no_rdn), buffer, sizeof buffer).Code(), CodeOf(Reason::kRdnType));
  const std::string broken = der::Set(der::Attribute("CN", der::Utf8("a\xff")));
  EXPECT_EQ(WriteName(bytes(broken), buffer, sizeof buffer).Code(),
            CodeOf(Reason::kUtf8StringForm));
  x509::Element value;
  value.tag = x509::kUtf8String;
  const std::string text = "a\xff";
  value.value = bytes(text);
  EXPECT_EQ(WriteValue(value, buffer, sizeof buffer).Code(), CodeOf(Reason::kUtf8StringForm));
  x509::CharacterReader at_end{x509::Element()};
  std::uint32_t ignored = 0;
  EXPECT_EQ(at_end.Next(&ignored).Code(), CodeOf(Reason::kContentsCutShort));
}

}  // namespace
