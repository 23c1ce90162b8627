#include "client/frame_reader.h"
#include "tav/vinta/vinta.h"

#include "support/packet_bytes.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <map>
#include <regex>
#include <set>
#include <string>
#include <vector>

using tav_test::unhex;

namespace {

/// Some bytes in a page, as digits without blanks.
struct Worked {
    std::string page;
    int line;
    std::string digits;
};

std::string digitsOf(std::string const & bytes) {
    return tav_test::hex(tav_istr(bytes));
}

std::string digitsOf(tavBytes const & bytes) {
    return tav_test::hex(tav_istr(bytes));
}

std::vector<std::string> linesOf(std::filesystem::path const & page) {
    std::ifstream in(page);
    std::vector<std::string> lines;
    for (std::string line; std::getline(in, line);) {
        lines.push_back(line);
    }
    return lines;
}

/// Each block of nothing but bytes in the pages of docs/, indented or fenced.
std::vector<Worked> workedBytes() {
    static std::regex const bytes(" *([0-9A-F]{2} +)+[0-9A-F]{2} *");
    std::vector<Worked> found;
    for (auto const & entry : std::filesystem::directory_iterator(TAV_SOURCE_DIR "/docs")) {
        if (entry.path().extension() != ".md") {
            continue;
        }
        bool inside = false;
        int line = 0;
        for (std::string const & text : linesOf(entry.path())) {
            ++line;
            bool const is = std::regex_match(text, bytes);
            if (is && !inside) {
                found.push_back({entry.path().filename().string(), line, ""});
            }
            inside = is;
            if (is) {
                std::copy_if(text.begin(), text.end(), std::back_inserter(found.back().digits),
                             [](char c) { return c != ' '; });
            }
        }
    }
    return found;
}

/// A packet as its frame, which the reader of frames has to take in one piece.
std::string framed(tav::im::Packet & packet) {
    tavBytes body;
    packet.encode(body);
    std::string bytes(4, '\0');
    bytes[2] = static_cast<char>(body.size() >> 8);
    bytes[3] = static_cast<char>(body.size() & 255);
    bytes.append(reinterpret_cast<char const *>(body.data()), body.size());

    using tav::tls::impl::frame_reader;
    frame_reader reader;
    std::memcpy(reader.room().data, bytes.data(), bytes.size());
    reader.filled(bytes.size());
    EXPECT_EQ(reader.next(), frame_reader::part::head);
    EXPECT_EQ(reader.next(), frame_reader::part::body);
    EXPECT_EQ(digitsOf(reader.take_body()), digitsOf(body));
    return digitsOf(bytes);
}

std::string mobileFrame() {
    auto const packet = tav::im::Packet::create(true, 6);
    packet->setCode(0x1234);
    packet->setSequence(2);
    packet->setSession(3);
    packet->setBody("AB");
    return framed(*packet);
}

std::string oldFrame() {
    auto const packet = tav::im::Packet::create(false, 0);
    packet->setCode(5);
    packet->setSequence(7);
    packet->setBody("AB");
    return framed(*packet);
}

std::string objectOfThreeFields() {
    struct Three : tavObject {
        int number = 5;
        tavString text = "ab";
        std::vector<int> list = {7, 300};
        tav_istr className() const override { return "Three"; }
        tav_istr baseName() const override { return "tavObject"; }
        tavObject * newInstance() const override { return new Three; }
        void assignFrom(tavObject const &) override {}
        void traverse(tavCodecStream & s) override {
            ioField(s, 1, "number", number);
            ioField(s, 2, "text", text);
            ioField(s, 3, "list", list);
        }
    };
    return digitsOf(Three().encode(false));
}

std::string gateMessage() {
    tavBytes out;
    tavGateMessage(2, 3, 4, 0, 5, 6, 7, "head", "body!").encode(out);
    return digitsOf(out);
}

template <class T>
std::string value(T const & v) {
    tav::nbr::NbrOutputStream out;
    out << v;
    return digitsOf(std::string(out.str().data(), out.str().size()));
}

} // namespace

TEST(WorkedBytes, OfEachPageAreWhatTheLibraryWrites) {
    std::map<std::string, std::multiset<std::string>> expected = {
        {"wire-format.md", {mobileFrame(), oldFrame(), objectOfThreeFields()}},
        {"gate-message.md", {gateMessage()}},
    };
    for (Worked const & worked : workedBytes()) {
        auto & page = expected[worked.page];
        auto const at = page.find(worked.digits);
        if (at == page.end()) {
            ADD_FAILURE() << "docs/" << worked.page << ":" << worked.line
                          << ": the library writes no such bytes: " << worked.digits;
        } else {
            page.erase(at);
        }
    }
    for (auto const & page : expected) {
        for (std::string const & digits : page.second) {
            ADD_FAILURE() << "docs/" << page.first << " lacks the bytes " << digits;
        }
    }
}

TEST(WorkedBytes, OfTheTableOfValuesAreWhatTheLibraryWrites) {
    std::string const many(200, '\x11');
    std::map<std::string, std::vector<std::string>> const expected = {
        {"`int` 0, 127, 128, 300", {value(0), value(127), value(128), value(300)}},
        {"`int` -1", {value(-1)}},
        {"`unsigned char` 200", {value(static_cast<unsigned char>(200))}},
        {"`bool` true", {value(true)}},
        {"`long long` -1", {value(-1LL)}},
        {"`double` 1.5", {value(1.5)}},
        {"text \"hi\", empty text", {value(tav_istr("hi")), value(tav_istr(""))}},
        {"3 bytes, 200 bytes",
         {value(tavBytes(tav_istr(unhex("AABBCC")))), value(tavBytes(tav_istr(many))).substr(0, 6) + "..."}},
    };
    std::vector<std::string> const lines = linesOf(TAV_SOURCE_DIR "/docs/wire-format.md");
    auto row = std::find(lines.begin(), lines.end(), "| value | bytes |");
    ASSERT_NE(row, lines.end());
    std::size_t rows = 0;
    for (row += 2; row != lines.end() && !row->empty(); ++row) {
        std::size_t const middle = row->find(" | ");
        std::string const name = row->substr(2, middle - 2);
        std::string cell = row->substr(middle + 3, row->size() - middle - 5);
        if (name == "time") {
            EXPECT_EQ(cell, "as `long long`, milliseconds since 1970");
            EXPECT_EQ(value(tavTime::milliseconds(1700000000000)), value(1700000000000LL));
            continue;
        }
        ASSERT_EQ(expected.count(name), 1u) << "a row that nobody checks: " << *row;
        std::string digits;
        for (std::string const & v : expected.at(name)) {
            digits += (digits.empty() ? "" : ",") + v;
        }
        cell.erase(std::remove(cell.begin(), cell.end(), ' '), cell.end());
        EXPECT_EQ(cell, digits) << *row;
        ++rows;
    }
    EXPECT_EQ(rows, expected.size());
}
