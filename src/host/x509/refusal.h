// Why a certificate, or a question about it, is refused: one enumerator and one sentence each.
#pragma once

namespace cardcert::x509 {

enum class Reason : int {
  kNone = 0,
#define REASON(enumerator, number, sentence) enumerator = (number),
#include "host/x509/reasons.def"
#undef REASON
};

// The sentence of a reason; null for a number that is none.
const char* ReasonText(int number);

// What a step of the reader answers: nothing, or why it refuses. Every step that can refuse reads
//   if (const Refusal refusal = Step(...))
//     return refusal;
class [[nodiscard]] Refusal {
 public:
  constexpr Refusal() = default;
  constexpr Refusal(Reason reason) : reason_(reason) {}  // NOLINT(google-explicit-constructor)

  constexpr explicit operator bool() const { return reason_ != Reason::kNone; }
  constexpr int Code() const { return static_cast<int>(reason_); }

 private:
  Reason reason_ = Reason::kNone;
};

}  // namespace cardcert::x509
