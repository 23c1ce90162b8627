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
    {"src/formats/xml/xml_reader.cpp", "XML_DECODE_TAG_EMPTY", "a name begins with one of its letters"},
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

/// A text of the tool.
struct ToolText {
    char const * file;
    char const * text;
};

// What the tool says and no test has: a text that gets one leaves this list, and no other comes in.
constexpr ToolText untested[] = {
    {"tools/live.cpp", "messages did not go out"},
    {"tools/json_judge.cpp", ", which is not there"},
    {"tools/json_judge.cpp", ", which can't be converted"},
    {"tools/load.cpp",
     "tav: the system has no descriptors or threads for more clients: `ulimit -n` and `ulimit -u`"},
    {"tools/load.cpp",
     "none of the messages was passed on to another client: does the gateway do that with their code?"},
    {"tools/gen_python.cpp", "in Python, as something else is too"},
    {"tools/gen_python.cpp", "in Python"},
    {"tools/tls_probe.cpp", "the name can't be looked up:"},
    {"tools/tls_probe.cpp", "check the spelling, and the machine's resolver"},
    {"tools/tls_probe.cpp", "check the address, and what filters the way"},
    {"tools/tls_probe.cpp", ": no key that fits can be read:"},
    {"tools/tls_probe.cpp", "what answers may speak no TLS: check the port"},
    {"tools/tls_probe.cpp", "the server refuses the client:"},
    {"tools/input.cpp", ": is larger than"},
    {"tools/json_messages.cpp", "there is no code"},
    {"tools/gen_example.cpp", "an example of this class can't be written:"},
    {"tools/gateway_record.cpp", ": no whole frame is there, and what is recorded behind it could not be "
                                 "read; record into another file, or cut this one off there: truncate -s"},
    {"tools/message_tree.cpp", "a message is an object, and none is there"},
    {"tools/message_tree.cpp", "a message is an object, and no single value"},
    {"tools/message_tree.cpp", "has an entry without a key ahead of its value"},
    {"tools/message_tree.cpp", "has keys of the kind"},
    {"tools/message_tree.cpp", ", which are lost"},
    {"tools/message_tree.cpp", "has a key that is no"},
    {"tools/message_tree.cpp", "has an entry that is no object"},
    {"tools/message_tree.cpp", ", which can't be converted"},
    {"tools/message_tree.cpp", "no text"},
    {"tools/message_tree.cpp", ", which no bool is"},
    {"tools/message_tree.cpp", "has an entry with an object for a key"},
    {"tools/message_tree.cpp", ", which is not there"},
    {"tools/message_tree.cpp", "has an entry without a value"},
    {"tools/talk.cpp", "what is left of the input was not read"},
    {"tools/output.cpp", "<stderr>"},
    {"tools/message_json.cpp", "has an empty key, and no member of JSON has an empty name"},
    {"tools/message_json.cpp", "has a text that is no UTF-8, which JSON can't carry"},
    {"tools/message_json.cpp", "is no finite number, and JSON has no other"},
    {"tools/json_stream.cpp", "a message of more than"},
    {"tools/convert_source.cpp", "the order of a body is that of its class: \"class\""},
    {"tools/convert_source.cpp", "the message does not name its class: --class or --code is needed"},
    {"tools/web_absent.cpp", "--web: this tav was built without libcpp-httplib-dev"},
    {"tools/envelope.cpp", "an old packet has no objects among its values"},
    {"tools/envelope.cpp", "the head of an old packet begins with three zeros"},
    {"tools/envelope.cpp", "is true or false"},
    {"tools/envelope.cpp", "no envelope of this packet has the member"},
    {"tools/envelope.cpp", "a mobile packet has no version whose low byte is 0: it is read as an old one"},
    {"tools/convert_sink.cpp", "a packet needs a code"},
    {"tools/convert_sink.cpp", "the packet has"},
    {"tools/convert_sink.cpp", "bytes, and a frame holds 16777215"},
    {"tools/convert_sink.cpp", "the message has a value that"},
    {"tools/interrupts.cpp", "signals"},
    {"tools/web_api.cpp", "code has up to four hexadecimal digits"},
    {"tools/web_api.cpp", "way is in or out"},
    {"tools/web_api.cpp", "This packet is not kept any more."},
    {"tools/web_api.cpp", "is not open."},
    {"tools/web_api.cpp", "has no code to be sent by."},
    {"tools/web_api.cpp", "Nobody is connected to get it."},
    {"tools/web_api.cpp", "is silent: nothing goes out."},
    {"tools/message_copy.cpp", ", which is not there"},
    {"tools/message_copy.cpp", ", which can't be converted"},
    {"tools/json_text.cpp", "the string that begins here does not end"},
    {"tools/template_diff.cpp", "no class has the code"},
    {"tools/template_diff.cpp", "the value is read under another name, or not at all"},
    {"tools/template_diff.cpp", "the field may be missing, and is necessary there"},
    {"tools/template_diff.cpp", "of the keys"},
    {"tools/template_diff.cpp", "what is written in the one form is not read in the other"},
    {"tools/web.cpp", "--web: there are no random bytes for a token"},
    {"tools/web.cpp", "--web: can't listen on"},
    {"tools/web.cpp", "Ask for this page by the address that was printed, or as localhost."},
    {"tools/web.cpp", "The token is wrong: open the address that the gateway has printed."},
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

TEST(SaidTexts, OfTheToolAreInATestButForThoseThatAreListed) {
    std::vector<said::Text> const texts = said::textsUnder(TAV_SOURCE_DIR, {"tools"}, said::Levels::all);
    ASSERT_GT(texts.size(), 300u);
    for (said::Text const & text : texts) {
        bool const listed = std::any_of(std::begin(untested), std::end(untested), [&](ToolText const & each) {
            return each.file == text.file && each.text == text.text;
        });
        EXPECT_NE(listed, isNamed(text.text))
            << text.file << ":" << text.line << ": "
            << (listed ? "a test has it, and the list, too: " : "no test has it: ") << text.text;
    }
    for (ToolText const & each : untested) {
        EXPECT_TRUE(std::any_of(
            texts.begin(), texts.end(),
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
