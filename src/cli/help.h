// What --help and --version say.
#pragma once

#include <string>

std::string HelpText();
std::string VersionText();
