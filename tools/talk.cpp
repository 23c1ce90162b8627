#include "tools/talk.h"

#include "tools/command.h"
#include "tools/failure.h"
#include "tools/notes.h"

#include <algorithm>
#include <memory>

namespace tav {
namespace tool {

namespace {

/// Of messages that wait for nothing: the connection takes them at once, or they wait for it.
constexpr unsigned mostAtOnce = 500;

class Talk {
public:
    Talk(TalkOptions const & options, Output & output)
        : options_(options), output_(output), model_(loadTemplate(options.source.model)) {}
    ~Talk() { InputFile::whenWaiting(nullptr); }
    Talk(Talk const &) = delete;
    Talk & operator=(Talk const &) = delete;

    int run() {
        reply_ = chosenReply();
        source_ = makeSource(options_.source, model_);
        // A message of the command line is looked at before anybody is called.
        bool more = true;
        Message message;
        bool const given = !options_.source.text.empty();
        if (given) {
            more = next(message);
        }
        live_ = std::make_unique<Live>(options_.live, model_, output_);
        InputFile::whenWaiting([this](int fd) { waitFor(fd); });
        try {
            return exchange(message, given, more);
        } catch (Interrupted const & e) {
            return left_ ? codeOfSignal(e.signal) : worst();
        }
    }

private:
    int exchange(Message & message, bool given, bool more) {
        live_->connect();
        for (more = more && (given || next(message)); more && !live_->isGone(); more = next(message)) {
            put(message);
            while (live_->underWay() >= window() && !live_->isGone()) {
                live_->serve(-1, Live::Clock::time_point::max());
            }
        }
        live_->finish();
        left_ = false;
        linger();
        return worst();
    }

    /// Who closes while answers are on their way may take from the gateway what it has not read yet.
    void linger() {
        auto const quiet = std::chrono::milliseconds(options_.lingerMs);
        auto const longest = Live::Clock::now() +
                             std::max(quiet, std::chrono::milliseconds(options_.live.connection.timeoutMs));
        auto end = Live::Clock::now() + quiet;
        while (!live_->isGone() && Live::Clock::now() < std::min(end, longest)) {
            unsigned long long const before = live_->pushes();
            live_->serve(-1, std::min(end, longest));
            end = live_->pushes() == before ? end : Live::Clock::now() + quiet;
        }
    }

    int worst() const { return std::max(wrong_ ? static_cast<int>(exitFound) : 0, live_->code()); }
    unsigned window() const { return options_.awaits || options_.confirms ? options_.atOnce : mostAtOnce; }

    /// False at the end.  A wrong message ends the work, or is told and passed over.
    bool next(Message & message) {
        for (;;) {
            ++number_;
            try {
                bool const got = source_->next(message);
                told_.tell(*source_, message, output_);
                if (got && (message.cls == nullptr || message.cls->code.empty())) {
                    throw Failure(exitFound, source_->told("error", "the class " + nameOfClass(message) +
                                                                        " has no code to be sent by"));
                }
                return got;
            } catch (Failure const & e) {
                told_.tell(*source_, message, output_);
                if (e.code() != exitFound || (live_ == nullptr && !options_.source.keepGoing)) {
                    throw;
                }
                output_.tell(std::string("tav: ") + e.what() + lineEnd(e.what()));
                wrong_ = true;
                if (!options_.source.keepGoing || source_->lost()) {
                    return false;
                }
            }
        }
    }
    static std::string nameOfClass(Message const & message) {
        return message.cls == nullptr ? std::string() : stringOf(message.cls->className);
    }
    static char const * lineEnd(std::string const & text) {
        return text.empty() || text.back() != '\n' ? "\n" : "";
    }

    void put(Message const & message) {
        unsigned short reply = Message::noCode;
        if (options_.confirms) {
            reply = message.code;
        } else if (options_.awaits) {
            reply = reply_ != Message::noCode ? reply_ : static_cast<unsigned short>(message.code + 1);
        }
        live_->put(message, reply, number_);
    }

    unsigned short chosenReply() const {
        pml::MetaClass const * const cls = chosenClass(model_, options_.replyClass, std::string(), "--reply");
        unsigned short code = Message::noCode;
        std::string const text = cls != nullptr ? stringOf(cls->code) : options_.replyCode;
        if (!text.empty() && !readCode(text, code)) {
            throw Failure(exitUse,
                          "--reply-code: \"" + text + "\" is no code: up to four hexadecimal digits");
        }
        if (cls != nullptr && text.empty()) {
            throw Failure(exitUse, "--reply: the class " + options_.replyClass + " has no code");
        }
        return code;
    }

    void waitFor(int fd) {
        while (!live_->isGone() && !live_->serve(fd, Live::Clock::time_point::max())) {
        }
        if (live_->isGone()) {
            throw Failure(exitNetwork, "what is left of the input was not read");
        }
    }

    TalkOptions const & options_;
    Output & output_;
    Template const model_;
    ToldNotes told_;
    std::unique_ptr<Source> source_;
    std::unique_ptr<Live> live_;
    unsigned short reply_ = Message::noCode;
    /// Of the message that was read last, from 1.
    unsigned long long number_ = 0;
    /// Whether there was still something to be sent, or a reply to come.
    bool left_ = true;
    bool wrong_ = false;
};

} // namespace

void addTalkOptions(CLI::App & app, TalkOptions & options) {
    addLiveOptions(app, options.live);
    addMessageOptions(app, options.source, "messages as JSON, one or many; - is the standard input");
    addModelOptions(app, options.source.model, options.source.className, options.source.code);
    app.get_option("--template")->required();
    app.add_flag("--keep-going", options.source.keepGoing,
                 "tell of a wrong message, pass it over, and exit with 1 at the end");
    app.add_option(
           "--linger", options.lingerMs,
           "behind the last message, end when nothing has come for so many milliseconds, or for --timeout")
        ->type_name("MS")
        ->capture_default_str();
}

void addMessageOptions(CLI::App & app, ConvertOptions & source, std::string const & fileText) {
    auto const isThere = [](std::string const & text) {
        return text.find_first_not_of(" \t\r\n") == std::string::npos ? "there is no message" : "";
    };
    app.add_option("JSON", source.text, "the message; without it --file is read")
        ->check(CLI::Validator(isThere, "", "message"));
    app.add_option("--file", source.file, fileText)
        ->type_name("FILE")
        ->capture_default_str()
        ->excludes(app.get_option("JSON"));
}

int talk(TalkOptions const & options, Output & output) {
    int const code = Talk(options, output).run();
    return withKeyLog(options.live.connection, code, output);
}

} // namespace tool
} // namespace tav
