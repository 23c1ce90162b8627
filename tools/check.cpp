#include "tools/command.h"
#include "tools/failure.h"
#include "tools/input.h"
#include "tools/progress.h"
#include "tools/template_check.h"
#include "tools/terminal_text.h"

#include <memory>

namespace tav {
namespace tool {

namespace {

constexpr std::size_t largestTemplate = 256 * 1024 * 1024;

struct Options {
    std::vector<std::string> files;
    bool json = false;
    bool strict = false;
};

struct Counts {
    std::size_t errors = 0;
    std::size_t warnings = 0;
};

std::string counted(std::size_t n, char const * what) {
    return std::to_string(n) + " " + what + (n == 1 ? "" : "s");
}

void tellInText(Output & output, std::string const & name, std::string const & text,
                Finding const & finding) {
    std::string const kind = finding.error ? output.in('r', "error") : output.in('y', "warning");
    output.write(toldInText(forTerminal(name), text, finding.offset, kind,
                            forTerminal(finding.text) + " [" + finding.rule + "]"));
}

std::string asJson(std::string const & name, std::string const & text, Finding const & finding) {
    TextPlace const place = placeOf(text, finding.offset);
    return "{\"file\":" + jsonText(name) + ",\"line\":" + std::to_string(place.line) +
           ",\"column\":" + std::to_string(place.column) + ",\"offset\":" + std::to_string(finding.offset) +
           ",\"severity\":\"" + (finding.error ? "error" : "warning") + "\",\"rule\":\"" + finding.rule +
           "\",\"text\":" + jsonText(finding.text) + "}";
}

/// The findings of one file; what is printed as JSON goes to `json`.
void checkFile(std::string const & file, bool json, Output & output, Counts & counts, std::string & all) {
    std::string name;
    std::string const text = readWhole(file, name, largestTemplate);
    auto const findings = [&text] {
        Progress progress(Progress::Beside::nothing);
        return checkTemplate(text,
                             [&progress](std::size_t done, std::size_t size) { progress.show(done, size); });
    };
    output.flush();
    for (Finding const & finding : findings()) {
        ++(finding.error ? counts.errors : counts.warnings);
        if (json) {
            all += (all.empty() ? "" : ",") + asJson(name, text, finding);
        } else {
            tellInText(output, name, text, finding);
        }
    }
}

int check(Options const & options, Output & output) {
    Counts counts;
    std::string json;
    std::size_t unread = 0;
    for (std::string const & file : options.files) {
        try {
            checkFile(file, options.json, output, counts, json);
        } catch (Failure const & e) {
            // The other files are checked all the same.
            ++unread;
            ++counts.errors;
            output.tell(std::string("tav: ") + e.what() + "\n");
            json += (json.empty() ? "{\"file\":" : ",{\"file\":") + jsonText(file) +
                    ",\"severity\":\"error\",\"rule\":\"file\",\"text\":" + jsonText(e.what()) + "}";
        }
    }
    if (options.json) {
        output.line("{\"findings\":[" + json + "],\"errors\":" + std::to_string(counts.errors) +
                    ",\"warnings\":" + std::to_string(counts.warnings) + "}");
    } else if (unread != options.files.size()) {
        output.line(counted(counts.errors, "error") + ", " + counted(counts.warnings, "warning"));
    }
    if (unread != 0) {
        return exitUse;
    }
    return counts.errors != 0 || (options.strict && counts.warnings != 0) ? exitFound : exitGood;
}

} // namespace

Run addCheck(CLI::App & app) {
    auto const options = std::make_shared<Options>();
    app.add_option("TEMPLATE", options->files, "files to check; - is the standard input")->required();
    app.add_flag("--json", options->json, "print one JSON object");
    app.add_flag("--strict", options->strict, "exit with 1 on warnings too");
    return [options](Output & output) { return check(*options, output); };
}

} // namespace tool
} // namespace tav
