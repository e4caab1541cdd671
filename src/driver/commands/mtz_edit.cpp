#include "driver/commands/mtz_edit.h"

#include "core/timer.h"
#include "driver/commands/command_error.h"
#include "driver/commands/output_place.h"
#include "driver/commands/whole_file.h"

#include <ctime>

namespace qx {

gemmi::Mtz open_mtz(const std::string& path, const std::string& shown) {
  try {
    gemmi::Mtz mtz;
    mtz.read_file(path);
    return mtz;
  } catch (const std::bad_alloc&) {
    throw;
  } catch (const std::exception& error) {
    throw CommandError(2, "cannot read " + shown + ": " + error.what());
  }
}

void add_history(gemmi::Mtz& mtz, const std::string& line) {
  constexpr std::size_t most = 30, width = 80;
  const std::time_t now = time_of_files();
  std::tm local = {};
  localtime_r(&now, &local);
  char date[32] = {};
  (void)std::strftime(date, sizeof date, ", %d/%m/%Y %H:%M:%S", &local);
  const std::string text = line.substr(0, width - std::min(width, std::string(date).size())) + date;
  mtz.history.insert(mtz.history.begin(), text);
  if (mtz.history.size() > most) mtz.history.resize(most);
}

void write_mtz(const gemmi::Mtz& mtz, const std::string& path) {
  std::string bytes;
  try {
    mtz.write_to_string(bytes);
  } catch (const std::runtime_error& error) {
    throw CommandError(2, path + " cannot be written: " + error.what());
  }
  const OutputPlace place(path);
  write_whole(place.path(), bytes);
  place.deliver();
}

}  // namespace qx
