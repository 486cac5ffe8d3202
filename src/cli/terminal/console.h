// What the program says: data to standard output, everything else to standard error.
#pragma once

#include <string>
#include <string_view>

// Puts something unusable in the place of each standard descriptor that was closed when the program
// began. The next file opened would get its number otherwise, a token's file or the log, and data
// or messages would be written into it.
void OccupyClosedDescriptors();

// One line on standard error, "cardcert: " and the message, with outside text in it escaped.
void Complain(std::string_view message);

// Writes `data` whole to standard output and flushes it. False, with a complaint, when that fails;
// a reader that has gone away (head, a pager) needs no words.
bool Print(std::string_view data);

// `text` between quotation marks.
std::string Quoted(std::string_view text);
