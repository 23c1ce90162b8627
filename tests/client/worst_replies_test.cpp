#include "tav/vinta/vinta_tls_client.h"

#include "support/worst_gateway.h"

#include <gtest/gtest.h>

using namespace tav_test;
using tls::failure;

namespace {

/// What the gateway does behind two requests, "5" and "6": a list of packets, then an end if wanted.
struct Row {
    char const * what;
    std::function<std::vector<Pkt>(unsigned long long first, unsigned long long second)> packets;
    /// Of each request, by its own function; what has none by then is cancelled by the close.
    std::vector<std::string> ends;
    /// What goes to nobody's request, with its code and its size.
    std::vector<std::string> others;
    /// Lines at ERROR.
    std::vector<std::string> lines;
    bool hangs_up;
};

Pkt reply(unsigned long long sno, unsigned short code = 0x1235, std::string body = bodyOf(5)) {
    return mobile(code, sno, std::move(body));
}

std::string const size = std::to_string(bodyOf(5).size());
std::string const other = "4661:" + size;
std::string const no_nbr = "DecodeException: maybe not nbr: invalid high part of lengthOfSize 68";
std::string const first_end = "reply 5 of " + size;
std::string const second_end = "reply 6 of " + size;

using All = std::vector<std::string>;
using Packets = std::vector<Pkt>;
using Sno = unsigned long long;

std::vector<Row> ofNumbers() {
    return {
        {"one for each",
         [](Sno a, Sno b) {
             return Packets{reply(a), reply(b)};
         },
         {first_end, second_end},
         {},
         {},
         false},
        {"in the wrong order",
         [](Sno a, Sno b) {
             return Packets{reply(b), reply(a)};
         },
         {second_end, first_end},
         {},
         {},
         false},
        {"twice",
         [](Sno a, Sno) {
             return Packets{reply(a), reply(a)};
         },
         {first_end, "cancelled 6"},
         {other},
         {},
         false},
        {"a hundred times",
         [](Sno a, Sno) { return Packets(101, reply(a)); },
         {first_end, "cancelled 6"},
         All(100, other),
         {},
         false},
        {"with another's number",
         [](Sno, Sno b) { return Packets{reply(b)}; },
         {second_end, "cancelled 5"},
         {},
         {},
         false},
        {"with nobody's number",
         [](Sno a, Sno b) { return Packets{reply((a ^ b ^ 0x5555) & 0xffff)}; },
         {"cancelled 5", "cancelled 6"},
         {other},
         {},
         false},
    };
}

std::vector<Row> ofCodesAndBodies() {
    return {
        {"of unknown code",
         [](Sno a, Sno b) {
             return Packets{reply(a, 0x6fff), reply(b)};
         },
         {second_end, "cancelled 5"},
         {"28671:" + size},
         {},
         false},
        {"of the request's own code",
         [](Sno a, Sno) { return Packets{reply(a, 0x1234)}; },
         {"cancelled 5", "cancelled 6"},
         {"4660:" + size},
         {},
         false},
        {"whose body is no NBR",
         [](Sno a, Sno b) {
             return Packets{reply(a, 0x1235, "hello"), reply(b)};
         },
         {second_end, "cancelled 5"},
         {},
         {"<EXCEPTION> " + no_nbr, "<<< EXCEPTION >>> " + no_nbr},
         false},
        {"without a body",
         [](Sno a, Sno b) {
             return Packets{reply(a, 0x1235, ""), reply(b)};
         },
         {"reply 5 of 0", second_end},
         {},
         {},
         false},
    };
}

std::vector<Row> ofTheClose() {
    All const line = {"<n> Read header failed: stream truncated"};
    return {
        {"all with the close",
         [](Sno a, Sno b) {
             return Packets{reply(a), reply(b)};
         },
         {first_end, second_end},
         {},
         line,
         true},
        {"one with the close",
         [](Sno, Sno b) { return Packets{reply(b)}; },
         {second_end, "cancelled 5"},
         {},
         line,
         true},
        {"none with the close",
         [](Sno, Sno) { return Packets(); },
         {"cancelled 5", "cancelled 6"},
         {},
         line,
         true},
    };
}

/// Messages that no request waits for.
void listen(tls::connect_option & option, Events & others) {
    option.set_nbr_msg_callback(
        [&others](unsigned long long, unsigned short code, unsigned char const *, unsigned length,
                  tavMsgExt) { others.add(std::to_string(code) + ":" + std::to_string(length)); });
}

/// A connection with a client that has an open ear for all.
class Open {
public:
    Open() {
        tls::connect_option option = it.option();
        listen(option, others);
        it.start(option);
        it.server = it.gateway.accept();
        if (!it.server->shake() || resultOf(it.info) != tls::result_ok) {
            throw std::runtime_error("the connection did not open");
        }
    }

    Events others;
    WorstMeeting it;
};

void expectRow(Row const & row) {
    Open at;
    WorstMeeting & it = at.it;
    auto const first = it.ask(5);
    Sno const a = it.server->receive().sno;
    auto const second = it.ask(6);
    Sno const b = it.server->receive().sno;
    std::string bytes;
    for (Pkt const & each : row.packets(a, b)) {
        bytes += each.framed();
    }
    // Where the connection stays, a message of its own tells that all has been handled.
    bytes += row.hangs_up ? "" : reply(0x7777, 0x7f7f, "").framed();
    All expected = row.others;
    it.server->send(bytes);
    if (row.hangs_up) {
        EXPECT_TRUE(it.server->end());
        EXPECT_TRUE(it.told.wait(2));
    } else {
        expected.emplace_back("32639:0");
    }
    at.others.wait(expected.size());
    EXPECT_EQ(at.others.all(), expected);
    EXPECT_EQ(it.lines(), row.lines);
    EXPECT_EQ(it.told.all(),
              (row.hangs_up ? brokenRead("stream truncated", failure::closed_by_peer) : opened()).told);
    EXPECT_EQ(it.info->error(), failure::none);
    it.close();
    EXPECT_TRUE(it.ends.wait(2));
    EXPECT_EQ(it.ends.all(), row.ends);
    EXPECT_EQ(resultOf(first), it.ends.count("cancelled 5") == 0 ? tls::result_ok : tls::result_cancelled);
    EXPECT_EQ(resultOf(second), it.ends.count("cancelled 6") == 0 ? tls::result_ok : tls::result_cancelled);
    it.expectRecovery();
}

void expectRows(std::vector<Row> const & rows) {
    for (Row const & row : rows) {
        SCOPED_TRACE(row.what);
        expectRow(row);
    }
}

} // namespace

TEST(WorstReplies, EndTheRequestOfTheirNumberOnce) {
    expectRows(ofNumbers());
}

TEST(WorstReplies, OfAnotherCodeOrWithoutABodyAreNoneOrEmpty) {
    expectRows(ofCodesAndBodies());
}

TEST(WorstReplies, ThatComeWithTheCloseCount) {
    expectRows(ofTheClose());
}

TEST(WorstReplies, AheadOfTheRequestIsNoReplyToIt) {
    Open at;
    WorstMeeting & it = at.it;
    Events & others = at.others;
    it.server->send(reply(41).framed());
    ASSERT_TRUE(others.wait(1));
    EXPECT_EQ(others.all(), std::vector<std::string>{other});
    tls::send_option wanted(tls::timedout_option(60000), tls::error_function(), tls::nbr_function(), 0x1235,
                            false, 4);
    wanted.sno = 41;
    auto const asked = it.client.send_msg(Ask(5), wanted);
    ASSERT_EQ(it.server->receive().sno, 41u);
    EXPECT_EQ(asked->result(), tls::result_unknown);
    it.server->send(reply(41).framed());
    EXPECT_EQ(resultOf(asked), tls::result_ok);
    EXPECT_EQ(others.count(), 1u);
    EXPECT_TRUE(it.isStory(opened()));
    it.expectRecovery();
}

TEST(WorstReplies, BehindTheLimitIsNoReplyEither) {
    Open at;
    WorstMeeting & it = at.it;
    Events & others = at.others;
    auto const late = it.ask(5, 50);
    unsigned long long const sno = it.server->receive().sno;
    EXPECT_EQ(resultOf(late), tls::result_timedout);
    EXPECT_EQ(late->error(), failure::timed_out);
    it.server->send(reply(sno).framed());
    ASSERT_TRUE(others.wait(1));
    EXPECT_EQ(others.all(), std::vector<std::string>{other});
    EXPECT_EQ(it.ends.all(), std::vector<std::string>{"timedout 5"});
    EXPECT_TRUE(it.isStory(opened()));
    it.expectRecovery();
}
