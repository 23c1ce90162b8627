#include "formats/nbr/nbr_document.h"

#include "support/client_rig.h"
#include "support/log_capture.h"
#include "support/nbr_bytes.h"

#include <gtest/gtest.h>

#include <functional>
#include <random>
#include <stdexcept>
#include <string>
#include <vector>

using namespace tav_test;
using tav::nbr::detail::Document;

namespace {

/// What reading says: the text that is thrown, and the lines of the log.
std::string said(std::function<void()> const & read) {
    LogCapture log;
    std::string out;
    try {
        read();
    } catch (std::invalid_argument const & e) {
        out = e.what();
    }
    tavLogger::flush();
    for (LogCapture::Record const & line : log.records()) {
        out += "\n" + line.text.substr(line.text.find('['));
    }
    return out;
}

/// Bytes of which most can be read for a while.
std::string likely(std::mt19937 & random) {
    static std::vector<std::string> const parts = {bytes("FF 01 28"),
                                                   bytes("FF 01 29"),
                                                   bytes("01 01 05"),
                                                   bytes("05 F1 02 61 62"),
                                                   bytes("02 FF 01 28"),
                                                   bytes("00"),
                                                   bytes("01 00"),
                                                   bytes("F1 00"),
                                                   bytes("02 01 00 41"),
                                                   bytes("01 04 01 02 03 04"),
                                                   bytes("FF"),
                                                   bytes("20"),
                                                   bytes("05"),
                                                   bytes("04 FE FF FF FF"),
                                                   bytes("04 F0 FF FF FF"),
                                                   bytes("F2 03 00"),
                                                   bytes("07 01 01 09")};
    std::string out;
    for (auto n = random() % 12; n > 0; --n) {
        out += parts[random() % parts.size()];
    }
    return out;
}

} // namespace

TEST(NbrDocument, CheckSaysWhatParsingSays) {
    unsigned refused = 0;
    for (unsigned seed = 0; seed < 3000; ++seed) {
        std::mt19937 random(seed);
        std::string const input = likely(random);
        std::string const parsed = said([&] { Document().assign(tav_istr(input)); });
        ASSERT_EQ(said([&] { Document().view(tav_istr(input), 0); }), parsed) << hex(tav_istr(input));
        ASSERT_EQ(said([&] { Document::check(tav_istr(input)); }), parsed) << hex(tav_istr(input));
        refused += parsed.find("DecodeException") != std::string::npos ? 1u : 0u;
    }
    EXPECT_GT(refused, 100u);
}

TEST(NbrDocument, CheckPassesAnyDepth) {
    std::string deep;
    for (int i = 0; i < 1000000; ++i) {
        deep += bytes("FF 01 28 05");
    }
    EXPECT_NO_THROW(Document::check(tav_istr(deep)));
    deep += bytes("05 20 00 00");
    EXPECT_THROW(Document::check(tav_istr(deep)), std::invalid_argument);
}

TEST(NbrDocument, PrintsItsValuesAsTheStreamDoes) {
    std::string const input = bytes("01 01 07 FF 01 28 05 F1 02 61 62 FF 01 29");
    Document document;
    document.view(tav_istr(input), 0);
    for (bool const pretty : {false, true}) {
        std::ostringstream own;
        std::ostringstream streams;
        document.dump(own, pretty);
        tav::nbr::NbrInputStream(tav_istr(input)).dump(streams, pretty);
        EXPECT_FALSE(own.str().empty());
        EXPECT_EQ(own.str(), streams.str());
    }
}

TEST(NbrDocument, ReadingInPlaceGivesTheSameObject) {
    Ask sent(77);
    sent.text = "some text";
    tavBytes const body = sent.encode(true);
    Ask got;
    tav::nbr::detail::readInPlace(body, [&got](tavCodecStream & in) { got.io(in); });
    EXPECT_EQ(got.number, 77);
    EXPECT_EQ(got.text, "some text");
    EXPECT_THROW(tav::nbr::detail::readInPlace(tav_istr("\x20\x00\x00", 3), [](tavCodecStream &) { FAIL(); }),
                 std::invalid_argument);
    // What has failed leaves nothing behind for the next one.
    Ask again;
    tav::nbr::detail::readInPlace(body, [&again](tavCodecStream & in) { again.io(in); });
    EXPECT_EQ(again.number, 77);
}
