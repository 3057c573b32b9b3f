#include "Completion.h"

#include <functional>
#include <sstream>
#include <vector>

namespace dp4 {

namespace {

struct Completable {
  std::string name;  // --option
  std::string description;
  bool takesValue = false;
  std::string words;  // what it takes, blank-separated; empty for files and free text
};

struct Command {
  std::string name;
  std::string description;
  std::vector<Completable> options;
  std::string words;  // what its first argument takes
};

// `text` with every character that stands in `characters` replaced by what `replacement` gives for it.
std::string Replaced(const std::string& text, const std::string& characters,
                     const std::function<std::string(char)>& replacement) {
  std::string replaced;
  for (const char c : text) {
    if (characters.find(c) == std::string::npos) {
      replaced += c;
    } else {
      replaced += replacement(c);
    }
  }
  return replaced;
}

std::string WithBackslash(char c) { return {'\\', c}; }

// The words of a check that names them: "{auto,always,never}".
std::string WordsOf(const CLI::Option& option) {
  const std::string type = option.get_type_name();
  const size_t begin = type.find('{');
  const size_t end = type.find('}');
  if (begin == std::string::npos || end == std::string::npos) return "";
  return Replaced(type.substr(begin + 1, end - begin - 1), ",", [](char) { return " "; });
}

std::vector<Command> CommandsOf(const CLI::App& app) {
  std::vector<Command> commands;
  for (const CLI::App* subcommand : app.get_subcommands(std::function<bool(const CLI::App*)>())) {
    Command command;
    command.name = subcommand->get_name();
    command.description = subcommand->get_description();
    for (const CLI::Option* option : subcommand->get_options()) {
      if (option->get_positional()) {
        if (command.words.empty()) command.words = WordsOf(*option);
      } else if (!option->get_lnames().empty()) {
        command.options.push_back({"--" + option->get_lnames()[0], option->get_description(),
                                   option->get_items_expected_max() != 0, WordsOf(*option)});
      }
    }
    commands.push_back(command);
  }
  return commands;
}

std::string NamesOf(const std::vector<Command>& commands) {
  std::string names;
  for (const Command& command : commands) names += (names.empty() ? "" : " ") + command.name;
  return names;
}

std::string Bash(const std::vector<Command>& commands) {
  std::ostringstream script;
  script << "_dp4() {\n"
            "  local word=${COMP_WORDS[COMP_CWORD]} previous=${COMP_WORDS[COMP_CWORD-1]} command=${COMP_WORDS[1]}\n"
            "  local words= given\n"
            "  if [ \"$word\" = = ]; then  # of --option=\n"
            "    word=\n"
            "  elif [ \"$previous\" = = ]; then\n"
            "    previous=${COMP_WORDS[COMP_CWORD-2]}\n"
            "  fi\n"
            "  if [ \"$COMP_CWORD\" -eq 1 ]; then\n"
            "    COMPREPLY=($(compgen -W '"
         << NamesOf(commands)
         << " --help --version' -- \"$word\"))\n"
            "    return\n"
            "  fi\n"
            "  case $command/$previous in\n";
  for (const Command& command : commands) {
    std::string options;
    for (const Completable& option : command.options) {
      options += (options.empty() ? "" : " ") + option.name;
      if (!option.words.empty()) {
        script << "    " << command.name << '/' << option.name << ") words='" << option.words << "' ;;\n";
      }
    }
    script << "    " << command.name << "/*)\n"
           << "      case $word in -*) words='" << options << "' ;; *) words='" << command.words << "' ;; esac\n";
    if (!command.words.empty()) {
      script << "      for given in \"${COMP_WORDS[@]:2:COMP_CWORD-2}\"; do  # one of them is enough\n"
                "        [[ \" "
             << command.words << " \" == *\" $given \"* && $word != -* ]] && words=\n      done\n";
    }
    script << "      ;;\n";
  }
  script << "  esac\n"
            "  COMPREPLY=($(compgen -W \"$words\" -- \"$word\"))\n"
            "}\n"
            "complete -o default -F _dp4 dp4\n";
  return script.str();
}

// Quoted for zsh's _arguments, which gives a meaning to brackets and colons.
std::string ZshText(const std::string& text) {
  return Replaced(Replaced(text, "[]:", WithBackslash), "'", [](char) { return "'\\''"; });
}

std::string Zsh(const std::vector<Command>& commands) {
  std::ostringstream script;
  script << "#compdef dp4\n"
            "_dp4() {\n"
            "  if (( CURRENT == 2 )) && [[ $PREFIX == -* ]]; then\n"
            "    compadd -- --help --version\n"
            "    return\n"
            "  fi\n"
            "  if (( CURRENT == 2 )); then\n"
            "    local -a commands=(\n";
  for (const Command& command : commands) {
    script << "      '" << command.name << ':' << ZshText(command.description) << "'\n";
  }
  script << "    )\n"
            "    _describe command commands\n"
            "    return\n"
            "  fi\n"
            "  case ${words[2]} in\n";
  for (const Command& command : commands) {
    script << "    " << command.name << ")\n      _arguments '1:command:'";
    for (const Completable& option : command.options) {
      script << " \\\n        '" << option.name << (option.takesValue ? "=[" : "[") << ZshText(option.description)
             << ']';
      if (option.takesValue) script << ":value:" << (option.words.empty() ? "_files" : "(" + option.words + ")");
      script << '\'';
    }
    script << " \\\n        '" << (command.words.empty() ? "*:argument:_files" : "2:argument:(" + command.words + ")")
           << "' ;;\n";
  }
  script << "  esac\n"
            "}\n"
            "# Sourced, it registers itself; found by name in fpath, it is the first completion.\n"
            "if [[ ${funcstack[1]} == _dp4 ]]; then\n"
            "  _dp4 \"$@\"\n"
            "else\n"
            "  compdef _dp4 dp4\n"
            "fi\n";
  return script.str();
}

std::string FishText(const std::string& text) { return Replaced(text, "'\\", WithBackslash); }

std::string Fish(const std::vector<Command>& commands) {
  std::ostringstream script;
  for (const char* option : {"help", "version"}) {
    script << "complete -c dp4 -n __fish_use_subcommand -f -l " << option << '\n';
  }
  for (const Command& command : commands) {
    script << "complete -c dp4 -n __fish_use_subcommand -f -a " << command.name << " -d '"
           << FishText(command.description) << "'\n";
    const std::string seen = "-n '__fish_seen_subcommand_from " + command.name + "'";
    if (!command.words.empty()) script << "complete -c dp4 " << seen << " -f -a '" << command.words << "'\n";
    for (const Completable& option : command.options) {
      script << "complete -c dp4 " << seen << " -l " << option.name.substr(2);
      if (option.takesValue) script << (option.words.empty() ? " -r" : " -x -a '" + option.words + "'");
      script << " -d '" << FishText(option.description) << "'\n";
    }
  }
  return script.str();
}

}  // namespace

std::string CompletionScript(const CLI::App& app, const std::string& shell) {
  const std::vector<Command> commands = CommandsOf(app);
  if (shell == "bash") return Bash(commands);
  return shell == "zsh" ? Zsh(commands) : Fish(commands);
}

}  // namespace dp4
