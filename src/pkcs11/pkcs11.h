// The smart-card component: lists X.509 certificates on PKCS#11 tokens and signs with their keys.
//
//   PKCS11Module module;
//   if (module.Open("/usr/lib/token.so") != 0)
//     return;  // The log has the reason.
//   for (;;) {  // the host's own loop
//     if (module.HasChanged())
//       Show(module.GetCertificates());
//     ...
//     module.Sign(serial, digest_info, size, signature, &capacity, ask_pin, report_error, this);
//   }
//
// PKCS#11 types and constants are those of the standard, version 2.40.
#pragma once

#include <p11-kit/pkcs11.h>

#include <cstdint>
#include <list>
#include <string>
#include <utility>

#include "host/certificate.h"

// What a PIN callback is asked for, or which PIN an error is about.
enum pkcs11_pin_type : std::int32_t {
  PIN_TYPE_USER = 0,      // the user PIN, for a login as CKU_USER
  PIN_TYPE_SO = 1,        // the security officer's PIN, for a login as CKU_SO
  PIN_TYPE_UNLOCK = 2,    // not a PIN: the user's consent to unlock the user PIN
  PIN_TYPE_NEW_USER = 3,  // the new user PIN that C_InitPIN sets
};

// What is wrong with a PIN.
enum pkcs11_pin_error : std::int32_t {
  PIN_ERROR_INCORRECT = 0,  // it is wrong
  PIN_ERROR_INVALID = 1,    // it has a form or length that the token refuses
  PIN_ERROR_LOCKED = 2,     // it is locked
};

// Asks the host for a PIN, or for consent to an unlock. Called on the thread that called Sign(),
// Login() or Unlock(). `data` is the pointer that was passed to that operation.
//
// For PIN_TYPE_UNLOCK, `buffer` is null and `*length` is 0. Returns true if the user agrees.
//
// For every other type, `buffer` has room for 128 bytes and `*length` is 128. The host writes the
// PIN without a terminator, sets `*length` to its length in bytes and returns true. The buffer
// belongs to the component, which clears it right after the token has consumed the PIN. If
// `*length` exceeds 128, no PIN reaches the token and the operation ends with CKR_ARGUMENTS_BAD.
//
// Returns false if the user cancels, which ends the operation.
//
// An unlock calls back for consent (PIN_TYPE_UNLOCK), for the security officer's PIN until it is
// correct (PIN_TYPE_SO), for the new PIN until the token accepts it (PIN_TYPE_NEW_USER), and for
// the new PIN again to log in (PIN_TYPE_USER). To have the new PIN typed twice is left to the host.
//
// The component does not count attempts; the token does. A callback must not offer a PIN again that
// was incorrect: that would use up the remaining tries, or never end with a token that does not
// count.
//
// This callback and error_cb may use the host's services and GetLibraryPath(), and they may throw.
// They must not open or close the module's provider.
using pin_cb = bool (*)(pkcs11_pin_type type, unsigned char* buffer, unsigned long* length,
                        void* data);

// Tells the host what is wrong with a PIN, before it is asked for the next one. May be null. `type`
// is PIN_TYPE_USER or PIN_TYPE_SO. A new PIN that the token refuses is reported as (PIN_TYPE_USER,
// PIN_ERROR_INVALID). If setting the new PIN fails with an incorrect or locked PIN, the type is
// PIN_TYPE_SO.
using error_cb = void (*)(pkcs11_pin_type type, pkcs11_pin_error error, void* data);

// One certificate on a token, as GetCertificates() describes it. Self-contained: holds no pointers
// into the module.
struct pkcs11_certificate {
  // One text for each component of the naming specification, in its order. A component that could
  // not be produced has an empty text. The list is never empty in a record that the module returns.
  std::list<std::string> presentable_name;
  // True if the certificate is that of a certification authority (see cert_is_ca()).
  bool is_ca = false;
  // The subject's distinguished name, as cert_subject() writes it.
  std::string subject;
  // The serial number in lower-case hexadecimal, two digits per byte, as encoded, including a
  // leading 00. CertificatePresent() and Sign() take it to identify the certificate.
  std::string serial;
  // The key usage bits, as cert_key_usage() stores them. -1 (all bits set) if the certificate has
  // no key usage extension.
  int key_usage = 0;
  // True if the certificate passes the module's filters. Records that do not pass are returned,
  // too.
  bool matches_filter = false;
  // The RSA public key as unsigned big-endian numbers. The lengths count the bytes in use; the
  // bytes after them are zero.
  unsigned char public_exponent[17] = {};
  unsigned char modulus[8193] = {};
  unsigned long public_exponent_len = 0;
  unsigned long modulus_len = 0;
  // The description of the slot, at most 64 bytes, without surrounding white space.
  std::string slot_description;
};

namespace cardcert {

// Returns the length of the certificate's RSA key in bits, rounded down to a multiple of 16: a
// certificate library may return the modulus with a leading zero byte, and 257 bytes are a 2048-bit
// key, too.
inline unsigned long KeyLengthBits(const pkcs11_certificate& record) {
  return record.modulus_len * 8 & ~15UL;
}

}  // namespace cardcert

// A certificate passes a filter if its issuer has all the attributes and its key usage has all the
// bits.
struct pkcs11_certificate_filter {
  std::string name;  // for the host; not used in matching
  std::list<std::pair<std::string, std::string>> issuer_attributes;  // (name, required value)
  int key_usage = 0;                                                 // bits; 0 requires none
};

// Where FindCertificate() found a certificate.
struct pkcs11_certificate_location {
  unsigned long slot = 0;  // CK_SLOT_ID
  unsigned long session =
      0;  // CK_SESSION_HANDLE of an open read-write session; see FindCertificate()
  unsigned long object = 0;  // CK_OBJECT_HANDLE of the certificate in that session
};

// Loads one PKCS#11 provider at a time. Also holds the host's naming specification and filters,
// which stay the same when another provider is loaded.
//
// Not thread-safe: one thread at a time may use a module. Calls of FindCertificate(),
// CertificatePresent() and Sign() must not overlap even on different modules, because they share
// one record.
//
// Operations report failure through their results alone; the host's log has the reason. Exceptions
// come only from the standard library (exhausted memory) and from the host's own functions and
// callbacks. On an exception, sessions are closed, logins are ended and the module remains usable.
//
// A host calls the operations up to Sign(). The later ones are the steps they consist of.
class PKCS11Module {
 public:
  // Where a component of a presentable name comes from.
  enum name_category : std::int32_t {
    NAME_CARD = 0,     // "card": the token's label without its PIN part
    NAME_PIN = 1,      // "pin": the text in parentheses at the end of the token's label
    NAME_SUBJECT = 2,  // "subject": an attribute of the certificate's subject
    NAME_ISSUER = 3,   // "issuer": an attribute of the certificate's issuer
  };

  struct name_component {
    name_category category = NAME_CARD;
    std::string attribute;  // the text after the category and its underscore
  };

  // The naming specification is "subject_commonName", there are no filters, and no provider is
  // loaded.
  PKCS11Module();
  // Calls Close().
  ~PKCS11Module();
  PKCS11Module(const PKCS11Module&) = delete;
  PKCS11Module& operator=(const PKCS11Module&) = delete;

  // Sets the naming specification: a comma-separated list of components (decoded by
  // KVUtils::DecodeStringList()), each of the form "<category>_<attribute>" without spaces. The
  // category is "card", "pin", "subject" or "issuer". "card" and "pin" have the attribute "label";
  // "subject" and "issuer" have the attributes of host/certificate.h. Attributes are not checked
  // until a name is generated. Example: "card_label,subject_commonName".
  //
  // Affects names that are generated later. Does not make HasChanged() return true. Returns false
  // if the specification is malformed or empty; it is then unchanged. `spec` must not be null.
  bool SetNameComponents(const char* spec);

  // Adds a filter of the form "<name>|<issuer attributes>|<key usage>": any text, a comma-separated
  // list of "<attribute>=<value>", and a number of key usage bits. A certificate passes if it
  // passes at least one of the filters, or if there are none. Example:
  //
  //   Signing|commonName=Example CA,organizationName=Example|128
  //
  // The three fields are decoded by KVUtils::DecodeStringList(), and so is the list of attributes,
  // which is therefore decoded twice. The number is parsed like atoi(): non-numeric text counts as
  // 0, which requires no bits, and text after the number is ignored. -1 requires all bits.
  //
  // Makes HasChanged() return true as soon as a provider is loaded. Returns false if the filter is
  // malformed; nothing is then changed.
  bool AddFilter(std::string spec);

  // Removes all filters. Makes HasChanged() return true as soon as a provider is loaded.
  void ClearFilters();

  // Closes the loaded provider, if any, then loads and initialises the provider in the shared
  // library `path`, which is UTF-8. Returns 0 if the provider is loaded; HasChanged() then returns
  // true. Returns -1 if it cannot be loaded or initialised; no provider is then loaded. Neither is
  // one after an exception.
  //
  // `path` is passed to dlopen(): without a '/', the library search path is used, and an empty path
  // stands for the program itself. C_Initialize is called without arguments, which tells the
  // provider that only one thread uses it. A provider that is already initialised in this process
  // is refused (CKR_CRYPTOKI_ALREADY_INITIALIZED), so two modules cannot share a provider.
  int Open(std::string path);

  // Finalises and unloads the provider. Does nothing if none is loaded.
  void Close();

  // Returns the path that was passed to Open(), or an empty string if no provider is loaded. The
  // reference is to a member of the module.
  const std::string& GetLibraryPath() const;

  // Returns true if GetCertificates() may return another list than before, and goes on returning
  // true until GetCertificates() has walked all slots. Returns false if no provider is loaded.
  // Never blocks waiting for an event, but a slow provider may delay it.
  //
  // A failure of the provider counts as no change. Some providers do not report slot events; with
  // these, a host must call GetCertificates() from time to time.
  bool HasChanged();

  // Returns all certificates on all tokens that are visible without a login, in the order of the
  // slots. Leaves out certificates that cannot be described completely, such as those that cannot
  // be read and those without an RSA key. Returns an empty list if no provider is loaded or its
  // slots cannot be listed; the result of HasChanged() is then unchanged.
  std::list<pkcs11_certificate> GetCertificates();

  // Returns true if FindCertificate() finds a certificate with this serial number. A token that
  // cannot be opened for writing is skipped, although GetCertificates() lists its certificates. A
  // provider must be loaded.
  //
  // Serial numbers are unique for one issuer only. The host must notice if GetCertificates() lists
  // two certificates with the same serial number.
  bool CertificatePresent(std::string serial);

  // Signs `data` with the private key of the certificate that FindCertificate() finds for `serial`.
  // The private key is the one with the same CKA_ID. A provider must be loaded.
  //
  // The signature is RSASSA-PKCS1-v1_5 (RFC 8017, section 8.2). CKM_RSA_PKCS only pads and
  // exponentiates, so `data` must be the DER encoding of a DigestInfo. It is passed to the provider
  // unchanged. Many providers refuse a null pointer even if `data_len` is 0.
  //
  // On entry `*signature_len` is the size of `signature` in bytes. On success the signature is
  // written there and `*signature_len` is its length. Both pointers must not be null.
  //
  // If the token requires a login (CKF_LOGIN_REQUIRED), asks for the user PIN until it is correct
  // or the user cancels, and logs out before returning. A locked user PIN can be unlocked in
  // between. A PKCS#11 login applies to all sessions of a process, so this login fails if the host
  // itself has logged in; the host's login then remains. `ask_pin` may be null for tokens that
  // require no login. `cb_data` is passed to both callbacks.
  //
  // Returns false if no signature was made: `*signature_len` is then unchanged, and the contents of
  // `signature` are unspecified. Keys that require a PIN for every signature
  // (CKA_ALWAYS_AUTHENTICATE) and PIN pads of readers are not supported.
  bool Sign(std::string serial, const unsigned char* data, unsigned long data_len,
            unsigned char* signature, unsigned long* signature_len, pin_cb ask_pin,
            error_cb report_error, void* cb_data);

  // Returns descriptions of the certificates on the token in one slot. A provider must be loaded.
  std::list<pkcs11_certificate> GetToken(unsigned long slot);

  // Returns the parsed certificates of the token in one slot that are visible without a login. The
  // caller must free each with cert_free(). A provider must be loaded.
  std::list<certificate*> GetTokenCertificates(unsigned long slot);

  // Reads and parses one certificate object in an open session. The caller must free the
  // certificate with cert_free(). Returns null if it cannot be read or parsed. A provider must be
  // loaded.
  certificate* GetTokenCertificate(unsigned long session, unsigned long object);

  // Returns the presentable name of a certificate: a text for each component, empty if it could not
  // be produced.
  std::list<std::string> GenerateName(const CK_TOKEN_INFO& token_info, const certificate* cert);

  // Returns true if the certificate passes at least one filter, or if there are none.
  bool MatchesFilter(const certificate* cert);

  // Finds the first certificate with this serial number, compared as text with
  // pkcs11_certificate::serial, in the order of the slots. Skips tokens that cannot be opened for
  // writing. A provider must be loaded.
  //
  // Returns a record that is shared by all modules and overwritten by every call. Its session is
  // open, and the caller must close it. Returns null if there is no such certificate; no session is
  // then left open.
  pkcs11_certificate_location* FindCertificate(std::string serial);

  // Logs an open session in as CKU_USER or CKU_SO, asking for at most one PIN of that user. If the
  // user PIN is locked, calls Unlock(). If `ask_pin` is null, stops the program with std::abort().
  //
  // Returns:
  //   CKR_OK             logged in; the caller must call C_Logout
  //   CKR_PIN_INCORRECT  the PIN was incorrect or malformed, or was unlocked just now; call again
  //   CKR_CANCEL         the user cancelled
  //   CKR_PIN_LOCKED     the PIN is locked and was not unlocked
  //   CKR_ARGUMENTS_BAD  another user type, or a callback that reported more than 128 bytes
  //   any other value    the result of a failed provider call
  CK_RV Login(CK_SESSION_HANDLE session, CK_SLOT_ID slot, CK_USER_TYPE user_type, pin_cb ask_pin,
              error_cb report_error, void* data);

  // If the user agrees, logs the session in as security officer, sets a new user PIN and logs out.
  // The session must be a read-write session, and no read-only session may be open on the token
  // (PKCS#11 2.40, C_Login). If `ask_pin` is null, stops the program with std::abort(). Returns
  // CKR_OK if the new PIN was set and CKR_CANCEL if the user cancelled. After any other result the
  // PIN was not set.
  CK_RV Unlock(CK_SESSION_HANDLE session, CK_SLOT_ID slot, pin_cb ask_pin, error_cb report_error,
               void* data);

  std::string library_path;        // as passed to Open(); empty if none is loaded
  void* library_handle = nullptr;  // from dlopen(); null if none is loaded
  // The provider's own list. Valid only while library_handle is not null.
  CK_FUNCTION_LIST_PTR function_list = nullptr;
  bool changed = false;                       // see HasChanged()
  std::list<name_component> name_components;  // never empty
  std::list<pkcs11_certificate_filter> filters;
};
