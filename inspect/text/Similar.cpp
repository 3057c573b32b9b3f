#include "inspect/text/Similar.h"

#include <algorithm>
#include <cctype>
#include <utility>

#include "inspect/text/Escape.h"
#include "inspect/text/Format.h"

namespace morvix::inspect {

namespace {

constexpr size_t kLongestName = 256;  // longer ones are not typing errors

// The name without case, hyphens, underscores and blanks, which people often mix up.
std::string Plain(const std::string& name) {
  std::string plain;
  for (const char c : name) {
    if (c != '-' && c != '_' && c != ' ') plain += static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  }
  return plain;
}

// The edit distance: insertions, deletions, replacements and swaps of adjacent letters.
size_t EditDistance(const std::string& left, const std::string& right) {
  std::vector<std::vector<size_t>> distances(left.size() + 1, std::vector<size_t>(right.size() + 1));
  for (size_t i = 0; i <= left.size(); ++i) {
    for (size_t j = 0; j <= right.size(); ++j) {
      size_t& distance = distances[i][j] = i + j;
      if (i == 0 || j == 0) continue;
      const size_t replaced = distances[i - 1][j - 1] + (left[i - 1] == right[j - 1] ? 0 : 1);
      distance = std::min({replaced, distances[i - 1][j] + 1, distances[i][j - 1] + 1});
      const bool isSwap = i > 1 && j > 1 && left[i - 1] == right[j - 2] && left[i - 2] == right[j - 1];
      if (isSwap) distance = std::min(distance, distances[i - 2][j - 2] + 1);
    }
  }
  return distances.back().back();
}

// A known name and its distance: by edits first, then names that contain one another.
using Candidate = std::pair<size_t, std::string>;

std::vector<Candidate> NearNames(const std::string& name, const std::vector<std::string>& known) {
  constexpr size_t kShortestPart = 3;
  constexpr size_t kFarthest = 1000;
  std::vector<Candidate> near;
  if (name.size() > kLongestName) return near;
  const std::string plain = Plain(name);
  for (const std::string& other : known) {
    if (other.size() > kLongestName) continue;
    const std::string plainOther = Plain(other);
    const auto [shorter, longer] = std::minmax({plain.size(), plainOther.size()});
    const size_t distance = EditDistance(plain, plainOther);
    const bool isPart = plain.find(plainOther) != std::string::npos || plainOther.find(plain) != std::string::npos;
    if (3 * distance <= longer || (distance == 1 && longer > 1)) {
      near.emplace_back(distance, other);
    } else if (isPart && shorter >= kShortestPart) {
      near.emplace_back(kFarthest - shorter, other);
    }
  }
  std::stable_sort(near.begin(), near.end(), [](const auto& a, const auto& b) { return a.first < b.first; });
  return near;
}

}  // namespace

bool Contains(const std::vector<std::string>& names, const std::string& name) {
  return std::find(names.begin(), names.end(), name) != names.end();
}

std::string SimilarName(const std::string& name, const std::vector<std::string>& known) {
  const std::vector<Candidate> near = NearNames(name, known);
  const bool isClear = near.size() == 1 || (near.size() > 1 && near[0].first < near[1].first);
  return isClear ? near[0].second : "";
}

std::string DidYouMean(const std::string& name, const std::vector<std::string>& known) {
  constexpr size_t kMostOffered = 3;
  std::vector<std::string> offered;
  for (const Candidate& near : NearNames(name, known)) {
    if (offered.size() < kMostOffered) offered.push_back(InQuotes(near.second));
  }
  return offered.empty() ? "" : "; did you mean " + Series(offered, "or") + "?";
}

}  // namespace morvix::inspect
