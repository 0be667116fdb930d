// Completion scripts, made from the tables of commands and options.
#include "tools/cli/command_line.hpp"

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

// Options whose value is the next word.
std::string valued_words(const Syntax& syntax)
{
    std::string words = "--color";
    for (const Option& option : syntax.options)
        if (option.argument) words += " " + names_for_shell(option);
    return words;
}

// zsh reads the bash script through its own bashcompinit.
std::string bash(const Tool& tool)
{
    std::string name = tool.name, function = "_" + name;
    for (char& c : function)
        if (c == '-') c = '_';
    std::ostringstream out;
    out << "# Completion of " << name << "; made by: " << name << " --completion bash\n"
        << function << "()\n{\n"
        << "    local word=${COMP_WORDS[COMP_CWORD]} before=${COMP_WORDS[COMP_CWORD-1]} kinds= options= "
           "valued= i kind camera=\n"
        << "    local plain=()\n"
        << "    COMPREPLY=()\n"
        << "    if [ \"$COMP_CWORD\" = 1 ]; then\n"
        << "        COMPREPLY=($(compgen -W '" << command_words(tool)
        << " help --help --version --color' -- \"$word\"))\n"
        << "        return\n    fi\n"
        << "    case ${COMP_WORDS[1]} in\n";
    for (const Command& command : tool.commands) {
        const Syntax syntax = syntax_of(command);
        out << "    " << command.name << ") kinds='" << operand_kinds(syntax) << "' options='"
            << option_words(syntax) << "' valued='" << valued_words(syntax) << "' ;;\n";
    }
    out << "    esac\n"
        << "    for ((i = 2; i < COMP_CWORD; ++i)); do\n"
        << "        case ${COMP_WORDS[i]} in\n"
        << "        --) ;;\n"
        << "        -*) case \" $valued \" in *\" ${COMP_WORDS[i]} \"*) ((++i)) ;; esac ;;\n"
        << "        *) plain+=(\"${COMP_WORDS[i]}\") ;;\n"
        << "        esac\n    done\n"
        << "    [ \"$before\" != --color ] || { COMPREPLY=($(compgen -W 'auto always never' -- \"$word\")); "
           "return; }\n"
        << "    case \" $valued \" in *\" $before \"*) COMPREPLY=($(compgen -f -- \"$word\")); return ;; "
           "esac\n"
        << "    kind=${kinds:${#plain[@]}:1} camera=${plain[0]-}\n"
        << "    [ -n \"$kind\" ] || case $kinds in *[TFCIP]) kind=${kinds: -1} ;; esac\n"
        << "    case $word in -*) COMPREPLY=($(compgen -W \"$options\" -- \"$word\")); return ;; esac\n"
        << "    case $kind in\n"
        << "    c) COMPREPLY=($(compgen -d -- \"$word\")) ;;\n"
        << "    i) COMPREPLY=($(compgen -f -- \"$camera/root$word\")); "
           "COMPREPLY=(\"${COMPREPLY[@]#\"$camera/root\"}\") ;;\n"
        << "    [pP]) COMPREPLY=($(compgen -W \"$(ls \"$camera/root/bin\" \"$camera/root/sbin\" "
           "2>/dev/null)\" -- \"$word\")) ;;\n"
        << "    *) COMPREPLY=($(compgen -f -- \"$word\")) ;;\n"
        << "    esac\n}\n"
        << "complete -o filenames -F " << function << " " << name << "\n";
    return out.str();
}

std::string zsh(const Tool& tool)
{
    return "#compdef " + std::string(tool.name) + "\nautoload -U +X bashcompinit && bashcompinit\n" +
           bash(tool);
}

std::string quoted(const std::string& text)
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
    return line + (option.argument ? " -r" : "") + " -d " + quoted(option.help) + "\n";
}

std::string fish(const Tool& tool)
{
    const std::string name = tool.name, complete = "complete -c " + name;
    std::string out = "# Completion of " + name + "; made by: " + name + " --completion fish\n";
    for (const Command& command : tool.commands) {
        out += complete + " -n __fish_use_subcommand -f -a " + command.name + " -d " + quoted(command.help) +
               "\n";
        for (const Option& option : syntax_of(command).options)
            out += fish_option(complete + " -n '__fish_seen_subcommand_from " + command.name + "'", option);
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
