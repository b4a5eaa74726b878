// SPDX-License-Identifier: MIT
// Completions for three shells, from the option tree itself: what --help shows is what they know.
//
// Each script finds the verb that the line got to as a path, " tasks find", and offers what belongs there. An argument
// is completed by its name in the help: a FILE or DIR by the shell, a TASK by asking `kelctl tasks`, any other not at
// all.
#include <CLI/CLI.hpp>
#include <algorithm>
#include <functional>
#include <sstream>

#include "command_line.h"
#include "help.h"
#include "options.h"

namespace kelctl {
namespace {

/// What follows the verb by place: FILE, TASK, ...; empty for nothing.
std::string placeOf(const CLI::App& app) {
  const auto positionals = positionalsOf(app);
  return positionals.empty() ? "" : argumentOf(*positionals.front());
}

struct Verb {
  const CLI::App* app;
  std::string path;
  std::vector<const CLI::App*> offered;  ///< the verbs that may follow it
};

/// `root` has the verbs that `help` takes.
void collect(const CLI::App& app, const std::string& path, const CLI::App& root, std::vector<Verb>& verbs) {
  verbs.push_back({&app, path, verbsOf(placeOf(app) == "VERB" ? root : app)});
  for (const CLI::App* verb : verbsOf(app)) collect(*verb, path + ' ' + verb->get_name(), root, verbs);
}

/// "--help" and "-h", as they are typed.
std::vector<std::string> namesOf(const CLI::Option& option) {
  std::vector<std::string> names;
  for (const std::string& name : option.get_lnames()) names.push_back("--" + name);
  for (const std::string& name : option.get_snames()) names.push_back("-" + name);
  return names;
}

bool isFile(const std::string& argument) { return argument == "FILE" || argument == "DIR"; }

std::string replaced(std::string text, const std::string& what, const std::string& by) {
  for (std::size_t at = 0; (at = text.find(what, at)) != std::string::npos; at += by.size()) {
    text.replace(at, what.size(), by);
  }
  return text;
}

std::string quoted(const std::string& path) { return '\'' + path + '\''; }

std::string joined(const std::vector<Verb>& verbs, const std::string& between) {
  std::string text;
  for (const Verb& verb : verbs) {
    if (!verb.path.empty()) text += (text.empty() ? "" : between) + quoted(verb.path);
  }
  return text;
}

// ---------------------------------------------------------------------------------------------------------------------
// bash
// ---------------------------------------------------------------------------------------------------------------------

std::string bashScript(const std::vector<Verb>& verbs) {
  std::string arguments, words;
  for (const Verb& verb : verbs) {
    std::string list;
    for (const CLI::App* sub : verb.offered) list += ' ' + sub->get_name();
    for (const CLI::Option* option : namedOptionsOf(*verb.app)) {
      for (const std::string& name : namesOf(*option)) {
        list += ' ' + name;
        const std::string argument = argumentOf(*option);
        if (!argument.empty()) {
          arguments +=
              "    " + quoted(verb.path + ' ' + name) + ") kind=" + (isFile(argument) ? "FILE" : "OTHER") + " ;;\n";
        }
      }
    }
    const std::string place = placeOf(*verb.app);
    words += "      " + quoted(verb.path) + ") words='" + list.substr(1) + "'";
    if (!place.empty()) words += " kind=" + (isFile(place) ? "FILE" : place);
    words += " ;;\n";
  }
  return "# bash completion for kelctl, made by `kelctl completion bash`.\n"
         "_kelctl() {\n"
         "  local current=${COMP_WORDS[COMP_CWORD]} path='' kind='' words='' word\n"
         "  COMPREPLY=()\n"
         "  for word in \"${COMP_WORDS[@]:1:COMP_CWORD-1}\"; do\n"
         "    case \"$path $word\" in\n"
         "      " +
         joined(verbs, "|") +
         ") path+=\" $word\" ;;\n"
         "    esac\n"
         "  done\n"
         "  case \"$path ${COMP_WORDS[COMP_CWORD - 1]}\" in\n" +
         arguments +
         "  esac\n"
         "  if [[ -z $kind ]]; then\n"
         "    case $path in\n" +
         words +
         "    esac\n"
         "    [[ $current != -* ]] || kind=''\n"
         "  fi\n"
         "  case $kind in\n"
         "    FILE)\n"
         "      compopt -o filenames 2>/dev/null\n"
         "      mapfile -t COMPREPLY < <(compgen -f -- \"$current\")\n"
         "      ;;\n"
         "    OTHER) ;;\n"
         "    TASK)\n"
         "      words+=\" $(\"${COMP_WORDS[0]}\" tasks 2>/dev/null | cut -f 5)\"\n"
         "      ;;&\n"
         "    *) mapfile -t COMPREPLY < <(compgen -W \"$words\" -- \"$current\") ;;\n"
         "  esac\n"
         "}\n"
         "complete -F _kelctl kelctl\n";
}

// ---------------------------------------------------------------------------------------------------------------------
// zsh
// ---------------------------------------------------------------------------------------------------------------------

std::string zshFunction(const std::string& path) { return "_kelctl" + replaced(path, " ", "_"); }

/// A description, as it stands in a quoted argument of zsh.
std::string zshText(std::string text) {
  text = replaced(replaced(text, "\n", " "), "'", "'\\''");
  for (const char* special : {":", "[", "]"}) text = replaced(text, special, std::string("\\") + special);
  return text;
}

std::string zshAction(const std::string& argument) {
  if (argument == "TASK") return "_kelctl-task-names";
  if (argument == "DIR") return "_files -/";
  return argument == "FILE" ? "_files" : " ";
}

std::string zshScript(const std::vector<Verb>& verbs) {
  std::string script =
      "#compdef kelctl\n"
      "# zsh completion for kelctl, made by `kelctl completion zsh`.\n\n"
      "_kelctl-task-names() {\n"
      "  local -a names=(${(f)\"$(kelctl tasks 2>/dev/null | cut -f 5)\"})\n"
      "  compadd -a names\n"
      "}\n";
  for (const Verb& verb : verbs) {
    script += '\n' + zshFunction(verb.path) + "() {\n  local state\n  _arguments -C";
    for (const CLI::Option* option : namedOptionsOf(*verb.app)) {
      const std::string argument = argumentOf(*option);
      for (const std::string& name : namesOf(*option)) {
        script += " \\\n    '" + name + '[' + zshText(option->get_description()) + ']';
        const int count = std::max(1, option->get_expected_min());
        for (int i = 0; i < count && !argument.empty(); ++i) script += ':' + argument + ':' + zshAction(argument);
        script += '\'';
      }
    }
    const std::vector<const CLI::App*> subs = verbsOf(*verb.app);
    if (!verb.offered.empty()) {
      script += " \\\n    '1:verb:((";
      for (const CLI::App* sub : verb.offered) {
        script += (sub == verb.offered.front() ? "" : " ") + sub->get_name() + "\\:\"" + zshText(summaryOf(*sub)) + '"';
      }
      script += "))'";
    } else if (!placeOf(*verb.app).empty()) {
      script += " \\\n    '1:" + placeOf(*verb.app) + ':' + zshAction(placeOf(*verb.app)) + '\'';
    }
    if (!subs.empty()) script += " \\\n    '*::argument:->verb'";
    script += '\n';
    if (!subs.empty()) {
      script += "  [[ $state != verb ]] && return\n  case $words[1] in\n";
      for (const CLI::App* sub : subs) {
        script += "    " + sub->get_name() + ") " + zshFunction(verb.path + ' ' + sub->get_name()) + " ;;\n";
      }
      script += "  esac\n";
    }
    script += "}\n";
  }
  // Loaded by its name it is to complete at once; read by `source` it is only made known.
  return script + "\nif [[ $funcstack[1] == _kelctl ]]; then\n  _kelctl \"$@\"\nelse\n  compdef _kelctl kelctl\nfi\n";
}

// ---------------------------------------------------------------------------------------------------------------------
// fish
// ---------------------------------------------------------------------------------------------------------------------

std::string fishText(const std::string& text) {
  return '\'' + replaced(replaced(replaced(text, "\\", "\\\\"), "'", "\\'"), "\n", " ") + '\'';
}

std::string fishPlace(const std::string& argument) {
  if (isFile(argument)) return " -F";
  return argument == "TASK" ? " -a '(kelctl tasks 2>/dev/null | string split -f 5 \\t)'" : "";
}

std::string fishScript(const std::vector<Verb>& verbs) {
  std::string script =
      "# fish completion for kelctl, made by `kelctl completion fish`.\n"
      "function __kelctl_at --description 'Whether the line got to this verb'\n"
      "  set -l path ''\n"
      "  for word in (commandline -opc)\n"
      "    switch \"$path $word\"\n"
      "      case " +
      joined(verbs, " ") +
      "\n"
      "        set path \"$path $word\"\n"
      "    end\n"
      "  end\n"
      "  test \"$path\" = \"$argv[1]\"\n"
      "end\n"
      "complete -c kelctl -f\n";
  for (const Verb& verb : verbs) {
    const std::string start = "complete -c kelctl -n \"__kelctl_at " + quoted(verb.path) + '"';
    for (const CLI::App* sub : verb.offered) {
      script += start + " -a " + sub->get_name() + " -d " + fishText(summaryOf(*sub)) + '\n';
    }
    if (!placeOf(*verb.app).empty() && !fishPlace(placeOf(*verb.app)).empty()) {
      script += start + fishPlace(placeOf(*verb.app)) + '\n';
    }
    for (const CLI::Option* option : namedOptionsOf(*verb.app)) {
      script += start;
      for (const std::string& name : option->get_lnames()) script += " -l " + name;
      for (const std::string& name : option->get_snames()) script += " -s " + name;
      const std::string argument = argumentOf(*option);
      if (!argument.empty()) script += isFile(argument) ? " -r -F" : " -x";
      script += " -d " + fishText(option->get_description()) + '\n';
    }
  }
  return script;
}

/// A script is made from a tree of its own, since the one that asks for it is being parsed.
void addShell(CLI::App& parent, Plan& plan, const std::string& shell, const std::string& folder,
              std::string (*script)(const std::vector<Verb>&)) {
  CLI::App& verb = *parent.add_subcommand(shell, "Print the completion for " + shell + "; it goes to " + folder);
  verb.footer("kelctl completion " + shell + '\n');
  verb.callback([&plan, script] {
    plan.action = [script](Output& output) {
      Plan unused;
      CLI::App app{"", "kelctl"};
      addVerbs(app, unused);
      std::vector<Verb> verbs;
      collect(app, "", app, verbs);
      output.text(script(verbs));
      return kDone;
    };
  });
}

}  // namespace

void addCompletion(CLI::App& app, Plan& plan) {
  CLI::App& verb = addFamily(app, "completion", "Print a shell's completion of kelctl's words",
                             "kelctl completion bash >~/.local/share/bash-completion/completions/kelctl\n");
  addShell(verb, plan, "bash", "a file that ~/.bashrc sources", bashScript);
  addShell(verb, plan, "zsh", "a file _kelctl in a folder of $fpath", zshScript);
  addShell(verb, plan, "fish", "~/.config/fish/completions/kelctl.fish", fishScript);
}

}  // namespace kelctl
