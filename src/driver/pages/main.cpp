// quorix-pages TEXTS ROUTINE OUT: writes manual pages and shell completion into the folder OUT.
// TEXTS holds what the declarations of the options do not tell: <page>.txt about a program of that
// name. ROUTINE is the fixed part of bash completion.
#include "driver/commands/app.h"
#include "driver/pages/pages.h"

#include <filesystem>
#include <fstream>
#include <iostream>
#include <iterator>

namespace {

namespace fs = std::filesystem;

std::string read(const fs::path& path) {
  std::ifstream file(path);
  return {std::istreambuf_iterator<char>(file), {}};
}

std::ofstream create(const fs::path& path) {
  fs::create_directories(path.parent_path());
  std::ofstream file;
  file.exceptions(std::ios::failbit | std::ios::badbit);
  file.open(path);
  return file;
}

void write_all(const fs::path& texts, const fs::path& routine, const fs::path& out) {
  int status = 0;
  CLI::App app;
  qx::build_app(app, status);
  std::vector<const CLI::App*> subjects = {nullptr};
  for (const CLI::App* command : app.get_subcommands({})) subjects.push_back(command);
  for (const CLI::App* subject : subjects) {
    const std::string name = qx::page_name(app, subject);
    auto page = create(out / "man1" / (name + ".1"));
    qx::write_man_page(page, app, subject, read(texts / (name + ".txt")));
    page.close();
  }
  auto bash = create(out / "bash-completion" / "completions" / "quorix");
  qx::write_bash_completion(bash, app, read(routine));
  bash.close();
  auto zsh = create(out / "zsh" / "site-functions" / "_quorix");
  qx::write_zsh_completion(zsh, app);
  zsh.close();
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 4) {
    std::cerr << "Usage: quorix-pages TEXTS ROUTINE OUT\n";
    return 2;
  }
  try {
    write_all(argv[1], argv[2], argv[3]);
  } catch (const std::exception& error) {
    std::cerr << "quorix-pages: " << error.what() << '\n';
    return 1;
  }
  return 0;
}
