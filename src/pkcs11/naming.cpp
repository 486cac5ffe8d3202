// Presentable names: parsing the naming specification, and generating names from it.
#include <utility>

#include "host/kvutils.h"
#include "host/logfile.h"
#include "pkcs11/detail/fixed_text.h"
#include "pkcs11/detail/text_buffer.h"
#include "pkcs11/pkcs11.h"

namespace cardcert::detail {
namespace {

struct CategoryWord {
  const char* word;
  PKCS11Module::name_category category;
};

constexpr CategoryWord kCategoryWords[] = {
    {"card", PKCS11Module::NAME_CARD},
    {"pin", PKCS11Module::NAME_PIN},
    {"subject", PKCS11Module::NAME_SUBJECT},
    {"issuer", PKCS11Module::NAME_ISSUER},
};

// Returns null if no category has this name.
const CategoryWord* FindCategory(const std::string& word) {
  for (const CategoryWord& known : kCategoryWords) {
    if (word == known.word)
      return &known;
  }
  return nullptr;
}

struct SplitLabel {
  std::string card;
  std::string pin;
};

// Splits a label of the form "card label (PIN label)". Cards with several PINs show one token per
// PIN, labelled so. A label that fills the whole field has usually lost its closing parenthesis to
// truncation. Any other label has no PIN part.
SplitLabel SplitTokenLabel(const CK_TOKEN_INFO& token_info) {
  const std::string label = TokenLabel(token_info);
  const std::string::size_type opening = label.find(" (");
  if (opening == std::string::npos ||
      (label.back() != ')' && label.size() != sizeof token_info.label))
    return {label, std::string()};

  std::string pin = label.substr(opening + 2);
  if (!pin.empty() && pin.back() == ')')
    pin.pop_back();
  return {label.substr(0, opening), pin};
}

}  // namespace
}  // namespace cardcert::detail

namespace detail = cardcert::detail;

bool PKCS11Module::SetNameComponents(const char* spec) {
  std::list<std::string> elements;
  if (!KVUtils::DecodeStringList(spec, &elements, ',')) {
    logfile.Log("Unable to parse certificate naming specification", 3);
    return false;
  }

  std::list<name_component> components;
  for (const std::string& element : elements) {
    if (element.find(' ') != std::string::npos) {
      logfile.Log("Malformed certificate naming specification", 3);
      return false;
    }
    const std::string::size_type underscore = element.find('_');
    if (underscore == std::string::npos) {
      logfile.Log("Malformed token \"" + element + "\"", 3);
      return false;
    }
    const std::string word = element.substr(0, underscore);
    const detail::CategoryWord* const known = detail::FindCategory(word);
    if (known == nullptr) {
      logfile.Log("Unknown name category \"" + word + "\"", 3);
      return false;
    }
    components.push_back({known->category, element.substr(underscore + 1)});
  }

  if (components.empty()) {
    logfile.Log("Ignoring empty name specification", 3);
    return false;
  }
  name_components.swap(components);
  return true;
}

std::list<std::string> PKCS11Module::GenerateName(const CK_TOKEN_INFO& token_info,
                                                  const certificate* cert) {
  const detail::SplitLabel label = detail::SplitTokenLabel(token_info);
  detail::TextBuffer<1024> buffer;

  std::list<std::string> name;
  for (const name_component& component : name_components) {
    const std::string& attribute = component.attribute;
    std::string text;
    switch (component.category) {
      case NAME_CARD:
        if (attribute == "label")
          text = label.card;
        else
          logfile.Log("Unknown card attribute \"" + attribute + "\"", 3);
        break;
      case NAME_PIN:
        if (attribute == "label")
          text = label.pin;
        else
          logfile.Log("Unknown PIN attribute \"" + attribute + "\"", 3);
        break;
      case NAME_SUBJECT:
        if (cert_subject_attr(cert, attribute.c_str(), buffer.data(), buffer.size()) == 0)
          text = buffer.text();
        else
          logfile.Log("Unable to read subject attribute \"" + attribute + "\" from certificate", 3);
        break;
      case NAME_ISSUER:
        if (cert_issuer_attr(cert, attribute.c_str(), buffer.data(), buffer.size()) == 0)
          text = buffer.text();
        else
          logfile.Log("Unable to read issuer attribute \"" + attribute + "\" from certificate", 3);
        break;
      default:
        continue;  // An unknown category produces no text, not even an empty one.
    }
    name.push_back(std::move(text));
  }
  return name;
}
