#include "tav/vinta/vinta_nbr_compactreader.h"

#include "support/log_capture.h"
#include "support/nbr_bytes.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <limits>
#include <stdexcept>
#include <string>
#include <vector>

using tav::nbr::CompactIntegerReader;
using tav::nbr::CompactIntegerWriter;
using tav_test::bytes;
using tav_test::hex;

namespace {

/// What the compact integer rule makes of a value, and that nothing behind it is touched.
std::string compact(unsigned long long value, unsigned max) {
    char buf[16];
    for (char & c : buf) {
        c = '\x5A';
    }
    int const count = CompactIntegerWriter::write(buf, value, max);
    for (int i = count; i < 16; ++i) {
        EXPECT_EQ(buf[i], '\x5A') << "byte " << i << " behind " << count;
    }
    return hex(tav_istr(buf, static_cast<unsigned>(count)));
}

/// The rule by its steps.
std::string compactByTheRule(unsigned long long value, unsigned max) {
    std::string out;
    for (;;) {
        unsigned char const low = static_cast<unsigned char>(value);
        out += static_cast<char>(low);
        value >>= 8;
        if ((value == 0 && low < 0x80) || out.size() >= max) {
            return hex(out);
        }
    }
}

unsigned long long readNumber(std::string const & data, unsigned max) {
    return CompactIntegerReader::read(tav_istr(data), max);
}

template <class T>
std::string written(T v) {
    tavBytes out;
    CompactIntegerWriter writer(out);
    EXPECT_EQ(&writer, &(writer << v));
    return hex(out);
}

template <class T>
struct Read {
    bool ok;
    T value;
    std::string left;
};

template <class T>
Read<T> readTyped(char const * input, T before) {
    std::string const data = bytes(input);
    tav_istr view(data);
    CompactIntegerReader reader(view);
    Read<T> result{false, before, ""};
    result.ok = reader >> result.value;
    result.left = hex(view);
    return result;
}

std::string failureOf(char const * data, unsigned length, unsigned max) {
    try {
        CompactIntegerReader::read(data, length, max);
    } catch (std::invalid_argument const & e) {
        return e.what();
    }
    return "none";
}

} // namespace

TEST(NbrCompactWrite, ZeroIsOneByte) {
    EXPECT_EQ(compact(0, 8), "00");
}

TEST(NbrCompactWrite, OneByteUpTo7F) {
    EXPECT_EQ(compact(0x7F, 8), "7F");
}

TEST(NbrCompactWrite, TopBitSetTakesAnotherByte) {
    EXPECT_EQ(compact(0x80, 8), "80 00");
    EXPECT_EQ(compact(0xFF, 8), "FF 00");
    EXPECT_EQ(compact(0x8000, 8), "00 80 00");
}

TEST(NbrCompactWrite, LittleEndian) {
    EXPECT_EQ(compact(300, 8), "2C 01");
    EXPECT_EQ(compact(0x0123456709ABCDEFull, 8), "EF CD AB 09 67 45 23 01");
}

TEST(NbrCompactWrite, MaximumCutsTheExtraByte) {
    EXPECT_EQ(compact(200, 1), "C8");
    EXPECT_EQ(compact(0x8000, 2), "00 80");
}

TEST(NbrCompactWrite, MaximumCutsHigherBytes) {
    EXPECT_EQ(compact(0x01020304, 2), "04 03");
}

TEST(NbrCompactWrite, MaximumOfZeroWritesOneByte) {
    EXPECT_EQ(compact(0x1234, 0), "34");
}

TEST(NbrCompactWrite, NegativeTakesTheMaximum) {
    EXPECT_EQ(compact(static_cast<unsigned long long>(-1LL), 2), "FF FF");
    EXPECT_EQ(compact(static_cast<unsigned long long>(-2LL), 4), "FE FF FF FF");
    EXPECT_EQ(compact(static_cast<unsigned long long>(-1LL), 8), "FF FF FF FF FF FF FF FF");
}

TEST(NbrCompactWrite, MaximumOfNineGivesNegativeItsExtraByte) {
    EXPECT_EQ(compact(static_cast<unsigned long long>(-1LL), 9), "FF FF FF FF FF FF FF FF 00");
    EXPECT_EQ(compact(0x7FFFFFFFFFFFFFFFull, 9), "FF FF FF FF FF FF FF 7F");
}

TEST(NbrCompactWrite, FollowsTheRuleAtEveryWidthAndMaximum) {
    for (unsigned bit = 0; bit < 64; ++bit) {
        unsigned long long const power = 1ull << bit;
        for (unsigned long long v :
             {power - 1, power, power + 1, ~power, 0x0102030405060708ull & (power - 1)}) {
            for (unsigned max = 0; max <= 10; ++max) {
                ASSERT_EQ(compactByTheRule(v, max), compact(v, max)) << v << " max " << max;
            }
        }
    }
}

TEST(NbrCompactRead, NullPointerIsZero) {
    EXPECT_EQ(CompactIntegerReader::read(nullptr, 4, 4), 0u);
    EXPECT_EQ(CompactIntegerReader::read(nullptr, 4, 0), 0u);
    EXPECT_EQ(CompactIntegerReader::read(tav_istr(), 9), 0u);
}

TEST(NbrCompactRead, LengthZeroIsZero) {
    EXPECT_EQ(CompactIntegerReader::read("abc", 0, 0), 0u);
    EXPECT_EQ(CompactIntegerReader::read("abc", 0, 99), 0u);
}

TEST(NbrCompactRead, LittleEndianAtEveryLength) {
    std::string const data = bytes("81 92 A3 B4 C5 D6 E7 F8");
    unsigned long long expected = 0;
    for (unsigned n = 1; n <= 8; ++n) {
        expected |= static_cast<unsigned long long>(static_cast<unsigned char>(data[n - 1])) << (8 * (n - 1));
        EXPECT_EQ(CompactIntegerReader::read(data.data(), n, 8), expected) << n;
        EXPECT_EQ(CompactIntegerReader::read(data.data(), 8, n), expected) << n;
    }
}

TEST(NbrCompactRead, NoSignIsExtended) {
    EXPECT_EQ(readNumber(bytes("FF FF"), 8), 0xFFFFu);
    EXPECT_EQ(readNumber(bytes("80"), 4), 0x80u);
}

TEST(NbrCompactRead, BytesBeyondTheMaximumAreIgnored) {
    EXPECT_EQ(readNumber(bytes("01 02 03 04 05 06 07 08 09 0A"), 2), 0x0201u);
}

TEST(NbrCompactRead, ReadsNoByteBehindTheLength) {
    for (unsigned n = 1; n <= 8; ++n) {
        std::vector<char> const exact(n, '\x01');
        EXPECT_EQ(0x0101010101010101ull >> (8 * (8 - n)), CompactIntegerReader::read(exact.data(), n, 8));
    }
}

TEST(NbrCompactRead, SmallerOfLengthAndMaximumCounts) {
    EXPECT_EQ(readNumber(bytes("01 02 03 04 05 06 07 08"), 9), 0x0807060504030201ull);
    EXPECT_EQ(readNumber(bytes("01"), 99), 1u);
}

TEST(NbrCompactRead, MaximumOfNineWithNineBytesIsRefused) {
    std::string const text = failureOf("123456789", 9, 9);
    EXPECT_EQ(text.find("invalid size 9\n    throw at CompactIntegerReader::read(vinta_nbr_compactreader"),
              0u)
        << text;
    EXPECT_EQ(failureOf("1234567890", 10, 12).find("invalid size 10\n"), 0u);
}

TEST(NbrCompactRead, MaximumOfZeroIsRefused) {
    EXPECT_EQ(failureOf("1", 1, 0).find("invalid size 0\n    throw at "), 0u);
}

TEST(NbrCompactRead, RefusalIsLoggedAtError) {
    tav_test::LogCapture log;
    failureOf("123456789", 9, 9);
    auto const record = log.find("<EXCEPTION> invalid size 9\n");
    EXPECT_EQ(record.level, tavLogger::ERROR);
    EXPECT_EQ(record.text.find("throw at"), std::string::npos);
    EXPECT_EQ(log.count("invalid size"), 1u);
}

TEST(NbrCompactWriter, BytesAreNeverCompacted) {
    EXPECT_EQ(written(static_cast<char>(5)), "01 01 05");
    EXPECT_EQ(written(static_cast<char>(-1)), "01 01 FF");
    EXPECT_EQ(written(static_cast<unsigned char>(200)), "01 01 C8");
    EXPECT_EQ(written(true), "01 01 01");
    EXPECT_EQ(written(false), "01 01 00");
}

TEST(NbrCompactWriter, NumbersAreCompact) {
    EXPECT_EQ(written(static_cast<short>(128)), "01 02 80 00");
    EXPECT_EQ(written(static_cast<short>(-1)), "01 02 FF FF");
    EXPECT_EQ(written(static_cast<unsigned short>(32768)), "01 02 00 80");
    EXPECT_EQ(written(0), "01 01 00");
    EXPECT_EQ(written(-2), "01 04 FE FF FF FF");
    EXPECT_EQ(written(2147483648u), "01 04 00 00 00 80");
    EXPECT_EQ(written(-1LL), "01 08 FF FF FF FF FF FF FF FF");
    EXPECT_EQ(written(4294967296ull), "01 05 00 00 00 00 01");
}

TEST(NbrCompactWriter, LongGoesAs64Bits) {
    EXPECT_EQ(written(-1L), "01 08 FF FF FF FF FF FF FF FF");
    EXPECT_EQ(written(4294967296ul), "01 05 00 00 00 00 01");
    EXPECT_EQ(written(static_cast<std::int64_t>(5)), "01 01 05");
    EXPECT_EQ(written(std::numeric_limits<std::size_t>::max()), "01 08 FF FF FF FF FF FF FF FF");
}

TEST(NbrCompactWriter, FloatsGoAsPatterns) {
    EXPECT_EQ(written(1.0f), "01 04 00 00 80 3F");
    EXPECT_EQ(written(-0.0f), "01 04 00 00 00 80");
    EXPECT_EQ(written(0.0f), "01 01 00");
    EXPECT_EQ(written(1.5), "01 08 00 00 00 00 00 00 F8 3F");
    EXPECT_EQ(written(0.0), "01 01 00");
}

TEST(NbrCompactWriter, RawWritesAppend) {
    tavBytes out;
    CompactIntegerWriter writer(out);
    writer.writeByte(0x1FE);
    char data[] = {1, 2, 3};
    writer.writeBuf(data, 2);
    writer << 7;
    EXPECT_EQ(hex(out), "FE 01 02 01 01 07");
}

TEST(NbrCompactReader, ReadByteGivesZeroAtTheEnd) {
    std::string const data = bytes("81");
    tav_istr view(data);
    CompactIntegerReader reader(view);
    EXPECT_EQ(reader.readByte(), '\x81');
    EXPECT_TRUE(view.empty());
    EXPECT_EQ(reader.readByte(), '\0');
}

TEST(NbrCompactReader, ReadBufIsLimitedToWhatIsLeft) {
    tav_istr view("abcde");
    CompactIntegerReader reader(view);
    EXPECT_EQ(std::string(reader.readBuf(2)), "ab");
    EXPECT_EQ(std::string(reader.remaining()), "cde");
    EXPECT_EQ(std::string(reader.readBuf(99)), "cde");
    EXPECT_EQ(reader.readBuf(1).size(), 0u);
}

TEST(NbrCompactReader, ReadBufOfAHugeCountNeverMovesBack) {
    tav_istr view("abcde");
    view.advance(2);
    CompactIntegerReader reader(view);
    EXPECT_EQ(std::string(reader.readBuf(0xFFFFFFFFu)), "cde");
    EXPECT_EQ(view.size(), 0u);
}

TEST(NbrCompactReader, TruthValues) {
    tav_istr view("a");
    CompactIntegerReader reader(view);
    EXPECT_FALSE(reader.empty());
    EXPECT_FALSE(!reader);
    EXPECT_TRUE(static_cast<void *>(reader) != nullptr);
    reader.readByte();
    EXPECT_TRUE(reader.empty());
    EXPECT_TRUE(!reader);
    EXPECT_TRUE(static_cast<void *>(reader) == nullptr);
    tav_istr null(static_cast<char const *>(nullptr), 3u);
    CompactIntegerReader none(null);
    EXPECT_TRUE(none.empty());
}

TEST(NbrCompactReader, ByteFormsConsumeFiveBytes) {
    auto const c = readTyped<char>("01 EE 01 EE 81 77", 3);
    EXPECT_TRUE(c.ok);
    EXPECT_EQ(c.value, '\x81');
    EXPECT_EQ(c.left, "77");
    auto const u = readTyped<unsigned char>("01 EE 01 EE 81", 3);
    EXPECT_TRUE(u.ok);
    EXPECT_EQ(u.value, 0x81);
    auto const b = readTyped<bool>("01 00 01 00 80", false);
    EXPECT_TRUE(b.ok);
    EXPECT_TRUE(b.value);
    EXPECT_FALSE(readTyped<bool>("01 00 01 00 00", true).value);
}

TEST(NbrCompactReader, ByteFormsRefuseAnotherByteThan01) {
    auto const first = readTyped<char>("02 00 01 00 05", 3);
    EXPECT_FALSE(first.ok);
    EXPECT_EQ(first.value, 3);
    EXPECT_EQ(first.left, "00 01 00 05");
    auto const second = readTyped<unsigned char>("01 00 02 00 05", 3);
    EXPECT_FALSE(second.ok);
    EXPECT_EQ(second.value, 3);
    EXPECT_EQ(second.left, "00 05");
}

TEST(NbrCompactReader, ByteFormsAtTheEnd) {
    EXPECT_FALSE(readTyped<char>("", 3).ok);
    EXPECT_FALSE(readTyped<bool>("01 00", true).ok);
    auto const cut = readTyped<char>("01 00 01", 3);
    EXPECT_TRUE(cut.ok);
    EXPECT_EQ(cut.value, 0);
}

TEST(NbrCompactReader, WideFormsLeaveTheData) {
    auto const s = readTyped<short>("01 EE 02 34 12 99", 0);
    EXPECT_TRUE(s.ok);
    EXPECT_EQ(s.value, 0x1234);
    EXPECT_EQ(s.left, "34 12 99");
    EXPECT_EQ(readTyped<unsigned short>("01 EE 02 DC FE", 0).value, 0xFEDC);
    EXPECT_EQ(readTyped<int>("01 EE 04 FE FF FF FF", 0).value, -2);
    EXPECT_EQ(readTyped<unsigned>("01 EE 04 FE FF FF FF", 0).value, 0xFFFFFFFEu);
    EXPECT_EQ(readTyped<long long>("01 EE 08 FE FF FF FF FF FF FF FF", 0).value, -2LL);
    EXPECT_EQ(readTyped<unsigned long long>("01 EE 08 01 02 03 04 05 06 07 08", 0).value,
              0x0807060504030201ull);
    EXPECT_EQ(readTyped<float>("01 EE 04 00 00 80 3F", 0).value, 1.0f);
    EXPECT_EQ(readTyped<double>("01 EE 08 00 00 00 00 00 00 F8 3F", 0).value, 1.5);
}

TEST(NbrCompactReader, LongReads64Bits) {
    EXPECT_EQ(readTyped<long>("01 EE 08 FE FF FF FF FF FF FF FF", 0).value, -2L);
    EXPECT_EQ(readTyped<unsigned long>("01 EE 05 00 00 00 00 01", 0).value, 0x100000000ul);
}

TEST(NbrCompactReader, WideFormsTakeTheWidthAsMaximum) {
    EXPECT_EQ(readTyped<short>("01 EE 04 01 02 03 04", 0).value, 0x0201);
    EXPECT_EQ(readTyped<int>("01 EE 09 01 02 03 04 05 06 07 08 09", 0).value, 0x04030201);
    EXPECT_EQ(readTyped<long long>("01 EE 09 01 02 03 04 05 06 07 08 09", 0).value, 0x0807060504030201ll);
}

TEST(NbrCompactReader, WideFormsRefuseAnotherByteThan01) {
    auto const r = readTyped<int>("F1 00 01 05", 7);
    EXPECT_FALSE(r.ok);
    EXPECT_EQ(r.value, 7);
    EXPECT_EQ(r.left, "00 01 05");
}

TEST(NbrCompactReader, WideFormsAreLimitedToWhatIsLeft) {
    std::vector<char> const exact{1, 0, 8, 5};
    tav_istr view(exact.data(), 4u);
    CompactIntegerReader reader(view);
    long long v = -1;
    EXPECT_TRUE(reader >> v);
    EXPECT_EQ(v, 5);
    EXPECT_EQ(view.size(), 1u);
}

TEST(NbrCompactReader, CountIsSigned) {
    EXPECT_EQ(readTyped<int>("01 00 FF 05 06", 7).value, 0x0605);
    EXPECT_EQ(readTyped<int>("01 00 80 05 06", 7).value, 0x0605);
}

TEST(NbrCompactReader, CountOfZeroOrMissingGivesZero) {
    EXPECT_EQ(readTyped<int>("01 00 00 05", 7).value, 0);
    auto const cut = readTyped<int>("01", 7);
    EXPECT_TRUE(cut.ok);
    EXPECT_EQ(cut.value, 0);
    EXPECT_FALSE(readTyped<int>("", 7).ok);
    EXPECT_EQ(readTyped<int>("", 7).value, 7);
}

TEST(NbrCompactReader, DoesNotReadWhatTheWriterWrites) {
    tavBytes out;
    CompactIntegerWriter writer(out);
    writer << 300;
    tav_istr view = out;
    CompactIntegerReader reader(view);
    int v = 0;
    EXPECT_TRUE(reader >> v);
    EXPECT_EQ(v, 1);
    EXPECT_EQ(hex(view), "01");
}
