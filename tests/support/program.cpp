#include "support/program.h"

#include "support/engine.h"

#include <cstdlib>
#include <sys/wait.h>

namespace qx::test {

namespace {

std::string quoted(const std::string& text) {
  std::string out;
  out += '\'';
  for (const char c : text) {
    if (c == '\'') out += "'\\'";
    out += c;
  }
  out += '\'';
  return out;
}

}  // namespace

ProgramResult run_program(const std::string& name, const std::vector<std::string>& arguments,
                          const std::string& input, bool data) {
  const ScratchDirectory scratch;
  write_file(scratch.file("in"), input);
  const std::string built = std::string(QUORIX_BINARY_DIR) + "/bin/" + name;
  const std::string program = data ? built : scratch.file(name);
  if (!data) std::filesystem::copy(built, program);
  std::string command =
      data ? "ZENVI_DATA=" + quoted(data_directory().string()) : std::string("env -u ZENVI_DATA");
  command += " " + quoted(program);
  for (const std::string& argument : arguments) command += " " + quoted(argument);
  command += " <" + quoted(scratch.file("in")) + " >" + quoted(scratch.file("out")) + " 2>" +
             quoted(scratch.file("err"));
  const int status = std::system(command.c_str());
  return {WIFEXITED(status) && WEXITSTATUS(status) < 128 ? WEXITSTATUS(status) : -1,
          read_file(scratch.file("out")), read_file(scratch.file("err"))};
}

std::string find_program(const std::string& name) {
  for (const char* folder : {"/usr/bin/", "/usr/local/bin/"}) {
    if (std::filesystem::exists(folder + name)) return folder + name;
  }
  return {};
}

}  // namespace qx::test
