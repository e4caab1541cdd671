#include "map/fofo_pairs.h"

#include "core/report.h"
#include "crystal/mates.h"
#include "crystal/reflections.h"
#include "crystal/spacegroup.h"
#include "scaling/observed.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <tuple>

namespace qx {

namespace {

bool before(const Index3& a, const Index3& b) noexcept {
  return std::tie(a.h, a.k, a.l) < std::tie(b.h, b.k, b.l);
}

struct Entry {
  Index3 index;
  std::int32_t row;
};

// One name for an index and all its mates: the last of them in order.
class Naming {
 public:
  Status open(const char* heading, const qxspg& group) {
    const auto count = static_cast<std::size_t>(group.nops) + 1;
    operators_ = Tagged<MateOperator>(count, "pfp_op");
    if (!operators_) return failed;
    mates_ = Tagged<Index3>(count, "pfp_mate");
    if (!mates_) return failed;
    if (make_symmetry(group.ops, group.nops, operators_.get(), symmetry_)) return ok;
    return fail(heading, "The symmetry operators cannot be applied to reflections. ");
  }
  // False for an index that the group extinguishes.
  bool name(Index3 index, Index3& out) {
    if (symmetry_.orbit(index, mates_.get()).extinct) return false;
    out = index;
    for (std::int32_t i = 0; i < symmetry_.nrotations; ++i) {
      const Index3 mate = mates_[static_cast<std::size_t>(i)];
      for (const Index3 either : {mate, opposite(mate)}) {
        if (before(out, either)) out = either;
      }
    }
    return true;
  }

 private:
  Symmetry symmetry_;
  Tagged<MateOperator> operators_;
  Tagged<Index3> mates_;
};

double error_of(const qxrefdata& set, std::int32_t row) {
  const auto sigma = set.sigf ? static_cast<double>(set.sigf[row]) : 0.0;
  return std::isfinite(sigma) && sigma > 0.0 ? sigma : 0.0;
}

// The observed reflections of a set by their names.
struct Named {
  Tagged<Entry> entries;
  std::int32_t n = 0, unique = 0;

  Status fill(const qxrefdata& set, Naming& naming) {
    entries = Tagged<Entry>(static_cast<std::size_t>(set.nreflections), "pfp_list");
    if (!entries) return failed;
    for (std::int32_t i = 0; i < set.nreflections; ++i) {
      Entry& entry = entries[static_cast<std::size_t>(n)];
      if (!is_observed(set, i) || !naming.name({set.h[i], set.k[i], set.l[i]}, entry.index)) {
        continue;
      }
      entry.row = i;
      ++n;
    }
    std::sort(begin(), end(), [](const Entry& a, const Entry& b) {
      return a.index == b.index ? a.row < b.row : before(a.index, b.index);
    });
    for (const Entry* e = begin(); e != end(); ++e) {
      unique += e == begin() || !(e->index == (e - 1)->index) ? 1 : 0;
    }
    return ok;
  }
  [[nodiscard]] Entry* begin() const { return entries.get(); }
  [[nodiscard]] Entry* end() const { return entries.get() + n; }
};

// Mean and error of the rows that share a name.
void average(const qxrefdata& set, const Entry* first, const Entry* last, double& f,
             double& sigma) {
  double sum = 0.0, variance = 0.0;
  bool known = true;
  for (const Entry* e = first; e != last; ++e) {
    const double error = error_of(set, e->row);
    sum += static_cast<double>(set.fobs[e->row]);
    variance += error * error;
    known = known && error > 0.0;
  }
  const auto n = static_cast<double>(last - first);
  f = sum / n;
  sigma = known ? std::sqrt(variance) / n : 0.0;
}

void match(const qxrefdata& second, const Named& one, const Named& two, Partners& out) {
  const Entry* e = one.begin();
  for (const Entry* first = two.begin(); first != two.end();) {
    const Entry* last = first;
    while (last != two.end() && last->index == first->index) ++last;
    while (e != one.end() && before(e->index, first->index)) ++e;
    bool found = false;
    for (; e != one.end() && e->index == first->index; ++e, found = true) {
      const auto row = static_cast<std::size_t>(e->row);
      average(second, first, last, out.f[row], out.sigma[row]);
      ++out.pairs;
    }
    out.second_only += found ? 0 : 1;
    first = last;
  }
  out.first_only = one.n - out.pairs;
}

}  // namespace

Status find_partners(const char* heading, const qxrefdata& first, const qxrefdata& second,
                     const qxspg& group, Partners& out) {
  if (!first.fobs || first.nreflections < 1) {
    return fail(heading, "The first set has no observed amplitudes.");
  }
  if (!second.fobs || second.nreflections < 1) {
    return fail(heading, "The second set has no observed amplitudes.");
  }
  const auto size = static_cast<std::size_t>(first.nreflections);
  out.f = Tagged<double>(size, "pfp_f");
  if (!out.f) return failed;
  out.sigma = Tagged<double>(size, "pfp_sig");
  if (!out.sigma) return failed;
  std::fill_n(out.f.get(), size, std::numeric_limits<double>::quiet_NaN());
  std::fill_n(out.sigma.get(), size, 0.0);
  Naming naming;
  QX_TRY(naming.open(heading, group));
  Named one;
  QX_TRY(one.fill(first, naming));
  Named two;
  QX_TRY(two.fill(second, naming));
  match(second, one, two, out);
  if (out.pairs > 0) return ok;
  return fail(heading, "The two sets have no observed reflection in common (%d and %d observed).",
              one.n, two.n);
}

}  // namespace qx
