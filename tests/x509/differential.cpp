#include "differential.h"

#include <openssl/objects.h>

#include <algorithm>
#include <cstdlib>

#include "ask_host.h"
#include "host/certificate.h"
#include "host/x509/certificate_fields.h"
#include "host/x509/name_text.h"
#include "host/x509/names.h"
#include "host/x509/oid_text.h"
#include "host/x509/strings.h"
#include "host/x509/text_writer.h"
#include "support/hex.h"

namespace {

namespace x509 = cardcert::x509;
using x509::Bytes;
using x509::Reason;

// Reasons for which only we refuse: libcrypto accepts BER in these places or does not check them.
// The text of each reason names the clause.
const Reason kStricterInParsing[] = {
    // libcrypto accepts BER.
    Reason::kHighTagNumber, Reason::kIndefiniteLength, Reason::kLengthTooLong,
    Reason::kLengthNotMinimal, Reason::kConstructed, Reason::kNotConstructed,
    Reason::kBitStringUnusedInEmpty, Reason::kBitStringPadding, Reason::kVersionDefault,
    Reason::kRdnOrder,
    // libcrypto does not check this.
    Reason::kTrailingOctets, Reason::kOpaqueType, Reason::kTimeForm, Reason::kTimeRange,
    Reason::kVersionUnknown, Reason::kUniqueIdInV1, Reason::kExtensionsVersion,
    Reason::kExtensionsEmpty, Reason::kExtensionDuplicate, Reason::kKeyUnusedBits,
    Reason::kSignatureUnusedBits, Reason::kAlgorithmsDiffer, Reason::kRdnEmpty,
    // libcrypto does not check the characters, and accepts value types that it does not know.
    Reason::kAttributeValueType, Reason::kStringNul, Reason::kNumericStringSet,
    Reason::kIa5StringSet};

const Reason kStricterInQueries[] = {
    // libcrypto accepts BER in the values of extensions and keys.
    Reason::kHighTagNumber, Reason::kIndefiniteLength, Reason::kLengthTooLong,
    Reason::kLengthNotMinimal, Reason::kConstructed, Reason::kBitStringUnusedInEmpty,
    Reason::kBitStringPadding, Reason::kIntegerEmpty, Reason::kIntegerNotMinimal,
    // libcrypto ignores trailing octets.
    Reason::kBasicConstraintsTrailing, Reason::kKeyUsageTrailing, Reason::kRsaKeyTrailing,
    // libcrypto does not check this.
    Reason::kPathLengthNegative, Reason::kRsaParameters, Reason::kRsaNotPositive,
    // libcrypto also accepts RSA keys with the identifier 2.5.8.1.1 of X.509.
    Reason::kNotRsa,
    // libcrypto writes arcs of any size.
    Reason::kOidArcTooLarge};

template <std::size_t size>
bool Lists(const Reason (&reasons)[size], int code) {
  return std::any_of(std::begin(reasons), std::end(reasons),
                     [code](Reason reason) { return static_cast<int>(reason) == code; });
}

struct Names {
  std::vector<std::string> dotted_types;  // of both names, without duplicates
  bool same_text_expected = true;         // whether the subject texts are expected to be equal
  // Offsets of the tags of VisibleStrings, which libcrypto does not accept.
  std::vector<std::size_t> visible_string_tags;
};

bool IsNumberSign(const x509::Element& value) {
  char text[2] = "";
  return !WriteValue(value, text, sizeof text) && text[0] == '#';
}

// Returns false if libcrypto does not write the attribute as RFC 4514 requires, or names it
// differently.
bool SameTextExpected(const x509::Attribute& attribute, const std::string& dotted) {
  // libcrypto does not escape a value that is "#" alone (section 2.4).
  if (IsNumberSign(attribute.value))
    return false;
  const char* const ours = x509::AttributeShortWord(attribute.type_oid);
  const int nid = OBJ_txt2nid(dotted.c_str());
  // libcrypto truncates a dotted type after 79 characters.
  if (ours == nullptr && nid == NID_undef)
    return dotted.size() < 80;
  return ours != nullptr && nid != NID_undef && OBJ_nid2sn(nid) == std::string(ours);
}

// Adds the attributes of a name to `*out`. `der` points to the start of the certificate.
void Collect(const unsigned char* der, Bytes rdn_sequence, bool is_subject, Names* out) {
  // Both implementations walk the names once per word, so the number of words is limited.
  const std::size_t kMaxNumTypes = 64;
  x509::NameReader attributes(rdn_sequence);
  x509::Attribute attribute;
  while (!attributes.AtEnd() && !attributes.Next(&attribute)) {
    if (attribute.value.tag == x509::kVisibleString) {
      out->visible_string_tags.push_back(static_cast<std::size_t>(attribute.value.tlv.data - der));
      // After a dotted type, the text contains the tag.
      if (is_subject && x509::AttributeShortWord(attribute.type_oid) == nullptr)
        out->same_text_expected = false;
    }
    char text[1024];
    x509::TextWriter writer(text, sizeof text);
    if (PutDottedOid(attribute.type_oid, &writer) || writer.Length() > sizeof text) {
      out->same_text_expected = false;
      continue;
    }
    const std::string dotted(text, writer.Length());
    if (is_subject && !SameTextExpected(attribute, dotted))
      out->same_text_expected = false;
    std::vector<std::string>& types = out->dotted_types;
    if (types.size() < kMaxNumTypes && std::find(types.begin(), types.end(), dotted) == types.end())
      types.push_back(dotted);
  }
}

Names NamesOf(const std::string& der) {
  Names names;
  x509::Cursor cursor(Bytes{reinterpret_cast<const unsigned char*>(der.data()), der.size()});
  x509::Element outer;
  x509::CertificateFields fields;
  if (ReadElement(&cursor, &outer) || ReadCertificate(outer.value, &fields))
    return names;
  Collect(outer.tlv.data, fields.subject, true, &names);
  Collect(outer.tlv.data, fields.issuer, false, &names);
  return names;
}

// Returns a copy with IA5Strings instead of VisibleStrings, which libcrypto does not accept in
// names (X.520 allows them in some attributes). IA5String includes the characters of VisibleString,
// so the contents stay the same.
std::string WithoutVisibleStrings(const std::string& der, const Names& names) {
  std::string copy = der;
  for (const std::size_t at : names.visible_string_tags)
    copy[at] = static_cast<char>(x509::kIa5String);
  return copy;
}

class Comparer {
 public:
  explicit Comparer(Comparison* result) : result_(result) {}

  void Compare(const std::string& query, const HostAnswers::Text& ours,
               const HostAnswers::Text& theirs) {
    // Code -2, "not present", is an answer.
    const bool ours_answers = ours.code == 0 || ours.code == -2;
    const bool theirs_answers = theirs.code == 0 || theirs.code == -2;
    if (!ours_answers && theirs_answers) {
      Stricter(query, ours.code);
    } else if (ours_answers && (ours.code != theirs.code || ours.text != theirs.text)) {
      Violation(query + ": ours " + std::to_string(ours.code) + " " + support::Hex(ours.text) +
                ", libcrypto " + std::to_string(theirs.code) + " " + support::Hex(theirs.text));
    }
  }

  void Stricter(const std::string& query, int code) {
    if (query == "parse" ? Lists(kStricterInParsing, code) : Lists(kStricterInQueries, code))
      result_->stricter.push_back(code);
    else
      Violation(query + ": only we refuse: " + cert_error_text(code));
  }

  void Violation(const std::string& what) { result_->violation += what + "\n"; }

 private:
  Comparison* result_;
};

}  // namespace

Comparison CompareWithOpenssl(const std::string& der) {
  const Names names = NamesOf(der);
  std::vector<std::string> words = names.dotted_types;
  words.insert(words.end(), {"commonName", "CN", "organizationName", "serialNumber", "surname",
                             "givenName", "emailAddress", "organizationIdentifier", "title"});
  const HostAnswers ours = AskOurs(der, words);
  HostAnswers theirs = AskOpenssl(der, words);

  Comparison result;
  result.parse_code = ours.parse_code;
  result.openssl_accepts = theirs.parse_code == 0;
  Comparer comparer(&result);
  if (ours.parse_code != 0) {
    if (theirs.parse_code == 0)
      comparer.Stricter("parse", ours.parse_code);
    return result;
  }
  if (theirs.parse_code != 0 && !names.visible_string_tags.empty())
    theirs = AskOpenssl(WithoutVisibleStrings(der, names), words);
  if (theirs.parse_code != 0) {
    comparer.Violation("parse: only libcrypto refuses");
    return result;
  }

  result.whole_text_compared = names.same_text_expected;
  if (names.same_text_expected)
    comparer.Compare("subject", ours.subject, theirs.subject);
  for (std::size_t i = 0; i < words.size(); ++i) {
    comparer.Compare("subject " + words[i], ours.subject_attrs[i], theirs.subject_attrs[i]);
    comparer.Compare("issuer " + words[i], ours.issuer_attrs[i], theirs.issuer_attrs[i]);
  }
  comparer.Compare("serial", ours.serial, theirs.serial);
  comparer.Compare("key usage", ours.key_usage, theirs.key_usage);
  comparer.Compare("exponent", ours.exponent, theirs.exponent);
  comparer.Compare("modulus", ours.modulus, theirs.modulus);
  if (ours.is_ca < 0) {
    if (theirs.is_ca >= 0)
      comparer.Stricter("CA", -ours.is_ca);
  } else if (ours.is_ca != theirs.is_ca) {
    comparer.Violation("CA: ours " + std::to_string(ours.is_ca) + ", libcrypto " +
                       std::to_string(theirs.is_ca));
  }
  return result;
}
