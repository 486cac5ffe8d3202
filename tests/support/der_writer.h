// Makes certificates for tests, well-formed and malformed ones.
//
//   der::Certificate cert;  // A valid version 3 certificate.
//   cert.Serial("\x01\x02").Subject({{"CN", "Alice"}}).KeyUsage(128 | 64).Ca(false);
//   std::string der = cert.Der();
//
// Every part is a public string of DER, so that a test can omit, double or replace it:
//
//   cert.validity = der::Sequence(der::Utc("260101000000Z"), der::Utc("270101000000Z"));
//
// The signature is not a valid one.
#pragma once

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

namespace der {

// The definite form of a length in as few octets as possible.
inline std::string Length(std::size_t length) {
  if (length < 0x80)
    return std::string(1, static_cast<char>(length));
  std::string octets;
  for (; length != 0; length >>= 8)
    octets.insert(octets.begin(), static_cast<char>(length & 0xff));
  return static_cast<char>(0x80 | octets.size()) + octets;
}

// `tag` is the complete identifier octet.
inline std::string Tlv(int tag, const std::string& contents) {
  return static_cast<char>(tag) + Length(contents.size()) + contents;
}

// The length has exactly `num_octets` octets after the first one, with leading zeros.
inline std::string TlvWithLongLength(int tag, const std::string& contents, int num_octets) {
  std::string length(1, static_cast<char>(0x80 | num_octets));
  for (int i = num_octets - 1; i >= 0; --i)
    length += static_cast<char>(i < 8 ? std::uint64_t{contents.size()} >> (8 * i) & 0xff : 0);
  return static_cast<char>(tag) + length + contents;
}

template <typename... Parts>
std::string Sequence(const Parts&... parts) {
  return Tlv(0x30, (std::string() + ... + parts));
}
template <typename... Parts>
std::string Set(const Parts&... parts) {
  return Tlv(0x31, (std::string() + ... + parts));
}
// A constructed value with a context-specific tag.
inline std::string Context(int number, const std::string& contents) {
  return Tlv(0xa0 | number, contents);
}

inline std::string Boolean(int octet) {
  return Tlv(0x01, std::string(1, static_cast<char>(octet)));
}
// `contents` is written unchanged.
inline std::string Integer(const std::string& contents) {
  return Tlv(0x02, contents);
}
// The INTEGER for an unsigned number, most significant octet first.
inline std::string Unsigned(const std::string& octets) {
  const std::size_t begin = octets.find_first_not_of('\0');
  std::string contents = begin == std::string::npos ? std::string(1, '\0') : octets.substr(begin);
  if ((contents[0] & 0x80) != 0)
    contents.insert(contents.begin(), '\0');
  return Integer(contents);
}
inline std::string BitString(const std::string& octets, int num_unused_bits = 0) {
  return Tlv(0x03, static_cast<char>(num_unused_bits) + octets);
}
inline std::string OctetString(const std::string& octets) {
  return Tlv(0x04, octets);
}
inline std::string Null() {
  return Tlv(0x05, "");
}
inline std::string Utf8(const std::string& text) {
  return Tlv(0x0c, text);
}
inline std::string Printable(const std::string& text) {
  return Tlv(0x13, text);
}
inline std::string Ia5(const std::string& text) {
  return Tlv(0x16, text);
}
inline std::string Utc(const std::string& text) {
  return Tlv(0x17, text);
}
inline std::string Generalized(const std::string& text) {
  return Tlv(0x18, text);
}

// `dotted` has arcs of up to 64 bits.
inline std::string OidContents(const std::string& dotted) {
  std::vector<std::uint64_t> arcs(1, 0);
  for (const char c : dotted) {
    if (c == '.')
      arcs.push_back(0);
    else
      arcs.back() = arcs.back() * 10 + static_cast<std::uint64_t>(c - '0');
  }
  std::string contents;
  arcs[1] += arcs[0] * 40;
  for (std::size_t i = 1; i < arcs.size(); ++i) {
    std::string octets(1, static_cast<char>(arcs[i] & 0x7f));
    for (std::uint64_t rest = arcs[i] >> 7; rest != 0; rest >>= 7)
      octets.insert(octets.begin(), static_cast<char>(0x80 | (rest & 0x7f)));
    contents += octets;
  }
  return contents;
}
inline std::string Oid(const std::string& dotted) {
  return Tlv(0x06, OidContents(dotted));
}

inline std::string Algorithm(const std::string& oid, const std::string& parameters = Null()) {
  return Sequence(Oid(oid), parameters);
}
inline std::string RsaSha256() {
  return Algorithm("1.2.840.113549.1.1.11");
}

// SubjectPublicKeyInfo. Modulus and exponent are unsigned, most significant octet first.
inline std::string PublicKey(const std::string& algorithm, const std::string& key) {
  return Sequence(algorithm, BitString(key));
}
inline std::string RsaKey(const std::string& modulus, const std::string& exponent) {
  return PublicKey(Algorithm("1.2.840.113549.1.1.1"),
                   Sequence(Unsigned(modulus), Unsigned(exponent)));
}
// A key on the curve P-256. The point consists of arbitrary octets.
inline std::string EcKey() {
  return PublicKey(Algorithm("1.2.840.10045.2.1", Oid("1.2.840.10045.3.1.7")),
                   "\x04" + std::string(64, 'k'));
}

// Returns the dotted object identifier of an attribute's short name. Other text is returned
// unchanged, so that dotted identifiers can be used, too.
inline std::string AttributeOid(const std::string& word) {
  static const std::pair<const char*, const char*> kWords[] = {
      {"CN", "2.5.4.3"},
      {"SN", "2.5.4.4"},
      {"serialNumber", "2.5.4.5"},
      {"C", "2.5.4.6"},
      {"L", "2.5.4.7"},
      {"ST", "2.5.4.8"},
      {"O", "2.5.4.10"},
      {"OU", "2.5.4.11"},
      {"title", "2.5.4.12"},
      {"GN", "2.5.4.42"},
      {"UID", "0.9.2342.19200300.100.1.1"},
      {"DC", "0.9.2342.19200300.100.1.25"},
      {"emailAddress", "1.2.840.113549.1.9.1"}};
  for (const auto& entry : kWords) {
    if (word == entry.first)
      return entry.second;
  }
  return word;
}

// AttributeTypeAndValue. `value` is DER.
inline std::string Attribute(const std::string& word, const std::string& value) {
  return Sequence(Oid(AttributeOid(word)), value);
}

// A name with one UTF8String attribute in each relative distinguished name, in the given order.
using NameText = std::vector<std::pair<std::string, std::string>>;
inline std::string Name(const NameText& attributes) {
  std::string rdns;
  for (const auto& attribute : attributes)
    rdns += Set(Attribute(attribute.first, Utf8(attribute.second)));
  return Sequence(rdns);
}

// An extension. `critical` is the DER of the flag; an empty string omits it.
inline std::string Extension(const std::string& oid, const std::string& value,
                             const std::string& critical = "") {
  return Sequence(Oid(oid), critical, OctetString(value));
}
// `contents` is the DER of the elements of the SEQUENCE.
inline std::string BasicConstraints(const std::string& contents) {
  return Extension("2.5.29.19", Sequence(contents), Boolean(0xff));
}
inline std::string KeyUsageExtension(const std::string& value) {
  return Extension("2.5.29.15", value, Boolean(0xff));
}
// The BIT STRING for a key usage with the bits of cert_key_usage(), without trailing zero bits.
inline std::string KeyUsageBits(int usage) {
  std::string octets;
  octets += static_cast<char>(usage & 0xff);
  octets += static_cast<char>(usage >> 8 & 0xff);
  while (!octets.empty() && octets.back() == '\0')
    octets.pop_back();
  int num_unused_bits = 0;
  while (!octets.empty() && (octets.back() >> num_unused_bits & 1) == 0)
    ++num_unused_bits;
  return BitString(octets, num_unused_bits);
}

class Certificate {
 public:
  // The parts of the certificate as DER, in their order.
  std::string version = Context(0, Integer("\x02"));  // 3
  std::string serial = Integer("\x01");
  std::string signed_algorithm = RsaSha256();
  std::string issuer = Name({{"C", "XX"}, {"O", "Test"}, {"CN", "Test CA"}});
  std::string validity = Sequence(Utc("260101000000Z"), Utc("361231235959Z"));
  std::string subject = Name({{"CN", "Test"}});
  std::string public_key = RsaKey("\xc1" + std::string(255, '\x55'), {1, 0, 1});
  std::string issuer_unique_id;
  std::string subject_unique_id;
  std::vector<std::string> extensions;
  std::string after_extensions;
  std::string outer_algorithm;  // If empty, the same as signed_algorithm.
  std::string signature = BitString(std::string(256, 's'));
  std::string after_signature;
  std::string padding;

  // These replace one part.
  Certificate& Serial(const std::string& contents) { return Set(&serial, Integer(contents)); }
  Certificate& Issuer(const NameText& name) { return Set(&issuer, Name(name)); }
  Certificate& Subject(const NameText& name) { return Set(&subject, Name(name)); }
  Certificate& Rsa(const std::string& modulus, const std::string& exponent = {1, 0, 1}) {
    return Set(&public_key, RsaKey(modulus, exponent));
  }
  Certificate& Ec() { return Set(&public_key, EcKey()); }
  // These add an extension.
  Certificate& KeyUsage(int usage) { return Add(KeyUsageExtension(KeyUsageBits(usage))); }
  Certificate& Ca(bool ca) { return Add(BasicConstraints(ca ? Boolean(0xff) : "")); }
  Certificate& Add(const std::string& extension) {
    extensions.push_back(extension);
    return *this;
  }

  std::string TbsFields() const {
    std::string list;
    for (const std::string& extension : extensions)
      list += extension;
    return version + serial + signed_algorithm + issuer + validity + subject + public_key +
           issuer_unique_id + subject_unique_id + (list.empty() ? "" : Context(3, Sequence(list))) +
           after_extensions;
  }
  // Returns the certificate with other contents of tbsCertificate.
  std::string DerAround(const std::string& tbs_fields) const {
    return Sequence(Sequence(tbs_fields),
                    outer_algorithm.empty() ? signed_algorithm : outer_algorithm, signature,
                    after_signature) +
           padding;
  }
  std::string Der() const { return DerAround(TbsFields()); }

 private:
  Certificate& Set(std::string* part, std::string value) {
    *part = std::move(value);
    return *this;
  }
};

}  // namespace der
