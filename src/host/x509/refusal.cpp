#include "host/x509/refusal.h"

namespace cardcert::x509 {

const char* ReasonText(int number) {
  switch (number) {
#define REASON(enumerator, code, sentence) \
  case code:                               \
    return sentence;
#include "host/x509/reasons.def"
#undef REASON
    default:
      return nullptr;
  }
}

}  // namespace cardcert::x509
