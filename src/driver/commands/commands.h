// The subcommands of quorix. Each adds itself to the parser; when chosen, its callback sets the
// process status: 0 done, 1 the engine reported a failure, 2 bad usage or an unreadable file.
#pragma once

namespace CLI {
class App;
}

namespace qx {

void add_run(CLI::App& app, int& status);
void add_fcalc(CLI::App& app, int& status);
void add_map(CLI::App& app, int& status);
void add_info(CLI::App& app, int& status);
void add_report(CLI::App& app, int& status);
void add_batch(CLI::App& app, int& status);
void add_maps(CLI::App& app, int& status);
void add_validate(CLI::App& app, int& status);
void add_omit(CLI::App& app, int& status);
void add_stats(CLI::App& app, int& status);
void add_peaks(CLI::App& app, int& status);
void add_fofo(CLI::App& app, int& status);
void add_convert(CLI::App& app, int& status);
void add_free(CLI::App& app, int& status);

// Takes what stands behind "--" of quorix batch off the line, for quorix map: the parser would take
// it for inputs.
void take_map_options(int& argc, char** argv);

// For the program's first line: a process that a batch started does not outlive it.
void end_with_the_batch();

}  // namespace qx
