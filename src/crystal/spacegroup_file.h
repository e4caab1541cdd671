// The space-group database: records between "spgid" and "endofdef", found by number, by name or by
// operators. The file is scanned to the match; only that record is kept.
#pragma once

#include "core/report.h"
#include "core/tagged.h"
#include "crystal/symop.h"

#include <quorix/spacegroup.h>

// One operator of a list that is built while reading; the newest stands first.
struct symoperstrmat {
  char* text;
  double* matrix;
  std::int32_t denominators[3];
  symoperstrmat* next;
};

namespace qx {

// More operators than this are no space group: 192 is the most there is, supercells take a few
// times as many.
inline constexpr std::int32_t most_operators = 1024;

// A list with the epoch of its blocks.
class OperatorList {
 public:
  OperatorList() = default;
  OperatorList(const OperatorList&) = delete;
  OperatorList& operator=(const OperatorList&) = delete;
  ~OperatorList() { (void)clear(); }

  // Parses, checks and appends an operator; what is no symmetry operator of a lattice, or has a
  // translation that no grid holds, is reported under `heading`.
  Status add(const char* heading, const char* text);
  Status add(const char* heading, const char* text, const double matrix[16],
             const std::int32_t denominators[3]);
  Status clear();

  [[nodiscard]] std::int32_t count() const { return count_; }
  [[nodiscard]] const symoperstrmat* newest() const { return head_; }

 private:
  symoperstrmat* head_ = nullptr;
  std::int32_t count_ = 0;
  std::int64_t epoch_ = 0;
};

// A record as the file gives it; texts are null where the record has none.
struct GroupRecord {
  std::int32_t number = 0;
  Tagged<char> short_name, full_name, point_group, crystal_system, patterson, laue, xyzasu, hklasu;
  OperatorList primitive;
  OperatorList centring;
};

// Operators in one array, centring outermost, translations normalised.
struct FullOperators {
  std::int32_t count = 0;
  Tagged<double[16]> matrices;
};
Status combine_operators(const char* heading, const OperatorList& centring,
                         const OperatorList& primitive, FullOperators& full);
// True when both hold the same operators, in any order, each once.
bool same_group(const FullOperators& a, const FullOperators& b) noexcept;
// True when every product is one of the operators and none is there twice.
bool is_group(const FullOperators& full) noexcept;

// Screw axes as some write them, 2_1 and 2(1), as the names of the database have them: 21. In
// place.
void plain_group_name(char* name) noexcept;
// 1 to 230 for a name that is such a number, else 0.
std::int32_t group_number(const char* name) noexcept;

struct GroupRequest {
  std::int32_t number = 0;  // one of the three is given
  const char* name = nullptr;
  const FullOperators* ops = nullptr;
};

// Fills `record` with the first match of the file; `*found` says if there was one.
Status find_group(const char* file, const GroupRequest& request, GroupRecord& record, bool* found);

}  // namespace qx
