// What a provider may do to the program beside answering its calls.
#pragma once

#include <functional>
#include <string>

// Returns what the word stands for:
//   throw               throws a std::runtime_error with an escape sequence in its text
//   throw-int           throws an int
//   throw-own           throws an object of a class that only the library knows
//   exit                calls exit(0)
//   fork                forks a process that returns from the call, too
//   fork-exit           forks a process that calls exit(0), as a library that starts a helper does
//   print               writes a line to standard output
//   print-buffered      the same with printf(), which may write it as late as in exit()
//   print-error         writes a line to standard error
//   leave-child         forks a process that sleeps for 30 seconds
//   leave-program       starts a program that sleeps for 30 seconds
//   chdir               changes the working directory to /
//   umask               sets the umask to 0
//   locale              sets a locale that writes numbers with a comma, where there is one
//   ignore-signals      ignores SIGINT, SIGTERM and SIGHUP
//   block-signals       blocks them
//   close-descriptors   closes every descriptor from 3 on
//   hang                makes a file, the name of the trace and ".hangs", and waits for ever
//   stop                stops the process with SIGSTOP, until somebody continues it
//   crash               writes to memory that it may not write: SIGSEGV
//   overflow-stack      uses up the stack: SIGSEGV
//   abort               calls abort()
// Throws std::out_of_range for every other word.
std::function<void()> Misbehavior(const std::string& word);
