#include "tools/command.h"

#include <memory>
#include <sstream>

namespace tav {
namespace tool {

namespace {

/// What needs no gateway.
std::vector<Command> plainCommands() {
    return {
        {"check", "Find what is wrong in a template",
         "Reads templates and tells what can't be loaded or would not do what it says: units that are no "
         "PML,\n"
         "tags, names and codes given twice, unknown classes and types, names that JSON can't carry, "
         "classes\n"
         "that no message reaches.  Errors make the exit code 1, warnings do not, unless --strict is given.",
         "# all that is wrong, each with its line\n"
         "tav check chat.pml\n"
         "# for a program: one JSON object\n"
         "tav check --json chat.pml | jq '.findings[].text'\n",
         addCheck},
        {"dump", "Show what bytes hold, with offsets, types and names",
         "Shows NBR, a packet, frames or a gate message as a tree, each line behind the offset of its first\n"
         "byte.  A template gives names and types.  What is broken is shown up to the byte where it breaks,\n"
         "and the exit code is then 1.  Values that the template protects are masked.",
         "# bytes of a log, named by a template\n"
         "tav dump --template chat.pml --class im.Hello --hex 'FF0128 01 F103616E6E FF0129'\n"
         "# each byte beside its meaning\n"
         "tav dump --annotate capture.bin\n",
         addDump},
        {"convert", "Translate messages between NBR, JSON, PML, XML and frames",
         "Reads messages in one encoding and writes them in another, by the classes of a template.  Frames\n"
         "and JSON lines are streams: each message is written as soon as it is read, in memory that does "
         "not\n"
         "grow with the input.",
         "# what was captured, a JSON object a line\n"
         "tav convert --template chat.pml --from frames --to json capture.bin | jq .user\n"
         "# a message as bytes, to be read by people\n"
         "echo '{\"user\":\"ann\"}' | tav convert -t chat.pml -c im.Hello --from json --to nbr --out hex\n",
         addConvert},
        {"diff", "Tell what a change of a template does to peers that have the other version",
         "Compares two versions of a template, message by message and field by field: a change is "
         "compatible,\n"
         "compatible one way, or breaking.  Old to new holds if every message that the old version writes "
         "is\n"
         "read by the new one with the same values, and is one that the new version takes; new to old "
         "likewise.\n"
         "The exit code is 1 if something breaks the rule.",
         "# what the change does, and 1 if it breaks peers\n"
         "tav diff chat-1.pml chat-2.pml\n"
         "# gateways are updated first: what old clients send must be read\n"
         "tav diff --rule old-to-new chat-1.pml chat-2.pml\n",
         addDiff},
        {"gen", "Make C++ classes, pages, schemas or Python types of a template",
         "Makes of a template what programs and people need: a C++ header with classes of the kit, a page\n"
         "with examples in Markdown or HTML, a JSON Schema, types for Python.  What is made depends on the\n"
         "template alone, so that it can be kept with the sources.  A template in which `tav check` finds\n"
         "errors is refused; a name that the language can't carry gets another one, with a warning.",
         "# a header with classes\n"
         "tav gen cpp chat.pml --output chat.h\n"
         "# a page for who writes the other side\n"
         "tav gen html chat.pml --output chat.html\n",
         addGen},
    };
}

/// In the list of all subcommands each has one line.
class OneLineEach : public CLI::Formatter {
public:
    std::string make_subcommand(CLI::App const * sub) const override {
        std::string const text = sub->get_description();
        std::ostringstream out;
        CLI::detail::format_help(out, sub->get_name(), text.substr(0, text.find(".\n")), get_column_width());
        return out.str();
    }
};

} // namespace

std::vector<Command> const & commands() {
    static std::vector<Command> const all = [] {
        std::vector<Command> made = plainCommands();
        for (Command const & each : liveCommands()) {
            made.push_back(each);
        }
        return made;
    }();
    return all;
}

void addModelOptions(CLI::App & app, std::string & file, std::string & className, std::string & code) {
    app.add_option("-t,--template", file, "the template that gives names and types")->type_name("FILE");
    CLI::Option * const named =
        app.add_option("-c,--class", className, "the class of the message")->type_name("NAME");
    app.add_option("--code", code, "the code of the message, in place of its class")
        ->type_name("HEX")
        ->excludes(named);
}

void addCommands(CLI::App & app, Output & output, Run & run) {
    app.require_subcommand(1);
    auto const formatter = std::make_shared<OneLineEach>();
    formatter->label("TEXT", "");
    formatter->label("REQUIRED", "(needed)");
    formatter->label("Excludes", "not with");
    formatter->label("Needs", "only with");
    app.formatter(formatter);
    for (Command const & command : commands()) {
        CLI::App * const sub = app.add_subcommand(command.name, command.summary);
        sub->description(std::string(command.summary) + ".\n\n" + command.description + "\n");
        sub->footer(std::string("Examples:\n") + command.examples);
        auto const colours = std::make_shared<Colours>(Colours::automatic);
        addChoice(*sub, "--color", *colours, colourNames(), "colours; auto: on a terminal alone");
        Run const work = command.add(*sub);
        CLI::Option const * const json = sub->get_option_no_throw("--json");
        sub->callback([&output, &run, colours, work, json] {
            output.colours(*colours);
            output.forPrograms(json != nullptr && json->count() != 0);
            run = work;
        });
    }
}

} // namespace tool
} // namespace tav
