// Every reason for which a certificate, or a question about it, is refused; and that libcrypto
// accepts it only where we are known to be stricter.
#include <gtest/gtest.h>

#include <fstream>
#include <functional>
#include <iterator>
#include <set>

#include "der_writer.h"
#include "differential.h"
#include "parsed.h"

namespace {

using der::Certificate;

// A string literal with its zero octets.
template <std::size_t size>
std::string Z(const char (&octets)[size]) {
  return std::string(octets, size - 1);
}

struct Case {
  const char* name;
  Reason reason;
  std::function<void(Certificate&)> change;
};

std::string AnyExtension() {
  return der::Extension("1.2.3", "x");
}
std::string Rdns(const std::string& rdns) {
  return der::Sequence(rdns);
}
// A name of one attribute with this value.
std::string NameOf(const std::string& value) {
  return Rdns(der::Set(der::Attribute("CN", value)));
}
std::string Validity(const std::string& not_before) {
  return der::Sequence(not_before, der::Utc("361231235959Z"));
}
std::string AlgorithmWith(const std::string& parameters) {
  return der::Algorithm("1.2.840.113549.1.1.11", parameters);
}

// One line a case, however long: a table to be read down its columns.
// clang-format off
const Case kCertificateCases[] = {
    // Elements.
    {"TagWithoutLength", Reason::kHeaderCutShort, [](Certificate& c) { c.signature = "\x03"; }},
    {"LengthCutShort", Reason::kHeaderCutShort, [](Certificate& c) { c.signature = Z("\x03\x82\x01"); }},
    {"NameInPrimitiveForm", Reason::kNotConstructed, [](Certificate& c) { c.subject[0] = 0x10; }},
    {"RdnInPrimitiveForm", Reason::kNotConstructed, [](Certificate& c) { c.subject[2] = 0x11; }},
    {"ExtensionsInPrimitiveForm", Reason::kNotConstructed, [](Certificate& c) { c.after_extensions = der::Context(3, der::Tlv(0x10, AnyExtension())); }},
    {"HighTagNumberInParameters", Reason::kHighTagNumber, [](Certificate& c) { c.signed_algorithm = AlgorithmWith(Z("\xbf\x1f\x00")); }},
    {"HighTagNumberInName", Reason::kHighTagNumber, [](Certificate& c) { c.subject = NameOf(Z("\x1f\x0c\x00")); }},
    {"IndefiniteLength", Reason::kIndefiniteLength, [](Certificate& c) { c.validity = Z("\x30\x80") + der::Utc("260101000000Z") + der::Utc("270101000000Z") + Z("\x00\x00"); }},
    {"IndefiniteLengthInParameters", Reason::kIndefiniteLength, [](Certificate& c) { c.signed_algorithm = AlgorithmWith(Z("\x30\x80\x00\x00")); }},
    {"ReservedLength", Reason::kReservedLength, [](Certificate& c) { c.serial = Z("\x02\xff\x01"); }},
    {"LengthOfFiveOctets", Reason::kLengthTooLong, [](Certificate& c) { c.serial = der::TlvWithLongLength(0x02, "\x01", 5); }},
    {"LengthOfEightOctets", Reason::kLengthTooLong, [](Certificate& c) { c.serial = der::TlvWithLongLength(0x02, "\x01", 8); }},
    {"LengthOf126Octets", Reason::kLengthTooLong, [](Certificate& c) { c.serial = der::TlvWithLongLength(0x02, "\x01", 126); }},
    {"LongLengthForAShortOne", Reason::kLengthNotMinimal, [](Certificate& c) { c.serial = der::TlvWithLongLength(0x02, "\x01", 1); }},
    {"LengthWithLeadingZero", Reason::kLengthNotMinimal, [](Certificate& c) { c.serial = der::TlvWithLongLength(0x02, std::string(200, 'x'), 2); }},
    {"LengthWithThreeLeadingZeros", Reason::kLengthNotMinimal, [](Certificate& c) { c.serial = der::TlvWithLongLength(0x02, std::string(200, 'x'), 4); }},
    {"ElementLongerThanWhatEnclosesIt", Reason::kContentsCutShort, [](Certificate& c) { c.signature = Z("\x03\x7f\x00"); }},
    {"LengthOf4GiB", Reason::kContentsCutShort, [](Certificate& c) { c.serial = Z("\x02\x84\xff\xff\xff\xff\x01"); }},
    // Values.
    {"BooleanEmpty", Reason::kBooleanLength, [](Certificate& c) { c.Add(der::Extension("1.2.3", "x", der::Tlv(0x01, ""))); }},
    {"BooleanOfTwoOctets", Reason::kBooleanLength, [](Certificate& c) { c.Add(der::Extension("1.2.3", "x", der::Tlv(0x01, "\xff\xff"))); }},
    {"BooleanParameterOfTwoOctets", Reason::kBooleanLength, [](Certificate& c) { c.signed_algorithm = AlgorithmWith(der::Tlv(0x01, "\xff\xff")); }},
    {"IntegerEmpty", Reason::kIntegerEmpty, [](Certificate& c) { c.Serial(""); }},
    {"IntegerWithNineLeadingZeroBits", Reason::kIntegerNotMinimal, [](Certificate& c) { c.Serial(Z("\x00\x7f")); }},
    {"IntegerWithNineLeadingOneBits", Reason::kIntegerNotMinimal, [](Certificate& c) { c.Serial(Z("\xff\x80")); }},
    {"IntegerParameterEmpty", Reason::kIntegerEmpty, [](Certificate& c) { c.signed_algorithm = AlgorithmWith(der::Integer("")); }},
    {"BitStringWithoutInitialOctet", Reason::kBitStringEmpty, [](Certificate& c) { c.signature = der::Tlv(0x03, ""); }},
    {"BitStringWithEightUnusedBits", Reason::kBitStringUnusedBits, [](Certificate& c) { c.signature = der::BitString(Z("\x00"), 8); }},
    {"BitStringEmptyWithUnusedBits", Reason::kBitStringUnusedInEmpty, [](Certificate& c) { c.signature = der::BitString("", 1); }},
    {"BitStringWithUnusedBitsSet", Reason::kBitStringPadding, [](Certificate& c) { c.signature = der::BitString("\x01", 1); }},
    {"BitStringParameterWithUnusedBitsSet", Reason::kBitStringPadding, [](Certificate& c) { c.signed_algorithm = AlgorithmWith(der::BitString("\x01", 1)); }},
    {"NullWithContents", Reason::kNullNotEmpty, [](Certificate& c) { c.signed_algorithm = AlgorithmWith(der::Tlv(0x05, "x")); }},
    {"OidEmpty", Reason::kOidEmpty, [](Certificate& c) { c.signed_algorithm = der::Sequence(der::Tlv(0x06, "")); }},
    {"OidEndsWithinAnArc", Reason::kOidCutShort, [](Certificate& c) { c.signed_algorithm = der::Sequence(der::Tlv(0x06, "\x2a\x86")); }},
    {"OidBeginsWithA80", Reason::kOidNotMinimal, [](Certificate& c) { c.signed_algorithm = der::Sequence(der::Tlv(0x06, "\x80\x2a")); }},
    {"OidArcBeginsWithA80", Reason::kOidNotMinimal, [](Certificate& c) { c.signed_algorithm = der::Sequence(der::Tlv(0x06, "\x2a\x80\x01")); }},
    {"OidOfParametersEmpty", Reason::kOidEmpty, [](Certificate& c) { c.signed_algorithm = AlgorithmWith(der::Tlv(0x06, "")); }},
    {"OidOfAttributeEmpty", Reason::kOidEmpty, [](Certificate& c) { c.subject = Rdns(der::Set(der::Sequence(der::Tlv(0x06, ""), der::Utf8("x")))); }},
    {"OidOfExtensionEmpty", Reason::kOidEmpty, [](Certificate& c) { c.Add(der::Sequence(der::Tlv(0x06, ""), der::OctetString("x"))); }},
    // Times.
    {"UtcTimeWithoutSeconds", Reason::kTimeForm, [](Certificate& c) { c.validity = Validity(der::Utc("2601010000Z")); }},
    {"UtcTimeWithOffset", Reason::kTimeForm, [](Certificate& c) { c.validity = Validity(der::Utc("260101000000+0100")); }},
    {"UtcTimeWithoutZ", Reason::kTimeForm, [](Certificate& c) { c.validity = Validity(der::Utc("2601010000000")); }},
    {"UtcTimeWithLowerCaseZ", Reason::kTimeForm, [](Certificate& c) { c.validity = Validity(der::Utc("260101000000z")); }},
    {"UtcTimeWithASpaceForADigit", Reason::kTimeForm, [](Certificate& c) { c.validity = Validity(der::Utc("260101 00000Z")); }},
    {"UtcTimeWithALetterForADigit", Reason::kTimeForm, [](Certificate& c) { c.validity = Validity(der::Utc("26010100000OZ")); }},
    {"UtcTimeEmpty", Reason::kTimeForm, [](Certificate& c) { c.validity = Validity(der::Utc("")); }},
    {"GeneralizedTimeWithFraction", Reason::kTimeForm, [](Certificate& c) { c.validity = Validity(der::Generalized("20260101000000.5Z")); }},
    {"GeneralizedTimeInTheFormOfUtcTime", Reason::kTimeForm, [](Certificate& c) { c.validity = Validity(der::Generalized("260101000000Z")); }},
    {"UtcTimeInTheFormOfGeneralizedTime", Reason::kTimeForm, [](Certificate& c) { c.validity = Validity(der::Utc("20260101000000Z")); }},
    {"SecondTimeMalformed", Reason::kTimeForm, [](Certificate& c) { c.validity = der::Sequence(der::Utc("260101000000Z"), der::Utc("x")); }},
    {"Month0", Reason::kTimeRange, [](Certificate& c) { c.validity = Validity(der::Utc("260001000000Z")); }},
    {"Month13", Reason::kTimeRange, [](Certificate& c) { c.validity = Validity(der::Utc("261301000000Z")); }},
    {"Day0", Reason::kTimeRange, [](Certificate& c) { c.validity = Validity(der::Utc("260100000000Z")); }},
    {"Day32", Reason::kTimeRange, [](Certificate& c) { c.validity = Validity(der::Utc("260132000000Z")); }},
    {"TheThirtyFirstOfApril", Reason::kTimeRange, [](Certificate& c) { c.validity = Validity(der::Utc("260431000000Z")); }},
    {"TheTwentyNinthOfFebruaryOfACommonYear", Reason::kTimeRange, [](Certificate& c) { c.validity = Validity(der::Utc("260229000000Z")); }},
    {"TheTwentyNinthOfFebruary2100", Reason::kTimeRange, [](Certificate& c) { c.validity = Validity(der::Generalized("21000229000000Z")); }},
    {"Hour24", Reason::kTimeRange, [](Certificate& c) { c.validity = Validity(der::Utc("260101240000Z")); }},
    {"Minute60", Reason::kTimeRange, [](Certificate& c) { c.validity = Validity(der::Utc("260101006000Z")); }},
    {"Second60", Reason::kTimeRange, [](Certificate& c) { c.validity = Validity(der::Utc("260101000060Z")); }},
    // Strings.
    {"NulInUtf8String", Reason::kStringNul, [](Certificate& c) { c.subject = NameOf(der::Utf8(Z("a\0b"))); }},
    {"NulInPrintableString", Reason::kStringNul, [](Certificate& c) { c.subject = NameOf(der::Printable(Z("a\0b"))); }},
    {"NulInT61String", Reason::kStringNul, [](Certificate& c) { c.subject = NameOf(der::Tlv(0x14, Z("a\0b"))); }},
    {"NulInIa5String", Reason::kStringNul, [](Certificate& c) { c.subject = NameOf(der::Ia5(Z("a\0"))); }},
    {"NulInBmpString", Reason::kStringNul, [](Certificate& c) { c.subject = NameOf(der::Tlv(0x1e, Z("\0a\0\0"))); }},
    {"NulInUniversalString", Reason::kStringNul, [](Certificate& c) { c.subject = NameOf(der::Tlv(0x1c, Z("\0\0\0\0"))); }},
    {"NulInTheIssuer", Reason::kStringNul, [](Certificate& c) { c.issuer = NameOf(der::Utf8(Z("\0"))); }},
    {"NumericStringWithLetters", Reason::kNumericStringSet, [](Certificate& c) { c.subject = NameOf(der::Tlv(0x12, "12a")); }},
    {"NumericStringWithAHyphen", Reason::kNumericStringSet, [](Certificate& c) { c.subject = NameOf(der::Tlv(0x12, "1-2")); }},
    {"Ia5StringWithEightBits", Reason::kIa5StringSet, [](Certificate& c) { c.subject = NameOf(der::Ia5("a\x80")); }},
    {"VisibleStringWithAControl", Reason::kVisibleStringSet, [](Certificate& c) { c.subject = NameOf(der::Tlv(0x1a, "a\x1f")); }},
    {"VisibleStringWithDelete", Reason::kVisibleStringSet, [](Certificate& c) { c.subject = NameOf(der::Tlv(0x1a, "a\x7f")); }},
    {"Utf8StringOverlongInTwoOctets", Reason::kUtf8StringForm, [](Certificate& c) { c.subject = NameOf(der::Utf8("\xc1\x81")); }},
    {"Utf8StringOverlongNul", Reason::kUtf8StringForm, [](Certificate& c) { c.subject = NameOf(der::Utf8("\xc0\x80")); }},
    {"Utf8StringOverlongInThreeOctets", Reason::kUtf8StringForm, [](Certificate& c) { c.subject = NameOf(der::Utf8("\xe0\x9f\xbf")); }},
    {"Utf8StringOverlongInFourOctets", Reason::kUtf8StringForm, [](Certificate& c) { c.subject = NameOf(der::Utf8("\xf0\x8f\xbf\xbf")); }},
    {"Utf8StringWithASurrogate", Reason::kUtf8StringForm, [](Certificate& c) { c.subject = NameOf(der::Utf8("\xed\xa0\x80")); }},
    {"Utf8StringAbove10FFFF", Reason::kUtf8StringForm, [](Certificate& c) { c.subject = NameOf(der::Utf8("\xf4\x90\x80\x80")); }},
    {"Utf8StringOfFiveOctets", Reason::kUtf8StringForm, [](Certificate& c) { c.subject = NameOf(der::Utf8("\xf8\x88\x80\x80\x80")); }},
    {"Utf8StringCutShort", Reason::kUtf8StringForm, [](Certificate& c) { c.subject = NameOf(der::Utf8("a\xe2\x82")); }},
    {"Utf8StringWithALoneContinuation", Reason::kUtf8StringForm, [](Certificate& c) { c.subject = NameOf(der::Utf8("a\x80")); }},
    {"Utf8StringWithABrokenContinuation", Reason::kUtf8StringForm, [](Certificate& c) { c.subject = NameOf(der::Utf8("\xe2\x82\x41")); }},
    {"BmpStringOfOddLength", Reason::kBmpStringLength, [](Certificate& c) { c.subject = NameOf(der::Tlv(0x1e, Z("\0a\0"))); }},
    {"BmpStringWithASurrogatePair", Reason::kBmpStringSurrogate, [](Certificate& c) { c.subject = NameOf(der::Tlv(0x1e, "\xd8\x3d\xde\x42")); }},
    {"BmpStringWithALoneSurrogate", Reason::kBmpStringSurrogate, [](Certificate& c) { c.subject = NameOf(der::Tlv(0x1e, Z("\xdc\x00"))); }},
    {"UniversalStringOfSixOctets", Reason::kUniversalStringLength, [](Certificate& c) { c.subject = NameOf(der::Tlv(0x1c, Z("\0\0\0a\0\0"))); }},
    {"UniversalStringAbove10FFFF", Reason::kUniversalStringRange, [](Certificate& c) { c.subject = NameOf(der::Tlv(0x1c, Z("\0\x11\0\0"))); }},
    {"UniversalStringWithASurrogate", Reason::kUniversalStringRange, [](Certificate& c) { c.subject = NameOf(der::Tlv(0x1c, Z("\0\0\xd8\0"))); }},
    // The certificate.
    {"OtherOctetsAfterTheCertificate", Reason::kTrailingOctets, [](Certificate& c) { c.padding = "x"; }},
    {"ZerosThenFFAfterTheCertificate", Reason::kTrailingOctets, [](Certificate& c) { c.padding = Z("\x00\x00\xff"); }},
    {"FFThenZerosAfterTheCertificate", Reason::kTrailingOctets, [](Certificate& c) { c.padding = Z("\xff\xff\x00"); }},
    {"ASecondCertificate", Reason::kTrailingOctets, [](Certificate& c) { c.padding = Certificate().Der(); }},
    {"VersionIsNoInteger", Reason::kVersionType, [](Certificate& c) { c.version = der::Context(0, der::OctetString("\x02")); }},
    {"VersionEmpty", Reason::kVersionType, [](Certificate& c) { c.version = der::Context(0, ""); }},
    {"VersionCutShort", Reason::kHeaderCutShort, [](Certificate& c) { c.version = der::Context(0, "\x02"); }},
    {"VersionLongerThanTheCertificate", Reason::kContentsCutShort, [](Certificate& c) { c.version = Z("\xa0\x84\x7f\xff\xff\xff"); }},
    {"OctetsAfterTheVersion", Reason::kVersionTrailing, [](Certificate& c) { c.version = der::Context(0, der::Integer("\x02") + der::Null()); }},
    {"VersionOneWrittenOut", Reason::kVersionDefault, [](Certificate& c) { c.version = der::Context(0, der::Integer(Z("\x00"))); }},
    {"VersionFour", Reason::kVersionUnknown, [](Certificate& c) { c.version = der::Context(0, der::Integer("\x03")); }},
    {"VersionNegative", Reason::kVersionUnknown, [](Certificate& c) { c.version = der::Context(0, der::Integer("\xff")); }},
    {"VersionOfManyOctets", Reason::kVersionUnknown, [](Certificate& c) { c.version = der::Context(0, der::Integer(Z("\x01\x00\x00\x00\x02"))); }},
    {"VersionIntegerEmpty", Reason::kIntegerEmpty, [](Certificate& c) { c.version = der::Context(0, der::Integer("")); }},
    {"VersionTwice", Reason::kSerialType, [](Certificate& c) { c.version += c.version; }},
    {"SerialMissing", Reason::kSerialType, [](Certificate& c) { c.serial = ""; }},
    {"SerialIsNoInteger", Reason::kSerialType, [](Certificate& c) { c.serial = der::OctetString("\x01"); }},
    {"SerialTwice", Reason::kAlgorithmType, [](Certificate& c) { c.serial += c.serial; }},
    {"SignedAlgorithmMissing", Reason::kAlgorithmOidType, [](Certificate& c) { c.outer_algorithm = c.signed_algorithm; c.signed_algorithm = ""; }},
    {"SignedAlgorithmIsNoSequence", Reason::kAlgorithmType, [](Certificate& c) { c.signed_algorithm = der::Null(); }},
    {"SignedAlgorithmTwice", Reason::kRdnType, [](Certificate& c) { c.outer_algorithm = c.signed_algorithm; c.signed_algorithm += c.signed_algorithm; }},
    {"AlgorithmEmpty", Reason::kAlgorithmOidType, [](Certificate& c) { c.signed_algorithm = der::Sequence(); }},
    {"AlgorithmWithoutOid", Reason::kAlgorithmOidType, [](Certificate& c) { c.signed_algorithm = der::Sequence(der::Null()); }},
    {"AlgorithmOidCutShort", Reason::kContentsCutShort, [](Certificate& c) { c.signed_algorithm = der::Sequence(Z("\x06\x7f\x2a")); }},
    {"OctetsAfterTheParameters", Reason::kAlgorithmTrailing, [](Certificate& c) { c.signed_algorithm = AlgorithmWith(der::Null() + der::Null()); }},
    {"ParametersOfATypeThatNoneHas", Reason::kOpaqueType, [](Certificate& c) { c.signed_algorithm = AlgorithmWith(der::Utf8("x")); }},
    {"ParametersOfEndOfContents", Reason::kOpaqueType, [](Certificate& c) { c.signed_algorithm = AlgorithmWith(Z("\x00\x00")); }},
    {"ParametersOfConstructedInteger", Reason::kConstructed, [](Certificate& c) { c.signed_algorithm = AlgorithmWith(der::Tlv(0x22, der::Integer("\x01"))); }},
    {"ParametersCutShort", Reason::kContentsCutShort, [](Certificate& c) { c.signed_algorithm = AlgorithmWith(Z("\x05\x01")); }},
    {"IssuerMissing", Reason::kRdnType, [](Certificate& c) { c.issuer = ""; }},
    {"IssuerIsNoSequence", Reason::kNameType, [](Certificate& c) { c.issuer = der::Set(); }},
    {"IssuerTwice", Reason::kTimeType, [](Certificate& c) { c.issuer += c.issuer; }},
    {"ValidityMissing", Reason::kTimeType, [](Certificate& c) { c.validity = ""; }},
    {"ValidityIsNoSequence", Reason::kValidityType, [](Certificate& c) { c.validity = der::Null(); }},
    {"ValidityEmpty", Reason::kTimeType, [](Certificate& c) { c.validity = der::Sequence(); }},
    {"ValidityOfOneTime", Reason::kTimeType, [](Certificate& c) { c.validity = der::Sequence(der::Utc("260101000000Z")); }},
    {"ValidityOfThreeTimes", Reason::kValidityTrailing, [](Certificate& c) { c.validity = der::Sequence(der::Utc("260101000000Z"), der::Utc("260101000000Z"), der::Utc("260101000000Z")); }},
    {"ValidityTwice", Reason::kRdnType, [](Certificate& c) { c.validity += c.validity; }},
    {"TimeOfAnotherType", Reason::kTimeType, [](Certificate& c) { c.validity = Validity(der::Printable("260101000000Z")); }},
    {"SubjectMissing", Reason::kRdnType, [](Certificate& c) { c.subject = ""; }},
    {"SubjectIsNoSequence", Reason::kNameType, [](Certificate& c) { c.subject = der::Null(); }},
    {"SubjectTwice", Reason::kAlgorithmType, [](Certificate& c) { c.subject += c.subject; }},
    {"KeyMissing", Reason::kKeyInfoType, [](Certificate& c) { c.public_key = ""; }},
    {"KeyIsNoSequence", Reason::kKeyInfoType, [](Certificate& c) { c.public_key = der::Null(); }},
    {"KeyTwice", Reason::kTbsTrailing, [](Certificate& c) { c.public_key += c.public_key; }},
    {"KeyWithoutAlgorithm", Reason::kAlgorithmType, [](Certificate& c) { c.public_key = der::Sequence(der::BitString("x")); }},
    {"KeyWithoutBitString", Reason::kKeyType, [](Certificate& c) { c.public_key = der::Sequence(der::RsaSha256()); }},
    {"KeyInAnOctetString", Reason::kKeyType, [](Certificate& c) { c.public_key = der::Sequence(der::RsaSha256(), der::OctetString("x")); }},
    {"KeyInAConstructedBitString", Reason::kConstructed, [](Certificate& c) { c.public_key = der::Sequence(der::RsaSha256(), der::Tlv(0x23, der::BitString("x"))); }},
    {"KeyWithUnusedBits", Reason::kKeyUnusedBits, [](Certificate& c) { c.public_key = der::Sequence(der::RsaSha256(), der::BitString("\x02", 1)); }},
    {"KeyWithUnusedBitsSet", Reason::kBitStringPadding, [](Certificate& c) { c.public_key = der::Sequence(der::RsaSha256(), der::BitString("\x01", 1)); }},
    {"OctetsAfterTheKey", Reason::kKeyInfoTrailing, [](Certificate& c) { c.public_key = der::Sequence(der::RsaSha256(), der::BitString("x"), der::Null()); }},
    {"UniqueIdInVersionOne", Reason::kUniqueIdInV1, [](Certificate& c) { c.version = ""; c.subject_unique_id = der::Tlv(0x82, Z("\x00x")); }},
    {"UniqueIdEmpty", Reason::kBitStringEmpty, [](Certificate& c) { c.issuer_unique_id = der::Tlv(0x81, ""); }},
    {"UniqueIdCutShort", Reason::kContentsCutShort, [](Certificate& c) { c.issuer_unique_id = Z("\x81\x84\x7f\xff\xff\xff"); }},
    {"UniqueIdConstructed", Reason::kConstructed, [](Certificate& c) { c.issuer_unique_id = der::Tlv(0xa1, der::BitString("x")); }},
    {"UniqueIdsOutOfOrder", Reason::kTbsTrailing, [](Certificate& c) { c.issuer_unique_id = der::Tlv(0x82, Z("\x00x")); c.subject_unique_id = der::Tlv(0x81, Z("\x00x")); }},
    {"UniqueIdAfterTheExtensions", Reason::kTbsTrailing, [](Certificate& c) { c.Ca(true); c.after_extensions = der::Tlv(0x81, Z("\x00x")); }},
    {"OctetsAfterTheLastField", Reason::kTbsTrailing, [](Certificate& c) { c.Ca(true); c.after_extensions = der::Null(); }},
    {"OuterAlgorithmIsNoSequence", Reason::kAlgorithmType, [](Certificate& c) { c.outer_algorithm = der::Null(); }},
    {"OuterAlgorithmMissing", Reason::kAlgorithmType, [](Certificate& c) { c.outer_algorithm = c.signature; c.signature = ""; }},
    {"OuterAlgorithmTwice", Reason::kSignatureType, [](Certificate& c) { c.outer_algorithm = c.signed_algorithm + c.signed_algorithm; }},
    {"OuterAlgorithmOfAnotherOid", Reason::kAlgorithmsDiffer, [](Certificate& c) { c.outer_algorithm = der::Algorithm("1.2.840.113549.1.1.5"); }},
    {"OuterAlgorithmOfALongerOid", Reason::kAlgorithmsDiffer, [](Certificate& c) { c.outer_algorithm = der::Algorithm("1.2.840.113549.1.1.11.1"); }},
    {"OuterAlgorithmWithoutParameters", Reason::kAlgorithmsDiffer, [](Certificate& c) { c.outer_algorithm = AlgorithmWith(""); }},
    {"OuterAlgorithmWithOtherParameters", Reason::kAlgorithmsDiffer, [](Certificate& c) { c.signed_algorithm = AlgorithmWith(der::OctetString("a")); c.outer_algorithm = AlgorithmWith(der::OctetString("b")); }},
    {"SignatureMissing", Reason::kSignatureType, [](Certificate& c) { c.signature = ""; }},
    {"SignatureIsNoBitString", Reason::kSignatureType, [](Certificate& c) { c.signature = der::OctetString("x"); }},
    {"SignatureWithUnusedBits", Reason::kSignatureUnusedBits, [](Certificate& c) { c.signature = der::BitString("\x02", 1); }},
    {"SignatureTwice", Reason::kCertificateTrailing, [](Certificate& c) { c.after_signature = c.signature; }},
    // Names.
    {"RdnIsNoSet", Reason::kRdnType, [](Certificate& c) { c.subject = Rdns(der::Sequence(der::Attribute("CN", der::Utf8("x")))); }},
    {"RdnEmpty", Reason::kRdnEmpty, [](Certificate& c) { c.subject = Rdns(der::Set()); }},
    {"RdnEmptyBehindAnother", Reason::kRdnEmpty, [](Certificate& c) { c.subject = Rdns(der::Set(der::Attribute("CN", der::Utf8("x"))) + der::Set()); }},
    {"RdnCutShort", Reason::kContentsCutShort, [](Certificate& c) { c.subject = Rdns(Z("\x31\x7f\x30")); }},
    {"RdnAttributesOutOfOrder", Reason::kRdnOrder, [](Certificate& c) { c.subject = Rdns(der::Set(der::Attribute("O", der::Utf8("x")), der::Attribute("CN", der::Utf8("x")))); }},
    {"RdnLongerAttributeFirst", Reason::kRdnOrder, [](Certificate& c) { c.subject = Rdns(der::Set(der::Attribute("CN", der::Utf8("xx")), der::Attribute("O", der::Utf8("x")))); }},
    {"AttributeIsNoSequence", Reason::kAttributeType, [](Certificate& c) { c.subject = Rdns(der::Set(der::Set(der::Oid("2.5.4.3"), der::Utf8("x")))); }},
    {"AttributeCutShort", Reason::kContentsCutShort, [](Certificate& c) { c.subject = Rdns(der::Set(Z("\x30\x7f\x06"))); }},
    {"AttributeEmpty", Reason::kAttributeOidType, [](Certificate& c) { c.subject = Rdns(der::Set(der::Sequence())); }},
    {"AttributeWithoutOid", Reason::kAttributeOidType, [](Certificate& c) { c.subject = Rdns(der::Set(der::Sequence(der::Utf8("x")))); }},
    {"AttributeOidCutShort", Reason::kContentsCutShort, [](Certificate& c) { c.subject = Rdns(der::Set(der::Sequence(Z("\x06\x7f\x55")))); }},
    {"AttributeWithoutValue", Reason::kHeaderCutShort, [](Certificate& c) { c.subject = NameOf(""); }},
    {"AttributeWithTwoValues", Reason::kAttributeTrailing, [](Certificate& c) { c.subject = NameOf(der::Utf8("x") + der::Utf8("y")); }},
    {"AttributeValueOfAnInteger", Reason::kAttributeValueType, [](Certificate& c) { c.subject = NameOf(der::Integer("\x01")); }},
    {"AttributeValueOfAnOctetString", Reason::kAttributeValueType, [](Certificate& c) { c.subject = NameOf(der::OctetString("x")); }},
    {"AttributeValueOfASet", Reason::kAttributeValueType, [](Certificate& c) { c.subject = NameOf(der::Set()); }},
    {"AttributeValueOfATime", Reason::kAttributeValueType, [](Certificate& c) { c.subject = NameOf(der::Utc("260101000000Z")); }},
    {"AttributeValueOfAConstructedString", Reason::kConstructed, [](Certificate& c) { c.subject = NameOf(der::Tlv(0x2c, der::Utf8("x"))); }},
    {"AttributeValueOfAContextTag", Reason::kAttributeValueType, [](Certificate& c) { c.subject = NameOf(der::Tlv(0x8c, "x")); }},
    {"AttributeBitStringWithUnusedBitsSet", Reason::kBitStringPadding, [](Certificate& c) { c.subject = NameOf(der::BitString("\x01", 1)); }},
    // Extensions.
    {"ExtensionsInVersionOne", Reason::kExtensionsVersion, [](Certificate& c) { c.version = ""; c.Ca(true); }},
    {"ExtensionsInVersionTwo", Reason::kExtensionsVersion, [](Certificate& c) { c.version = der::Context(0, der::Integer("\x01")); c.Ca(true); }},
    {"ExtensionsAreNoSequence", Reason::kExtensionsType, [](Certificate& c) { c.after_extensions = der::Context(3, der::Set(AnyExtension())); }},
    {"ExtensionsWithoutList", Reason::kExtensionsType, [](Certificate& c) { c.after_extensions = der::Context(3, ""); }},
    {"ExtensionsCutShort", Reason::kContentsCutShort, [](Certificate& c) { c.after_extensions = Z("\xa3\x7f\x30"); }},
    {"ExtensionListCutShort", Reason::kContentsCutShort, [](Certificate& c) { c.after_extensions = der::Context(3, Z("\x30\x7f\x30")); }},
    {"ExtensionsEmpty", Reason::kExtensionsEmpty, [](Certificate& c) { c.after_extensions = der::Context(3, der::Sequence()); }},
    {"ExtensionsTwice", Reason::kTbsTrailing, [](Certificate& c) { c.Ca(true); c.after_extensions = der::Context(3, der::Sequence(AnyExtension())); }},
    {"OctetsAfterTheExtensions", Reason::kExtensionsTrailing, [](Certificate& c) { c.after_extensions = der::Context(3, der::Sequence(AnyExtension()) + der::Null()); }},
    {"ExtensionIsNoSequence", Reason::kExtensionType, [](Certificate& c) { c.Add(der::Set(der::Oid("1.2.3"), der::OctetString("x"))); }},
    {"ExtensionEmpty", Reason::kExtensionOidType, [](Certificate& c) { c.Add(der::Sequence()); }},
    {"ExtensionWithoutOid", Reason::kExtensionOidType, [](Certificate& c) { c.Add(der::Sequence(der::OctetString("x"))); }},
    {"ExtensionWithoutValue", Reason::kExtensionValueType, [](Certificate& c) { c.Add(der::Sequence(der::Oid("1.2.3"))); }},
    {"ExtensionWithAFlagAlone", Reason::kExtensionValueType, [](Certificate& c) { c.Add(der::Sequence(der::Oid("1.2.3"), der::Boolean(0xff))); }},
    {"ExtensionWithTwoFlags", Reason::kExtensionValueType, [](Certificate& c) { c.Add(der::Sequence(der::Oid("1.2.3"), der::Boolean(0xff), der::Boolean(0xff), der::OctetString("x"))); }},
    {"ExtensionFlagCutShort", Reason::kContentsCutShort, [](Certificate& c) { c.Add(der::Sequence(der::Oid("1.2.3"), Z("\x01\x7f"))); }},
    {"ExtensionValueConstructed", Reason::kConstructed, [](Certificate& c) { c.Add(der::Sequence(der::Oid("1.2.3"), der::Tlv(0x24, der::OctetString("x")))); }},
    {"OctetsAfterTheValueOfAnExtension", Reason::kExtensionTrailing, [](Certificate& c) { c.Add(der::Sequence(der::Oid("1.2.3"), der::OctetString("x"), der::Null())); }},
    {"ExtensionDuplicate", Reason::kExtensionDuplicate, [](Certificate& c) { c.Ca(true).KeyUsage(4).Ca(true); }},
    {"ExtensionDuplicateNextToEachOther", Reason::kExtensionDuplicate, [](Certificate& c) { c.Add(AnyExtension()).Add(AnyExtension()); }},
};
// clang-format on

struct NameOfCase {
  template <typename Info>
  std::string operator()(const Info& info) const {
    return info.param.name;
  }
};

void PrintTo(const Case& one, std::ostream* out) {
  *out << one.name;
}

class RefusedCertificate : public testing::TestWithParam<Case> {};

TEST_P(RefusedCertificate, HasItsOwnReason) {
  Certificate certificate;
  GetParam().change(certificate);
  const std::string der = certificate.Der();
  const Parsed parsed(der);
  EXPECT_EQ(parsed.code(), CodeOf(GetParam().reason)) << cert_error_text(parsed.code());
  EXPECT_EQ(CompareWithOpenssl(der).violation, "");
}

INSTANTIATE_TEST_SUITE_P(Cases, RefusedCertificate, testing::ValuesIn(kCertificateCases),
                         NameOfCase());

struct InputCase {
  const char* name;
  Reason reason;
  std::string input;
};

const InputCase kInputCases[] = {
    {"Nothing", Reason::kCertificateType, ""},
    {"Text", Reason::kCertificateType, "-----BEGIN CERTIFICATE-----"},
    {"OneOctet", Reason::kHeaderCutShort, "\x30"},
    {"Zeros", Reason::kCertificateType, std::string(100, '\0')},
    {"AnEmptySequence", Reason::kTbsType, Z("\x30\x00")},
    {"TbsIsNoSequence", Reason::kTbsType, der::Sequence(der::Set())},
    {"TbsCutShort", Reason::kContentsCutShort, der::Sequence(Z("\x30\x7f\x02"))},
    {"TbsEmpty", Reason::kSerialType, der::Sequence(der::Sequence())},
    {"LengthOf4GiB", Reason::kContentsCutShort, Z("\x30\x84\xff\xff\xff\xff\x30")},
    {"LengthOneMoreThanThereIs", Reason::kContentsCutShort, Z("\x30\x03\x02\x01")},
    {"IndefiniteLength", Reason::kIndefiniteLength, Z("\x30\x80\x00\x00")},
    {"ReservedLength", Reason::kReservedLength, "\x30" + std::string(200, '\xff')},
};

void PrintTo(const InputCase& one, std::ostream* out) {
  *out << one.name;
}

class RefusedInput : public testing::TestWithParam<InputCase> {};

TEST_P(RefusedInput, HasItsOwnReason) {
  const Parsed parsed(GetParam().input);
  EXPECT_EQ(parsed.code(), CodeOf(GetParam().reason)) << cert_error_text(parsed.code());
  EXPECT_EQ(CompareWithOpenssl(GetParam().input).violation, "");
}

INSTANTIATE_TEST_SUITE_P(Cases, RefusedInput, testing::ValuesIn(kInputCases), NameOfCase());

// Certificates that parse, and one question that they cannot answer.
struct QuestionCase {
  const char* name;
  Reason reason;
  std::function<void(Certificate&)> change;
  int (*ask)(const Parsed&);
};

int AskIsCa(const Parsed& parsed) {
  return -parsed.IsCa();
}
int AskKeyUsage(const Parsed& parsed) {
  EXPECT_EQ(parsed.KeyUsage(), 0);
  return parsed.KeyUsageCode();
}
int AskRsa(const Parsed& parsed) {
  return parsed.Modulus().code;
}
int AskSubject(const Parsed& parsed) {
  return parsed.Subject().code;
}
int AskCommonName(const Parsed& parsed) {
  return parsed.SubjectAttr("CN").code;
}

std::string BasicConstraintsValue(const std::string& value) {
  return der::Extension("2.5.29.19", value);
}
std::string RsaKeyOf(const std::string& key) {
  return der::PublicKey(der::Algorithm("1.2.840.113549.1.1.1"), key);
}

// clang-format off
const QuestionCase kQuestionCases[] = {
    {"BasicConstraintsEmptyValue", Reason::kBasicConstraintsType, [](Certificate& c) { c.Add(BasicConstraintsValue("")); }, AskIsCa},
    {"BasicConstraintsNoSequence", Reason::kBasicConstraintsType, [](Certificate& c) { c.Add(BasicConstraintsValue(der::Boolean(0xff))); }, AskIsCa},
    {"BasicConstraintsCutShort", Reason::kContentsCutShort, [](Certificate& c) { c.Add(BasicConstraintsValue(Z("\x30\x03\x01\x01"))); }, AskIsCa},
    {"BasicConstraintsFlagCutShort", Reason::kContentsCutShort, [](Certificate& c) { c.Add(BasicConstraintsValue(der::Sequence(Z("\x01\x02\xff")))); }, AskIsCa},
    {"BasicConstraintsFlagEmpty", Reason::kBooleanLength, [](Certificate& c) { c.Add(BasicConstraintsValue(der::Sequence(der::Tlv(0x01, "")))); }, AskIsCa},
    {"OctetsAfterTheBasicConstraints", Reason::kBasicConstraintsTrailing, [](Certificate& c) { c.Add(BasicConstraintsValue(der::Sequence(der::Boolean(0xff)) + der::Null())); }, AskIsCa},
    {"OctetsWithinTheBasicConstraints", Reason::kBasicConstraintsTrailing, [](Certificate& c) { c.Add(der::BasicConstraints(der::Boolean(0xff) + der::Integer("\x01") + der::Null())); }, AskIsCa},
    {"BasicConstraintsWithAnotherType", Reason::kPathLengthType, [](Certificate& c) { c.Add(der::BasicConstraints(der::Boolean(0xff) + der::Null())); }, AskIsCa},
    {"PathLengthCutShort", Reason::kContentsCutShort, [](Certificate& c) { c.Add(der::BasicConstraints(der::Boolean(0xff) + Z("\x02\x02\x01"))); }, AskIsCa},
    {"PathLengthEmpty", Reason::kIntegerEmpty, [](Certificate& c) { c.Add(der::BasicConstraints(der::Boolean(0xff) + der::Integer(""))); }, AskIsCa},
    {"PathLengthNegative", Reason::kPathLengthNegative, [](Certificate& c) { c.Add(der::BasicConstraints(der::Boolean(0xff) + der::Integer("\xff"))); }, AskIsCa},
    {"KeyUsageEmptyValue", Reason::kKeyUsageType, [](Certificate& c) { c.Add(der::KeyUsageExtension("")); }, AskKeyUsage},
    {"KeyUsageNoBitString", Reason::kKeyUsageType, [](Certificate& c) { c.Add(der::KeyUsageExtension(der::OctetString("\x80"))); }, AskKeyUsage},
    {"KeyUsageCutShort", Reason::kContentsCutShort, [](Certificate& c) { c.Add(der::KeyUsageExtension(Z("\x03\x02\x07"))); }, AskKeyUsage},
    {"KeyUsageWithoutInitialOctet", Reason::kBitStringEmpty, [](Certificate& c) { c.Add(der::KeyUsageExtension(der::Tlv(0x03, ""))); }, AskKeyUsage},
    {"KeyUsageWithEightUnusedBits", Reason::kBitStringUnusedBits, [](Certificate& c) { c.Add(der::KeyUsageExtension(der::BitString("\x80", 8))); }, AskKeyUsage},
    {"KeyUsageEmptyWithUnusedBits", Reason::kBitStringUnusedInEmpty, [](Certificate& c) { c.Add(der::KeyUsageExtension(der::BitString("", 7))); }, AskKeyUsage},
    {"KeyUsageWithUnusedBitsSet", Reason::kBitStringPadding, [](Certificate& c) { c.Add(der::KeyUsageExtension(der::BitString("\x81", 7))); }, AskKeyUsage},
    {"OctetsAfterTheKeyUsage", Reason::kKeyUsageTrailing, [](Certificate& c) { c.Add(der::KeyUsageExtension(der::KeyUsageBits(128) + der::Null())); }, AskKeyUsage},
    {"EcKey", Reason::kNotRsa, [](Certificate& c) { c.Ec(); }, AskRsa},
    {"Ed25519Key", Reason::kNotRsa, [](Certificate& c) { c.public_key = der::PublicKey(der::Algorithm("1.3.101.112", ""), std::string(32, 'k')); }, AskRsa},
    {"DsaKey", Reason::kNotRsa, [](Certificate& c) { c.public_key = der::PublicKey(der::Algorithm("1.2.840.10040.4.1", der::Sequence(der::Unsigned("\xc1"), der::Unsigned("\x0b"), der::Unsigned("\x04"))), der::Unsigned("\x03")); }, AskRsa},
    {"GostKey", Reason::kNotRsa, [](Certificate& c) { c.public_key = der::PublicKey(der::Algorithm("1.2.643.7.1.1.1.1", der::Sequence(der::Oid("1.2.643.2.2.36.0"), der::Oid("1.2.643.7.1.1.2.2"))), der::OctetString(std::string(64, 'k'))); }, AskRsa},
    {"Sm2Key", Reason::kNotRsa, [](Certificate& c) { c.public_key = der::PublicKey(der::Algorithm("1.2.840.10045.2.1", der::Oid("1.2.156.10197.1.301")), "\x04" + std::string(64, 'k')); }, AskRsa},
    {"MlDsaKey", Reason::kNotRsa, [](Certificate& c) { c.public_key = der::PublicKey(der::Algorithm("2.16.840.1.101.3.4.3.17", ""), std::string(1312, 'k')); }, AskRsa},
    {"RsaPssKey", Reason::kNotRsa, [](Certificate& c) { c.public_key = der::PublicKey(der::Algorithm("1.2.840.113549.1.1.10", ""), der::Sequence(der::Unsigned("\xc1"), der::Unsigned("\x03"))); }, AskRsa},
    {"KeyOfALongerOidThanRsa", Reason::kNotRsa, [](Certificate& c) { c.public_key = der::PublicKey(der::Algorithm("1.2.840.113549.1.1.1.1"), der::Sequence(der::Unsigned("\xc1"), der::Unsigned("\x03"))); }, AskRsa},
    {"RsaKeyWithOtherParameters", Reason::kRsaParameters, [](Certificate& c) { c.public_key = der::PublicKey(der::Algorithm("1.2.840.113549.1.1.1", der::Sequence()), der::Sequence(der::Unsigned("\xc1"), der::Unsigned("\x03"))); }, AskRsa},
    {"RsaKeyEmpty", Reason::kRsaKeyType, [](Certificate& c) { c.public_key = RsaKeyOf(""); }, AskRsa},
    {"RsaKeyNoSequence", Reason::kRsaKeyType, [](Certificate& c) { c.public_key = RsaKeyOf(der::Set(der::Unsigned("\xc1"), der::Unsigned("\x03"))); }, AskRsa},
    {"RsaKeyCutShort", Reason::kContentsCutShort, [](Certificate& c) { c.public_key = RsaKeyOf(Z("\x30\x05\x02\x01\x01")); }, AskRsa},
    {"OctetsAfterTheRsaKey", Reason::kRsaKeyTrailing, [](Certificate& c) { c.public_key = RsaKeyOf(der::Sequence(der::Unsigned("\xc1"), der::Unsigned("\x03")) + der::Null()); }, AskRsa},
    {"OctetsWithinTheRsaKey", Reason::kRsaKeyTrailing, [](Certificate& c) { c.public_key = RsaKeyOf(der::Sequence(der::Unsigned("\xc1"), der::Unsigned("\x03"), der::Null())); }, AskRsa},
    {"RsaKeyWithoutExponent", Reason::kRsaIntegerType, [](Certificate& c) { c.public_key = RsaKeyOf(der::Sequence(der::Unsigned("\xc1"))); }, AskRsa},
    {"RsaKeyWithoutIntegers", Reason::kRsaIntegerType, [](Certificate& c) { c.public_key = RsaKeyOf(der::Sequence()); }, AskRsa},
    {"RsaModulusCutShort", Reason::kContentsCutShort, [](Certificate& c) { c.public_key = RsaKeyOf(der::Sequence(Z("\x02\x02\x01"))); }, AskRsa},
    {"RsaModulusEmpty", Reason::kIntegerEmpty, [](Certificate& c) { c.public_key = RsaKeyOf(der::Sequence(der::Integer(""), der::Unsigned("\x03"))); }, AskRsa},
    {"RsaModulusNotMinimal", Reason::kIntegerNotMinimal, [](Certificate& c) { c.public_key = RsaKeyOf(der::Sequence(der::Integer(Z("\x00\x00\xc1")), der::Unsigned("\x03"))); }, AskRsa},
    {"RsaModulusNegative", Reason::kRsaNotPositive, [](Certificate& c) { c.public_key = RsaKeyOf(der::Sequence(der::Integer("\xc1\x01"), der::Unsigned("\x03"))); }, AskRsa},
    {"RsaExponentNegative", Reason::kRsaNotPositive, [](Certificate& c) { c.public_key = RsaKeyOf(der::Sequence(der::Unsigned("\xc1"), der::Integer("\x81"))); }, AskRsa},
    {"RsaModulusZero", Reason::kRsaNotPositive, [](Certificate& c) { c.public_key = RsaKeyOf(der::Sequence(der::Unsigned(""), der::Unsigned("\x03"))); }, AskRsa},
    {"RsaExponentZero", Reason::kRsaNotPositive, [](Certificate& c) { c.public_key = RsaKeyOf(der::Sequence(der::Unsigned("\xc1"), der::Unsigned(""))); }, AskRsa},
    {"AttributeTypeWithAnArcOfTwentyOctets", Reason::kOidArcTooLarge, [](Certificate& c) { c.subject = Rdns(der::Set(der::Sequence(der::Tlv(0x06, "\x2a" + std::string(19, '\x81') + "\x01"), der::Utf8("x")))); }, AskSubject},
    {"AttributeOfBits", Reason::kAttributeNotText, [](Certificate& c) { c.subject = NameOf(der::BitString("x")); }, AskCommonName},
    {"AttributeOfASequence", Reason::kAttributeNotText, [](Certificate& c) { c.subject = NameOf(der::Sequence(der::Utf8("x"))); }, AskCommonName},
};
// clang-format on

void PrintTo(const QuestionCase& one, std::ostream* out) {
  *out << one.name;
}

class RefusedQuestion : public testing::TestWithParam<QuestionCase> {};

TEST_P(RefusedQuestion, HasItsOwnReason) {
  Certificate certificate;
  GetParam().change(certificate);
  const std::string der = certificate.Der();
  const Parsed parsed(der);
  ASSERT_EQ(parsed.code(), 0) << cert_error_text(parsed.code());
  const int code = GetParam().ask(parsed);
  EXPECT_EQ(code, CodeOf(GetParam().reason)) << cert_error_text(code);
  EXPECT_EQ(CompareWithOpenssl(der).violation, "");
}

INSTANTIATE_TEST_SUITE_P(Cases, RefusedQuestion, testing::ValuesIn(kQuestionCases), NameOfCase());

TEST(Reasons, AreAllProvoked) {
  std::set<Reason> provoked;
  for (const Case& one : kCertificateCases)
    provoked.insert(one.reason);
  for (const InputCase& one : kInputCases)
    provoked.insert(one.reason);
  for (const QuestionCase& one : kQuestionCases)
    provoked.insert(one.reason);
  // Those of a call, which have tests of their own.
  provoked.insert({Reason::kInvalidArgument, Reason::kOutOfMemory, Reason::kNothingParsed,
                   Reason::kInputTooLarge, Reason::kBufferTooSmall});
#define REASON(enumerator, number, sentence) \
  EXPECT_EQ(provoked.count(Reason::enumerator), 1U) << (sentence);
#include "host/x509/reasons.def"
#undef REASON
}

TEST(Reasons, EachHaveASentenceOfTheirOwn) {
  std::set<std::string> sentences;
#define REASON(enumerator, number, sentence)                          \
  EXPECT_STREQ(cert_error_text(number), sentence);                    \
  EXPECT_STREQ(cert_error_text(-(number)), sentence) << "cert_is_ca"; \
  EXPECT_TRUE(sentences.insert(sentence).second) << (sentence);
#include "host/x509/reasons.def"
#undef REASON
}

TEST(Reasons, AreAllDocumentedWithTheirNumbers) {
  std::ifstream file(CARDCERT_DOCS_FOLDER "/certificates.md");
  const std::string text(std::istreambuf_iterator<char>(file), {});
  ASSERT_FALSE(text.empty());
  const auto expect_row = [&](Reason reason, const std::string& sentence) {
    const std::string row = "| " + std::to_string(CodeOf(reason)) + " | " + sentence + " |";
    EXPECT_NE(text.find(row), std::string::npos) << row;
  };
#define REASON(enumerator, number, sentence) expect_row(Reason::enumerator, sentence);
#include "host/x509/reasons.def"
#undef REASON
}

TEST(Reasons, OtherCodesHaveASentenceToo) {
  EXPECT_STREQ(cert_error_text(0), "success");
  EXPECT_STREQ(cert_error_text(-2), "the certificate has no such attribute or extension");
  for (const int code : {1, 2, -1, 9, 9999, 2147483647, -2147483647 - 1})
    EXPECT_STREQ(cert_error_text(code), "no code of this library");
}

}  // namespace
