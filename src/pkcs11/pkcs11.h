// The smart-card component: X.509 certificates on PKCS#11 tokens, and signatures with their keys.
//
//   PKCS11Module module;                        // names certificates by the subject's common name
//   if (module.Open("/usr/lib/token.so") != 0)  // the log says why
//     return;
//   for (;;) {                                  // the host's own loop
//     if (module.HasChanged())                  // does not wait for an event
//       Show(module.GetCertificates());
//     ...
//     module.Sign(serial, digest_info, size, signature, &capacity, ask, tell, this);
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

// Which secret the host is asked for, or told about.
enum pkcs11_pin_type : std::int32_t {
  PIN_TYPE_USER = 0,      // the user PIN, for a login as CKU_USER
  PIN_TYPE_SO = 1,        // the security officer's PIN, for a login as CKU_SO
  PIN_TYPE_UNLOCK = 2,    // a question: may the locked user PIN be unlocked now?
  PIN_TYPE_NEW_USER = 3,  // the user PIN to be set by C_InitPIN
};

// What is wrong with a PIN.
enum pkcs11_pin_error : std::int32_t {
  PIN_ERROR_INCORRECT = 0,  // it was wrong
  PIN_ERROR_INVALID = 1,    // it was refused for its form or length
  PIN_ERROR_LOCKED = 2,     // it is locked
};

// Asks the host for a PIN, or for consent to an unlock. Runs on the calling thread.
//
// For a PIN (every type but PIN_TYPE_UNLOCK) `buffer` has room for 128 bytes and `*length` is 128.
// The host writes the PIN's bytes, without terminator, and sets `*length` to their number. The
// buffer belongs to the component, which clears it as soon as the token has consumed it. A
// `*length` beyond 128 ends the operation with CKR_ARGUMENTS_BAD; no PIN reaches the token.
//
// For PIN_TYPE_UNLOCK `buffer` is null and `*length` is 0; only the result counts.
//
// True: supplied, or agreed. False: the user cancelled, which ends the operation.
//
// An unlock asks for consent (PIN_TYPE_UNLOCK), for the officer's PIN until it is right
// (PIN_TYPE_SO), for the new PIN until the token takes it (PIN_TYPE_NEW_USER; a host that wants it
// typed twice sees to that) and, since the user is to be logged in, for the new PIN once more
// (PIN_TYPE_USER). The component counts no attempts: the token does, so a callback must not offer a
// PIN again that was wrong. It would use up the tries, or never end where the token counts none.
//
// Callbacks, these and error_cb, may use the host's services and GetLibraryPath(), and may throw;
// they must not open or close the module's provider.
using pin_cb = bool (*)(pkcs11_pin_type type, unsigned char* buffer, unsigned long* length,
                        void* data);

// Tells the host what is wrong with a PIN, before the next one is asked for if there is to be a
// next one. May be null. `type` is PIN_TYPE_USER or PIN_TYPE_SO. A new PIN that the token does not
// take is (PIN_TYPE_USER, PIN_ERROR_INVALID); while it is set, "wrong" and "locked" mean
// PIN_TYPE_SO.
using error_cb = void (*)(pkcs11_pin_type type, pkcs11_pin_error error, void* data);

// One certificate on a token, as GetCertificates() describes it. A value: it refers to nothing.
struct pkcs11_certificate {
  // One text for each component of the naming specification, in its order; empty where a component
  // could not be produced. Never an empty list in a record that the module returns.
  std::list<std::string> presentable_name;
  bool is_ca = false;
  // The subject's distinguished name, as cert_subject() writes it.
  std::string subject;
  // The serial number in lower-case hexadecimal, two digits a byte, as encoded (a leading 00
  // included). CertificatePresent() and Sign() take it back.
  std::string serial;
  // Key usage bits, as cert_key_usage() lays them out; -1 (all bits set) when the certificate does
  // not restrict the usage of its key.
  int key_usage = 0;
  // Whether the certificate passes the module's filters. Records that do not are returned too.
  bool matches_filter = false;
  // The RSA public key, unsigned and big-endian; the lengths count the bytes in use.
  unsigned char public_exponent[17] = {};
  unsigned char modulus[8193] = {};
  unsigned long public_exponent_len = 0;
  unsigned long modulus_len = 0;
  // The slot's description, at most 64 bytes, without surrounding white space.
  std::string slot_description;
};

// A certificate passes a filter when its issuer has all of the attributes and its key usage all of
// the bits.
struct pkcs11_certificate_filter {
  std::string name;  // for the host; plays no part in matching
  std::list<std::pair<std::string, std::string>> issuer_attributes;  // (name, required value)
  int key_usage = 0;                                                 // bits; 0 requires nothing
};

// Where FindCertificate() found a certificate.
struct pkcs11_certificate_location {
  unsigned long slot = 0;     // CK_SLOT_ID
  unsigned long session = 0;  // CK_SESSION_HANDLE, read-write, still open; the caller closes it
  unsigned long object = 0;   // CK_OBJECT_HANDLE of the certificate in that session
};

// One PKCS#11 provider at a time, with the naming specification and the filters that the host has
// chosen, which outlive the provider.
//
// One module is used by one thread at a time, and calls of FindCertificate(), CertificatePresent()
// and Sign() do not overlap, not even on two modules. Operations report failure by their result
// alone; the reason is in the host's log. Nothing is thrown but what the standard containers throw
// (memory exhaustion) and what the host's own functions throw; sessions and logins are then ended
// and the module goes on working.
//
// A host calls the operations down to Sign(); the rest are the steps that these are made of.
class PKCS11Module {
 public:
  // Where one piece of a presentable name comes from.
  enum name_category : std::int32_t {
    NAME_CARD = 0,     // "card": the token's label up to its PIN part
    NAME_PIN = 1,      // "pin": the text in parentheses at the end of the token's label
    NAME_SUBJECT = 2,  // "subject": an attribute of the certificate's subject
    NAME_ISSUER = 3,   // "issuer": an attribute of the certificate's issuer
  };

  struct name_component {
    name_category category = NAME_CARD;
    std::string attribute;  // the word after the category and its underscore
  };

  // Names certificates by "subject_commonName" until the host says otherwise.
  PKCS11Module();
  // Close().
  ~PKCS11Module();
  PKCS11Module(const PKCS11Module&) = delete;
  PKCS11Module& operator=(const PKCS11Module&) = delete;

  // Sets how presentable names are composed: a list of components separated by commas (see
  // KVUtils::DecodeStringList), each "<category>_<attribute>" without spaces, where the category is
  // "card", "pin", "subject" or "issuer". "card" and "pin" know the attribute "label"; for
  // "subject" and "issuer" it is an attribute word of certificate.h. For example
  // "card_label,subject_commonName". Attribute words are judged only when a name is generated.
  // It holds for the names that are generated from then on; HasChanged() does not become true.
  // False: the text is malformed or empty, and the specification is as it was. `spec` is not null.
  bool SetNameComponents(const char* spec);

  // Adds a filter, "<name>|<issuer attributes>|<key usage>": any text; a comma-separated list of
  // "<attribute word>=<value>"; key usage bits as a decimal number. For example
  // "Signing|commonName=Example CA,organizationName=Example|128". The fields and, in the second
  // one, the attributes are lists to KVUtils::DecodeStringList, so what stands in a value is
  // decoded twice. The number is atoi's: text that is none is 0 and requires nothing, text behind
  // it is ignored, -1 requires every bit. A certificate passes when it passes any one of the
  // filters, or when there are none. HasChanged() becomes true if a provider is loaded, else with
  // the next Open(). False: the text is malformed, and nothing has changed.
  bool AddFilter(std::string spec);

  // Removes all filters; HasChanged() as with AddFilter().
  void ClearFilters();

  // Unloads the provider that is loaded, if any, then loads and initialises the one in the shared
  // library `path` (UTF-8). 0: loaded, and HasChanged() is true. -1: no provider is loaded.
  // The provider is told that only one thread uses it (C_Initialize without arguments). One that is
  // initialised already in this process is refused (CKR_CRYPTOKI_ALREADY_INITIALIZED), so no two
  // modules share a provider. `path` is dlopen's: give it a "/", or a search begins, and do not
  // leave it empty, which stands for the program itself. What throws leaves no provider loaded.
  int Open(std::string path);

  // Finalises and unloads the provider, if one is loaded.
  void Close();

  // The path as it was passed to Open(), empty while no provider is loaded. Refers to the module's
  // own string.
  const std::string& GetLibraryPath() const;

  // Whether GetCertificates() may answer differently than it last did; false while no provider is
  // loaded. It waits for no event, but as long as the provider takes to answer. Once true it stays
  // true until GetCertificates() has gone through all slots. A provider that reports no events, or
  // that fails, has not changed: with such a one a host lists again from time to time.
  bool HasChanged();

  // All certificates on all tokens, in the order of the slots, as far as they are visible without a
  // login. A certificate that cannot be described whole (an unreadable one, or one without an RSA
  // key) is left out. Empty also when no provider is loaded or its slots cannot be listed;
  // HasChanged() then stays as it was.
  std::list<pkcs11_certificate> GetCertificates();

  // Whether a certificate with this serial (as pkcs11_certificate::serial has it, compared as text)
  // is on a token now that can be opened for reading and writing: FindCertificate() found it. A
  // write-protected token counts as being without it, though GetCertificates() lists it. A provider
  // must be loaded. An issuer gives each serial once, but two issuers may give the
  // same one: it is for the host to notice that in what GetCertificates() lists.
  bool CertificatePresent(std::string serial);

  // Signs `data` with the private key that has the CKA_ID of the certificate with this serial:
  // RSASSA-PKCS1-v1_5 (RFC 8017, section 8.2) on a DigestInfo that the caller has made, since
  // CKM_RSA_PKCS only pads and exponentiates. `*signature_len` is the capacity of `signature` on
  // entry and the signature's length on success.
  // The certificate is the one that FindCertificate() finds. `data` goes to the provider as it is;
  // many take a null pointer for a mistake, also with a `data_len` of 0.
  // Logs in when the token asks for it (CKF_LOGIN_REQUIRED), and asks for the PIN again while it is
  // wrong or malformed; a cancel ends this, and so does every other failure. A locked user PIN can
  // be unlocked on the way. Before returning it logs out, if it has logged in; PKCS#11 has one
  // login a token, so a login that the host has made itself makes this one fail, and stays.
  // `ask_pin` may be null for tokens that need no login. `cb_data` goes to both callbacks.
  // `signature` and `signature_len` are not null.
  // False: no signature; `*signature_len` is as it was, `signature` need not be. Keys that want a
  // PIN for every signature (CKA_ALWAYS_AUTHENTICATE), and PINs typed at the reader itself, are not
  // served. A provider must be loaded.
  bool Sign(std::string serial, const unsigned char* data, unsigned long data_len,
            unsigned char* signature, unsigned long* signature_len, pin_cb ask_pin,
            error_cb report_error, void* cb_data);

  // The certificates of the token in one slot, described. A provider must be loaded.
  std::list<pkcs11_certificate> GetToken(unsigned long slot);

  // The certificates of the token in one slot, parsed; the caller frees each with cert_free().
  // Only certificates that are visible without a login. A provider must be loaded.
  std::list<certificate*> GetTokenCertificates(unsigned long slot);

  // One certificate object of an open session, parsed, to be freed with cert_free(); null when it
  // cannot be read or parsed. A provider must be loaded.
  certificate* GetTokenCertificate(unsigned long session, unsigned long object);

  // The certificate's presentable name: a text for each component, empty where there is none.
  std::list<std::string> GenerateName(const CK_TOKEN_INFO& token_info, const certificate* cert);

  // Whether the certificate passes at least one filter, or there are none.
  bool MatchesFilter(const certificate* cert);

  // Finds the first certificate with this serial, in the order of the slots, on the tokens that can
  // be opened for reading and writing. The answer is one record of the whole process,
  // overwritten by every call; its session is open, and the caller closes it. Null: not found, no
  // session is left open. A provider must be loaded.
  pkcs11_certificate_location* FindCertificate(std::string serial);

  // Logs an open session in as CKU_USER or CKU_SO, asking for at most one PIN of that kind. A
  // locked user PIN goes on to Unlock(). With a null `ask_pin` the program stops (std::abort).
  // CKR_OK: logged in; the caller calls C_Logout. CKR_PIN_INCORRECT: the PIN was wrong, malformed,
  // or has just been unlocked; ask again. CKR_CANCEL: the user cancelled. CKR_PIN_LOCKED: locked,
  // and not to be unlocked here. CKR_ARGUMENTS_BAD: another user type, or a PIN callback that
  // reported too many bytes. Else the provider's own value.
  CK_RV Login(CK_SESSION_HANDLE session, CK_SLOT_ID slot, CK_USER_TYPE user_type, pin_cb ask_pin,
              error_cb report_error, void* data);

  // With the user's consent logs the session in as security officer, sets a new user PIN and logs
  // out again. The session is a read-write one, and no read-only one is open on the token (PKCS#11
  // 2.40, C_Login). With a null `ask_pin` the program stops. CKR_OK: a new PIN was set. CKR_CANCEL:
  // the user cancelled. Else it was not set.
  CK_RV Unlock(CK_SESSION_HANDLE session, CK_SLOT_ID slot, pin_cb ask_pin, error_cb report_error,
               void* data);

  std::string library_path;                      // as passed to Open(); empty: none loaded
  void* library_handle = nullptr;                // of dlopen(); null: none loaded
  CK_FUNCTION_LIST_PTR function_list = nullptr;  // valid only while library_handle is not null
  bool changed = false;                          // see HasChanged()
  std::list<name_component> name_components;     // never empty
  std::list<pkcs11_certificate_filter> filters;
};
