#include "gateway/gateway_core.h"
#include "support/pki.h"
#include "support/tool.h"
#include "tools/histogram.h"
#include "tools/load_run.h"

#include <gtest/gtest.h>

#include <chrono>
#include <csignal>
#include <future>
#include <memory>
#include <regex>
#include <thread>

namespace {

using tav::gateway::Gateway;
using tav::gateway::Stats;
using tav::tool::Histogram;
using tav_test::CertificateSpec;
using tav_test::Identity;
using tav_test::ToolRig;
using tav_test::ToolRun;

/// A gateway, and the tool beside it.
struct LoadRig {
    explicit LoadRig(tav::gateway::Options const & options = tav::gateway::Options())
        : gateway(std::make_unique<Gateway>(
              options, tav::gateway::Certificates{root.pem(), server.pem(), server.keyPem()})) {
        gateway->start();
        tool.file("ca.pem", root.pem());
    }

    std::string line(std::string const & more) const {
        return "load 127.0.0.1:" + std::to_string(gateway->port()) + " --ca ca.pem " + more;
    }
    /// Runs it with --json, and answers what Python makes of the expression, in which the report is `r`.
    ToolRun report(std::string const & more, std::string const & expression) const {
        return tool.shell("$TAV " + line(more + " --json >report; code=$?\n") +
                          "python3 -c 'import json\nr = json.load(open(\"report\"))\nprint(" + expression +
                          ")' || cat report; exit $code");
    }

    Identity const root{CertificateSpec::ca("Test root")};
    Identity const server{CertificateSpec(), &root};
    ToolRig const tool{TAV_TOOL};
    std::unique_ptr<Gateway> gateway;
};

bool has(std::string const & text, std::string const & part) {
    return text.find(part) != std::string::npos;
}

TEST(ToolLoad, HistogramKnowsPercentilesToAThousandth) {
    auto const histogram = std::make_unique<Histogram>();
    EXPECT_EQ(histogram->percentile(99), 0u);
    for (unsigned i = 1; i <= 100000; ++i) {
        histogram->put(i * 10ull);
    }
    EXPECT_EQ(histogram->count(), 100000u);
    EXPECT_EQ(histogram->most(), 1000000u);
    EXPECT_NEAR(histogram->mean(), 500005, 1);
    for (double const percent : {0.1, 1.0, 50.0, 90.0, 99.0, 99.9, 99.99}) {
        double const exact = percent / 100 * 1000000;
        EXPECT_NEAR(static_cast<double>(histogram->percentile(percent)), exact, exact / 1000 + 10) << percent;
    }
    EXPECT_EQ(histogram->percentile(100), 1000000u);
    histogram->put(~0ull);
    EXPECT_EQ(histogram->most(), 1ull << 36);
}

TEST(ToolLoad, MessagesAreDueByTheRateAndItsRamp) {
    tav::tool::LoadPlan plan;
    plan.rate = 100;
    EXPECT_DOUBLE_EQ(tav::tool::dueTime(plan, 0), 0);
    EXPECT_DOUBLE_EQ(tav::tool::dueTime(plan, 250), 2.5);
    plan.ramp = 4;
    // In half of the ramp a quarter of what is due in all of it.
    EXPECT_DOUBLE_EQ(tav::tool::dueTime(plan, 50), 2);
    EXPECT_DOUBLE_EQ(tav::tool::dueTime(plan, 200), 4);
    EXPECT_DOUBLE_EQ(tav::tool::dueTime(plan, 300), 5);
}

TEST(ToolLoad, EachMessageIsSentAtItsTimeAndAnswered) {
    LoadRig const rig;
    rig.tool.file("m.pml", "Ask:object(__class__(im.Ask)__code__(2001)[1]user:string())\n");
    rig.tool.file("j", "{\"user\":\"ann\"}{\"user\":\"bob\"}");
    for (std::string const what : {"--size 100-2000", "-t m.pml -c im.Ask '{\"user\":\"ann\"}'",
                                   "-t m.pml -c im.Ask --file j --ramp 0.000001"}) {
        unsigned const before = rig.gateway->stats().packets;
        ToolRun const run = rig.report(
            what + " --clients 3 --rate 200 --duration 1",
            "r[\"begun\"], r[\"sends\"], r[\"latency_ms\"][\"count\"], r[\"connected\"], "
            "r[\"latency_ms\"][\"p50\"] <= r[\"latency_ms\"][\"p99.99\"] <= r[\"latency_ms\"][\"max\"], "
            "r[\"cpu_s\"] > 0, r[\"memory_mb\"] > 0");
        EXPECT_EQ(run.code, 0) << what << run.out << run.err;
        EXPECT_EQ(run.out, "200 {'ok': 200} 200 3 True True True\n") << what;
        EXPECT_EQ(rig.gateway->stats().packets - before, 200u) << what;
    }
    EXPECT_TRUE(rig.gateway->wait([](Stats const & s) { return s.open == 0; }));
}

TEST(ToolLoad, TwoHundredClientsConnectAndFinish) {
    LoadRig const rig;
    ToolRun const run = rig.report("--size 100 --clients 200 --rate 400 --duration 2 --timeout 60000",
                                   "r[\"connected\"], r[\"sends\"], r[\"connects\"], r[\"breaks\"]");
    EXPECT_EQ(run.code, 0) << run.err;
    EXPECT_EQ(run.out, "200 {'ok': 800} {} {}\n");
    EXPECT_EQ(rig.gateway->stats().handshakes, 200u);
    EXPECT_TRUE(rig.gateway->wait([](Stats const & s) { return s.open == 0; }));
}

TEST(ToolLoad, GatewayThatStoodStillShowsInAllThatWereDueMeanwhile) {
    tav::gateway::Options halting;
    unsigned packets = 0;
    halting.on_packet = [&packets](unsigned short, std::string const &) {
        if (++packets == 100) {
            std::this_thread::sleep_for(std::chrono::milliseconds(500));
        }
    };
    LoadRig const rig(halting);
    // A quarter of all were due while it stood still; of a closed loop one would have been.
    ToolRun const run =
        rig.report("--size 100 --rate 200 --duration 2",
                   "r[\"sends\"], r[\"latency_ms\"][\"p90\"] > 200, r[\"latency_ms\"][\"max\"] >= 450");
    EXPECT_EQ(run.out, "{'ok': 400} True True\n") << run.err;
}

TEST(ToolLoad, SilentOrLostGatewayIsToldByNameAndHoldsUpNothing) {
    tav::gateway::Options silent;
    silent.faults.silence = true;
    LoadRig const rig(silent);
    auto const begin = std::chrono::steady_clock::now();
    ToolRun const run = rig.report("--size 100 --rate 100 --duration 0.5 --timeout 1000",
                                   "r[\"sends\"], r[\"latency_ms\"][\"p50\"] >= 1000, "
                                   "r[\"service_ms\"][\"p50\"] >= 1000");
    EXPECT_EQ(run.code, 1);
    EXPECT_EQ(run.out, "{'timed_out': 50} True True\n") << run.err;
    EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(10));

    tav::gateway::Options closing;
    closing.faults.close_after = 5;
    LoadRig const other(closing);
    ToolRun const lost = other.report("--size 100 --rate 100 --duration 1 --timeout 1000",
                                      "sum(r[\"sends\"].values()), r[\"sends\"][\"ok\"] <= 5, "
                                      "r[\"sends\"][\"not_connected\"] > 0, r[\"breaks\"]");
    EXPECT_EQ(lost.code, 1);
    EXPECT_EQ(lost.out, "100 True True {'closed_by_peer': 1}\n") << lost.err;
}

TEST(ToolLoad, PushesAreSeenByTheOtherClients) {
    LoadRig const rig;
    ToolRun const run =
        rig.report("--push --size 100 --code 3001 --clients 4 --rate 100 --duration 1",
                   "r[\"sends\"], r[\"delivered\"], r[\"expected\"], r[\"latency_ms\"][\"count\"]");
    EXPECT_EQ(run.code, 0) << run.err;
    EXPECT_EQ(run.out, "{'ok': 100} 300 300 300\n");
    ToolRun const small =
        rig.tool.run(rig.line("--push --size 100 --code 3001 --clients 2 --rate 20 --duration 0.5"));
    EXPECT_TRUE(has(small.out, "delivered 10 of 10\n")) << small.out;
}

TEST(ToolLoad, PushesThatNobodyGetsAreNoSuccess) {
    LoadRig const rig;
    // The gateway passes on no message of this code.
    ToolRun const run = rig.tool.run(rig.line("--push --size 100 --clients 3 --rate 40 --duration 0.5"));
    EXPECT_EQ(run.code, 1);
    EXPECT_TRUE(has(run.out, "delivered 0 of 40\n")) << run.out;
    EXPECT_TRUE(has(run.err, "none of the messages was passed on to another client")) << run.err;
    ToolRun const alone = rig.tool.run(rig.line("--push --size 100 --clients 1"));
    EXPECT_EQ(alone.code, 2);
    EXPECT_TRUE(has(alone.err, "--push: one client has no others")) << alone.err;
}

TEST(ToolLoad, PushesThatDidNotGoOutAreNotCalledGood) {
    std::promise<void> free;
    std::shared_future<void> const freed = free.get_future().share();
    tav::gateway::Options stuck;
    stuck.on_packet = [freed](unsigned short, std::string const &) { freed.wait(); };
    LoadRig const rig(stuck);
    ToolRun const run = rig.report(
        "--push --code 3001 --size 1000000 --clients 2 --rate 20 --duration 1.5 "
        "--timeout 700",
        "r[\"sends\"][\"not_sent\"] + r[\"sends\"].get(\"ok\", 0) + r[\"sends\"].get(\"not_begun\", 0), "
        "r[\"sends\"][\"not_sent\"] > 5, r[\"expected\"] == r[\"sends\"].get(\"ok\", 0)");
    free.set_value();
    EXPECT_EQ(run.code, 1);
    EXPECT_EQ(run.out, "30 True True\n") << run.err;
}

TEST(ToolLoad, RateIsThatOfTheWholeDuration) {
    LoadRig const rig;
    ToolRun const run =
        rig.report("--size 100 --rate 10 --duration 0.3", "r[\"begun\"], 0.3 <= r[\"seconds\"] < 0.4");
    EXPECT_EQ(run.out, "3 True\n") << run.err;
}

TEST(ToolLoad, MessagesThatWereNotBegunAreInTheLatencies) {
    LoadRig const rig;
    // The program stands still from the middle to behind the end.
    auto running = std::async(std::launch::async, [&rig] {
        return rig.tool.shell(
            "$TAV " + rig.line("--size 100 --rate 100 --duration 1 --json >report & pid=$!\n") +
            "until [ -e now ]; do sleep 0.01; done; kill -STOP $pid; sleep 1.2; kill -CONT $pid; "
            "wait $pid; echo $?; python3 -c 'import json\nr = json.load(open(\"report\"))\n"
            "print(r[\"sends\"][\"not_begun\"] + r[\"begun\"], r[\"latency_ms\"][\"count\"], "
            "r[\"latency_ms\"][\"max\"] > 200)'");
    });
    EXPECT_TRUE(rig.gateway->wait([](Stats const & s) { return s.packets > 10; }));
    rig.tool.file("now", "");
    ToolRun const run = running.get();
    EXPECT_EQ(run.out, "1\n100 100 True\n") << run.err;
}

TEST(ToolLoad, ClientsThatWereNotBegunAreNotCalledTimedOut) {
    tav::gateway::Options deaf;
    deaf.faults.no_handshake = true;
    LoadRig const rig(deaf);
    auto const begin = std::chrono::steady_clock::now();
    ToolRun const run = rig.report("--size 100 --clients 100 --timeout 500",
                                   "sum(r[\"connects\"].values()), r[\"connects\"][\"not_begun\"] >= 30, "
                                   "r[\"connects\"][\"timed_out\"] >= 1, sorted(r[\"connects\"])");
    EXPECT_EQ(run.code, 3);
    EXPECT_EQ(run.out, "100 True True ['not_begun', 'timed_out']\n") << run.err;
    EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(5));

    unsigned const before = rig.gateway->stats().connections;
    auto running = std::async(std::launch::async, [&rig] {
        return rig.tool.shell("$TAV " + rig.line("--size 100 --clients 40 --json >report & pid=$!\n") +
                              "until [ -e now ]; do sleep 0.01; done; kill -INT $pid; wait $pid; echo $?; "
                              "python3 -c 'import json\nprint(json.load(open(\"report\"))[\"connects\"])'");
    });
    EXPECT_TRUE(rig.gateway->wait([before](Stats const & s) { return s.connections >= before + 32; }));
    rig.tool.file("now", "");
    ToolRun const cut = running.get();
    EXPECT_EQ(cut.out, "130\n{'cancelled': 32, 'not_begun': 8}\n") << cut.err;
}

TEST(ToolLoad, FewDescriptorsLeaveThoseClientsThatThereIsRoomFor) {
    LoadRig const rig;
    ToolRun const run =
        rig.tool.shell("ulimit -n 60; $TAV " + rig.line("--size 100 --clients 60 --rate 20 --duration 0.5"));
    EXPECT_EQ(run.code, 1);
    EXPECT_TRUE(has(run.out, "  no_resources ")) << run.out;
    EXPECT_TRUE(has(run.out, "begun     10 requests")) << run.out;
    EXPECT_TRUE(has(run.err, "for more clients: `ulimit -n`")) << run.err;
}

TEST(ToolLoad, NothingHasNoLatency) {
    ToolRig const rig(TAV_TOOL);
    ToolRun const run =
        rig.shell("$TAV load localhost:1 --size 1 --json --plot p.svg | python3 -c 'import json, sys\n"
                  "r = json.load(sys.stdin)\nprint(r[\"latency_ms\"][\"p50\"], r[\"latency_ms\"][\"max\"])'");
    EXPECT_EQ(run.out, "None None\n") << run.err;
    EXPECT_TRUE(has(tav_test::contentOf(rig.path("p.svg")), ">no message has a latency<"));
}

TEST(ToolLoad, PlotReplacesNothingThatIsSomebodysOwn) {
    LoadRig const rig;
    rig.tool.file("own.svg", "<svg/>\n");
    std::string const line = rig.line("--size 64 --rate 100 --duration 0.1 --plot own.svg");
    ToolRun const run = rig.tool.run(line);
    EXPECT_EQ(run.code, 2);
    EXPECT_EQ(run.err, "tav: own.svg: is there, and was not generated: --force replaces it\n");
    EXPECT_EQ(tav_test::contentOf(rig.tool.path("own.svg")), "<svg/>\n");
    EXPECT_EQ(rig.tool.run(line + " --force").code, 0);
    EXPECT_EQ(rig.tool.run(line).code, 0) << "its own is replaced";
}

TEST(ToolLoad, LongFileIsUsedAsFarAsIsTold) {
    LoadRig const rig;
    rig.tool.file("m.pml", "Ask:object(__class__(im.Ask)__code__(2001)[1]user:string())\n");
    ToolRun const run = rig.tool.shell("yes '{\"user\":\"ann\"}' | $TAV " +
                                       rig.line("-t m.pml -c im.Ask --rate 10 --duration 0.1"));
    EXPECT_EQ(run.code, 0);
    EXPECT_TRUE(has(
        run.err, "tav: <stdin>:10001:1: warning: the messages ahead of this one are sent, 10000 in turn\n"))
        << run.err;
}

TEST(ToolLoad, ReportIsForPeopleAndThePlotIsAPicture) {
    LoadRig const rig;
    ToolRun const run = rig.tool.run(rig.line("--size 64 --rate 100 --duration 0.5 --plot plot.svg"));
    EXPECT_EQ(run.code, 0) << run.err;
    EXPECT_EQ(run.err, "") << "progress is for terminals";
    for (std::string const part : {"connected 1 of 1 clients in ", "begun     50 requests in ", "  ok ",
                                   "latency in ms, from when a request was due, and from when it was made\n",
                                   "  p50 ", "  p99.99 ", "  max ", "this process: "}) {
        EXPECT_TRUE(has(run.out, part)) << part << "\n" << run.out;
    }
    ToolRun const plot = rig.tool.shell("python3 -c 'import xml.etree.ElementTree as t\n"
                                        "root = t.parse(\"plot.svg\").getroot()\n"
                                        "print(root.tag, len(root.findall(\"{*}polyline\")))'");
    EXPECT_EQ(plot.out, "{http://www.w3.org/2000/svg}svg 2\n") << plot.err;
}

TEST(ToolLoad, SignalEndsItWithWhatWasUntilThen) {
    LoadRig const rig;
    auto running = std::async(std::launch::async, [&rig] {
        return rig.tool.shell("$TAV " +
                              rig.line("--size 100 --rate 100 --duration 600 --json >report & pid=$!\n") +
                              "until [ -e now ]; do sleep 0.01; done; kill -INT $pid; wait $pid; echo $?; "
                              "grep -c '\"signal\":2}' report");
    });
    EXPECT_TRUE(rig.gateway->wait([](Stats const & s) { return s.packets > 10; }));
    rig.tool.file("now", "");
    ToolRun const run = running.get();
    EXPECT_EQ(run.out, std::to_string(128 + SIGINT) + "\n1\n") << run.err;
    EXPECT_TRUE(rig.gateway->wait([](Stats const & s) { return s.open == 0; }));
}

/// What differs from run to run, out of sight.
std::string masked(std::string const & text) {
    return std::regex_replace(std::regex_replace(text, std::regex("[0-9]+[.][0-9]+|[0-9]+ (%|MB)"), "N $1"),
                              std::regex(" +"), " ");
}

TEST(ToolLoad, PageShowsWhatIsPrinted) {
    std::string const page = tav_test::contentOf(std::string(TAV_SOURCE_DIR) + "/docs/tool/load.md");
    std::size_t const begin = page.find("$ tav load ");
    std::size_t const first = page.find('\n', begin) + 1;
    std::string const command = page.substr(begin, first - 1 - begin);
    LoadRig const rig;
    std::string const place = "chat.example.com:7443 --ca ca.pem";
    std::size_t const at = command.find(place);
    ASSERT_NE(at, std::string::npos);
    ToolRun const run = rig.tool.run(rig.line(command.substr(at + place.size())));
    EXPECT_EQ(masked(run.out), masked(page.substr(first, page.find("```", first) - first))) << run.err;
}

TEST(ToolLoad, BadUseAndNobodyThereAreTold) {
    ToolRig const rig(TAV_TOOL);
    struct Case {
        char const * arguments;
        int code;
        char const * said;
    };
    for (Case const & one :
         {Case{"", 2, "--template and a message, or --size, are needed"},
          Case{"--size 1 --rate nan", 2, "--rate: \"nan\" is no number from 0.001 to 1000000"},
          Case{"--size 1 --duration nan", 2, "--duration"}, Case{"--size 1 --ramp nan", 2, "--ramp"},
          Case{"--size 1 --template m.pml", 2, "--template excludes --size"},
          Case{"--size 1 --file j", 2, "--file excludes --size"},
          Case{"--size 1 '{}'", 2, "JSON excludes --size"}, Case{"-t m.pml ''", 2, "there is no message"},
          Case{"--size 1 --push --reply-code 1", 2, "--push excludes --reply-code"},
          Case{"--size 1 --insecure --ca a.pem", 2, "--ca excludes --insecure"},
          Case{"--size x", 2, "--size: \"x\""}, Case{"--size 9-1", 2, "ends before it begins"},
          Case{"--size 99999999", 2, "is no number of bytes"}, Case{"--size 1 --clients 0", 2, "--clients"},
          Case{"--size 1 --rate 0", 2, "--rate"}, Case{"--size 1 --code xyz", 2, "\"xyz\" is no code"},
          Case{"--size 1 --plot absent/p.svg", 2, "absent/p.svg: can't write"},
          Case{"--size 1 --clients 2 --duration 1", 3, "nobody could connect"}}) {
        ToolRun const run = rig.run(std::string("load localhost:1 ") + one.arguments);
        EXPECT_EQ(run.code, one.code) << one.arguments << run.err;
        EXPECT_TRUE(has(run.err, one.said)) << one.arguments << ": " << run.err;
    }
    EXPECT_TRUE(has(rig.run("load localhost:1 --size 1 --clients 2").out, "  refused                2\n"));
}

} // namespace
