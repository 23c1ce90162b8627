#include "tools/gen.h"

#include "tools/command.h"
#include "tools/cpp_names.h"
#include "tools/failure.h"
#include "tools/file_output.h"

#include <algorithm>
#include <memory>

namespace tav {
namespace tool {

namespace {

enum class What { cpp, html, markdown, python, schema };

struct Options {
    What what = What::cpp;
    std::string file;
    std::string output = "-";
    std::string outer;
    bool force = false;
    bool strict = false;
};

std::map<std::string, What> const & whatNames() {
    static std::map<std::string, What> const names = {{"cpp", What::cpp},
                                                      {"html", What::html},
                                                      {"markdown", What::markdown},
                                                      {"python", What::python},
                                                      {"schema", What::schema}};
    return names;
}

/// A namespace as it is given: names with :: between them.
void checkNamespace(std::string const & space) {
    for (std::size_t begin = 0; !space.empty();) {
        std::size_t const end = space.find("::", begin);
        std::string const part = space.substr(begin, end == std::string::npos ? end : end - begin);
        std::string const fault = cppFault(part);
        if (!fault.empty()) {
            throw Failure(exitUse, "--namespace: \"" + part + "\" " + fault);
        }
        if (end == std::string::npos) {
            return;
        }
        begin = end + 2;
    }
}

Generated generate(Options const & options, GenModel const & model) {
    switch (options.what) {
    case What::markdown: return markdownOf(model);
    case What::html: return htmlOf(model);
    case What::python: return pythonOf(model);
    case What::schema: return schemaOf(model);
    default: return cppOf(model, options.outer);
    }
}

int gen(Options const & options, Output & output) {
    if (!options.outer.empty() && options.what != What::cpp) {
        throw Failure(exitUse, "--namespace is for cpp");
    }
    checkNamespace(options.outer);
    Template const source = loadTemplate(options.file);
    GenModel const model = makeModel(source);
    Generated const made = generate(options, model);
    for (GenWarning const & warning : made.warnings) {
        output.tell(source.told(warning.offset, "warning", warning.text));
    }
    if (options.strict && !made.warnings.empty()) {
        return exitFound;
    }
    if (options.output == "-") {
        output.write(made.text);
    } else {
        writeFile(options.output, made.text, generatedMark, options.force);
    }
    return exitGood;
}

} // namespace

Run addGen(CLI::App & app) {
    auto const options = std::make_shared<Options>();
    addChoice(app, "WHAT", options->what, whatNames(), "what to make of the template")->required();
    app.add_option("TEMPLATE", options->file, "the template; - is the standard input")->required();
    app.add_option("-o,--output", options->output,
                   "the file to write, whole or not at all; the standard output without it")
        ->type_name("FILE");
    app.add_flag("--force", options->force, "replace a file that was not generated");
    app.add_flag("--strict", options->strict, "write nothing and exit with 1 on warnings");
    app.add_option("--namespace", options->outer, "cpp: the namespace that all classes are put into")
        ->type_name("NAME");
    return [options](Output & output) { return gen(*options, output); };
}

} // namespace tool
} // namespace tav
