#include "Similar.h"

#include <algorithm>
#include <cctype>
#include <utility>

#include "Text.h"

namespace dp4 {

namespace {

// What counts of a name when it is compared with others.
std::string Plain(const std::string& name) {
  std::string plain;
  for (const char c : name) {
    if (c != '-' && c != '_' && c != ' ') plain += static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  }
  return plain;
}

// How many letters have to be added, removed, exchanged or swapped with the next one.
size_t EditDistance(const std::string& left, const std::string& right) {
  std::vector<size_t> last(right.size() + 1);
  std::vector<size_t> current(right.size() + 1);
  for (size_t j = 0; j <= right.size(); ++j) current[j] = j;
  for (size_t i = 1; i <= left.size(); ++i) {
    const std::vector<size_t> beforeLast = std::exchange(last, current);
    current[0] = i;
    for (size_t j = 1; j <= right.size(); ++j) {
      const size_t exchanged = last[j - 1] + (left[i - 1] == right[j - 1] ? 0 : 1);
      current[j] = std::min({exchanged, last[j] + 1, current[j - 1] + 1});
      if (i > 1 && j > 1 && left[i - 1] == right[j - 2] && left[i - 2] == right[j - 1]) {
        current[j] = std::min(current[j], beforeLast[j - 2] + 1);
      }
    }
  }
  return current[right.size()];
}

// The only name that `plain` is a part of, or else the longest that is a part of it.
std::string PartOf(const std::string& plain, const std::vector<std::string>& names) {
  constexpr size_t kMinLength = 3;
  std::vector<std::string> wholes;
  std::string longest;
  for (const std::string& name : names) {
    const std::string other = Plain(name);
    if (plain.size() >= kMinLength && other.find(plain) != std::string::npos) wholes.push_back(name);
    const bool isPart = other.size() >= kMinLength && plain.find(other) != std::string::npos;
    if (isPart && other.size() > Plain(longest).size()) longest = name;
  }
  return wholes.size() == 1 ? wholes[0] : longest;
}

}  // namespace

std::string DidYouMean(const std::string& name, const std::vector<std::string>& candidates) {
  constexpr size_t kMostOffered = 3;
  constexpr size_t kLongestName = 256;  // longer ones are no slips
  if (name.size() > kLongestName) return "";
  const std::string plain = Plain(name);
  std::vector<std::pair<size_t, std::string>> near;
  for (const std::string& candidate : candidates) {
    const size_t longer = std::max(name.size(), candidate.size());
    const bool isBeginning = name.size() >= 3 && candidate.compare(0, name.size(), name) == 0;
    const size_t distance = EditDistance(plain, Plain(candidate));
    if (isBeginning || 3 * distance <= longer || (distance == 1 && longer > 1)) near.emplace_back(distance, candidate);
  }
  std::stable_sort(near.begin(), near.end(), [](const auto& a, const auto& b) { return a.first < b.first; });
  near.resize(std::min(near.size(), kMostOffered));
  if (near.empty()) return "";
  std::string text = "; did you mean ";
  for (size_t i = 0; i < near.size(); ++i) {
    text += (i == 0 ? "" : i + 1 == near.size() ? " or " : ", ") + InQuotes(near[i].second);
  }
  return text + "?";
}

std::string SimilarName(const std::string& name, const std::vector<std::string>& names) {
  constexpr size_t kMaxLength = 40;
  if (name.size() > kMaxLength) return "";
  const std::string plain = Plain(name);
  std::string similar;
  size_t best = std::max<size_t>(1, std::min<size_t>(2, plain.size() / 3)) + 1;
  for (const std::string& other : names) {
    if (other.size() > kMaxLength) continue;
    const size_t distance = EditDistance(plain, Plain(other));
    if (distance >= best) continue;
    best = distance;
    similar = other;
  }
  return similar.empty() ? PartOf(plain, names) : similar;
}

}  // namespace dp4
