// What --help and --version say.
#pragma once

#include <string>

namespace cardcert::cli {

std::string HelpText();
std::string VersionText();

}  // namespace cardcert::cli
