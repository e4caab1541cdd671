// The transform object: creation, plan caches, deletion.
#include "fft/fft.h"

#include "core/object.h"
#include "core/refsys.h"
#include "core/report.h"
#include "core/slot.h"
#include "core/tagged.h"

#include <quorix/engine.h>

#include <algorithm>

using qx::failed;
using qx::ok;
using qx::Status;

namespace {

template <class Plan>
Status create_table(qx::PlanTable<Plan>*& table, const char* tag, const char* list_tag) {
  QX_TRY(qx::open_object(table, tag));
  return qx::open_zeroed(table->heads, static_cast<std::size_t>(table->buckets), list_tag);
}

Status delete_plan(qxfftplan* plan) {
  QX_TRY(qx::delete_factors(plan->factors));
  QX_TRY(qx::delete_schedule(plan->row));
  QX_TRY(qx::delete_schedule(plan->column));
  return xfree(plan);
}

Status delete_plan(qxfftrealplan* plan) {
  QX_TRY(qx::delete_factors(plan->half));
  for (double** block : {&plan->cosine, &plan->sine, &plan->xr, &plan->xi}) {
    QX_TRY(qx::release(*block));
  }
  return xfree(plan);
}

template <class Plan>
Status delete_table(qx::PlanTable<Plan>*& table) {
  if (!table) return ok;
  for (std::int32_t i = 0; table->heads && i < table->buckets; ++i) {
    while (qx::PlanEntry<Plan>* entry = table->heads[i].first) {
      table->heads[i].first = entry->next;
      if (entry->plan) QX_TRY(delete_plan(entry->plan));
      QX_TRY(xfree(entry));
    }
  }
  QX_TRY(qx::release(table->heads));
  return qx::release(table);
}

template <class Plan>
Plan* find(const qx::PlanTable<Plan>& table, std::int32_t length) {
  if (length < 0) return nullptr;
  for (const auto* entry = table.heads[length % table.buckets].first; entry; entry = entry->next) {
    if (entry->length == length) return entry->plan;
  }
  return nullptr;
}

template <class Plan>
Status enter(qx::PlanTable<Plan>& table, std::int32_t length, Plan* plan, const char* tag) {
  auto* entry = qx::new_object<qx::PlanEntry<Plan>>(tag);
  if (!entry) return failed;
  qx::PlanEntry<Plan>*& head = table.heads[length % table.buckets].first;
  *entry = {length, plan, head};
  head = entry;
  ++table.entries;
  return ok;
}

qxfftplan* create_plan(std::int32_t n) {
  auto* plan = qx::new_object<qxfftplan>("gp_c");
  if (!plan) return nullptr;
  const qx::FactorTags tags = {"gp_f", "gp_l", "gp_r", "gp_co", "gp_si"};
  if (qx::create_factors(plan->factors, n, tags) != ok) return nullptr;
  if (qx::create_schedule(plan->row, n, qx::FftOrder::rows) != ok) return nullptr;
  if (qx::create_schedule(plan->column, n, qx::FftOrder::columns) != ok) return nullptr;
  return plan;
}

qxfftrealplan* create_real_plan(std::int32_t n) {
  if (n % 2 != 0) {
    (void)qx::fail("get_qxfftrealcache():", "N must be even for real FFT ");
    return nullptr;
  }
  auto* plan = qx::new_object<qxfftrealplan>("gp_rc");
  if (!plan) return nullptr;
  plan->n = n;
  const qx::FactorTags tags = {"gp_rf", "gp_rl", "gp_rr", "gp_rco", "gp_rsi"};
  if (qx::create_factors(plan->half, n / 2, tags) != ok) return nullptr;
  const auto points = static_cast<std::size_t>(n / 2);
  if (qx::open_block(plan->cosine, points, "gp_rrco") != qx::ok) return nullptr;
  if (qx::open_block(plan->sine, points, "gp_rrsi") != qx::ok) return nullptr;
  for (std::int32_t k = 0; k < n / 2; ++k) qx::unit_root(k, n, plan->cosine[k], plan->sine[k]);
  return plan;
}

Status grow_scratch(qxfft& fft, std::ptrdiff_t size) {
  if (size <= fft.scratch_size) return ok;
  fft.scratch_size = 0;
  QX_TRY(qx::release(fft.scratch));
  QX_TRY(qx::open_block(fft.scratch, static_cast<std::size_t>(size), "gp_w"));
  fft.scratch_size = size;
  return ok;
}

qxfftplan* find_plan(qxfft& fft, std::int32_t n) {
  qxfftplan* plan = find(*fft.plans, n);
  if (plan) return plan;
  if (!(plan = create_plan(n))) return nullptr;
  if (grow_scratch(fft, qx::fft_scratch_size(n)) != ok) return nullptr;
  if (enter(*fft.plans, n, plan, "gp_cl") != ok) return nullptr;
  fft.newest_plan = plan;
  return plan;
}

qxfftrealplan* find_real_plan(qxfft& fft, std::int32_t n) {
  qxfftrealplan* plan = find(*fft.real_plans, n);
  if (plan) return plan;
  if (!(plan = create_real_plan(n))) return nullptr;
  if (grow_scratch(fft, qx::real_rows_size(n) + qx::fft_scratch_size(n / 2)) != ok) return nullptr;
  return enter(*fft.real_plans, n, plan, "gp_rcl") == ok ? plan : nullptr;
}

}  // namespace

qxfft* qx::fft_object() {
  const refsys* system = qx_get_refsys();
  if (!system) return nullptr;
  if (system->fft) return system->fft;
  return qx_new_qxfft() == ok ? qx_get_qxfft() : nullptr;
}

Status qx_new_qxfft() {
  QX_TRY(qx::create_in(qx_delete_qxfft, qx_set_qxfft, "pnrf_fft"));
  qxfft* fft = qx_get_qxfft();
  if (!fft) return failed;
  QX_TRY(qx::open_block(fft->radices, 4, "pnrf_rad"));
  std::copy_n(std::initializer_list<std::int32_t>{5, 4, 3, 2}.begin(), 4, fft->radices);
  QX_TRY(create_table(fft->plans, "nrp_hash", "nrp_list"));
  return create_table(fft->real_plans, "nrp_rhash", "nrp_rlist");
}

Status qx_delete_qxfft() {
  qxfft* fft = qx_get_qxfft();
  if (!fft) return ok;
  QX_TRY(qx_set_qxfft(nullptr));
  QX_TRY(delete_table(fft->plans));
  QX_TRY(delete_table(fft->real_plans));
  QX_TRY(qx::release(fft->scratch));
  QX_TRY(qx::release(fft->radices));
  return xfree(fft);
}

qxfft* qx_get_qxfft() { return qx::slot(qx_get_refsys(), &refsys::fft); }
Status qx_set_qxfft(qxfft* object) { return qx::install(qx_get_refsys(), &refsys::fft, object); }

qxfftplan* get_qxfftcache(std::int32_t n) {
  qxfft* fft = qx::fft_object();
  return fft ? find_plan(*fft, n) : nullptr;
}

qxfftrealplan* get_qxfftrealcache(std::int32_t n, const double* in) {
  qxfft* fft = qx::fft_object();
  if (!fft) return nullptr;
  qxfftrealplan* plan = find_real_plan(*fft, n);
  if (!plan) return nullptr;
  const auto points = static_cast<std::size_t>(n / 2);
  if (!plan->xr && qx::open_block(plan->xr, points, "gp_xr") != ok) return nullptr;
  if (!plan->xi && qx::open_block(plan->xi, points, "gp_xi") != ok) return nullptr;
  qx::split_even_odd(n, in, plan->xr, plan->xi);
  return plan;
}

namespace qx {

const qxfftplan* complex_plan(qxfft& fft, std::int32_t n) {
  const qxfftplan* newest = fft.newest_plan;
  return newest && newest->factors.n == n ? newest : find_plan(fft, n);
}
const qxfftrealplan* real_plan(qxfft& fft, std::int32_t n) { return find_real_plan(fft, n); }

void split_even_odd(std::int32_t n, const double* in, double* even, double* odd) noexcept {
  for (std::int32_t j = 0; j < n / 2; ++j) {
    even[j] = in[2 * j];
    odd[j] = in[2 * j + 1];
  }
}

FftScratch engine_scratch(const qxfft& fft) noexcept { return {fft.scratch, fft.scratch_size}; }

std::ptrdiff_t real_rows_size(std::int32_t n) noexcept {
  return 4 * std::ptrdiff_t{(n / 2 + 7) / 8 * 8};
}

Status FftScratchBlock::open(std::initializer_list<std::int32_t> lengths, std::int32_t workers) {
  constexpr std::ptrdiff_t line = 8;
  size_ = 0;
  for (const std::int32_t n : lengths) size_ = std::max(size_, fft_scratch_size(n));
  if (workers > 1) size_ = (size_ + line - 1) / line * line;
  block_ = Tagged<double>(static_cast<std::size_t>(size_ * workers), "gp_w");
  return block_ ? ok : failed;
}

}  // namespace qx
