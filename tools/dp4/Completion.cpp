#include "Completion.h"

#include <algorithm>

#include "inspect/text/Similar.h"

namespace dp4 {

using morvix::inspect::Contains;

namespace {

// In bash "=" is a word of its own.
const char kBash[] =
    R"sh(_dp4() {
  local IFS=$'\n' word=${COMP_WORDS[COMP_CWORD]}
  COMPREPLY=($(compgen -W "$("${COMP_WORDS[0]}" complete -- "${COMP_WORDS[@]:1:COMP_CWORD}" | cut -f 1)" -- "${word#=}"))
}
complete -o default -F _dp4 dp4
)sh";

const char kZsh[] =
    R"sh(#compdef dp4
_dp4() {
  local -a lines
  lines=("${(@f)$("${words[1]}" complete -- "${(@)words[2,CURRENT]}")}")
  if [[ -n ${lines[1]} ]]; then
    _describe dp4 lines "${(@)lines%%$'\t'*}"
  else
    _files
  fi
}
# Sourced, it registers itself; found by name in fpath, it is the first completion.
if [[ ${funcstack[1]} == _dp4 ]]; then
  _dp4 "$@"
else
  compdef _dp4 dp4
fi
)sh";

const char kFish[] =
    R"sh(complete -c dp4 -a '(dp4 complete -- (commandline -opc)[2..-1] (commandline -ct))'
)sh";

struct Candidate {
  std::string text;
  std::string description;
};

// The words of a CLI11 check that lists them: "{auto,always,never}".
std::vector<Candidate> WordsOf(const CLI::Option& option) {
  const std::string type = option.get_type_name();
  const size_t begin = type.find('{');
  const size_t end = type.find('}');
  std::vector<Candidate> words;
  if (begin == std::string::npos || end == std::string::npos) return words;
  for (const std::string& word : CLI::detail::split(type.substr(begin + 1, end - begin - 1), ',')) {
    words.push_back({word, ""});
  }
  return words;
}

std::vector<Candidate> CommandsOf(const CLI::App& app) {
  std::vector<Candidate> commands;
  for (const CLI::App* command : app.get_subcommands(nullptr)) {
    if (!command->get_group().empty()) commands.push_back({command->get_name(), command->get_description()});
  }
  for (const char* option : {"--help", "--version"}) commands.push_back({option, ""});
  return commands;
}

bool IsLongOption(const std::string& word) { return word.compare(0, 2, "--") == 0; }

// The candidates for the last word of a command's arguments.
std::vector<Candidate> ArgumentsOf(const CLI::App& command, std::vector<std::string> words) {
  const std::string last = words.back();
  words.pop_back();
  std::string before = words.empty() ? "" : words.back();
  std::string prefix;
  const size_t equals = last.find('=');
  if (IsLongOption(last) && equals != std::string::npos) {  // --option=va
    before = last.substr(0, equals);
    prefix = last.substr(0, equals + 1);
  } else if (before == "=" && words.size() > 1) {  // --option = va
    before = words[words.size() - 2];
  }
  const CLI::Option* option = IsLongOption(before) ? command.get_option_no_throw(before) : nullptr;
  std::vector<Candidate> candidates;
  if (option != nullptr && option->get_items_expected_max() != 0) {
    candidates = WordsOf(*option);
    for (Candidate& candidate : candidates) candidate.text.insert(0, prefix);
    return candidates;
  }
  const bool isOption = !last.empty() && last[0] == '-';
  for (const CLI::Option* other : command.get_options()) {
    if (isOption && !other->get_lnames().empty()) {
      candidates.push_back({"--" + other->get_lnames()[0], other->get_description()});
    } else if (!isOption && other->get_positional() && candidates.empty()) {
      candidates = WordsOf(*other);
    }
  }
  // One of a choice of words is enough.
  const auto isGiven = [&words](const Candidate& candidate) { return Contains(words, candidate.text); };
  if (!isOption && std::any_of(candidates.begin(), candidates.end(), isGiven)) candidates.clear();
  return candidates;
}

}  // namespace

const char* CompletionScript(const std::string& shell) {
  return shell == "bash" ? kBash : shell == "zsh" ? kZsh : kFish;
}

std::string Completions(const CLI::App& app, const std::vector<std::string>& words) {
  std::vector<Candidate> candidates;
  if (words.size() < 2) {
    candidates = CommandsOf(app);
  } else {
    for (const CLI::App* command : app.get_subcommands(nullptr)) {
      if (command->get_name() == words[0]) candidates = ArgumentsOf(*command, {words.begin() + 1, words.end()});
    }
  }
  const std::string& prefix = words.empty() ? std::string() : words.back();
  std::string lines;
  for (const Candidate& candidate : candidates) {
    const bool isFitting = prefix == "=" || candidate.text.compare(0, prefix.size(), prefix) == 0;
    if (!isFitting) continue;
    lines += candidate.text + (candidate.description.empty() ? "" : "\t" + candidate.description) + '\n';
  }
  return lines;
}

}  // namespace dp4
