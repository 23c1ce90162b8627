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
        EXPECT_EQ('\x5A', buf[i]) << "byte " << i << " behind " << count;
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
    EXPECT_EQ("00", compact(0, 8));
}

TEST(NbrCompactWrite, OneByteUpTo7F) {
    EXPECT_EQ("7F", compact(0x7F, 8));
}

TEST(NbrCompactWrite, TopBitSetTakesAnotherByte) {
    EXPECT_EQ("80 00", compact(0x80, 8));
    EXPECT_EQ("FF 00", compact(0xFF, 8));
    EXPECT_EQ("00 80 00", compact(0x8000, 8));
}

TEST(NbrCompactWrite, LittleEndian) {
    EXPECT_EQ("2C 01", compact(300, 8));
    EXPECT_EQ("EF CD AB 09 67 45 23 01", compact(0x0123456709ABCDEFull, 8));
}

TEST(NbrCompactWrite, MaximumCutsTheExtraByte) {
    EXPECT_EQ("C8", compact(200, 1));
    EXPECT_EQ("00 80", compact(0x8000, 2));
}

TEST(NbrCompactWrite, MaximumCutsHigherBytes) {
    EXPECT_EQ("04 03", compact(0x01020304, 2));
}

TEST(NbrCompactWrite, MaximumOfZeroWritesOneByte) {
    EXPECT_EQ("34", compact(0x1234, 0));
}

TEST(NbrCompactWrite, NegativeTakesTheMaximum) {
    EXPECT_EQ("FF FF", compact(static_cast<unsigned long long>(-1LL), 2));
    EXPECT_EQ("FE FF FF FF", compact(static_cast<unsigned long long>(-2LL), 4));
    EXPECT_EQ("FF FF FF FF FF FF FF FF", compact(static_cast<unsigned long long>(-1LL), 8));
}

TEST(NbrCompactWrite, MaximumOfNineGivesNegativeItsExtraByte) {
    EXPECT_EQ("FF FF FF FF FF FF FF FF 00", compact(static_cast<unsigned long long>(-1LL), 9));
    EXPECT_EQ("FF FF FF FF FF FF FF 7F", compact(0x7FFFFFFFFFFFFFFFull, 9));
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
    EXPECT_EQ(0u, CompactIntegerReader::read(nullptr, 4, 4));
    EXPECT_EQ(0u, CompactIntegerReader::read(nullptr, 4, 0));
    EXPECT_EQ(0u, CompactIntegerReader::read(tav_istr(), 9));
}

TEST(NbrCompactRead, LengthZeroIsZero) {
    EXPECT_EQ(0u, CompactIntegerReader::read("abc", 0, 0));
    EXPECT_EQ(0u, CompactIntegerReader::read("abc", 0, 99));
}

TEST(NbrCompactRead, LittleEndianAtEveryLength) {
    std::string const data = bytes("81 92 A3 B4 C5 D6 E7 F8");
    unsigned long long expected = 0;
    for (unsigned n = 1; n <= 8; ++n) {
        expected |= static_cast<unsigned long long>(static_cast<unsigned char>(data[n - 1])) << (8 * (n - 1));
        EXPECT_EQ(expected, CompactIntegerReader::read(data.data(), n, 8)) << n;
        EXPECT_EQ(expected, CompactIntegerReader::read(data.data(), 8, n)) << n;
    }
}

TEST(NbrCompactRead, NoSignIsExtended) {
    EXPECT_EQ(0xFFFFu, readNumber(bytes("FF FF"), 8));
    EXPECT_EQ(0x80u, readNumber(bytes("80"), 4));
}

TEST(NbrCompactRead, BytesBeyondTheMaximumAreIgnored) {
    EXPECT_EQ(0x0201u, readNumber(bytes("01 02 03 04 05 06 07 08 09 0A"), 2));
}

TEST(NbrCompactRead, ReadsNoByteBehindTheLength) {
    for (unsigned n = 1; n <= 8; ++n) {
        std::vector<char> const exact(n, '\x01');
        EXPECT_EQ(0x0101010101010101ull >> (8 * (8 - n)), CompactIntegerReader::read(exact.data(), n, 8));
    }
}

TEST(NbrCompactRead, SmallerOfLengthAndMaximumCounts) {
    EXPECT_EQ(0x0807060504030201ull, readNumber(bytes("01 02 03 04 05 06 07 08"), 9));
    EXPECT_EQ(1u, readNumber(bytes("01"), 99));
}

TEST(NbrCompactRead, MaximumOfNineWithNineBytesIsRefused) {
    std::string const text = failureOf("123456789", 9, 9);
    EXPECT_EQ(0u,
              text.find("invalid size 9\n    throw at CompactIntegerReader::read(vinta_nbr_compactreader"))
        << text;
    EXPECT_EQ(0u, failureOf("1234567890", 10, 12).find("invalid size 10\n"));
}

TEST(NbrCompactRead, MaximumOfZeroIsRefused) {
    EXPECT_EQ(0u, failureOf("1", 1, 0).find("invalid size 0\n    throw at "));
}

TEST(NbrCompactRead, RefusalIsLoggedAtError) {
    tav_test::LogCapture log;
    failureOf("123456789", 9, 9);
    auto const record = log.find("<EXCEPTION> invalid size 9\n");
    EXPECT_EQ(tavLogger::ERROR, record.level);
    EXPECT_EQ(std::string::npos, record.text.find("throw at"));
    EXPECT_EQ(1u, log.count("invalid size"));
}

TEST(NbrCompactWriter, BytesAreNeverCompacted) {
    EXPECT_EQ("01 01 05", written(static_cast<char>(5)));
    EXPECT_EQ("01 01 FF", written(static_cast<char>(-1)));
    EXPECT_EQ("01 01 C8", written(static_cast<unsigned char>(200)));
    EXPECT_EQ("01 01 01", written(true));
    EXPECT_EQ("01 01 00", written(false));
}

TEST(NbrCompactWriter, NumbersAreCompact) {
    EXPECT_EQ("01 02 80 00", written(static_cast<short>(128)));
    EXPECT_EQ("01 02 FF FF", written(static_cast<short>(-1)));
    EXPECT_EQ("01 02 00 80", written(static_cast<unsigned short>(32768)));
    EXPECT_EQ("01 01 00", written(0));
    EXPECT_EQ("01 04 FE FF FF FF", written(-2));
    EXPECT_EQ("01 04 00 00 00 80", written(2147483648u));
    EXPECT_EQ("01 08 FF FF FF FF FF FF FF FF", written(-1LL));
    EXPECT_EQ("01 05 00 00 00 00 01", written(4294967296ull));
}

TEST(NbrCompactWriter, LongGoesAs64Bits) {
    EXPECT_EQ("01 08 FF FF FF FF FF FF FF FF", written(-1L));
    EXPECT_EQ("01 05 00 00 00 00 01", written(4294967296ul));
    EXPECT_EQ("01 01 05", written(static_cast<std::int64_t>(5)));
    EXPECT_EQ("01 08 FF FF FF FF FF FF FF FF", written(std::numeric_limits<std::size_t>::max()));
}

TEST(NbrCompactWriter, FloatsGoAsPatterns) {
    EXPECT_EQ("01 04 00 00 80 3F", written(1.0f));
    EXPECT_EQ("01 04 00 00 00 80", written(-0.0f));
    EXPECT_EQ("01 01 00", written(0.0f));
    EXPECT_EQ("01 08 00 00 00 00 00 00 F8 3F", written(1.5));
    EXPECT_EQ("01 01 00", written(0.0));
}

TEST(NbrCompactWriter, RawWritesAppend) {
    tavBytes out;
    CompactIntegerWriter writer(out);
    writer.writeByte(0x1FE);
    char data[] = {1, 2, 3};
    writer.writeBuf(data, 2);
    writer << 7;
    EXPECT_EQ("FE 01 02 01 01 07", hex(out));
}

TEST(NbrCompactReader, ReadByteGivesZeroAtTheEnd) {
    std::string const data = bytes("81");
    tav_istr view(data);
    CompactIntegerReader reader(view);
    EXPECT_EQ('\x81', reader.readByte());
    EXPECT_TRUE(view.empty());
    EXPECT_EQ('\0', reader.readByte());
}

TEST(NbrCompactReader, ReadBufIsLimitedToWhatIsLeft) {
    tav_istr view("abcde");
    CompactIntegerReader reader(view);
    EXPECT_EQ("ab", std::string(reader.readBuf(2)));
    EXPECT_EQ("cde", std::string(reader.remaining()));
    EXPECT_EQ("cde", std::string(reader.readBuf(99)));
    EXPECT_EQ(0u, reader.readBuf(1).size());
}

TEST(NbrCompactReader, ReadBufOfAHugeCountNeverMovesBack) {
    tav_istr view("abcde");
    view.advance(2);
    CompactIntegerReader reader(view);
    EXPECT_EQ("cde", std::string(reader.readBuf(0xFFFFFFFFu)));
    EXPECT_EQ(0u, view.size());
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
    EXPECT_EQ('\x81', c.value);
    EXPECT_EQ("77", c.left);
    auto const u = readTyped<unsigned char>("01 EE 01 EE 81", 3);
    EXPECT_TRUE(u.ok);
    EXPECT_EQ(0x81, u.value);
    auto const b = readTyped<bool>("01 00 01 00 80", false);
    EXPECT_TRUE(b.ok);
    EXPECT_TRUE(b.value);
    EXPECT_FALSE(readTyped<bool>("01 00 01 00 00", true).value);
}

TEST(NbrCompactReader, ByteFormsRefuseAnotherByteThan01) {
    auto const first = readTyped<char>("02 00 01 00 05", 3);
    EXPECT_FALSE(first.ok);
    EXPECT_EQ(3, first.value);
    EXPECT_EQ("00 01 00 05", first.left);
    auto const second = readTyped<unsigned char>("01 00 02 00 05", 3);
    EXPECT_FALSE(second.ok);
    EXPECT_EQ(3, second.value);
    EXPECT_EQ("00 05", second.left);
}

TEST(NbrCompactReader, ByteFormsAtTheEnd) {
    EXPECT_FALSE(readTyped<char>("", 3).ok);
    EXPECT_FALSE(readTyped<bool>("01 00", true).ok);
    auto const cut = readTyped<char>("01 00 01", 3);
    EXPECT_TRUE(cut.ok);
    EXPECT_EQ(0, cut.value);
}

TEST(NbrCompactReader, WideFormsLeaveTheData) {
    auto const s = readTyped<short>("01 EE 02 34 12 99", 0);
    EXPECT_TRUE(s.ok);
    EXPECT_EQ(0x1234, s.value);
    EXPECT_EQ("34 12 99", s.left);
    EXPECT_EQ(0xFEDC, readTyped<unsigned short>("01 EE 02 DC FE", 0).value);
    EXPECT_EQ(-2, readTyped<int>("01 EE 04 FE FF FF FF", 0).value);
    EXPECT_EQ(0xFFFFFFFEu, readTyped<unsigned>("01 EE 04 FE FF FF FF", 0).value);
    EXPECT_EQ(-2LL, readTyped<long long>("01 EE 08 FE FF FF FF FF FF FF FF", 0).value);
    EXPECT_EQ(0x0807060504030201ull,
              readTyped<unsigned long long>("01 EE 08 01 02 03 04 05 06 07 08", 0).value);
    EXPECT_EQ(1.0f, readTyped<float>("01 EE 04 00 00 80 3F", 0).value);
    EXPECT_EQ(1.5, readTyped<double>("01 EE 08 00 00 00 00 00 00 F8 3F", 0).value);
}

TEST(NbrCompactReader, LongReads64Bits) {
    EXPECT_EQ(-2L, readTyped<long>("01 EE 08 FE FF FF FF FF FF FF FF", 0).value);
    EXPECT_EQ(0x100000000ul, readTyped<unsigned long>("01 EE 05 00 00 00 00 01", 0).value);
}

TEST(NbrCompactReader, WideFormsTakeTheWidthAsMaximum) {
    EXPECT_EQ(0x0201, readTyped<short>("01 EE 04 01 02 03 04", 0).value);
    EXPECT_EQ(0x04030201, readTyped<int>("01 EE 09 01 02 03 04 05 06 07 08 09", 0).value);
    EXPECT_EQ(0x0807060504030201ll, readTyped<long long>("01 EE 09 01 02 03 04 05 06 07 08 09", 0).value);
}

TEST(NbrCompactReader, WideFormsRefuseAnotherByteThan01) {
    auto const r = readTyped<int>("F1 00 01 05", 7);
    EXPECT_FALSE(r.ok);
    EXPECT_EQ(7, r.value);
    EXPECT_EQ("00 01 05", r.left);
}

TEST(NbrCompactReader, WideFormsAreLimitedToWhatIsLeft) {
    std::vector<char> const exact{1, 0, 8, 5};
    tav_istr view(exact.data(), 4u);
    CompactIntegerReader reader(view);
    long long v = -1;
    EXPECT_TRUE(reader >> v);
    EXPECT_EQ(5, v);
    EXPECT_EQ(1u, view.size());
}

TEST(NbrCompactReader, CountIsSigned) {
    EXPECT_EQ(0x0605, readTyped<int>("01 00 FF 05 06", 7).value);
    EXPECT_EQ(0x0605, readTyped<int>("01 00 80 05 06", 7).value);
}

TEST(NbrCompactReader, CountOfZeroOrMissingGivesZero) {
    EXPECT_EQ(0, readTyped<int>("01 00 00 05", 7).value);
    auto const cut = readTyped<int>("01", 7);
    EXPECT_TRUE(cut.ok);
    EXPECT_EQ(0, cut.value);
    EXPECT_FALSE(readTyped<int>("", 7).ok);
    EXPECT_EQ(7, readTyped<int>("", 7).value);
}

TEST(NbrCompactReader, DoesNotReadWhatTheWriterWrites) {
    tavBytes out;
    CompactIntegerWriter writer(out);
    writer << 300;
    tav_istr view = out;
    CompactIntegerReader reader(view);
    int v = 0;
    EXPECT_TRUE(reader >> v);
    EXPECT_EQ(1, v);
    EXPECT_EQ("01", hex(view));
}
