#include "tools/command.h"
#include "tools/connection.h"
#include "tools/failure.h"
#include "tools/load_report.h"
#include "tools/notes.h"

#include <tav/kit/message.h>

#include <cerrno>
#include <cstdio>
#include <memory>

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
    while (all.size() < mostMessages && bytes < mostBytes && source->next(message)) {
        told.tell(*source, message, output);
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

void writePlot(std::string const & path, std::string const & text) {
    std::FILE * const file = std::fopen(path.c_str(), "wb");
    if (file == nullptr) {
        throw systemFailure(path, "can't open", errno);
    }
    bool const good = std::fwrite(text.data(), 1, text.size(), file) == text.size();
    int const error = errno;
    if (std::fclose(file) != 0 || !good) {
        throw systemFailure(path, "can't write", good ? errno : error);
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
    // Ahead of the work that would be for nothing.
    if (!options.plot.empty()) {
        writePlot(options.plot, std::string());
    }
    auto const result = std::make_unique<LoadResult>();
    runLoad(plan, *result);
    output.write(options.json ? jsonReportOf(plan, *result) : reportOf(plan, *result));
    output.flush();
    if (!options.plot.empty()) {
        writePlot(options.plot, plotOf(plan, *result));
    }
    if (result->connected == 0 && result->signal == 0) {
        output.tell("tav: " + options.connection.place + ": nobody could connect\n");
        return exitNetwork;
    }
    bool const all = result->sends.empty() || (result->sends.size() == 1 && result->sends.count("ok") == 1);
    return all && result->connects.empty() && result->breaks.empty() ? exitGood : exitFound;
}

} // namespace

Run addLoad(CLI::App & app) {
    auto const options = std::make_shared<Options>();
    LoadPlan & plan = options->plan;
    addConnectionOptions(app, options->connection);
    app.add_option("JSON", options->source.text, "the message; without it --file is read");
    app.add_option("--file", options->source.file, "messages as JSON, sent in turn; - is the standard input")
        ->type_name("FILE")
        ->capture_default_str();
    addModelOptions(app, options->source.model, options->source.className, options->source.code);
    app.add_option("--size", options->sizes,
                   "messages of so many bytes, or from so many to so many as 100-2000, in place of JSON")
        ->type_name("BYTES");
    constexpr unsigned mostClients = 10000;
    constexpr double highest = 1e6;
    constexpr double longest = 1e6;
    app.add_option("--clients", plan.clients, "how many connect")
        ->check(CLI::Range(1u, mostClients))
        ->type_name("N")
        ->capture_default_str();
    app.add_option("--rate", plan.rate, "messages a second, of all clients together")
        ->check(CLI::Range(0.001, highest))
        ->type_name("N")
        ->capture_default_str();
    app.add_option("--duration", plan.seconds, "seconds of sending")
        ->check(CLI::Range(0.001, longest))
        ->type_name("S")
        ->capture_default_str();
    app.add_option("--ramp", plan.ramp, "seconds in which the rate grows to its height")
        ->check(CLI::Range(0.0, longest))
        ->type_name("S");
    app.add_flag("--push", plan.push,
                 "wait for no replies, and watch what is passed on to the other clients");
    app.add_option("--reply-code", options->replyCode,
                   "the code of the replies, in place of that behind the message's")
        ->type_name("HEX");
    app.add_option("--plot", options->plot, "draw the latencies by percentile, as SVG")->type_name("FILE");
    app.add_flag("--json", options->json, "print one JSON object");
    return [options](Output & output) { return load(*options, output); };
}

} // namespace tool
} // namespace tav
