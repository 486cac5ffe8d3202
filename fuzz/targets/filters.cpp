// Fuzz target: filter specifications, one per line. Properties:
//   - a specification that is refused changes nothing;
//   - one that is accepted adds one filter and sets the change flag;
//   - a filter, encoded as a specification again, is parsed to the same filter;
//   - a certificate matches several filters if and only if it matches at least one of them alone;
//   - without filters every certificate matches.
#include <sstream>

#include "fuzzed_provider.h"
#include "pkcs11/pkcs11.h"

namespace {

constexpr std::size_t kMaxFilters = 8;  // Keeps an input fast.

// Escapes separators and backslashes.
std::string Escape(const std::string& text, char separator) {
  std::string quoted;
  for (const char c : text)
    quoted += c == separator || c == '\\' ? std::string("\\") + c : std::string(1, c);
  return quoted;
}

// Encodes a filter as a specification.
std::string Encode(const pkcs11_certificate_filter& filter) {
  std::string attributes;
  for (const auto& [name, value] : filter.issuer_attributes) {
    attributes += attributes.empty() ? "" : ",";
    attributes += Escape(name + '=' + value, ',');
  }
  return Escape(filter.name, '|') + '|' + Escape(attributes, '|') + '|' +
         std::to_string(filter.key_usage);
}

bool Same(const pkcs11_certificate_filter& one, const pkcs11_certificate_filter& other) {
  return one.name == other.name && one.issuer_attributes == other.issuer_attributes &&
         one.key_usage == other.key_usage;
}

// Returns for each certificate whether it matches the module's filters.
std::vector<bool> Matches(PKCS11Module& module) {
  std::vector<bool> matches;
  for (const certificate* cert : ParsedCertificates())
    matches.push_back(module.MatchesFilter(cert));
  return matches;
}

// Encodes the filter, parses it again and returns for each certificate whether it matches.
std::vector<bool> MatchesAlone(const pkcs11_certificate_filter& filter) {
  PKCS11Module module;
  Check(module.AddFilter(Encode(filter)), "an encoded filter is accepted");
  Check(Same(filter, module.filters.front()), "an encoded filter is parsed to the same filter");
  return Matches(module);
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  std::istringstream lines(Input(data, size).Rest());
  PKCS11Module module;
  std::vector<bool> expected(ParsedCertificates().size(), true);
  for (std::string line; std::getline(lines, line) && module.filters.size() < kMaxFilters;) {
    const std::size_t before = module.filters.size();
    module.changed = false;
    const bool accepted = module.AddFilter(line);
    Check(module.changed == accepted,
          "an accepted specification, and no other, sets the change flag");
    Check(module.filters.size() == before + (accepted ? 1 : 0),
          "an accepted specification, and no other, adds one filter");
    if (!accepted)
      continue;
    const std::vector<bool> alone = MatchesAlone(module.filters.back());
    for (std::size_t i = 0; i < alone.size(); ++i)
      expected[i] = (before > 0 && expected[i]) || alone[i];
    Check(Matches(module) == expected, "a certificate matches if it matches one of the filters");
  }
  module.ClearFilters();
  Check(module.changed && module.filters.empty(),
        "ClearFilters() removes all filters and sets the change flag");
  Check(Matches(module) == std::vector<bool>(ParsedCertificates().size(), true),
        "without filters every certificate matches");
  return 0;
}
