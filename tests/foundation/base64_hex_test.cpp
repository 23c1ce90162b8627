#include "tav/vinta/vinta_basetypes_bytes.h"

#include <gtest/gtest.h>

#include <cctype>
#include <random>
#include <string>
#include <vector>

namespace {

std::string encoded(std::string const & in, bool lineBreaks = false) {
    std::string out("stale");
    tavBase64::encode(in, out, lineBreaks);
    return out;
}

/// The bytes of a text, which both forms of decode must agree on.
std::string decoded(std::string const & text) {
    tavBytes out(tav_istr("stale"));
    tavBase64::decode(text, out);
    std::vector<unsigned char> other(3, 'x');
    tavBase64::decode(text, other);
    std::string const result = static_cast<std::string>(tav_istr(out));
    EXPECT_EQ(std::string(other.begin(), other.end()), result);
    return result;
}

/// The rules of decoding one character at a time, to hold the quick decoder against.
std::string plainDecoded(std::string const & text) {
    std::string kept;
    for (char const c : text) {
        if (std::isalnum(static_cast<unsigned char>(c)) || c == '+' || c == '/' || c == '=') {
            kept += c;
        }
    }
    std::string const alphabet = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    auto const valueOf = [&](char c) {
        std::size_t const at = alphabet.find(c);
        return at == std::string::npos ? 63u : static_cast<unsigned>(at);
    };
    std::string out;
    for (std::size_t i = 0; i < kept.size(); i += 4) {
        std::string group = kept.substr(i, 4);
        group.resize(4, 'A');
        out += static_cast<char>(valueOf(group[0]) << 2 | valueOf(group[1]) >> 4);
        if (group[2] != '=') {
            out += static_cast<char>(valueOf(group[1]) << 4 | valueOf(group[2]) >> 2);
        }
        if (group[3] != '=') {
            out += static_cast<char>(valueOf(group[2]) << 6 | valueOf(group[3]));
        }
    }
    return out;
}

std::string randomBytes(std::mt19937 & random, std::size_t size) {
    std::string text(size, '\0');
    for (char & c : text) {
        c = static_cast<char>(random() % 256);
    }
    return text;
}

std::string contentOf(tavBytes const & b) {
    return static_cast<std::string>(tav_istr(b));
}

std::string textOf(tavString const & s) {
    return std::string(s.data(), s.size());
}

} // namespace

TEST(Base64HexEncode, PadsToWholeGroups) {
    EXPECT_EQ(encoded("abc"), "YWJj");
    EXPECT_EQ(encoded("ab"), "YWI=");
    EXPECT_EQ(encoded("a"), "YQ==");
    EXPECT_EQ(encoded("abcd"), "YWJjZA==");
    EXPECT_EQ(encoded(std::string("\0", 1)), "AA==");
    EXPECT_EQ(encoded("\xFF\xFF\xFE"), "///+");
}

TEST(Base64HexEncode, UsesTheWholeAlphabet) {
    std::string bytes;
    for (unsigned v = 0; v < 64; v += 4) {
        unsigned const group = v << 18 | (v + 1) << 12 | (v + 2) << 6 | (v + 3);
        bytes += static_cast<char>(group >> 16);
        bytes += static_cast<char>(group >> 8);
        bytes += static_cast<char>(group);
    }
    EXPECT_EQ(encoded(bytes), "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/");
}

TEST(Base64HexEncode, EmptyInputLeavesTheTargetAlone) {
    EXPECT_EQ(encoded(""), "stale");
    EXPECT_EQ(encoded("", true), "stale");
    std::string out("stale");
    tavBase64::encode(std::vector<unsigned char>(), out, false);
    EXPECT_EQ(out, "stale");
    tavBase64::encode(tav_istr(static_cast<char const *>(nullptr), 5u), out, false);
    EXPECT_EQ(out, "stale");
}

TEST(Base64HexEncode, TakesAVector) {
    std::string out("stale");
    tavBase64::encode(std::vector<unsigned char>{'a', 'b'}, out, false);
    EXPECT_EQ(out, "YWI=");
}

TEST(Base64HexEncode, MayReplaceItsOwnInput) {
    std::string text("abc");
    tavBase64::encode(tav_istr(text), text, false);
    EXPECT_EQ(text, "YWJj");
}

TEST(Base64HexEncode, BreaksLinesBetweenPiecesOnly) {
    EXPECT_EQ(encoded(std::string(57, 'x'), true), encoded(std::string(57, 'x')));
    EXPECT_EQ(encoded(std::string(57, 'x'), true).size(), 76u);
    std::string const two = encoded(std::string(58, 'x'), true);
    EXPECT_EQ(two.size(), 76u + 2 + 4);
    EXPECT_EQ(two.substr(76, 2), "\r\n");
    EXPECT_EQ(encoded(std::string(114, 'x'), true).size(), 76u + 2 + 76);
    EXPECT_EQ(encoded("abc", true), "YWJj");
}

TEST(Base64HexEncode, PiecesTogetherAreTheUnbrokenText) {
    std::mt19937 random(7u);
    for (std::size_t size = 1; size < 400; ++size) {
        std::string const bytes = randomBytes(random, size);
        std::string const whole = encoded(bytes);
        std::string expected;
        for (std::size_t i = 0; i < whole.size(); i += 76) {
            expected += (i == 0 ? "" : "\r\n") + whole.substr(i, 76);
        }
        ASSERT_EQ(encoded(bytes, true), expected) << size;
    }
}

TEST(Base64HexDecode, UndoesTheEncoding) {
    std::mt19937 random(11u);
    for (std::size_t size = 1; size < 300; ++size) {
        std::string const bytes = randomBytes(random, size);
        ASSERT_EQ(decoded(encoded(bytes)), bytes) << size;
        ASSERT_EQ(decoded(encoded(bytes, true)), bytes) << size;
    }
}

TEST(Base64HexDecode, MissingCharactersCountAsA) {
    EXPECT_EQ(decoded("QQ=="), "\x41");
    EXPECT_EQ(decoded("QQ"), std::string("\x41\0\0", 3));
    EXPECT_EQ(decoded("Q"), std::string("\x40\0\0", 3));
    EXPECT_EQ(decoded("QUI"), std::string("AB\0", 3));
}

TEST(Base64HexDecode, PadsAreLookedAtSinglyAndWeigh63Elsewhere) {
    EXPECT_EQ(decoded("QQ="), "\x41\xC0");
    EXPECT_EQ(decoded("QQ=A"), "\x41\xC0");
    EXPECT_EQ(decoded("QQA="), std::string("\x41\0", 2));
    EXPECT_EQ(decoded("===="), "\xFF");
    EXPECT_EQ(decoded("=AAA"), std::string("\xFC\0\0", 3));
    EXPECT_EQ(decoded("A=AA"), std::string("\x03\xF0\0", 3));
    EXPECT_EQ(decoded("="), std::string("\xFC\0\0", 3));
    EXPECT_EQ(decoded("YQ==YWJj"), "aabc");
}

TEST(Base64HexDecode, ForeignCharactersAreDropped) {
    EXPECT_EQ(decoded("YW\r\nJj"), "abc");
    EXPECT_EQ(decoded(" Y-W_J\x80j!"), "abc");
    EXPECT_EQ(decoded("Y\0W\0J\0j"), decoded("Y"));
    EXPECT_EQ(decoded(std::string("Y\0W\0J\0j", 7)), "abc");
    EXPECT_EQ(decoded("-- \r\n"), "");
}

TEST(Base64HexDecode, EmptyTextEmptiesTheTarget) {
    EXPECT_EQ(decoded(""), "");
    tavBytes out(tav_istr("stale"));
    tavBase64::decode(tav_istr(static_cast<char const *>(nullptr), 5u), out);
    EXPECT_EQ(out.size(), 0u);
}

TEST(Base64HexDecode, AgreesWithThePlainRulesOnAnyText) {
    std::mt19937 random(13u);
    std::string const likely = "ABCxyz019+/== \r\n";
    for (int round = 0; round < 20000; ++round) {
        std::string text(random() % 24, '\0');
        bool const wild = round % 2 == 0;
        for (char & c : text) {
            c = wild ? static_cast<char>(random() % 256) : likely[random() % likely.size()];
        }
        ASSERT_EQ(decoded(text), plainDecoded(text)) << testing::PrintToString(text);
    }
}

TEST(Base64HexDecode, MayReplaceItsOwnText) {
    tavBytes b(tav_istr("YWJjZGVm"));
    tavBase64::decode(b, b);
    EXPECT_EQ(contentOf(b), "abcdef");
    tavBytes c(tav_istr("YWJjZGVm"));
    c.fromBase64(c);
    EXPECT_EQ(contentOf(c), "abcdef");
    std::vector<unsigned char> v{'Y', 'W', 'J', 'j'};
    tavBase64::decode(tav_istr(v.data(), v.size()), v);
    EXPECT_EQ(std::string(v.begin(), v.end()), "abc");
}

TEST(Base64Hex, KnowsItsCharacters) {
    std::string const all = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/=";
    for (int c = -128; c < 128; ++c) {
        char const character = static_cast<char>(c);
        EXPECT_EQ(tavBase64::isBase64(character), all.find(character) != std::string::npos) << c;
    }
}

TEST(Base64HexBytesBase64, WritesWithoutLineBreaks) {
    tavString out("stale");
    tavBytes(tav_istr("abc")).toBase64(out);
    EXPECT_EQ(textOf(out), "YWJj");
    tavBytes(tav_istr(std::string(100, 'x'))).toBase64(out);
    EXPECT_EQ(out.indexOf("\n"), -1);
    EXPECT_EQ(out.size(), 136u);
}

TEST(Base64HexBytesBase64, EmptyBufferMakesEmptyText) {
    tavString out("stale");
    tavBytes().toBase64(out);
    EXPECT_TRUE(out.empty());
}

TEST(Base64HexBytesBase64, ReadsInPlaceOfItsContent) {
    tavBytes b(tav_istr("stale"));
    b.fromBase64("YWJj");
    EXPECT_EQ(contentOf(b), "abc");
    b.fromBase64("");
    EXPECT_EQ(b.size(), 0u);
}

TEST(Base64HexHex16, EncodesInGroupsOfFourBytes) {
    EXPECT_EQ(textOf(tavHex16::encode("")), "");
    EXPECT_EQ(textOf(tavHex16::encode(tav_istr(static_cast<char const *>(nullptr), 5u))), "");
    EXPECT_EQ(textOf(tavHex16::encode("\x01")), "01");
    EXPECT_EQ(textOf(tavHex16::encode("\x01\x02\x03\x04")), "01020304");
    EXPECT_EQ(textOf(tavHex16::encode("\x01\x02\x03\x04\xFF")), "01020304 FF");
    EXPECT_EQ(textOf(tavHex16::encode(tav_istr("\0\xAB\xCD\xEF\x10\x20\x30\x40\x99", 9u))),
              "00ABCDEF 10203040 99");
}

TEST(Base64HexHex16, DecodesDigitsOfEitherCaseInPairs) {
    EXPECT_EQ(contentOf(tavHex16::decode("abCDeF09")), "\xAB\xCD\xEF\x09");
    EXPECT_EQ(contentOf(tavHex16::decode("0 1:0a")), "\x01\x0A");
    EXPECT_EQ(contentOf(tavHex16::decode("gh`@G/:")), "");
    EXPECT_EQ(contentOf(tavHex16::decode("\x80"
                                         "4\xFF"
                                         "1")),
              "A");
}

TEST(Base64HexHex16, SingleDigitAtTheEndIsDropped) {
    EXPECT_EQ(contentOf(tavHex16::decode("414")), "A");
    EXPECT_EQ(contentOf(tavHex16::decode("4")), "");
    EXPECT_EQ(contentOf(tavHex16::decode("4 ")), "");
    EXPECT_EQ(contentOf(tavHex16::decode("")), "");
    EXPECT_EQ(contentOf(tavHex16::decode(tav_istr(static_cast<char const *>(nullptr), 5u))), "");
}

TEST(Base64HexHex16, DecodeUndoesEncode) {
    std::mt19937 random(17u);
    for (std::size_t size = 0; size < 100; ++size) {
        std::string const bytes = randomBytes(random, size);
        ASSERT_EQ(contentOf(tavHex16::decode(tavHex16::encode(bytes))), bytes) << size;
    }
}
