#include "scaling/composition.h"

#include "core/report.h"
#include "core/require.h"
#include "crystal/cell.h"
#include "crystal/reflections.h"
#include "crystal/spacegroup.h"
#include "model/formfactors.h"
#include "model/molsys.h"

#include <quorix/cell.h>
#include <quorix/engine.h>
#include <quorix/formfactors.h>
#include <quorix/model.h>
#include <quorix/spacegroup.h>

#include <algorithm>
#include <cmath>

namespace qx {

namespace {

// How many atoms of each entry of the form-factor base, by the squares of their occupancies.
struct Composition {
  Tagged<double> counts;
  std::int32_t n = 0;
};

Status open_counts(Composition& composition) {
  if (!qx_get_xmolformfact()) QX_TRY(qx_new_xmolformfact());
  QX_TRY(qx_run_atfrmfactbase_checker());
  const atfrmfactbase* base = qx_get_atfrmfactbase();
  if (!base) return failed;
  composition.n = base->natomformfactors;
  composition.counts = Tagged<double>(
      allocate_zeroed<double>(static_cast<std::size_t>(composition.n), "pwc_counts"));
  return composition.counts ? ok : failed;
}

Status count_type(const char* type, double number, Composition& composition) {
  std::int32_t ngauss = 0;
  const std::int32_t index = qx_pickup_afrmfactbase_index(type, &ngauss);
  if (index < 0) return failed;
  composition.counts[static_cast<std::size_t>(index)] += number;
  return ok;
}

Status count_model(const molsys& system, const qxatomocc& occupancies, std::int32_t nops,
                   Composition& composition) {
  for (std::int32_t i = 0; i < system.natom; ++i) {
    const double q = occupancies.occupancy[i];
    QX_TRY(count_type(system.info.type[i], nops * q * q, composition));
  }
  return ok;
}

// Matthews, J. Mol. Biol. 33, 491, 1968: 2.4 Angstrom^3 a dalton; a residue weighs 110.
Status count_average_protein(double volume, Composition& composition) {
  constexpr double volume_of_residue = 2.4 * 110.0;
  constexpr std::pair<const char*, double> residue[] = {
      {"C", 5.0}, {"N", 1.35}, {"O", 1.5}, {"H", 8.0}, {"S", 0.03}};
  for (const auto& [type, number] : residue) {
    QX_TRY(count_type(type, number * volume / volume_of_residue, composition));
  }
  return ok;
}

double form_factor(const atfrmfactbase& base, std::size_t entry, double s2) {
  double f = 0.0;
  for (int i = 0; i < 5; ++i) f += base.a[entry][i] * std::exp(-0.25 * base.b[entry][i] * s2);
  return f;
}

double sum_at(const Composition& composition, const atfrmfactbase& base, double s2) {
  double sum = 0.0;
  for (std::size_t entry = 0; entry < static_cast<std::size_t>(composition.n); ++entry) {
    if (composition.counts[entry] == 0.0) continue;
    const double f = form_factor(base, entry, s2);
    sum += composition.counts[entry] * f * f;
  }
  return sum;
}

Status count(const char* heading, Composition& composition, bool& from_model,
             double& lattice_points) {
  const qxspg* group = qx_get_qxspg();
  if (!qx_exist_quorix()) return failed;
  if (!group || group->nops < 1) return fail(heading, "qxspg object has not been created yet ");
  const qxcell* cell = nullptr;
  QX_TRY(qx::require_of_engine(heading, qx_get_qxcell, cell,
                               "qxcell object has not been created yet "));
  const molsys* system = qx_get_molsys();
  if (!qx_exist_quorix()) return failed;
  const qxatomocc* occupancies = nullptr;
  if (system) occupancies = qx_get_qxatomocc();
  if (!qx_exist_quorix()) return failed;
  lattice_points = std::max(group->centring.count, 1);
  from_model = system && occupancies && system->natom > 0;
  QX_TRY(open_counts(composition));
  return from_model ? count_model(*system, *occupancies, group->nops, composition)
                    : count_average_protein(cell->volume, composition);
}

}  // namespace

Status expected_intensities(const char* heading, const qxrefdata& data, Tagged<double>& sum_f2,
                            bool& from_model) {
  Composition composition;
  double lattice_points = 1.0;
  QX_TRY(count(heading, composition, from_model, lattice_points));
  const atfrmfactbase* base = qx_get_atfrmfactbase();
  if (!base) return failed;
  sum_f2 = Tagged<double>(static_cast<std::size_t>(data.nreflections), "pwc_sum");
  if (!sum_f2) return failed;
  for (std::int32_t i = 0; i < data.nreflections; ++i) {
    const double s = data.s_length[i];
    sum_f2[static_cast<std::size_t>(i)] = lattice_points * sum_at(composition, *base, s * s);
  }
  return ok;
}

}  // namespace qx
