// What is measured once and by a process of its own: memory and threads of clients that wait, processor time
// at a pace, the peak of memory while a text is parsed.  Each line that it prints is a name, a number and a
// unit, apart by tabs. Usage: footprint idle|connected|bare CLIENTS    footprint pace|pace-bare
// MESSAGES-A-SECOND SECONDS    footprint parser NAME
#include "echo.h"
#include "heap_peak.h"

#include "tav/vinta/vinta_json_parser.h"

#include <pugixml.hpp>
#include <rapidjson/document.h>

#include <sys/prctl.h>
#include <sys/wait.h>
#include <time.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <deque>
#include <functional>
#include <iostream>
#include <stdexcept>
#include <vector>

using namespace tav_bench;

namespace {

void tell(std::string const & name, double value, char const * unit) {
    std::cout << name << '\t' << value << '\t' << unit << '\n';
}

void check(bool ok, char const * what) {
    if (!ok) {
        throw std::runtime_error(what);
    }
}

/// An echo in a process of its own: neither its memory nor its time counts.  To be made while there is one
/// thread.
class EchoProcess {
public:
    EchoProcess() {
        // Made ahead of the fork, both sides have the same.
        certificates();
        int ends[2];
        check(::pipe(ends) == 0, "no pipe");
        child_ = ::fork();
        check(child_ >= 0, "no process");
        if (child_ == 0) {
            ::prctl(PR_SET_PDEATHSIG, SIGKILL);
            Echo const echo(certificates());
            unsigned short const port = echo.port();
            check(::write(ends[1], &port, sizeof(port)) == sizeof(port), "the port was not told");
            for (;;) {
                ::pause();
            }
        }
        check(::read(ends[0], &port_, sizeof(port_)) == sizeof(port_), "no echo");
        ::close(ends[0]);
        ::close(ends[1]);
    }
    ~EchoProcess() {
        ::kill(child_, SIGKILL);
        ::waitpid(child_, nullptr, 0);
    }
    EchoProcess(EchoProcess const &) = delete;
    EchoProcess & operator=(EchoProcess const &) = delete;

    unsigned short port() const { return port_; }

private:
    pid_t child_ = -1;
    unsigned short port_ = 0;
};

/// The value of a line of a file in /proc/self, in its own unit.
double ofProc(char const * file, std::string const & name) {
    std::ifstream in(std::string("/proc/self/") + file);
    for (std::string word; in >> word;) {
        if (word == name) {
            double value = 0;
            in >> value;
            return value;
        }
    }
    throw std::runtime_error("/proc/self/" + std::string(file) + " lacks " + name);
}

struct Use {
    double heap = static_cast<double>(heapInHand()) / 1024;
    double own = ofProc("smaps_rollup", "Private_Dirty:");
    double threads = ofProc("status", "Threads:");
};

/// What each of `clients` adds to the process.
void tellUse(std::string const & name, Use const & before, unsigned clients) {
    Use const now;
    tell(name + " heap", (now.heap - before.heap) / clients, "KiB");
    tell(name + " memory", (now.own - before.own) / clients, "KiB");
    tell(name + " threads", (now.threads - before.threads) / clients, "threads");
}

void clients(bool connected, unsigned count) {
    EchoProcess const echo;
    Authority const authority;
    Use const before;
    std::deque<tav::tls::client> all;
    for (unsigned i = 0; i < count; ++i) {
        all.emplace_back(tav_istr(std::to_string(i)));
        if (connected) {
            auto const info = all.back().start(optionOf(echo.port(), authority.file));
            check(info != nullptr && info->wait() == tav::tls::result_ok, "no connection");
        }
    }
    tellUse(std::to_string(count) + (connected ? " connected" : " idle"), before, count);
}

void bareClients(unsigned count) {
    EchoProcess const echo;
    Use const before;
    std::deque<BareClient> all;
    for (unsigned i = 0; i < count; ++i) {
        all.emplace_back(echo.port());
    }
    tellUse(std::to_string(count) + " bare", before, count);
}

double processorTime() {
    timespec now{};
    ::clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &now);
    return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) / 1e9;
}

/// Calls `send` with how many messages are due, each millisecond, and tells the processor time of one message
/// there and back once `arrived` says that all are back.
void atPace(std::string const & name, unsigned rate, unsigned seconds,
            std::function<void(unsigned)> const & send, std::function<unsigned long()> const & arrived) {
    using Clock = std::chrono::steady_clock;
    unsigned long const total = static_cast<unsigned long>(rate) * seconds;
    double const begin = processorTime();
    Clock::time_point const start = Clock::now();
    for (unsigned long sent = 0; sent < total;) {
        std::this_thread::sleep_until(start + std::chrono::microseconds(sent * 1000000 / rate + 1000));
        std::chrono::duration<double> const passed = Clock::now() - start;
        unsigned long const due = std::min(total, static_cast<unsigned long>(passed.count() * rate));
        send(static_cast<unsigned>(due - sent));
        sent = due;
    }
    Clock::time_point const last = Clock::now() + std::chrono::seconds(30);
    while (arrived() < total) {
        check(Clock::now() < last, "messages are missing");
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    std::chrono::duration<double> const took = Clock::now() - start;
    tell(name + " cpu", (processorTime() - begin) / static_cast<double>(total) * 1e6, "us");
    tell(name + " rate", static_cast<double>(total) / took.count(), "messages/s");
}

void pace(unsigned rate, unsigned seconds) {
    EchoProcess const echo;
    Authority const authority;
    std::atomic<unsigned long> back{0};
    tav::tls::client client("pace");
    client.on_nbr_msg(0x2001, [&](unsigned long long, unsigned short, unsigned char const *, unsigned int,
                                  tavMsgExt) { ++back; });
    auto const info = client.start(optionOf(echo.port(), authority.file));
    check(info != nullptr && info->wait() == tav::tls::result_ok, "no connection");
    std::string const body = requestBody();
    tav::tls::send_option const untracked;
    atPace(
        "paced own", rate, seconds,
        [&](unsigned count) {
            for (unsigned i = 0; i < count; ++i) {
                client.send_nbr_msg(0x2001, reinterpret_cast<unsigned char const *>(body.data()),
                                    static_cast<unsigned>(body.size()), untracked);
            }
        },
        [&] { return back.load(); });
    client.close();
}

/// Writes what is due at once and reads as much back, on one thread: the least that a program could do.
void paceBare(unsigned rate, unsigned seconds) {
    EchoProcess const echo;
    BareClient client(echo.port());
    std::string const frame = requestFrame();
    std::string frames;
    unsigned long back = 0;
    atPace(
        "paced bare", rate, seconds,
        [&](unsigned count) {
            frames.clear();
            for (unsigned i = 0; i < count; ++i) {
                frames += frame;
            }
            client.write(frames);
            client.read(frames);
            back += count;
        },
        [&] { return back; });
}

struct Book : tavObject {
    std::vector<tav_bench_own::Note> notes;

    tav_istr className() const override { return tav_istr("Book", 4); }
    tav_istr baseName() const override { return tav_istr("tavObject", 9); }
    tavObject * newInstance() const override { return new Book; }
    void assignFrom(tavObject const & other) override {
        if (auto const * from = dynamic_cast<Book const *>(&other)) {
            *this = *from;
        }
    }

protected:
    void traverse(tavCodecStream & s) override {
        ioField(s, 1, tav_istr("notes", 5), notes, tavCodecMeta(tav::pml::field_type::list_));
    }
};

/// The peak while `parse` runs, as a multiple of the input.  What it makes is in hand at the end.
void peak(std::string const & name, std::size_t size, std::function<std::shared_ptr<void>()> const & parse) {
    std::size_t const before = heapInHand();
    resetPeak();
    std::shared_ptr<void> const made = parse();
    tell(name + " peak", static_cast<double>(heapPeak() - before) / static_cast<double>(size), "times");
}

template <class T>
std::shared_ptr<void> held(T value) {
    return std::make_shared<T>(std::move(value));
}

/// Tells of the parser of this name, alone in its process: what one leaves of the heap would serve the next.
/// Gives how many there are of it.
int parser(std::string const & chosen) {
    int found = 0;
    auto const tellPeak = [&](std::string const & name, std::size_t size,
                              std::function<std::shared_ptr<void>()> const & parse) {
        if (name == chosen) {
            ++found;
            peak(name, size, parse);
        }
    };
    Book book;
    book.notes.assign(1000, tav_bench_own::sample());
    std::string const nbr(tav_istr(book.encode(false)));
    std::ostringstream out;
    out << "[";
    for (tav_bench_own::Note const & note : book.notes) {
        out << (out.tellp() > 1 ? "," : "") << R"({"from":")" << note.from.data() << R"(","text":")"
            << note.text.data()
            << R"(","mood":300,"at":"1700000000123","weight":1.5,"tags":["sun","wind","rain"]})";
    }
    out << "]";
    std::string const json = out.str();
    out.str("");
    out << "<notes>";
    for (tav_bench_own::Note const & note : book.notes) {
        out << "<note><from>" << note.from.data() << "</from><text>" << note.text.data()
            << "</text><mood>300</mood><at>1700000000123</at></note>";
    }
    out << "</notes>";
    std::string const xml = out.str();
    tellPeak("NBR object", nbr.size(), [&] {
        auto const made = std::make_shared<Book>();
        made->decode(tav_istr(nbr));
        check(made->notes.size() == book.notes.size(), "NBR");
        return made;
    });
    tellPeak("NBR tree", nbr.size(), [&] {
        tav_istr rest(nbr);
        return held(tav::nbr::parser::from(rest));
    });
    tellPeak("JSON tree", json.size(), [&] { return held(tav::json::JsonParser::from(tav_istr(json))); });
    tellPeak("JSON RapidJSON", json.size(), [&] {
        auto const made = std::make_shared<rapidjson::Document>();
        made->Parse(json.data(), json.size());
        check(!made->HasParseError(), "RapidJSON");
        return made;
    });
    tellPeak("XML tree", xml.size(), [&] {
        auto const made = std::make_shared<tav::xml::Node>();
        made->decode(tav_istr(xml));
        return made;
    });
    tellPeak("XML pugixml", xml.size(), [&] {
        auto const made = std::make_shared<pugi::xml_document>();
        check(made->load_buffer(xml.data(), xml.size()), "pugixml");
        return made;
    });
    return found;
}

int run(std::vector<std::string> const & words) {
    tavLogger::setup("(clear(NONE))", nullptr, false, tavLogger::WARN);
    auto const number = [&](std::size_t at) { return static_cast<unsigned>(std::stoul(words.at(at))); };
    std::string const what = words.empty() ? "" : words[0];
    if (what == "idle" || what == "connected") {
        clients(what == "connected", number(1));
    } else if (what == "bare") {
        bareClients(number(1));
    } else if (what == "pace") {
        pace(number(1), number(2));
    } else if (what == "pace-bare") {
        paceBare(number(1), number(2));
    } else if (what == "parser") {
        check(parser(words.at(1)) == 1, "no parser of this name");
    } else {
        std::cerr << "usage: footprint idle|connected|bare CLIENTS\n"
                     "       footprint pace|pace-bare MESSAGES-A-SECOND SECONDS\n"
                     "       footprint parser NAME\n";
        return 2;
    }
    return 0;
}

} // namespace

int main(int argc, char ** argv) {
    try {
        return run(std::vector<std::string>(argv + 1, argv + argc));
    } catch (std::exception const & e) {
        std::cerr << "footprint: " << e.what() << '\n';
        return 1;
    }
}
