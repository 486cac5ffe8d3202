// What the component reports in its log, as values. Some facts reach a host only there: that the
// next PIN is the last try, why a certificate is not listed, in which slot Sign() found the
// certificate. This is the only place that knows the texts.
#pragma once

#include <p11-kit/pkcs11.h>

#include <string>
#include <vector>

namespace cardcert::cli {

// In brackets: the fields of ComponentEvent that are set.
enum class ComponentEventKind {
  kOther,  // a line that the program shows or writes to the log, and nothing more

  // Open()
  kLoadFailed,        // [text: path] the loader's own explanation follows as kOther
  kNotAProvider,      // [text: path] the library has no C_GetFunctionList
  kInitializeFailed,  // [text: path, rv]
  kGetInfoFailed,     // [text: path, rv] the provider was loaded all the same

  // SetNameComponents() and AddFilter()
  kNameSpecificationInvalid,  // the whole specification
  kFilterInvalid,             // the whole filter
  kElementInvalid,            // [text] one element of a specification or a filter
  kNameCategoryUnknown,       // [text]

  // A walk over the certificates, in the order in which the lines come.
  kSlotInfoUnreadable,   // [slot]
  kSlotEntered,          // [slot, text: description] the lines that follow are about this slot
  kTokenInfoUnreadable,  // [slot]
  kTokenFound,           // [label]
  kSessionNotOpened,     // the token of the slot cannot be opened
  kSearchFailed,         // some certificates of the token may be missing
  kCertificateUnreadable,
  kCertificateTooLarge,
  kCertificateMalformed,
  kNoCertificates,  // [label]

  // One certificate of the walk: subject, serial, and one of the others as the last.
  kSubjectRead,          // [text: subject]
  kSerialRead,           // [text: serial, as in pkcs11_certificate]
  kDescribed,            // [number: bits of the key] it is in the list
  kNameMissing,          // [label] this one and those below: it is left out of the list
  kSubjectUnreadable,    // [label]
  kCaUnreadable,         // [label]
  kSerialUnreadable,     // [label]
  kKeyUsageUnreadable,   // [label]
  kPublicKeyUnreadable,  // [label] not an RSA key, or one that cannot be read

  // An attribute for a name or a filter.
  kCardAttributeUnknown,        // [attribute]
  kPinAttributeUnknown,         // [attribute]
  kSubjectAttributeUnreadable,  // [attribute]
  kIssuerAttributeUnreadable,   // [attribute]

  // FindCertificate(), CertificatePresent(), Sign()
  kSlotSearched,      // [slot] also in a walk over the certificates
  kCertificateFound,  // in the slot of the last kSlotSearched
  kCertificateNotFound,
  kKeyIdUnreadable,
  kSignTokenInfoUnreadable,
  kPrivateKeySearched,  // the login, if there was one, is done
  kSigned,
  kSignatureCancelled,
  kSignatureFailed,  // [rv]

  // Login() and Unlock(). The first three come just before the PIN is asked for.
  kPinLocked,
  kPinFinalTry,
  kPinCountLow,
  kLoginRefused,   // [rv] reported through the error callback too
  kLoginFailed,    // [rv]
  kNewPinRefused,  // [rv] reported through the error callback too
  kNewPinFailed,   // [rv]
};

// The levels of the component's lines, see logfile.h.
inline constexpr int kProviderUnusable = 2;
inline constexpr int kFailed = 3;
inline constexpr int kTrace = 5;

struct ComponentEvent {
  ComponentEventKind kind = ComponentEventKind::kOther;
  int level = kTrace;
  std::string message;  // the whole line, not escaped

  CK_RV rv = CKR_OK;
  unsigned long slot = 0;
  unsigned long number = 0;
  std::string label;
  std::string attribute;
  std::string text;
};

// Turns a line of the component's log into a value. A line that is not known has kind kOther.
ComponentEvent ParseComponentEvent(const std::string& message, int level);

// Returns every kind but kOther.
std::vector<ComponentEventKind> KnownEventKinds();

}  // namespace cardcert::cli
