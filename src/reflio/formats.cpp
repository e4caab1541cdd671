// The table of reflection file formats. A new one is a row here and a file beside this one.
#include "core/report.h"
#include "core/tagged.h"
#include "crystal/reflection_formats.h"
#include "reflio/mtz.h"

#include <quorix/engine.h>
#include <quorix/mtz.h>

#include <cstdio>

using qx::fail;
using qx::failed;
using qx::ok;
using qx::Status;

namespace {

Status not_built(const char* heading, const char* format) {
  return fail(heading, "Reading of %s reflection files has not been built yet. ", format);
}

Status write_mtz(const char* path, const qxrefdata& refdata, const char* const* labels,
                 bool others) {
  qxmtz* mtz =
      others ? qx_make_mtz_with_others_obj(&refdata, labels) : qx_make_mtz_obj(&refdata, labels);
  if (!mtz) return failed;
  const auto epoch = qx::memory_epoch();
  const bool written = qx_write_refdata_mtz_file(path, mtz) == 0;
  if (qx::memory_epoch() != epoch) return failed;
  QX_TRY(qx_delete_mtz_obj(mtz));
  return written ? ok : failed;
}

constexpr qx::FileFormat formats[] = {
    {"MTZ", qx::mtz_format, "MTZ", qx::read_mtz_once, qx_build_qxrefdata_mtz, write_mtz,
     qx_delete_refdata_mtz_obj},
    {"HKL", qx::hkl_format, "HKL", nullptr, qx_build_qxrefdata_hkl, nullptr, nullptr},
    {"CNS", qx::cns_format, "CNS", nullptr, qx_build_qxrefdata_cns, nullptr, nullptr},
    {"DTR", qx::dtrek_format, "d*trek", nullptr, qx_build_qxrefdata_dtrek, nullptr, nullptr},
    {"SCA", qx::scalepack_format, "scalepack", nullptr, qx_build_qxrefdata_scalepack, nullptr,
     nullptr},
    {"CIF", qx::mmcif_format, "mmCIF", nullptr, qx_build_qxrefdata_mmcif, nullptr, nullptr},
    {"MMC", qx::mmcif_format, "mmCIF", nullptr, qx_build_qxrefdata_mmcif, nullptr, nullptr},
};

}  // namespace

std::span<const qx::FileFormat> qx::file_formats() noexcept { return formats; }

Status qx_build_qxrefdata_hkl(qxrefdata*, const qxrefreject*, std::int32_t) {
  return not_built("qx_build_qxrefdata_hkl():", "HKL");
}
Status qx_build_qxrefdata_cns(qxrefdata*, const qxrefreject*, std::int32_t) {
  return not_built("qx_build_qxrefdata_cns():", "CNS");
}
Status qx_build_qxrefdata_scalepack(qxrefdata*, const qxrefreject*, std::int32_t) {
  return not_built("qx_build_qxrefdata_scalepack():", "scalepack");
}
Status qx_build_qxrefdata_dtrek(qxrefdata*, const qxrefreject*, std::int32_t) {
  return not_built("qx_build_qxrefdata_dtrek():", "d*trek");
}
Status qx_build_qxrefdata_mmcif(qxrefdata*, const qxrefreject*, std::int32_t) {
  return not_built("qx_build_qxrefdata_mmcif():", "mmCIF");
}
