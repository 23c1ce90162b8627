#include "tav/vinta/vinta_basetypes_util.h"

#include "support/folder.h"

#include <gtest/gtest.h>

#include <chrono>
#include <fcntl.h>
#include <filesystem>
#include <limits>
#include <set>
#include <string>
#include <termios.h>
#include <thread>
#include <type_traits>
#include <unistd.h>
#include <vector>

extern "C" {
void tav_init(void);
void tav_fini(void);
void tav_sleep(unsigned ms);
bool tav_kbhit(void);
}

namespace {

std::string text(tav_istr v) {
    return v.empty() ? std::string() : std::string(v.data(), v.size());
}

std::string fileName(char const * path) {
    return text(tavUtil::getFileName(path));
}
std::string funcName(char const * name) {
    return text(tavUtil::getFuncName(name));
}

/// A folder of its own for each test.
class UtilFiles : public testing::Test {
protected:
    std::string path(char const * name) const { return (directory / name).string(); }

    tav_test::Folder const folder;
    std::filesystem::path const directory = folder.path();
};

TEST(UtilNames, FileNameStandsBehindTheLastSeparator) {
    EXPECT_EQ(fileName("c:\\a\\b.x"), "b.x");
    EXPECT_EQ(fileName("a/b.x"), "b.x");
    EXPECT_EQ(fileName("b.x"), "b.x");
    EXPECT_EQ(fileName("a/b\\c"), "c");
    EXPECT_EQ(fileName("a\\b/c"), "c");
    EXPECT_EQ(fileName("a/"), "");
    EXPECT_EQ(fileName(""), "");
}

TEST(UtilNames, FileNameIsAViewOfThePath) {
    char const * const path = "a/b.x";
    EXPECT_EQ(tavUtil::getFileName(path).data(), path + 2);
}

TEST(UtilNames, NamesOfNullAreEmpty) {
    EXPECT_TRUE(tavUtil::getFileName(nullptr).empty());
    EXPECT_TRUE(tavUtil::getFuncName(nullptr).empty());
}

TEST(UtilNames, FuncNameKeepsTheLastTwoComponents) {
    EXPECT_EQ(funcName("a::b::c"), "b::c");
    EXPECT_EQ(funcName("tav::tls::Class::method"), "Class::method");
    EXPECT_EQ(funcName("::a::b"), "a::b");
}

TEST(UtilNames, FuncNameWithOneSeparatorOrNoneStaysWhole) {
    EXPECT_EQ(funcName("f"), "f");
    EXPECT_EQ(funcName("a::b"), "a::b");
    EXPECT_EQ(funcName("::f"), "::f");
    EXPECT_EQ(funcName(""), "");
    EXPECT_EQ(funcName("void f(int)"), "void f(int)");
    EXPECT_EQ(funcName("a:b:c:d"), "a:b:c:d");
}

TEST(UtilNames, FuncNameStopsAtABlankAheadOfItsComponents) {
    EXPECT_EQ(funcName("void a::f(int)"), "a::f(int)");
    EXPECT_EQ(funcName("void __thiscall tav::Class::method(int)"), "Class::method(int)");
    EXPECT_EQ(funcName("int tav::f"), "tav::f");
}

TEST(UtilNames, BlankBehindEverySeparatorDoesNotStop) {
    EXPECT_EQ(funcName("a::f(int, int)"), "a::f(int, int)");
    EXPECT_EQ(funcName("a::b::f(int, int)"), "b::f(int, int)");
}

TEST(UtilNames, BlankAsTheFirstCharacterStops) {
    EXPECT_EQ(funcName(" a::b"), "a::b");
}

TEST(UtilNames, SeparatorsInAParameterListCount) {
    EXPECT_EQ(funcName("a::b::f(std::string)"), "f(std::string)");
    EXPECT_EQ(funcName("a::f(int, std::string)"), "std::string)");
}

TEST(UtilNames, ThirdColonIsNotPartOfASeparator) {
    EXPECT_EQ(funcName("a:::b"), "a:::b");
    EXPECT_EQ(funcName("a::::b"), "::b");
}

TEST_F(UtilFiles, WrittenBytesAreReadBack) {
    std::string content;
    for (int i = 0; i < 100000; ++i) {
        content += static_cast<char>(i * 7);
    }
    EXPECT_TRUE(tavUtil::writeFile(path("f"), content));
    EXPECT_EQ(tavUtil::readFile(path("f")), content);
}

TEST_F(UtilFiles, BytesAreNotTranslated) {
    std::string const content("a\r\nb\n\0\x1A\xFF", 8);
    EXPECT_TRUE(tavUtil::writeFile(path("f"), content));
    EXPECT_EQ(tavUtil::readFile(path("f")), content);
    EXPECT_EQ(std::filesystem::file_size(path("f")), 8u);
}

TEST_F(UtilFiles, WriteTruncates) {
    EXPECT_TRUE(tavUtil::writeFile(path("f"), "long content"));
    EXPECT_TRUE(tavUtil::writeFile(path("f"), "short"));
    EXPECT_EQ(tavUtil::readFile(path("f")), "short");
    EXPECT_TRUE(tavUtil::writeFile(path("f"), tav_istr()));
    EXPECT_EQ(tavUtil::readFile(path("f")), "");
    EXPECT_TRUE(std::filesystem::exists(path("f")));
}

TEST_F(UtilFiles, AppendGoesBehind) {
    EXPECT_TRUE(tavUtil::appendFile(path("f"), "one "));
    EXPECT_TRUE(tavUtil::appendFile(path("f"), "two"));
    EXPECT_EQ(tavUtil::readFile(path("f")), "one two");
}

TEST_F(UtilFiles, MissingPlacesFail) {
    EXPECT_FALSE(tavUtil::writeFile(path("none/f"), "x"));
    EXPECT_FALSE(tavUtil::appendFile(path("none/f"), "x"));
    EXPECT_FALSE(tavUtil::writeFile(directory.string(), "x"));
    EXPECT_EQ(tavUtil::readFile(path("none")), "");
    EXPECT_EQ(tavUtil::readFile(directory.string()), "");
    EXPECT_FALSE(tavUtil::moveFile(path("none"), path("f")));
    EXPECT_FALSE(std::filesystem::exists(path("f")));
}

TEST(UtilFullDevice, WriteReportsWhatTheFlushFinds) {
    if (access("/dev/full", W_OK) != 0) {
        GTEST_SKIP() << "no full device here";
    }
    EXPECT_FALSE(tavUtil::writeFile("/dev/full", "x"));
    EXPECT_FALSE(tavUtil::appendFile("/dev/full", "x"));
}

TEST_F(UtilFiles, MoveReplaces) {
    tavUtil::writeFile(path("a"), "new");
    tavUtil::writeFile(path("b"), "old");
    EXPECT_TRUE(tavUtil::moveFile(path("a"), path("b")));
    EXPECT_EQ(tavUtil::readFile(path("b")), "new");
    EXPECT_FALSE(std::filesystem::exists(path("a")));
}

TEST_F(UtilFiles, WideMoveEncodesNames) {
    std::wstring const wide(directory.wstring() + L"/");
    tavUtil::writeFile(path("a"), "x");
    EXPECT_TRUE(tavUtil::moveFile(wide + L"a", wide + L"\u00E9\u4E2D"));
    EXPECT_EQ(tavUtil::readFile(path("\xC3\xA9\xE4\xB8\xAD")), "x");
}

TEST_F(UtilFiles, WideMoveJoinsSurrogatePairs) {
    std::wstring const wide(directory.wstring() + L"/");
    std::wstring pair = wide;
    pair += static_cast<wchar_t>(0xD83D);
    pair += static_cast<wchar_t>(0xDE00);
    tavUtil::writeFile(path("a"), "x");
    EXPECT_TRUE(tavUtil::moveFile(wide + L"a", pair));
    EXPECT_EQ(tavUtil::readFile(path("\xF0\x9F\x98\x80")), "x");
    EXPECT_TRUE(tavUtil::moveFile(wide + static_cast<wchar_t>(0x1F600), wide + L"b"));
    EXPECT_EQ(tavUtil::readFile(path("b")), "x");
}

TEST_F(UtilFiles, WideMoveKeepsLoneSurrogates) {
    std::wstring const wide(directory.wstring() + L"/");
    tavUtil::writeFile(path("a"), "x");
    EXPECT_TRUE(tavUtil::moveFile(wide + L"a", wide + static_cast<wchar_t>(0xD83D) + L"z"));
    EXPECT_EQ(tavUtil::readFile(path("\xED\xA0\xBDz")), "x");
    EXPECT_TRUE(tavUtil::moveFile(wide + static_cast<wchar_t>(0xD83D) + L"z",
                                  wide + static_cast<wchar_t>(0xDE00) + static_cast<wchar_t>(0xD83D)));
    EXPECT_EQ(tavUtil::readFile(path("\xED\xB8\x80\xED\xA0\xBD")), "x");
}

TEST_F(UtilFiles, WideMoveTakesTheLow16BitsOfWhatIsNoCharacter) {
    std::wstring const wide(directory.wstring() + L"/");
    tavUtil::writeFile(path("a"), "x");
    EXPECT_TRUE(tavUtil::moveFile(wide + L"a",
                                  wide + static_cast<wchar_t>(0x1100E9) + static_cast<wchar_t>(-0x7FFFFFBF)));
    EXPECT_EQ(tavUtil::readFile(path("\xC3\xA9"
                                     "A")),
              "x");
}

TEST(UtilArraycopy, CopiesAtTheOffsetAndKeepsTheSize) {
    tavBytes dst(tav_istr("0123456789"));
    dst.size(4);
    tavUtil::arraycopy("ab", dst, 5);
    EXPECT_EQ(dst.size(), 4u);
    EXPECT_EQ(dst.maxSize(), 10u);
    EXPECT_EQ(std::string(reinterpret_cast<char const *>(dst.buffer()), 10), "01234ab789");
}

TEST(UtilArraycopy, IsLimitedToTheCapacity) {
    tavBytes dst(tav_istr("0123456789"));
    tavUtil::arraycopy("abcdef", dst, 7);
    EXPECT_EQ(std::string(reinterpret_cast<char const *>(dst.buffer()), 10), "0123456abc");
    tavUtil::arraycopy("xyz", dst, 7);
    EXPECT_EQ(std::string(reinterpret_cast<char const *>(dst.buffer()), 10), "0123456xyz");
}

TEST(UtilArraycopy, OffsetBeyondTheCapacityCopiesNothing) {
    tavBytes dst(tav_istr("0123"));
    tavUtil::arraycopy("ab", dst, 4);
    tavUtil::arraycopy("ab", dst, 5);
    tavUtil::arraycopy("ab", dst, std::numeric_limits<unsigned>::max());
    EXPECT_EQ(std::string(reinterpret_cast<char const *>(dst.buffer()), 4), "0123");
    tavBytes none;
    tavUtil::arraycopy("ab", none, 0);
    EXPECT_EQ(none.maxSize(), 0u);
}

TEST(UtilArraycopy, NullViewCopiesNothing) {
    tavBytes dst(tav_istr("0123"));
    tavUtil::arraycopy(tav_istr(static_cast<char const *>(nullptr), 3u), dst, 0);
    EXPECT_EQ(std::string(reinterpret_cast<char const *>(dst.buffer()), 4), "0123");
}

TEST(UtilArraycopy, ViewOfTheBufferItselfMayOverlap) {
    tavBytes dst(tav_istr("0123456789"));
    tavUtil::arraycopy(tav_istr(dst.buffer(), 8u), dst, 2);
    EXPECT_EQ(std::string(reinterpret_cast<char const *>(dst.buffer()), 10), "0101234567");
}

TEST(UtilBytes, SingleBytes) {
    EXPECT_EQ(tavUtil::byte2int(0), 0);
    EXPECT_EQ(tavUtil::byte2int(0xFF), 255);
    EXPECT_EQ(tavUtil::int2byte(0x1FE), 0xFE);
    EXPECT_EQ(tavUtil::int2byte(-1), 0xFF);
}

TEST(UtilBytes, TwoAndFourBytesAreBigEndian) {
    EXPECT_EQ(tavUtil::bytes2int(0x01, 0x02), 0x0102);
    EXPECT_EQ(tavUtil::bytes2int(0xFF, 0xFE), 0xFFFE);
    EXPECT_EQ(tavUtil::bytes2int(0x01, 0x02, 0x03, 0x04), 0x01020304);
    EXPECT_EQ(tavUtil::bytes2int(0xFF, 0xFF, 0xFF, 0xFE), -2);
}

TEST(UtilBytes, ViewGivesUpToFourBytes) {
    char const bytes[] = "\x01\x02\x03\x04\x05";
    EXPECT_EQ(tavUtil::bytes2int(tav_istr(bytes, 2u), 0), 0x0102);
    EXPECT_EQ(tavUtil::bytes2int(tav_istr(bytes, 5u), 0), 0x01020304);
    EXPECT_EQ(tavUtil::bytes2int(tav_istr(bytes, 5u), 1), 0x02030405);
    EXPECT_EQ(tavUtil::bytes2int(tav_istr(bytes, 5u), 2), 0x030405);
    EXPECT_EQ(tavUtil::bytes2int(tav_istr(bytes, 5u), 4), 5);
    EXPECT_EQ(tavUtil::bytes2int(tav_istr(bytes, 5u), 5), 0);
    EXPECT_EQ(tavUtil::bytes2int(tav_istr(bytes, 5u), std::numeric_limits<unsigned>::max()), 0);
    EXPECT_EQ(tavUtil::bytes2int(tav_istr("\xFF\xFF\xFF\xFF", 4u), 0), -1);
    EXPECT_EQ(tavUtil::bytes2int(tav_istr(), 0), 0);
    EXPECT_EQ(tavUtil::bytes2int(tav_istr(static_cast<char const *>(nullptr), 4u), 0), 0);
}

TEST(UtilBytes, IntIsStoredBigEndianWithoutTouchingTheSize) {
    tavBytes dst(tav_istr("0123456789"));
    dst.size(1);
    tavUtil::int2bytes(0x41424344, dst, 3);
    EXPECT_EQ(dst.size(), 1u);
    EXPECT_EQ(std::string(reinterpret_cast<char const *>(dst.buffer()), 10), "012ABCD789");
    tavUtil::int2bytes(-2, dst, 0);
    EXPECT_EQ(tavUtil::bytes2int(tav_istr(dst.buffer(), 4u), 0), -2);
}

TEST(UtilIdGenerator, FirstNumberFollowsTheStart) {
    tavIdGenerator ids(10);
    EXPECT_EQ(ids.nextSno(), 11);
    EXPECT_EQ(ids.nextSno(), 12);
    EXPECT_EQ(tavIdGenerator(-1).nextSno(), 0);
    EXPECT_FALSE((std::is_convertible<long long, tavIdGenerator>::value));
}

TEST(UtilIdGenerator, GlobalNumbersStartAtOneAndAgainAfterFinalize) {
    tavIdGenerator::finalize();
    EXPECT_EQ(tavIdGenerator::globalNextSno(), 1);
    EXPECT_EQ(tavIdGenerator::globalNextSno(), 2);
    EXPECT_EQ(tavIdGenerator::globalNextSno(), 3);
    tavIdGenerator::finalize();
    tavIdGenerator::finalize();
    EXPECT_EQ(tavIdGenerator::globalNextSno(), 1);
}

TEST(UtilIdGenerator, NumbersAreUniqueAcrossThreads) {
    tavIdGenerator::finalize();
    tavIdGenerator ids(0);
    std::vector<std::vector<long long>> own(4);
    std::vector<std::vector<long long>> global(4);
    std::vector<std::thread> threads;
    for (std::size_t t = 0; t < 4; ++t) {
        threads.emplace_back([&, t] {
            for (int i = 0; i < 1000; ++i) {
                own[t].push_back(ids.nextSno());
                global[t].push_back(tavIdGenerator::globalNextSno());
            }
        });
    }
    for (std::thread & thread : threads) {
        thread.join();
    }
    for (auto const * const all : {&own, &global}) {
        std::set<long long> seen;
        for (auto const & part : *all) {
            seen.insert(part.begin(), part.end());
        }
        EXPECT_EQ(seen.size(), 4000u);
        EXPECT_EQ(*seen.begin(), 1);
        EXPECT_EQ(*seen.rbegin(), 4000);
    }
}

TEST(UtilIdGenerator, FinalizeMayMeetOtherThreads) {
    std::thread ending([] {
        for (int i = 0; i < 1000; ++i) {
            tavIdGenerator::finalize();
        }
    });
    long long lowest = std::numeric_limits<long long>::max();
    for (int i = 0; i < 1000; ++i) {
        lowest = std::min(lowest, tavIdGenerator::globalNextSno());
    }
    ending.join();
    EXPECT_GE(lowest, 1);
}

TEST(UtilModuleFunctions, InitAndFiniLeaveTheNumbersAlone) {
    tavIdGenerator::finalize();
    EXPECT_EQ(tavIdGenerator::globalNextSno(), 1);
    tav_init();
    tavMemLeakCheck::enter();
    { tavMemLeakCheck const scope; }
    tavMemLeakCheck::leave();
    tav_fini();
    EXPECT_EQ(tavIdGenerator::globalNextSno(), 2);
}

TEST(UtilModuleFunctions, SleepBlocksForItsTime) {
    auto const start = std::chrono::steady_clock::now();
    tav_sleep(30);
    EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(30));
    tav_sleep(0);
}

/// Puts another file at the standard input while it lives.
class StandardInput {
public:
    explicit StandardInput(int file) : saved_(dup(STDIN_FILENO)) { dup2(file, STDIN_FILENO); }
    ~StandardInput() {
        dup2(saved_, STDIN_FILENO);
        close(saved_);
    }

private:
    int saved_;
};

TEST(UtilKeyHit, PipeIsNoConsole) {
    int ends[2];
    ASSERT_EQ(pipe(ends), 0);
    ASSERT_EQ(write(ends[1], "x", 1), 1);
    {
        StandardInput const input(ends[0]);
        EXPECT_FALSE(tav_kbhit());
    }
    close(ends[0]);
    close(ends[1]);
}

TEST(UtilKeyHit, TerminalTellsOfAWaitingKey) {
    int const keyboard = posix_openpt(O_RDWR | O_NOCTTY);
    ASSERT_GE(keyboard, 0);
    ASSERT_EQ(grantpt(keyboard), 0);
    ASSERT_EQ(unlockpt(keyboard), 0);
    int const terminal = open(ptsname(keyboard), O_RDWR | O_NOCTTY);
    ASSERT_GE(terminal, 0);
    struct termios mode = {};
    tcgetattr(terminal, &mode);
    cfmakeraw(&mode);
    tcsetattr(terminal, TCSANOW, &mode);
    {
        StandardInput const input(terminal);
        EXPECT_FALSE(tav_kbhit());
        ASSERT_EQ(write(keyboard, "x", 1), 1);
        for (int i = 0; i < 1000 && !tav_kbhit(); ++i) {
            tav_sleep(1);
        }
        EXPECT_TRUE(tav_kbhit());
        char key = 0;
        EXPECT_EQ(read(STDIN_FILENO, &key, 1), 1);
        EXPECT_EQ(key, 'x');
        EXPECT_FALSE(tav_kbhit());
    }
    close(terminal);
    close(keyboard);
}

} // namespace
