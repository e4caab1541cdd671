#include "map/ccp4_header.h"

#include <algorithm>
#include <cstring>

namespace qx {

namespace {

using enum ItemKind;
using H = Ccp4Header;

constexpr std::size_t at(std::size_t member, std::size_t index = 0) { return member + 4 * index; }

constexpr std::size_t label_at(std::size_t index) { return offsetof(H, labels) + 80 * index; }

constexpr auto label_read_text = "Failed to read map labels ";

// Kept: "eletron", "uacess", "lables", "symetry" and "transaltion" are spelt so.
constexpr Ccp4Item items[] = {
    {at(offsetof(H, counts), 0), integers, 1, "Failed to write nxdim. ", "Failed to read ncol. "},
    {at(offsetof(H, counts), 1), integers, 1, "Failed to write nydim. ", "Failed to read nrow. "},
    {at(offsetof(H, counts), 2), integers, 1, "Failed to write nzdim. ", "Failed to read nsec. "},
    {at(offsetof(H, mode)), integers, 1, "Failed to write data mode. ",
     "Failed to read data mode. "},
    {at(offsetof(H, starts), 0), integers, 1, "Failed to write nxbl. ",
     "Failed to read column origin "},
    {at(offsetof(H, starts), 1), integers, 1, "Failed to write nybl. ",
     "Failed to read row origin. "},
    {at(offsetof(H, starts), 2), integers, 1, "Failed to write nzbl. ",
     "Failed to read section origin. "},
    {at(offsetof(H, intervals), 0), integers, 1, "Failed to write nx. ", "Failed to read nx "},
    {at(offsetof(H, intervals), 1), integers, 1, "Failed to write ny. ", "Failed to read ny "},
    {at(offsetof(H, intervals), 2), integers, 1, "Failed to write nz. ", "Failed to read nz "},
    {at(offsetof(H, cell), 0), reals, 1, "Failed to write cell a. ", "Failed to read cell a. "},
    {at(offsetof(H, cell), 1), reals, 1, "Failed to write cell b. ", "Failed to read cell b. "},
    {at(offsetof(H, cell), 2), reals, 1, "Failed to write cell c. ", "Failed to read cell c. "},
    {at(offsetof(H, cell), 3), reals, 1, "Failed to write cell alpha. ",
     "Failed to read cell alpha. "},
    {at(offsetof(H, cell), 4), reals, 1, "Failed to write cell beta. ",
     "Failed to read cell beta. "},
    {at(offsetof(H, cell), 5), reals, 1, "Failed to write cell gamma. ",
     "Failed to read cell gamma. "},
    {at(offsetof(H, axes), 0), integers, 1, "Failed to write xorder. ",
     "Failed to read column axis. "},
    {at(offsetof(H, axes), 1), integers, 1, "Failed to write yorder. ",
     "Failed to read row axis. "},
    {at(offsetof(H, axes), 2), integers, 1, "Failed to write zorder. ",
     "Failed to read section axis. "},
    {at(offsetof(H, minimum)), reals, 1, "Failed to write the minimum eletron density dmin. ",
     "Failed to read the minimum eletron density dmin. "},
    {at(offsetof(H, maximum)), reals, 1, "Failed to write the maximum eletron density dmax. ",
     "Failed to read the maximum eletron density dmax. "},
    {at(offsetof(H, mean)), reals, 1, "Failed to write the mean eletron density dmean. ",
     "Failed to read the mean eletron density dmean. "},
    {at(offsetof(H, space_group)), integers, 1, "Failed to write the space group number. ",
     "Failed to read the space group number. "},
    {at(offsetof(H, symmetry_bytes)), integers, 1, "Failed to write the symmetric operations size ",
     "Failed to read symetry operation size "},
    {at(offsetof(H, skew_flag)), integers, 1, "Failed to write map skew ",
     "Failed to read mapskew indicator "},
    {at(offsetof(H, skew_rotation)), reals, 12, "Failed to write map skew rotation. ",
     "Failed to read map skew rotation. ", true},
    {at(offsetof(H, skew_translation)), reals, 8, "Failed to write map skew translation ",
     "Failed to read map skew transaltion. ", true},
    {at(offsetof(H, access)), characters, 24, "Failed to write uacess ", "Failed to read uacess "},
    {at(offsetof(H, header_size)), integers, 1, "Failed to write header size ",
     "Failed to read data header size "},
    {at(offsetof(H, map_word)), characters, 4, "Failed to write \"MAP \" ",
     "This is not a CCP4 formated map. "},
    {at(offsetof(H, stamp)), stamp, 4, "Failed to write machine arch code. ",
     "Failed to read machine stamp "},
    {at(offsetof(H, rms)), reals, 1, "Failed to write map rmsd. ", "Failed to read map rms. "},
    {at(offsetof(H, nlabels)), integers, 1, "Failed to write number of lables ",
     "Failed to read number of map labels "},
    {label_at(0), label, 80, nullptr, label_read_text},
    {label_at(1), label, 80, nullptr, label_read_text},
    {label_at(2), label, 80, nullptr, label_read_text},
    {label_at(3), label, 80, nullptr, label_read_text},
    {label_at(4), label, 80, nullptr, label_read_text},
    {label_at(5), label, 80, nullptr, label_read_text},
    {label_at(6), label, 80, nullptr, label_read_text},
    {label_at(7), label, 80, nullptr, label_read_text},
    {label_at(8), label, 80, nullptr, label_read_text},
    {label_at(9), label, 80, nullptr, label_read_text},
};

}  // namespace

std::span<const Ccp4Item> ccp4_items() noexcept { return items; }

Ccp4Header blank_ccp4_header() noexcept {
  Ccp4Header header = {};
  for (int i = 0; i < 3; ++i) header.axes[i] = i + 1;
  std::fill_n(header.access, sizeof header.access, ' ');
  std::memcpy(header.map_word, "MAP ", 4);
  std::memcpy(header.stamp, machine_stamp, 4);
  std::fill_n(header.labels[0], sizeof header.labels, ' ');
  return header;
}

void set_label(Ccp4Header& header, int index, const char* text) noexcept {
  char* slot = header.labels[index];
  const std::size_t length = std::min<std::size_t>(std::strlen(text), 80);
  std::fill_n(slot, 80, ' ');
  std::copy_n(text, length, slot);
}

}  // namespace qx
