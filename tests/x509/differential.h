// The differential rule, with libcrypto as the oracle:
//
// 1. A certificate that we accept, libcrypto accepts too, and every answer is equal. libcrypto
//    accepts no VisibleString in a name; it is asked about a copy with IA5Strings instead.
// 2. If libcrypto accepts or answers and we do not, our reason is on a list of known differences.
#pragma once

#include <string>
#include <vector>

struct Comparison {
  std::string violation;  // empty if the rule holds
  int parse_code = 0;     // of our cert_parse()
  bool openssl_accepts = false;
  bool whole_text_compared = true;  // false if libcrypto is known to write this subject differently
  std::vector<int> stricter;        // our codes for rule 2
};

Comparison CompareWithOpenssl(const std::string& der);
