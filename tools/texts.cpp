#include "tools/texts.h"

#include "tools/failure.h"

#include <tav/vinta/vinta_basetypes_failures.h>

#include <memory>
#include <sstream>

namespace tav {
namespace tool {

namespace {

struct Names {
    std::vector<std::string> names;
    /// Words that it takes; empty if any.
    std::vector<std::string> words;
    bool takesValue = false;
};

std::vector<std::string> wordsOf(std::string const & typeName) {
    std::vector<std::string> words;
    std::istringstream in(typeName);
    for (std::string word; typeName.find('|') != std::string::npos && std::getline(in, word, '|');) {
        words.push_back(word);
    }
    return words;
}

/// The options of a command, without those that are given by place.
std::vector<Names> optionsOf(CLI::App const & app) {
    std::vector<Names> all;
    for (CLI::Option const * const option : app.get_options()) {
        Names one;
        for (std::string const & name : option->get_snames()) {
            one.names.push_back("-" + name);
        }
        for (std::string const & name : option->get_lnames()) {
            one.names.push_back("--" + name);
        }
        one.takesValue = option->get_items_expected_max() > 0;
        one.words = wordsOf(option->get_type_name());
        if (!one.names.empty()) {
            all.push_back(std::move(one));
        }
    }
    return all;
}

std::string joined(std::vector<std::string> const & parts, std::string const & with) {
    std::string text;
    for (std::string const & part : parts) {
        text += (text.empty() ? "" : with) + part;
    }
    return text;
}

std::string namesOfCommands() {
    std::vector<std::string> names;
    for (Command const & command : commands()) {
        names.emplace_back(command.name);
    }
    return joined(names, " ");
}

/// The words of all options, and the case that completes the value of one that takes a word of some.
std::string bashCase(CLI::App const & sub) {
    std::string options;
    std::string values;
    for (Names const & one : optionsOf(sub)) {
        options += (options.empty() ? "" : " ") + joined(one.names, " ");
        if (!one.words.empty()) {
            values += "        " + joined(one.names, "|") + ") words='" + joined(one.words, " ") + "' ;;\n";
        }
    }
    return "    " + sub.get_name() + ")\n        options='" + options + "'\n        case $previous in\n" +
           values + "        esac\n        ;;\n";
}

std::string bashOf(CLI::App const & app) {
    std::string cases;
    for (Command const & command : commands()) {
        cases += bashCase(*app.get_subcommand(command.name));
    }
    return "_tav() {\n"
           "    local current=${COMP_WORDS[COMP_CWORD]} previous=${COMP_WORDS[COMP_CWORD - 1]} options= "
           "words=\n"
           "    COMPREPLY=()\n"
           "    # A shell takes --option=word apart.\n"
           "    if [ \"$current\" = = ]; then\n"
           "        current=\n"
           "    elif [ \"$previous\" = = ]; then\n"
           "        previous=${COMP_WORDS[COMP_CWORD - 2]}\n"
           "    fi\n"
           "    if [ \"$COMP_CWORD\" -eq 1 ]; then\n"
           "        mapfile -t COMPREPLY < <(compgen -W '" +
           namesOfCommands() +
           " --help --version' -- \"$current\")\n"
           "        return\n"
           "    fi\n"
           "    case ${COMP_WORDS[1]} in\n" +
           cases +
           "    esac\n"
           "    if [ -n \"$words\" ]; then\n"
           "        mapfile -t COMPREPLY < <(compgen -W \"$words\" -- \"$current\")\n"
           "    elif [[ $current == -* ]]; then\n"
           "        mapfile -t COMPREPLY < <(compgen -W \"$options\" -- \"$current\")\n"
           "    else\n"
           "        mapfile -t COMPREPLY < <(compgen -f -- \"$current\")\n"
           "    fi\n"
           "}\n"
           "complete -o filenames -F _tav tav\n";
}

/// A text between single quotes of a shell, without what _arguments reads for itself.
std::string zshText(std::string const & text) {
    std::string result;
    for (char const c : text) {
        result += c == '\''                          ? std::string("'\\''")
                  : c == '[' || c == ']' || c == ':' ? std::string("\\") + c
                                                     : std::string(1, c);
    }
    return result;
}

std::string zshOf(CLI::App const & app) {
    std::string names;
    std::string cases;
    for (Command const & command : commands()) {
        CLI::App const * const sub = app.get_subcommand(command.name);
        names += std::string("        '") + command.name + ":" + zshText(command.summary) + "'\n";
        cases += std::string("    ") + command.name + ")\n        _arguments \\\n";
        for (CLI::Option const * const option : sub->get_options()) {
            std::vector<std::string> const words = wordsOf(option->get_type_name());
            std::string const value = option->get_items_expected_max() == 0 ? ""
                                      : words.empty()                       ? ":value:_files"
                                                      : ":value:(" + joined(words, " ") + ")";
            for (std::string const & name : option->get_snames()) {
                cases += "            '-" + name + "[" + zshText(option->get_description()) + "]" + value +
                         "' \\\n";
            }
            for (std::string const & name : option->get_lnames()) {
                cases += "            '--" + name + "[" + zshText(option->get_description()) + "]" + value +
                         "' \\\n";
            }
        }
        cases += "            '*:file:_files'\n        ;;\n";
    }
    return "#compdef tav\n_tav() {\n    local -a commands=(\n" + names +
           "    )\n    if (( CURRENT == 2 )); then\n        _describe command commands\n        return\n    "
           "fi\n"
           "    local command=$words[2]\n    shift words\n    (( CURRENT-- ))\n    case $command in\n" +
           cases + "    esac\n}\n_tav \"$@\"\n";
}

/// A line of running text for troff.
std::string troff(std::string const & text) {
    std::string result;
    bool lineBegins = true;
    for (char const c : text) {
        if (lineBegins && (c == '.' || c == '\'')) {
            result += "\\&";
        }
        result += c == '\\' ? std::string("\\e") : c == '-' ? std::string("\\-") : std::string(1, c);
        lineBegins = c == '\n';
    }
    return result;
}

std::string manOptions(CLI::App const & app) {
    std::string text;
    for (CLI::Option const * const option : app.get_options()) {
        std::string name = option->get_name(true, true);
        std::string const type = option->get_type_name();
        bool const value = option->get_items_expected_max() > 0 && !type.empty() && !option->get_positional();
        text += ".TP\n.B " + troff(name) + (value ? " " + troff(type) : "") + "\n" +
                troff(option->get_description()) + "\n";
    }
    return text;
}

/// What is given by place, in its order.
std::string operandsOf(CLI::App const & app) {
    std::string text;
    for (CLI::Option const * const option : app.get_options()) {
        if (option->get_positional()) {
            std::string const name = option->get_name(true, false);
            text += option->get_required() ? " " + name : " [" + name + "]";
            text += option->get_items_expected_max() > 1 ? "..." : "";
        }
    }
    return text;
}

std::string const exitCodes =
    ".SH EXIT STATUS\n.TP\n.B 0\ngood\n.TP\n.B 1\nsomething in the input is wrong\n.TP\n.B 2\n"
    "bad use, or a file that can't be read or written\n.TP\n.B 3\nthe network\n";

std::string head(std::string const & name, std::string const & summary) {
    std::string upper = name;
    for (char & c : upper) {
        c = static_cast<char>(c >= 'a' && c <= 'z' ? c - 32 : c);
    }
    return ".TH " + troff(upper) + " 1 \"\" \"tav " + tav::version_t::release() + "\"\n.SH NAME\n" +
           troff(name) + " \\- " + troff(summary) + "\n";
}

} // namespace

std::string completionOf(CLI::App const & app, std::string const & shell) {
    return shell == "zsh" ? zshOf(app) : bashOf(app);
}

std::string manPageOf(CLI::App const & app, std::string const & name) {
    if (name.empty()) {
        std::string list;
        for (Command const & command : commands()) {
            list += std::string(".TP\n.BR tav\\-") + command.name + " (1)\n" + troff(command.summary) + "\n";
        }
        return head("tav", app.get_description()) +
               ".SH SYNOPSIS\n.B tav\n.I COMMAND\n[OPTIONS]\n.SH COMMANDS\n" + list + exitCodes;
    }
    for (Command const & command : commands()) {
        if (name == command.name) {
            CLI::App const * const sub = app.get_subcommand(command.name);
            return head("tav-" + name, command.summary) + ".SH SYNOPSIS\n.B tav " + name + "\n[OPTIONS]" +
                   troff(operandsOf(*sub)) + "\n.SH DESCRIPTION\n" + troff(command.description) +
                   "\n.SH OPTIONS\n" + manOptions(*sub) + exitCodes + ".SH EXAMPLES\n.nf\n" +
                   troff(command.examples) + ".fi\n";
        }
    }
    throw Failure(exitUse, "there is no command " + name);
}

void addTexts(CLI::App & app, Output & output, Run & run) {
    struct Asked {
        std::string kind;
        std::string name;
    };
    auto const asked = std::make_shared<Asked>();
    CLI::App * const sub =
        app.add_subcommand("__texts", "Print completion (bash, zsh) or a man page (man [COMMAND])");
    sub->group("");
    sub->add_option("KIND", asked->kind)->required()->check(CLI::IsMember({"bash", "zsh", "man"}));
    sub->add_option("COMMAND", asked->name);
    sub->callback([&app, &output, &run, asked] {
        output.colours(Colours::never);
        run = [&app, asked](Output & out) {
            out.write(asked->kind == "man" ? manPageOf(app, asked->name) : completionOf(app, asked->kind));
            return static_cast<int>(exitGood);
        };
    });
}

} // namespace tool
} // namespace tav
