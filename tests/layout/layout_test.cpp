#include "layout/function_lines.h"
#include "layout/include_rules.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cctype>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <regex>
#include <set>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

using layout::brokenRules;
using layout::File;
using layout::readTree;

namespace {

using Lines = std::vector<std::string>;

Lines brokenBy(std::string const & path, std::string const & text) {
    return brokenRules({File{path, text}});
}

/// Lower case, without underscores.
std::string plain(std::string const & name) {
    std::string out;
    for (char const c : name) {
        if (c != '_') {
            out += static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
        }
    }
    return out;
}

} // namespace

TEST(Layout, TheTreeKeepsEveryRule) {
    std::vector<File> const files = readTree(TAV_SOURCE_DIR);
    ASSERT_GT(files.size(), 100U);
    for (std::string const & line : brokenRules(files)) {
        ADD_FAILURE() << line;
    }
}

TEST(Layout, SuitesAreNamedAfterTheirFile) {
    std::regex const suite("(^|\n)(TYPED_)?TEST(_F|_P)?\\((\\w+),");
    unsigned files = 0;
    for (auto const & entry : std::filesystem::recursive_directory_iterator(TAV_SOURCE_DIR "/tests")) {
        std::string const name = entry.path().filename().string();
        std::string const ending = "_test.cpp";
        if (name.size() <= ending.size() || name.substr(name.size() - ending.size()) != ending) {
            continue;
        }
        ++files;
        std::string const stem = plain(name.substr(0, name.size() - ending.size()));
        std::ifstream in(entry.path(), std::ios::binary);
        std::string const text(std::istreambuf_iterator<char>(in), {});
        for (std::sregex_iterator each(text.begin(), text.end(), suite), end; each != end; ++each) {
            EXPECT_NE(plain((*each)[4]).find(stem), std::string::npos) << name << ": " << (*each)[4];
        }
    }
    EXPECT_GT(files, 100u);
}

TEST(Layout, NoFunctionIsLongerThanSixtyLines) {
    unsigned functions = 0;
    for (char const * const top :
         {"include", "src", "tools", "bindings", "gateway", "examples", "tests", "bench", "fuzz"}) {
        for (auto const & entry :
             std::filesystem::recursive_directory_iterator(std::filesystem::path(TAV_SOURCE_DIR) / top)) {
            std::string const ending = entry.path().extension().string();
            if (ending != ".cpp" && ending != ".h" && ending != ".c") {
                continue;
            }
            std::ostringstream text;
            text << std::ifstream(entry.path(), std::ios::binary).rdbuf();
            for (layout::Function const & each : layout::functionsOf(text.str())) {
                ++functions;
                EXPECT_LE(each.length, 60u) << entry.path().string() << ":" << each.line;
            }
        }
    }
    EXPECT_GT(functions, 5000u);
}

TEST(Layout, HeaderHasAGuardOfItsOwn) {
    std::regex const guard("(^|\n)#ifndef (\\w+)\n#define \\2\n");
    std::set<std::string> names;
    std::size_t headers = 0;
    for (char const * const top :
         {"include", "src", "tools", "bindings", "gateway", "examples", "tests", "bench", "fuzz"}) {
        for (auto const & entry :
             std::filesystem::recursive_directory_iterator(std::filesystem::path(TAV_SOURCE_DIR) / top)) {
            if (entry.path().extension() != ".h") {
                continue;
            }
            std::ostringstream text;
            text << std::ifstream(entry.path(), std::ios::binary).rdbuf();
            std::string const source = text.str();
            std::smatch found;
            std::regex_search(source, found, guard);
            EXPECT_TRUE(!found.empty() && names.insert(found[2]).second) << entry.path().string();
            ++headers;
        }
    }
    EXPECT_GT(headers, 150u);
}

TEST(Layout, LinesOfAFunctionLieBetweenItsBraces) {
    std::string const source = "namespace a {\n"
                               "class b : public c {\n"
                               "    b(int v) : v_{v}, w_(2) {\n"
                               "        // }\n"
                               "        call([] {\n"
                               "            return \"}\";\n"
                               "        });\n"
                               "    }\n"
                               "    int v_ = f({1,\n"
                               "                2});\n"
                               "};\n"
                               "}\n"
                               "#define M {\n"
                               "TEST(D, E) {\n"
                               "    wchar_t const c = L'{' + 1'000;\n"
                               "    char const * const d = R\"x(})\"{)x\";\n"
                               "}\n"
                               "void f() {}\n";
    std::vector<layout::Function> const all = layout::functionsOf(source);
    std::vector<std::pair<unsigned, unsigned>> lengths;
    for (layout::Function const & each : all) {
        lengths.emplace_back(each.line, each.length);
    }
    using Pairs = std::vector<std::pair<unsigned, unsigned>>;
    EXPECT_EQ(lengths, (Pairs{{3, 0}, {3, 4}, {9, 0}, {14, 2}, {18, 0}}));
}

TEST(Layout, LowerFolderMayNotIncludeAHigherOne) {
    EXPECT_EQ(brokenBy("src/foundation/a.cpp", "\n#include \"runtime/thread_manager.h\"\n"),
              Lines{"src/foundation/a.cpp:2: foundation may not include runtime: runtime/thread_manager.h"});
    EXPECT_EQ(brokenBy("src/object/a.cpp", "#include \"tav/vinta/vinta_pml_meta.h\"\n"),
              Lines{"src/object/a.cpp:1: object may not include model: tav/vinta/vinta_pml_meta.h"});
    EXPECT_EQ(brokenBy("src/client/a.h", "#include \"tav/vinta/vinta_json_tree.h\"\n"),
              Lines{"src/client/a.h:1: client may not include formats/json: tav/vinta/vinta_json_tree.h"});
    EXPECT_EQ(brokenBy("src/runtime/a.h", "#include \"tav/vinta/vinta_log.h\"\n"), Lines{});
}

TEST(Layout, FuzzTargetsAreReadAndLookIntoTheLibraryAlone) {
    std::vector<File> const files = readTree(TAV_SOURCE_DIR);
    EXPECT_TRUE(std::any_of(files.begin(), files.end(),
                            [](File const & each) { return each.path == "fuzz/fuzz.cpp"; }));
    EXPECT_EQ(brokenBy("fuzz/a.cpp", "#include \"client/send_table.h\"\n#include \"support/exact.h\"\n"),
              Lines{});
    EXPECT_EQ(brokenBy("fuzz/targets/a.cpp", "#include <asio.hpp>\n"),
              Lines{"fuzz/targets/a.cpp:1: fuzz stands on the library, not on what is under it: asio.hpp"});
    EXPECT_EQ(brokenBy("fuzz/a.cpp", "#include \"gateway/gateway_core.h\"\n"),
              Lines{"fuzz/a.cpp:1: fuzz stands on the library, not beside it: gateway/gateway_core.h"});
}

TEST(Layout, FormatsDoNotKnowEachOther) {
    EXPECT_EQ(brokenBy("src/formats/xml/a.cpp", "#include \"formats/json/json_text.h\"\n"),
              Lines{"src/formats/xml/a.cpp:1: formats/xml may not include formats/json: "
                    "formats/json/json_text.h"});
}

TEST(Layout, PublicHeaderKeepsTheTableToo) {
    EXPECT_EQ(brokenBy("include/tav/vinta/vinta_locks.h", "#include <tav/vinta/vinta_mt_thread.h>\n"),
              Lines{"include/tav/vinta/vinta_locks.h:1: foundation may not include runtime: "
                    "tav/vinta/vinta_mt_thread.h"});
}

TEST(Layout, PublicHeaderIncludesNothingInternal) {
    EXPECT_EQ(brokenBy("include/tav/vinta/vinta_im_pkt.h", "#include \"foundation/views.h\"\n"),
              Lines{"include/tav/vinta/vinta_im_pkt.h:1: a public header may not include what is internal: "
                    "foundation/views.h"});
}

TEST(Layout, PublicHeaderHasARow) {
    EXPECT_EQ(brokenBy("include/tav/vinta/vinta_new.h", ""),
              Lines{"include/tav/vinta/vinta_new.h:1: a public header without a row in the table"});
    EXPECT_EQ(brokenBy("gateway/a.cpp", "#include <tav/vinta/vinta_new.h>\n"),
              Lines{"gateway/a.cpp:1: a public header without a row in the table: tav/vinta/vinta_new.h"});
}

TEST(Layout, FolderHasARow) {
    EXPECT_EQ(brokenBy("src/other/a.cpp", ""),
              Lines{"src/other/a.cpp:1: a folder without a row in the table"});
}

TEST(Layout, NoTwoHeadersIncludeEachOther) {
    std::vector<File> const files = {{"src/log/a.h", "#include \"log/b.h\"\n"},
                                     {"src/log/b.h", "#include \"log/c.h\"\n"},
                                     {"src/log/c.h", "#include \"log/a.h\"\n"}};
    EXPECT_EQ(brokenRules(files), (Lines{"src/log/a.h:1: headers that include each other: log/b.h",
                                         "src/log/b.h:1: headers that include each other: log/c.h",
                                         "src/log/c.h:1: headers that include each other: log/a.h"}));
}

TEST(Layout, NoSourceIncludesAnUmbrella) {
    for (std::string const name : {"vinta.h", "vinta_c.h", "vinta_basetypes.h"}) {
        EXPECT_EQ(brokenBy("src/client/a.cpp", "#include <tav/vinta/" + name + ">\n"),
                  Lines{"src/client/a.cpp:1: an umbrella header is for users: tav/vinta/" + name});
    }
    EXPECT_EQ(brokenBy("include/tav/kit/a.h", "#include \"tav/vinta/vinta.h\"\n"),
              Lines{"include/tav/kit/a.h:1: an umbrella header is for users: tav/vinta/vinta.h"});
    EXPECT_EQ(brokenBy("include/tav/vinta/vinta.h", "#include \"tav/vinta/vinta_basetypes.h\"\n"), Lines{});
}

TEST(Layout, AsioAndOpenSslAreForTheClientOnly) {
    EXPECT_EQ(brokenBy("src/packet/a.cpp", "# include <openssl/ssl.h>\n"),
              Lines{"src/packet/a.cpp:1: asio and OpenSSL are for src/client only: openssl/ssl.h"});
    EXPECT_EQ(brokenBy("include/tav/vinta/vinta_tls_client.h", "#include <asio/ip/tcp.hpp>\n"),
              Lines{"include/tav/vinta/vinta_tls_client.h:1: asio and OpenSSL are for src/client only: "
                    "asio/ip/tcp.hpp"});
    EXPECT_EQ(brokenBy("src/client/a.cpp", "#include <asio.hpp>\n"), Lines{});
}

TEST(Layout, SystemsDifferBehindOneHeader) {
    EXPECT_EQ(brokenBy("src/log/a.cpp", "#include <string>\n#include <sys/stat.h>\n"),
              Lines{"src/log/a.cpp:2: systems differ behind foundation/platform.h only: sys/stat.h"});
    EXPECT_EQ(brokenBy("include/tav/vinta/vinta_locks.h", "#include <pthread.h>\n"),
              Lines{"include/tav/vinta/vinta_locks.h:1: systems differ behind foundation/platform.h only: "
                    "pthread.h"});
    EXPECT_EQ(brokenBy("src/runtime/a.cpp", "\n#ifdef _WIN32\n#endif\n"),
              Lines{"src/runtime/a.cpp:2: systems differ behind foundation/platform.h only: _WIN32"});
    EXPECT_EQ(brokenBy("src/log/a.cpp", "#include <sys/stat.hpp>\n#ifdef __FreeBSD__\n#endif\n"),
              (Lines{"src/log/a.cpp:2: systems differ behind foundation/platform.h only: __FreeBSD__",
                     "src/log/a.cpp:1: systems differ behind foundation/platform.h only: sys/stat.hpp"}));
    EXPECT_EQ(brokenBy("src/foundation/platform_other.cpp", "#ifdef __linux__\n#include <poll.h>\n#endif\n"),
              Lines{});
    EXPECT_EQ(brokenBy("gateway/a.cpp", "#include <fcntl.h>\n"), Lines{});
    EXPECT_EQ(brokenBy("include/tav/vinta/vinta_log_c.h", "#include <stddef.h>\n"), Lines{});
}

TEST(Layout, WhatStandsBesideUsesPublicHeadersAlone) {
    for (std::string const folder : {"tools", "bindings", "gateway", "examples", "bench"}) {
        EXPECT_EQ(
            brokenBy(folder + "/a.cpp", "#include \"foundation/views.h\"\n"),
            Lines{folder + "/a.cpp:1: " + folder + " stands on public headers alone: foundation/views.h"});
    }
    EXPECT_EQ(brokenBy("include/tav/kit/a.h", "#include <tav/vinta/vinta_object.h>\n"), Lines{});
    EXPECT_EQ(
        brokenBy("include/tav/kit/a.h", "#include \"client/session.h\"\n"),
        Lines{"include/tav/kit/a.h:1: a public header may not include what is internal: client/session.h"});
    for (std::string const path : {"src/client/a.h", "include/tav/vinta/vinta.h"}) {
        EXPECT_EQ(brokenBy(path, "#include <tav/kit/a.h>\n"),
                  Lines{path + ":1: the library knows nothing of the kit: tav/kit/a.h"});
    }
}

TEST(Layout, WhatStandsBesideUsesNothingOfAnother) {
    for (std::string const name :
         {"examples/chat/text.h", "bindings/c/json.h", "support/pki.h", "tests/support/pki.h"}) {
        EXPECT_EQ(brokenBy("tools/a.cpp", "#include \"" + name + "\"\n"),
                  Lines{"tools/a.cpp:1: tools stands on public headers alone: " + name});
    }
    EXPECT_EQ(brokenBy("bindings/c/a.cpp", "#include \"tools/json_judge.h\"\n"),
              Lines{"bindings/c/a.cpp:1: bindings stands on public headers alone: tools/json_judge.h"});
    for (std::string const name : {"asio.hpp", "openssl/ssl.h"}) {
        EXPECT_EQ(brokenBy("bindings/c/a.cpp", "#include <" + name + ">\n"),
                  Lines{"bindings/c/a.cpp:1: bindings stands on public headers alone: " + name});
        EXPECT_EQ(brokenBy("examples/a.cpp", "#include <" + name + ">\n"),
                  Lines{"examples/a.cpp:1: examples stands on public headers alone: " + name});
    }
    EXPECT_EQ(brokenBy("bench/a.cpp", "#include \"gateway/certificates.h\"\n#include <asio.hpp>\n"), Lines{});
    EXPECT_EQ(brokenBy("tools/a.cpp", "#include \"gateway/gateway_core.h\"\n#include <openssl/ssl.h>\n"),
              Lines{});
    EXPECT_EQ(brokenBy("gateway/a.cpp", "#include \"tools/notes.h\"\n"),
              Lines{"gateway/a.cpp:1: gateway stands on public headers alone: tools/notes.h"});
}

TEST(Layout, IncludeFromAnotherFolderLeadsToTheSameName) {
    for (std::string const folder : {"gateway", "bench", "examples"}) {
        std::string const rule = ":1: " + folder + " stands on public headers alone: ";
        for (std::string const front : {"src/", "../src/", "../../src/", "./../src/", "../"}) {
            EXPECT_EQ(brokenBy(folder + "/a.cpp", "#include \"" + front + "packet/x.h\"\n"),
                      Lines{folder + "/a.cpp" + rule + "packet/x.h"});
        }
    }
    EXPECT_EQ(brokenBy("src/log/a.cpp", "#include \"../model/b.h\"\n"),
              Lines{"src/log/a.cpp:1: log may not include model: model/b.h"});
    EXPECT_EQ(brokenBy("gateway/a.cpp", "#include \"../include/tav/vinta/vinta_new.h\"\n"),
              Lines{"gateway/a.cpp:1: a public header without a row in the table: tav/vinta/vinta_new.h"});
}

TEST(Layout, HeaderForAllHasAllOfTheLibrary) {
    std::vector<File> const files = readTree(TAV_SOURCE_DIR);
    std::set<std::string> missing = layout::unreachedFrom("tav/vinta/vinta.h", files);
    // What C can call is collected by a header of its own.
    EXPECT_EQ(missing, std::set<std::string>{"tav/vinta/vinta_c.h"});
}

TEST(Layout, LibraryHasNoFileOfAnotherEnding) {
    for (std::string const path : {"src/log/a.hpp", "src/log/a.cc", "src/log/a.inc", "src/log/notes",
                                   "include/tav/vinta/vinta_new.hpp", "src/log/NotCMakeLists.txt.in"}) {
        EXPECT_EQ(brokenBy(path, "#include \"model/b.h\"\n"),
                  Lines{path + ":1: no source of the library ends like this"});
    }
    EXPECT_EQ(brokenBy("src/log/CMakeLists.txt", "# include what is needed\n"), Lines{});
}

TEST(Layout, PublicHeaderIsNamedInThePageOfTheTree) {
    std::string const root = TAV_SOURCE_DIR;
    std::ifstream in(root + "/docs/modules.md");
    std::string const page{std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
    std::size_t headers = 0;
    for (std::string const folder : {"vinta", "kit"}) {
        for (auto const & each : std::filesystem::directory_iterator(root + "/include/tav/" + folder)) {
            std::string const stem = each.path().stem().string();
            bool const named = page.find("`" + stem + "`") != std::string::npos ||
                               page.find("`" + stem + ".h`") != std::string::npos;
            EXPECT_TRUE(named) << each.path().filename() << " is not in docs/modules.md";
            ++headers;
        }
    }
    EXPECT_GT(headers, 40U);
}
