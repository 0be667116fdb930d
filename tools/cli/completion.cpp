// Completion scripts, made from the tables of commands and options.
#include "tools/cli/command_line.hpp"

#include <algorithm>
#include <sstream>

namespace cli {
namespace {

std::string names_for_shell(const Option& option)
{
    std::string names = option.names;
    for (char& c : names)
        if (c == ',') c = ' ';
    return names;
}

std::string option_words(const Syntax& syntax)
{
    std::string words = "--help --color";
    for (const Option& option : syntax.options) words += " " + names_for_shell(option);
    return words;
}

std::string command_words(const Tool& tool)
{
    std::string words;
    for (const Command& command : tool.commands)
        words += (words.empty() ? "" : " ") + std::string(command.name);
    return words;
}

// What stands at the place of an operand, for the helper functions below: one letter an operand.
std::string operand_kinds(const Syntax& syntax)
{
    std::string kinds;
    for (const Operand& operand : syntax.operands) kinds += "tfcip"[operand.kind];
    if (syntax.rest) kinds += std::string(1, "TFCIP"[syntax.rest_kind]);
    return kinds;
}

// The words that a value may be, " "-separated; "" when it is free.
std::string value_words(const Option& option)
{
    if (!option.words.empty() || !option.argument) return option.words;
    std::string words = option.argument;
    if (words.find('|') == std::string::npos) return "";
    std::replace(words.begin(), words.end(), '|', ' ');
    return words;
}

bool takes_file(const Option& option)
{
    const std::string argument = option.argument ? option.argument : "";
    for (const char* kind : {"FILE", "FOLDER", "PACKAGE", "CAMERA", "HOST[:INSIDE]"})
        if (argument.find(kind) == 0) return true;
    return false;
}

// Options whose value is the next word, all of them or those that take a file.
std::string valued_words(const Syntax& syntax, bool files)
{
    std::string words = files ? "" : "--color";
    for (const Option& option : syntax.options)
        if (option.argument && (!files || takes_file(option))) words += " " + names_for_shell(option);
    return words;
}

std::string quoted(const std::string& text)
{
    std::string out = "'";
    for (char c : text) out += c == '\'' ? std::string("'\\''") : std::string(1, c);
    return out + "'";
}

// "command:option" and what its value may be, as cases of the shell.
std::string value_cases(const Command& command, const Syntax& syntax)
{
    std::string cases;
    for (const Option& option : syntax.options) {
        const std::string words = value_words(option);
        if (words.empty()) continue;
        std::istringstream names(names_for_shell(option));
        std::string pattern;
        for (std::string name; names >> name;)
            pattern += (pattern.empty() ? "" : "|") + std::string(command.name) + ":" + name;
        cases +=
            "    " + pattern + ") COMPREPLY=($(compgen -W " + quoted(words) + " -- \"$word\")); return ;;\n";
    }
    return cases;
}

constexpr char kBashHead[] = R"sh(
{
    local word=${COMP_WORDS[COMP_CWORD]} before=${COMP_WORDS[COMP_CWORD-1]} IFS=$' \t\n'
    local kinds= options= valued= files= lines= i kind camera=
    local plain=()
    COMPREPLY=()
    if [ "$word" = = ]; then word=; fi
    if [ "$before" = = ]; then before=${COMP_WORDS[COMP_CWORD-2]}; fi
)sh";

// The words between the command and the one to complete: options, their values, operands.
constexpr char kBashTail[] = R"sh(
    for ((i = 2; i < COMP_CWORD; ++i)); do
        case ${COMP_WORDS[i]} in
        --) ;;
        =) ((++i)) ;;
        -*) case " $valued " in *" ${COMP_WORDS[i]} "*) [ "${COMP_WORDS[i+1]-}" = = ] || ((++i)) ;; esac ;;
        *) plain+=("${COMP_WORDS[i]}") ;;
        esac
    done
    case " $files " in *" $before "*) COMPREPLY=($(compgen -f -- "$word")); return ;; esac
    case " $valued " in *" $before "*) return ;; esac
    kind=${kinds:${#plain[@]}:1} camera=${plain[0]-}
    [ -n "$kind" ] || case $kinds in *[TFCIP]) kind=${kinds: -1} ;; esac
    case $word in -*) COMPREPLY=($(compgen -W "$options" -- "$word")); return ;; esac
    case $kind in
    c) COMPREPLY=($(compgen -d -- "$word")) ;;
    i) COMPREPLY=($(compgen -f -- "$camera/root$word")); COMPREPLY=("${COMPREPLY[@]#"$camera/root"}") ;;
    [pP]) COMPREPLY=($(compgen -W "$(ls "$camera/root/bin" "$camera/root/sbin" 2>/dev/null)" -- "$word")) ;;
    T) IFS=$'\n'; COMPREPLY=($(compgen -W "$lines" -- "${word#[\"\']}")) ;;
    t) ;;
    *) COMPREPLY=($(compgen -f -- "$word")) ;;
    esac
}
)sh";

std::string function_of(const Tool& tool)
{
    std::string function = std::string("_") + tool.name;
    std::replace(function.begin(), function.end(), '-', '_');
    return function;
}

std::string lines_of(const Syntax& syntax)
{
    std::string lines;
    for (const std::string& line : syntax.rest_words) lines += (lines.empty() ? "" : "\n") + line;
    return lines;
}

// zsh reads the bash script through its own bashcompinit.
std::string bash(const Tool& tool)
{
    const std::string name = tool.name, function = function_of(tool);
    std::string commands, values;
    for (const Command& command : tool.commands) {
        const Syntax syntax = syntax_of(command);
        commands += "    " + std::string(command.name) + ") kinds='" + operand_kinds(syntax) + "' options='" +
                    option_words(syntax) + "' valued='" + valued_words(syntax, false) + "' files='" +
                    valued_words(syntax, true) + "' lines=" + quoted(lines_of(syntax)) + " ;;\n";
        values += value_cases(command, syntax);
    }
    return "# Completion of " + name + "; made by: " + name + " --completion bash\n" + function + "()" +
           kBashHead + "    if [ \"$COMP_CWORD\" = 1 ]; then\n        COMPREPLY=($(compgen -W '" +
           command_words(tool) +
           " help --help --version --color' -- \"$word\"))\n        return\n    fi\n"
           "    case ${COMP_WORDS[1]} in\n" +
           commands + "    esac\n    case ${COMP_WORDS[1]}:$before in\n" + values +
           "    *:--color) COMPREPLY=($(compgen -W 'auto always never' -- \"$word\")); return ;;\n    esac" +
           kBashTail + "complete -o filenames -F " + function + " " + name + "\n";
}

// The file is the first completion's own function, so it has to complete once itself.
std::string zsh(const Tool& tool)
{
    return "#compdef " + std::string(tool.name) + "\nautoload -U +X bashcompinit && bashcompinit\n" +
           bash(tool) + "(( ${+compstate} )) && _bash_complete -o filenames -F " + function_of(tool) + "\n";
}

// fish knows two escapes in single quotes.
std::string fish_quoted(const std::string& text)
{
    std::string out = "'";
    for (char c : text) out += c == '\'' || c == '\\' ? std::string("\\") + c : std::string(1, c);
    return out + "'";
}

std::string fish_option(const std::string& head, const Option& option)
{
    std::string line = head;
    std::istringstream names(names_for_shell(option));
    for (std::string name; names >> name;)
        line += name.rfind("--", 0) == 0 ? " -l " + name.substr(2) : " -s " + name.substr(1);
    const std::string words = value_words(option);
    if (option.argument)
        line += !words.empty() ? " -x -a " + fish_quoted(words) : takes_file(option) ? " -r -F" : " -x";
    return line + " -d " + fish_quoted(option.help) + "\n";
}

std::string fish_operands(const std::string& head, const Syntax& syntax)
{
    std::string lines;
    const bool camera = !syntax.operands.empty() && syntax.operands[0].kind == Operand::camera;
    if (camera) lines += head + " -f -a '(__fish_complete_directories)'\n";
    for (const std::string& word : syntax.rest_words)
        lines += head + " -f -a " + fish_quoted("\"" + word + "\"") + "\n";
    return lines;
}

std::string fish(const Tool& tool)
{
    const std::string name = tool.name, complete = "complete -c " + name;
    std::string out = "# Completion of " + name + "; made by: " + name + " --completion fish\n";
    for (const Command& command : tool.commands) {
        out += complete + " -n __fish_use_subcommand -f -a " + command.name + " -d " +
               fish_quoted(command.help) + "\n";
        const Syntax syntax = syntax_of(command);
        const std::string head = complete + " -n '__fish_seen_subcommand_from " + command.name + "'";
        for (const Option& option : syntax.options) out += fish_option(head, option);
        out += fish_operands(head, syntax);
    }
    out += complete + " -s h -l help -d 'show help'\n" + complete + " -l color -x -a 'auto always never'\n";
    return out + complete + " -n __fish_use_subcommand -l version -d 'show the version'\n";
}

} // namespace

std::string completion(const Tool& tool, const std::string& shell)
{
    if (one_of(shell, {"bash", "zsh", "fish"}) == "bash") return bash(tool);
    return shell == "zsh" ? zsh(tool) : fish(tool);
}

} // namespace cli
