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
             Case{"--from pml --to json p1", "p1:1:8: error: this ( has no )\n"},
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

TEST(ToolConvert, QuoteOrBracketThatIsMissingCostsItsLineAlone) {
    ToolRig const rig(TAV_TOOL);
    rig.file("m.pml", model);
    for (std::string const wrong : {"{\"a\":\"7}", "{\"a\":7", "{\"a:7}", "[{\"a\":7}"}) {
        ToolRun const run = rig.run("convert -t m.pml --from json --to json --keep-going",
                                    wrong + "\n" + old + old + "{\"a\":" + "\n" + old);
        EXPECT_EQ(run.code, 1) << wrong;
        EXPECT_EQ(run.out, old + old + old) << wrong << run.err;
    }
    ToolRun const quote = rig.run("convert -t m.pml -c im.Old --from json --to json", "{\"a\":\"7}\n" + old);
    EXPECT_NE(quote.err.find("<stdin>:1:9: error: a text has no line break in JSON: its quote is missing"),
              std::string::npos)
        << quote.err;
}

TEST(ToolConvert, MarkOfTheByteOrderIsNoPartOfAMessage) {
    ToolRig const rig(TAV_TOOL);
    rig.file("m.pml", model);
    std::string const mark = "\xEF\xBB\xBF";
    EXPECT_EQ(rig.run("convert -t m.pml --from json --to json", mark + old).out, old);
    EXPECT_EQ(rig.run("convert -t m.pml --from xml --to json", mark + "<im.Old><a>7</a></im.Old>").out, old);
    EXPECT_EQ(rig.run("convert -t m.pml --from pml --to json", mark + ":im.Old(a(7))").out, old);
    EXPECT_EQ(rig.run("convert -t m.pml --from json --to json", mark).code, 0);
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

/// A run of the tool with a template that stands in m.pml.
ToolRun convert(ToolRig const & rig, std::string const & arguments, std::string const & input) {
    return rig.run("convert -t m.pml " + arguments, input);
}

bool says(ToolRun const & run, std::string const & text) {
    return run.err.find(text) != std::string::npos;
}

TEST(ToolConvert, EnvelopeIsHeldToWhatAPacketHas) {
    ToolRig const rig(TAV_TOOL);
    rig.file("m.pml", model);
    struct Case {
        char const * json;
        char const * said;
    };
    for (Case const & one :
         {Case{R"({"city":"a"})", ":1:1: error: an envelope has a member packet: mobile, old or heartbeat\n"},
          Case{R"({"packet":"mobile","bytes":"AAAA"})", ":1:1: error: an envelope has a member code\n"},
          Case{R"({"packet":"foo","code":1})", ":1:11: error: an envelope has a member packet"},
          Case{R"({"packet":"mobile","code":70000})", ":1:27: error: code is a number from 0 to 65534\n"},
          Case{R"({"packet":"old","code":256})", ":1:24: error: code is a number from 0 to 255\n"},
          Case{R"({"packet":"mobile","code":1,"version":-1})", ":1:39: error: version is a number"},
          Case{R"({"packet":"mobile","code":1,"version":256})",
               ":1:39: error: a mobile packet has no version"},
          Case{R"({"packet":"mobile","code":1,"bytes":"A"})",
               ":1:37: error: bytes has bytes as a text of base64"},
          Case{R"({"packet":"mobile","code":1,"sesion":1})", "the member sesion\n"},
          Case{R"({"packet":"old","code":5,"body":[]})", ":1:33: error: a message is a JSON object\n"}}) {
        ToolRun const run = convert(rig, "--from json --to frames --envelope", one.json);
        EXPECT_EQ(run.code, 1) << one.json;
        EXPECT_TRUE(says(run, one.said)) << one.json << run.err;
        EXPECT_EQ(run.out, "") << one.json;
    }
}

TEST(ToolConvert, ClassWithoutACodeGoesIntoNoPacket) {
    ToolRig const rig(TAV_TOOL);
    rig.file("m.pml", model);
    ToolRun const run = convert(rig, "-c im.Place --from json --to frames", R"({"city":"a"})");
    EXPECT_EQ(run.code, 1);
    EXPECT_TRUE(says(run, "the class im.Place has no code for a packet")) << run.err;
}

TEST(ToolConvert, EachValueOfNbrIsAMessage) {
    ToolRig const rig(TAV_TOOL);
    rig.file("m.pml", model);
    ASSERT_EQ(convert(rig, "--from json --to nbr --out raw >n", old + old).code, 0);
    EXPECT_EQ(convert(rig, "-c im.Old --from nbr --to json n", "").out, old + old);
    // What is whole ahead of a break goes out.
    ToolRun const cut = rig.shell("head -c -1 n | $TAV convert -t m.pml -c im.Old --from nbr --to json");
    EXPECT_EQ(cut.code, 1);
    EXPECT_EQ(cut.out, old);
}

/// A template for values at their ends.
char const * const ends = R"(
A:object(__class__(im.A) __code__(1F01)
    [1]s:string?() [2]d:double?() [3]f:float?() [4]m:map{string,int32}() [5]k:map{int64,string}() [6]l:list{int64}()
    [7]t:time?() [8]b:bool?() [9]i:int32?() [10]c:int8?() [11]y:bytes?() [12]e:enum{E}?(x(0) y(1)) [13]r:int32?(1{0..9})
    [14]o:im.B?() [15]n:list{string}()
)
B:object(__class__(im.B) [1]a:int32?())
)";

TEST(ToolConvert, JsonIsJsonAndComesBackAsTheSameBytes) {
    ToolRig const rig(TAV_TOOL);
    rig.file("m.pml", ends);
    for (
        std::string const message :
        {R"({ "__class__":"im.A", "d":3.141592653589793, "f":0.1, "s":"q\"b\\s\/\n\u0001\u0000 é" })",
         R"({ "__class__":"im.A", "d":1e+300, "f":1.1754944e-38, "l":[ "-1", "9223372036854775807" ] })",
         R"({ "__class__":"im.A", "k":{ "-5":"x", "-9223372036854775808":"z", "7":"y" }, "t":"-1" })",
         R"({ "__class__":"im.A", "m":{ "\u0001":1, "\"":2, "\\":3, "__class__":4, "a:b":5 } })",
         R"({ "__class__":"im.A", "b":true, "c":-128, "e":1, "i":-2147483648, "o":{ "a":null }, "y":"" })"}) {
        ToolRun const there = convert(rig, "--from json --to nbr --out raw >n", message);
        EXPECT_EQ(there.code, 0) << message << there.err;
        ToolRun const back = convert(rig, "-c im.A --from nbr --to json n", "");
        EXPECT_EQ(back.out, message + "\n") << back.err;
        EXPECT_EQ(there.err + back.err, "");
        rig.file("j", back.out);
        EXPECT_EQ(rig.shell("python3 -c 'import json; json.load(open(\"j\"))'").code, 0) << message;
        ToolRun const pretty = convert(rig, "-c im.A --from nbr --to json --pretty n", "");
        EXPECT_EQ(convert(rig, "--from json --to json", pretty.out).out, message + "\n") << pretty.out;
    }
}

TEST(ToolConvert, EscapesOfJsonAreTheirCharacters) {
    ToolRig const rig(TAV_TOOL);
    rig.file("m.pml", ends);
    ToolRun const run = convert(rig, "-c im.A --from json --to json",
                                R"({"\u0073":"\u00e9\uD83D\uDE00\u005c","m":{"\u00e9":1}})");
    EXPECT_EQ(run.out, "{ \"__class__\":\"im.A\", \"m\":{ \"é\":1 }, \"s\":\"é😀\\\\\" }\n") << run.err;
    ToolRun const half = convert(rig, "-c im.A --from json --to json", R"({"s":"a\ud83d"})");
    EXPECT_EQ(half.code, 1);
    EXPECT_TRUE(says(half, ":1:8: error: a half of a surrogate pair without the other one\n")) << half.err;
}

TEST(ToolConvert, ManyNegativeNumbersTakeNoTime) {
    ToolRig const rig(TAV_TOOL);
    rig.file("m.pml", ends);
    std::string numbers;
    for (int i = 1; i <= 3000; ++i) {
        numbers += (i == 1 ? "\"-" : ", \"-") + std::to_string(i) + "\"";
    }
    std::string const message = "{ \"__class__\":\"im.A\", \"l\":[ " + numbers + " ], \"s\":\"" +
                                std::string(1000000, 'x') + "\" }\n";
    rig.file("j", message);
    ToolRun const run = convert(rig, "--from json --to json j", "");
    EXPECT_EQ(run.code, 0) << run.err;
    EXPECT_TRUE(run.out == message);
}

TEST(ToolConvert, ValueThatItsFieldDoesNotHoldIsRefusedAtItsPlace) {
    ToolRig const rig(TAV_TOOL);
    rig.file("m.pml", ends);
    struct Case {
        char const * json;
        char const * said;
    };
    for (Case const & one :
         {Case{R"({"i":1.9})", ":1:6: error: field i in class im.A has the value 1.9, which is no integer"},
          Case{R"({"i":99999999999})",
               ":1:6: error: field i in class im.A has the value 99999999999, which no int32 holds"},
          Case{R"({"m":{"a":1,"b":1e3}})", ":1:17: error: field m in class im.A has the value 1e3"},
          Case{R"({"l":[1,"-9223372036854775809"]})", ":1:9: error: field l in class im.A has the value -92"},
          Case{R"({"k":{"x":"y"}})", ":1:7: error: field k has the key x, which is no int64"},
          Case{R"({"s":{"a":1}})",
               ":1:6: error: field s in class im.A should not be json object type, expected type string"},
          Case{R"({"m":[1]})",
               ":1:6: error: field m in class im.A should not be json array type, expected type map"},
          Case{R"({"n":["a",["b"]]})", ":1:11: error: field n in class im.A should not be json array type"},
          Case{R"({"o":5})",
               ":1:6: error: field o in class im.A should not be json number type, expected type object"},
          Case{R"({"b":5})", ":1:6: error: field b in class im.A has the value 5"},
          Case{R"({"d":1e999})", ":1:6: error: field d in class im.A has the number 1e999"},
          Case{R"({"d":true})", ":1:6: error: field d in class im.A should not be json boolean type"},
          Case{R"({"y":"A"})", ":1:6: error: field y in class im.A has a text that is no base64"},
          Case{R"({"i":})", ":1:2: error: the member i has no value"},
          Case{R"([{"i":1}])", ":1:1: error: a message is a JSON object, and not a list of some"}}) {
        ToolRun const run = convert(rig, "-c im.A --from json --to json", one.json);
        EXPECT_EQ(run.code, 1) << one.json;
        EXPECT_TRUE(says(run, one.said)) << one.json << run.err;
    }
    // What is dropped is told.
    EXPECT_TRUE(says(convert(rig, "-c im.A --from json --to json", R"({"i":1,"i":2})"),
                     ":1:2: warning: the member i is given again, and the last one stands: it is dropped"));
    EXPECT_TRUE(says(convert(rig, "-c im.A --from json --to json", R"({"n":["a",null]})"),
                     ":1:11: warning: a null in the list n: it is dropped"));
    EXPECT_EQ(convert(rig, "-c im.A --from json --to json", R"({"b":1})").out,
              "{ \"__class__\":\"im.A\", \"b\":true }\n");
}

std::string bytesOf(ToolRig const & rig, std::string const & hex) {
    rig.file("hex", hex);
    return "--in hex hex";
}

TEST(ToolConvert, NbrIsHeldToTheClassForEveryEncoding) {
    ToolRig const rig(TAV_TOOL);
    rig.file("m.pml", ends + std::string("N:object(__class__(im.N)[1]a:int32()[2]b:string?())"));
    struct Case {
        char const * cls;
        char const * hex;
        char const * said;
        int code = 1;
    };
    for (Case const & one :
         {Case{"im.A", "FF0128 01 F101 61 4D 0101 01 FF0129",
               "byte 7 (0x7): warning: no field of the class im.A has the tag 77: it is dropped", 0},
          Case{"im.N", "FF0128 02 F101 61 FF0129", "missing necessary field name(s) { a } in class im.N"},
          Case{"im.A", "FF0128 0C 0101 09 FF0129", "byte 4 (0x4): error: field e has the enum value 9"},
          Case{"im.A", "FF0128 0D 0101 0A FF0129",
               "byte 4 (0x4): error: field r has the value 10, which its range"},
          Case{"im.A", "FF0128 09 FF0128 FF0129 FF0129",
               "error: field i is an object where int32 is expected"},
          Case{"im.A", "FF0128 0E 0101 05 FF0129",
               "error: field o is a single value where im.B? is expected"},
          Case{"im.A", "FF0128 09 F101 61 FF0129", "error: field i is a text where int32 is expected"},
          Case{"im.A", "FF0128 0A 0102 2C01 FF0129",
               "error: field c has a number of 2 bytes, which no int8 is"},
          Case{"im.A", "FF0128 09 0101 05 09 0101 06 FF0129",
               "byte 7 (0x7): error: the field i is there twice"},
          Case{"im.A",
               "FF0128 04 FF0128 00 FF0128 01 F101 61 02 0101 01 FF0129 00 FF0128 01 F101 61 02 0101 02 "
               "FF0129 FF0129 FF0129",
               "error: field m has the key a twice"}}) {
        for (char const * const encoding : {"json", "pml", "xml"}) {
            ToolRun const run = convert(rig,
                                        std::string("-c ") + one.cls + " --from nbr --to " + encoding + " " +
                                            bytesOf(rig, one.hex),
                                        "");
            EXPECT_EQ(run.code, one.code) << encoding << one.said << run.err;
            EXPECT_TRUE(says(run, one.said)) << encoding << one.said << run.err;
        }
    }
    for (char const * const hex : {"FF0128 02 0108 000000000000F87F FF0129", "FF0128 01 F101 FF FF0129"}) {
        ToolRun const run = convert(rig, "-c im.A --from nbr --to json " + bytesOf(rig, hex), "");
        EXPECT_EQ(run.code, 1) << run.out;
        EXPECT_TRUE(says(run, "byte 4 (0x4): error: field ")) << run.err;
    }
}

TEST(ToolConvert, FramesComeBackAsTheSameBytes) {
    ToolRig const rig(TAV_TOOL);
    rig.file("m.pml",
             std::string(model) + "Two:object(__class__(im.Two)__code__(0102)[1]z:int32()[2]a:int32?())");
    rig.file("hex",
             // Flags beyond grey, an extension, and bytes of nobody's class.
             "0006 00 7F06 83 0009 0000000000000003 000D FF0128 03 F104 61626364 FF0129 AABBCCDDEEFF01\n"
             "0006 00 0102 00 0009 0000000000000003 0000 FF0128 01 0101 07 FF0129\n"
             // An old packet with a kind, a flag, a target and more.
             "00000007 010102 010103 010101 010107 010104 F10161 010105 010A FF0128 01010107 FF0129"
             " 0120 FF0128 01010101 0200 0300 0400 05F100 0600 08010105 0D010100 0EF100 FF0129\n");
    ASSERT_EQ(rig.shell("python3 -c 'import struct\n"
                        "packets=[bytes.fromhex(line) for line in open(\"hex\")]\n"
                        "frames=[struct.pack(\">I\", len(p)) + p for p in packets]\n"
                        "open(\"all\",\"wb\").write(b\"\".join(frames))'")
                  .code,
              0);
    ToolRun const dump = rig.run("dump --as frames all");
    ASSERT_EQ(dump.code, 0) << dump.out << dump.err;
    EXPECT_EQ(convert(rig, "--from frames --to frames --out raw all >same", "").code, 0);
    EXPECT_EQ(tav_test::contentOf(rig.path("same")), tav_test::contentOf(rig.path("all")));
    ToolRun const there = convert(rig, "--from frames --to json --envelope all >e", "");
    EXPECT_EQ(there.code, 0) << there.err;
    EXPECT_EQ(there.err, "");
    ToolRun const back = convert(rig, "--from json --to frames --envelope --out raw e >again", "");
    EXPECT_EQ(back.code, 0) << back.err;
    EXPECT_EQ(tav_test::contentOf(rig.path("again")), tav_test::contentOf(rig.path("all")))
        << tav_test::contentOf(rig.path("e"));
}

TEST(ToolConvert, BodyOfACompiledClassComesBackInItsOrder) {
    ToolRig const rig(TAV_TOOL);
    rig.file("m.pml", "Two:object(__class__(im.Two)__code__(0102)[1]z:int32()[2]a:int32?())");
    rig.file("hex",
             "00000020 0006 00 0102 00 0009 0000000000000003 0000 FF0128 01010107 02010108 FF0129"
             "00000021 0006 00 0102 00 0009 0000000000000003 0000 FF0128 01 0102 0700 02010108 FF0129");
    ToolRun const there = convert(rig, "--from frames --to json --envelope --in hex hex >e", "");
    EXPECT_EQ(there.code, 0) << there.err;
    // A number with more bytes than it needs is told.
    EXPECT_TRUE(
        says(there,
             "byte 58 (0x3a): warning: the body comes back with the same values, but not as the same bytes"))
        << there.err;
    ToolRun const back = convert(rig, "--from json --to frames --envelope --out hex e", "");
    std::string const first =
        "00 00 00 20 00 06 00 01 02 00 00 09 00 00 00 00 00 00 00 03 00 00 FF 01 28 01 01 01 07 02 01 "
        "01 08 FF 01 29\n";
    std::string const byName =
        "00 00 00 20 00 06 00 01 02 00 00 09 00 00 00 00 00 00 00 03 00 00 FF 01 28 02 01 01 08 01 01 "
        "01 07 FF 01 29\n";
    EXPECT_EQ(back.out, first + byName) << back.err;
}

TEST(ToolConvert, PacketThatIsCutIsRefused) {
    ToolRig const rig(TAV_TOOL);
    rig.file("m.pml", model);
    for (char const * const hex :
         {"00000004 0006 00 7F", "00000013 0006 00 7F05 00 0009 0000000000000003 0002 AA",
          "00000007 00000000 010100"}) {
        ToolRun const run = convert(rig, "--from frames --to json --envelope " + bytesOf(rig, hex), "");
        EXPECT_EQ(run.code, 1) << hex << run.out;
        EXPECT_TRUE(says(run, "the packet ends within its ") ||
                    says(run, "an old packet has nine values, and 1 is there"))
            << run.err;
    }
}

TEST(ToolConvert, TextThatWouldNotBringTheValueBackIsRefusedByItsField) {
    ToolRig const rig(TAV_TOOL);
    rig.file("m.pml", ends);
    struct Case {
        char const * encoding;
        char const * json;
        char const * said;
    };
    for (Case const & one :
         {Case{"pml", R"({"s":"a\nb"})", "error: field s has a value that PML does not bring back\n"},
          Case{"pml", R"({"t":-1})", "error: field t has a value that PML does not bring back\n"},
          Case{"pml", R"({"s":"a\u0000b"})", "that PML does not bring back"},
          Case{"xml", R"({"t":-1})", "error: field t has a value that XML does not bring back\n"},
          Case{"xml", R"({"i":1,"s":""})", "error: field s has a value that XML does not bring back\n"},
          Case{"xml", R"({"s":" a"})", "error: field s has a value that XML does not bring back\n"},
          Case{"xml", R"({"n":["a",""]})", "error: field n has a value that XML does not bring back\n"},
          Case{"xml", R"({"s":"a\u0001"})", "that XML does not bring back: XML has no such character\n"},
          Case{"xml", R"({"m":{"a:b":1}})",
               "error: field m has the key \"a:b\", which can't be a name there"}}) {
        ToolRun const run = convert(rig, std::string("-c im.A --from json --to ") + one.encoding, one.json);
        EXPECT_EQ(run.code, 1) << one.json << run.out;
        EXPECT_TRUE(says(run, one.said)) << one.json << run.err;
        EXPECT_EQ(run.out, "");
    }
    for (char const * const encoding : {"pml", "xml"}) {
        for (std::string const message :
             {R"({ "__class__":"im.A", "d":3.141592653589793, "f":0.33333334, "i":-7 })",
              R"({ "__class__":"im.A", "d":1234567.5 })", R"({ "__class__":"im.A" })"}) {
            ToolRun const there = convert(rig, std::string("--from json --to ") + encoding, message);
            ToolRun const back = convert(rig, std::string("--to json --from ") + encoding, there.out);
            EXPECT_EQ(back.out, message + "\n") << there.out << there.err << back.err;
        }
    }
    ToolRun const null =
        convert(rig, "-c im.A --from nbr --to pml " + bytesOf(rig, "FF0128 01 00 FF0129"), "");
    EXPECT_EQ(null.code, 0);
    EXPECT_TRUE(says(null, "byte 4 (0x4): warning: field s is a null: it is dropped")) << null.err;
}

TEST(ToolConvert, PmlAndXmlAreHeldToTheClass) {
    ToolRig const rig(TAV_TOOL);
    rig.file("m.pml", ends);
    struct Case {
        char const * encoding;
        char const * text;
        char const * said;
        int code = 1;
    };
    for (Case const & one :
         {Case{"pml", ":im.A(i(1)floor(2))",
               "warning: not found field name [floor] in class im.A: it is dropped\n", 0},
          Case{"pml", ":im.A(i(abc))", ":1:1: error: field i has the value \"abc\", which no int32 is\n"},
          Case{"pml", ":im.A(i(99999999999))", "which no int32 is\n"},
          Case{"pml", ":im.A(e(7))", "error: field e has the value \"7\", which is none of its members\n"},
          Case{"pml", ":im.A(r(10))", "error: field r has the value \"10\", which its range does not have\n"},
          Case{"pml", ":im.A(i(1)i(2))", "error: a member is there twice in an object of the class im.A\n"},
          Case{"pml", ":im.A(d(x))", "which no double is\n"},
          Case{"pml", ":im.A(b(yes))", "which no bool is\n"},
          Case{"pml", ":im.A(o:im.B(a(x)))", "error: field a has the value \"x\""},
          Case{"pml", ":im.A(l((1)(x)))", "error: field l has the value \"x\""},
          Case{"xml", "<im.A><i>1</i><floor>2</floor></im.A>", "warning: not found field name [floor]", 0},
          Case{"xml", "<im.A><i>x</i></im.A>", "error: field i has the value \"x\""},
          Case{"xml", "<im.A><i>1</i><i>2</i></im.A>", "error: a member is there twice"},
          Case{"xml", "<im.A><s>a</im.A>", ":1:11: error: the element s is open, and im.A ends\n"},
          Case{"xml", "<im.A><s>a</s>", ":1:1: error: the element im.A does not end\n"},
          Case{"xml", "<im.A><s>&eacute;</s></im.A>", ":1:10: error: there is no such entity\n"}}) {
        ToolRun const run = convert(rig, std::string("--to json --from ") + one.encoding, one.text);
        EXPECT_EQ(run.code, one.code) << one.text << run.out << run.err;
        EXPECT_TRUE(says(run, one.said)) << one.text << run.err;
    }
}

} // namespace
