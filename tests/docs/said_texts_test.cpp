#include "docs/said_texts.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

namespace {

namespace fs = std::filesystem;

/// A text that no test can bring about.
struct Unreachable {
    char const * file;
    char const * text;
    char const * why;
};

// What nothing reaches stands by itself: a text that a test reaches after all is no exception any more.
constexpr Unreachable unreachable[] = {
    {"src/formats/xml/vinta_xml_node.cpp", "XML_DECODE_TAG_EMPTY", "a name begins with one of its letters"},
    {"src/formats/xml/vinta_xml_node.cpp", "null pointer", "memory that fails raises bad_alloc ahead of it"},
    {"src/formats/xml/vinta_xml_node.cpp", "null pAttrs_", "memory that fails raises bad_alloc ahead of it"},
    {"src/formats/xml/vinta_xml_node.cpp", "null pNodes_", "memory that fails raises bad_alloc ahead of it"},
    {"src/client/frame_output.cpp", "length == write_msgs_.front().size()", "an assertion"},
    {"src/client/tls_setup.cpp", "max_version:", "an OpenSSL that lacks a version of TLS"},
    {"src/client/tls_setup.cpp", "not supported", "OpenSSL always gives a reason of its own"},
    {"src/client/tls_setup.cpp",
     "alpn:", "the names are well formed, and no memory is the only failure left"},
    {"src/client/tls_setup.cpp", "they can't be read", "OpenSSL always gives a reason of its own"},
    {"src/client/tls_setup.cpp", "another key", "OpenSSL always gives a reason of its own"},
    {"src/client/tls_setup.cpp", "key_log:", "OpenSSL's own memory, which is not the process's to fail"},
    {"src/client/pem_text.cpp", "it can't be read",
     "the system and OpenSSL always give a reason of their own"},
    {"src/client/vinta_tls_client.cpp", "finalized.",
     "the log has ended ahead of it, and has no place to write to"},
    {"src/client/vinta_tls_client_impl_dispatch.cpp", "on error <",
     "a send ends by its reply, its limit or a cancel"},
    {"bindings/c/message.cpp", "the template has no class for this",
     "such a template is refused ahead of it"},
    {"bindings/c/message.cpp", ": the library can't encode this", "what it refuses is refused ahead of it"},
    {"bindings/c/message.cpp", "the message has no form in JSON:", "what is read is written as JSON"},
};

std::string contentOf(fs::path const & path) {
    std::ifstream in(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

/// Whether a file shows what is said elsewhere and asserts nothing of it.
bool onlyQuotes(std::string const & file) {
    return file.find("/said_texts") != std::string::npos || file.find("/trouble_page") != std::string::npos;
}

/// All texts that tests name.
std::string const & named() {
    static std::string const all = [] {
        std::string out;
        for (char const * const top : {"/tests", "/bindings/python/tests"}) {
            for (auto const & entry : fs::recursive_directory_iterator(TAV_SOURCE_DIR + std::string(top))) {
                std::string const file = entry.path().generic_string();
                std::string const extension = entry.path().extension().string();
                if ((extension == ".cpp" || extension == ".h") && !onlyQuotes(file)) {
                    out += said::literalsIn(contentOf(entry.path()));
                } else if (extension == ".py") {
                    out += contentOf(entry.path());
                }
            }
        }
        return out;
    }();
    return all;
}

std::vector<said::Text> const & sources() {
    static std::vector<said::Text> const texts = said::textsOf(TAV_SOURCE_DIR, said::Levels::all);
    return texts;
}

bool isNamed(std::string const & text) {
    return named().find(text) != std::string::npos;
}

} // namespace

TEST(SaidTexts, EachIsInATest) {
    ASSERT_GT(sources().size(), 600u);
    for (said::Text const & text : sources()) {
        bool const excepted =
            std::any_of(std::begin(unreachable), std::end(unreachable), [&](Unreachable const & each) {
                return each.file == text.file && each.text == text.text;
            });
        EXPECT_TRUE(excepted || isNamed(text.text))
            << text.file << ":" << text.line << ": no test has \"" << text.text << "\"";
    }
    for (Unreachable const & each : unreachable) {
        EXPECT_TRUE(std::any_of(
            sources().begin(), sources().end(),
            [&](said::Text const & text) { return each.file == text.file && each.text == text.text; }))
            << each.file << " does not say \"" << each.text << "\"";
    }
}

TEST(SaidTexts, AreLookedForInTheTextsOfATestAlone) {
    EXPECT_EQ(said::literalsIn("f(\"the moon \"\n    \"is full\"); // \"of cheese\"\n"),
              "the moon is full\n\n");
    EXPECT_EQ(said::literalsIn("f(\"a \\\"b\\\"\\n\", 'x', R\"(raw \"c\")\");"),
              "a \"b\"\n\n\nraw \"c\"\n\n");
    EXPECT_EQ(said::literalsIn("int moon = full;\n#include \"cheese.h\"\n"), "");
}

TEST(SaidTexts, OfEveryLevelCount) {
    char const * const source =
        "void f() {\n    log_parts(tavLogger::INFO, site, name_, \" the moon is full\");\n}\n";
    EXPECT_EQ(said::textsIn("src/client/new.cpp", source).size(), 0u);
    ASSERT_EQ(said::textsIn("src/client/new.cpp", source, said::Levels::all).size(), 1u);
    EXPECT_EQ(said::textsIn("src/client/new.cpp", source, said::Levels::all)[0].text, "the moon is full");
}
