#include "support/tool.h"

#include <gtest/gtest.h>

#include <sys/stat.h>

#include <algorithm>
#include <csignal>
#include <string>
#include <utility>
#include <vector>

namespace {

using tav_test::contentOf;
using tav_test::ToolRig;
using tav_test::ToolRun;

std::string const sources = TAV_SOURCE_DIR "/tests/tools/gen/";

/// A message with these fields.
std::string message(std::string const & fields) {
    return "M:object(__class__(im.M)__code__(1F01)\n" + fields + "\n)\n";
}

bool has(std::string const & text, std::string const & part) {
    return text.find(part) != std::string::npos;
}

TEST(ToolGen, CppOfAllThatATemplateCanSayIsTheHeaderThatIsKept) {
    ToolRun const run = ToolRig(TAV_TOOL).run("gen cpp " + sources + "world.pml");
    EXPECT_EQ(run.code, 0) << run.err;
    EXPECT_EQ(run.out, contentOf(sources + "world.h")) << "tests/tools/gen/world.h is made by the tool";
}

TEST(ToolGen, NamesThatCppCantCarryGetOthersAndAreTold) {
    ToolRig const rig(TAV_TOOL);
    struct Case {
        char const * field;
        char const * member;
        char const * why;
    };
    for (Case const & one :
         {Case{"class", "class_", "is a keyword of C++"}, Case{"and", "and_", "is a keyword of C++"},
          Case{"co_await", "co_await_", "is a keyword of C++"}, Case{"a-b", "a_b", "is no identifier of C++"},
          Case{"2nd", "n2nd", "is no identifier of C++"},
          Case{"\xC3\xA9t\xC3\xA9", "t_", "is no identifier of C++"},
          Case{"_Front", "Front", "is reserved in C++"}, Case{"a__b", "a_b", "is reserved in C++"},
          Case{"errno", "errno_", "may be a macro"}, Case{"INT32_MAX", "INT32_MAX_", "may be a macro"},
          Case{"CLOCK_REALTIME", "CLOCK_REALTIME_", "may be a macro"},
          Case{"traverse", "traverse_", "is a name of the library"},
          Case{"M", "M_", "has the name of a class"}}) {
        rig.file("m.pml", message(std::string("[1]") + one.field + ":int32()"));
        ToolRun const run = rig.run("gen cpp m.pml");
        EXPECT_EQ(run.code, 0) << one.field;
        EXPECT_TRUE(has(run.err, std::string("m.pml:2:1: warning: the field \"") + one.field + "\" " +
                                     one.why + ": it is "))
            << run.err;
        EXPECT_TRUE(has(run.out, std::string("    int ") + one.member + " = 0;\n"))
            << one.field << ": " << run.out;
        EXPECT_TRUE(has(run.out, std::string("\"") + one.field + "\", " + one.member + ",")) << run.out;
        ToolRun const strict = rig.run("gen cpp m.pml --strict");
        EXPECT_EQ(strict.code, 1) << one.field;
        EXPECT_EQ(strict.out, "") << one.field;
    }
    rig.file("m.pml", "M:object(__class__(new.class)__code__(1F01)[1]a:enum{for}(if(0)))");
    ToolRun const run = rig.run("gen cpp m.pml");
    EXPECT_TRUE(has(run.out, "namespace new_ {")) << run.out;
    EXPECT_TRUE(has(run.out, "struct class_ : tav::kit::message<class_> {")) << run.out;
    EXPECT_TRUE(has(run.out, "enum class for_ : int {\n    if_ = 0,\n};")) << run.out;
    EXPECT_TRUE(has(run.out, "type_name = \"new.class\"")) << run.out;
}

TEST(ToolGen, NamesOfTheLibraryAndTheSystemAreNotDeclaredASecondTime) {
    ToolRig const rig(TAV_TOOL);
    rig.file("m.pml", "M:object(__class__(tav.kit.message)__code__(1F01)[1]a:enum{E}(EINVAL(0)))\n"
                      "F:object(__class__(FILE)[1]a:int32())\nT:object(__class__(tavMsgExt)[1]a:time())\n"
                      "U:object(__class__(time)[1]a:FILE())\nP:object(__class__(im.time)[1]a:FILE())");
    ToolRun const run = rig.run("gen cpp m.pml");
    EXPECT_EQ(run.code, 0) << run.err;
    for (char const * const part :
         {"namespace tav_::kit {\n", "    EINVAL_ = 0,\n", "struct FILE_ : ", "struct tavMsgExt_ : ",
          "struct time_ : ", "struct time : tav::kit::object<time> {", "    ::FILE_ a;\n"}) {
        EXPECT_TRUE(has(run.out, part)) << part << run.out;
    }
    EXPECT_TRUE(has(run.err,
                    "m.pml:2:1: warning: the class \"FILE\" has the name of something global: it is FILE_ "
                    "there"))
        << run.err;
    EXPECT_TRUE(has(rig.run("gen cpp m.pml --namespace my").out, "struct FILE : "))
        << "within a namespace it is free";
}

TEST(ToolGen, TextsAndCommentsHaveNoTrigraphsAndGuardsNothingReserved) {
    ToolRig const rig(TAV_TOOL);
    rig.file("m--x.pml", message("[1]a:string(what?\?!{*a trick ?\?/*})"));
    ToolRun const run = rig.run("gen cpp m--x.pml --namespace a::b");
    EXPECT_TRUE(has(run.out, "    /// a trick ?\?/.\n    tavString a = \"what?\\?!\";\n")) << run.out;
    EXPECT_TRUE(has(run.out, "#ifndef TAV_GEN_A_B_M_X_PML_H\n")) << run.out;
}

TEST(ToolGen, DefaultsAreInExamplesAndSchemasAsFarAsTheirTypesHoldThem) {
    ToolRig const rig(TAV_TOOL);
    rig.file("m.pml", message("[1]z:int8(200)\n[2]neg:uint32(-1)\n[3]hex:int32(0x10)\n[4]oct:int64(010)\n"
                              "[5]r:int16(1000{2..5})\n[6]f:double(1e3)\n[7]t:string(so)"));
    ToolRun const run = rig.shell("$TAV gen schema m.pml 2>&1 >s; python3 -c 'import json\n"
                                  "m = json.load(open(\"s\"))[\"$defs\"][\"im.M\"]\n"
                                  "print(m[\"examples\"][0])\n"
                                  "print({k: v.get(\"default\") for k, v in m[\"properties\"].items()})'");
    EXPECT_EQ(run.out,
              "{'z': 1, 'neg': 1, 'hex': 16, 'oct': '8', 'r': 2, 'f': 1000, 't': 'so'}\n"
              "{'__class__': None, 'f': 1000, 'hex': 16, 'neg': None, 'oct': '8', 'r': None, 't': 'so', "
              "'z': None}\n")
        << run.err;
    ToolRun const cpp = rig.run("gen cpp m.pml");
    EXPECT_TRUE(has(cpp.out, " hex = 16;\n") && has(cpp.out, " oct = 8LL;\n")) << cpp.out;
}

TEST(ToolGen, NamesThatAreOneInCppAreRefusedWithTheirPlace) {
    ToolRig const rig(TAV_TOOL);
    struct Case {
        std::string text;
        char const * said;
    };
    for (Case const & one :
         {Case{message("[1]a-b:int32()\n[2]a_b:int32()"), "m.pml:3:1: error: two fields are a_b in C++"},
          Case{message("[1]e:enum{E}(x-y(0) x_y(1))"), "m.pml:2:21: error: two members are x_y in C++"},
          Case{"A:object(__class__(im.a-b)[1]x:int32())\nB:object(__class__(im.a_b)[1]x:int32())",
               "m.pml:2:1: error: the class im.a_b is a_b in C++, as something else is too"},
          Case{"A:object(__class__(im)[1]x:int32())\nB:object(__class__(im.B)[1]x:int32())",
               "m.pml:2:1: error: the package of the class im.B has the name of a class or an enum"}}) {
        rig.file("m.pml", one.text);
        ToolRun const run = rig.run("gen cpp m.pml");
        EXPECT_EQ(run.code, 1) << one.text;
        EXPECT_TRUE(has(run.err, one.said)) << run.err;
        EXPECT_EQ(run.out, "");
    }
}

TEST(ToolGen, DefaultsThatNoMemberCanHaveAreLeftOutAndTold) {
    ToolRig const rig(TAV_TOOL);
    for (std::string const field : {"[1]a:int8(300)", "[1]a:uint8(-1)", "[1]a:int32(many)",
                                    "[1]a:double(1.5.5)", "[1]a:uint64(-2)", "[1]a:bytes(AA==)"}) {
        rig.file("m.pml", message(field));
        ToolRun const run = rig.run("gen cpp m.pml");
        EXPECT_TRUE(has(run.err, "is left out: ")) << field << ": " << run.err;
        EXPECT_TRUE(has(run.out, " a = 0;\n") || has(run.out, " a = 0.0;\n") || has(run.out, "tavBytes a;\n"))
            << field << ": " << run.out;
    }
}

/// The blocks of code of a Markdown page.
std::vector<std::string> blocksOf(std::string const & page, std::string const & language) {
    std::vector<std::string> blocks;
    std::string const open = "\n```" + language + "\n";
    for (std::size_t at = page.find(open); at != std::string::npos; at = page.find(open, at)) {
        at += open.size();
        std::size_t const end = page.find("\n```\n", at);
        blocks.push_back(page.substr(at, end - at));
    }
    return blocks;
}

std::string unescaped(std::string text) {
    for (auto const & [from, to] : {std::pair<std::string, std::string>{"&quot;", "\""},
                                    {"&lt;", "<"},
                                    {"&gt;", ">"},
                                    {"&#39;", "'"},
                                    {"&amp;", "&"}}) {
        for (std::size_t at = text.find(from); at != std::string::npos; at = text.find(from, at + 1)) {
            text.replace(at, from.size(), to);
        }
    }
    return text;
}

TEST(ToolGen, ExamplesOfAPageAreTheBytesOfTheirJson) {
    ToolRig const rig(TAV_TOOL);
    std::string const page = rig.run("gen markdown " + sources + "world.pml").out;
    std::string const html = unescaped(rig.run("gen html " + sources + "world.pml").out);
    std::vector<std::string> const json = blocksOf(page, "json");
    std::vector<std::string> const bytes = blocksOf(page, "text");
    ASSERT_EQ(json.size(), 14u);
    ASSERT_EQ(bytes.size(), json.size());
    std::size_t at = 0;
    std::size_t compared = 0;
    for (std::size_t i = 0; i < json.size(); ++i) {
        at = page.find("\n## ", at) + 4;
        std::string const name = page.substr(at, page.find('\n', at) - at);
        std::string hex = bytes[i];
        std::replace(hex.begin(), hex.end(), '\n', ' ');
        EXPECT_TRUE(
            has(html, "<pre><code>" + json[i] + "</code></pre>\n<pre><code>" + bytes[i] + "</code></pre>"))
            << name;
        // Those that are declared within another class are none of the command line's.
        if (name != "gen.Inner" && name != "gen.Own") {
            ToolRun const run =
                rig.run("convert -t " + sources + "world.pml -c " + name + " --from json --to nbr --out hex",
                        json[i]);
            EXPECT_EQ(run.out, hex + "\n") << name << run.err;
            ++compared;
        }
    }
    EXPECT_EQ(compared, 12u);
}

TEST(ToolGen, PagesHaveEachFieldWithWhatIsSaidOfIt) {
    ToolRig const rig(TAV_TOOL);
    rig.file("m.pml",
             message("[1]age:int32?(18{0..150}{*in years*})\n[2]e:enum{E}(x(5))\n[3]pin:string({***})\n"
                     "[4]to:map{int64,im.N}()") +
                 "N:object(__class__(im.N)[1]a:int32())");
    std::string const page = rig.run("gen markdown m.pml").out;
    for (char const * const part :
         {"<!-- Generated by tav gen markdown from m.pml: changes here are lost. -->\n",
          "| [`im.M`](#class-im-M-1) | `0x1F01` |\n", "| [`im.N`](#class-im-N-2) | |\n",
          "| 1 | `age` | `int32` | may be left out; default `18`; from `0..150`; in years |\n",
          "| 2 | `e` | [`E`](#enum-E-1) | |\n", "| 3 | `pin` | `string` | masked in logs |\n",
          "| 4 | `to` | map of `int64` to [`im.N`](#class-im-N-2) | |\n", "<a id=\"class-im-N-2\"></a>",
          "| 5 | `x` |\n"}) {
        EXPECT_TRUE(has(page, part)) << part << page;
    }
    std::string const html = rig.run("gen html m.pml").out;
    EXPECT_EQ(html.substr(0, 16), "<!DOCTYPE html>\n");
    EXPECT_TRUE(has(html, "<td><code>age</code></td><td><code>int32</code></td><td>may be left out; default "
                          "<code>18</code>; from <code>0..150</code>; in years</td>"))
        << html;
    EXPECT_TRUE(has(html, "<h2 id=\"class-im-N-2\">im.N</h2>")) << html;
}

TEST(ToolGen, WhatHasAMeaningInAPageIsEscaped) {
    ToolRig const rig(TAV_TOOL);
    rig.file("--x.pml", message("[1]<b>&|`:string({*<script>|*})"));
    std::string const html = rig.run("gen html ./--x.pml").out;
    EXPECT_TRUE(has(html, "<code>&lt;b&gt;&amp;|`</code>")) << html;
    EXPECT_FALSE(has(html, "<b>") || has(html, "<script>")) << html;
    EXPECT_FALSE(has(html.substr(0, html.find("-->")), "from --")) << html;
    std::string const page = rig.run("gen markdown ./--x.pml").out;
    EXPECT_TRUE(has(page, "| 1 | `` <b>&\\|` `` | `string` | \\<script\\>\\| |\n")) << page;
}

TEST(ToolGen, LargeAndDeepTemplatesCostNeitherStackNorTime) {
    std::string deep;
    constexpr int levels = 500;
    for (int i = 0; i < levels; ++i) {
        deep += "[1]a:object(__class__(C" + std::to_string(i) + ")";
    }
    std::string wide;
    for (int i = 0; i < 30; ++i) {
        std::string const next = "C" + std::to_string(i + 1);
        wide += "C:object(__class__(C" + std::to_string(i) + ")[1]a:" + next + "() [2]b:" + next +
                "() [3]c:list{" + next + "}())\n";
    }
    ToolRig const rig(TAV_TOOL);
    rig.file("deep.pml", "T:object(__class__(T)" + deep + "[1]b:int32()" + std::string(levels, ')') + ")");
    rig.file("wide.pml", wide + "C:object(__class__(C30)[1]a:int32())");
    for (std::string const what : {"cpp", "html", "markdown", "python", "schema"}) {
        for (std::string const file : {"deep.pml", "wide.pml"}) {
            ToolRun const run =
                rig.shell("timeout 60 $TAV gen " + what + " " + file + " | tail -c 1 | wc -l");
            EXPECT_EQ(run.out, "1\n") << what << " " << file << run.err;
            EXPECT_EQ(run.err, "") << what << " " << file;
        }
    }
}

TEST(ToolGen, NamespaceIsAroundAllClasses) {
    ToolRig const rig(TAV_TOOL);
    rig.file("m.pml", "M:object(__class__(M)[1]n:list{im.N}())\nN:object(__class__(im.N)[1]a:int32())");
    ToolRun const run = rig.run("gen cpp m.pml --namespace my::own");
    EXPECT_EQ(run.code, 0) << run.err;
    EXPECT_TRUE(has(run.out, "namespace my::own::im {\n")) << run.out;
    EXPECT_TRUE(has(run.out, "std::vector<::my::own::im::N> n;")) << run.out;
    EXPECT_EQ(rig.run("gen cpp m.pml --namespace my::class").code, 2);
    EXPECT_EQ(rig.run("gen cpp m.pml --namespace 1x").code, 2);
}

TEST(ToolGen, TemplateWithErrorsIsRefusedAsCheckTellsThem) {
    ToolRig const rig(TAV_TOOL);
    rig.file("m.pml", message("[1]a:int32()\n[1]b:int32()\n[3]c:stringList()"));
    rig.file("broken.pml", "M:object(");
    ToolRun const run = rig.run("gen cpp m.pml -o m.h");
    EXPECT_EQ(run.code, 1);
    EXPECT_TRUE(has(run.err, "m.pml:3:1: error: the tag 1 of b is that of the field a too [tag-twice]\n"
                             "    [1]b:int32()\n    ^\n"))
        << run.err;
    EXPECT_TRUE(has(run.err, "m.pml:4:6: error: ")) << run.err;
    EXPECT_EQ(rig.run("gen cpp broken.pml -o m.h").code, 1);
    EXPECT_NE(rig.shell("test -e m.h").code, 0) << "something was written";
    EXPECT_EQ(rig.run("gen cpp absent.pml").code, 2);
    EXPECT_EQ(rig.run("gen cpp").code, 2);
    EXPECT_EQ(rig.run("gen nonsense m.pml").code, 2);
}

TEST(ToolGen, OutputIsWrittenWholeAndOverNothingThatIsNotItsOwn) {
    ToolRig const rig(TAV_TOOL);
    rig.file("m.pml", message("[1]a:int32()"));
    rig.file("bad.pml", message("a:int32()"));
    std::string const text = rig.run("gen cpp m.pml").out;
    EXPECT_EQ(rig.run("gen cpp m.pml -o m.h").code, 0);
    EXPECT_EQ(contentOf(rig.path("m.h")), text);

    // Its own is replaced, and keeps its mode; what failed changes nothing.
    rig.shell("echo '// Generated by tav gen' >m.h; chmod 640 m.h");
    EXPECT_EQ(rig.run("gen cpp bad.pml -o m.h").code, 1);
    EXPECT_EQ(contentOf(rig.path("m.h")), "// Generated by tav gen\n");
    EXPECT_EQ(rig.run("gen cpp m.pml -o m.h").code, 0);
    EXPECT_EQ(contentOf(rig.path("m.h")), text);
    EXPECT_EQ(rig.shell("stat -c %a m.h").out, "640\n");

    // Somebody's own is not.
    rig.file("own.h", "int main() {}\n");
    ToolRun const refused = rig.run("gen cpp m.pml -o own.h");
    EXPECT_EQ(refused.code, 2);
    EXPECT_EQ(refused.err, "tav: own.h: is there, and was not generated: --force replaces it\n");
    EXPECT_EQ(contentOf(rig.path("own.h")), "int main() {}\n");
    EXPECT_EQ(rig.run("gen cpp m.pml -o own.h --force").code, 0);
    EXPECT_EQ(contentOf(rig.path("own.h")), text);

    // A link stays one.
    rig.shell("ln -s m.h link.h");
    EXPECT_EQ(rig.run("gen cpp m.pml -o link.h").code, 0);
    EXPECT_EQ(rig.shell("readlink link.h").out, "m.h\n");
    EXPECT_EQ(rig.shell("ls | grep -c '^m.h'").out, "1\n") << "a temporary file is left";
}

TEST(ToolGen, WhatCantBeWrittenIsAnErrorWithItsReason) {
    ToolRig const rig(TAV_TOOL);
    rig.file("m.pml", message("[1]a:int32()"));
    ToolRun const full = rig.run("gen cpp m.pml -o /dev/full");
    EXPECT_EQ(full.code, 2);
    EXPECT_EQ(full.err, "tav: /dev/full: can't write: No space left on device\n");
    EXPECT_EQ(rig.shell("test -c /dev/full").code, 0);
    ToolRun const out = rig.run("gen cpp m.pml >/dev/full");
    EXPECT_EQ(out.code, 2);
    EXPECT_EQ(out.err, "tav: <stdout>: can't write: No space left on device\n");
    EXPECT_EQ(rig.run("gen cpp m.pml -o .").code, 2);
    EXPECT_EQ(rig.run("gen cpp m.pml -o absent/m.h").code, 2);
    // As much as the disk has: the file that was there stays.
    rig.shell("echo '// Generated by tav gen' >m.h");
    ToolRun const limited = rig.shell("ulimit -f 0; trap '' XFSZ; $TAV gen cpp m.pml -o m.h");
    EXPECT_EQ(limited.code, 2);
    EXPECT_EQ(contentOf(rig.path("m.h")), "// Generated by tav gen\n");
    EXPECT_EQ(rig.shell("ls | grep -c '^m.h'").out, "1\n") << "a temporary file is left";
}

TEST(ToolGen, ReaderThatGoesAwayEndsIt) {
    ToolRig const rig(TAV_TOOL);
    std::string fields;
    for (int i = 1; i <= 127; ++i) {
        fields += "[" + std::to_string(i) + "]field" + std::to_string(i) + ":map{string,int32}()\n";
    }
    std::string text;
    for (int i = 0; i < 20; ++i) {
        text += "M:object(__class__(im.M" + std::to_string(i) + ")\n" + fields + ")\n";
    }
    rig.file("m.pml", text);
    ToolRun const run = rig.shell("$TAV gen cpp m.pml | head -n 1; echo ${PIPESTATUS[0]}");
    EXPECT_EQ(run.out, "// Generated by tav gen cpp from m.pml: changes here are lost.\n" +
                           std::to_string(128 + SIGPIPE) + "\n");
    EXPECT_EQ(run.err, "");
}

TEST(ToolGen, NamesThatPythonCantCarryGetOthersOrAreRefused) {
    ToolRig const rig(TAV_TOOL);
    rig.file("m.pml",
             "M:object(__class__(im.class)[1]a:enum{E}(None(0) x-y(1) conjugate(2)) [2]from:int32())\n"
             "N:object(__class__(other.N)[1]a:im.N())\nO:object(__class__(im.N)[1]a:int32())");
    ToolRun const run = rig.run("gen python m.pml");
    EXPECT_EQ(run.code, 0) << run.err;
    for (char const * const part : {"class class_(", "    None_ = 0\n    x_y = 1\n    conjugate_ = 2\n",
                                    "\"from\": int,", "class im_N(", "class other_N(", "\"a\": \"im_N\","}) {
        EXPECT_TRUE(has(run.out, part)) << part << run.out;
    }
    EXPECT_TRUE(
        has(run.err, "m.pml:1:1: warning: the class \"class\" is no name of Python: it is class_ there"))
        << run.err;
    EXPECT_EQ(rig.run("gen python m.pml --strict").code, 1);
    rig.file("m.pml", message("[1]a:enum{E}(x-y(0) x_y(1))"));
    EXPECT_EQ(rig.run("gen python m.pml").code, 1);
    EXPECT_EQ(rig.run("gen python m.pml --namespace x").code, 2);
}

TEST(ToolGen, EachKindIsKnownForItsOwnWhenItIsMadeAgain) {
    ToolRig const rig(TAV_TOOL);
    rig.file("m.pml", message("[1]a:int32()"));
    for (std::string const what : {"cpp", "html", "markdown", "python", "schema"}) {
        EXPECT_EQ(rig.run("gen " + what + " m.pml -o " + what).code, 0) << what;
        EXPECT_EQ(rig.run("gen " + what + " m.pml -o " + what).code, 0) << what;
        EXPECT_EQ(contentOf(rig.path(what)), rig.run("gen " + what + " m.pml").out) << what;
        EXPECT_EQ(rig.run("gen " + what + " m.pml >/dev/full").code, 2) << what;
    }
}

TEST(ToolGen, StandardInputIsATemplateToo) {
    ToolRig const rig(TAV_TOOL);
    ToolRun const run = rig.run("gen cpp -", message("[1]a:int32()"));
    EXPECT_EQ(run.code, 0);
    EXPECT_TRUE(has(run.out, "// Generated by tav gen cpp from template: changes here are lost.\n"));
}

} // namespace
