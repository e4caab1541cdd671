// Processor time of the sections' steps, told where the verb_cpu switch asks for it.
#pragma once

#include <ctime>

namespace qx {

// The section that begins; the timer factory is made when it is wanted and not there.
void begin_timed_section(const char* word);

// Processor seconds of the process so far.
double cpu_seconds() noexcept;
// Tells what a command of the section took since `start`: with verb_cpu 1 if it was a millisecond
// or more, with 2 in any case. Never reports.
void tell_step(const char* word, double start);

// The time that files written now tell: SOURCE_DATE_EPOCH where it is set, so that the same work
// gives the same bytes.
std::time_t time_of_files() noexcept;

}  // namespace qx
