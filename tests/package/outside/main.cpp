// A program of somebody else's, with names of its own that the library uses too.
#include <quorix/quorix.h>

#include <cstdio>
#include <thread>

namespace {

// The space group is looked up in the library's data.
const char section[4][1024] = {"xcry\n", "spgname P 21\n", "cell 20 30 40 90 100 90\n", "xend\n"};

bool runs() {
  if (quorix || qx_create_quorix() != qx::ok) return false;
  qx_run_section_job(4, section[0]);
  return quorix && qx_exist_quorix() && qx_get_die_count() == 0;
}

}  // namespace

int main() {
  const bool alive = runs();
  bool other = false;
  std::thread([&] {
    other = runs();
    die();
  }).join();
  const bool well = alive && other && quorix && qx_get_die_count() == 0;
  std::printf("quorix %s %s\n", QUORIX_VERSION, well ? "runs" : "died");
  qx_terminate_quorix();
  return well ? 0 : 1;
}
