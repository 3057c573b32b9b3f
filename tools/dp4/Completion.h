// Shell completion: a short script for each shell asks the tool for candidates.

#ifndef MORVIX_DP4_COMPLETION_H
#define MORVIX_DP4_COMPLETION_H

#include <CLI/CLI.hpp>
#include <string>
#include <vector>

namespace dp4 {

// The script for "bash", "zsh" or "fish".
const char* CompletionScript(const std::string& shell);

// The candidates for the last of these words, which follow the tool's name: one line each, with a tab before the
// description. None where a file or free text is expected.
std::string Completions(const CLI::App& app, const std::vector<std::string>& words);

}  // namespace dp4

#endif
