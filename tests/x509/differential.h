// The rule that the library is held to, with libcrypto as the oracle:
//
// 1. What we accept, libcrypto accepts, and every answer is equal. Of a VisibleString in a name,
//    which it does not take, the same as an IA5String.
// 2. What libcrypto accepts or answers and we do not has a reason that is on a list.
#pragma once

#include <string>
#include <vector>

struct Comparison {
  std::string violation;  // empty when the rule holds
  int parse_code = 0;     // ours
  bool openssl_accepts = false;
  bool whole_text_compared = true;  // false where libcrypto is known to write the subject otherwise
  std::vector<int> stricter;        // the codes of rule 2, ours, each on the list
};

Comparison CompareWithOpenssl(const std::string& der);
