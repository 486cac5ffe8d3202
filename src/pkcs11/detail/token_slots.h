// The list of slots, as a provider gives it out.
#pragma once

#include <p11-kit/pkcs11.h>

#include <algorithm>
#include <memory>

namespace cardcert::detail {

// The slots that hold a token, asked for in two steps: how many, then which.
class TokenSlots {
 public:
  explicit TokenSlots(CK_FUNCTION_LIST_PTR functions) : functions_(functions) {}

  CK_RV Count() { return functions_->C_GetSlotList(CK_TRUE, nullptr, &capacity_); }

  CK_RV Fetch() {
    // Not std::make_unique, which writes to all of it: a provider may claim slots by the billion,
    // and memory that nobody touches costs nothing.
    slots_.reset(new CK_SLOT_ID[capacity_]);
    CK_ULONG count = capacity_;
    const CK_RV rv = functions_->C_GetSlotList(CK_TRUE, slots_.get(), &count);
    // A provider may claim more slots than it was offered room for.
    size_ = rv == CKR_OK ? std::min(count, capacity_) : 0;
    return rv;
  }

  CK_ULONG capacity() const { return capacity_; }
  const CK_SLOT_ID* begin() const { return slots_.get(); }
  const CK_SLOT_ID* end() const { return slots_.get() + size_; }

 private:
  CK_FUNCTION_LIST_PTR functions_;
  CK_ULONG capacity_ = 0;
  CK_ULONG size_ = 0;
  std::unique_ptr<CK_SLOT_ID[]> slots_;
};

}  // namespace cardcert::detail
