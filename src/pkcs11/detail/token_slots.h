// The slots that hold a token.
#pragma once

#include <p11-kit/pkcs11.h>

#include <algorithm>
#include <memory>

#include "pkcs11/detail/provider.h"

namespace cardcert::detail {

// Reads the slot list in two steps: the number of slots, then their IDs. Iterating yields the IDs;
// there are none before a successful Fetch().
class TokenSlots {
 public:
  explicit TokenSlots(Provider provider) : provider_(provider) {}

  // Asks for the number of slots. Returns the result of C_GetSlotList.
  CK_RV Count() { return provider_.GetSlotList(CK_TRUE, nullptr, &capacity_); }

  // Reads at most as many IDs as Count() reported. Returns the result of C_GetSlotList; if it is
  // not CKR_OK, there are no IDs. Throws std::bad_alloc or std::bad_array_new_length if there is no
  // memory for that many.
  CK_RV Fetch() {
    // std::make_unique would write to the whole array. A provider may claim billions of slots, and
    // untouched memory costs nothing.
    slots_.reset(new CK_SLOT_ID[capacity_]);
    CK_ULONG count = capacity_;
    const CK_RV rv = provider_.GetSlotList(CK_TRUE, slots_.get(), &count);
    // A provider may report more slots than the array holds.
    size_ = rv == CKR_OK ? std::min(count, capacity_) : 0;
    return rv;
  }

  // Returns the number of slots that Count() reported.
  CK_ULONG capacity() const { return capacity_; }

  const CK_SLOT_ID* begin() const { return slots_.get(); }
  const CK_SLOT_ID* end() const { return slots_.get() + size_; }

 private:
  Provider provider_;
  CK_ULONG capacity_ = 0;
  CK_ULONG size_ = 0;
  std::unique_ptr<CK_SLOT_ID[]> slots_;
};

}  // namespace cardcert::detail
