// A file that is written whole or not at all.
#pragma once

#include <string>
#include <string_view>

namespace cardcert::cli {

class OutputFile {
 public:
  // "-" and "/dev/stdout" are standard output.
  explicit OutputFile(std::string path);

  // Whether writing has a chance: so that a mistake shows before anybody is asked for a PIN. False
  // has been complained about.
  bool Check() const;

  // Whether the output would take the place of this file, under whatever name.
  bool Replaces(const std::string& path) const;

  // Whether what is written appears on a terminal.
  bool IsTerminal() const;

  // Replaces the file by one with `data`, through a temporary file beside it; permissions of a file
  // that was there are kept, and a link keeps pointing to it. What is no ordinary file (a pipe, a
  // device) is written to as it is. False has been complained about, and an ordinary file is as it
  // was.
  bool Write(std::string_view data) const;

 private:
  bool Replace(std::string_view data) const;
  bool WriteInPlace(std::string_view data) const;
  bool Fail(const char* what) const;

  std::string path_;    // as given
  std::string target_;  // where links end
};

}  // namespace cardcert::cli
