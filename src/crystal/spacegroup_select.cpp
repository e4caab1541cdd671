// Selecting a group from the database and filling the object from the record.
#include "core/report.h"
#include "core/say.h"
#include "core/text.h"
#include "crystal/spacegroup.h"
#include "crystal/spacegroup_file.h"

#include <quorix/asu.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <utility>

using qx::fail;
using qx::failed;
using qx::ok;
using qx::Status;

namespace {

constexpr const char* fill = " qx_fill_spg():";

// Gives a text of the record to the object, which lets its own go.
Status give(qx::Tagged<char>& text, char*& field) {
  QX_TRY(qx::release(field));
  field = text.release();
  return ok;
}

Status fill_system(qxspg& spg) {
  constexpr const char* systems[] = {"triclinic",    "monoclinic", "orthorhombic", "tetragonal",
                                     "rhombohedral", "trigonal",   "hexagonal",    "cubic"};
  const char* name = spg.crystal_system_name ? spg.crystal_system_name : "";
  std::int32_t code = 0;
  for (const char* system : systems) {
    ++code;
    if (qx::starts_with(name, system)) {
      spg.crystal_system = code;
      return ok;
    }
  }
  return fail(fill, " Not a standard crystal system: %s \n", name);
}

// The list stands newest first: the arrays are filled from their last slot.
Status fill_operators(const qx::OperatorList& list, qx::Operators& operators) {
  const auto n = static_cast<std::size_t>(list.count());
  QX_TRY(qx::release(operators.matrices));
  QX_TRY(qx::open_block(operators.matrices, n, "pfs_mats"));
  QX_TRY(qx::release(operators.texts));
  QX_TRY(qx::open_zeroed(operators.texts, n, "pfs_strs"));
  operators.count = list.count();
  std::size_t i = n;
  for (const symoperstrmat* node = list.newest(); node; node = node->next) {
    --i;
    std::memcpy(operators.matrices[i], node->matrix, sizeof operators.matrices[i]);
    QX_TRY(qx::open_text(operators.texts[i], node->text, "pfs_str"));
  }
  return ok;
}

Status fill_full_operators(const qx::GroupRecord& record, qxspg& spg) {
  qx::FullOperators full;
  QX_TRY(qx::combine_operators(fill, record.centring, record.primitive, full));
  auto* inverses = qx::allocate<double[16]>(static_cast<std::size_t>(full.count), "pfs_inv");
  if (!inverses) return failed;
  QX_TRY(qx::release(spg.inverses));
  spg.inverses = inverses;
  for (std::int32_t i = 0; i < full.count; ++i) {
    if (!qx::invert_operator(full.matrices[static_cast<std::size_t>(i)], inverses[i])) {
      return fail(fill, " Failed to get the inverse matrix ");
    }
  }
  QX_TRY(qx::release(spg.ops));
  spg.ops = full.matrices.release();
  spg.nops = full.count;
  return ok;
}

Status add_divisor(qx::Divisors& divisors, std::int32_t divisor) {
  const std::int32_t* end = divisors.values + divisors.count;
  if (divisor == 1 ||
      std::find(divisors.values, divisors.values + divisors.count, divisor) != end) {
    return ok;
  }
  auto* grown = qx::allocate<std::int32_t>(static_cast<std::size_t>(divisors.count) + 1, "pfs_div");
  if (!grown) return failed;
  std::copy_n(divisors.values, divisors.count, grown);
  grown[divisors.count] = divisor;
  QX_TRY(qx::release(divisors.values));
  divisors.values = grown;
  ++divisors.count;
  return ok;
}

Status clear(qx::Divisors& divisors) {
  divisors.count = 0;
  return qx::release(divisors.values);
}

// In the order of the file, like the operators themselves.
Status add_translation_divisors(const symoperstrmat* node, qxspg& spg) {
  if (!node) return ok;
  QX_TRY(add_translation_divisors(node->next, spg));
  for (int axis = 0; axis < 3; ++axis) {
    QX_TRY(add_divisor(spg.translation_divisors[axis], node->denominators[axis]));
  }
  return ok;
}

Status fill_translation_divisors(const qx::GroupRecord& record, qxspg& spg) {
  for (qx::Divisors& divisors : spg.translation_divisors) QX_TRY(clear(divisors));
  QX_TRY(add_translation_divisors(record.centring.newest(), spg));
  return add_translation_divisors(record.primitive.newest(), spg);
}

// One of the three expressions; `text` is moved behind its ";".
Status fill_limit(char*& text, qx::Divisors& divisors, float& low, float& high) {
  char* end = text + std::strcspn(text, ";");
  char* next = *end ? end + 1 : end;
  *end = '\0';
  std::int32_t denominators[2];
  QX_TRY(qx_parse_asu_limits(text, &low, &high, denominators));
  for (const std::int32_t denominator : denominators) {
    if (!qx::possible_divisor(denominator)) {
      return fail(fill, "No grid holds the limits of the asymmetric unit: %s", text);
    }
    QX_TRY(add_divisor(divisors, denominator));
  }
  if (!(high > 0 && high < 1.001F)) {
    return fail(fill, "Limits of the asymmetric unit outside the cell: %s", text);
  }
  text = next;
  return ok;
}

Status fill_limits(qxspg& spg) {
  for (qx::Divisors& divisors : spg.asu_divisors) QX_TRY(clear(divisors));
  if (!spg.xyzasu) return qx_set_qxasu_limit(0, 1, 0, 1, 0, 1);
  const qx::Tagged<char> copy(qx::duplicate_text(spg.xyzasu, "pfs_asu"));
  if (!copy) return failed;
  char* text = copy.get();
  float low[3] = {};
  float high[3] = {};
  for (int axis = 0; axis < 3; ++axis) {
    QX_TRY(fill_limit(text, spg.asu_divisors[axis], low[axis], high[axis]));
  }
  return qx_set_qxasu_limit(low[0], high[0], low[1], high[1], low[2], high[2]);
}

Status fill_group(qx::GroupRecord& record, qxspg& spg) {
  QX_TRY(give(record.short_name, spg.short_name));
  QX_TRY(give(record.full_name, spg.full_name));
  QX_TRY(give(record.point_group, spg.point_group_name));
  QX_TRY(give(record.crystal_system, spg.crystal_system_name));
  QX_TRY(give(record.patterson, spg.patterson_name));
  QX_TRY(give(record.laue, spg.laue_name));
  QX_TRY(give(record.xyzasu, spg.xyzasu));
  QX_TRY(give(record.hklasu, spg.hklasu));
  if (record.number != 0) QX_TRY(fill_system(spg));
  spg.spg_id = record.number;
  QX_TRY(fill_limits(spg));
  QX_TRY(fill_full_operators(record, spg));
  QX_TRY(fill_operators(record.primitive, spg.primitive));
  QX_TRY(fill_operators(record.centring, spg.centring));
  return fill_translation_divisors(record, spg);
}

Status no_object() {
  return fail("qx_set_spg_guts():", " The space group object has not been created yet ");
}

Status by_text(const char* file, std::int32_t id, const char* name) {
  qxspg* spg = qx_get_qxspg();
  if (!spg) return no_object();
  const qx::Tagged<char> plain(qx::duplicate_text(name ? name : "", "psb_name"));
  if (!plain) return failed;
  qx::plain_group_name(plain.get());
  if (id == 0) id = qx::group_number(plain.get());
  qx::GroupRecord record;
  bool found = false;
  QX_TRY(qx::find_group(file, {id, id != 0 ? nullptr : plain.get(), nullptr}, record, &found));
  if (!found) return fail("qx_set_spg_guts():", " Failed to get proper space group. ");
  return fill_group(record, *spg);
}

// `own` becomes the group when the database has none with its operators.
Status by_operators(const char* file, qx::GroupRecord& own) {
  qxspg* spg = qx_get_qxspg();
  if (!spg) return no_object();
  qx::FullOperators ops;
  QX_TRY(qx::combine_operators("qx_set_spg_by_symoper():", own.centring, own.primitive, ops));
  qx::GroupRecord record;
  bool found = false;
  QX_TRY(qx::find_group(file, {0, nullptr, &ops}, record, &found));
  if (!found) {
    if (!qx::is_group(ops)) {
      qx::say("WARNING: the symmetry operators do not form a group. \n");
    }
    qx::note("qx_set_spg_guts():", " Failed to get proper space group. ");
    qx::say(" The symmetry information is supplied from input. \n");
  }
  return fill_group(found ? record : own, *spg);
}

constexpr double identity[16] = {1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1};

bool same_rotation(const double a[16], const double b[16]) {
  for (int i = 0; i < 12; ++i) {
    if (i % 4 != 3 && a[i] != b[i]) return false;
  }
  return true;
}

Status add_matrix(qx::OperatorList& list, const double op[16], const std::int32_t denominators[3]) {
  constexpr const char* here = "qx_set_spg_by_symoper_mats():";
  double normal[16];
  std::copy_n(op, 16, normal);
  qx::normalize_translations(normal);
  if (!qx::is_symmetry_operator(normal)) return fail(here, "Not a symmetry operator ");
  char text[qx::operator_text_size];
  QX_TRY(qx_get_string_oper_by_matrix(normal, text));
  if (denominators) return list.add(here, text, normal, denominators);
  return list.add(here, text);
}

}  // namespace

Status qx_set_spg_by_spgid(const char* file, std::int32_t id) {
  return qx_set_spg_guts(file, id, nullptr, 0, nullptr, nullptr);
}

Status qx_set_spg_by_spgname(const char* file, const char* name) {
  return qx_set_spg_guts(file, 0, name, 0, nullptr, nullptr);
}

Status qx_set_spg_by_symoper_strs(const char* file, std::int32_t ncent,
                                  const char* const* cent_strings, std::int32_t nprim,
                                  const char* const* prim_strings) {
  constexpr const char* here = "qx_set_spg_by_symoper_strs():";
  qx::GroupRecord own;
  for (std::int32_t i = 0; i < ncent; ++i) QX_TRY(own.centring.add(here, cent_strings[i]));
  for (std::int32_t i = 0; i < nprim; ++i) QX_TRY(own.primitive.add(here, prim_strings[i]));
  return by_operators(file, own);
}

Status qx_set_spg_by_symoper_mats(const char* file, std::int32_t ncent, const double (*cent)[16],
                                  std::int32_t nprim, const double (*prim)[16]) {
  qx::GroupRecord own;
  for (std::int32_t i = 0; i < ncent; ++i) QX_TRY(add_matrix(own.centring, cent[i], nullptr));
  for (std::int32_t i = 0; i < nprim; ++i) QX_TRY(add_matrix(own.primitive, prim[i], nullptr));
  return by_operators(file, own);
}

// A full list is taken apart: pure translations are centring operators, and the first operator of
// each rotation is primitive.
Status qx_set_spg_guts(const char* file, std::int32_t id, const char* name, std::int32_t nmats,
                       const double (*mats)[16], const std::int32_t (*denominators)[3]) {
  if (id != 0 || name) return by_text(file, id, name);
  qx::GroupRecord own;
  for (std::int32_t i = 0; i < nmats; ++i) {
    const std::int32_t* row_denominators = denominators ? denominators[i] : nullptr;
    const auto alike = [&](const double* op) { return same_rotation(mats[i], op); };
    if (alike(identity)) QX_TRY(add_matrix(own.centring, mats[i], row_denominators));
    if (std::none_of(mats, mats + i, alike)) {
      QX_TRY(add_matrix(own.primitive, mats[i], row_denominators));
    }
  }
  return by_operators(file, own);
}

Status qx_delete_symoperstrmats(symoperstrmat** list, std::int32_t* count) {
  *count = 0;
  while (symoperstrmat* node = *list) {
    *list = node->next;
    QX_TRY(qx::release(node->text));
    QX_TRY(qx::release(node->matrix));
    QX_TRY(xfree(node));
  }
  return ok;
}
