#include "cli/output/table.h"

#include <algorithm>
#include <array>
#include <vector>

#include "cli/certificates/describe.h"
#include "cli/certificates/key_usage.h"
#include "cli/terminal/text.h"

namespace cardcert::cli {
namespace {

// Names, slot descriptions and serials are cut, so that one certificate cannot widen the whole
// table. RFC 5280, section 4.1.2.2, allows serials of 20 octets; 64 digits leave some room.
constexpr std::size_t kMaxTextColumns = 48;
constexpr std::size_t kMaxSerialDigits = 64;

constexpr std::size_t kNumColumns = 7;
using Row = std::array<std::string, kNumColumns>;

std::string FreeText(const std::string& text) {
  return CutToWidth(WithSingleBlanks(EscapeForTerminal(text)), kMaxTextColumns);
}

// A cut serial is shown with its length. It cannot be mistaken for a whole one, and no command
// takes it.
std::string SerialText(const std::string& serial) {
  constexpr std::size_t kShownDigits = 16;
  if (serial.size() <= kMaxSerialDigits)
    return serial;
  return serial.substr(0, kShownDigits) + "\u2026 (" + std::to_string(serial.size()) + " digits)";
}

const char* YesNo(bool yes) {
  return yes ? "yes" : "no";
}

Row Cells(const pkcs11_certificate& record) {
  return {FreeText(NameText(record)),
          SerialText(record.serial),
          std::to_string(KeyLengthBits(record)),
          KeyUsageText(record.key_usage),
          YesNo(record.is_ca),
          YesNo(record.matches_filter),
          FreeText(record.slot_description)};
}

}  // namespace

std::string CertificateTable(const std::list<pkcs11_certificate>& records) {
  std::vector<Row> rows = {{"NAME", "SERIAL", "BITS", "KEY USAGE", "CA", "MATCHES", "SLOT"}};
  for (const pkcs11_certificate& record : records)
    rows.push_back(Cells(record));

  std::array<std::size_t, kNumColumns> widths = {};
  for (const Row& row : rows) {
    for (std::size_t i = 0; i < kNumColumns; ++i)
      widths[i] = std::max(widths[i], DisplayWidth(row[i]));
  }

  std::string table;
  for (const Row& row : rows) {
    std::string line;
    std::size_t pending = 0;  // Spaces are written only before text, not at the end of a line.
    for (std::size_t i = 0; i < kNumColumns; ++i) {
      if (!row[i].empty()) {
        line.append(pending, ' ');
        line += row[i];
        pending = 0;
      }
      pending += widths[i] - DisplayWidth(row[i]) + 2;
    }
    table += line + "\n";
  }
  return table;
}

std::string CertificateLine(const pkcs11_certificate& record) {
  const Row cells = Cells(record);
  return cells[0] + "  " + cells[1] + "  " + cells[2] + " bits  " + cells[3] +
         (record.is_ca ? "  CA" : "") + (record.matches_filter ? "" : "  (filtered out)") + "  " +
         cells[6];
}

}  // namespace cardcert::cli
