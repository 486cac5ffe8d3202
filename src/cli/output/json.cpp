#include "cli/output/json.h"

#include <nlohmann/json.hpp>

#include "cli/certificates/describe.h"
#include "cli/certificates/key_usage.h"
#include "cli/terminal/text.h"

namespace cardcert::cli {
namespace {

using nlohmann::ordered_json;

ordered_json Certificate(const pkcs11_certificate& record, const std::string& module) {
  return {
      {"name", record.presentable_name},
      {"subject", record.subject},
      {"serial", record.serial},
      {"ca", record.is_ca},
      {"key_usage", record.key_usage},
      {"key_usage_names", KeyUsageNames(record.key_usage)},
      {"matches_filter", record.matches_filter},
      {"key_bits", KeyLengthBits(record)},
      {"public_exponent", Hex(record.public_exponent, record.public_exponent_len)},
      {"modulus", Hex(record.modulus, record.modulus_len)},
      {"slot", record.slot_description},
      {"module", module},
  };
}

std::string Dump(const ordered_json& json, int indent) {
  return json.dump(indent, ' ', true, ordered_json::error_handler_t::replace) + "\n";
}

}  // namespace

std::string CertificatesAsJson(const std::list<pkcs11_certificate>& records,
                               const std::string& module) {
  ordered_json array = ordered_json::array();
  for (const pkcs11_certificate& record : records)
    array.push_back(Certificate(record, module));
  return Dump(array, 2);
}

std::string EventAsJsonLine(const std::string& event, const pkcs11_certificate& record,
                            const std::string& module) {
  return Dump({{"event", event}, {"certificate", Certificate(record, module)}}, -1);
}

}  // namespace cardcert::cli
