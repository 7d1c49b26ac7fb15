#include "Manual.h"

#include <CLI/CLI.hpp>

namespace Tessel::Tool {

namespace {

// The options people see (hidden ones have no group), positionals apart.
std::vector<const CLI::Option*> Options(const CLI::App& app, bool positional) {
    return app.get_options([&](const CLI::Option* option) {
        return !option->get_group().empty() && option->nonpositional() != positional;
    });
}

std::vector<const CLI::App*> Commands(const CLI::App& app) {
    return app.get_subcommands([](const CLI::App*) { return true; });
}

// Flags have no type name; every option that takes a value names its kind.
bool TakesValue(const CLI::Option& option) {
    return !option.get_type_name().empty();
}

// Every spelling of an option: -o, --output.
std::vector<std::string> Spellings(const CLI::Option& option) {
    std::vector<std::string> names;
    for (const auto& name : option.get_snames())
        names.push_back("-" + name);
    for (const auto& name : option.get_lnames())
        names.push_back("--" + name);
    return names;
}

std::string Join(const std::vector<std::string>& words, const std::string& separator) {
    std::string joined;
    for (const auto& word : words)
        joined += (joined.empty() ? "" : separator) + word;
    return joined;
}

// Whether an option's value or a positional names something on disk.
bool NamesFile(const CLI::Option& option) {
    const std::string type = option.get_type_name();
    return type.find("FILE") != std::string::npos || type.find("PATH") != std::string::npos ||
           (!option.nonpositional() && option.get_name() != "action");
}

// Text for roff: backslashes and dashes escaped, no line starting with a control character.
std::string Roff(const std::string& text) {
    std::string out;
    bool lineStart = true;
    for (char c : text) {
        if (lineStart && (c == '.' || c == '\''))
            out += "\\&";
        if (c == '\\')
            out += "\\e";
        else if (c == '-')
            out += "\\-";
        else
            out += c;
        lineStart = c == '\n';
    }
    return out;
}

std::string RoffOption(const CLI::Option& option) {
    std::vector<std::string> names;
    for (const auto& name : Spellings(option))
        names.push_back("\\fB" + Roff(name) + "\\fR");
    std::string line = Join(names, ", ");
    if (TakesValue(option))
        line += " \\fI" + Roff(option.get_type_name()) + "\\fR";
    return line;
}

std::string RoffSynopsis(const CLI::App& command) {
    std::string line = "\\fBtessel " + Roff(command.get_name()) + "\\fR";
    for (const auto* positional : Options(command, true)) {
        std::string name = "\\fI" + Roff(positional->get_name(true)) + "\\fR";
        if (positional->get_expected_max() > 1)
            name += "...";
        line += positional->get_required() ? " " + name : " [" + name + "]";
    }
    if (!Options(command, false).empty())
        line += " [\\fIOPTIONS\\fR]";
    return line;
}

// Quoted for a single-quoted shell word.
std::string ShellQuoted(const std::string& text) {
    std::string out = "'";
    for (char c : text)
        out += c == '\'' ? std::string("'\\''") : std::string(1, c);
    return out + "'";
}

// Text for a zsh _arguments description: brackets and colons escaped.
std::string ZshText(const std::string& text) {
    std::string out;
    for (char c : text) {
        if (c == '\'') {
            out += "'\\''";
            continue;
        }
        if (c == '[' || c == ']' || c == ':' || c == '\\')
            out += '\\';
        out += c;
    }
    return out;
}

std::string ZshArgumentForms(const CLI::App& app, const std::string& indent) {
    std::string forms;
    for (const auto* option : Options(app, false)) {
        const std::vector<std::string> names = Spellings(*option);
        std::string form = names.size() > 1
                               ? "(" + Join(names, " ") + ")'{" + Join(names, ",") + "}'"
                               : names.front();
        form += "[" + ZshText(option->get_description()) + "]";
        if (TakesValue(*option))
            form +=
                ":" + ZshText(option->get_type_name()) + ":" + (NamesFile(*option) ? "_files" : "");
        forms += indent + "'" + form + "' \\\n";
    }
    int position = 1;
    for (const auto* positional : Options(app, true)) {
        const bool many = positional->get_expected_max() > 1;
        forms += indent + "'" + (many ? std::string("*") : std::to_string(position++)) + ":" +
                 ZshText(positional->get_name(true)) + ":" +
                 (NamesFile(*positional) ? "_files" : "") + "' \\\n";
    }
    return forms;
}

}  // namespace

std::string ManPage(const CLI::App& app, std::string_view version) {
    std::string page;
    page += ".TH TESSEL 1 \"\" \"tessel " + std::string(version) + "\" \"User Commands\"\n";
    page += ".SH NAME\ntessel \\- find the providers that can show a location, and list it\n";
    page += ".SH SYNOPSIS\n\\fBtessel\\fR [\\fIOPTIONS\\fR] \\fICOMMAND\\fR [\\fIARGUMENTS\\fR]\n";
    page +=
        ".SH DESCRIPTION\n"
        "\\fBtessel\\fR asks the content providers of a media browser which of them can "
        "present a location (a folder, a volume, a list such as volumes: or favorites:, a "
        "camera card), ranks them, and shows what the best one lists there: one item per "
        "file, or one item per clip on a camera card. It also writes thumbnails as PNG and "
        "keeps the favorite folders.\n";
    page += ".SH OPTIONS\n";
    for (const auto* option : Options(app, false))
        page += ".TP\n" + RoffOption(*option) + "\n" + Roff(option->get_description()) + "\n";
    page += ".SH COMMANDS\n";
    for (const auto* command : Commands(app)) {
        page += ".SS \"" + Roff(command->get_name()) + "\"\n" + RoffSynopsis(*command) + "\n.PP\n" +
                Roff(command->get_description()) + "\n";
        for (const auto* positional : Options(*command, true)) {
            page += ".TP\n\\fI" + Roff(positional->get_name(true)) + "\\fR\n" +
                    Roff(positional->get_description()) + "\n";
        }
        for (const auto* option : Options(*command, false)) {
            if (option->get_lnames() == std::vector<std::string>{"help"})
                continue;
            page += ".TP\n" + RoffOption(*option) + "\n" + Roff(option->get_description()) + "\n";
        }
    }
    page += ".SH NOTES\n.nf\n" + Roff(app.get_footer()) + "\n.fi\n";
    page += ".SH SEE ALSO\n\\fBls\\fR(1), \\fBfind\\fR(1), \\fBexiftool\\fR(1)\n";
    return page;
}

std::string BashCompletion(const CLI::App& app) {
    std::vector<std::string> commands;
    for (const auto* command : Commands(app))
        commands.push_back(command->get_name());
    std::vector<std::string> global;
    std::vector<std::string> valued;
    std::vector<std::string> fileValued;
    const auto collect = [&](const CLI::App& owner, std::vector<std::string>* into) {
        for (const auto* option : Options(owner, false)) {
            for (const auto& name : Spellings(*option)) {
                if (into)
                    into->push_back(name);
                if (TakesValue(*option))
                    (NamesFile(*option) ? fileValued : valued).push_back(name);
            }
        }
    };
    collect(app, &global);
    std::string cases;
    for (const auto* command : Commands(app)) {
        std::vector<std::string> own;
        collect(*command, &own);
        cases +=
            "        " + command->get_name() + ") options=" + ShellQuoted(Join(own, " ")) + " ;;\n";
    }
    return "# bash completion for tessel (made by `tessel --generate bash-completion`)\n"
           "_tessel() {\n"
           "    local cur=${COMP_WORDS[COMP_CWORD]} prev=${COMP_WORDS[COMP_CWORD-1]}\n"
           "    local command= options= i\n"
           "    for ((i = 1; i < COMP_CWORD; i++)); do\n"
           "        case ${COMP_WORDS[i]} in\n"
           "        " +
           Join(commands, "|") +
           ") command=${COMP_WORDS[i]}; break ;;\n"
           "        esac\n"
           "    done\n"
           "    case $prev in\n"
           "    " +
           Join(fileValued, "|") +
           ") COMPREPLY=($(compgen -f -- \"$cur\")); return ;;\n"
           "    " +
           Join(valued, "|") +
           ") COMPREPLY=(); return ;;\n"
           "    esac\n"
           "    case $command in\n" +
           cases + "        *) COMPREPLY=($(compgen -W " +
           ShellQuoted(Join(commands, " ") + " " + Join(global, " ")) +
           " -- \"$cur\")); return ;;\n"
           "    esac\n"
           "    if [[ $cur == -* ]]; then\n"
           "        COMPREPLY=($(compgen -W \"$options " +
           Join(global, " ") +
           "\" -- \"$cur\"))\n"
           "    else\n"
           "        COMPREPLY=($(compgen -f -- \"$cur\") $(compgen -W 'volumes: networkvolumes: "
           "favorites: cloudsync:' -- \"$cur\"))\n"
           "    fi\n"
           "}\n"
           "complete -o filenames -F _tessel tessel\n";
}

std::string ZshCompletion(const CLI::App& app) {
    std::string described;
    std::string cases;
    for (const auto* command : Commands(app)) {
        described +=
            "        " + ShellQuoted(command->get_name() + ":" + command->get_description()) + "\n";
        cases += "        " + command->get_name() + ")\n            _arguments \\\n" +
                 ZshArgumentForms(*command, "                ") + "                && ret=0 ;;\n";
    }
    return "#compdef tessel\n"
           "# zsh completion for tessel (made by `tessel --generate zsh-completion`)\n"
           "_tessel() {\n"
           "    local curcontext=$curcontext state line ret=1\n"
           "    local -a commands\n"
           "    commands=(\n" +
           described +
           "    )\n"
           "    _arguments -C \\\n" +
           ZshArgumentForms(app, "        ") +
           "        '1:command:->command' '*::argument:->argument' && ret=0\n"
           "    case $state in\n"
           "    command) _describe -t commands 'tessel command' commands && ret=0 ;;\n"
           "    argument)\n"
           "        case $line[1] in\n" +
           cases +
           "        esac ;;\n"
           "    esac\n"
           "    return ret\n"
           "}\n"
           "_tessel \"$@\"\n";
}

}  // namespace Tessel::Tool
