// From an atom's type to its entry in the form-factor base.
#include "core/object.h"
#include "core/report.h"
#include "core/require.h"
#include "core/text.h"
#include "model/atom_name.h"
#include "model/formfactors.h"
#include "model/molsys.h"
#include "model/type_table.h"

#include <quorix/engine.h>

#include <cctype>
#include <cstring>

using qx::fail;
using qx::failed;
using qx::ok;
using qx::release;
using qx::Status;

namespace {

constexpr const char* heading = "qx_pickup_afrmfactbase_index():";

std::int32_t no_data(std::int32_t ngauss, const char* type) {
  (void)fail(heading, "There is no atomic form factor data with ngauss=%d for atom type \"%s\" \n",
             ngauss, type);
  return -1;
}

// The longest run of letters behind leading blanks: "Fe" of "Fe+2".
void element_of(const char* type, char (&element)[8]) {
  while (std::isspace(static_cast<unsigned char>(*type))) ++type;
  std::size_t size = 0;
  while (size + 1 < sizeof element && std::isalpha(static_cast<unsigned char>(type[size]))) {
    element[size] = type[size];
    ++size;
  }
  element[size] = '\0';
}

// The tables, both reported when absent.
struct Tables {
  const qxatformfacthash* five = nullptr;
  const qxatformfacthash* two = nullptr;
};

Status fetch_tables(Tables& tables) {
  QX_TRY(qx::require(heading, qx_get_qxatformfacthash5, tables.five,
                     "qxatformfact5 has not been created yet "));
  tables.two = qx_get_qxatformfacthash2();
  return tables.two ? ok : fail(heading, "qxatformfact2 has not been created yet ");
}

bool uses_electrons() {
  const atfrmfactbase* base = qx_get_atfrmfactbase();
  return base && base->method == qx::electron_diffraction;
}

}  // namespace

std::int32_t qx_pickup_afrmfactbase_index(const char* type, std::int32_t* ngauss) {
  Tables tables;
  if (fetch_tables(tables) != ok) return -1;
  std::int32_t index = -1;
  const ioafrmfact* settings = qx_get_ioafrmfact();
  if (settings && settings->forced) {
    if (const auto* entry = qx::find_entry(settings->forced, settings->nbuckets, type)) {
      *ngauss = entry->value;
      const auto* table = *ngauss == 5 ? tables.five : tables.two;
      return qx_get_qxatformfacthash_kv(table, type, &index) ? index : no_data(*ngauss, type);
    }
  }
  *ngauss = 2;
  if (qx_get_qxatformfacthash_kv(tables.two, type, &index)) return index;
  *ngauss = 5;
  if (qx_get_qxatformfacthash_kv(tables.five, type, &index)) return index;
  char element[8];
  element_of(type, element);
  if (qx_get_qxatformfacthash_kv(tables.five, element, &index)) return index;
  // Electrons do not see the nucleus's mass.
  const bool isotope = std::strcmp(element, "D") == 0 && uses_electrons();
  if (isotope && qx_get_qxatformfacthash_kv(tables.five, "H", &index)) return index;
  return no_data(5, type);
}

Status qx_make_molformfact() {
  constexpr const char* name = "qx_make_molformfact():";
  const molsys* system = nullptr;
  molformfact* pickup = nullptr;
  QX_TRY(qx::require_of_engine(
      name, qx::need(qx_get_molsys, system, "molsys object has not been created yet "),
      qx::need(qx_get_molformfact, pickup, "molformfact object does not exist yet. ")));
  QX_TRY(qx_run_atfrmfactbase_checker());
  QX_TRY(release(pickup->ngauss));
  QX_TRY(release(pickup->index));
  const auto n = static_cast<std::size_t>(system->natom);
  pickup->natom = 0;
  if (system->natom < 1) return ok;
  QX_TRY(qx::open_block(pickup->ngauss, n, "pmm_ng"));
  QX_TRY(qx::open_block(pickup->index, n, "pmm_ix"));
  for (std::int32_t i = 0; i < system->natom; ++i) {
    std::int32_t ngauss = 0;
    const std::int32_t full = system->to_full[i];
    const std::int32_t index = qx_pickup_afrmfactbase_index(system->info.type[i], &ngauss);
    if (!qx_exist_quorix()) {
      return fail(name, "Atom %s has no form factor. ", qx::name_of_atom(full, i + 1).text);
    }
    pickup->ngauss[i] = ngauss;
    pickup->index[i] = index;
  }
  pickup->natom = system->natom;
  return ok;
}

namespace {

// Copies the entries that stay: fixed atoms, and old waters whose keep flag is set.
std::int32_t keep_entries(const molformfact* pickup, const molsys* system, std::int32_t* ngauss,
                          std::int32_t* index) {
  std::int32_t kept = 0;
  for (std::int32_t i = 0; i < pickup->natom && kept < system->natom; ++i) {
    const bool fixed = i < system->nfixed;
    if (!fixed && !(system->info.water_keep && system->info.water_keep[i - system->nfixed]))
      continue;
    ngauss[kept] = pickup->ngauss[i];
    index[kept++] = pickup->index[i];
  }
  return kept;
}

}  // namespace

Status qx_update_molformfact_with_waters() {
  constexpr const char* name = "qx_update_molformfact_with_waters():";
  const molsys* system = nullptr;
  QX_TRY(qx::require_of_engine(name, qx_get_molsys, system, "molsys object does not exist yet. "));
  molformfact* pickup = nullptr;
  QX_TRY(qx::require(name, qx_get_molformfact, pickup, "molformfact object does not exist yet. "));
  if (!qx_get_qxwater()) return fail(name, "qxwater object has not been created yet ");
  const auto n = static_cast<std::size_t>(system->natom);
  qx::Tagged<std::int32_t> ngauss(n, "pum_ng");
  if (!ngauss) return failed;
  qx::Tagged<std::int32_t> index(n, "pum_ix");
  if (!index) return failed;
  for (std::int32_t i = keep_entries(pickup, system, ngauss.get(), index.get()); i < system->natom;
       ++i) {
    std::int32_t terms = 0;
    const std::int32_t entry = qx_pickup_afrmfactbase_index("O", &terms);
    if (!qx_exist_quorix()) return failed;
    ngauss[static_cast<std::size_t>(i)] = terms;
    index[static_cast<std::size_t>(i)] = entry;
  }
  QX_TRY(release(pickup->ngauss));
  QX_TRY(release(pickup->index));
  pickup->ngauss = ngauss.release();
  pickup->index = index.release();
  pickup->natom = system->natom;
  return ok;
}
