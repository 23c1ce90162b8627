// The log in a file, what its levels show, and a callback that counts the failures: docs/logging.md.
#include <tav/kit/kit.h>

#include <atomic>
#include <fstream>
#include <iostream>
#include <string>

struct Hello : tav::kit::message<Hello> {
    static constexpr char const * type_name = "Hello";
    static constexpr unsigned short type_code = 0x2001;
    tavString text;
    tavString password;
    void traverse(tavCodecStream & s) override {
        ioField(s, 1, "text", text);
        ioField(s, 2, "password", password,
                tavCodecMeta(-1, true, "***", false)); // protected: the log masks it
    }
};
struct Greeting : tav::kit::message<Greeting, Hello> {
    static constexpr char const * type_name = "Greeting";
    static constexpr unsigned short type_code = 0x2002;
};

static std::atomic<int> failures{0};

int main(int argc, char ** argv) {
    if (argc != 5) {
        std::cerr << "usage: logging HOST PORT CA-FILE LOG-FILE\n";
        return 2;
    }
    auto const count = [](int level, char const *) { failures += level >= tavLogger::ERROR ? 1 : 0; };
    tavLogger::open(argv[4], "logging", "(default(WARN)TLS.CLT(INFO))", count, "1.0", 1 << 20, false,
                    tavLogger::WARN);
    {
        tav::tls::client gateway("logging");
        auto const start = gateway.start(argv[1], argv[2], argv[3], nullptr, tav::tls::global_callback(),
                                         tav::tls::timedout_option(5000));
        if (!start || start->wait() != tav::tls::result_ok) {
            std::cerr << "logging: " << (start ? start->error() : tav::tls::last_failure()).message() << "\n";
        }
        Hello hello;
        Greeting greeting;
        hello.text = "good morning";
        hello.password = "open sesame";
        auto const say = [&] { return gateway.send_and_wait(hello, greeting, 5000); };
        say();
        tavLogger::setLogLevel("TLS.CLT", tavLogger::ERROR); // at any time, from any thread
        say();
        gateway.close();
        say(); // an ERROR line
    }
    tav::tls::client::finalize(); // writes what is still to be written, and closes the file

    std::ifstream file(argv[4]);
    std::string const log((std::istreambuf_iterator<char>(file)), std::istreambuf_iterator<char>());
    std::cout << log << failures << " failures\n";
    bool const shown = log.find("good morning") != std::string::npos;
    return shown && log.find("open sesame") == std::string::npos && failures > 0 ? 0 : 1;
}
