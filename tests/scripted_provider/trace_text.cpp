#include "scripted_provider/trace_text.h"

#include <cstdio>
#include <cstring>

#include "support/hex.h"

namespace scripted {

namespace {

std::string Hexadecimal(CK_ULONG number) {
  char text[32] = {};
  std::snprintf(text, sizeof text, "0x%lx", number);
  return text;
}

std::string ClassName(CK_OBJECT_CLASS object_class) {
  switch (object_class) {
    case CKO_CERTIFICATE:
      return "CKO_CERTIFICATE";
    case CKO_PRIVATE_KEY:
      return "CKO_PRIVATE_KEY";
    default:
      return std::to_string(object_class);
  }
}

std::string ValueText(const CK_ATTRIBUTE& attribute) {
  if (attribute.pValue == nullptr)
    return "NULL";
  if (attribute.type == CKA_CLASS) {
    CK_OBJECT_CLASS object_class = 0;
    if (attribute.ulValueLen != sizeof object_class)
      return "(" + std::to_string(attribute.ulValueLen) + " bytes)";
    std::memcpy(&object_class, attribute.pValue, sizeof object_class);
    return ClassName(object_class);
  }
  return support::Hex(
      std::string(static_cast<const char*>(attribute.pValue), attribute.ulValueLen));
}

}  // namespace

std::string SessionFlagNames(CK_FLAGS flags) {
  if (flags == CKF_SERIAL_SESSION)
    return "SERIAL";
  if (flags == (CKF_SERIAL_SESSION | CKF_RW_SESSION))
    return "SERIAL|RW";
  return Hexadecimal(flags);
}

std::string UserName(CK_USER_TYPE type) {
  if (type == CKU_USER)
    return "USER";
  if (type == CKU_SO)
    return "SO";
  return std::to_string(type);
}

std::string AttributeName(CK_ATTRIBUTE_TYPE type) {
  switch (type) {
    case CKA_CLASS:
      return "CKA_CLASS";
    case CKA_VALUE:
      return "CKA_VALUE";
    case CKA_ID:
      return "CKA_ID";
    case CKA_LABEL:
      return "CKA_LABEL";
    default:
      return "CKA_" + Hexadecimal(type);
  }
}

std::string SearchText(const CK_ATTRIBUTE* attributes, CK_ULONG count) {
  std::string text;
  for (CK_ULONG i = 0; attributes != nullptr && i < count; ++i)
    text +=
        (i > 0 ? ", " : "") + AttributeName(attributes[i].type) + '=' + ValueText(attributes[i]);
  return text.empty() ? "everything" : text;
}

std::string ReadText(const CK_ATTRIBUTE* attributes, CK_ULONG count) {
  std::string text;
  for (CK_ULONG i = 0; attributes != nullptr && i < count; ++i) {
    const CK_ATTRIBUTE& attribute = attributes[i];
    const std::string length = std::to_string(attribute.ulValueLen);
    text += (i > 0 ? ", " : "") + AttributeName(attribute.type);
    if (attribute.pValue != nullptr)
      text += '[' + length + ']';
    else  // With a null pointer the length ought to be 0.
      text += " NULL" + (attribute.ulValueLen != 0 ? '/' + length : std::string());
  }
  return text.empty() ? "nothing" : text;
}

std::string LengthText(CK_ULONG length) {
  return length == CK_UNAVAILABLE_INFORMATION ? "unavailable" : std::to_string(length);
}

}  // namespace scripted
