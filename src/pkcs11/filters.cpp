// Certificate filters: parsing them, and matching a certificate against them.
#include <algorithm>
#include <cstdlib>

#include "host/kvutils.h"
#include "host/logfile.h"
#include "pkcs11/detail/text_buffer.h"
#include "pkcs11/pkcs11.h"

namespace cardcert::detail {
namespace {

// Parses a list of "<attribute>=<value>" and appends it to `*attributes`. On failure logs the
// reason and returns false; `*attributes` may then hold part of the list.
bool DecodeIssuerAttributes(const std::string& field,
                            std::list<std::pair<std::string, std::string>>* attributes) {
  std::list<std::string> elements;
  if (!KVUtils::DecodeStringList(field, &elements, ',')) {
    logfile.Log("Unable to decode smartcard filter issuer attributes", 3);
    return false;
  }
  for (const std::string& element : elements) {
    const std::string::size_type equals = element.find('=');
    if (equals == std::string::npos) {
      logfile.Log("Malformed token \"" + element + "\"", 3);
      return false;
    }
    attributes->emplace_back(element.substr(0, equals), element.substr(equals + 1));
  }
  return true;
}

// Returns true if the certificate's issuer has the attribute with exactly this value.
bool IssuerHas(const certificate* cert, const std::string& attribute, const std::string& value) {
  TextBuffer<1024> buffer;
  switch (cert_issuer_attr(cert, attribute.c_str(), buffer.data(), buffer.size())) {
    case 0:
      return buffer.text() == value;
    case -2:  // The issuer has no such attribute.
      return false;
    default:
      logfile.Log("Unable to read issuer attribute \"" + attribute + "\" from certificate", 3);
      return false;
  }
}

bool Passes(const certificate* cert, int key_usage, const pkcs11_certificate_filter& filter) {
  for (const auto& [attribute, value] : filter.issuer_attributes) {
    if (!IssuerHas(cert, attribute, value))
      return false;
  }
  return (filter.key_usage & ~key_usage) == 0;
}

}  // namespace
}  // namespace cardcert::detail

namespace detail = cardcert::detail;

bool PKCS11Module::AddFilter(std::string spec) {
  std::list<std::string> fields;
  if (!KVUtils::DecodeStringList(spec, &fields, '|')) {
    logfile.Log("Unable to decode smartcard filter fields", 3);
    return false;
  }
  if (fields.size() != 3) {
    logfile.Log("Smartcard filter does not have 3 fields", 3);
    return false;
  }

  auto field = fields.begin();
  pkcs11_certificate_filter filter;
  filter.name = *field++;
  if (!detail::DecodeIssuerAttributes(*field++, &filter.issuer_attributes))
    return false;
  // Non-numeric text counts as 0, which requires no key usage.
  filter.key_usage = std::atoi(field->c_str());  // NOLINT(cert-err34-c): 0 on failure is intended

  filters.push_back(std::move(filter));
  changed = true;
  return true;
}

void PKCS11Module::ClearFilters() {
  filters.clear();
  changed = true;
}

bool PKCS11Module::MatchesFilter(const certificate* cert) {
  // The result does not matter: cert_key_usage() also stores what a filter must see when it fails,
  // all bits if there is no key usage extension and none if the extension cannot be read.
  int key_usage = 0;
  cert_key_usage(cert, &key_usage);
  return filters.empty() ||
         std::any_of(filters.begin(), filters.end(), [&](const pkcs11_certificate_filter& filter) {
           return detail::Passes(cert, key_usage, filter);
         });
}
