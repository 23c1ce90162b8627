#include "support/tool.h"

#include <gtest/gtest.h>

#include <csignal>

namespace {

using tav_test::ToolRig;
using tav_test::ToolRun;

char const * const model = "Hello:object(__class__(im.Hello)__code__(1F01)[1]user:string())\n";

TEST(ToolCommand, HelpOfEachSubcommandGoesToTheOutputAndHasExamples) {
    ToolRig const rig(TAV_TOOL);
    ToolRun const all = rig.run("--help");
    EXPECT_EQ(all.code, 0);
    EXPECT_EQ(all.err, "");
    for (std::string const command :
         {"check", "dump", "convert", "diff", "gen", "tls", "send", "request", "listen", "load", "gateway"}) {
        EXPECT_NE(all.out.find("\n  " + command + " "), std::string::npos) << command;
        ToolRun const one = rig.run(command + " --help");
        EXPECT_EQ(one.code, 0) << command;
        EXPECT_NE(one.out.find("Examples:\n# "), std::string::npos) << command;
        EXPECT_NE(one.out.find("tav " + command + " "), std::string::npos) << command;
    }
    EXPECT_EQ(all.out.find("__texts"), std::string::npos) << "the subcommand of the build is shown";
}

TEST(ToolCommand, VersionIsThatOfTheLibrary) {
    ToolRun const run = ToolRig(TAV_TOOL).run("--version");
    EXPECT_EQ(run.code, 0);
    EXPECT_EQ(run.out.substr(0, 4), "tav ");
}

TEST(ToolCommand, BadUseExitsWithTwoAndSaysWhy) {
    ToolRig const rig(TAV_TOOL);
    struct Case {
        char const * arguments;
        char const * said;
    };
    for (Case const & one :
         {Case{"", "subcommand is required"},
          Case{"nonsense", "there is no command nonsense; did you mean one of check, dump, convert, diff, "
                           "gen, tls, send, request, listen, "
                           "load, gateway?"},
          Case{"check", "TEMPLATE is required"}, Case{"dump --bad", "--bad"},
          Case{"convert --from x --to json", "--from: \"x\" is none of frames|json|nbr|pml|xml"},
          Case{"dump --class im.Hello --hex 00", "need a template"},
          Case{"convert --from json --to nbr", "--template is needed"},
          Case{"dump -t m.pml --class im.Hello --code 1F01 --hex 00", "--class excludes --code"},
          Case{"diff - -", "<stdin>: can be read once, and is named twice"},
          Case{"convert -t - --from json --to json", "<stdin>: can be read once, and is named twice"},
          Case{"convert -t - --from frames --to json", "<stdin>: can be read once, and is named twice"},
          Case{"check absent.pml", "absent.pml: can't open: No such file or directory"},
          Case{"check .", ".: can't read: Is a directory"}}) {
        ToolRun const run = rig.run(one.arguments);
        EXPECT_EQ(run.code, 2) << one.arguments;
        EXPECT_NE(run.err.find(one.said), std::string::npos) << one.arguments << ": " << run.err;
        EXPECT_EQ(run.out, "") << one.arguments;
    }
}

TEST(ToolCommand, ClassThatIsNotThereIsToldWithTheNearestOne) {
    ToolRig const rig(TAV_TOOL);
    rig.file("m.pml", model);
    ToolRun const run = rig.run("dump -t m.pml -c im.Hallo --hex 00");
    EXPECT_EQ(run.code, 2);
    EXPECT_NE(run.err.find("m.pml has no class im.Hallo; did you mean im.Hello?"), std::string::npos)
        << run.err;
    EXPECT_EQ(rig.run("dump -t m.pml --code 1F02 --hex 00").code, 2);
    EXPECT_EQ(rig.run("dump -t m.pml --code xyz --hex 00").code, 2);
}

TEST(ToolCommand, FailureIsAnObjectForWhoAskedForJson) {
    ToolRig const rig(TAV_TOOL);
    rig.file("m.pml", model);
    rig.file("bad.pml", "M:object(\n");
    for (std::string const arguments : {"diff --json m.pml bad.pml", "diff --json m.pml absent.pml",
                                        "dump --json -t bad.pml --hex 00", "tls --json localhost:1"}) {
        ToolRun const run =
            rig.shell("$TAV " + arguments +
                      " >out; code=$?; python3 -c 'import json, sys\n"
                      "all = json.load(open(\"out\"))\n"
                      "print(all[\"code\"] == int(sys.argv[1]), len(all[\"error\"]) > 9)' $code");
        EXPECT_EQ(run.out, "True True\n") << arguments << run.err;
        EXPECT_EQ(run.err.substr(0, 5), "tav: ") << arguments;
    }
    ToolRun const full = rig.run("diff --json m.pml absent.pml >/dev/full");
    EXPECT_EQ(full.code, 2);
    EXPECT_NE(full.err.find("absent.pml: can't open"), std::string::npos) << full.err;
}

TEST(ToolCommand, FullDiskIsAnErrorWithItsReason) {
    ToolRig const rig(TAV_TOOL);
    rig.file("m.pml", model);
    for (std::string const arguments :
         {"check m.pml", "dump --hex 00", "diff m.pml m.pml", "--help", "check --help"}) {
        ToolRun const run = rig.run(arguments + " >/dev/full");
        EXPECT_EQ(run.code, 2) << arguments;
        EXPECT_EQ(run.err, "tav: <stdout>: can't write: No space left on device\n") << arguments;
    }
    rig.file("j", "{\"__class__\":\"im.Hello\",\"user\":\"x\"}\n");
    EXPECT_EQ(rig.run("convert -t m.pml --from json --to json j >/dev/full").code, 2);
}

TEST(ToolCommand, ReaderThatGoesAwayEndsItAsAnyFilter) {
    ToolRig const rig(TAV_TOOL);
    rig.file("m.pml", model);
    // Also where a parent has the signal ignored.
    for (std::string const before : {"", "trap '' PIPE; "}) {
        ToolRun const run = rig.shell(
            before +
            "yes '{\"__class__\":\"im.Hello\",\"user\":\"x\"}' 2>yes.err | $TAV convert -t m.pml --from json "
            "--to json | head -n 1; echo ${PIPESTATUS[1]}");
        EXPECT_EQ(run.out,
                  "{ \"__class__\":\"im.Hello\", \"user\":\"x\" }\n" + std::to_string(128 + SIGPIPE) + "\n");
        EXPECT_EQ(run.err, "");
    }
}

TEST(ToolCommand, ColoursAreForTerminalsOrForWhoAsks) {
    ToolRig const rig(TAV_TOOL);
    EXPECT_EQ(rig.run("dump --hex 010105").out.find('\x1b'), std::string::npos);
    EXPECT_NE(rig.run("dump --hex 010105 --color always").out.find("\x1b["), std::string::npos);
    std::string const onTerminal = "script -qec \"$TAV dump --hex 010105\" /dev/null";
    if (rig.shell("command -v script").code == 0) {
        EXPECT_NE(rig.shell("env -u NO_COLOR " + onTerminal).out.find("\x1b["), std::string::npos);
        EXPECT_EQ(rig.shell("NO_COLOR=1 " + onTerminal).out.find('\x1b'), std::string::npos);
        EXPECT_EQ(rig.shell("env -u NO_COLOR script -qec \"$TAV dump --color never --hex 010105\" /dev/null")
                      .out.find('\x1b'),
                  std::string::npos);
        EXPECT_EQ(rig.shell("env -u NO_COLOR TERM=dumb " + onTerminal).out.find('\x1b'), std::string::npos);
        // The standard error is a terminal of its own.
        EXPECT_NE(rig.shell("env -u NO_COLOR script -qec \"\\$TAV dump --as nbr --hex 28 >out\" /dev/null")
                      .out.find("\x1b[31merror\x1b[0m: "),
                  std::string::npos);
    }
}

TEST(ToolCommand, WhatIsQuotedCannotMoveATerminal) {
    ToolRig const rig(TAV_TOOL);
    std::string const esc = "\x1b[31m";
    std::string const csi = "\xC2\x9B"
                            "31m";
    std::string const turn = "\xE2\x80\xAE";
    rig.file("a.pml", "M:object(__class__(im.M)__code__(1F01)\n[1]a" + esc + ":string()\n[2]b" + csi + ":Cl" +
                          turn + "()[3]c:string({.*}))");
    rig.file("b.pml", "M:object(__class__(im.M)__code__(1F01)\n[1]a" + esc + ":int32()\n[2]b" + csi + turn +
                          ":int32())");
    rig.file("j", "{\"a" + csi + "\":\"" + turn + "\",\"x" + esc + "\":1}");
    rig.file("n", "\xFF\x01(\x01\xF1\x05" + csi + "\x03\xF1\x05" + csi + "\xFF\x01)");
    for (std::string const & arguments : std::vector<std::string>{
             "check a.pml", "diff a.pml b.pml", "diff --json a.pml b.pml", "check --json a.pml",
             "dump -t a.pml -c im.M n", "dump --annotate -t a.pml -c im.M n",
             "dump --json -t a.pml -c im.M n", "dump n", "convert -t a.pml -c im.M --from json --to json j",
             "convert -t a.pml -c im.M --from nbr --to json n", "check 'absent" + csi + esc + "'",
             "nonsense" + csi}) {
        ToolRun const run = rig.run(arguments);
        for (std::string const & text : {run.out, run.err}) {
            EXPECT_EQ(text.find('\x1b'), std::string::npos) << arguments << "\n" << text;
            EXPECT_EQ(text.find("\xC2\x9B"), std::string::npos) << arguments << "\n" << text;
            EXPECT_EQ(text.find(arguments.find("json") == std::string::npos ? turn : esc), std::string::npos)
                << arguments << "\n"
                << text;
        }
    }
    EXPECT_NE(rig.run("dump -t a.pml -c im.M n").out.find("[1] a\\x1B[31m: string \"\\u009B31m\"\n"),
              std::string::npos);
}

TEST(ToolCommand, CaretStandsBelowItsCharacterWhateverIsWideAheadOfIt) {
    ToolRig const rig(TAV_TOOL);
    rig.file("wide.pml", "M:object(__class__(im.M)[1]\xE6\xBC\xA2\xE5\xAD\x97:Nx())");
    EXPECT_NE(rig.run("check wide.pml").out.find("wide.pml:1:31: error"), std::string::npos);
    EXPECT_NE(rig.run("check wide.pml").out.find("\n" + std::string(4 + 32, ' ') + "^\n"), std::string::npos);
    rig.file("marks.pml", "M:object(__class__(im.M)[1]e\xCC\x81"
                          "e\xCC\x81:Nx())");
    EXPECT_NE(rig.run("check marks.pml").out.find("\n" + std::string(4 + 30, ' ') + "^\n"),
              std::string::npos);
}

TEST(ToolCommand, CompletionOfBashKnowsCommandsOptionsAndWords) {
    ToolRig const rig(TAV_TOOL);
    ToolRun const run =
        rig.shell("$TAV __texts bash >tav && . ./tav\n"
                  "complete_() { COMP_WORDS=(tav \"$@\"); COMP_CWORD=$#; _tav; echo \"${COMPREPLY[*]}\"; }\n"
                  "complete_ c\ncomplete_ dump --an\ncomplete_ convert --from n\ncomplete_ dump --as = "
                  "fr\ncomplete_ dump --as =\ntouch found.pml\n"
                  "complete_ check fou\n");
    EXPECT_EQ(run.out, "check convert\n--annotate\nnbr\nframes\nauto frames gate nbr packet\nfound.pml\n")
        << run.err;
}

TEST(ToolCommand, CompletionOfZshHasEachOption) {
    ToolRig const rig(TAV_TOOL);
    ToolRun const run = rig.run("__texts zsh");
    EXPECT_EQ(run.code, 0);
    EXPECT_EQ(run.out.substr(0, 13), "#compdef tav\n");
    EXPECT_NE(run.out.find("'--from[the encoding of FILE]:value:(frames json nbr pml xml)'"),
              std::string::npos);
    EXPECT_NE(run.out.find("'--annotate[show each byte beside its meaning]'"), std::string::npos);
}

TEST(ToolCommand, ManPagesHaveWhatTheHelpHas) {
    ToolRig const rig(TAV_TOOL);
    EXPECT_NE(rig.run("__texts man").out.find(".BR tav\\-diff (1)"), std::string::npos);
    ToolRun const run = rig.run("__texts man convert");
    EXPECT_EQ(run.code, 0);
    EXPECT_EQ(run.out.substr(0, 17), ".TH TAV\\-CONVERT ");
    for (char const * const part :
         {".SH DESCRIPTION\n", "\\-\\-keep\\-going", ".SH EXIT STATUS\n", ".SH EXAMPLES\n"}) {
        EXPECT_NE(run.out.find(part), std::string::npos) << part;
    }
    for (char const * const heading :
         {"NAME", "SYNOPSIS", "DESCRIPTION", "OPTIONS", "EXIT STATUS", "EXAMPLES"}) {
        EXPECT_NE(run.out.find(std::string("\n.SH ") + heading + "\n"), std::string::npos) << heading;
    }
    EXPECT_NE(rig.run("__texts man diff").out.find("\n[OPTIONS] OLD NEW\n"), std::string::npos);
    EXPECT_NE(rig.run("__texts man check").out.find("\n[OPTIONS] TEMPLATE...\n"), std::string::npos);
    EXPECT_NE(run.out.find("\n[OPTIONS] [FILE]\n"), std::string::npos);
    EXPECT_EQ(rig.run("__texts man nonsense").code, 2);
}

TEST(ToolCommand, LongWorkShowsProgressOnATerminalAndNoneInAPipe) {
    ToolRig const rig(TAV_TOOL);
    if (rig.shell("command -v script").code != 0) {
        return;
    }
    rig.file("m.pml", model);
    std::string frames;
    for (int i = 0; i < 4000; ++i) {
        frames += std::string("\0\0\0\x12\0\x06\0\x1F\x01\0\0\x02\0\0\0\0\0\0\0\x03\0\0", 22);
    }
    rig.file("f", frames);
    // It is shown after a second, so that the input takes longer.
    rig.file("work", "command=$1; shift\n(cat f; sleep 1.1; cat f f f) | $TAV $command \"$@\" ");
    ToolRun const run =
        rig.shell("(cat work; echo '>out') >alone; (cat work; echo '| cat >piped') >pipe\n"
                  "for how in alone pipe; do\n"
                  "    script -qec \"bash $how dump\" /dev/null >dump.$how </dev/null &\n"
                  "    script -qec \"bash $how convert -t m.pml --envelope --from frames --to json\" "
                  "/dev/null >convert.$how </dev/null &\n"
                  "done; wait");
    EXPECT_EQ(run.code, 0);
    for (std::string const command : {"dump", "convert"}) {
        EXPECT_NE(tav_test::contentOf(rig.path(command + ".alone")).find(" MB"), std::string::npos)
            << command;
        EXPECT_EQ(tav_test::contentOf(rig.path(command + ".pipe")), "") << command;
    }
}

char const * const template_text = R"(
All:object(__class__(im.All)__code__(1F01)[1]ages:map{string,int32}())
Place:object(__class__(im.Place)[1]city:string())
Old:object(__class__(im.Old)__code__(05)[1]a:int32())
)";

/// What a run is given and what it says in its first line; `@` stands for "convert -t m.pml --from".
struct Said {
    char const * arguments;
    std::string input;
    char const * text;
    int code = 1;
};

std::vector<Said> const & texts() {
    static std::vector<Said> const all = {
        {"@ json --to json", R"({"__class__":"im.Old","a":"\u12"})",
         "1:28: error: four hexadecimal digits follow \\u\n"},
        {"@ json --to json", R"({"__class__":"im.Old","a":7:})", "1:28: error: \":\" has no place here\n"},
        {"@ json --to json", R"({"__class__":"im.Old",["a"]:7})", "1:23: error: a member needs a name\n"},
        {"@ json --to json", R"({"__class__":"im.Old","":7})", "1:23: error: a member needs a name\n"},
        {"@ json --to json", R"({"__class__":"im.Old","a"})",
         "1:23: error: this name has no value: a colon is missing\n"},
        {"@ json --to json", R"({"__class__":"im.Old","a":"\q"})",
         "1:28: error: a backslash stands ahead of one of \"\\/bfnrtu\n"},
        {"@ json --to json", "{\"__class__\":\"im.Old\",\"a\":\"x\ny\"}",
         "1:29: error: a text has no line break in JSON: its quote is missing, or \\n is\n"},
        {"@ xml --to json", "</a>", "1:1: error: no element is open that a ends\n"},
        {"@ xml --to json", "<im.Old><a>\xff</a></im.Old>", "1:12: error: what stands here is no UTF-8\n"},
        {"@ xml --to json", "x<!-- ", "1:2: error: what begins here does not end: --> is missing\n"},
        {"@ frames --to json", std::string(2, '\0'),
         "byte 2 (0x2): error: the length of a frame has 4 bytes, and 2 are there\n"},
        {"@ frames --to json", std::string("\1\0\0\0aaaa", 8),
         "byte 0 (0x0): error: a frame has at most 16777215 bytes, and not 16777216\n"},
        {"@ frames --to json", std::string("\0\0\0\5abc", 7),
         "byte 7 (0x7): error: the frame has 5 bytes, and 3 are there\n"},
        {"@ nbr --to json", "", "NBR does not tell its class: --class or --code is needed\n", 2},
        {"@ nbr --to json --code zz", "", "--code: \"zz\" is no code: up to four hexadecimal digits\n", 2},
        {"convert --from json --to nbr", "{}", "--template is needed: it has the classes of the messages\n",
         2},
        {"dump --class im.Old", "aa", "--class and --code need a template: --template FILE\n", 2},
        {"dump --in hex", "1",
         "1:2: error: a byte has two hexadecimal digits, and the input ends behind the first\n"},
        {"dump --in base64", "A",
         "1:2: error: the input ends behind the first character of a group of base64\n"},
        {"dump --in base64",
         "A=", "1:2: error: '=' ends a group of base64 that has two or three characters\n"},
        {"dump --in base64", "AA==A", "1:5: error: 'A' stands behind the padding\n"},
        {"check", "{\"a\":1}",
         "1:1: error: this looks like JSON, and is no PML: units as name:type(...) [pml]\n"},
        {"check", "  ", "1:3: error: there is no unit here: name:type(...) [pml]\n"},
        {"check", "a:", "1:3: error: a unit is name:type(...), and behind this : is nothing [pml]\n"},
        {"check", ")", "1:1: error: a ) without a ( [pml]\n"},
        {"gen html --namespace x", "", "--namespace is for cpp\n", 2},
        {"gen cpp --namespace 'a b'", "", "--namespace: \"a b\" is no identifier of C++\n", 2},
    };
    return all;
}

/// What is wrong with the options and messages of a load or a request, which is seen ahead of a connect.
std::vector<Said> const & wishes() {
    static char const * const json = R"({"__class__":"im.Old","a":1})";
    static std::vector<Said> const all = {
        {"load --size x", "", "--size: \"x\" is no number of bytes up to 16776192\n", 2},
        {"load --size 9-3", "", "--size: \"9-3\" ends before it begins\n", 2},
        {"load --size 3 --code zz", "", "--code: \"zz\" is no code: up to four hexadecimal digits\n", 2},
        {"load --size 3 --push", "",
         "--push: one client has no others that messages are passed on to: --clients\n", 2},
        {"load -t m.pml --reply-code zz", json,
         "--reply-code: \"zz\" is no code: up to four hexadecimal digits\n", 2},
        {"load -t m.pml", R"({"__class__":"im.Place","city":"x"})",
         "1:1: error: its class has no code to be sent by\n"},
        {"load -t m.pml", "", "there is no message to be sent\n"},
        {"request -t m.pml --reply-code zz", json,
         "--reply-code: \"zz\" is no code: up to four hexadecimal digits\n", 2},
        {"request -t m.pml --reply im.Place", json, "--reply: the class im.Place has no code\n", 2},
        {"tls --cert /dev/null", "", "/dev/null: no certificate can be read: ", 2},
        {"tls --ca /dev/null", "", "/dev/null: no certificates can be read: ", 2},
    };
    return all;
}

std::vector<Said> const & rules() {
    static std::vector<Said> const all = {
        {"", "[1]", R"(1:2: error: a rule is an object: { "class": ..., "do": [ ... ] })"},
        {"", R"([{"class":"im.Old","do":"drop"}])",
         R"(1:25: error: a rule has a list of steps: "do": [ "drop" ])"},
        {"", R"([{"class":"im.Old","what":1,"do":["drop"]}])",
         "1:20: error: a rule has no member what: it has code, class, fields, skip, times and do"},
        {"", R"([{"class":"im.Old","code":"05","do":["drop"]}])",
         "1:3: error: a rule has a code or a class, and not both"},
        {"", R"([{"class":"im.Place","do":["drop"]}])",
         "1:11: error: the class im.Place has no code, so that no packet is one"},
        {"", R"([{"class":"im.Old","fields":1,"do":["drop"]}])",
         R"(1:29: error: fields are an object: { "room": "hall" })"},
        {"", R"([{"code":"0777","fields":{"a":1},"do":["drop"]}])",
         "1:17: error: fields need a class, or a code that a class of the template has"},
        {"", R"([{"class":"im.Old","do":[{"delay":1,"push":2}]}])",
         R"(1:26: error: a step has one member: { "delay": 100 })"},
        {"", R"([{"class":"im.Old","do":[{"push":2}]}])",
         R"(1:34: error: push is a message: { "__class__": "chat.Said", ... })"},
        {"", "\xEF\xBB\xBF[]", "1:1: error: the file begins with a byte order mark, which JSON has not"},
        {"", R"([{"class":"im.Old","do":[{"push":{"__class__":"im.Place","city":"x"}}]}])",
         "1:34: error: the class im.Place has no code to be sent by"},
    };
    return all;
}

void expectSaid(ToolRun const & run, std::string const & what, Said const & one, int code) {
    EXPECT_EQ(run.code, code) << what << '\n' << run.err;
    EXPECT_NE((run.out + run.err).find(one.text), std::string::npos)
        << what << " says " << run.out << run.err;
}

TEST(ToolCommand, WhatIsWrongWithAnInputIsSaidInWords) {
    ToolRig const rig(TAV_TOOL);
    rig.file("m.pml", template_text);
    for (Said const & one : texts()) {
        std::string arguments = one.arguments;
        arguments = arguments[0] == '@' ? "convert -t m.pml --from" + arguments.substr(1) : arguments;
        arguments += arguments.rfind("gen ", 0) == 0 ? " m.pml" : " -";
        expectSaid(rig.run(arguments, one.input), arguments, one, one.code);
    }
}

TEST(ToolCommand, WhatIsWrongWithALoadOrARequestIsSaidAheadOfTheConnect) {
    ToolRig const rig(TAV_TOOL);
    rig.file("m.pml", template_text);
    for (Said const & one : wishes()) {
        std::string arguments = one.arguments;
        arguments += arguments.rfind("tls ", 0) == 0 ? " 127.0.0.1:1" : " --insecure 127.0.0.1:1";
        expectSaid(rig.run(arguments, one.input), arguments, one, one.code);
    }
    Said const nowhere{"", "", "\"nonsense\" is not HOST:PORT, nor [ADDRESS]:PORT\n"};
    expectSaid(rig.run("load --insecure nonsense --size 3"), "nonsense", nowhere, 2);
}

TEST(ToolCommand, WhatIsWrongWithARuleIsSaidAheadOfTheStart) {
    ToolRig const rig(TAV_TOOL);
    rig.file("m.pml", template_text);
    for (Said const & one : rules()) {
        rig.file("r.json", one.input);
        expectSaid(rig.run("gateway --template m.pml --rules r.json"), one.input, one, 2);
    }
}

} // namespace
