#include "support/tool.h"

#include <tav/vinta/vinta_im_pkt.h>
#include <tav/vinta/vinta_transport_message.h>

#include <gtest/gtest.h>

namespace {

using tav_test::ToolRig;
using tav_test::ToolRun;

char const * const model = R"(
Hello:object(
    __class__(im.Hello) __code__(1F01)
    [1]user:string() [2]seq:int64() [3]tags:list{string}() [4]mood:enum{Mood}(good(0) bad(1))
    [5]secret:string?({***}) [6]at:time?() [7]place:im.Place?() [8]ages:map{string,int32}() [9]x:double?()
)
Place:object(__class__(im.Place)[1]city:string())
Old:object(__class__(im.Old)__code__(05)[1]a:int32())
)";

std::string hexOf(tavBytes const & bytes) {
    return "'" + std::string(tavHex16::encode(bytes).data()) + "'";
}

tavBytes packetOf(unsigned short code, std::string const & body) {
    auto const packet = tav::im::Packet::create(code > 0xff, 6);
    packet->setCode(code);
    packet->setSequence(2);
    packet->setSession(3);
    packet->setBody(body);
    tavBytes bytes;
    packet->encode(bytes);
    return bytes;
}

std::string framed(tavBytes const & packet) {
    tavBytes frame;
    frame.writeBigEndian(packet.size());
    frame.writeBytes(packet);
    return std::string(reinterpret_cast<char const *>(frame.data()), frame.size());
}

TEST(ToolDump, ValuesWithoutATemplateHaveWhatTheBytesTell) {
    ToolRun const whole = ToolRig(TAV_TOOL).run(
        "dump --hex 'FF0128 01 010105 02 F1026162 03 FF0128 00 010107 FF0129 04 00 05 0104FFFFFFFF 06 "
        "0109000102030405060708 FF0129 010103'");
    EXPECT_EQ(whole.code, 0);
    EXPECT_EQ(whole.out, "0000  object\n"
                         "0003    [1]: number 5\n"
                         "0007    [2]: text \"ab\"\n"
                         "000c    [3]: object\n"
                         "0010      [0]: number 7\n"
                         "0017    [4]: null\n"
                         "0019    [5]: number 4294967295 or -1\n"
                         "0020    [6]: bytes 00 01 02 03 04 05 06 07 08\n"
                         "002f  number 3\n");
}

TEST(ToolDump, TemplateGivesNamesTypesAndMasks) {
    ToolRig const rig(TAV_TOOL);
    rig.file("m.pml", model);
    std::string const bytes =
        "--hex 'FF0128 01 F103616E6E 02 0108FBFFFFFFFFFFFFFF 03 FF0128 00 F10161 FF0129 04 010101 05 "
        "F10668756E746572 06 01060068E5CF8B01 07 FF0128 01 F1044F736C6F FF0129 08 FF0128 00 FF0128 01 "
        "F1016B 02 01012A FF0129 FF0129 09 0108000000000000F83F 0B 010101 01 010105 FF0129'";
    ToolRun const run = rig.run("dump -t m.pml -c im.Hello " + bytes);
    EXPECT_EQ(run.code, 0) << run.err;
    EXPECT_EQ(run.out, "0000  im.Hello\n"
                       "0003    [1] user: string \"ann\"\n"
                       "0009    [2] seq: int64 -5\n"
                       "0014    [3] tags: list{string}\n"
                       "0018      -: string \"a\"\n"
                       "001f    [4] mood: enum{Mood} 1 (bad)\n"
                       "0023    [5] secret: string? ***[6]\n"
                       "002c    [6] at: time? 1700000000000 (2023-11-14T22:13:20.000Z)\n"
                       "0035    [7] place: im.Place\n"
                       "0039      [1] city: string \"Oslo\"\n"
                       "0043    [8] ages: map{string,int32}\n"
                       "0047      -: entry\n"
                       "004b        key: string \"k\"\n"
                       "004f        value: int32 42\n"
                       "0059    [9] x: double? 1.5\n"
                       "0064    [11]: number 1  (no field of im.Hello has this tag)\n"
                       "0068    [1] user: string \"\\x05\"  (bytes where the template has string)\n");
    EXPECT_NE(rig.run("dump -t m.pml -c im.Hello --reveal " + bytes).out.find("\"hunter\""),
              std::string::npos);
    EXPECT_EQ(rig.run("dump -a -t m.pml -c im.Hello " + bytes).out.find("68 75 6E"), std::string::npos)
        << "masked, and seen";
    EXPECT_EQ(rig.run("dump --code 1f01 -t m.pml " + bytes).out, run.out);
}

TEST(ToolDump, WhatStandsBelowAProtectedFieldIsMaskedToo) {
    ToolRig const rig(TAV_TOOL);
    rig.file("m.pml", model);
    std::string const text = "F10668756E746572";
    for (std::string const & secret :
         {"FF0128 01 " + text + " FF0129", "FF0128 00 " + text + " 00 FF0128 02 " + text + " FF0129 FF0129",
          std::string("010668756E746572")}) {
        std::string const bytes =
            "-t m.pml -c im.Hello --hex 'FF0128 01 F10161 05 " + secret + " 0B F10162 FF0129'";
        ToolRun const run = rig.run("dump -a " + bytes);
        EXPECT_EQ(run.out.find("hunter"), std::string::npos) << run.out;
        EXPECT_EQ(run.out.find("68 75 6E"), std::string::npos) << run.out;
        EXPECT_NE(run.out.find("***[6]"), std::string::npos) << run.out;
        EXPECT_NE(run.out.find("text \"b\""), std::string::npos) << run.out;
        EXPECT_NE(rig.run("dump -a --reveal " + bytes).out.find("68 75 6E"), std::string::npos);
    }
}

TEST(ToolDump, AnnotatedFormShowsEachByteOnce) {
    ToolRun const run =
        ToolRig(TAV_TOOL).run("dump -a --hex '00000014 0006 00 1234 00 0002 0000000000000003 0000 4142'");
    EXPECT_EQ(run.code, 0) << run.err;
    EXPECT_EQ(run.out, "0000  00 00 00 14              frame: 20 bytes\n"
                       "0004                             mobile packet: 20 bytes\n"
                       "0004  00 06                        version: 6\n"
                       "0006  00                           affirm: 0x0\n"
                       "0007  12 34                        code: 0x1234\n"
                       "0009  00                           flags: 0x0\n"
                       "000a  00 02                        sequence: 2\n"
                       "000c  00 00 00 00 00 00 00 03      session: 0x3\n"
                       "0014  00 00                        size of the extension: 0\n"
                       "0016  41 42                        body: 2 bytes: 41 42\n");
}

TEST(ToolDump, OldPacketIsNamedAndItsBodyIsThatOfItsCode) {
    ToolRig const rig(TAV_TOOL);
    rig.file("m.pml", model);
    tavBytes const packet = packetOf(5, std::string("\xFF\x01(\x01\x01\x01\x07\xFF\x01)", 10));
    ToolRun const run = rig.run("dump -t m.pml --hex " + hexOf(packet));
    EXPECT_EQ(run.code, 0) << run.err;
    for (char const * const line :
         {"old packet: ", "sequence: number 2\n", "code: number 5\n", "im.Old\n", "[1] a: int32 7\n",
          "[8] sessionId: number 3\n", "[14] hmac: text \"\"\n"}) {
        EXPECT_NE(run.out.find(line), std::string::npos) << line << run.out;
    }
}

TEST(ToolDump, ExtensionOfAPacketHasItsNames) {
    tav::im::PacketMobile packet(6);
    tavMsgExt ext;
    ext.serverTime = 1700000000000;
    ext.traceId = tavString("abc");
    packet.setCode(0x1F01);
    packet.setExt(ext);
    tavBytes bytes;
    packet.encode(bytes);
    ToolRun const run = ToolRig(TAV_TOOL).run("dump --as packet --hex " + hexOf(bytes));
    EXPECT_EQ(run.code, 0) << run.err;
    EXPECT_NE(run.out.find("[1] serverTime: number 1700000000000\n"), std::string::npos) << run.out;
    EXPECT_NE(run.out.find("[3] traceId: text \"abc\"\n"), std::string::npos) << run.out;
}

TEST(ToolDump, GateMessageIsTakenForOneIfThatIsSaid) {
    tavGateMessage const message(7, 3, 4, 0, -5, 6, 7, "head", "{\"a\":1}");
    tavBytes bytes;
    message.encode(bytes);
    ToolRun const run = ToolRig(TAV_TOOL).run("dump --as gate --hex " + hexOf(bytes));
    EXPECT_EQ(run.code, 0) << run.err;
    EXPECT_EQ(run.out, "0000  gate message: 23 bytes\n"
                       "0000    protocol: 7 (JSON)\n"
                       "0001    type: 0x304\n"
                       "0003    direction: 0 (ARG)\n"
                       "0004    sequence: -5\n"
                       "0008    extras: 06 07\n"
                       "000a    size of the head: 4\n"
                       "000c    head: \"head\"\n"
                       "0010    body: \"{\\\"a\\\":1}\"\n");
    EXPECT_EQ(ToolRig(TAV_TOOL).run("dump --as gate --hex 0304").code, 1);
}

TEST(ToolDump, FormsOfTheInputAreOneInput) {
    ToolRig const rig(TAV_TOOL);
    std::string const raw = framed(packetOf(0x1F01, "\xFF\x01(\x01\xF1\x03"
                                                    "ann\xFF\x01)"));
    std::string const expected = rig.run("dump", raw).out;
    EXPECT_NE(expected.find("text \"ann\""), std::string::npos) << expected;
    rig.file("raw", raw);
    EXPECT_EQ(rig.run("dump raw").out, expected);
    EXPECT_EQ(rig.shell("base64 raw | $TAV dump").out, expected);
    EXPECT_EQ(rig.shell("base64 -w 0 raw >b; $TAV dump --base64 \"$(cat b)\"").out, expected);
    EXPECT_EQ(rig.shell("od -An -tx1 -v raw | $TAV dump -").out, expected);
    EXPECT_EQ(rig.shell("od -An -tx1 -v raw | $TAV dump --in hex").out, expected);
}

TEST(ToolDump, WhatIsBrokenIsShownUpToTheByteWhereItBreaks) {
    ToolRun const run = ToolRig(TAV_TOOL).run("dump --hex 'FF0128 01 F105616E'");
    EXPECT_EQ(run.code, 1);
    EXPECT_EQ(run.out,
              "0000  object\n0003    [1]: text \"an\"\n"
              "0008    broken here: the value at byte 4 says that it has 5 bytes, and 2 are there\n");
    EXPECT_EQ(
        run.err,
        "tav: --hex: byte 8 (0x8): error: the value at byte 4 says that it has 5 bytes, and 2 are there\n"
        "    FF 01 28 01 F1 05 61 6E\n"
        "                            ^\n");
}

TEST(ToolDump, EachKindOfBrokenInputIsToldByItsPlace) {
    struct Case {
        char const * arguments;
        char const * said;
    };
    for (Case const & one :
         {Case{"--hex 'FF0128 0x'", "--hex:1:9: error: 'x' is no hexadecimal digit\n"},
          Case{"--hex 'FF012'", "--hex:1:6: error: a byte has two hexadecimal digits"},
          Case{"--base64 'AA%A'", "--base64:1:3: error: '%' is no base64\n"},
          Case{"--base64 'A=AA'", "--base64:1:2: error: '=' ends a group"},
          Case{"--base64 'AAAAA'", "--base64:1:6: error: the input ends behind"},
          Case{"--as nbr --hex 28", "byte 0 (0x0): error: no value begins with 28"},
          Case{"--as frames --hex '00000005 0006'",
               "byte 6 (0x6): error: affirm has 1 byte, and 0 are there"},
          Case{"--as frames --hex '01000000'", "error: a frame has at most 16777215 bytes"},
          Case{"--as frames --hex '0000'", "byte 2 (0x2): error: length has 4 bytes, and 2 are there"},
          Case{"--as packet --hex '01000000'", "begins with three zeros"},
          Case{"--as frames --hex '00000000 00000014 0006'", "byte 10 (0xa): error:"},
          Case{"/dev/null", "/dev/null: is empty"}}) {
        ToolRun const run = ToolRig(TAV_TOOL).run(std::string("dump ") + one.arguments);
        EXPECT_EQ(run.code, 1) << one.arguments;
        EXPECT_NE(run.err.find(one.said), std::string::npos) << one.arguments << ": " << run.err;
    }
}

TEST(ToolDump, HexadecimalIsToldByTheLineOfTheFile) {
    ToolRig const rig(TAV_TOOL);
    rig.file("h", "FF 01 28\n01 zz\n");
    EXPECT_EQ(rig.run("dump --in hex h").err,
              "tav: h:2:4: error: 'z' is no hexadecimal digit\n    01 zz\n       ^\n");
}

TEST(ToolDump, JsonIsAnObjectForEachFrameAlsoWhereItBreaks) {
    ToolRig const rig(TAV_TOOL);
    rig.file("m.pml", model);
    std::string const good = framed(packetOf(0x1F01, "\xFF\x01(\x01\xF1\x03"
                                                     "ann\xFF\x01)"));
    rig.file("f", good + good + std::string("\0\0\0\0", 4) + good.substr(0, good.size() - 3));
    ToolRun const run = rig.shell("$TAV dump --json -t m.pml f >j; echo $?; python3 -c 'import json,sys\n"
                                  "for line in open(\"j\"):\n"
                                  "    tree = json.loads(line)\n"
                                  "    print(tree[\"offset\"], tree[\"name\"], \"fault\" in line)'");
    std::string const size = std::to_string(good.size());
    EXPECT_EQ(run.out, "1\n0 frame False\n" + size + " frame False\n" + std::to_string(2 * good.size()) +
                           " heartbeat False\n" + std::to_string(2 * good.size() + 4) + " frame True\n")
        << run.err;
}

TEST(ToolDump, DepthCostsNoStackAndNoSquareOfOutput) {
    ToolRig const rig(TAV_TOOL);
    std::string bytes = "\xFF\x01(";
    constexpr int levels = 100000;
    for (int i = 0; i < levels; ++i) {
        bytes += "\x01\xFF\x01(";
    }
    rig.file("deep", bytes);
    ToolRun const run = rig.run("dump deep");
    EXPECT_EQ(run.code, 1);
    EXPECT_LT(run.out.size(), 200u * levels);
}

TEST(ToolDump, LongTextsAreShownInPartUnlessAllIsWanted) {
    ToolRig const rig(TAV_TOOL);
    rig.file("t", std::string("\xF2\xE8\x03", 3) + std::string(1000, 'x'));
    EXPECT_EQ(rig.run("dump --in raw t").out,
              "0000  text \"" + std::string(200, 'x') + "\"... (1000 bytes)\n");
    EXPECT_EQ(rig.run("dump --in raw --full t").out, "0000  text \"" + std::string(1000, 'x') + "\"\n");
}

TEST(ToolDump, ProtectedBytesAreMaskedInWhatIsToldOfABreakToo) {
    ToolRig const rig(TAV_TOOL);
    rig.file("m.pml", model);
    ToolRun const run = rig.run("dump -t m.pml -c im.Hello --hex 'FF0128 05F107 68756E74657232 04 F5'");
    EXPECT_EQ(run.code, 1);
    EXPECT_NE(run.err.find("    ** ** ** ** ** ** ** 04 F5\n"), std::string::npos) << run.err;
    EXPECT_EQ(run.err.find("68 75"), std::string::npos) << run.err;
    ToolRun const cut = rig.run("dump --json -t m.pml -c im.Hello --hex 'FF0128 05F107 68756E74'");
    EXPECT_EQ(cut.code, 1);
    EXPECT_EQ((cut.out + cut.err).find("68 75"), std::string::npos) << cut.out << cut.err;
}

TEST(ToolDump, OldPacketThatEndsBetweenItsValuesIsBroken) {
    ToolRig const rig(TAV_TOOL);
    ToolRun const run = rig.run("dump --as packet --hex '00000000 010100 010100'");
    EXPECT_EQ(run.code, 1);
    EXPECT_NE(run.err.find("byte 10 (0xa): error: an old packet has nine values, and 2 are there"),
              std::string::npos)
        << run.err;
}

TEST(ToolDump, PlacesOfValuesAreThoseOfTheWholeInput) {
    ToolRun const run =
        ToolRig(TAV_TOOL).run("dump --hex '00000016 0006 00 1F01 00 0001 0000000000000000 0000 01 05 41 42'");
    EXPECT_EQ(run.code, 0) << run.err;
    ToolRun const cut = ToolRig(TAV_TOOL).run(
        "dump --hex '00000018 0006 00 1F01 00 0001 0000000000000000 0000 FF0128 01 01 05'");
    EXPECT_EQ(cut.code, 1);
    EXPECT_NE(cut.err.find("the value at byte 26 says that it has 5 bytes"), std::string::npos) << cut.err;
}

TEST(ToolDump, BytesAreShownAsBytesAndNegativeInt8IsNotOdd) {
    ToolRig const rig(TAV_TOOL);
    rig.file("m.pml", "A:object(__class__(im.A)[1]a:int8())");
    EXPECT_EQ(rig.run("dump -t m.pml -c im.A --hex 'FF0128 01 0102FFFF FF0129'").out,
              "0000  im.A\n0003    [1] a: int8 -1\n");
    ToolRun const body = rig.run("dump --as packet --hex '0006 00 1F01 00 0001 0000000000000000 0000 4142'");
    EXPECT_NE(body.out.find("body: 2 bytes: 41 42\n"), std::string::npos) << body.out;
}

TEST(ToolDump, FrameIsShownBeforeTheNextOneComes) {
    ToolRig const rig(TAV_TOOL);
    std::string const frame = framed(packetOf(0x1F01, "\xFF\x01(\x01\xF1\x03"
                                                      "ann\xFF\x01)"));
    rig.file("f", frame);
    for (std::string const form : {"cat f", "od -An -tx1 -v f"}) {
        // The second frame is only given once the first one has been seen.
        ToolRun const run =
            rig.shell("rm -f in out; mkfifo in out\n$TAV dump <in >out &\nexec 3>in 4<out\n" + form +
                      " >&3; for i in 1 2 3 4 5 6 7 8 9 10 11 12; do read -t 10 -r one <&4; echo "
                      "\"$one\"; done\n" +
                      form + " >&3; exec 3>&-; cat <&4 >rest; wait $!; echo $?; wc -l <rest");
        EXPECT_EQ(run.out.substr(0, 21), "0000  frame: 30 bytes") << form << run.out << run.err;
        EXPECT_NE(run.out.find("[1]: text \"ann\"\n0\n12\n"), std::string::npos)
            << form << run.out << run.err;
    }
}

TEST(ToolDump, LetterThatIsWrongInHexadecimalIsToldByItsPlace) {
    ToolRig const rig(TAV_TOOL);
    for (auto const & one :
         {std::make_pair("FF0128 01 F10", ":1:14: error: a byte has two hexadecimal digits"),
          std::make_pair("FF0128 0l F104 6162 6364 FF0129 0000", ":1:9: error: 'l' is no"),
          std::make_pair("FF 01 28 01 F1 04 61 62 63 64 F? 01 29", ":1:32: error: '?' is no")}) {
        ToolRun const run = rig.run("dump", one.first);
        EXPECT_EQ(run.code, 1) << one.first << run.out;
        EXPECT_NE(run.err.find(std::string("<stdin>") + one.second), std::string::npos) << run.err;
    }
    std::string const good = "0000  object\n0003    [1]: number 5\n";
    for (std::string const text :
         {"0xFF, 0x01, 0x28, 0x01, 0x01, 0x01, 0x05, 0xff, 0X01, 0x29", "ff:01:28:01:01:01:05:ff:01:29",
          "/wEoAQEBBf8BKQ==", "FF0128 01010105 FF0129"}) {
        ToolRun const run = rig.run("dump", text);
        EXPECT_EQ(run.out, good) << text << run.err;
    }
    EXPECT_NE(rig.run("dump", "AAAAZzzz").err.find("(read as base64; --in says otherwise)"),
              std::string::npos);
}

TEST(ToolDump, ShapeThatWasGuessedIsNamedWhereItBreaks) {
    ToolRig const rig(TAV_TOOL);
    ToolRun const cut = rig.run("dump --hex 000000");
    EXPECT_EQ(cut.code, 1);
    EXPECT_NE(
        cut.err.find("error: length has 4 bytes, and 3 are there (taken for frames; --as says otherwise)"),
        std::string::npos)
        << cut.err;
    // A packet without a frame, which is longer than what is looked at ahead.
    std::string const head("\0\x06\0\x1F\x01\0\0\x02\0\0\0\0\0\0\0\x03\0\0", 18);
    rig.file("large", head + "\xFF\x01(\x01\xF3\x40\x0D\x03" + std::string(200000, 'x') + "\xFF\x01)");
    for (std::string const line : {"$TAV dump large", "cat large | $TAV dump"}) {
        ToolRun const run = rig.shell(line);
        EXPECT_EQ(run.out.substr(0, 34), "0000  mobile packet: 200029 bytes\n") << line << run.out << run.err;
    }
}

TEST(ToolDump, KindThatIsNotThatOfTheTemplateIsNoted) {
    ToolRig const rig(TAV_TOOL);
    rig.file("m.pml", model);
    struct Case {
        char const * bytes;
        char const * note;
    };
    for (Case const & one :
         {Case{"02 FF0128 01 010105 FF0129", "[2] seq: object  (an object where the template has int64)"},
          Case{"07 010105", "[7] place: im.Place? 5  (a number where the template has im.Place?)"},
          Case{"03 F10161", "[3] tags: list{string} \"a\"  (text where the template has list{string})"},
          Case{"08 FF0128 00 010105 FF0129", "-: number 5  (a number where a map has an entry)"},
          Case{"04 010109", "[4] mood: enum{Mood} 9  (no member of Mood)"}}) {
        ToolRun const run =
            rig.run(std::string("dump -t m.pml -c im.Hello --hex 'FF0128 ") + one.bytes + " FF0129'");
        EXPECT_NE(run.out.find(one.note), std::string::npos) << run.out << run.err;
    }
    EXPECT_EQ(rig.run("dump -t m.pml -c im.Place --hex 010105").out,
              "0000  number 5  (a number where im.Place is expected)\n");
}

} // namespace
