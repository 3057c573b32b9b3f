// Names that another name may be a slip of. Letter case, blanks, '-' and '_' do not count.

#ifndef MORVIX_DP4_SIMILAR_H
#define MORVIX_DP4_SIMILAR_H

#include <string>
#include <vector>

namespace dp4 {

// The one of `names` that `name` may have been meant to be; empty when none is similar.
std::string SimilarName(const std::string& name, const std::vector<std::string>& names);

// "; did you mean "power" or "program"?" with the candidates that `name` may be a slip of, or an empty text.
std::string DidYouMean(const std::string& name, const std::vector<std::string>& candidates);

}  // namespace dp4

#endif
