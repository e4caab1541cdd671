// The root record and its twelve members, in order.
#pragma once

#include <quorix/engine.h>

struct qxroot {
  char* message = nullptr;
  qxmemmonitor* memmonitor = nullptr;
  qxtimerfactory* timerfactory = nullptr;  // never created nor deleted by the root
  qxparser* parser = nullptr;
  xmolsys* molsys = nullptr;
  refsys* reflections = nullptr;
  qxwater* water = nullptr;
  qxminimizer* minimizer = nullptr;
  qxminparm* minparm = nullptr;
  qxharvest* harvest = nullptr;
  qxverbsys* verbosity = nullptr;
  qxwilson* wilson = nullptr;
};
