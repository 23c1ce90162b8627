#include "gateway/command_line.h"
#include "tools/command.h"
#include "tools/failure.h"
#include "tools/gateway_record.h"
#include "tools/gateway_rules.h"
#include "tools/interrupts.h"
#include "tools/template_check.h"
#include "tools/terminal_text.h"
#include "tools/web.h"

#include <poll.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <csignal>
#include <memory>
#include <mutex>

namespace tav {
namespace tool {

namespace {

using gateway::Gateway;

struct Options {
    gateway::Settings gateway;
    std::string model;
    std::string rules;
    std::string record;
    Recorded recorded = Recorded::both;
    bool hasWeb = false;
    WebOptions web;
};

long long timeNow() {
    return std::chrono::duration_cast<std::chrono::milliseconds>(
               std::chrono::system_clock::now().time_since_epoch())
        .count();
}

/// What the threads of a gateway say, until it can't be written.
class SaidLines {
public:
    SaidLines(Output & output, Trouble & trouble) : output_(output), trouble_(trouble) {}

    void say(std::string const & line) {
        std::lock_guard<std::mutex> const guard(mutex_);
        try {
            output_.line(line);
            output_.flush();
        } catch (Failure const & e) {
            trouble_.tell(e);
        } catch (Interrupted const &) {
            // Nobody reads it, and the gateway is to end.
        }
    }

private:
    Output & output_;
    Trouble & trouble_;
    std::mutex mutex_;
};

/// As long as it lives a reader who takes nothing holds up no signal.
class Watch {
public:
    Watch(Output & output, Interrupts const & interrupts) : output_(output) { output_.endsBy(&interrupts); }
    ~Watch() { output_.endsBy(nullptr); }
    Watch(Watch const &) = delete;
    Watch & operator=(Watch const &) = delete;

private:
    Output & output_;
};

class GatewayRun {
public:
    GatewayRun(Options & options, Output & output)
        : options_(options), output_(output), said_(output, trouble_) {}

    int run() {
        gateway::Settings & settings = options_.gateway;
        prepare();
        std::string note;
        gateway::parseRoute(settings);
        gateway::Certificates const certificates = gateway::certificatesOf(settings, note);
        if (!note.empty()) {
            output_.tell("tav: " + note);
        }
        Interrupts const interrupts;
        Watch const watch(output_, interrupts);
        Gateway gateway(settings.options, certificates);
        // Whose port is taken is told ahead of any client.
        std::unique_ptr<Web> web;
        if (options_.hasWeb) {
            tellUnprotected();
            web = std::make_unique<Web>(options_.web, model_, traffic_, gateway);
        }
        try {
            gateway.start();
        } catch (std::runtime_error const & e) {
            throw Failure(exitNetwork, e.what());
        }
        said_.say(gateway::listeningLine(settings, gateway.port()));
        gateway::writePort(settings, gateway.port());
        if (web != nullptr) {
            said_.say("gateway: the page is at " + web->place());
            if (web->isOnAllAddresses()) {
                said_.say("gateway: the page listens on all addresses of this machine");
            }
        }
        waitForEnd(interrupts);
        gateway.stop();
        said_.say(gateway::stoppedLine(gateway.stats()));
        // It waits for who is being answered.
        web.reset();
        trouble_.raise();
        return exitGood;
    }

private:
    void prepare() {
        gateway::Options & options = options_.gateway.options;
        if (!options_.model.empty()) {
            model_ = loadTemplate(options_.model);
        }
        if (!options_.rules.empty()) {
            auto const rules =
                std::make_shared<GatewayRules>(options_.rules, options_.model.empty() ? nullptr : &model_);
            if (!rules->told().empty()) {
                output_.tell("tav: " + rules->told());
            }
            options.plan = [rules](unsigned short code, std::string const & body) {
                return rules->planFor(code, body);
            };
        }
        if (!options_.record.empty()) {
            record_ = std::make_unique<GatewayRecord>(options_.record, options_.recorded, trouble_);
        }
        if (record_ != nullptr || options_.hasWeb) {
            options.on_frame = [this](unsigned connection, bool in, std::string const & frame,
                                      std::optional<unsigned short> copyOf) {
                take(connection, in, frame, copyOf);
            };
        }
        if (options_.hasWeb) {
            options.on_connection = [this](unsigned connection, bool open, std::string const & peer) {
                traffic_.connection(connection, open, peer, timeNow());
            };
            options.on_odd = [this](unsigned connection, std::string const & bytes,
                                    std::string const & what) {
                traffic_.odd(connection, bytes, what, timeNow());
            };
            options.on_silence = [this](unsigned connection, bool silent) {
                traffic_.silence(connection, silent);
            };
        }
        if (!options_.gateway.quiet) {
            options.log = [this](std::string const & line) { said_.say("gateway: " + line); };
        }
    }

    /// What the template wants protected, and can't have.
    void tellUnprotected() {
        std::string const & text = model_.text;
        for (Finding const & finding : checkTemplate(text)) {
            if (finding.error || finding.rule == "protected") {
                output_.tell("tav: " + toldInText(forTerminal(model_.name), text, finding.offset,
                                                  finding.error ? "error" : "warning",
                                                  forTerminal(finding.text) + " [" + finding.rule + "]"));
            }
        }
    }

    void take(unsigned connection, bool in, std::string const & frame, std::optional<unsigned short> copyOf) {
        if (record_ != nullptr) {
            record_->put(in, frame);
        }
        if (options_.hasWeb) {
            traffic_.frame(connection, in, frame, timeNow(), copyOf);
        }
    }

    /// Until a signal, trouble, the end of the standard input if that counts, or of who reads the output.
    void waitForEnd(Interrupts const & interrupts) const {
        std::array<pollfd, 4> what = {{{interrupts.fd(), POLLIN, 0},
                                       {trouble_.fd(), POLLIN, 0},
                                       {STDOUT_FILENO, 0, 0},
                                       {options_.gateway.untilEof ? STDIN_FILENO : -1, POLLIN, 0}}};
        for (;;) {
            int const ready = ::poll(what.data(), what.size(), -1);
            if (interrupts.signal() != 0 || (ready > 0 && what[1].revents != 0)) {
                return;
            }
            // A socket says that its reader has gone by a hang-up alone, a pipe by an error.
            if (ready > 0 && (what[2].revents & (POLLERR | POLLHUP)) != 0) {
                std::signal(SIGPIPE, SIG_DFL);
                std::raise(SIGPIPE);
            }
            std::array<char, 4096> taken{};
            if (ready > 0 && what[3].revents != 0 && ::read(STDIN_FILENO, taken.data(), taken.size()) <= 0) {
                return;
            }
        }
    }

    Options & options_;
    Output & output_;
    Trouble trouble_;
    SaidLines said_;
    Template model_;
    std::unique_ptr<GatewayRecord> record_;
    Traffic traffic_;
};

} // namespace

Run addGateway(CLI::App & app) {
    auto const options = std::make_shared<Options>();
    gateway::addOptions(app, options->gateway);
    auto * const model =
        app.add_option("-t,--template", options->model, "the template that gives names and types")
            ->type_name("FILE");
    app.add_option("--rules", options->rules, "what to do for which packets, in JSON")->type_name("FILE");
    auto * const record =
        app.add_option("--record", options->record, "append all frames to a file, as tav convert reads them")
            ->type_name("FILE");
    addChoice(app, "--recorded", options->recorded, recordedNames(), "the frames of a record, by their way")
        ->needs(record);
    constexpr int lastPort = 65535;
    auto * const web =
        app.add_option("--web", options->web.port,
                       "show connections and traffic on a page at this port; 0: the system gives one")
            ->check(CLI::Range(0, lastPort))
            ->type_name("PORT")
            ->needs(model);
    app.add_option("--web-address", options->web.address, "address that the page listens on")
        ->capture_default_str()
        ->needs(web);
    app.add_flag("--reveal", options->web.reveal, "show values that the template protects on the page")
        ->needs(web);
    return [options, web](Output & output) {
        options->hasWeb = web->count() != 0;
        if (options->hasWeb) {
            Web::demand();
        }
        return GatewayRun(*options, output).run();
    };
}

} // namespace tool
} // namespace tav
