#include "inspect/compare/Match.h"

#include <algorithm>
#include <map>

namespace morvix::inspect {

std::vector<std::pair<size_t, size_t>> Matched(const std::vector<Identity>& before,
                                               const std::vector<Identity>& after) {
  std::vector<bool> isTaken(before.size());
  std::vector<size_t> partners(after.size(), SIZE_MAX);
  // Pairs those that are still alone and have the same key, one after the other or only where there is one of each.
  const auto pairUp = [&](const auto& keyOf, bool onlyUnique) {
    using Key = decltype(keyOf(before[0]));
    struct Alike {
      std::vector<size_t> old;
      std::vector<size_t> now;
    };
    std::map<Key, Alike> groups;
    for (size_t i = 0; i < before.size(); ++i) {
      if (!isTaken[i]) groups[keyOf(before[i])].old.push_back(i);
    }
    for (size_t i = 0; i < after.size(); ++i) {
      if (partners[i] == SIZE_MAX) groups[keyOf(after[i])].now.push_back(i);
    }
    for (const auto& [key, group] : groups) {
      if (onlyUnique && (group.old.size() != 1 || group.now.size() != 1)) continue;
      for (size_t i = 0; i < std::min(group.old.size(), group.now.size()); ++i) {
        partners[group.now[i]] = group.old[i];
        isTaken[group.old[i]] = true;
      }
    }
  };
  pairUp([](const Identity& one) { return std::pair(one.name, one.kind); }, false);
  pairUp([](const Identity& one) { return one.name; }, false);
  pairUp([](const Identity& one) { return one.id; }, true);
  std::vector<std::pair<size_t, size_t>> matched;
  for (size_t i = 0; i < after.size(); ++i) {
    if (partners[i] != SIZE_MAX) matched.emplace_back(partners[i], i);
  }
  return matched;
}

}  // namespace morvix::inspect
