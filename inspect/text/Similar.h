// Searching lists of names, exactly and for probable misspellings.

#ifndef MORVIX_INSPECT_TEXT_SIMILAR_H
#define MORVIX_INSPECT_TEXT_SIMILAR_H

#include <string>
#include <vector>

namespace morvix::inspect {

bool Contains(const std::vector<std::string>& names, const std::string& name);

// The known name that was probably meant by `name`; empty when there is none or more than one.
std::string SimilarName(const std::string& name, const std::vector<std::string>& known);

// "; did you mean "a" or "b"?" with up to three known names, or an empty string.
std::string DidYouMean(const std::string& name, const std::vector<std::string>& known);

}  // namespace morvix::inspect

#endif
