// Standard output carries data only, whatever a provider prints.
#pragma once

namespace cardcert::cli {

// Opens /dev/null in the place of each standard descriptor that is closed. Must be called before
// any file is opened: a file opened later would get the number of the closed descriptor, and data
// or messages would be written into it. Using such a descriptor still fails.
void ReserveStandardDescriptors();

// Moves standard output to another descriptor, and makes descriptor 1 a copy of standard error.
// What a provider prints then appears among the messages. Neither programs that the provider starts
// nor processes that it forks get the moved descriptor.
//
// Must be called before a provider is loaded, and after the files of the command line have been
// opened: /dev/stdout and /dev/fd/1 lead to descriptor 1. Further calls change nothing. On failure
// prints an error and returns false.
bool SetStandardOutputAside();

// Returns the descriptor of standard output. Returns -1 with errno EBADF if the provider closed it.
int StandardOutput();

}  // namespace cardcert::cli
