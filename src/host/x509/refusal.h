// The reasons for which a certificate, or a query of a certificate, is refused.
#pragma once

namespace cardcert::x509 {

enum class Reason : int {
  kNone = 0,
#define REASON(enumerator, number, sentence) enumerator = (number),
#include "host/x509/reasons.def"
#undef REASON
};

// Returns the sentence for a reason's number, or null for any other number. The sentence is a
// constant.
const char* ReasonText(int number);

// The result of a parsing step: success, or the reason for a refusal. Converts to true on a
// refusal, so that every step that can fail reads
//   if (const Refusal refusal = Step(...))
//     return refusal;
class [[nodiscard]] Refusal {
 public:
  // Success.
  constexpr Refusal() = default;
  constexpr Refusal(Reason reason) : reason_(reason) {}  // NOLINT(google-explicit-constructor)

  constexpr explicit operator bool() const { return reason_ != Reason::kNone; }
  // Returns the reason's number, or 0 on success.
  constexpr int Code() const { return static_cast<int>(reason_); }

 private:
  Reason reason_ = Reason::kNone;
};

}  // namespace cardcert::x509
