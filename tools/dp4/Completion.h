// Completion scripts, made from the command line itself so that they cannot disagree with it.

#ifndef MORVIX_DP4_COMPLETION_H
#define MORVIX_DP4_COMPLETION_H

#include <CLI/CLI.hpp>
#include <string>

namespace dp4 {

// The script for "bash", "zsh" or "fish" that completes commands, options, the words that an option takes, and files.
std::string CompletionScript(const CLI::App& app, const std::string& shell);

}  // namespace dp4

#endif
