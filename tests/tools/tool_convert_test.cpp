#include "support/tool.h"

#include <tav/vinta/vinta_object.h>
#include <tav/vinta/vinta_pml_streams.h>
#include <tav/vinta/vinta_xml_streams.h>

#include <gtest/gtest.h>

namespace {

using tav_test::ToolRig;
using tav_test::ToolRun;

char const * const model = R"(
Base:object(__class__(im.Base)[20]stamp:time?())
All:object(
    __class__(im.All) __code__(1F01) __super__(im.Base)
    [1]flag:bool() [2]small:int8() [3]number:int32() [4]large:int64() [5]wide:uint64() [6]real:double()
    [7]text:string() [8]raw:bytes() [9]mood:enum{Mood}(good(0) bad(1)) [10]tags:list{string}()
    [11]ages:map{string,int32}() [12]place:im.Place() [13]places:list{im.Place}() [14]later:string?()
    [15]byId:map{int64,string}()
)
Place:object(__class__(im.Place)[1]city:string()[2]sub:im.Place?())
Old:object(__class__(im.Old)__code__(05)[1]a:int32())
)";

std::string const json =
    R"json({ "__class__":"im.All", "ages":{ "ann":1, "bob":-2 }, "byId":{ "7":"x" }, "flag":true, "large":"-5", )json"
    R"json("mood":1, "number":-300, "place":{ "city":"Oslo", "sub":{ "city":"(a:b)" } }, )json"
    R"json("places":[ { "city":"x" }, { "city":"y" } ], "raw":"AQID", "real":1.5, "small":-1, )json"
    R"json("stamp":"1700000000000", "tags":[ "a b", "c" ], "text":"h<i", "wide":"18446744073709551615" })json"
    "\n";

std::string const old = "{ \"__class__\":\"im.Old\", \"a\":7 }\n";

TEST(ToolConvert, EachEncodingGivesBackWhatWentIn) {
    ToolRig const rig(TAV_TOOL);
    rig.file("m.pml", model);
    std::string const plain = json.substr(0, json.find(" \"byId\"")) + json.substr(json.find(" \"flag\""));
    for (std::string const encoding : {"nbr", "json", "pml", "xml", "frames"}) {
        // XML takes no number for a key.
        std::string const & message = encoding == "xml" ? plain : json;
        ToolRun const run =
            rig.run("convert -t m.pml --from json --to " + encoding + " --out raw >there", message);
        EXPECT_EQ(run.code, 0) << encoding << ": " << run.err;
        EXPECT_EQ(run.err, "") << encoding;
        ToolRun const back = rig.run("convert -t m.pml -c im.All --from " + encoding + " --to json there");
        EXPECT_EQ(back.code, 0) << encoding << ": " << back.err;
        EXPECT_EQ(back.out, message) << encoding;
    }
}

/// The same class, compiled.
class Hello : public tavObject {
public:
    tavString user;
    std::vector<int> numbers;
    std::map<tavString, tavString> notes;

    tav_istr className() const override { return "im.Hello"; }
    tav_istr baseName() const override { return "tavObject"; }
    tavObject * newInstance() const override { return new Hello; }
    void assignFrom(tavObject const & other) override { *this = static_cast<Hello const &>(other); }

protected:
    void traverse(tavCodecStream & s) override {
        ioField(s, 1, "user", user);
        ioField(s, 2, "numbers", numbers);
        ioField(s, 3, "notes", notes);
    }
};

TEST(ToolConvert, PmlAndXmlAreThoseOfACompiledClass) {
    Hello hello;
    hello.user = "a(b";
    hello.numbers = {1, -2};
    hello.notes["k"] = "v w";
    ToolRig const rig(TAV_TOOL);
    rig.file(
        "m.pml",
        "H:object(__class__(im.Hello)[1]user:string()[2]numbers:list{int32}()[3]notes:map{string,string}())");
    tavPmlOutStream pml;
    hello.io(pml);
    tavXmlOutStream xml("");
    hello.io(xml);
    tavBytes const nbr = hello.encode(false);
    rig.file("pml", pml.str(false, false));
    rig.file("xml", std::string(xml.str(false).data()));
    std::string const bytes(reinterpret_cast<char const *>(nbr.data()), nbr.size());
    EXPECT_EQ(rig.run("convert -t m.pml -c im.Hello --from pml --to nbr --out raw pml").out, bytes);
    EXPECT_EQ(rig.run("convert -t m.pml -c im.Hello --from xml --to nbr --out raw xml").out, bytes);
    EXPECT_EQ(rig.run("convert -t m.pml -c im.Hello --from nbr --to pml", bytes).out,
              pml.str(false, false) + "\n");
    EXPECT_EQ(rig.run("convert -t m.pml -c im.Hello --from nbr --to xml", bytes).out,
              std::string(xml.str(false).data()) + "\n");
}

TEST(ToolConvert, EnvelopesKeepAllThatFramesSay) {
    ToolRig const rig(TAV_TOOL);
    rig.file("m.pml", model);
    std::string const heartbeat(4, '\0');
    ASSERT_EQ(rig.run("convert -t m.pml --from json --to frames --out raw >f", old + json + old).code, 0);
    std::string const unknown("\0\0\0\x14\0\x06\x20\x7F\x01\x01\0\x09\0\0\0\0\0\0\0\x03\0\0\x41\x42", 24);
    std::string const receipt("\0\0\0\x12\0\x06\x30\x1F\x01\0\0\x09\0\0\0\0\0\0\0\x03\0\0", 22);
    rig.file("all", tav_test::contentOf(rig.path("f")) + heartbeat + unknown + receipt);
    ToolRun const there = rig.run("convert -t m.pml --from frames --to json --envelope all >e");
    EXPECT_EQ(there.code, 0) << there.err;
    ToolRun const back = rig.run("convert -t m.pml --from json --to frames --out raw --envelope e >again");
    EXPECT_EQ(back.code, 0) << back.err;
    EXPECT_EQ(tav_test::contentOf(rig.path("again")), tav_test::contentOf(rig.path("all")));
    EXPECT_EQ(
        rig.shell("python3 -c 'import json\nprint([json.loads(l)[\"packet\"] for l in open(\"e\")])'").out,
        "['old', 'mobile', 'old', 'heartbeat', 'mobile', 'mobile']\n");
    // Without them what is no message is left out, and one that nobody knows is told by its byte.
    ToolRun const messages = rig.run("convert -t m.pml --from frames --to json --keep-going all");
    EXPECT_EQ(messages.code, 1);
    EXPECT_EQ(messages.out, old + json + old);
    EXPECT_NE(messages.err.find("error: the template has no class of the code 0x7F01"), std::string::npos)
        << messages.err;
}

TEST(ToolConvert, JsonMayHaveManyLinesAndFormatsPretty) {
    ToolRig const rig(TAV_TOOL);
    rig.file("m.pml", model);
    ToolRun const run =
        rig.run("convert -t m.pml -c im.Old --from json --to json --pretty", "{\n  \"a\"\n:\n 7}{\"a\":8}");
    EXPECT_EQ(run.code, 0) << run.err;
    EXPECT_EQ(rig.run("convert -t m.pml --from json --to json", run.out).out,
              old + "{ \"__class__\":\"im.Old\", \"a\":8 }\n");
    EXPECT_NE(run.out.find("\n    \"a\" : 7\n}\n"), std::string::npos) << run.out;
}

TEST(ToolConvert, WrongInputIsToldWithFileLineColumnAndReason) {
    ToolRig const rig(TAV_TOOL);
    rig.file("m.pml", model);
    rig.file("j1", old + "{\n  \"__class__\":\"im.Old\",\n  \"a\":\"x\"}\n");
    rig.file("j2", old + "  {\"__class__\":\"im.Old\",\"a\":7,\"b\":1}\n");
    rig.file("j3", "{\"a\":\n");
    rig.file("j4", "{\"__class__\":\"im.Old\"}\n");
    rig.file("j5", old + "nonsense\n");
    rig.file("j6", "{\"__class__\":\"im.None\",\"a\":7}");
    rig.file("j7", "{\"__class__\":\"im.Old\",\"a\" 7}");
    rig.file("p1", ":im.Old(a(7)\n");
    rig.file("p2", ":im.Old(a(7))\n :im.Old(b(7))");
    rig.file("p3", ":im.None(a(7))");
    rig.file("x1", "<im.Old><a>7</a>\n<</im.Old>");
    rig.file("n1", "\xFF\x01(\x01\x01\x01\x07");
    rig.file("f1", std::string("\0\0\0\x15\0\x06\0\x7F\x05\0\0\x09\0\0\0\0\0\0\0\x03\0\0\xFF\x01(", 25));
    struct Case {
        char const * arguments;
        char const * said;
        int code = 1;
    };
    for (Case const & one : {
             Case{"--from json --to nbr j1",
                  "j1:4:7: error: field a in class im.Old should not be json string type"},
             Case{"--from json --to json j2",
                  "j2:2:31: warning: not found field name [b] in class im.Old: it is dropped\n", 0},
             Case{"--from json --to json j3", "j3:1:1: error: the message that begins here does not end\n"},
             Case{"--from json --to json j4",
                  "j4:1:1: error: missing necessary field name(s) { a } in class im.Old\n"},
             Case{"--from json --to json j5",
                  "j5:2:1: error: a message is a JSON object\n    nonsense\n    ^\n"},
             Case{"--from json --to json j6", "j6:1:14: error: meta class not found"},
             Case{"--from json --to json j7", "j7:1:"},
             Case{"--from pml --to json p1", "p1:1:8: error: no pml value end tag\n"},
             Case{"--from pml --to json p2", "p2:2:2: error: missing necessary field name(s) { a }"},
             Case{"--from pml --to json p3", "p3:1:1: error: there is no class im.None\n"},
             Case{"--from xml --to json x1", "x1:2:2: error: the XML breaks off here\n"},
             Case{"--from nbr --to json -c im.Old n1", "n1: byte 7 (0x7): error: the close marker"},
             Case{"--from nbr --to json n1", "NBR does not tell its class", 2},
             Case{"--from frames --to json f1",
                  "f1: byte 22 (0x16): error: the template has no class of the code 0x7F05"},
             Case{"--from frames --to json -c im.Old f1", "f1: byte 25 (0x19): error: the close marker"},
             Case{"--from json --to json absent", "absent: can't open", 2},
         }) {
        ToolRun const run = rig.run(std::string("convert -t m.pml ") + one.arguments);
        EXPECT_EQ(run.code, one.code) << one.arguments << run.err;
        EXPECT_NE(run.err.find(one.said), std::string::npos) << one.arguments << ": " << run.err;
    }
}

TEST(ToolConvert, WhatIsWrongIsPassedOverIfThatIsWanted) {
    ToolRig const rig(TAV_TOOL);
    rig.file("m.pml", model);
    ToolRun const run = rig.run("convert -t m.pml --from json --to json --keep-going",
                                old + "{\"__class__\":\"im.Old\"}\nnonsense\n" + old);
    EXPECT_EQ(run.code, 1);
    EXPECT_EQ(run.out, old + old);
    EXPECT_NE(run.err.find("<stdin>:2:1: error: missing"), std::string::npos) << run.err;
    EXPECT_NE(run.err.find("<stdin>:3:1: error: a message is"), std::string::npos) << run.err;
}

TEST(ToolConvert, MessageGoesOutBeforeTheNextOneComes) {
    ToolRig const rig(TAV_TOOL);
    rig.file("m.pml", model);
    // The second message is only given once the first one has been seen.
    ToolRun const run = rig.shell("mkfifo in out\n"
                                  "$TAV convert -t m.pml -c im.Old --from json --to json <in >out &\n"
                                  "exec 3>in 4<out\n"
                                  "echo '{\"a\":1}' >&3; read -t 10 -r one <&4; echo \"$one\"\n"
                                  "echo '{\"a\":2}' >&3; read -t 10 -r two <&4; echo \"$two\"\n"
                                  "exec 3>&-; wait $!; echo $?");
    EXPECT_EQ(run.out, "{ \"__class__\":\"im.Old\", \"a\":1 }\n{ \"__class__\":\"im.Old\", \"a\":2 }\n0\n")
        << run.err;
}

TEST(ToolConvert, KeyThatTheEncodingCannotNameIsRefused) {
    ToolRig const rig(TAV_TOOL);
    rig.file("m.pml", "H:object(__class__(H)__code__(1F01)[1]m:map{string,int32}())");
    EXPECT_EQ(rig.run("convert -t m.pml -c H --from json --to xml", "{\"m\":{\"x y\":1}}").code, 1);
    EXPECT_EQ(rig.run("convert -t m.pml -c H --from json --to pml", "{\"m\":{\"x:y\":1}}").code, 1);
    EXPECT_EQ(rig.run("convert -t m.pml -c H --from json --to pml", "{\"m\":{\"x y\":1}}").code, 0);
}

} // namespace
