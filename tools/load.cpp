#include "tools/command.h"
#include "tools/connection.h"
#include "tools/failure.h"
#include "tools/file_output.h"
#include "tools/load_report.h"
#include "tools/notes.h"
#include "tools/talk.h"

#include <tav/kit/message.h>

#include <functional>
#include <iomanip>
#include <memory>
#include <sstream>

namespace tav {
namespace tool {

namespace {

/// So many different messages are kept; a longer file is used as far as that.
constexpr std::size_t mostMessages = 10000;
constexpr std::size_t mostBytes = 64 * 1024 * 1024;
constexpr unsigned largestBody = 16 * 1024 * 1024 - 1024;
/// Sizes between two are spread over so many.
constexpr unsigned sizesBetween = 16;

struct Options {
    ConnectionOptions connection;
    ConvertOptions source;
    LoadPlan plan;
    std::string sizes;
    std::string replyCode;
    std::string plot;
    bool force = false;
    bool json = false;
};

/// What is sent where only the size counts.
struct Filler : kit::message<Filler> {
    static constexpr char const * type_name = "tav.Filler";
    static constexpr unsigned short type_code = 0x2001;
    tavString text;
    void traverse(tavCodecStream & s) override { ioField(s, 1, "text", text); }
};

/// A body of this size, or the smallest there is.
tavBytes bodyOf(unsigned size) {
    unsigned length = size;
    tavBytes body;
    for (int i = 0; i < 3; ++i) {
        Filler filler;
        filler.text = tavString(std::string(length, 'x'));
        body = filler.encode(true);
        unsigned const over = body.size() > size ? body.size() - size : 0;
        if (over == 0) {
            break;
        }
        length = length > over ? length - over : 0;
    }
    return body;
}

std::string plainly(double number) {
    std::ostringstream out;
    out << std::defaultfloat << std::setprecision(9) << number;
    return out.str();
}

unsigned sizeOf(std::string const & text) {
    std::size_t const digits = text.find_first_not_of("0123456789");
    unsigned long const size =
        text.empty() || digits != std::string::npos || text.size() > 9 ? largestBody + 1ul : std::stoul(text);
    if (size > largestBody) {
        throw Failure(exitUse,
                      "--size: \"" + text + "\" is no number of bytes up to " + std::to_string(largestBody));
    }
    return static_cast<unsigned>(size);
}

std::vector<LoadMessage> fillers(Options const & options) {
    std::size_t const dash = options.sizes.find('-');
    unsigned const least = sizeOf(options.sizes.substr(0, dash));
    unsigned const most = dash == std::string::npos ? least : sizeOf(options.sizes.substr(dash + 1));
    if (most < least) {
        throw Failure(exitUse, "--size: \"" + options.sizes + "\" ends before it begins");
    }
    LoadMessage one;
    one.code = Filler::type_code;
    if (!options.source.code.empty() && !readCode(options.source.code, one.code)) {
        throw Failure(exitUse,
                      "--code: \"" + options.source.code + "\" is no code: up to four hexadecimal digits");
    }
    std::vector<LoadMessage> all;
    unsigned const steps = most == least ? 1 : sizesBetween;
    for (unsigned i = 0; i < steps; ++i) {
        one.body = bodyOf(steps == 1 ? least : least + (most - least) / (steps - 1) * i);
        all.push_back(one);
    }
    return all;
}

std::vector<LoadMessage> messagesOf(Options const & options, Output & output) {
    if (!options.sizes.empty()) {
        return fillers(options);
    }
    if (options.source.model.empty()) {
        throw Failure(exitUse, "--template and a message, or --size, are needed");
    }
    Template const model = loadTemplate(options.source.model);
    ToldNotes told;
    std::unique_ptr<Source> const source = makeSource(options.source, model);
    std::vector<LoadMessage> all;
    std::size_t bytes = 0;
    Message message;
    while (source->next(message)) {
        told.tell(*source, message, output);
        if (all.size() >= mostMessages || bytes >= mostBytes) {
            output.tell("tav: " + source->told("warning", "the messages ahead of this one are sent, " +
                                                              std::to_string(all.size()) + " in turn"));
            break;
        }
        if (message.cls == nullptr || message.cls->code.empty()) {
            throw Failure(exitFound, source->told("error", "its class has no code to be sent by"));
        }
        LoadMessage one;
        one.code = message.code;
        one.body = message.nbr;
        bytes += one.body.size();
        all.push_back(std::move(one));
    }
    if (all.empty()) {
        throw Failure(exitFound, "there is no message to be sent");
    }
    return all;
}

/// The exit code of what came of it.
int codeOf(LoadPlan const & plan, LoadResult const & result) {
    bool const all = result.sends.empty() || (result.sends.size() == 1 && result.sends.count("ok") == 1);
    bool const nothingCame = plan.push && result.expected > 0 && result.delivered == 0;
    return result.signal != 0      ? codeOfSignal(result.signal)
           : result.connected == 0 ? exitNetwork
           : all && !nothingCame && result.connects.empty() && result.breaks.empty() ? exitGood
                                                                                     : exitFound;
}

void tellWhatIsMissing(Options const & options, LoadResult const & result, Output & output) {
    std::string const place = "tav: " + options.connection.place + ": ";
    if (result.connected == 0 && result.signal == 0) {
        output.tell(place + "nobody could connect\n");
    }
    if (result.connects.count("no_resources") != 0) {
        output.tell(
            "tav: the system has no descriptors or threads for more clients: `ulimit -n` and `ulimit -u`\n");
    }
    if (options.plan.push && result.expected > 0 && result.delivered == 0) {
        output.tell(place + "none of the messages was passed on to another client: does the gateway do that "
                            "with their code?\n");
    }
}

int load(Options & options, Output & output) {
    LoadPlan & plan = options.plan;
    plan.messages = messagesOf(options, output);
    plan.connect = connectOption(options.connection);
    plan.limitMs = options.connection.timeoutMs;
    if (!options.replyCode.empty() && !readCode(options.replyCode, plan.reply)) {
        throw Failure(exitUse, "--reply-code: \"" + options.replyCode +
                                   "\" is no code: up to four hexadecimal digits");
    }
    if (plan.push && plan.clients == 1) {
        throw Failure(exitUse, "--push: one client has no others that messages are passed on to: --clients");
    }
    // Ahead of the work that would be for nothing.
    if (!options.plot.empty()) {
        checkFile(options.plot, plotMark, options.force);
    }
    auto const result = std::make_unique<LoadResult>();
    runLoad(plan, *result);
    output.write(options.json ? jsonReportOf(plan, *result) : reportOf(plan, *result));
    output.flush();
    if (!options.plot.empty()) {
        writeFile(options.plot, plotOf(plan, *result), plotMark, options.force);
    }
    tellWhatIsMissing(options, *result, output);
    return withKeyLog(options.connection, codeOf(plan, *result), output);
}

/// A range that holds no NaN either.
std::function<std::string(std::string const &)> within(double low, double high) {
    return [low, high](std::string const & text) {
        double value = 0;
        bool const good = CLI::detail::lexical_cast(text, value) && value >= low && value <= high;
        return good ? std::string()
                    : "\"" + text + "\" is no number from " + plainly(low) + " to " + plainly(high);
    };
}

} // namespace

Run addLoad(CLI::App & app) {
    auto const options = std::make_shared<Options>();
    LoadPlan & plan = options->plan;
    addConnectionOptions(app, options->connection);
    addMessageOptions(app, options->source, "messages as JSON, sent in turn; - is the standard input");
    addModelOptions(app, options->source.model, options->source.className, options->source.code);
    CLI::Option * const size =
        app.add_option("--size", options->sizes,
                       "messages of so many bytes, or from so many to so many as 100-2000, in place of JSON")
            ->type_name("BYTES");
    for (char const * const other : {"JSON", "--file", "--template", "--class"}) {
        size->excludes(app.get_option(other));
    }
    constexpr unsigned mostClients = 10000;
    constexpr double least = 0.001;
    constexpr double highest = 1e6;
    constexpr double longest = 1e6;
    app.add_option("--clients", plan.clients, "how many connect")
        ->check(CLI::Range(1u, mostClients))
        ->type_name("N")
        ->capture_default_str();
    app.add_option("--rate", plan.rate, "messages a second, of all clients together")
        ->check(within(least, highest))
        ->type_name("N")
        ->capture_default_str();
    app.add_option("--duration", plan.seconds, "seconds of sending")
        ->check(within(least, longest))
        ->type_name("S")
        ->capture_default_str();
    app.add_option("--ramp", plan.ramp, "seconds in which the rate grows to its height")
        ->check(within(0, longest))
        ->type_name("S");
    app.add_flag("--push", plan.push,
                 "wait for no replies, and watch what is passed on to the other clients");
    app.add_option("--reply-code", options->replyCode,
                   "the code of the replies, in place of that behind the message's")
        ->type_name("HEX")
        ->excludes(app.get_option("--push"));
    app.add_option("--plot", options->plot, "draw the latencies by percentile, as SVG")->type_name("FILE");
    app.add_flag("--force", options->force, "replace a file that is no picture of an earlier load");
    app.add_flag("--json", options->json, "print one JSON object");
    return [options](Output & output) { return load(*options, output); };
}

} // namespace tool
} // namespace tav
