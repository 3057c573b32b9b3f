// Finds the fields of a list that share payload bits. Of a set of overlapping fields only the first few are stored, and
// the size of the set, so that lists and overlaps may have any size.

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
  static constexpr size_t kFew = 5;

  std::vector<size_t> first;  // at most kFew
  size_t count = 0;

  bool IsEmpty() const { return count == 0; }
};

class Coverage {
 public:
  static constexpr size_t kFew = FewFields::kFew;

  // `ranges` are those that will be added.
  explicit Coverage(const std::vector<BitRange>& ranges) {
    for (const BitRange& range : ranges) {
      if (!range.IsEmpty()) edges_.insert(edges_.end(), {range.begin, range.end});
    }
    std::sort(edges_.begin(), edges_.end());
    edges_.erase(std::unique(edges_.begin(), edges_.end()), edges_.end());
    covering_.resize(2 * edges_.size());
    beginning_.resize(2 * edges_.size());
  }

  // Fields are added in the order of the list.
  void Lay(const BitRange& range, size_t field) {
    if (range.IsEmpty()) return;
    size_t left = IndexOf(range.begin) + edges_.size();
    for (size_t node = left; node > 0; node /= 2) beginning_[node].Add(field);
    for (size_t right = IndexOf(range.end) + edges_.size(); left < right; left /= 2, right /= 2) {
      if (left % 2 == 1) covering_[left++].Add(field);
      if (right % 2 == 1) covering_[--right].Add(field);
    }
  }

  // The fields added so far that share bits with the range, which must not be empty: fields that cover its first bit,
  // and fields that begin after it.
  FewFields Over(const BitRange& range) const {
    FewFields few;
    const auto add = [&few](const Node& node) {
      few.first.insert(few.first.end(), node.first, node.first + std::min<size_t>(node.count, kFew));
      few.count += node.count;
    };
    const auto after = std::upper_bound(edges_.begin(), edges_.end(), range.begin);
    size_t left = static_cast<size_t>(after - edges_.begin()) + edges_.size();
    if (after != edges_.begin()) {
      for (size_t node = left - 1; node > 0; node /= 2) add(covering_[node]);
    }
    for (size_t right = IndexOf(range.end) + edges_.size(); left < right; left /= 2, right /= 2) {
      if (left % 2 == 1) add(beginning_[left++]);
      if (right % 2 == 1) add(beginning_[--right]);
    }
    std::sort(few.first.begin(), few.first.end());
    few.first.resize(std::min(few.first.size(), kFew));
    return few;
  }

 private:
  // The same in little memory, as there are many.
  struct Node {
    uint32_t first[kFew];
    uint32_t count = 0;

    // Fields are added in the order of the list.
    void Add(size_t field) {
      if (count < kFew) first[count] = static_cast<uint32_t>(field);
      ++count;
    }
  };

  // The index of the first edge at or after the bit.
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
