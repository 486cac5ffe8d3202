// Initialisation, slots and tokens.
#include <algorithm>
#include <cstring>

#include "scripted_provider/call.h"
#include "scripted_provider/functions.h"
#include "scripted_provider/trace_text.h"

namespace scripted::functions {

namespace {

std::string Pointer(const void* pointer) {
  return pointer == nullptr ? "NULL" : "not NULL";
}

std::string ListText(const CK_SLOT_ID* slots, CK_ULONG count) {
  if (slots == nullptr)
    return LengthText(count) + " slots";
  std::string text = "slots";
  for (CK_ULONG i = 0; i < count; ++i)
    text += ' ' + std::to_string(slots[i]);
  return count == 0 ? "no slots" : text;
}

}  // namespace

CK_RV C_GetFunctionList(CK_FUNCTION_LIST_PTR_PTR list, CK_FUNCTION_LIST_PTR functions) {
  return Call("C_GetFunctionList", {}).AllowUninitialized().Run([&] {
    *list = functions;
    return CKR_OK;
  });
}

CK_RV C_Initialize(void* init_args) {
  Provider& provider = Provider::Instance();
  return Call("C_Initialize", {Pointer(init_args)}).AllowUninitialized().Run([&] {
    if (provider.initialized)
      return Violation(CKR_CRYPTOKI_ALREADY_INITIALIZED, "C_Initialize twice");
    provider.initialized = true;
    provider.thread = std::this_thread::get_id();
    return CK_RV{CKR_OK};
  });
}

CK_RV C_Finalize(void* reserved) {
  Provider& provider = Provider::Instance();
  return Call("C_Finalize", {Pointer(reserved)}).DoesWorkOnFailure().Run([&] {
    for (const SessionModel& session : provider.sessions())
      provider.AddViolation("C_Finalize with " + SessionText(session.handle) + " open");
    for (SlotModel& slot : provider.slots()) {
      if (slot.token)
        slot.token->login.reset();
    }
    provider.sessions().clear();
    provider.initialized = false;
    return CKR_OK;
  });
}

CK_RV C_GetInfo(CK_INFO* info) {
  const Provider& provider = Provider::Instance();
  return Call("C_GetInfo", {}).Run([&] {
    // Reading beyond the end of a text field would show.
    std::memset(info, 'X', sizeof *info);
    info->cryptokiVersion = {2, 40};
    std::memcpy(info->manufacturerID, provider.manufacturer.data(), sizeof info->manufacturerID);
    std::memcpy(info->libraryDescription, provider.library_description.data(),
                sizeof info->libraryDescription);
    return CKR_OK;
  });
}

CK_RV C_GetSlotList(CK_BBOOL token_present, CK_SLOT_ID* slots, CK_ULONG* count) {
  const CK_ULONG capacity = *count;
  const std::string room = slots == nullptr ? "NULL" : "room for " + std::to_string(capacity);
  return Call("C_GetSlotList", {token_present ? "TOKEN_PRESENT" : "ALL", room})
      .NumberOutput(count)
      .Run(
          [&] {
            std::vector<CK_SLOT_ID> listed;
            for (const SlotModel& slot : Provider::Instance().slots()) {
              if (!token_present || slot.token)
                listed.push_back(slot.id);
            }
            *count = listed.size();
            if (slots == nullptr)
              return CKR_OK;
            if (capacity < listed.size())
              return CKR_BUFFER_TOO_SMALL;
            std::copy(listed.begin(), listed.end(), slots);
            return CKR_OK;
          },
          [&] { return ListText(slots, std::min(*count, slots ? capacity : *count)); });
}

CK_RV C_GetSlotInfo(CK_SLOT_ID id, CK_SLOT_INFO* info) {
  return Call("C_GetSlotInfo", {SlotText(id)}).Run([&] {
    const SlotModel* const slot = Provider::Instance().FindSlot(id);
    if (slot == nullptr)
      return CKR_SLOT_ID_INVALID;
    *info = {};
    std::memcpy(info->slotDescription, slot->description.data(), sizeof info->slotDescription);
    // The manufacturer follows the description: reading beyond the description would show.
    std::memset(info->manufacturerID, 'M', sizeof info->manufacturerID);
    info->flags = CKF_REMOVABLE_DEVICE | (slot->token ? CKF_TOKEN_PRESENT : 0);
    return CKR_OK;
  });
}

CK_RV C_GetTokenInfo(CK_SLOT_ID id, CK_TOKEN_INFO* info) {
  return Call("C_GetTokenInfo", {SlotText(id)}).Run([&] {
    return WithToken(id, [&](const SlotModel& slot) {
      *info = slot.token->Info();
      return CKR_OK;
    });
  });
}

CK_RV C_WaitForSlotEvent(CK_FLAGS flags, CK_SLOT_ID* slot, void* reserved) {
  const std::string mode = flags == CKF_DONT_BLOCK ? "DONT_BLOCK" : std::to_string(flags);
  return Call("C_WaitForSlotEvent", {mode, reserved == nullptr ? "" : "reserved"})
      .HandleOutput(slot)
      .Run(
          [&] {
            if ((flags & CKF_DONT_BLOCK) == 0)
              return Violation(CKR_FUNCTION_NOT_SUPPORTED, "C_WaitForSlotEvent would block");
            const std::optional<Provider::SlotEvent> event = Provider::Instance().TakeEvent();
            if (event && event->rv == CKR_OK)
              *slot = event->slot;
            return event ? event->rv : CK_RV{CKR_NO_EVENT};
          },
          [&] { return SlotText(*slot); });
}

CK_RV Unsupported(const char* function) {
  return Call(function, {}).Run([&] {
    return Violation(CKR_FUNCTION_NOT_SUPPORTED, std::string(function) + " was called");
  });
}

}  // namespace scripted::functions
