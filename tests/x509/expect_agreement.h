// Expects the differential rule to hold for a generated certificate.
#pragma once

#include <gtest/gtest.h>

#include <string>

#include "differential.h"

// Returns the result of our cert_parse().
inline int ExpectAgreement(const std::string& der) {
  const Comparison comparison = CompareWithOpenssl(der);
  EXPECT_EQ(comparison.violation, "");
  return comparison.parse_code;
}
