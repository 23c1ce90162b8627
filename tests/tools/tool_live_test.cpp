#include "gateway/gateway_core.h"
#include "support/pki.h"
#include "support/tool.h"

#include <gtest/gtest.h>

#include <chrono>
#include <csignal>
#include <functional>
#include <future>
#include <memory>
#include <sstream>
#include <thread>

namespace {

using tav::gateway::Gateway;
using tav::gateway::Stats;
using tav_test::CertificateSpec;
using tav_test::Identity;
using tav_test::ToolRig;
using tav_test::ToolRun;

char const * const model = "Ask:object(__class__(im.Ask)__code__(2001)[1]user:string()[2]n:int32?())\n"
                           "Answer:object(__class__(im.Answer)__code__(2002)[1]user:string()[2]n:int32?())\n"
                           "Say:object(__class__(im.Say)__code__(3001)[1]user:string())\n"
                           "Bare:object(__class__(im.Bare)[1]user:string())\n";

/// Waits in a shell until a file has a text.
char const * const waiting =
    "until_() { for i in $(seq 1000); do grep -q -- \"$1\" $2 && return; sleep 0.01; done; "
    "echo \"no $1 in $2\" >&2; }\n";

/// An object with a text as its first field.
std::string bodyOf(std::string const & text) {
    return "\xFF\x01\x28\x01\xF1" + std::string(1, static_cast<char>(text.size())) + text + "\xFF\x01\x29";
}

/// "good morning", said in the hall.
std::string const pushed = "\xFF\x01\x28\x01\xF1\x04hall\x02\xF1\x0Cgood morning\xFF\x01\x29";

/// A gateway with the certificate of an authority, and a folder with what the tool needs to talk to it.
struct LiveRig {
    explicit LiveRig(tav::gateway::Options const & options = tav::gateway::Options())
        : gateway(std::make_unique<Gateway>(
              options, tav::gateway::Certificates{root.pem(), server.pem(), server.keyPem()})) {
        gateway->start();
        tool.file("ca.pem", root.pem());
        tool.file("m.pml", model);
    }

    std::string place() const { return "127.0.0.1:" + std::to_string(gateway->port()); }
    /// "COMMAND HOST:PORT --ca ca.pem -t m.pml MORE"
    std::string line(std::string const & command, std::string const & more) const {
        return command + " " + place() + " --ca ca.pem -t m.pml " + more;
    }
    ToolRun run(std::string const & command, std::string const & more,
                std::string const & input = std::string()) const {
        return tool.run(line(command, more), input);
    }
    /// Runs a line of shell beside what the test does.
    std::future<ToolRun> begin(std::string const & shell) const {
        return std::async(std::launch::async, [this, shell] { return tool.shell(waiting + shell); });
    }
    bool opened(unsigned connections = 1) const {
        return gateway->wait(
            [connections](Stats const & s) { return s.handshakes >= connections && s.open > 0; });
    }
    /// Whether the one that listens has said that it is connected, which it is later than the gateway.
    bool connected() const {
        constexpr std::chrono::milliseconds step(10);
        for (int i = 0; i < 1000; ++i) {
            if (tav_test::contentOf(tool.path(".err")).find(": connected\n") != std::string::npos) {
                return true;
            }
            std::this_thread::sleep_for(step);
        }
        return false;
    }
    bool closed() const {
        return gateway->wait([](Stats const & s) { return s.open == 0; });
    }
    void push(unsigned short code, std::string const & user) const {
        gateway->push(code, bodyOf(user), false);
    }

    Identity const root{CertificateSpec::ca("Test root")};
    Identity const server{CertificateSpec(), &root};
    ToolRig const tool{TAV_TOOL};
    std::unique_ptr<Gateway> gateway;
};

bool has(std::string const & text, std::string const & part) {
    return text.find(part) != std::string::npos;
}

TEST(ToolLive, RequestPrintsItsReplyAsALineOfJson) {
    LiveRig const rig;
    std::string const reply = "{ \"__class__\":\"im.Answer\", \"user\":\"ann\" }\n";
    rig.tool.file("j", "{\"user\":\"ann\"}\n{\n \"user\" : \"ann\"\n}");
    struct Case {
        char const * more;
        char const * input;
        int replies;
    };
    for (Case const & one :
         {Case{"-c im.Ask '{\"user\":\"ann\"}'", "", 1}, Case{"--code 2001 '{\"user\":\"ann\"}'", "", 1},
          Case{"'{\"__class__\":\"im.Ask\",\"user\":\"ann\"}'", "", 1}, Case{"-c im.Ask --file j", "", 2},
          Case{"-c im.Ask --at-once 3", "{\"user\":\"ann\"} {\"user\":\"ann\"}{\"user\":\"ann\"}", 3},
          Case{"-c im.Ask --reply im.Answer", "{\"user\":\"ann\"}", 1},
          Case{"-c im.Ask --reply-code 0x2002 --reconnect never", "{\"user\":\"ann\"}", 1},
          Case{"-c im.Ask", "", 0}}) {
        ToolRun const run = rig.run("request", one.more, one.input);
        std::string replies;
        for (int i = 0; i < one.replies; ++i) {
            replies += reply;
        }
        EXPECT_EQ(run.code, 0) << one.more << run.err;
        EXPECT_EQ(run.out, replies) << one.more;
        EXPECT_EQ(run.err, "") << one.more;
    }
    EXPECT_TRUE(rig.closed());
}

TEST(ToolLive, JsonHasAnObjectForAllThatHappens) {
    LiveRig const rig;
    ToolRun const run = rig.tool.shell(
        "printf '{\"user\":\"ann\"}{\"user\":\"bob\"}' | $TAV " + rig.line("request", "-c im.Ask --json") +
        " | python3 -c 'import json, sys\n"
        "for line in sys.stdin:\n"
        "    all = json.loads(line)\n"
        "    print(all[\"event\"], all.get(\"number\"), all.get(\"code\"), all.get(\"message\"))'");
    EXPECT_EQ(run.out, "up None None None\n"
                       "reply 1 0x2002 {'__class__': 'im.Answer', 'user': 'ann'}\n"
                       "reply 2 0x2002 {'__class__': 'im.Answer', 'user': 'bob'}\n")
        << run.err;
    ToolRun const sent = rig.run("send", "-c im.Say --json '{\"user\":\"ann\"}'");
    EXPECT_TRUE(has(sent.out, "\n{\"event\":\"sent\",\"number\":1}\n")) << sent.out;
    EXPECT_TRUE(has(sent.out, "{\"event\":\"push\",\"code\":\"0x3002\",\"sequence\":")) << sent.out;
    tav::gateway::Options silent;
    silent.faults.silence = true;
    LiveRig const other(silent);
    ToolRun const failed = other.run("request", "-c im.Ask --json --timeout 300 '{\"user\":\"ann\"}'");
    EXPECT_EQ(failed.code, 3);
    EXPECT_TRUE(has(failed.out, "{\"event\":\"failed\",\"number\":1,\"failure\":\"timed_out\",\"text\":"))
        << failed.out;
}

TEST(ToolLive, SendEndsWhenAllHasArrived) {
    LiveRig const rig;
    constexpr unsigned many = 5000;
    ToolRun const run = rig.tool.shell("yes '{\"user\":\"ann\"}' | head -n " + std::to_string(many) +
                                       " | $TAV " + rig.line("send", "-c im.Ask") + " | sort | uniq -c");
    EXPECT_TRUE(has(run.out, std::to_string(many) + " { \"__class__\":\"im.Answer\", \"user\":\"ann\" }\n"))
        << run.out;
    EXPECT_EQ(run.err, "");
    EXPECT_EQ(rig.gateway->stats().packets, many);
}

TEST(ToolLive, SendWithConfirmationWaitsForTheReceipt) {
    tav::gateway::Options echoing;
    echoing.echo = true;
    LiveRig const rig(echoing);
    EXPECT_EQ(rig.run("send", "--confirm -c im.Ask '{\"user\":\"ann\"}'").code, 0);
    LiveRig const other;
    ToolRun const run = other.run("send", "--confirm --timeout 300 -c im.Ask '{\"user\":\"ann\"}'");
    EXPECT_EQ(run.code, 3);
    EXPECT_TRUE(has(run.err, "tav: message 1: timed_out: timed out\n")) << run.err;
}

TEST(ToolLive, ListenPrintsPushesAndThoseWithoutAClassAsBytes) {
    LiveRig const rig;
    auto running = rig.begin("$TAV " + rig.line("listen", "--count 2"));
    ASSERT_TRUE(rig.opened());
    rig.push(0x3001, "ann");
    rig.push(0x4444, "b");
    rig.push(0x3001, "too much");
    ToolRun const run = running.get();
    EXPECT_EQ(run.code, 0) << run.err;
    EXPECT_EQ(run.out, "{ \"__class__\":\"im.Say\", \"user\":\"ann\" }\n"
                       "{ \"__code__\":\"0x4444\", \"bytes\":\"/wEoAfEBYv8BKQ==\" }\n");
    EXPECT_EQ(run.err, "tav: " + rig.place() + ": connected\n");
    EXPECT_TRUE(rig.closed());
}

TEST(ToolLive, ListenEndsAfterItsTime) {
    LiveRig const rig;
    ToolRun const run = rig.run("listen", "--for 200");
    EXPECT_EQ(run.code, 0) << run.err;
    EXPECT_EQ(run.out, "");
    EXPECT_TRUE(rig.closed());
}

TEST(ToolLive, ListenThatHasNotGotWhatWasWantedInItsTimeSaysSo) {
    LiveRig const rig;
    ToolRun const few = rig.run("listen", "--for 200 --count 3");
    EXPECT_EQ(few.code, 1);
    EXPECT_TRUE(has(few.err, "tav: 0 of 3 messages came within the 200 ms of --for\n")) << few.err;
    ToolRun const alone = rig.tool.run("listen localhost:1 -t m.pml --reconnect always --for 300");
    EXPECT_EQ(alone.code, 3);
    EXPECT_TRUE(has(alone.err, "tav: there was no connection within the 300 ms of --for\n")) << alone.err;
}

TEST(ToolLive, MessageThatIsNotWhatItsClassSaysIsToldAndNoLine) {
    LiveRig const rig;
    auto running = rig.begin("$TAV " + rig.line("listen", "--count 2"));
    ASSERT_TRUE(rig.opened());
    rig.gateway->push(0x3001, bodyOf("long").substr(0, 8), false);
    rig.push(0x3001, "ann");
    ToolRun const run = running.get();
    EXPECT_EQ(run.code, 1) << run.err;
    EXPECT_EQ(run.out, "{ \"__class__\":\"im.Say\", \"user\":\"ann\" }\n");
    EXPECT_TRUE(has(run.err, "tav: push 0x3001: bad_reply: it is not what its class says: byte 8"))
        << run.err;
}

TEST(ToolLive, WrongJsonIsToldWithItsPlaceAndIsNotSent) {
    LiveRig const rig;
    struct Case {
        char const * more;
        char const * input;
        int code;
        char const * said;
        unsigned sent;
    };
    for (Case const & one :
         {Case{"-c im.Ask '{\"user\":\"ann\"'", "", 1,
               "tav: JSON:1:1: error: the message that begins here does not end\n    {\"user\":\"ann\"\n    "
               "^\n",
               0},
          Case{"-c im.Ask '{\"user\":7}'", "", 1, "tav: JSON:1:9: error: field user in class im.Ask", 0},
          Case{"-c im.Ask '{}'", "", 1, "missing necessary field", 0},
          Case{"-c im.Ask", "{\"user\":\"a\"}\n{\"user\":5}\n{\"user\":\"c\"}\n", 1,
               "tav: <stdin>:2:9: error: field user in class im.Ask should not be json number type, expected "
               "type "
               "string\n    {\"user\":5}\n            ^\n",
               1},
          Case{"-c im.Ask --keep-going", "{\"user\":\"a\"}\n{\"user\":5}\n{\"user\":\"c\"}\n", 1,
               "<stdin>:2:9", 2},
          Case{"'{\"__class__\":\"im.Nobody\"}'", "", 1, "im.Nobody", 0},
          Case{"-c im.Bare '{\"user\":\"ann\"}'", "", 1, "the class im.Bare has no code to be sent by", 0},
          Case{"-c im.Ask '{\"user\":\"a\",\"floor\":1}'", "", 0,
               "tav: JSON:1:13: warning: not found field name [floor] in class im.Ask: it is dropped", 1},
          Case{"-c im.Aks '{\"user\":\"a\"}'", "", 2, "m.pml has no class im.Aks; did you mean im.Ask?", 0},
          Case{"-c im.Ask --reply im.Bare '{\"user\":\"a\"}'", "", 2, "the class im.Bare has no code", 0},
          Case{"-c im.Ask --reply-code xyz '{\"user\":\"a\"}'", "", 2, "\"xyz\" is no code", 0},
          Case{"-c im.Ask --file absent", "", 2, "absent: can't open: No such file or directory", 0}}) {
        unsigned const before = rig.gateway->stats().packets;
        ToolRun const run = rig.run("request", one.more, one.input);
        EXPECT_EQ(run.code, one.code) << one.more << run.err;
        EXPECT_TRUE(has(run.err, one.said)) << one.more << ": " << run.err;
        EXPECT_EQ(rig.gateway->stats().packets - before, one.sent) << one.more;
    }
}

TEST(ToolLive, MessagesHaveTheNumbersUnderWhichTheyWereRead) {
    LiveRig const rig;
    ToolRun const run = rig.run("send", "-c im.Say --json --keep-going", "{\"user\":5}\n{\"user\":\"b\"}\n");
    EXPECT_EQ(run.code, 1);
    EXPECT_TRUE(has(run.out, "{\"event\":\"sent\",\"number\":2}\n")) << run.out;
    // The worst of what has happened is the exit code.
    tav::gateway::Options silent;
    silent.faults.silence = true;
    LiveRig const other(silent);
    ToolRun const worst =
        other.run("request", "-c im.Ask --keep-going --timeout 300", "{\"user\":5}\n{\"user\":\"b\"}\n");
    EXPECT_EQ(worst.code, 3);
    EXPECT_TRUE(has(worst.err, "tav: message 2: timed_out: ")) << worst.err;
}

TEST(ToolLive, RepliesAloneArePrintedWhereNothingElseIsWanted) {
    LiveRig const rig;
    // The answer has another code than the one that is waited for.
    std::string const more = "-c im.Ask --reply-code 3999 --timeout 300 '{\"user\":\"ann\"}'";
    EXPECT_EQ(rig.run("request", more).out, "{ \"__class__\":\"im.Answer\", \"user\":\"ann\" }\n");
    EXPECT_EQ(rig.run("request", "--replies " + more).out, "");
    EXPECT_EQ(rig.run("request", "--replies -c im.Ask '{\"user\":\"ann\"}'").out,
              "{ \"__class__\":\"im.Answer\", \"user\":\"ann\" }\n");
}

TEST(ToolLive, OptionsThatExcludeEachOtherAreToldAndNobodyIsCalled) {
    LiveRig const rig;
    struct Case {
        char const * more;
        char const * said;
    };
    for (Case const & one :
         {Case{"-c im.Ask ''", "JSON: there is no message"},
          Case{"-c im.Ask ' '", "JSON: there is no message"},
          Case{"-c im.Ask --file /dev/null '{\"user\":\"a\"}'", "JSON excludes --file"},
          Case{"-c im.Ask --reply im.Answer --reply-code 2002 '{}'", "--reply excludes --reply-code"},
          Case{"-c im.Ask --insecure '{}'", "--ca excludes --insecure"},
          Case{"-c im.Ask --reply im.Anser '{}'",
               "--reply: m.pml has no class im.Anser; did you mean im.Answer?"}}) {
        ToolRun const run = rig.run("request", one.more);
        EXPECT_EQ(run.code, 2) << one.more;
        EXPECT_TRUE(has(run.err, one.said)) << one.more << ": " << run.err;
    }
    for (Case const & one : {Case{"--count 0", "--count: Value 0 not in range 1 to 1000000000000\n"},
                             Case{"--for 0", "--for: Value 0 not in range 1 to 1000000000000\n"}}) {
        ToolRun const run = rig.run("listen", one.more);
        EXPECT_EQ(run.code, 2) << one.more;
        EXPECT_EQ(run.err, std::string("tav: ") + one.said + "Run with --help for more information.\n")
            << one.more;
    }
    EXPECT_EQ(rig.gateway->stats().connections, 0u);
}

TEST(ToolLive, WrongTemplateOrPlaceIsToldBeforeAnybodyIsCalled) {
    LiveRig const rig;
    rig.tool.file("wrong.pml", "Ask:object(");
    struct Case {
        std::string arguments;
        int code;
        char const * said;
    };
    for (Case const & one :
         {Case{"listen " + rig.place() + " -t wrong.pml", 1, "wrong.pml:1:"},
          Case{"listen " + rig.place(), 2, "--template is required"},
          Case{"listen " + rig.place() + " -t absent.pml", 2, "absent.pml: can't open"},
          Case{"listen localhost -t m.pml", 2, "\"localhost\" is not HOST:PORT"},
          Case{"listen localhost:nowhere -t m.pml", 2,
               "\"localhost:nowhere\": a port is a number from 1 to 65535, or the name of a service"},
          Case{rig.line("listen", "--ciphers NO-SUCH"), 2, "bad_policy"},
          Case{"listen " + rig.place() + " -t m.pml --ca absent.pem", 2, "absent.pem: can't open"},
          Case{rig.line("listen", "--cert absent.pem"), 2, "absent.pem: can't open"},
          Case{rig.line("listen", "--keylog absent/keys"), 2, "absent/keys: can't open"},
          Case{rig.line("listen", "--tls-min 1.1"), 2, "\"1.1\" is none of 1.2|1.3"},
          Case{rig.line("listen", "--reconnect often"), 2, "\"often\" is none of always|auto|never"}}) {
        ToolRun const run = rig.tool.run(one.arguments);
        EXPECT_EQ(run.code, one.code) << one.arguments << run.err;
        EXPECT_TRUE(has(run.err, one.said)) << one.arguments << ": " << run.err;
    }
    EXPECT_EQ(rig.gateway->stats().handshakes, 0u);
}

TEST(ToolLive, FailuresOfTheNetworkHaveTheirNames) {
    LiveRig const rig;
    tav::gateway::Options deaf;
    deaf.faults.no_handshake = true;
    LiveRig const other(deaf);
    Identity const stranger(CertificateSpec::ca("Stranger"));
    rig.tool.file("stranger.pem", stranger.pem());
    struct Case {
        std::string arguments;
        char const * name;
    };
    for (Case const & one : {Case{"localhost:1 --ca ca.pem", "localhost:1: refused: "},
                             Case{"name.invalid:1 --ca ca.pem", "name.invalid:1: host_not_found: "},
                             Case{rig.place() + " --ca stranger.pem", "certificate_refused: "},
                             Case{rig.place(), "certificate_refused: "},
                             Case{rig.place() + " --ca ca.pem --name elsewhere", "name_mismatch: "},
                             Case{rig.place() + " --ca ca.pem --tls-min 1.3", "handshake_failed: "},
                             Case{other.place() + " --ca ca.pem --timeout 300", "timed_out: "}}) {
        for (std::string const command : {"listen", "request", "send"}) {
            ToolRun const run = rig.tool.run(command + " -t m.pml " + one.arguments +
                                             (command == "listen" ? "" : " -c im.Ask '{\"user\":\"ann\"}'"));
            EXPECT_EQ(run.code, 3) << one.arguments << run.err;
            EXPECT_TRUE(has(run.err, one.name)) << one.arguments << ": " << run.err;
            EXPECT_EQ(run.out, "") << one.arguments;
        }
    }
}

TEST(ToolLive, PolicyIsThatOfTheOptions) {
    tav::gateway::Options asking;
    asking.ask_certificate = true;
    LiveRig const rig(asking);
    Identity const client(CertificateSpec().named("ann").forPurpose("clientAuth"), &rig.root);
    Identity const other(CertificateSpec::ca("Other"));
    rig.tool.file("client.pem", client.pem());
    rig.tool.file("client.key", client.keyPem());
    rig.tool.file("other.pem", other.pem());
    std::string const with = " --cert client.pem --key client.key -t m.pml -c im.Ask '{\"user\":\"ann\"}'";
    for (std::string const good :
         {"--ca ca.pem", "--ca ca.pem --name localhost", "--insecure", "--also-trust ca.pem",
          "--ca ca.pem --no-name-check --server-name elsewhere", "--ca other.pem --also-trust ca.pem",
          "--ca ca.pem --tls-max 1.2 --security-level 1 --no-server-name --alpn chat --trust off",
          "--ca ca.pem --keep-alive 60 --keep-alive-interval 10 --keep-alive-probes 3 --user-timeout "
          "60000"}) {
        ToolRun const run = rig.tool.run("request " + rig.place() + " " + good + with);
        EXPECT_EQ(run.code, 0) << good << run.err;
    }
    for (std::string const bad : {"--ca other.pem", "--ca ca.pem --name 127.0.0.2", "--trust alone"}) {
        EXPECT_EQ(rig.tool.run("request " + rig.place() + " " + bad + with).code, 3) << bad;
    }
    EXPECT_EQ(rig.run("request", "-c im.Ask '{\"user\":\"ann\"}'").code, 3) << "without a certificate";
}

TEST(ToolLive, KeyLogIsAppendedAndForItsOwnerAlone) {
    LiveRig const rig;
    for (int i = 0; i < 2; ++i) {
        EXPECT_EQ(rig.run("request", "--keylog keys -c im.Ask '{\"user\":\"ann\"}'").code, 0);
    }
    ToolRun const run = rig.tool.shell("stat -c %a keys; grep -c '^CLIENT_RANDOM ' keys");
    EXPECT_EQ(run.out, "600\n2\n");
}

TEST(ToolLive, SignalClosesTheConnectionAndListenHasEndedWell) {
    LiveRig const rig;
    for (std::string const signal : {"INT", "TERM", "HUP"}) {
        ToolRun const run =
            rig.tool.shell(waiting + std::string("$TAV ") + rig.line("listen", "2>err & pid=$!\n") +
                           "until_ connected err; kill -" + signal + " $pid; wait $pid; echo $?");
        EXPECT_EQ(run.out, "0\n") << signal << run.err;
        EXPECT_TRUE(rig.closed()) << signal;
    }
    // Also one that is about to connect again.
    ToolRun const run = rig.tool.shell(
        waiting + std::string("$TAV listen localhost:1 -t m.pml --reconnect always 2>err & pid=$!\n"
                              "until_ 'tried again' err; kill -INT $pid; wait $pid; echo $?; "
                              "grep -c refused: err | sed 's/[1-9].*/some/'"));
    EXPECT_EQ(run.out, "0\nsome\n") << run.err;
}

TEST(ToolLive, SignalEndsItAlsoWhileTheReaderOfTheOutputTakesNothing) {
    LiveRig const rig;
    // The reader holds its end of the pipe; its pages may be filled in part when it is full.
    auto running = rig.begin(
        "mkfifo out; $TAV " + rig.line("listen", "2>err >out & pid=$!\n") +
        "exec 3<out; until_ connected err\n"
        "python3 -c 'import array, fcntl, termios, time\n"
        "size = array.array(\"i\", [0])\n"
        "while size[0] < 20000: time.sleep(0.01); fcntl.ioctl(3, termios.FIONREAD, size)'\n"
        "kill -TERM $pid; for i in $(seq 300); do kill -0 $pid 2>/dev/null || break; sleep 0.01; done\n"
        "kill -0 $pid 2>/dev/null && kill -9 $pid; wait $pid; echo $?");
    ASSERT_TRUE(rig.opened());
    std::string const long_(200, 'x');
    for (int i = 0; i < 2000; ++i) {
        rig.push(0x3001, long_);
    }
    ToolRun const run = running.get();
    EXPECT_EQ(run.out, "0\n") << run.err;
    EXPECT_TRUE(rig.closed());
}

TEST(ToolLive, KeyLogThatCantBeWrittenIsToldAtTheEnd) {
    LiveRig const rig;
    ToolRun const run = rig.run("request", "--keylog /dev/full -c im.Ask '{\"user\":\"ann\"}'");
    EXPECT_EQ(run.code, 2);
    EXPECT_EQ(run.out, "{ \"__class__\":\"im.Answer\", \"user\":\"ann\" }\n");
    EXPECT_EQ(run.err, "tav: /dev/full: can't write: No space left on device\n");
}

TEST(ToolLive, StreamsThatAreClosedAreNoOtherFile) {
    LiveRig const rig;
    std::string const ask = rig.line("request", "-c im.Ask '{\"user\":\"ann\"}' ");
    ToolRun const run = rig.tool.shell("$TAV " + ask + ">&-");
    EXPECT_EQ(run.code, 2);
    EXPECT_EQ(run.err, "tav: <stdout>: can't write: Bad file descriptor\n");
    ToolRun const all = rig.tool.shell("$TAV " + rig.line("request", "-c im.Aks --keylog keys '{}' ") +
                                       "<&- >&- 2>&-; code=$?; cat keys; exit $code");
    EXPECT_EQ(all.code, 2);
    EXPECT_EQ(all.out, "");
    EXPECT_EQ(rig.tool
                  .shell("$TAV " +
                         rig.line("request", "-c im.Ask --reply-code 3999 --timeout 200 --keylog keys "
                                             "'{\"user\":\"ann\"}'") +
                         " <&- >&- 2>&-; grep -c tav: keys")
                  .out,
              "0\n");
}

TEST(ToolLive, SignalThatCutsAMessageShortIsInTheExitCode) {
    tav::gateway::Options silent;
    silent.faults.silence = true;
    LiveRig const rig(silent);
    auto running = rig.begin("$TAV " + rig.line("request", "-c im.Ask '{\"user\":\"ann\"}' & pid=$!\n") +
                             "until [ -e now ]; do sleep 0.01; done; kill -INT $pid; wait $pid; echo $?");
    EXPECT_TRUE(rig.gateway->wait([](Stats const & s) { return s.packets == 1; }));
    rig.tool.file("now", "");
    ToolRun const run = running.get();
    EXPECT_EQ(run.out, std::to_string(128 + SIGINT) + "\n") << run.err;
    EXPECT_TRUE(rig.closed());
    // One that waits for its input, too.
    ToolRun const other = rig.tool.shell(waiting + std::string("mkfifo in; $TAV ") +
                                         rig.line("send", "-c im.Ask --json <in >out & pid=$!\n") +
                                         "exec 3>in; until_ up out; kill -TERM $pid; wait $pid; echo $?");
    EXPECT_EQ(other.out, std::to_string(128 + SIGTERM) + "\n") << other.err;
    EXPECT_TRUE(rig.closed());
}

TEST(ToolLive, ConnectionThatEndsIsMadeAgain) {
    LiveRig const rig;
    auto running = rig.begin("$TAV " + rig.line("listen", "--count 1"));
    ASSERT_TRUE(rig.connected());
    rig.gateway->drop();
    ASSERT_TRUE(rig.opened(2));
    rig.push(0x3001, "ann");
    ToolRun const run = running.get();
    EXPECT_EQ(run.code, 0) << run.err;
    EXPECT_EQ(run.out, "{ \"__class__\":\"im.Say\", \"user\":\"ann\" }\n");
    EXPECT_TRUE(has(run.err, ": closed_by_peer: ") && has(run.err, "; it is tried again\n")) << run.err;
}

TEST(ToolLive, ConnectionIsNotMadeAgainWhereThatIsOff) {
    LiveRig const rig;
    auto running = rig.begin("$TAV " + rig.line("listen", "--reconnect never"));
    ASSERT_TRUE(rig.connected());
    rig.gateway->drop();
    ToolRun const run = running.get();
    EXPECT_EQ(run.code, 3) << run.err;
    EXPECT_TRUE(has(run.err, ": closed_by_peer: ")) << run.err;
    EXPECT_EQ(rig.gateway->stats().handshakes, 1u);
}

TEST(ToolLive, RequestWhoseConnectionEndedFailsUnlessItMayGoAgain) {
    tav::gateway::Options closing;
    closing.faults.close_after = 1;
    closing.faults.silence = true;
    closing.fault_connections = 1;
    {
        LiveRig const rig(closing);
        ToolRun const run = rig.run("request", "-c im.Ask '{\"user\":\"ann\"}'");
        EXPECT_EQ(run.code, 3);
        EXPECT_TRUE(has(run.err, "tav: message 1: disconnected: the connection ended first\n")) << run.err;
    }
    LiveRig const rig(closing);
    ToolRun const run = rig.run("request", "--repeat -c im.Ask '{\"user\":\"ann\"}'");
    EXPECT_EQ(run.code, 0) << run.err;
    EXPECT_EQ(run.out, "{ \"__class__\":\"im.Answer\", \"user\":\"ann\" }\n");
}

TEST(ToolLive, ReaderThatGoesAwayEndsItThoughNothingComes) {
    LiveRig const rig;
    auto running = rig.begin("$TAV " + rig.line("listen", "2>err | head -n 1; echo ${PIPESTATUS[0]}"));
    ASSERT_TRUE(rig.opened());
    rig.push(0x3001, "ann");
    ToolRun const run = running.get();
    EXPECT_EQ(run.out,
              "{ \"__class__\":\"im.Say\", \"user\":\"ann\" }\n" + std::to_string(128 + SIGPIPE) + "\n");
    EXPECT_TRUE(rig.closed());
}

TEST(ToolLive, FullDiskIsAnErrorAndTheConnectionIsClosed) {
    LiveRig const rig;
    ToolRun const run = rig.run("request", "-c im.Ask '{\"user\":\"ann\"}' >/dev/full");
    EXPECT_EQ(run.code, 2);
    EXPECT_EQ(run.err, "tav: <stdout>: can't write: No space left on device\n");
    EXPECT_TRUE(rig.closed());
}

TEST(ToolLive, TerminalIsAsItWasBehindControlC) {
    LiveRig const rig;
    rig.tool.file("on_terminal.py", "import os, pty, select, sys, termios, time\n"
                                    "parent, child = pty.openpty()\n"
                                    "before = termios.tcgetattr(child)\n"
                                    "pid = os.fork()\n"
                                    "if pid == 0:\n"
                                    "    os.setsid()\n"
                                    "    import fcntl\n"
                                    "    fcntl.ioctl(child, termios.TIOCSCTTY, 0)\n"
                                    "    for fd in (0, 1, 2):\n"
                                    "        os.dup2(child, fd)\n"
                                    "    os.execv(sys.argv[1], sys.argv[1:])\n"
                                    "seen = b''\n"
                                    "end = time.monotonic() + 10\n"
                                    "while b'connected' not in seen and time.monotonic() < end:\n"
                                    "    if select.select([parent], [], [], 0.1)[0]:\n"
                                    "        seen += os.read(parent, 4096)\n"
                                    "os.write(parent, b'\\x03')\n"
                                    "code = os.waitstatus_to_exitcode(os.waitpid(pid, 0)[1])\n"
                                    "print(code, termios.tcgetattr(child) == before, b'\\x1b[?' in seen)\n");
    ToolRun const run = rig.tool.shell("python3 on_terminal.py $TAV " + rig.line("listen", ""));
    EXPECT_EQ(run.out, "0 True False\n") << run.err;
    EXPECT_TRUE(rig.closed());
}

/// Puts one text in the place of another one.
std::string replaced(std::string text, std::string const & from, std::string const & to) {
    for (std::size_t at = text.find(from); at != std::string::npos; at = text.find(from, at + to.size())) {
        text.replace(at, from.size(), to);
    }
    return text;
}

TEST(ToolLive, PagesShowWhatIsPrinted) {
    LiveRig const rig;
    Identity const stranger(CertificateSpec::ca("Stranger"));
    rig.tool.file("stranger.pem", stranger.pem());
    std::string const docs = std::string(TAV_SOURCE_DIR) + "/docs/tool/";
    rig.tool.file("talk.pml", tav_test::contentOf(docs + "talk.pml"));
    std::string const place = "localhost:" + std::to_string(rig.gateway->port());
    std::string const said = "chat.example.com:7443";
    int commands = 0;
    for (std::string const page : {"send.md", "request.md", "listen.md", "day.md"}) {
        std::istringstream in(tav_test::contentOf(docs + page));
        std::string command;
        std::string shown;
        for (std::string line; std::getline(in, line);) {
            bool const begins = line.compare(0, 6, "$ tav ") == 0 || line.compare(0, 7, "$ echo ") == 0;
            if (!command.empty() && (begins || line == "```")) {
                auto running =
                    rig.begin("tav() { $TAV \"$@\"; }; " + replaced(command, said, place) + " 2>&1");
                if (has(command, "tav listen")) {
                    ASSERT_TRUE(rig.opened());
                    rig.gateway->push(0x3001, pushed, false);
                }
                EXPECT_EQ(replaced(running.get().out, place, said), shown) << page << ": " << command;
                EXPECT_TRUE(rig.closed());
                ++commands;
                command.clear();
            } else if (!command.empty()) {
                shown += line + "\n";
            }
            if (begins && has(line, said)) {
                command = line.substr(2);
                shown.clear();
            }
        }
    }
    EXPECT_EQ(commands, 12);
}

} // namespace
