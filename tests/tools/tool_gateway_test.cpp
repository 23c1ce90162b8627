#include "support/pki.h"
#include "support/tool.h"

#include <gtest/gtest.h>

#include <sys/stat.h>
#include <unistd.h>

#include <csignal>
#include <string>

namespace {

using tav_test::CertificateSpec;
using tav_test::contentOf;
using tav_test::Identity;
using tav_test::ToolRig;
using tav_test::ToolRun;

char const * const model =
    "Say:object(__class__(im.Say)__code__(2001)[1]text:string()[2]n:int64?()[3]x:double?()"
    "[4]on:bool?()[5]f:float?())\n"
    "Said:object(__class__(im.Said)__code__(2005)[1]text:string())\n"
    "Bare:object(__class__(im.Bare)[1]text:string())\n";

/// What a line of shell has besides: `serve OPTIONS` starts a gateway, whose place is then $P, `stop` ends it
/// and prints its exit code, `ask JSON` sends a request, and `raw TEXT [ASK]` prints in hexadecimal what
/// comes for a packet, and how that ends.
char const * const prelude = R"sh(
serve() {
    rm -f port
    $TAV gateway --port-file port --chain chain.pem --key key.pem -t m.pml "$@" >gw.out 2>gw.err &
    gw=$!
    for i in $(seq 1000); do [ -s port ] && break; kill -0 $gw 2>/dev/null || return 0; sleep 0.01; done
    P=127.0.0.1:$(cat port)
}
stop() { kill -TERM $gw; wait $gw; echo "ended with $?"; }
ask() { $TAV request $P --ca ca.pem -t m.pml --reply-code 2005 -c im.Say "$@" 2>&1; }
raw() { python3 raw.py ${P#*:} "$@"; }
)sh";

/// A client for each TEXT[:AFFIRM], one after the other: it sends a packet and a heartbeat, and shows what
/// comes ahead of the heartbeat's answer.
char const * const rawClient = R"py(
import os, select, socket, ssl, sys
context = ssl.create_default_context(cafile="ca.pem")
heartbeat = bytes(4)

def frame_of(text, affirm):
    body = b"\xff\x01\x28\x01\xf1" + bytes([len(text)]) + text + b"\xff\x01\x29"
    packet = b"\x00\x04" + bytes([affirm]) + b"\x20\x01\x00\x00\x07" + bytes(8) + body
    return len(packet).to_bytes(4, "big") + packet

def talk(s, text, affirm):
    broken = bytes([0, 0, 0, 9, 0, 0, 0, 0, 0xA5, 0xA5, 0xA5, 0xA5, 0xA5])
    s.sendall((broken if text == b"broken" else frame_of(text, affirm)) + heartbeat)
    came = b""
    # TLS takes a reset for an end: the socket below it tells them apart.
    below = socket.socket(fileno=os.dup(s.fileno()))
    try:
        while not came.endswith(heartbeat):
            if not s.pending():
                if not select.select([below], [], [], 0.4 if text == b"silence" else 10)[0]:
                    return came, "silent"
                below.recv(1, socket.MSG_PEEK)
            part = s.recv(65536)
            if not part:
                return came, "closed"
            came += part
    except ConnectionResetError:
        return came, "reset"
    return came[:-4], "open"

for each in sys.argv[2:]:
    text, _, affirm = each.partition(":")
    place = ("127.0.0.1", int(sys.argv[1]))
    with context.wrap_socket(socket.create_connection(place, 10), server_hostname="localhost") as s:
        came, end = talk(s, text.encode(), int(affirm or "0", 16))
        print(came.hex(), end)
)py";

struct GatewayRig {
    GatewayRig() {
        tool.file("ca.pem", root.pem());
        tool.file("chain.pem", server.pem());
        tool.file("key.pem", server.keyPem());
        tool.file("m.pml", model);
        tool.file("raw.py", rawClient);
    }
    ToolRun run(std::string const & line) const { return tool.shell(prelude + line); }
    /// Serves by these rules while the lines run.
    ToolRun by(std::string const & rules, std::string const & lines) const {
        tool.file("r.json", rules);
        return run("serve --rules r.json --quiet --record r.bin\n" + lines + "\nstop");
    }

    Identity const root{CertificateSpec::ca("Test root")};
    Identity const server{CertificateSpec(), &root};
    ToolRig const tool{TAV_TOOL};
};

std::string repeated(std::string const & text, int times) {
    std::string all;
    for (int i = 0; i < times; ++i) {
        all += text;
    }
    return all;
}

bool has(std::string const & text, std::string const & part) {
    return text.find(part) != std::string::npos;
}

/// A frame of version 4 with this affirm, code and sequence, and `session` as the gateway counts clients.
std::string frameOf(std::string const & affirm, std::string const & code, std::string const & session,
                    std::string const & body) {
    std::size_t const size = 16 + body.size() / 2;
    std::string const digits = "0123456789abcdef";
    return std::string("000000") + digits[size >> 4] + digits[size & 15u] + "0004" + affirm + code +
           "000007" + std::string(15, '0') + session + body;
}

TEST(ToolGateway, EndsWithTheReaderOfItsOutputAlsoWhereThatIsASocket) {
    GatewayRig const rig;
    rig.tool.file("read.py", "import socket, subprocess, sys\n"
                             "ours, its = socket.socketpair()\n"
                             "gateway = subprocess.Popen(sys.argv[1:], stdout=its)\n"
                             "its.close()\n"
                             "ours.recv(1000)\n"
                             "ours.close()\n"
                             "print(gateway.wait(10))\n");
    ToolRun const run =
        rig.run("python3 read.py $TAV gateway --port 0 --chain chain.pem --key key.pem -t m.pml");
    EXPECT_EQ(run.out, std::to_string(-SIGPIPE) + "\n") << run.err;
}

TEST(ToolGateway, HelpSaysWhatIsDoneWithAPacketThatNoRuleIsFor) {
    std::string const help = ToolRig(TAV_TOOL).run("gateway --help").out;
    for (char const * const part :
         {"0x3000", "0x7001", "0x7005", "--echo", "receipt", "heartbeat", "TLS 1.2"}) {
        EXPECT_TRUE(has(help, part)) << part << "\n" << help;
    }
}

TEST(ToolGateway, RulesMatchByCodeClassAndFieldAndTheFirstThatFitsCounts) {
    GatewayRig const rig;
    ToolRun const run = rig.by(
        R"([
        {"class":"im.Say","fields":{"text":"x\u0061"},"do":[{"answer":{"__class__":"im.Said","text":"text"}}]},
        {"class":"im.Say","fields":{"n":"-9007199254740993"},"do":[{"answer":{"__class__":"im.Said","text":"n"}}]},
        {"code":"0x2001","fields":{"x":2.50},"do":[{"answer":{"__class__":"im.Said","text":"x"}}]},
        {"class":"im.Say","fields":{"on":true,"n":true},"do":[{"answer":{"__class__":"im.Said","text":"on"}}]},
        {"code":"2001","do":[{"answer":{"__class__":"im.Said","text":"code"}}]},
        {"do":["close"]}])",
        R"(printf '%s\n' '{"text":"xa"}' '{"text":"b","n":"-9007199254740993"}' '{"text":"b","x":2.5}' \
        '{"text":"b","on":true,"n":"1"}' '{"text":"b","on":true,"n":"2"}' '{"text":"X"}' | ask --file -)");
    std::string wanted;
    for (char const * const text : {"text", "n", "x", "on", "code", "code"}) {
        wanted += std::string("{ \"__class__\":\"im.Said\", \"text\":\"") + text + "\" }\n";
    }
    EXPECT_EQ(run.out, wanted + "ended with 0\n") << run.err << contentOf(rig.tool.path("gw.err"));
}

TEST(ToolGateway, RulesCompareFloatingNumbersWithAllTheirDigits) {
    GatewayRig const rig;
    char const * const values[] = {"\"x\":0.1234567", "\"x\":1234567", "\"f\":3.1415927", "\"f\":16777216",
                                   "\"x\":0.12345678901234567"};
    std::string rules = R"([{"class":"im.Say","fields":{"x":1234570},"do":[
        {"answer":{"__class__":"im.Said","text":"six digits"}}]})";
    std::string lines = "printf '%s\\n'";
    std::string wanted;
    for (char const * const value : values) {
        std::string const number = std::string(value).substr(4);
        rules += std::string(R"(,{"class":"im.Say","fields":{)") + value +
                 R"(},"do":[{"answer":{"__class__":"im.Said","text":")" + number + "\"}}]}";
        lines += std::string(" '{\"text\":\"a\",") + value + "}'";
        wanted += number + "\n";
    }
    rules += R"(,{"do":[{"answer":{"__class__":"im.Said","text":"none"}}]}])";
    ToolRun const run = rig.by(rules, lines + R"( '{"text":"a","x":0.1234568}' | ask --file - )"
                                              R"(| sed 's/.*text":"//; s/".*//')");
    EXPECT_EQ(run.out, wanted + "none\nended with 0\n") << run.err;
}

TEST(ToolGateway, TextsAreComparedByTheirBytesAlsoWithWordsThatAreNumbers) {
    GatewayRig const rig;
    ToolRun const run = rig.by(
        R"([{"class":"im.Say","fields":{"text":inf},"do":[{"answer":{"__class__":"im.Said","text":"inf"}}]},
            {"do":[{"answer":{"__class__":"im.Said","text":"none"}}]}])",
        R"(printf '{"text":"%s"}\n' inf INF infinity | ask --file - | sed 's/.*text":"//; s/".*//' | paste -sd' ')");
    EXPECT_EQ(run.out, "inf none none\nended with 0\n") << run.err;
}

TEST(ToolGateway, MessageIsReadOnceForAllRules) {
    GatewayRig const rig;
    std::string rules = "[";
    for (int i = 0; i < 3000; ++i) {
        rules += R"({"class":"im.Say","fields":{"n":)" + std::to_string(i) + R"(},"do":["drop"]},)";
    }
    // To read a megabyte for each of them takes longer than a request waits.
    rig.tool.file("large.json", "{\"n\":-1,\"text\":\"" + std::string(1 << 20, 'x') + "\"}");
    ToolRun const run = rig.by(rules + R"({"do":[{"answer":{"__class__":"im.Said","text":"last"}}]}])",
                               "ask --timeout 10000 --file large.json");
    EXPECT_EQ(run.out, "{ \"__class__\":\"im.Said\", \"text\":\"last\" }\nended with 0\n") << run.err;
}

TEST(ToolGateway, RuleThatNoPacketGetsToIsToldAndTheGatewayStarts) {
    GatewayRig const rig;
    ToolRun const run = rig.by(
        "[{\"code\":\"2001\",\"times\":1,\"do\":[\"drop\"]},\n{\"class\":\"im.Say\",\"do\":[\"usual\"]},\n"
        "{\"class\":\"im.Said\",\"do\":[\"drop\"]},{\"code\":\"2001\",\"fields\":{\"n\":1},\"do\":[\"drop\"]}"
        ",\n"
        "{\"do\":[\"usual\"]}]",
        "grep -c warning gw.err; grep '3:35: warning: no packet gets to this rule: the one in line 2 ' "
        "gw.err");
    EXPECT_EQ(run.out, "1\ntav: r.json:3:35: warning: no packet gets to this rule: the one in line 2 takes "
                       "them all\nended with 0\n")
        << run.err;
}

TEST(ToolGateway, CloseLetsAnswersGoThatAreDelayed) {
    GatewayRig const rig;
    rig.tool.file("r.json", R"([{"do":[{"answer":{"__class__":"im.Said","text":"h"}},"close"]}])");
    ToolRun const run = rig.run("serve --rules r.json --quiet --delay 100\nraw h\nstop");
    EXPECT_EQ(run.out, frameOf("00", "2005", "1", "ff012801f10168ff0129") + " closed\nended with 0\n")
        << run.err;
}

TEST(ToolGateway, PacketThatIsNoneIsToldInALine) {
    GatewayRig const rig;
    ToolRun const run = rig.run("serve\nraw broken\nstop\ngrep -A1 'bad packet' gw.out");
    EXPECT_TRUE(has(run.out, "gateway: #1 bad packet: ")) << run.out;
    EXPECT_FALSE(has(run.out, "throw at")) << run.out;
}

TEST(ToolGateway, PushesToSilentConnectionsAreNotCounted) {
    GatewayRig const rig;
    ToolRun const run = rig.by(
        R"([{"do":[{"push":{"__class__":"im.Said","text":"a"}},"silence",{"push":{"__class__":"im.Said","text":"b"}}]}])",
        "raw silence >/dev/null; stop; grep -o 'pushes [0-9]*' gw.out");
    EXPECT_EQ(run.out.substr(0, 22), "ended with 0\npushes 1\n") << run.out << run.err;
}

TEST(ToolGateway, ReplyWithControlsIsPrintedWithEscapes) {
    GatewayRig const rig;
    std::string const answer = R"({"__class__":"im.Said","text":"a\u0000b\u0001c\u007fd\u0085e\u00a1"})";
    ToolRun const run = rig.by("[{\"do\":[{\"answer\":" + answer + "}]}]", "ask '{\"text\":\"a\"}'");
    EXPECT_EQ(run.out,
              "{ \"__class__\":\"im.Said\", \"text\":\"a\\u0000b\\u0001c\\u007fd\\u0085e\xC2\xA1\" }\n"
              "ended with 0\n")
        << run.err;
}

TEST(ToolGateway, RuleIsForTheTimesThatItSays) {
    GatewayRig const rig;
    ToolRun const run = rig.by(
        R"([{"code":"2001","skip":1,"times":2,"do":[{"answer":{"__class__":"im.Said","text":"rule"}}]},
            {"do":[{"answer":{"__class__":"im.Said","text":"rest"}}]}])",
        R"(printf '{"text":"a"}\n%.0s' 1 2 3 4 | ask --file - | sed 's/.*text":"//; s/".*//' | paste -sd' ')");
    EXPECT_EQ(run.out, "rest rule rule rest\nended with 0\n") << run.err;
}

TEST(ToolGateway, DelayHoldsUpItsOwnStepsAlone) {
    GatewayRig const rig;
    ToolRun const run = rig.by(
        R"([{"class":"im.Say","fields":{"text":"slow"},
             "do":[{"delay":250},{"answer":{"__class__":"im.Said","text":"slow"}}]},
            {"do":[{"answer":{"__class__":"im.Said","text":"fast"}}]}])",
        R"(printf '{"text":"slow"}\n{"text":"fast"}\n' | ask --at-once 2 --file - | grep -o 'slow\|fast' | paste -sd' ')");
    EXPECT_EQ(run.out, "fast slow\nended with 0\n") << run.err;
}

TEST(ToolGateway, EachStepDoesWhatItIsCalledFor) {
    GatewayRig const rig;
    std::string const said = "ff012801f10168ff0129";
    struct Case {
        char const * step;
        std::string came;
    };
    Case const cases[] = {
        {R"({"answer":{"__class__":"im.Said","text":"h"}})", frameOf("00", "2005", "1", said) + " open"},
        {R"("usual")", frameOf("00", "2002", "2", said) + " open"},
        {R"("drop")", " open"},
        {R"("close")", " closed"},
        {R"("reset")", " reset"},
        {R"("cut")", "00000064" + repeated("78", 46) + " closed"},
        {R"("oversize")", "01000000 open"},
        {R"("silence",{"answer":{"__class__":"im.Said","text":"h"}})", " silent"},
        {R"({"answer":{"__class__":"im.Said","text":"h"}},"close")",
         frameOf("00", "2005", "9", said) + " closed"},
    };
    std::string rules;
    std::string line = "raw";
    std::string wanted;
    for (Case const & one : cases) {
        // Each packet is taken by the next rule.
        rules += (rules.empty() ? "[" : ",") + std::string(R"({"times":1,"do":[)") + one.step + "]}";
        line += one.came == " silent" ? " silence" : " h";
        wanted += one.came + "\n";
    }
    ToolRun const run = rig.by(rules + "]", line);
    EXPECT_EQ(run.out, wanted + "ended with 0\n") << run.err;
}

TEST(ToolGateway, GarbageIsAFrameThatIsNoPacket) {
    GatewayRig const rig;
    ToolRun const run = rig.by(R"([{"do":["garbage"]}])", "raw h");
    EXPECT_EQ(run.out, "00000040" + repeated("a5", 64) + " open\nended with 0\n") << run.err;
}

TEST(ToolGateway, PacketThatAsksForAReceiptGetsOneUnlessItIsDropped) {
    GatewayRig const rig;
    std::string const said = "ff012801f10168ff0129";
    ToolRun const run = rig.by(R"([{"times":1,"do":[{"answer":{"__class__":"im.Said","text":"h"}}]},
                                   {"times":1,"do":["drop"]},{"times":1,"do":["usual"]}])",
                               "raw h:20 h:20 h:20");
    EXPECT_EQ(run.out, frameOf("30", "2001", "1", "") + frameOf("00", "2005", "1", said) + " open\n open\n" +
                           frameOf("30", "2001", "3", "") + frameOf("00", "2002", "3", said) +
                           " open\nended with 0\n")
        << run.err;
}

TEST(ToolGateway, PushGoesToTheSenderAndPushAllToEveryone) {
    GatewayRig const rig;
    ToolRun const run = rig.by(
        R"([{"times":1,"do":["usual",{"push":{"__class__":"im.Said","text":"own"}},
                              {"push_all":{"__class__":"im.Said","text":"all"}}]}])",
        R"($TAV listen $P --ca ca.pem -t m.pml --count 1 >listened 2>said &
        for i in $(seq 1000); do grep -q connected said && break; sleep 0.01; done
        $TAV send $P --ca ca.pem -t m.pml -c im.Say --linger 2000 '{"text":"a"}' >sent & sender=$!
        wait %2; for i in $(seq 1000); do grep -q all sent && break; sleep 0.01; done; kill $sender
        wait $sender; echo listened; cat listened; echo sent; grep -c own sent; grep -c all sent)");
    EXPECT_EQ(run.out,
              "listened\n{ \"__class__\":\"im.Said\", \"text\":\"all\" }\nsent\n1\n1\nended with 0\n")
        << run.err;
}

TEST(ToolGateway, RecordHasAllFramesBothWaysAsTheyWere) {
    GatewayRig const rig;
    ToolRun const run = rig.run(R"sh(
        for way in both in out; do
            serve --record $way.bin --recorded $way
            raw $way >/dev/null
            stop
            $TAV convert -t m.pml --from frames --to frames --out hex $way.bin
        done
        serve --record in.bin --recorded in
        raw again >/dev/null
        stop
        $TAV convert -t m.pml --from frames --to json in.bin
        $TAV dump -t m.pml out.bin | grep -c 'code: 0x2002')sh");
    std::string const both = "62 6F 74 68 FF 01 29\n";
    std::string const heartbeat = "00 00 00 00\n";
    std::string const head = " 00 04 00 20 0";
    std::string const came = "1 00 00 07 00 00 00 00 00 00 00 00 FF 01 28 01 F1 0";
    std::string const went = "2 00 00 07 00 00 00 00 00 00 00 01 FF 01 28 01 F1 0";
    EXPECT_EQ(run.out, "ended with 0\n00 00 00 1D" + head + came + "4 " + both + "00 00 00 1D" + head + went +
                           "4 " + both + heartbeat + heartbeat + "ended with 0\n00 00 00 1B" + head + came +
                           "2 69 6E FF 01 29\n" + heartbeat + "ended with 0\n00 00 00 1C" + head + went +
                           "3 6F 75 74 FF 01 29\n" + heartbeat +
                           "ended with 0\n{ \"__class__\":\"im.Say\", \"text\":\"in\" }\n"
                           "{ \"__class__\":\"im.Say\", \"text\":\"again\" }\n1\n")
        << run.err;
    struct stat state = {};
    ASSERT_EQ(::stat(rig.tool.path("in.bin").c_str(), &state), 0);
    EXPECT_EQ(state.st_mode & 0777u, 0600u);
}

TEST(ToolGateway, RecordEndsWithAWholeFrameAlsoWhereTheDiskIsFull) {
    GatewayRig const rig;
    rig.tool.file("long.json", "{\"text\":\"" + std::string(700, 'x') + "\"}");
    rig.tool.file("r.json", R"([{"do":[{"answer":{"__class__":"im.Said","text":"h"}}]}])");
    ToolRun const run = rig.run(R"sh(
        # The third message does not fit any more, which is a failure and no signal.
        trap '' XFSZ
        ulimit -Sf 2
        serve --rules r.json --record full.bin --recorded in --quiet
        for i in 1 2 3; do ask --timeout 3000 --file long.json >/dev/null; done
        wait $gw; echo "$?"; cat gw.err
        $TAV convert -t m.pml --from frames --to json full.bin | grep -c xxx; echo "${PIPESTATUS[0]}")sh");
    EXPECT_EQ(run.out, "2\ntav: full.bin: can't be written: File too large\n2\n0\n") << run.err;
}

TEST(ToolGateway, FileWithoutWholeFramesIsNotRecordedInto) {
    GatewayRig const rig;
    std::string const frames("\0\0\0\0\0\0\0\2ab", 10);
    std::string const with = "gateway --chain chain.pem --key key.pem --until-eof --record r.bin";
    rig.tool.file("r.bin", frames);
    EXPECT_EQ(rig.tool.run(with).code, 0);
    for (std::string const & tail :
         {std::string("\0\0\0\7half", 8), std::string("\0\0", 2), std::string("text")}) {
        rig.tool.file("r.bin", frames + tail);
        ToolRun const run = rig.tool.run(with);
        EXPECT_EQ(run.code, 2);
        EXPECT_TRUE(has(run.err, "tav: r.bin: byte 10: no whole frame is there")) << run.err;
        EXPECT_EQ(contentOf(rig.tool.path("r.bin")), frames + tail);
    }
}

/// What a file of rules says, and what is told of it.
struct BrokenRules {
    char const * rules;
    char const * told;
};
BrokenRules const brokenRules[] = {
    {"", "1:1: error: rules are a list"},
    {"{}", "1:1: error: rules are a list"},
    {"hello", "1:1: error: rules are a list"},
    {"\n // rules\n[]", "2:2: error: rules are a list"},
    {"\xEF\xBB\xBF[]", "1:1: error: the file begins with a byte order mark"},
    {"[1]", "1:2: error: a rule is an object"},
    {"[{\"do\":[\"drop\"]} /* x */]", "1:18: error: JSON has no comments"},
    {"[\n {\"do\":[\"drop\"]},\n {\"cod\":\"2001\",\"do\":[\"drop\"]}]",
     "3:3: error: a rule has no member cod: "},
    {"[{\"do\":[\"drop\"],\"do\":[]}]", "1:17: error: do is given twice"},
    {"[{\"code\":\"2001\"}]", "1:2: error: a rule has a list of steps"},
    {"[{\"do\":[]}]", "1:8: error: a rule has a list of steps"},
    {"[{\"do\":[\"drip\"]}]", "1:9: error: a step is one of answer, close, "},
    {"[{\"do\":[{\"wait\":1}]}]", "1:10: error: a step is one of answer, close, "},
    {"[{\"do\":[{\"delay\":1,\"push\":{}}]}]", "1:9: error: a step has one member"},
    {"[{\"do\":[{\"delay\":-1}]}]", "1:18: error: delay is a number from 0 to 3600000"},
    {"[{\"code\":8193,\"do\":[\"drop\"]}]", "1:10: error: code is a text of up to four hexadecimal digits"},
    {"[{\"code\":\"20011\",\"do\":[\"drop\"]}]", "1:10: error: code is a text of up to four"},
    {"[{\"code\":\"1\",\"class\":\"im.Say\",\"do\":[\"drop\"]}]",
     "1:14: error: a rule has a code or a class"},
    {"[{\"class\":\"im.Sya\",\"do\":[\"drop\"]}]",
     "1:11: error: m.pml has no class im.Sya; did you mean im.Say?"},
    {"[{\"class\":\"im.Bare\",\"do\":[\"drop\"]}]", "1:11: error: the class im.Bare has no code"},
    {"[{\"fields\":{\"n\":1},\"do\":[\"drop\"]}]", "1:3: error: fields need a class"},
    {"[{\"class\":\"im.Say\",\"fields\":{\"m\":1},\"do\":[\"drop\"]}]",
     "1:30: error: the class im.Say has no field m"},
    {"[{\"class\":\"im.Say\",\"fields\":{\"txet\":1},\"do\":[\"drop\"]}]",
     "1:30: error: the class im.Say has no field txet; did you mean text?"},
    {"[{\"class\":\"im.Say\",\"fields\":{\"n\":1,\"n\":2},\"do\":[\"drop\"]}]",
     "1:36: error: n is given twice"},
    {"[{\"class\":\"im.Say\",\"fields\":{\"n\":\"x\"},\"do\":[\"drop\"]}]", "1:34: error: field n "},
    {"[{\"class\":\"im.Say\",\"fields\":{\"n\":[1]},\"do\":[\"drop\"]}]",
     "1:34: error: a field is compared with a text, a number, true or false"},
    {"[{\"do\":[{\"answer\":{\"__class__\":\"im.Said\"}}]}]",
     "1:19: error: missing necessary field name(s) { text } in class im.Said"},
    {"[{\"do\":[{\"answer\":{\"__class__\":\"im.Said\",\"text\":\"a\",\"b\":1}}]}]",
     "1:53: error: not found field name [b] in class im.Said\n"},
    {"[{\"do\":[{\"answer\":{\"__class__\":\"im.Said\",\"text\":\"a\",\"text\":\"b\"}}]}]",
     "1:42: error: the member text is given again, and the last one stands\n"},
    {"[{\"do\":[{\"push\":{\"__class__\":\"im.Bare\",\"text\":\"a\"}}]}]",
     "1:17: error: the class im.Bare has no code to be sent by"},
    {"[{\"skip\":1e9,\"do\":[\"drop\"]}]", "1:10: error: skip is a number from 0 to "},
    {"[{\"do\":[\"drop\"]}", "1:1: error: what begins here does not end"},
    {"[{\"do\":[\"drop\"]}]\n]", "2:1: error: what follows is not read"},
};

TEST(ToolGateway, BrokenRulesAreToldWithLineColumnAndReasonAndNothingStarts) {
    GatewayRig const rig;
    std::string lines;
    for (std::size_t i = 0; i < std::size(brokenRules); ++i) {
        std::string const name = "r" + std::to_string(i) + ".json";
        rig.tool.file(name, brokenRules[i].rules);
        lines += "$TAV gateway -t m.pml --certificates none --rules " + name +
                 " --until-eof </dev/null; echo ended with $?\n";
    }
    // All of them in one shell: what each says is between what the shell prints.
    ToolRun const run = rig.tool.shell("exec 2>&1\n" + lines);
    std::size_t at = 0;
    for (std::size_t i = 0; i < std::size(brokenRules); ++i) {
        std::size_t const end = run.out.find("ended with ", at);
        std::string const said = run.out.substr(at, end - at);
        EXPECT_EQ(said.find("tav: r" + std::to_string(i) + ".json:" + brokenRules[i].told), 0u)
            << brokenRules[i].rules << "\n"
            << said;
        EXPECT_EQ(run.out.substr(end, 13), "ended with 2\n") << brokenRules[i].rules;
        at = end + 13;
    }
    EXPECT_FALSE(has(run.out, "listening"));
    EXPECT_NE(::access(rig.tool.path("none").c_str(), F_OK), 0)
        << "certificates are made before the rules are read";
    EXPECT_EQ(rig.tool.run("gateway --rules none.json").code, 2);
}

TEST(ToolGateway, RuleWithAMessageOrAClassNeedsATemplate) {
    GatewayRig const rig;
    rig.tool.file("a.json", "[{\"class\":\"im.Say\",\"do\":[\"drop\"]}]");
    rig.tool.file("b.json", "[{\"do\":[{\"push\":{\"__class__\":\"im.Say\",\"text\":\"a\"}}]}]");
    for (char const * const name : {"a.json", "b.json"}) {
        ToolRun const run = rig.tool.run(std::string("gateway --until-eof --rules ") + name);
        EXPECT_EQ(run.code, 2);
        EXPECT_TRUE(has(run.err, "this needs a template: --template FILE")) << run.err;
    }
}

TEST(ToolGateway, EndsByWhatStoodInItsWay) {
    GatewayRig const rig;
    std::string const with = "gateway --chain chain.pem --key key.pem --until-eof ";
    EXPECT_EQ(rig.tool.run(with + "--address 192.0.2.1").code, 3);
    EXPECT_EQ(rig.tool.run(with + "--route 9-1").code, 2);
    EXPECT_EQ(rig.tool.run(with + "--record no/r.bin").code, 2);
    EXPECT_EQ(rig.tool.run("gateway --chain none --key none --until-eof").code, 2);
    EXPECT_EQ(rig.tool.run(with + "--recorded in").code, 2);
    EXPECT_EQ(rig.tool.run(with).code, 0);
    // A record that can't be written ends it, and says so.
    ToolRun const run = rig.run("serve --record /dev/full; raw h >/dev/null; wait $gw; echo $?; cat gw.err");
    EXPECT_EQ(run.out, "2\ntav: /dev/full: can't be written: No space left on device\n") << run.err;
}

} // namespace
