// The table of reflection file formats. A new one is a row here and a file beside this one.
#include "core/report.h"
#include "core/tagged.h"
#include "crystal/reflection_formats.h"
#include "reflio/table_text.h"

#include <quorix/engine.h>
#include <quorix/mtz.h>

#include <strings.h>

using qx::fail;
using qx::failed;
using qx::ok;
using qx::Status;

namespace {

bool write_mtz(const char* path, const qxmtz& mtz) {
  return qx_write_refdata_mtz_file(path, &mtz) == 0;
}

// The table is the one that MTZ files have; who asks for the format's own object gets it as well.
template <void* qxrefdata::*own, Status (*read)(qxrefdata*, const char*)>
Status read_text(qxrefdata* refdata, const char* path) {
  QX_TRY(read(refdata, path));
  refdata->*own = refdata->mtz;
  return ok;
}

template <void* qxrefdata::*own>
Status forget_text(qxrefdata* refdata) {
  refdata->*own = nullptr;
  return ok;
}

constexpr auto read_cif = read_text<&qxrefdata::mmcif, qx::read_mmcif>;
constexpr auto forget_cif = forget_text<&qxrefdata::mmcif>;

constexpr qx::FileFormat formats[] = {
    {"MTZ", qx::mtz_format, "MTZ", qx::read_mtz_once, qx_build_qxrefdata_mtz, write_mtz, nullptr,
     qx_delete_refdata_mtz_obj},
    {"HKL", qx::hkl_format, "HKL", read_text<&qxrefdata::hkl, qx::read_hkl>, qx_build_qxrefdata_hkl,
     qx::write_hkl, qx::usual_column, forget_text<&qxrefdata::hkl>},
    {"CNS", qx::cns_format, "CNS", read_text<&qxrefdata::cns, qx::read_cns>, qx_build_qxrefdata_cns,
     qx::write_cns, qx::usual_column, forget_text<&qxrefdata::cns>},
    {"DTR", qx::dtrek_format, "d*trek", read_text<&qxrefdata::dtrek, qx::read_dtrek>,
     qx_build_qxrefdata_dtrek, qx::write_dtrek, qx::usual_column, forget_text<&qxrefdata::dtrek>},
    {"SCA", qx::scalepack_format, "scalepack", read_text<&qxrefdata::scalepack, qx::read_scalepack>,
     qx_build_qxrefdata_scalepack, qx::write_scalepack, qx::usual_column,
     forget_text<&qxrefdata::scalepack>},
    {"CIF", qx::mmcif_format, "mmCIF", read_cif, qx_build_qxrefdata_mmcif, qx::write_mmcif,
     qx::usual_mmcif_column, forget_cif},
    {"MMC", qx::mmcif_format, "mmCIF", read_cif, qx_build_qxrefdata_mmcif, qx::write_mmcif,
     qx::usual_mmcif_column, forget_cif},
};

}  // namespace

std::span<const qx::FileFormat> qx::file_formats() noexcept { return formats; }

const qx::FileFormat* qx::find_format(const char* word) noexcept {
  for (const FileFormat& row : formats) {
    if (strncasecmp(word, row.word, 3) == 0) return &row;
  }
  return nullptr;
}

const qx::FileFormat* qx::find_format(std::int32_t code) noexcept {
  for (const FileFormat& row : formats) {
    if (row.code == code) return &row;
  }
  return nullptr;
}

namespace {

Status write_table(const qx::FileFormat& format, const char* path, const qxmtz& table) {
  const auto epoch = qx::memory_epoch();
  const bool written = format.write(path, table);
  return written && qx::memory_epoch() == epoch ? ok : failed;
}

}  // namespace

Status qx::write_reflections(const FileFormat& format, const char* path, const qxrefdata& refdata,
                             const char* const* labels, bool others) {
  qxmtz* table =
      others ? qx_make_mtz_with_others_obj(&refdata, labels) : qx_make_mtz_obj(&refdata, labels);
  if (!table) return failed;
  const auto epoch = memory_epoch();
  const Status written = write_table(format, path, *table);
  if (memory_epoch() != epoch) return failed;
  QX_TRY(qx_delete_mtz_obj(table));
  return written;
}

Status qx_convert_reflections(const char* from_format, const char* from, const char* to_format,
                              const char* to) {
  constexpr const char* heading = "qx_convert_reflections():";
  const qx::FileFormat* source = qx::find_format(from_format);
  const qx::FileFormat* target = qx::find_format(to_format);
  if (!source || !target) {
    return fail(heading, " Unknow reflection data type %s. \n", source ? to_format : from_format);
  }
  qxrefdata* refdata = qx_new_qxrefdata_obj();
  if (!refdata) return failed;
  QX_TRY(source->read(refdata, from));
  if (write_table(*target, to, *refdata->mtz) != ok) {
    return qx_exist_quorix() ? fail(heading, "Failed to write reflection data. ") : failed;
  }
  return qx_delete_qxrefdata_obj(refdata);
}

// One builder serves all: whatever the file, its columns stand in the same table.
Status qx_build_qxrefdata_hkl(qxrefdata* refdata, const qxrefreject* reject, std::int32_t apply) {
  return qx_build_qxrefdata_mtz(refdata, reject, apply);
}
Status qx_build_qxrefdata_cns(qxrefdata* refdata, const qxrefreject* reject, std::int32_t apply) {
  return qx_build_qxrefdata_mtz(refdata, reject, apply);
}
Status qx_build_qxrefdata_scalepack(qxrefdata* refdata, const qxrefreject* reject,
                                    std::int32_t apply) {
  return qx_build_qxrefdata_mtz(refdata, reject, apply);
}
Status qx_build_qxrefdata_dtrek(qxrefdata* refdata, const qxrefreject* reject, std::int32_t apply) {
  return qx_build_qxrefdata_mtz(refdata, reject, apply);
}
Status qx_build_qxrefdata_mmcif(qxrefdata* refdata, const qxrefreject* reject, std::int32_t apply) {
  return qx_build_qxrefdata_mtz(refdata, reject, apply);
}
