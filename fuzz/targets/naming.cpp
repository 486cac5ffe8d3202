// Fuzz target: a naming specification and a token label, "SPEC\nLABEL". Properties:
//   - a specification that is refused changes nothing, and is refused again;
//   - the components of an accepted specification, encoded as a specification again, are parsed to
//     the same components;
//   - a name has one part per component; the parts for "card" and "pin" are substrings of the
//   label.
#include <algorithm>
#include <cstring>

#include "fuzzed_provider.h"
#include "pkcs11/pkcs11.h"

namespace {

using Components = std::list<PKCS11Module::name_component>;

bool Same(const Components& left, const Components& right) {
  return std::equal(left.begin(), left.end(), right.begin(), right.end(),
                    [](const auto& one, const auto& other) {
                      return one.category == other.category && one.attribute == other.attribute;
                    });
}

// Encodes components as a specification.
std::string Encode(const Components& components) {
  static const char* const kWords[] = {"card", "pin", "subject", "issuer"};
  std::string text;
  for (const auto& component : components) {
    text += (text.empty() ? "" : ",") + std::string(kWords[component.category]) + '_';
    for (const char c : component.attribute)
      text += c == ',' || c == '\\' ? std::string("\\") + c : std::string(1, c);
  }
  return text;
}

void CheckName(PKCS11Module& module, const std::string& label) {
  CK_TOKEN_INFO token_info = {};
  std::memcpy(token_info.label, label.data(), std::min(label.size(), sizeof token_info.label));
  const std::list<std::string> name = module.GenerateName(token_info, ParsedCertificates()[1]);
  Check(name.size() == module.name_components.size(), "a name has one part per component");
  auto part = name.begin();
  for (const auto& component : module.name_components) {
    if (component.category == PKCS11Module::NAME_CARD ||
        component.category == PKCS11Module::NAME_PIN) {
      Check(label.find(*part) != std::string::npos, "the part is a substring of the label");
      Check(component.attribute == "label" || part->empty(),
            "a component other than the label is empty");
    } else {
      Check(part->size() < 1024, "an attribute is shorter than its buffer");
    }
    ++part;
  }
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  std::string spec = Input(data, size).Rest();
  const std::string::size_type line_feed = spec.find('\n');
  std::string label = line_feed == std::string::npos ? std::string() : spec.substr(line_feed + 1);
  label.resize(32, ' ');
  spec.resize(std::min(line_feed, std::min(spec.size(), spec.find('\0'))));

  PKCS11Module module;
  const Components before = module.name_components;
  const bool accepted = module.SetNameComponents(spec.c_str());
  const Components after = module.name_components;
  Check(!after.empty(), "there is always at least one component");
  Check(accepted || Same(before, after), "a specification that is refused changes nothing");
  Check(!module.changed, "SetNameComponents() does not set the change flag");
  Check(module.SetNameComponents(spec.c_str()) == accepted && Same(after, module.name_components),
        "the same specification has the same effect again");
  Check(module.SetNameComponents(Encode(after).c_str()) && Same(after, module.name_components),
        "encoded components are parsed to the same components");
  CheckName(module, label);
  return 0;
}
