// Completion of command lines in shells: a short script for each shell asks the tool what fits.

#ifndef MORVIX_DP4_COMPLETION_H
#define MORVIX_DP4_COMPLETION_H

#include <CLI/CLI.hpp>
#include <string>
#include <vector>

namespace dp4 {

// The script for "bash", "zsh" or "fish".
const char* CompletionScript(const std::string& shell);

// What fits in place of the last of these words, which come after the tool's own name: a line each, with a tab before a
// description. Nothing where a file or free text is expected.
std::string Completions(const CLI::App& app, const std::vector<std::string>& words);

}  // namespace dp4

#endif
