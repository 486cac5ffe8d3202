// Object searches, attributes and signatures.
#include <algorithm>
#include <cstring>
#include <utility>

#include "scripted_provider/call.h"
#include "scripted_provider/functions.h"
#include "scripted_provider/trace_text.h"
#include "support/hex.h"

namespace scripted::functions {

namespace {

// Private objects are visible to the user, not to the security officer (PKCS#11 2.40, section 2.4).
bool IsVisible(const Object& object, const Token& token) {
  return !object.is_private || token.login == CKU_USER;
}

bool Matches(const Object& object, const CK_ATTRIBUTE& asked) {
  const auto found = object.attributes.find(asked.type);
  return found != object.attributes.end() && found->second.size() == asked.ulValueLen &&
         (asked.ulValueLen == 0 ||
          std::memcmp(found->second.data(), asked.pValue, asked.ulValueLen) == 0);
}

bool MatchesAll(const Object& object, const CK_ATTRIBUTE* attributes, CK_ULONG count) {
  return std::all_of(attributes, attributes + count,
                     [&object](const CK_ATTRIBUTE& asked) { return Matches(object, asked); });
}

// Reads one attribute (PKCS#11 2.40, section 5.7, C_GetAttributeValue).
CK_RV Read(const Object& object, CK_ATTRIBUTE& attribute) {
  const auto found = object.attributes.find(attribute.type);
  if (found == object.attributes.end()) {
    attribute.ulValueLen = CK_UNAVAILABLE_INFORMATION;
    return CKR_ATTRIBUTE_TYPE_INVALID;
  }
  const std::string& value = found->second;
  const CK_ULONG capacity = std::exchange(attribute.ulValueLen, value.size());
  if (attribute.pValue == nullptr)
    return CKR_OK;
  if (capacity < value.size()) {
    attribute.ulValueLen = CK_UNAVAILABLE_INFORMATION;
    return CKR_BUFFER_TOO_SMALL;
  }
  std::copy(value.begin(), value.end(), static_cast<char*>(attribute.pValue));
  return CKR_OK;
}

}  // namespace

CK_RV C_FindObjectsInit(CK_SESSION_HANDLE handle, CK_ATTRIBUTE* attributes, CK_ULONG count) {
  return Call("C_FindObjectsInit", {SessionText(handle), SearchText(attributes, count)}).Run([&] {
    return InSession(handle, [&](SessionModel& session) -> CK_RV {
      if (session.search)
        return Violation(CKR_OPERATION_ACTIVE, "C_FindObjectsInit during a search");
      session.search.emplace();
      const Token& token = *session.slot->token;
      for (const Object& object : token.objects) {
        if (IsVisible(object, token) && MatchesAll(object, attributes, count))
          session.search->push_back(object.handle);
      }
      return CKR_OK;
    });
  });
}

CK_RV C_FindObjects(CK_SESSION_HANDLE handle, CK_OBJECT_HANDLE* objects, CK_ULONG max_count,
                    CK_ULONG* count) {
  const auto outcome = [&] {
    std::string text;
    for (CK_ULONG i = 0; i < std::min(*count, max_count); ++i)
      text += (i > 0 ? ", " : "") + ObjectText(objects[i]);
    if (*count > max_count)
      text += " of " + LengthText(*count);
    return text.empty() ? "no object" : text;
  };
  return Call("C_FindObjects", {SessionText(handle), "max " + std::to_string(max_count)})
      .NumberOutput(count)
      .HandleOutput(objects)
      .Run(
          [&] {
            return InSession(handle, [&](SessionModel& session) -> CK_RV {
              if (!session.search)
                return Violation(CKR_OPERATION_NOT_INITIALIZED, "C_FindObjects without a search");
              *count = std::min<CK_ULONG>(max_count, session.search->size());
              for (CK_ULONG i = 0; i < *count; ++i) {
                objects[i] = session.search->front();
                session.search->pop_front();
              }
              return CKR_OK;
            });
          },
          outcome);
}

CK_RV C_FindObjectsFinal(CK_SESSION_HANDLE handle) {
  return Call("C_FindObjectsFinal", {SessionText(handle)}).DoesWorkOnFailure().Run([&] {
    return InSession(handle, [&](SessionModel& session) -> CK_RV {
      if (!session.search)
        return Violation(CKR_OPERATION_NOT_INITIALIZED, "C_FindObjectsFinal without a search");
      session.search.reset();
      return CKR_OK;
    });
  });
}

CK_RV C_GetAttributeValue(CK_SESSION_HANDLE handle, CK_OBJECT_HANDLE object_handle,
                          CK_ATTRIBUTE* attributes, CK_ULONG count) {
  const auto outcome = [&] {
    std::string text;
    for (CK_ULONG i = 0; i < count; ++i)
      text += (i > 0 ? ", " : "") + LengthText(attributes[i].ulValueLen) + " bytes";
    return text;
  };
  return Call("C_GetAttributeValue",
              {SessionText(handle), ObjectText(object_handle), ReadText(attributes, count)})
      .NumberOutput(count > 0 ? &attributes[0].ulValueLen : nullptr)
      .Run(
          [&] {
            return InSession(handle, [&](const SessionModel& session) -> CK_RV {
              Token& token = *session.slot->token;
              const Object* const object = token.Find(object_handle);
              if (object == nullptr || !IsVisible(*object, token))
                return CKR_OBJECT_HANDLE_INVALID;
              CK_RV rv = CKR_OK;  // All attributes are read; the last failure is returned.
              for (CK_ULONG i = 0; i < count; ++i) {
                const CK_RV result = Read(*object, attributes[i]);
                rv = result == CKR_OK ? rv : result;
              }
              return rv;
            });
          },
          outcome);
}

CK_RV C_SignInit(CK_SESSION_HANDLE handle, CK_MECHANISM* mechanism, CK_OBJECT_HANDLE key) {
  const std::string name = mechanism->mechanism == CKM_RSA_PKCS
                               ? "CKM_RSA_PKCS"
                               : "mechanism " + std::to_string(mechanism->mechanism);
  const bool plain = mechanism->pParameter == nullptr && mechanism->ulParameterLen == 0;
  return Call("C_SignInit",
              {SessionText(handle), name + (plain ? "" : " with a parameter"), ObjectText(key)})
      .Run([&] {
        return InSession(handle, [&](SessionModel& session) -> CK_RV {
          Token& token = *session.slot->token;
          const Object* const object = token.Find(key);
          if (session.signing_key)
            return Violation(CKR_OPERATION_ACTIVE, "C_SignInit during a signature");
          if (mechanism->mechanism != CKM_RSA_PKCS)
            return CKR_MECHANISM_INVALID;
          if (!plain)
            return CKR_MECHANISM_PARAM_INVALID;
          if (object == nullptr || !IsVisible(*object, token))
            return CKR_KEY_HANDLE_INVALID;
          if (!object->key)
            return CKR_KEY_TYPE_INCONSISTENT;
          session.signing_key = object->key;
          return CKR_OK;
        });
      });
}

CK_RV C_Sign(CK_SESSION_HANDLE handle, CK_BYTE* data, CK_ULONG data_len, CK_BYTE* signature,
             CK_ULONG* signature_len) {
  const std::string bytes =
      data_len == 0 ? std::string() : std::string(reinterpret_cast<const char*>(data), data_len);
  const CK_ULONG capacity = *signature_len;
  const std::string room = signature == nullptr ? "NULL" : "room for " + std::to_string(capacity);
  return Call("C_Sign", {SessionText(handle), "data " + support::Hex(bytes), room})
      .NumberOutput(signature_len)
      .Run(
          [&] {
            return InSession(handle, [&](SessionModel& session) -> CK_RV {
              if (!session.signing_key)
                return Violation(CKR_OPERATION_NOT_INITIALIZED, "C_Sign without C_SignInit");
              const CK_ULONG length = session.signing_key->modulus_len();
              *signature_len = length;
              // Neither a call for the length nor a buffer that is too small ends the operation
              // (PKCS#11 2.40, section 5.2).
              if (signature == nullptr)
                return CKR_OK;
              if (capacity < length)
                return CKR_BUFFER_TOO_SMALL;
              const std::optional<std::string> made =
                  std::exchange(session.signing_key, nullptr)->Sign(bytes);
              if (!made)
                return CKR_DATA_LEN_RANGE;
              std::copy(made->begin(), made->end(), signature);
              return CKR_OK;
            });
          },
          [&] { return LengthText(*signature_len) + " bytes"; });
}

}  // namespace scripted::functions
