// Everything that the program prints, and the rules for it.
//
//   standard output   data: tables, JSON, signatures
//   standard error    messages, one line each
//   /dev/tty          questions and what belongs to them (see terminal.h)
//
// A message has one of these forms:
//
//   cardcert: error: ...     something failed; the command goes on only if the message says so
//   cardcert: warning: ...   the command goes on, but the result may not be what the user expects
//   cardcert: hint: ...      what to do next; follows an error or a warning
//   cardcert: ...            progress, and the items of a list that an error announces
//
// Messages begin in lower case and end without a full stop. They say what happened and why; text
// from the command line, files, certificates and tokens stands in Quoted() form. Control characters
// are escaped on the way out, so a message can neither steer a terminal nor look like two. No
// colour is used.
#pragma once

#include <string>
#include <string_view>

namespace cardcert::cli {

void PrintError(std::string_view message);
void PrintWarning(std::string_view message);
void PrintHint(std::string_view message);
void PrintProgress(std::string_view message);

// The same texts without escaping and line break, for messages that belong to a dialogue at the
// terminal.
std::string ErrorText(std::string_view message);
std::string WarningText(std::string_view message);

// Writes all of `data` to standard output, see standard_output.h. On failure prints an error and
// returns false; a broken pipe (head, a pager) prints nothing.
bool PrintData(std::string_view data);

// Returns `text` between quotation marks.
std::string Quoted(std::string_view text);

}  // namespace cardcert::cli
