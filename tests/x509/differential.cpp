#include "differential.h"

#include <openssl/objects.h>

#include <algorithm>
#include <cstdlib>

#include "ask_host.h"
#include "host/certificate.h"
#include "host/x509/certificate_fields.h"
#include "host/x509/names.h"
#include "support/hex.h"

namespace {

namespace x509 = cardcert::x509;
using x509::Bytes;
using x509::Reason;

// Where we are stricter: libcrypto reads BER in these places, or does not look at what they are
// about. The sentence of each reason has the clause.
const Reason kStricterAtParsing[] = {
    // BER.
    Reason::kHighTagNumber, Reason::kIndefiniteLength, Reason::kLengthTooLong,
    Reason::kLengthNotMinimal, Reason::kConstructed, Reason::kNotConstructed,
    Reason::kBitStringUnusedInEmpty, Reason::kBitStringPadding, Reason::kVersionDefault,
    Reason::kRdnOrder,
    // Not looked at.
    Reason::kTrailingOctets, Reason::kOpaqueType, Reason::kTimeForm, Reason::kTimeRange,
    Reason::kVersionUnknown, Reason::kUniqueIdInV1, Reason::kExtensionsVersion,
    Reason::kExtensionsEmpty, Reason::kExtensionDuplicate, Reason::kKeyUnusedBits,
    Reason::kSignatureUnusedBits, Reason::kAlgorithmsDiffer, Reason::kRdnEmpty,
    // Text that it takes as it comes, and types of values that it does not know.
    Reason::kAttributeValueType, Reason::kStringNul, Reason::kNumericStringSet,
    Reason::kIa5StringSet};

const Reason kStricterAtAsking[] = {
    // BER again, in the values of extensions and keys.
    Reason::kHighTagNumber, Reason::kIndefiniteLength, Reason::kLengthTooLong,
    Reason::kLengthNotMinimal, Reason::kConstructed, Reason::kBitStringUnusedInEmpty,
    Reason::kBitStringPadding, Reason::kIntegerEmpty, Reason::kIntegerNotMinimal,
    // Octets left over.
    Reason::kBasicConstraintsTrailing, Reason::kKeyUsageTrailing, Reason::kRsaKeyTrailing,
    // Not looked at.
    Reason::kPathLengthNegative, Reason::kRsaParameters, Reason::kRsaNotPositive,
    // Keys that it takes for RSA keys: those of X.509's own identifier 2.5.8.1.1.
    Reason::kNotRsa,
    // It writes arcs of any size.
    Reason::kOidArcTooLarge};

template <std::size_t size>
bool Lists(const Reason (&reasons)[size], int code) {
  return std::any_of(std::begin(reasons), std::end(reasons),
                     [code](Reason reason) { return static_cast<int>(reason) == code; });
}

struct Names {
  std::vector<std::string> dotted_types;  // of both, each once
  bool same_text_expected = true;         // of the subject
  // Where the tags of their VisibleStrings are, which libcrypto does not take.
  std::vector<std::size_t> visible_string_tags;
};

bool IsNumberSign(const x509::Element& value) {
  char text[2] = "";
  return !WriteValue(value, text, sizeof text) && text[0] == '#';
}

// Where libcrypto does not write an attribute as RFC 4514 asks for, or in other words than we do.
bool SameTextExpected(const x509::Attribute& attribute, const std::string& dotted) {
  // The escape of a value that is "#" alone (section 2.4) is missing.
  if (IsNumberSign(attribute.value))
    return false;
  const char* const ours = x509::AttributeShortWord(attribute.type_oid);
  const int nid = OBJ_txt2nid(dotted.c_str());
  // A dotted type is cut after 79 characters.
  if (ours == nullptr && nid == NID_undef)
    return dotted.size() < 80;
  return ours != nullptr && nid != NID_undef && OBJ_nid2sn(nid) == std::string(ours);
}

// The names of one certificate, of which `der` is the beginning.
void Collect(const unsigned char* der, Bytes rdn_sequence, bool is_subject, Names* out) {
  // Each word asks both readers to walk the names, so their number is bounded.
  const std::size_t kMaxNumTypes = 64;
  x509::NameReader attributes(rdn_sequence);
  x509::Attribute attribute;
  while (!attributes.AtEnd() && !attributes.Next(&attribute)) {
    if (attribute.value.tag == x509::kVisibleString) {
      out->visible_string_tags.push_back(static_cast<std::size_t>(attribute.value.tlv.data - der));
      // A dotted type has the tag in the text.
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

// libcrypto has no VisibleString in names; X.520 leaves the type of a value to its attribute. The
// same text as an IA5String, of which its characters are a part, has the same length.
std::string WithoutVisibleStrings(const std::string& der, const Names& names) {
  std::string copy = der;
  for (const std::size_t at : names.visible_string_tags)
    copy[at] = static_cast<char>(x509::kIa5String);
  return copy;
}

class Comparer {
 public:
  explicit Comparer(Comparison* result) : result_(result) {}

  void Compare(const std::string& question, const HostAnswers::Text& ours,
               const HostAnswers::Text& theirs) {
    // "There is none" is an answer.
    const bool ours_answers = ours.code == 0 || ours.code == -2;
    const bool theirs_answers = theirs.code == 0 || theirs.code == -2;
    if (!ours_answers && theirs_answers) {
      Stricter(question, ours.code);
    } else if (ours_answers && (ours.code != theirs.code || ours.text != theirs.text)) {
      Violation(question + ": ours " + std::to_string(ours.code) + " " + support::Hex(ours.text) +
                ", libcrypto " + std::to_string(theirs.code) + " " + support::Hex(theirs.text));
    }
  }

  void Stricter(const std::string& question, int code) {
    if (question == "parse" ? Lists(kStricterAtParsing, code) : Lists(kStricterAtAsking, code))
      result_->stricter.push_back(code);
    else
      Violation(question + ": refused by ours alone: " + cert_error_text(code));
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
    comparer.Violation("parse: refused by libcrypto alone");
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
