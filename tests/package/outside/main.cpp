// A program of somebody else's, with names of its own that the library uses too.
#include <quorix/quorix.h>

#include <cstdio>

namespace {
const char section[2][1024] = {"xverbose\n", "xend\n"};
}

int main() {
  if (qx_create_quorix() != qx::ok) return 1;
  qx_run_section_job(2, section[0]);
  const bool alive = qx_exist_quorix() && qx_get_die_count() == 0;
  std::printf("quorix %s %s\n", QUORIX_VERSION, alive ? "runs" : "died");
  qx_terminate_quorix();
  return alive ? 0 : 1;
}
