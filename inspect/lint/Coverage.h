// Which fields of a list share payload bits: for lists and overlaps of any size, the first few by their index and the
// rest as a number.

#ifndef MORVIX_INSPECT_LINT_COVERAGE_H
#define MORVIX_INSPECT_LINT_COVERAGE_H

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "inspect/model/BitRange.h"

namespace morvix::inspect {

// The first fields of a set, in the order of the list, and the size of the set.
struct FewFields {
  std::vector<size_t> first;  // at most Coverage::kFew
  size_t count = 0;

  bool IsEmpty() const { return count == 0; }
};

class Coverage {
 public:
  static constexpr size_t kFew = 5;

  // `ranges` are those that will be laid.
  explicit Coverage(const std::vector<BitRange>& ranges) {
    for (const BitRange& range : ranges) {
      if (!range.IsEmpty()) edges_.insert(edges_.end(), {range.begin, range.end});
    }
    std::sort(edges_.begin(), edges_.end());
    edges_.erase(std::unique(edges_.begin(), edges_.end()), edges_.end());
    covering_.resize(2 * edges_.size());
    beginning_.resize(2 * edges_.size());
  }

  // Fields are laid in the order of the list.
  void Lay(const BitRange& range, size_t field) {
    if (range.IsEmpty()) return;
    size_t left = IndexOf(range.begin) + edges_.size();
    for (size_t node = left; node > 0; node /= 2) beginning_[node].Add(field);
    for (size_t right = IndexOf(range.end) + edges_.size(); left < right; left /= 2, right /= 2) {
      if (left % 2 == 1) covering_[left++].Add(field);
      if (right % 2 == 1) covering_[--right].Add(field);
    }
  }

  // The fields laid so far that have bits of the range, which is not empty: those that cover its first bit, and those
  // that begin after it.
  FewFields Over(const BitRange& range) const {
    FewFields few;
    const auto after = std::upper_bound(edges_.begin(), edges_.end(), range.begin);
    if (after != edges_.begin()) {
      const auto covered = static_cast<size_t>(after - edges_.begin()) - 1;
      for (size_t node = covered + edges_.size(); node > 0; node /= 2) covering_[node].AddTo(few);
    }
    size_t left = static_cast<size_t>(after - edges_.begin()) + edges_.size();
    for (size_t right = IndexOf(range.end) + edges_.size(); left < right; left /= 2, right /= 2) {
      if (left % 2 == 1) beginning_[left++].AddTo(few);
      if (right % 2 == 1) beginning_[--right].AddTo(few);
    }
    std::sort(few.first.begin(), few.first.end());
    few.first.resize(std::min(few.first.size(), kFew));
    return few;
  }

 private:
  // What is known of a stretch of the payload from one edge to another.
  struct Node {
    uint32_t count = 0;
    uint32_t first[kFew] = {};

    void Add(size_t field) {
      if (count < kFew) first[count] = static_cast<uint32_t>(field);
      ++count;
    }
    void AddTo(FewFields& few) const {
      few.first.insert(few.first.end(), first, first + std::min<size_t>(count, kFew));
      few.count += count;
    }
  };

  // Of the first edge that is not before the bit.
  size_t IndexOf(uint64_t bit) const {
    return static_cast<size_t>(std::lower_bound(edges_.begin(), edges_.end(), bit) - edges_.begin());
  }

  // Two segment trees whose leaves are the stretches that begin with each edge. Of a field that covers several
  // stretches, `covering_` has it at the topmost nodes that it covers whole; `beginning_` has it where it begins, and
  // above that.
  std::vector<uint64_t> edges_;
  std::vector<Node> covering_;
  std::vector<Node> beginning_;
};

}  // namespace morvix::inspect

#endif
