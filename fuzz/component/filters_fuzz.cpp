// Filter specifications, one a line, on certificates. Properties:
//   - a text that is refused changes nothing, one that is accepted adds one filter and is a change;
//   - a filter, written down again, is the same filter;
//   - a further filter never takes a certificate out, and none lets every certificate through;
//   - the verdict of several filters is that of the best of them alone.
#include <sstream>

#include "fuzzed_provider.h"
#include "host/certificate.h"
#include "pkcs11/pkcs11.h"

namespace {

constexpr std::size_t kMostFilters = 8;  // So that an input stays quick.

std::string Quoted(const std::string& text, char separator) {
  std::string quoted;
  for (const char c : text)
    quoted += c == separator || c == '\\' ? std::string("\\") + c : std::string(1, c);
  return quoted;
}

std::string Written(const pkcs11_certificate_filter& filter) {
  std::string attributes;
  for (const auto& [name, value] : filter.issuer_attributes) {
    attributes += attributes.empty() ? "" : ",";
    attributes += Quoted(name + '=' + value, ',');
  }
  return Quoted(filter.name, '|') + '|' + Quoted(attributes, '|') + '|' +
         std::to_string(filter.key_usage);
}

bool Same(const pkcs11_certificate_filter& one, const pkcs11_certificate_filter& other) {
  return one.name == other.name && one.issuer_attributes == other.issuer_attributes &&
         one.key_usage == other.key_usage;
}

const std::vector<const certificate*>& Certificates() {
  // Never destroyed, so that they can still be reached when leaks are looked for.
  static const auto* const certificates = [] {
    auto* const made = new std::vector<const certificate*>;
    for (const std::string& der : FuzzedCertificates()) {
      certificate* const cert = cert_alloc();
      Check(cert_parse(reinterpret_cast<const unsigned char*>(der.data()),
                       static_cast<int>(der.size()), cert) == 0,
            "the certificate is one");
      made->push_back(cert);
    }
    return made;
  }();
  return *certificates;
}

std::vector<bool> Verdicts(PKCS11Module& module) {
  std::vector<bool> verdicts;
  for (const certificate* cert : Certificates())
    verdicts.push_back(module.MatchesFilter(cert));
  return verdicts;
}

// The verdicts of this filter alone, which is first written down and read again.
std::vector<bool> Alone(const pkcs11_certificate_filter& filter) {
  PKCS11Module module;
  Check(module.AddFilter(Written(filter)), "a filter that is written down is one");
  Check(Same(filter, module.filters.front()), "a filter that is written down is the same");
  return Verdicts(module);
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  std::istringstream lines(Input(data, size).Rest());
  PKCS11Module module;
  std::vector<bool> expected(Certificates().size(), true);
  for (std::string line; std::getline(lines, line) && module.filters.size() < kMostFilters;) {
    const std::size_t before = module.filters.size();
    module.changed = false;
    const bool accepted = module.AddFilter(line);
    Check(module.changed == accepted, "what is accepted is a change, and nothing else is");
    Check(module.filters.size() == before + (accepted ? 1 : 0), "what is accepted adds one filter");
    if (!accepted)
      continue;
    const std::vector<bool> alone = Alone(module.filters.back());
    for (std::size_t i = 0; i < alone.size(); ++i)
      expected[i] = (before > 0 && expected[i]) || alone[i];
    Check(Verdicts(module) == expected, "the best of the filters decides");
  }
  module.ClearFilters();
  Check(module.changed && module.filters.empty(), "none is left");
  Check(Verdicts(module) == std::vector<bool>(Certificates().size(), true),
        "without filters every certificate passes");
  return 0;
}
