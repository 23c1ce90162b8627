#include "support/tool.h"
#include "tools/failure.h"
#include "tools/template_check.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <set>

namespace {

using tav::tool::Finding;
using tav_test::ToolRig;
using tav_test::ToolRun;

/// A template with one mistake: the rule that it breaks, and where.
struct Wrong {
    char const * rule;
    bool error;
    std::size_t line;
    std::size_t column;
    std::string text;
};

/// A message with these fields.
std::string message(std::string const & fields) {
    return "M:object(__class__(im.M)__code__(1F01)\n" + fields + "\n)\n";
}

std::vector<Wrong> const wrongs = {
    {"pml", true, 1, 9, message("[1]a:int32(")},
    {"pml", true, 4, 1, message("[1]a:int32()") + ")"},
    {"pml", true, 2, 4, message("[1]\"a:int32()")},
    {"pml", true, 2, 1, message("(* a [1]a:int32()")},
    {"pml", true, 1, 1, "{\"a\":1}"},
    {"empty", false, 1, 1, ""},
    {"dropped", false, 1, 1, "a(b(1))"},
    {"dropped", false, 3, 1, message("[1]a:int32()\n[2]b")},
    {"class-twice", true, 4, 1, message("[1]a:int32()") + "N:object(__class__(im.M)[1]a:int32())"},
    {"code-twice", true, 4, 34,
     message("[1]a:int32()") + "N:object(__class__(im.N)__code__(0x1f01)[1]a:int32())"},
    {"code", true, 1, 34, "M:object(__class__(im.M)__code__(1F0G)[1]a:int32())"},
    {"code", true, 1, 34, "M:object(__class__(im.M)__code__(12345)[1]a:int32())"},
    {"code", false, 1, 34, "M:object(__class__(im.M)__code__(FFFF)[1]a:int32())"},
    {"class-name", false, 1, 1, "M:object(__class__(interface)__code__(1F01)[1]a:int32())"},
    {"directive", false, 2, 1, message("__code(1)[1]a:int32()").replace(39, 6, "__codes")},
    {"tag-twice", true, 3, 1, message("[1]a:int32()\n[1]b:int32()")},
    {"tag-twice", true, 4, 51,
     message("[1]a:int32()") + "N:object(__class__(im.N)__super__(im.M)__code__(2)[1]b:int32())"},
    {"field-twice", true, 3, 1, message("[1]a:int32()\n[2]a:int32()")},
    {"no-tag", true, 2, 1, message("a:int32()")},
    {"no-tag", true, 2, 1, message("[x]a:int32()")},
    {"no-tag", true, 2, 1, message("_super_(im.M)[1]a:int32()")},
    {"no-tag", true, 2, 13, message("[1]a:int32();[2]b:int32()")},
    {"tag-range", true, 2, 1, message("[128]a:int32()")},
    {"tag-range", true, 2, 1, message("[-1]a:int32()")},
    {"field-name", true, 2, 1, message("[1]:int32()")},
    {"field-name", true, 2, 1, message("[1]__class__:string()")},
    {"field-name", true, 2, 1, message("[1]a\\b:int32()")},
    {"field-name", true, 2, 1, message("[1]a\xFF:int32()")},
    {"unknown-type", true, 2, 6, message("[1]a:stringList()")},
    {"unknown-type", true, 2, 6, message("[1]a:list{int32x}()")},
    {"unknown-type", true, 2, 6, message("[1]a:list()")},
    {"unknown-type", true, 2, 6, message("[1]a:list(string)")},
    {"unknown-type", true, 2, 6, message("[1]a:map{}()")},
    {"unknown-type", true, 2, 6, message("[1]a:object()")},
    {"unknown-type", true, 2, 6, message("[1]a:enum(x(0))")},
    {"unknown-type", true, 2, 6, message("[1]a:list{list{int32}}()")},
    {"unknown-type", true, 2, 6, message("[1]a:map{string}()")},
    {"unknown-class", true, 2, 6, message("[1]a:im.N()")},
    {"unknown-class", true, 2, 6, message("[1]a:list{im.N}()")},
    {"unknown-class", true, 2, 6, message("[1]a:map{string,im.N}()")},
    {"unknown-class", true, 2, 11, message("__super__(im.N)[1]a:int32()")},
    {"base-of-itself", true, 2, 11, message("__super__(im.M)[1]a:int32()")},
    {"unseen-class", true, 4, 1,
     message("[1]a:object(__class__(im.N)[1]b:int32())") +
         "O:object(__class__(im.O)__super__(im.M)__code__(2)[2]c:int32())"},
    {"map-key", true, 2, 6, message("[1]a:map{int32,string}()")},
    {"enum-empty", true, 2, 6, message("[1]a:enum{E}()")},
    {"enum-number", true, 2, 21, message("[1]a:enum{E}(x(0) y(z))").replace(0, 0, "")},
    {"enum-number", false, 2, 21, message("[1]a:enum{E}(x(0) y(0))")},
    {"enum-member", true, 2, 19, message("[1]a:enum{E}(x(0) x(1))")},
    {"enum-member", true, 2, 14, message("[1]a:enum{E}([1]x(0))")},
    {"enum-member", false, 2, 16, message("[1]a:enum{E}(x:int32(0))")},
    {"default", false, 2, 26, message("[1]a:enum{E}(__default__(z) x(0))")},
    {"default", false, 2, 12, message("[1]a:int32(18{0..9})")},
    {"bool", false, 2, 12, message("[1]a:int32(true)")},
    {"protected", false, 2, 12, message("[1]a:int32({***})")},
    {"protected", true, 2, 13, message("[1]a:string({**})")},
    {"protected", true, 2, 13, message("[1]a:string({***)")},
    {"range", true, 2, 12, message("[1]a:int32(1{9..0})")},
    {"range", true, 2, 12, message("[1]a:int32(1{a})")},
    {"range", true, 2, 12, message("[1]a:int32(1{0x1..0x10})")},
    {"protected", true, 2, 13, message("[1]a:string(abc{***})")},
    {"protected", true, 2, 13, message("[1]a:string(abc{..**})")},
    {"default", false, 2, 11, message("[1]a:int8(200)")},
    {"default", false, 2, 13, message("[1]a:uint32(-1)")},
    {"default", false, 2, 13, message("[1]a:double(1.5.5)")},
    {"directive", false, 2, 14, message("[1]a:enum{E}(__x(2) b(1))")},
    {"range", true, 2, 13, message("[1]a:uint64(5{0..18446744073709551615})")},
    {"range", false, 2, 12, message("[1]a:uint8({0..999})")},
    {"range", false, 2, 12, message("[1]a:uint8({-5..9})")},
    {"range", true, 2, 12, message("[1]a:int32(1{0..9)")},
    {"range", false, 2, 13, message("[1]a:string(x{0..9})")},
    {"generators-only", false, 2, 6, message("[1]a:char()")},
    {"generators-only", false, 2, 6, message("[1]a:int32[4]()")},
    {"unreachable", false, 4, 1, message("[1]a:int32()") + "N:object(__class__(im.N)[1]a:int32())"},
};

TEST(ToolCheck, EachMistakeIsFoundWhereItStandsAndNothingElseIs) {
    for (Wrong const & wrong : wrongs) {
        std::vector<Finding> const findings = tav::tool::checkTemplate(wrong.text);
        EXPECT_EQ(findings.size(), 1u) << wrong.rule << ":\n"
                                       << wrong.text << (findings.empty() ? "none" : findings.back().text);
        if (findings.empty()) {
            continue;
        }
        tav::tool::TextPlace const place = tav::tool::placeOf(wrong.text, findings[0].offset);
        EXPECT_EQ(findings[0].rule, wrong.rule) << wrong.text << findings[0].text;
        EXPECT_EQ(findings[0].error, wrong.error) << wrong.text;
        EXPECT_EQ(place.line, wrong.line) << wrong.text << findings[0].text;
        EXPECT_EQ(place.column, wrong.column) << wrong.text << findings[0].text;
    }
}

TEST(ToolCheck, TextNamesTheMistakeAndWhatMayHaveBeenMeant) {
    struct Case {
        std::string text;
        char const * said;
    };
    for (Case const & one : {
             Case{message("[1]a\"b:int32()"), "this quote has no end"},
             Case{message("(* [1]a:int32()"), "this comment has no end: *)"},
             Case{message("[1]a:int32("), "this ( has no )"},
             Case{"hello", "a unit is name:type(...), and this one has no ("},
             Case{"{\"a\":1}", "this looks like JSON"},
             Case{"<a>b</a>", "this looks like XML"},
             Case{"\xFF\xFEM", "this looks like UTF-16"},
             Case{message("[1]a:list()"), "a list names its elements: list{string}"},
             Case{message("[1]a:map{}()"), "map{string,int32}"},
             Case{message("[1]a:optional{}()"), "optional{int32}"},
             Case{message("[1]a:enum(x(0))"), "an enum of a field has a name: enum{Name}"},
             Case{message("[1]a:strng()"), "there is no class strng; did you mean string?"},
             Case{message("[1]a:im.Mm()"), "there is no class im.Mm; did you mean im.M?"},
             Case{message("[1]a:int32x()"),
                  "there is no type \"int32x\": it is read as int32; did you mean int32?"},
             Case{message("[1]a:E()") + "E:enum(x(0))",
                  "E is an enum: a field that has one lists its members"},
             Case{message("_code_(1)"), "the field _code_ has no tag; did you mean __code__?"},
             Case{message("[1]a:int32()// b"), "\"// b\" is no unit, and is passed over"},
             Case{message("// b\n[1]a:int32()"), "comments are (* these *)"},
         }) {
        std::vector<Finding> const findings = tav::tool::checkTemplate(one.text);
        ASSERT_FALSE(findings.empty()) << one.text;
        EXPECT_NE(findings[0].text.find(one.said), std::string::npos) << one.text << findings[0].text;
    }
}

TEST(ToolCheck, ClassThatIsItsOwnBaseIsToldOnceForEachOfTheCircle) {
    std::vector<Finding> const findings =
        tav::tool::checkTemplate("A:object(__class__(A)__super__(B)__code__(1)[1]a:string())\n"
                                 "B:object(__class__(B)__super__(A)__code__(2)[1]a:string())");
    ASSERT_EQ(findings.size(), 2u);
    EXPECT_EQ(findings[0].rule, "base-of-itself");
    EXPECT_EQ(findings[1].rule, "base-of-itself");
}

TEST(ToolCheck, NoRuleIsWithoutAMistakeThatBreaksIt) {
    std::set<std::string> broken;
    for (Wrong const & wrong : wrongs) {
        broken.insert(wrong.rule);
    }
    std::vector<std::string> const & rules = tav::tool::checkRules();
    EXPECT_EQ(broken, std::set<std::string>(rules.begin(), rules.end()));
}

TEST(ToolCheck, TemplateWithAllThatIsGoodHasNothingWrong) {
    EXPECT_TRUE(tav::tool::checkTemplate(R"(
        __global__:object(x(1))
        Hello:object(
            __class__(im.Hello) __code__(1F01) __import__(a.b) __import__(a.c)
            [1]user:string() [2]seq:int64?() [3]tags:list{string}()
            [4]mood:enum{Mood}(__default__(good) good(0) bad(-1))
            [5]secret:string?({***}) [6]place:object(__class__(im.Place)[1]city:string())
            [7]ages:map{string,int32}() [8]others:map{int64,im.Place}() [9]on:bool(true)
            [10]age:int32(18{0..150}) [11]at:time() [12]raw:bytes() [13]self:list{im.Hello}()
            [14]moods:list{Mood}(m:enum{Mood}(good(0) bad(1))) [15]n:optional{int32}() [16]s:Long()
        )
        Loud:object(__class__(im.Loud)__super__(im.Base)[1]x:double())
        Base:object(__class__(im.Base)[2]y:float())
        Top:object(__class__(im.Top)__code__(12)[1]l:im.Loud())
    )")
                    .empty());
}

TEST(ToolCheck, ErrorsMakeTheExitCodeAndWarningsOnlyIfStrict) {
    ToolRig const rig(TAV_TOOL);
    rig.file("good.pml", message("[1]a:int32()"));
    rig.file("warns.pml", message("[1]a:int32(true)"));
    rig.file("fails.pml", message("a:int32()"));
    EXPECT_EQ(rig.run("check good.pml").code, 0);
    EXPECT_EQ(rig.run("check good.pml").out, "0 errors, 0 warnings\n");
    EXPECT_EQ(rig.run("check warns.pml").code, 0);
    EXPECT_EQ(rig.run("check --strict warns.pml").code, 1);
    EXPECT_EQ(rig.run("check good.pml fails.pml").code, 1);
    EXPECT_EQ(rig.run("check -", message("a:int32()")).out,
              "<stdin>:2:1: error: the field a has no tag: [1]a [no-tag]\n    a:int32()\n    ^\n1 error, 0 "
              "warnings\n");
}

TEST(ToolCheck, JsonHasAllThatTheTextHas) {
    ToolRig const rig(TAV_TOOL);
    rig.file("t.pml", message("a:int32()"));
    EXPECT_EQ(rig.run("check --json t.pml").out,
              "{\"findings\":[{\"file\":\"t.pml\",\"line\":2,\"column\":1,\"offset\":39,\"severity\":"
              "\"error\",\"rule\":"
              "\"no-tag\",\"text\":\"the field a has no tag: [1]a\"}],\"errors\":1,\"warnings\":0}\n");
}

TEST(ToolCheck, DepthCostsNoStack) {
    std::string deep;
    constexpr int levels = 20000;
    for (int i = 0; i < levels; ++i) {
        deep += "[1]a:object(__class__(C)";
    }
    deep += "[1]b:int32()" + std::string(levels, ')');
    EXPECT_TRUE(tav::tool::checkTemplate("T:object(__class__(T)" + deep + ")").empty());
}

TEST(ToolCheck, FileThatIsNotThereIsAFindingBesideTheOthers) {
    ToolRig const rig(TAV_TOOL);
    rig.file("t.pml", message("a:int32()"));
    ToolRun const run =
        rig.shell("$TAV check --json absent.pml t.pml >out; echo $?; python3 -c 'import json\n"
                  "all = json.load(open(\"out\"))\n"
                  "print([f[\"rule\"] for f in all[\"findings\"]], all[\"errors\"])'");
    EXPECT_EQ(run.out, "2\n['file', 'no-tag'] 2\n") << run.err;
    EXPECT_NE(run.err.find("absent.pml: can't open"), std::string::npos) << run.err;
}

TEST(ToolCheck, ProgressGoesFromTheBeginToTheEndOfTheText) {
    std::string text;
    for (int i = 0; i < 100; ++i) {
        text += "C" + std::to_string(i) + ":object(__class__(C" + std::to_string(i) + ")[1]a:int32())\n";
    }
    std::vector<std::size_t> told;
    tav::tool::checkTemplate(text, [&](std::size_t done, std::size_t size) {
        EXPECT_EQ(size, text.size());
        told.push_back(done);
    });
    ASSERT_GE(told.size(), 300u);
    EXPECT_TRUE(std::is_sorted(told.begin(), told.end()));
    EXPECT_LT(told.front(), text.size() / 50);
    EXPECT_GT(told.back(), text.size() - text.size() / 50);
    EXPECT_LE(told.back(), text.size());
}

} // namespace
