// The command loop that every section controller is: a table and a finishing step.
#pragma once

#include "core/command.h"
#include "core/report.h"
#include "core/timer.h"

#include <cstddef>
#include <cstring>

namespace qx {

template <class State>
struct Command {
  const char* key;              // a word matches when its four letters begin with the key
  Status (*run)(State& state);  // `failed` after a report
  bool ends = false;            // the section is over when run() succeeded
};

struct SectionTexts {
  const char* heading;  // "qx_grid_ctrl():" as printed
  const char* no_word;  // the report when the text is used up, or its next word cannot be fetched
  const char*
      unknown_before;  // what stands before the four letters of an unknown word; null: skipped
  const char* unknown_after;
};

// Runs commands until one that ends the section; `failed` after a report.
template <class State, std::size_t N>
Status run_section(const SectionTexts& texts, const Command<State> (&commands)[N], State& state) {
  char word[5];
  for (;;) {
    if (next_command(word) != ok || word[0] == '\0') {
      return fail(texts.heading, "%s", texts.no_word);
    }
    const Command<State>* match = nullptr;
    for (const Command<State>& row : commands) {
      if (std::strncmp(word, row.key, std::strlen(row.key)) == 0) {
        match = &row;
        break;
      }
    }
    if (match) {
      const double start = cpu_seconds();
      QX_TRY(match->run(state));
      tell_step(word, start);
      if (match->ends) return ok;
    } else if (texts.unknown_before) {
      return fail(texts.heading, "%s%s%s", texts.unknown_before, word, texts.unknown_after);
    }
  }
}

}  // namespace qx
