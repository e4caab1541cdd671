// Getters and setters of a container's members, one greppable line each:
//   qxcell* qx_get_qxcell() { return qx::slot(qx_get_qxxcry(), &qxxcry::cell); }
// and, for a setter,
//   return qx::install(qx_get_qxxcry(), &qxxcry::cell, cell);
// The container's own getter has reported and died when it gives null.
#pragma once

#include <quorix/api.h>

namespace qx {

template <class Container, class Member>
Member* slot(const Container* container, Member* Container::*member) {
  return container ? container->*member : nullptr;
}

template <class Container, class Member>
Status install(Container* container, Member* Container::*member, Member* value) {
  if (!container) return failed;
  container->*member = value;
  return ok;
}

}  // namespace qx
