// What both programs do with the process they are: streams, signals, the last word.
#pragma once

#include <cstdio>

namespace qx {

// For the first line of a program. Opens what is missing of the three standard streams, so that no
// file of ours takes their place; a limit on files and a reader that goes away become failed
// writes, reported as such; a signal that ends the program takes unfinished files with it; and
// control bytes, which come from files and names, are shown instead of sent: `stdout` is another
// stream from here on.
void set_up_process();

// Tells the user that QUORIX_THREADS is passed over, if it holds no number of threads.
void check_environment(const char* program);

// Standard error, with control bytes shown, for what is said of files; what draws on a terminal
// keeps to `stderr`.
std::FILE* shown_errors();

// True if the program was started without a standard output.
bool is_output_closed();

// For the last line, before a status of 0: writes out what standard output still holds. False if
// anything printed was lost; errno tells why.
bool finish_output();

}  // namespace qx
