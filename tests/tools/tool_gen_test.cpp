#include "support/tool.h"

#include <gtest/gtest.h>

#include <sys/stat.h>

#include <csignal>

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
          Case{"errno", "errno_", "may be a macro"},
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

TEST(ToolGen, StandardInputIsATemplateToo) {
    ToolRig const rig(TAV_TOOL);
    ToolRun const run = rig.run("gen cpp -", message("[1]a:int32()"));
    EXPECT_EQ(run.code, 0);
    EXPECT_TRUE(has(run.out, "// Generated by tav gen cpp from template: changes here are lost.\n"));
}

} // namespace
