#include "scripted_provider/names.h"

#include <cstdio>
#include <cstring>

namespace scripted {

namespace {

struct NamedResult {
  CK_RV value;
  const char* name;
};

#define RESULT(name) \
  { CKR_##name, #name }
constexpr NamedResult kResults[] = {
    RESULT(OK),
    RESULT(CANCEL),
    RESULT(HOST_MEMORY),
    RESULT(SLOT_ID_INVALID),
    RESULT(GENERAL_ERROR),
    RESULT(FUNCTION_FAILED),
    RESULT(ARGUMENTS_BAD),
    RESULT(NO_EVENT),
    RESULT(NEED_TO_CREATE_THREADS),
    RESULT(CANT_LOCK),
    RESULT(ATTRIBUTE_READ_ONLY),
    RESULT(ATTRIBUTE_SENSITIVE),
    RESULT(ATTRIBUTE_TYPE_INVALID),
    RESULT(ATTRIBUTE_VALUE_INVALID),
    RESULT(ACTION_PROHIBITED),
    RESULT(DATA_INVALID),
    RESULT(DATA_LEN_RANGE),
    RESULT(DEVICE_ERROR),
    RESULT(DEVICE_MEMORY),
    RESULT(DEVICE_REMOVED),
    RESULT(ENCRYPTED_DATA_INVALID),
    RESULT(ENCRYPTED_DATA_LEN_RANGE),
    RESULT(FUNCTION_CANCELED),
    RESULT(FUNCTION_NOT_PARALLEL),
    RESULT(FUNCTION_NOT_SUPPORTED),
    RESULT(KEY_HANDLE_INVALID),
    RESULT(KEY_SIZE_RANGE),
    RESULT(KEY_TYPE_INCONSISTENT),
    RESULT(KEY_NOT_NEEDED),
    RESULT(KEY_CHANGED),
    RESULT(KEY_NEEDED),
    RESULT(KEY_INDIGESTIBLE),
    RESULT(KEY_FUNCTION_NOT_PERMITTED),
    RESULT(KEY_NOT_WRAPPABLE),
    RESULT(KEY_UNEXTRACTABLE),
    RESULT(MECHANISM_INVALID),
    RESULT(MECHANISM_PARAM_INVALID),
    RESULT(OBJECT_HANDLE_INVALID),
    RESULT(OPERATION_ACTIVE),
    RESULT(OPERATION_NOT_INITIALIZED),
    RESULT(PIN_INCORRECT),
    RESULT(PIN_INVALID),
    RESULT(PIN_LEN_RANGE),
    RESULT(PIN_EXPIRED),
    RESULT(PIN_LOCKED),
    RESULT(SESSION_CLOSED),
    RESULT(SESSION_COUNT),
    RESULT(SESSION_HANDLE_INVALID),
    RESULT(SESSION_PARALLEL_NOT_SUPPORTED),
    RESULT(SESSION_READ_ONLY),
    RESULT(SESSION_EXISTS),
    RESULT(SESSION_READ_ONLY_EXISTS),
    RESULT(SESSION_READ_WRITE_SO_EXISTS),
    RESULT(SIGNATURE_INVALID),
    RESULT(SIGNATURE_LEN_RANGE),
    RESULT(TEMPLATE_INCOMPLETE),
    RESULT(TEMPLATE_INCONSISTENT),
    RESULT(TOKEN_NOT_PRESENT),
    RESULT(TOKEN_NOT_RECOGNIZED),
    RESULT(TOKEN_WRITE_PROTECTED),
    RESULT(UNWRAPPING_KEY_HANDLE_INVALID),
    RESULT(UNWRAPPING_KEY_SIZE_RANGE),
    RESULT(UNWRAPPING_KEY_TYPE_INCONSISTENT),
    RESULT(USER_ALREADY_LOGGED_IN),
    RESULT(USER_NOT_LOGGED_IN),
    RESULT(USER_PIN_NOT_INITIALIZED),
    RESULT(USER_TYPE_INVALID),
    RESULT(USER_ANOTHER_ALREADY_LOGGED_IN),
    RESULT(USER_TOO_MANY_TYPES),
    RESULT(WRAPPED_KEY_INVALID),
    RESULT(WRAPPED_KEY_LEN_RANGE),
    RESULT(WRAPPING_KEY_HANDLE_INVALID),
    RESULT(WRAPPING_KEY_SIZE_RANGE),
    RESULT(WRAPPING_KEY_TYPE_INCONSISTENT),
    RESULT(RANDOM_SEED_NOT_SUPPORTED),
    RESULT(RANDOM_NO_RNG),
    RESULT(DOMAIN_PARAMS_INVALID),
    RESULT(CURVE_NOT_SUPPORTED),
    RESULT(BUFFER_TOO_SMALL),
    RESULT(SAVED_STATE_INVALID),
    RESULT(INFORMATION_SENSITIVE),
    RESULT(STATE_UNSAVEABLE),
    RESULT(CRYPTOKI_NOT_INITIALIZED),
    RESULT(CRYPTOKI_ALREADY_INITIALIZED),
    RESULT(MUTEX_BAD),
    RESULT(MUTEX_NOT_LOCKED),
    RESULT(NEW_PIN_MODE),
    RESULT(NEXT_OTP),
    RESULT(EXCEEDED_MAX_ITERATIONS),
    RESULT(FIPS_SELF_TEST_FAILED),
    RESULT(LIBRARY_LOAD_FAILED),
    RESULT(PIN_TOO_WEAK),
    RESULT(PUBLIC_KEY_INVALID),
    RESULT(FUNCTION_REJECTED),
};
#undef RESULT

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
  return Hex(std::string(static_cast<const char*>(attribute.pValue), attribute.ulValueLen));
}

}  // namespace

std::string ResultName(CK_RV rv) {
  for (const NamedResult& result : kResults) {
    if (result.value == rv)
      return result.name;
  }
  return std::to_string(rv);
}

const std::vector<CK_RV>& AllResults() {
  static const std::vector<CK_RV> all = [] {
    std::vector<CK_RV> values;
    for (const NamedResult& result : kResults)
      values.push_back(result.value);
    values.push_back(CKR_VENDOR_DEFINED);
    return values;
  }();
  return all;
}

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

std::string Hex(const std::string& bytes) {
  std::string text;
  for (const char byte : bytes) {
    char digits[3] = {};
    std::snprintf(digits, sizeof digits, "%02x", static_cast<unsigned char>(byte));
    text += digits;
  }
  return text;
}

std::string LengthText(CK_ULONG length) {
  return length == CK_UNAVAILABLE_INFORMATION ? "unavailable" : std::to_string(length);
}

}  // namespace scripted
