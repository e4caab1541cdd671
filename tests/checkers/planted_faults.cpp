// What tools/check_allocations.py must find, and what it must let pass. Read by its test, never
// compiled: every line that ends in "fault" is one to be found, and no other.
namespace qx {

struct qxplanted {
  std::int32_t* epsilon = nullptr;
  double* block = nullptr;
  Divisors divisors;
};

struct Needs {
  const qxcell* cell = nullptr;
  Tagged<double> scratch;
};

std::int32_t looked_up(std::int32_t i) {
  if (!qx_get_qxspg()) (void)fail("looked_up():", "no group");
  return i;
}

Status stores(qxplanted* planted, qxplanted& record, Needs& needs) {
  planted->block = allocate<double>(3, "tag");                     // fault
  record.divisors.values = duplicate_text("=", "tag");             // fault
  planted->epsilon[2] = looked_up(2);                              // fault
  planted->epsilon[3] += 1 + static_cast<std::int32_t>(looked_up(  // fault
                                 3));
  Tagged<std::int32_t> list(4, "tag");
  list[1] = looked_up(1);  // fault
  needs.scratch = Tagged<double>(4, "tag");
  const std::int32_t value = looked_up(1);
  if (!qx_exist_quorix()) return failed;
  planted->epsilon[1] = value;
  std::int32_t own[3];
  own[1] = looked_up(1);
  return own[1] == 1 ? ok : failed;
}

Status getters(Needs& needs) {
  const qxcell* cell = qx_get_qxcell();
  const qxgrid* grid = qx_get_qxgrid();  // fault
  if (!cell || !grid) return failed;
  const qxspg* spg = qx_get_qxspg();
  if (!spg) return failed;
  if (qx_get_qxresol()->high > 0) return ok;  // fault
  needs.cell = qx_get_qxcell();
  if (!needs.cell) return failed;
  needs.cell = qx_get_qxcell();
  const qxrefdata* set = cell ? qx_get_qxrefdata() : nullptr;  // fault
  return set && qx_get_qxmap() ? ok : failed;
}

// Several objects by one guard are tested by it; what was got before is not.
Status guarded() {
  const qxcell* cell = nullptr;
  const qxspg* spg = nullptr;
  QX_TRY(require(here, need(qx_get_qxcell, cell, "no cell"), need(qx_get_qxspg, spg, "no group")));
  const qxgrid* grid = qx_get_qxgrid();
  QX_TRY(require(here, need(qx_get_qxcell, cell, ""), need(qx_get_qxspg, spg, "")));  // fault
  return grid && cell->volume > 0.0 && spg->nops > 0 ? ok : failed;
}

Status pairs() {
  const Sources sources = {qx_get_qxcell(), qx_get_qxspg()};  // fault
  const qxasu& asu = *qx_get_qxasu();                         // fault
  return sources.cell && asu.check ? ok : failed;
}

}  // namespace qx
