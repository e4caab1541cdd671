// The space group: the user's choice, its completion from the database, zones, printing.
#include "crystal/spacegroup.h"

#include "core/object.h"
#include "core/report.h"
#include "core/require.h"
#include "core/say.h"
#include "core/slot.h"
#include "core/text.h"
#include "crystal/crystal.h"
#include "crystal/matrix.h"
#include "crystal/reflection_zones.h"
#include "crystal/symop.h"

#include <algorithm>
#include <cstring>

using qx::fail;
using qx::failed;
using qx::ok;
using qx::Status;

namespace {

constexpr const char* database = "spgbase.dat";

Status delete_texts(char**& texts, std::int32_t count) {
  char** list = std::exchange(texts, nullptr);
  if (!list) return ok;
  for (std::int32_t i = 0; i < count; ++i) QX_TRY(qx::release(list[i]));
  return xfree(list);
}

Status delete_operators(qx::Operators& operators) {
  QX_TRY(delete_texts(operators.texts, operators.count));
  operators.count = 0;
  return qx::release(operators.matrices);
}

Status insert_text(qx::OperatorTexts& list, std::int32_t step, const char* text) {
  if (!list.texts || list.count == list.capacity) {
    const std::int32_t capacity = list.texts ? list.capacity + step : list.capacity;
    auto** grown = qx::allocate<char*>(static_cast<std::size_t>(capacity),
                                       list.texts ? "pirps_sopn" : "pirps_sop");
    if (!grown) return failed;
    std::copy_n(list.texts, list.count, grown);
    QX_TRY(qx::release(list.texts));
    list.texts = grown;
    list.capacity = capacity;
  }
  char* copy = qx::duplicate_text(text, "pirps_op");
  if (!copy) return failed;
  list.texts[list.count++] = copy;
  return ok;
}

Status insert_operator(const char* heading, qx::OperatorTexts qxspg::*list, const char* text) {
  qxspg* spg = nullptr;
  QX_TRY(qx::require(heading, qx_get_qxspg, spg, " qxspg object has not been created yet "));
  return insert_text(spg->*list, spg->growth_step, text);
}

}  // namespace

Status qx_new_qxspg() { return qx::create_in(qx_delete_qxspg, qx_set_qxspg, "pnrp_spg"); }

Status qx_delete_qxspg() {
  qxspg* spg = qx_get_qxspg();
  if (!spg) return ok;
  for (char* qxspg::*text :
       {&qxspg::user_name, &qxspg::short_name, &qxspg::full_name, &qxspg::schoenflies_name,
        &qxspg::point_group_name, &qxspg::crystal_system_name, &qxspg::patterson_name,
        &qxspg::laue_name, &qxspg::xyzasu, &qxspg::hklasu}) {
    QX_TRY(qx::release(spg->*text));
  }
  QX_TRY(delete_texts(spg->user_centring.texts, spg->user_centring.count));
  QX_TRY(delete_texts(spg->user_primitive.texts, spg->user_primitive.count));
  QX_TRY(delete_operators(spg->primitive));
  QX_TRY(delete_operators(spg->centring));
  QX_TRY(qx::release(spg->ops));
  QX_TRY(qx::release(spg->inverses));
  QX_TRY(qx::release(spg->op_tensors));
  QX_TRY(qx::release(spg->inverse_tensors));
  for (int axis = 0; axis < 3; ++axis) {
    QX_TRY(qx::release(spg->translation_divisors[axis].values));
    QX_TRY(qx::release(spg->asu_divisors[axis].values));
  }
  return qx::remove_from(spg, qx_set_qxspg);
}

qxspg* qx_get_qxspg() { return qx::slot(qx_get_qxxcry(), &qxxcry::spg); }

Status qx_set_qxspg(qxspg* object) { return qx::install(qx_get_qxxcry(), &qxxcry::spg, object); }

Status qx_set_qxspg_spgname(const char* name) {
  qxspg* spg = nullptr;
  QX_TRY(qx::require(" qx_set_qxspg_spgname():", qx_get_qxspg, spg,
                     " The qxspg object has not been created yet "));
  QX_TRY(qx::release(spg->user_name));
  return qx::open_text(spg->user_name, name, "psrps_spg");
}

Status qx_insert_qxspg_symop_prim(const char* text) {
  return insert_operator(" qx_insert_qxspg_symop_prim():", &qxspg::user_primitive, text);
}

Status qx_insert_qxspg_symop_cent(const char* text) {
  return insert_operator(" qx_insert_qxspg_symop_cent():", &qxspg::user_centring, text);
}

namespace {

Status select_group(const qxspg& spg) {
  if (spg.spg_id != 0) return qx_set_spg_by_spgid(database, spg.spg_id);
  if (spg.user_name) return qx_set_spg_by_spgname(database, spg.user_name);
  const qx::OperatorTexts& centring = spg.user_centring;
  const qx::OperatorTexts& primitive = spg.user_primitive;
  if (centring.count > 0 && primitive.count > 0) {
    return qx_set_spg_by_symoper_strs(database, centring.count, centring.texts, primitive.count,
                                      primitive.texts);
  }
  return fail(" qx_run_qxspg_checker():", " Failed to set up space group of the system. ");
}

Status make_tensors(const double (*ops)[16], std::int32_t count, const char* tag,
                    double (*&tensors)[36]) {
  QX_TRY(qx::release(tensors));
  QX_TRY(qx::open_block(tensors, static_cast<std::size_t>(count), tag));
  for (std::int32_t i = 0; i < count; ++i) {
    double rotation[9];
    qx::rotation_of(ops[i], rotation);
    qx::tensor_matrix_rurt(rotation, tensors[i]);
  }
  return ok;
}

}  // namespace

Status qx_run_qxspg_checker() {
  constexpr const char* here = " qx_run_qxspg_checker():";
  constexpr const char* none = " The qxspg object has not been created yet ";
  qxspg* spg = qx_get_qxspg();
  if (!spg) return fail(here, "%s", none);
  if (spg->nops > 0) return ok;
  QX_TRY(select_group(*spg));
  QX_TRY(make_tensors(spg->ops, spg->nops, "prpc_us", spg->op_tensors));
  QX_TRY(make_tensors(spg->inverses, spg->nops, "prpc_usi", spg->inverse_tensors));
  QX_TRY(qx_set_qxspg_centric_oper());
  return qx_set_qxspg_epsilon_zone();
}

Status qx_parse_spg_symm_oper(const char* string, double* matrix, std::int32_t denominators[3]) {
  constexpr const char* here = "qx_parse_spg_symm_oper():";
  if (!matrix) return fail(here, "The rotran is NULL ");
  const qx::Unreadable bad = qx::parse_operator(string, matrix, denominators);
  if (bad.size == 0) return ok;
  return fail(here, "Failed to get float value from %.*s\n", static_cast<int>(bad.size), bad.start);
}

Status qx_parse_asu_limits(const char* string, float* low, float* high,
                           std::int32_t denominators[2]) {
  const qx::Unreadable bad = qx::parse_limits(string, low, high, denominators);
  if (bad.size == 0) return ok;
  return fail("qx_parse_asu_limits():", "Failed to get float value from %.*s\n",
              static_cast<int>(bad.size), bad.start);
}

void qx_normalize_translation(double* matrix) { qx::normalize_translations(matrix); }

// Kept: a translation outside the table is reported as a missing object.
Status qx_get_string_oper_by_matrix(const double* matrix, char* out) {
  if (qx::format_operator(matrix, out)) return ok;
  return fail("qx_get_string_oper_by_matrix_priv():", "qxspg object has not been created yet.");
}

void qx_proc_spg_names(char* name) {
  for (; *name; ++name) {
    if (*name == '\'' || *name == '"') *name = ' ';
  }
}

std::int32_t qx_match_spg_names(const char* a, const char* b) {
  const auto skip = [](const char* s) {
    while (*s && std::strchr(" \t\n\v\f\r'\"", *s)) ++s;
    return s;
  };
  for (a = skip(a), b = skip(b); *a && qx::to_upper(*a) == qx::to_upper(*b);) {
    a = skip(a + 1);
    b = skip(b + 1);
  }
  return *a == *b ? 1 : 0;
}

Status qx_set_qxspg_centric_oper() {
  qxspg* spg = nullptr;
  QX_TRY(qx::require(" qx_set_qxspg_centric_oper():", qx_get_qxspg, spg,
                     " The qxspg object has not been created yet "));
  for (int zone = 0; zone < qx::centric_zone_count; ++zone) {
    spg->centric_zones[zone] = qx::centric_operator(zone, spg->nops, spg->ops);
  }
  return ok;
}

Status qx_set_qxspg_epsilon_zone() {
  qxspg* spg = nullptr;
  QX_TRY(qx::require(" qx_set_qxspg_epsilon_zone():", qx_get_qxspg, spg,
                     " The qxspg object has not been created yet "));
  constexpr int general = qx::epsilon_zone_count - 1;
  for (int zone = 0; zone < general; ++zone) {
    spg->epsilon_zones[zone] =
        qx::zone_epsilon(zone, spg->primitive.count, spg->primitive.matrices, spg->centring.count);
  }
  spg->epsilon_zones[general] = spg->centring.count;
  return ok;
}

std::int32_t qx_calc_centric_ref(std::int32_t h, std::int32_t k, std::int32_t l) {
  const qxspg* spg = qx_get_qxspg();
  if (spg) return qx::is_centric(spg->centric_zones, h, k, l) ? 1 : 0;
  (void)fail(" qx_calc_centric_ref():", " The qxspg object has not been created yet ");
  return 0;
}

std::int32_t qx_calc_epsilon_ref(std::int32_t h, std::int32_t k, std::int32_t l) {
  const qxspg* spg = qx_get_qxspg();
  if (spg) return qx::epsilon_factor(spg->epsilon_zones, h, k, l);
  (void)fail(" qx_calc_epsilon_ref():", " The qxspg object has not been created yet ");
  return 0;
}

namespace {

void print_text(const char* label, const char* text) {
  if (text) qx::say("%s = %s\n", label, text);
}

void print_matrix(const char* label, const double* m) {
  qx::say("%s\n", label);
  for (int i = 0; i < 16; i += 4) {
    qx::say("%f %f %f %f \n", m[i], m[i + 1], m[i + 2], m[i + 3]);
  }
}

void print_operators(const char* kind, const qx::Operators& operators) {
  qx::say("n_symm_opers_%s = %d\n", kind, operators.count);
  for (std::int32_t i = 0; i < operators.count; ++i) {
    qx::say("symm_oper_string_%s[%d] = %s\n", kind, i, operators.texts[i]);
    print_matrix("Matrix:", operators.matrices[i]);
  }
}

}  // namespace

Status qx_print_qxspg() {
  const qxspg* spg = nullptr;
  QX_TRY(qx::require(" qx_print_qxspg():", qx_get_qxspg, spg,
                     " The qxspg object has not been created yet "));
  qx::say("spg_id = %d\n", spg->spg_id);
  print_text("short_spg_name", spg->short_name);
  print_text("full_spg_name", spg->full_name);
  print_text("schoenflies_name", spg->schoenflies_name);
  print_text("short_pg_name", spg->point_group_name);
  print_text("crystal_system_name", spg->crystal_system_name);
  qx::say("patterson_id = %d\n", spg->patterson_id);
  print_text("patterson_name", spg->patterson_name);
  print_text("laue_name", spg->laue_name);
  print_text("xyzasu_des", spg->xyzasu);
  print_text("hklasu_des", spg->hklasu);
  print_operators("prim", spg->primitive);
  print_operators("cent", spg->centring);
  qx::say("n_symm_opers= %d\n", spg->nops);
  for (std::int32_t i = 0; i < spg->nops; ++i) {
    print_matrix("Symmetric operation matrix: ", spg->ops[i]);
    print_matrix("Inverse matrix: ", spg->inverses[i]);
  }
  return ok;
}

// Kept: the length is 10 also for a name that is longer.
Status qx_get_space_group_name_(char* out, std::int32_t* len) {
  const qxspg* spg = nullptr;
  QX_TRY(qx::require(" qx_get_space_group_name_():", qx_get_qxspg, spg,
                     " The qxspg object has not been created yet "));
  const char* name = spg->short_name ? spg->short_name : "";
  const std::size_t size = std::strlen(name);
  std::copy_n(name, size, out);
  if (size < 10) std::memset(out + size, ' ', 10 - size);
  *len = 10;
  return ok;
}

void qx_get_z_value_(std::int32_t* z) { *z = 0; }
