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

}  // namespace qx
