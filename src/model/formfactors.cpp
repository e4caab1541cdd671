// The form-factor objects, the user's settings, and printing.
#include "model/formfactors.h"

#include "core/object.h"
#include "core/report.h"
#include "core/require.h"
#include "core/say.h"
#include "core/slot.h"
#include "core/text.h"
#include "model/molsys.h"
#include "model/type_table.h"

#include <quorix/engine.h>

using qx::create_in;
using qx::fail;
using qx::failed;
using qx::install;
using qx::ok;
using qx::release;
using qx::remove_from;
using qx::slot;
using qx::Status;

xmolformfact* qx_get_xmolformfact() { return slot(qx_get_xmolsys(), &xmolsys::formfact); }
Status qx_set_xmolformfact(xmolformfact* object) {
  return install(qx_get_xmolsys(), &xmolsys::formfact, object);
}

namespace {

// Setting a member of a container that is not there: it has just been created or is going.
template <class T>
Status set_member(T* xmolformfact::*member, T* object) {
  xmolformfact* container = qx_get_xmolformfact();
  if (container) container->*member = object;
  return qx_exist_quorix() ? ok : failed;
}

}  // namespace

atfrmfactbase* qx_get_atfrmfactbase() { return slot(qx_get_xmolformfact(), &xmolformfact::base); }
ioafrmfact* qx_get_ioafrmfact() { return slot(qx_get_xmolformfact(), &xmolformfact::settings); }
molformfact* qx_get_molformfact() { return slot(qx_get_xmolformfact(), &xmolformfact::pickup); }
qxatformfacthash* qx_get_qxatformfacthash5() {
  return slot(qx_get_xmolformfact(), &xmolformfact::hash5);
}
qxatformfacthash* qx_get_qxatformfacthash2() {
  return slot(qx_get_xmolformfact(), &xmolformfact::hash2);
}
Status qx_set_atfrmfactbase(atfrmfactbase* object) {
  return set_member(&xmolformfact::base, object);
}
Status qx_set_ioafrmfact(ioafrmfact* object) { return set_member(&xmolformfact::settings, object); }
Status qx_set_molformfact(molformfact* object) { return set_member(&xmolformfact::pickup, object); }
Status qx_set_qxatformfacthash5(qxatformfacthash* object) {
  return set_member(&xmolformfact::hash5, object);
}
Status qx_set_qxatformfacthash2(qxatformfacthash* object) {
  return set_member(&xmolformfact::hash2, object);
}

Status qx_new_xmolformfact() {
  QX_TRY(create_in(qx_delete_xmolformfact, qx_set_xmolformfact, "pnx_ffac"));
  xmolformfact* container = qx_get_xmolformfact();
  if (!container) return failed;
  QX_TRY(qx::open_object(container->hash5, "pnx_hash5"));
  QX_TRY(qx::open_object(container->hash2, "pnx_hash2"));
  QX_TRY(qx::open_object(container->base, "pnx_base"));
  QX_TRY(qx::open_object(container->settings, "pnx_ioaf"));
  return qx::open_object(container->pickup, "pnx_molff");
}

namespace qx {

Status release_base_arrays(atfrmfactbase* base) {
  base->natomformfactors = base->ng2atfrmfact = base->ng5atfrmfact = 0;
  QX_TRY(release(base->names));
  QX_TRY(release(base->weight));
  QX_TRY(release(base->electrons));
  QX_TRY(release(base->a));
  QX_TRY(release(base->b));
  QX_TRY(release(base->cw));
  return release(base->mw);
}

}  // namespace qx

namespace {

Status delete_table(qxatformfacthash*& table) {
  if (!table) return ok;
  QX_TRY(qx::release_entries(table->buckets, table->nbuckets));
  return release(table);
}

Status delete_settings(ioafrmfact*& settings) {
  if (!settings) return ok;
  if (settings->forced) QX_TRY(qx::release_entries(settings->forced, settings->nbuckets));
  QX_TRY(release(settings->forced));
  return release(settings);
}

Status delete_pickup(molformfact*& pickup) {
  if (!pickup) return ok;
  QX_TRY(release(pickup->ngauss));
  QX_TRY(release(pickup->index));
  return release(pickup);
}

}  // namespace

Status qx_delete_xmolformfact() {
  xmolformfact* container = qx_get_xmolformfact();
  if (!container) return ok;
  QX_TRY(delete_pickup(container->pickup));
  QX_TRY(delete_settings(container->settings));
  if (container->base) QX_TRY(qx::release_base_arrays(container->base));
  QX_TRY(release(container->base));
  QX_TRY(delete_table(container->hash2));
  QX_TRY(delete_table(container->hash5));
  return remove_from(container, qx_set_xmolformfact);
}

namespace {

ioafrmfact* present_settings(const char* heading) {
  ioafrmfact* settings = qx_get_ioafrmfact();
  if (!settings && qx_exist_quorix()) {
    (void)fail(heading, "ioafrmfact object has not been created yet ");
  }
  return settings;
}

}  // namespace

Status qx_set_atfrmfactbase_diffmethod(std::int32_t method) {
  atfrmfactbase* base = nullptr;
  QX_TRY(qx::require_of_engine("qx_set_atfrmfactbase_diffmethod():", qx_get_atfrmfactbase, base,
                               "atomformfactorbase object has not been created yet."));
  base->method = method;
  return ok;
}

Status qx_set_ioafrmfact_diffraction(std::int32_t method) {
  // Kept: reported under the neighbour's name.
  ioafrmfact* settings = present_settings("qx_set_ioafrmfact_b0():");
  if (!settings) return failed;
  settings->diffraction = method;
  return ok;
}

Status qx_set_ioafrmfact_b0(double b0) {
  ioafrmfact* settings = present_settings("qx_set_ioafrmfact_b0():");
  if (!settings) return failed;
  settings->b0 = b0;
  return ok;
}

Status qx_insert_ioafrmfact_aff(const char* type, std::int32_t ngauss) {
  constexpr const char* heading = "qx_insert_ioafrmfact_aff():";
  ioafrmfact* settings = present_settings(heading);
  if (!settings) return failed;
  if (ngauss != 2 && ngauss != 5) {
    return fail(heading, "Invalid number of gaussians for atom form factor: %d \n", ngauss);
  }
  std::int32_t index = 0;
  const qxatformfacthash* table =
      ngauss == 5 ? qx_get_qxatformfacthash5() : qx_get_qxatformfacthash2();
  if (!table) {
    return fail(heading, ngauss == 5 ? "qxatformfact5 has not been created yet "
                                     : "qxatformfact2 has not been created yet ");
  }
  if (!qx_get_qxatformfacthash_kv(table, type, &index)) {
    return fail(heading, "There is no atom form factor data with ngauss=%d for atom type %s \n",
                ngauss, type);
  }
  if (!settings->forced) {
    QX_TRY(qx::open_zeroed(settings->forced, static_cast<std::size_t>(settings->nbuckets),
                           "pii_forced"));
  }
  ++settings->nforced;
  return qx::insert_entry(settings->forced, settings->nbuckets, type, SIZE_MAX, ngauss,
                          "pii_forced");
}

void qx_print_ioafrmfact() {
  const ioafrmfact* settings = present_settings("qx_print_ioafrmfact():");
  if (!settings) return;
  qx::say("B0: %f \n", settings->b0);
  qx::say("Diffraction method: %s diffraction \n",
          settings->diffraction == qx::neutron_diffraction ? "neutron" : "electron");
  qx::say("User input atom form factor \n");
  qx::say("The hashtable has %d elements \n", settings->nforced);
  if (settings->forced) qx::print_entries(settings->forced, settings->nbuckets);
}

void qx_print_atfrmfactbase() {
  const atfrmfactbase* base = qx_get_atfrmfactbase();
  if (!base) {
    if (qx_exist_quorix()) {
      (void)fail("qx_print_atfrmfactbase():",
                 "atomformfactorbase object has not been created yet.");
    }
    return;
  }
  qx::say("natomformfactors %d\nng2atfrmfact %d \nng5atfrmfact %d \n", base->natomformfactors,
          base->ng2atfrmfact, base->ng5atfrmfact);
  for (std::int32_t i = 0; i < base->natomformfactors; ++i) {
    const double(&a)[5] = base->a[i];
    const double(&b)[5] = base->b[i];
    qx::say("%s\n%d  %d  %f \n", base->names[i], base->weight[i], base->electrons[i], a[4]);
    if (i < base->ng5atfrmfact) {
      qx::say("%f   %f   %f   %f\n", a[0], a[1], a[2], a[3]);
      qx::say("%f   %f   %f   %f\n", b[0], b[1], b[2], b[3]);
    } else {
      qx::say("%f   %f\n%f   %f\n", a[0], a[1], b[0], b[1]);
    }
    qx::say("%f   %f\n%f   %f\n", base->cw[i][0], base->cw[i][1], base->mw[i][0], base->mw[i][1]);
  }
}
