#include "tav/vinta/vinta_basetypes.h"

#include "support/exact.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <ctime>
#include <exception>
#include <iomanip>
#include <ios>
#include <map>
#include <ostream>
#include <sstream>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

using tav_test::ConstOp;
using tav_test::equates;
using tav_test::exact;
using tav_test::implicit;
using tav_test::isCopied;
using tav_test::made;
using tav_test::onlyExplicit;
using tav_test::Op;
using tav_test::orders;

// What applications compile and link against: bytes, failures, printing, time, command line and utilities.

extern "C" {
// The linkage is that of C; a header that says otherwise contradicts these.
decltype(tav_init) tav_init;
decltype(tav_fini) tav_fini;
decltype(tav_sleep) tav_sleep;
decltype(tav_kbhit) tav_kbhit;
}

namespace {

template <class T>
constexpr bool failure = std::is_base_of<std::exception, T>::value && std::is_copy_constructible<T>::value &&
    implicit<std::exception const &, T const &>;

using Text = char const *;
using Byte = unsigned char;

} // namespace

static_assert(onlyExplicit<tav_base64, tav_istr> && isCopied<tav_base64> && !implicit<tav_base64, Text>, "");
static_assert(exact<ConstOp<tav_base64, Text>>(&tav_base64::data), "");
static_assert(exact<ConstOp<tav_base64, unsigned>>(&tav_base64::size), "");

namespace {

template <class T>
constexpr bool bigEndian = exact<tavBytes & (tavBytes::*)(T)>(&tavBytes::writeBigEndian);
template <class T>
constexpr bool appends = exact<tavBytes & (tavBytes::*)(T)>(&tavBytes::operator<<);
template <class T>
constexpr bool hashes = made<tavHash16, T> && implicit<tavHash16, T>;

} // namespace

static_assert(std::is_default_constructible<tavBytes>::value && isCopied<tavBytes>, "");
static_assert(std::is_nothrow_move_constructible<tavBytes>::value && !std::is_polymorphic<tavBytes>::value,
              "");
static_assert(onlyExplicit<tavBytes, unsigned> && onlyExplicit<tavBytes, int> &&
                  onlyExplicit<tavBytes, tav_base64>,
              "");
static_assert(implicit<tavBytes, tav_istr> && made<tavBytes, Text> && made<tavBytes, tavString>, "");
static_assert(made<tavBytes, std::string>, "");
static_assert(exact<Op<tavBytes, tavBytes &, tavBytes const &>>(&tavBytes::operator=), "");
static_assert(exact<Op<tavBytes, tavBytes &, tavBytes &&>>(&tavBytes::operator=), "");
static_assert(exact<Op<tavBytes, tavBytes &, tav_istr>>(&tavBytes::operator=), "");
static_assert(exact<Op<tavBytes, Byte *>>(&tavBytes::data), "");
static_assert(exact<ConstOp<tavBytes, Byte const *>>(&tavBytes::data), "");
static_assert(exact<Op<tavBytes, Byte *>>(&tavBytes::buffer), "");
static_assert(exact<ConstOp<tavBytes, Byte const *>>(&tavBytes::buffer), "");
static_assert(exact<Op<tavBytes, Byte &>>(&tavBytes::operator*), "");
static_assert(exact<ConstOp<tavBytes, Byte const &>>(&tavBytes::operator*), "");
static_assert(exact<Op<tavBytes, Byte &, unsigned>>(&tavBytes::operator[]), "");
static_assert(exact<ConstOp<tavBytes, Byte const &, unsigned>>(&tavBytes::operator[]), "");
static_assert(exact<ConstOp<tavBytes, unsigned>>(&tavBytes::size), "");
static_assert(exact<Op<tavBytes, void, unsigned>>(&tavBytes::size), "");
static_assert(exact<ConstOp<tavBytes, unsigned>>(&tavBytes::maxSize), "");
static_assert(exact<Op<tavBytes, void, unsigned>>(&tavBytes::resize), "");
static_assert(exact<ConstOp<tavBytes, bool>>(&tavBytes::empty), "");
static_assert(exact<ConstOp<tavBytes, tav_istr>>(&tavBytes::operator tav_istr), "");
static_assert(implicit<tav_istr, tavBytes>, "");
static_assert(exact<Op<tavBytes, tavBytes &, Byte>>(&tavBytes::writeByte), "");
static_assert(exact<Op<tavBytes, tavBytes &, tav_istr>>(&tavBytes::writeBytes), "");
static_assert(exact<Op<tavBytes, tavBytes &, tav_istr>>(&tavBytes::operator+=), "");
static_assert(bigEndian<short> && bigEndian<unsigned short> && bigEndian<int> && bigEndian<unsigned>, "");
static_assert(bigEndian<long> && bigEndian<unsigned long> && bigEndian<long long>, "");
static_assert(bigEndian<unsigned long long> && bigEndian<float> && bigEndian<double>, "");
static_assert(appends<tav_istr> && appends<char> && appends<Byte> && appends<short>, "");
static_assert(appends<unsigned short> && appends<int> && appends<unsigned> && appends<long>, "");
static_assert(appends<unsigned long> && appends<long long> && appends<unsigned long long>, "");
static_assert(appends<float> && appends<double>, "");
static_assert(exact<Op<tavBytes, void, unsigned>>(&tavBytes::remove), "");
static_assert(exact<Op<tavBytes, void>>(&tavBytes::clear), "");
static_assert(exact<Op<tavBytes, void>>(&tavBytes::reset), "");
static_assert(exact<Op<tavBytes, tav_ostr>>(&tavBytes::release), "");
static_assert(exact<Op<tavBytes, void, tavBytes &>>(&tavBytes::swap), "");
static_assert(noexcept(std::declval<tavBytes &>().swap(std::declval<tavBytes &>())), "");
static_assert(orders<tavBytes, tavBytes>, "");
static_assert(equates<tavBytes, tav_istr> && equates<tav_istr, tavBytes>, "");
static_assert(equates<tavBytes, Text> && equates<Text, tavBytes> && equates<tavBytes, char[3]>, "");
static_assert(equates<tavBytes, std::string> && equates<std::string, tavBytes>, "");
static_assert(equates<tavBytes, tavString> && equates<tavString, tavBytes>, "");
static_assert(exact<ConstOp<tavBytes, void, tavString &>>(&tavBytes::toBase64), "");
static_assert(exact<Op<tavBytes, void, tav_istr>>(&tavBytes::fromBase64), "");
static_assert(exact<std::ostream & (*)(std::ostream &, tavBytes const &)>(&::operator<<), "");

static_assert(exact<void (*)(tav_istr, std::string &, bool)>(&tavBase64::encode), "");
static_assert(exact<void (*)(std::vector<Byte> const &, std::string &, bool)>(&tavBase64::encode), "");
static_assert(exact<void (*)(tav_istr, std::vector<Byte> &)>(&tavBase64::decode), "");
static_assert(exact<void (*)(tav_istr, tavBytes &)>(&tavBase64::decode), "");
static_assert(exact<bool (*)(char)>(&tavBase64::isBase64), "");
static_assert(exact<tavString (*)(tav_istr)>(&tavHex16::encode), "");
static_assert(exact<tavBytes (*)(tav_istr)>(&tavHex16::decode), "");

static_assert(std::is_default_constructible<tavHash16>::value && isCopied<tavHash16>, "");
static_assert(hashes<bool> && hashes<char> && hashes<Byte> && hashes<short> && hashes<unsigned short>, "");
static_assert(hashes<int> && hashes<unsigned> && hashes<long> && hashes<unsigned long>, "");
static_assert(hashes<long long> && hashes<unsigned long long> && hashes<void const *> && hashes<int *>, "");
static_assert(exact<ConstOp<tavHash16, unsigned short>>(&tavHash16::value), "");

static_assert(std::is_default_constructible<tavCurrentInfo>::value && isCopied<tavCurrentInfo>, "");
static_assert(made<tavCurrentInfo, Text, unsigned, Text> && made<tavCurrentInfo, Text, int, Text>, "");
static_assert(exact<ConstOp<tavCurrentInfo, void, std::ostream &>>(&tavCurrentInfo::dump), "");
static_assert(exact<std::ostream & (*)(std::ostream &, tavCurrentInfo const &)>(&::operator<<), "");

static_assert(failure<tavInvalidEnumValue> && made<tavInvalidEnumValue, Text, int>, "");
static_assert(made<tavInvalidEnumValue, std::string, int>, "");
static_assert(exact<ConstOp<tavInvalidEnumValue, int>>(&tavInvalidEnumValue::value), "");
static_assert(exact<ConstOp<tavInvalidEnumValue, Text>>(&tavInvalidEnumValue::what), "");
static_assert(noexcept(std::declval<tavInvalidEnumValue const &>().what()), "");
static_assert(failure<tavNotSupported> && implicit<tavNotSupported, Text>, "");
static_assert(implicit<tavNotSupported, std::string>, "");
static_assert(exact<ConstOp<tavNotSupported, Text>>(&tavNotSupported::what), "");
static_assert(noexcept(std::declval<tavNotSupported const &>().what()), "");

static_assert(std::has_virtual_destructor<tavEnumBase>::value && isCopied<tavEnumBase>, "");
static_assert(std::is_default_constructible<tavEnumBase>::value, "");
static_assert(exact<void (*)(std::map<int, std::string> const &, std::string &)>(&tavEnumBase::toString_i),
              "");
static_assert(exact<void (*)(std::map<int, std::string> &, std::map<std::string, int> const &)>(
                  &tavEnumBase::fromString_i),
              "");

static_assert(std::is_default_constructible<tav_config_t>::value && std::is_empty<tav_config_t>::value, "");
static_assert(exact<std::ostream & (*)(std::ostream &, tav_config_t const &)>(&::operator<<), "");

namespace tav {

namespace {

template <class T>
constexpr bool prints = exact<std::ostream & (*)(std::ostream &, T const &)>(&tav::operator<<);

} // namespace

static_assert(failure<Exception> && made<Exception, Text, unsigned, Text, tav_istr>, "");
static_assert(made<Exception, Text, int, Text, std::string> && !made<Exception, tav_istr>, "");
static_assert(std::is_copy_assignable<Exception>::value, "");
static_assert(exact<ConstOp<Exception, Text>>(&Exception::what), "");
static_assert(noexcept(std::declval<Exception const &>().what()), "");
static_assert(exact<ConstOp<Exception, std::string const &>>(&Exception::message), "");
static_assert(exact<ConstOp<Exception, tavCurrentInfo const &>>(&Exception::position_info), "");
static_assert(failure<DecodeException> && implicit<Exception const &, DecodeException const &>, "");
static_assert(made<DecodeException, Text, unsigned, Text, tav_istr>, "");
static_assert(made<DecodeException, Text, unsigned, Text, tav_istr, int>, "");
static_assert(std::is_copy_assignable<DecodeException>::value, "");
static_assert(exact<ConstOp<DecodeException, int>>(&DecodeException::position), "");

static_assert(made<asHex, long long, int, bool> && isCopied<asHex>, "");
static_assert(implicit<printAsHex, tav_istr> && made<printAsHex, Text, Text> && made<printAsHex, std::string>,
              "");
static_assert(implicit<printHexChar, char> && implicit<_Print, tav_istr> && implicit<_PrintHex, tav_istr>,
              "");
static_assert(implicit<HexDump, tav_istr> && made<_Print, Text> && made<_PrintHex, tavBytes>, "");
static_assert(made<HexDump, tavBytes> && isCopied<HexDump>, "");
static_assert(std::is_default_constructible<version_t>::value, "");
static_assert(exact<std::string (*)()>(&version_t::str), "");
static_assert(prints<asHex> && prints<printAsHex> && prints<printHexChar> && prints<_Print>, "");
static_assert(prints<_PrintHex> && prints<HexDump> && prints<version_t> && prints<Range>, "");

static_assert(std::is_default_constructible<stringger>::value && std::is_move_constructible<stringger>::value,
              "");
static_assert(exact<Op<stringger, stringger &, int const &>>(&stringger::operator<<), "");
static_assert(exact<Op<stringger, stringger &, tavString const &>>(&stringger::operator<<), "");
static_assert(exact<ConstOp<stringger, std::string>>(&stringger::str), "");

static_assert(std::is_default_constructible<Range>::value && isCopied<Range>, "");
static_assert(implicit<Range, tav_istr> && made<Range, Text>, "");
static_assert(exact<Op<Range, bool, tav_istr>>(&Range::setup), "");
static_assert(exact<ConstOp<Range, bool, long long>>(&Range::check), "");
static_assert(exact<ConstOp<Range, bool>>(&Range::empty), "");

} // namespace tav

static_assert(onlyExplicit<tav_time, tav_istr> && isCopied<tav_time>, "");
static_assert(exact<ConstOp<tav_time, Text>>(&tav_time::data), "");
static_assert(exact<ConstOp<tav_time, unsigned>>(&tav_time::size), "");

static_assert(std::is_default_constructible<tavTime>::value && isCopied<tavTime>, "");
static_assert(implicit<tavTime, tav_time> && !implicit<tavTime, Text> && !implicit<tavTime, tav_istr>, "");
static_assert(!made<tavTime, long long> && !made<tavTime, int>, "a count has to say its unit");
static_assert(exact<tavTime (*)()>(&tavTime::now), "");
static_assert(exact<long long (*)()>(&tavTime::currentTimeMillis), "");
static_assert(exact<tavTime (*)(long long)>(&tavTime::milliseconds), "");
static_assert(exact<tavTime (*)(long long)>(&tavTime::seconds), "");
static_assert(exact<ConstOp<tavTime, long long>>(&tavTime::milliseconds), "");
static_assert(exact<ConstOp<tavTime, long long>>(&tavTime::seconds), "");
static_assert(exact<ConstOp<tavTime, long long>>(&tavTime::operator long long), "");
static_assert(implicit<long long, tavTime>, "");
static_assert(exact<ConstOp<tavTime, tavTime, long long>>(&tavTime::operator+), "");
static_assert(exact<ConstOp<tavTime, tavTime, int>>(&tavTime::operator+), "");
static_assert(exact<ConstOp<tavTime, tavTime, std::int64_t>>(&tavTime::operator+), "");
static_assert(exact<ConstOp<tavTime, tavTime, unsigned>>(&tavTime::operator+), "");
static_assert(exact<ConstOp<tavTime, long long, tavTime const &>>(&tavTime::operator-), "");
static_assert(orders<tavTime, tavTime> && equates<tavTime, int> && equates<long long, tavTime>, "");
static_assert(exact<ConstOp<tavTime, bool>>(&tavTime::empty), "");
static_assert(exact<ConstOp<tavTime, bool>>(&tavTime::operator!), "");
static_assert(exact<ConstOp<tavTime, tavString>>(&tavTime::str), "");
static_assert(exact<tavTime (*)(tav_istr)>(&tavTime::from), "");
static_assert(exact<struct tm (*)(long long)>(&tavTime::millisToLocal), "");
static_assert(exact<struct tm (*)(long long)>(&tavTime::secondsToLocal), "");
static_assert(exact<long long (*)(struct tm const &)>(&tavTime::localToMillis), "");
static_assert(exact<std::ostream & (*)(std::ostream &, tavTime const &)>(&::operator<<), "");

static_assert(std::is_default_constructible<tavTimeZone>::value && isCopied<tavTimeZone>, "");
static_assert(made<tavTimeZone, char, int, int> && onlyExplicit<tavTimeZone, int>, "");
static_assert(exact<Op<tavTimeZone, tavTimeZone &, tavTimeZone const &>>(&tavTimeZone::operator=), "");
static_assert(exact<Op<tavTimeZone, void, char, int, int>>(&tavTimeZone::assign), "");
static_assert(exact<Op<tavTimeZone, void, tavTimeZone const &>>(&tavTimeZone::assign), "");
static_assert(exact<tavTimeZone (*)()>(&tavTimeZone::gmt), "");
static_assert(exact<tavTimeZone (*)(int)>(&tavTimeZone::east), "");
static_assert(exact<tavTimeZone (*)(int)>(&tavTimeZone::west), "");
static_assert(exact<tavTimeZone (*)(int)>(&tavTimeZone::hours), "");
static_assert(exact<tavTimeZone (*)(int)>(&tavTimeZone::minutes), "");
static_assert(exact<tavTimeZone (*)()>(&tavTimeZone::local), "");
static_assert(exact<ConstOp<tavTimeZone, tavTimeZone>>(&tavTimeZone::operator-), "");
static_assert(exact<ConstOp<tavTimeZone, int>>(&tavTimeZone::offset), "");
static_assert(exact<ConstOp<tavTimeZone, Text>>(&tavTimeZone::str), "");
static_assert(exact<char (*)(int)>(&tavTimeZone::intToChar), "");

static_assert(std::is_default_constructible<tavLocalZone>::value, "");
static_assert(exact<tavTimeZone (*)()>(&tavLocalZone::get), "");
static_assert(std::is_default_constructible<tavCheckTime>::value, "");
static_assert(exact<Op<tavCheckTime, bool, tavTime, long long>>(&tavCheckTime::expired), "");
static_assert(exact<Op<tavCheckTime, void, tavTime>>(&tavCheckTime::update), "");

static_assert(exact<tav_istr (*)(Text)>(&tavUtil::getFileName), "");
static_assert(exact<tav_istr (*)(Text)>(&tavUtil::getFuncName), "");
static_assert(exact<std::string (*)(std::string)>(&tavUtil::readFile), "");
static_assert(exact<bool (*)(std::string, tav_istr)>(&tavUtil::writeFile), "");
static_assert(exact<bool (*)(std::string, tav_istr)>(&tavUtil::appendFile), "");
static_assert(exact<bool (*)(std::string, std::string)>(&tavUtil::moveFile), "");
static_assert(exact<bool (*)(std::wstring, std::wstring)>(&tavUtil::moveFile), "");
static_assert(exact<void (*)(tav_istr, tavBytes &, unsigned)>(&tavUtil::arraycopy), "");
static_assert(exact<int (*)(Byte)>(&tavUtil::byte2int), "");
static_assert(exact<Byte (*)(int)>(&tavUtil::int2byte), "");
static_assert(exact<int (*)(Byte, Byte)>(&tavUtil::bytes2int), "");
static_assert(exact<int (*)(Byte, Byte, Byte, Byte)>(&tavUtil::bytes2int), "");
static_assert(exact<int (*)(tav_istr, unsigned)>(&tavUtil::bytes2int), "");
static_assert(exact<void (*)(int, tavBytes &, unsigned)>(&tavUtil::int2bytes), "");

static_assert(made<tavCmdArgs, int, char const **> && made<tavCmdArgs, int, char **>, "");
static_assert(!std::is_copy_constructible<tavCmdArgs>::value && !std::is_copy_assignable<tavCmdArgs>::value,
              "");
static_assert(exact<ConstOp<tavCmdArgs, unsigned>>(&tavCmdArgs::numofArguments), "");
static_assert(exact<ConstOp<tavCmdArgs, std::string const &, unsigned>>(&tavCmdArgs::argument), "");
static_assert(exact<ConstOp<tavCmdArgs, std::string, unsigned>>(&tavCmdArgs::operator[]), "");
static_assert(exact<ConstOp<tavCmdArgs, bool, unsigned, std::string &>>(&tavCmdArgs::getArgument), "");
static_assert(exact<ConstOp<tavCmdArgs, bool, tav_istr>>(&tavCmdArgs::hasOption), "");
static_assert(exact<ConstOp<tavCmdArgs, bool, tav_istr, std::string &>>(&tavCmdArgs::getOption), "");
static_assert(exact<ConstOp<tavCmdArgs, std::string, tav_istr>>(&tavCmdArgs::option), "");
static_assert(exact<ConstOp<tavCmdArgs, std::string, tav_istr, std::string>>(&tavCmdArgs::option), "");
static_assert(exact<ConstOp<tavCmdArgs, std::string, tav_istr>>(&tavCmdArgs::operator()), "");
static_assert(exact<ConstOp<tavCmdArgs, std::string, tav_istr, std::string>>(&tavCmdArgs::operator()), "");

static_assert(onlyExplicit<tavIdGenerator, long long> && onlyExplicit<tavIdGenerator, int>, "");
static_assert(!std::is_default_constructible<tavIdGenerator>::value, "");
static_assert(exact<Op<tavIdGenerator, long long>>(&tavIdGenerator::nextSno), "");
static_assert(exact<long long (*)()>(&tavIdGenerator::globalNextSno), "");
static_assert(exact<void (*)()>(&tavIdGenerator::finalize), "");
static_assert(std::is_default_constructible<tavMemLeakCheck>::value, "");
static_assert(exact<void (*)()>(&tavMemLeakCheck::enter), "");
static_assert(exact<void (*)()>(&tavMemLeakCheck::leave), "");

static_assert(exact<void (*)()>(&tav_init) && exact<void (*)()>(&tav_fini), "");
static_assert(exact<void (*)(unsigned)>(&tav_sleep) && exact<bool (*)()>(&tav_kbhit), "");

TEST(InterfaceFoundation, BytesTakeTextAndNumbersInOneChain) {
    tavBytes bytes(0);
    bytes << "ab" << tavString("c") << std::string("d") << 'e' << Byte{0x66};
    bytes += "g";
    bytes.writeByte('h').writeBytes("i").writeBigEndian(short{0x6A6B}) << tavBytes(tav_istr("l"));
    EXPECT_EQ(bytes, "abcdefghijkl");
    EXPECT_TRUE("abcdefghijkl" == bytes && bytes != tav_istr("x") && bytes == tavString("abcdefghijkl"));
    EXPECT_EQ(bytes[0], 'a');
    EXPECT_EQ(*bytes, 'a');
    EXPECT_EQ(tavBytes(tav_base64("YWI=")), "ab");
    EXPECT_EQ(tavHex16::decode(tavHex16::encode("ab")), "ab");
    bytes = "x";
    EXPECT_EQ(bytes.size(), 1u);
}

TEST(InterfaceFoundation, HashesTakeEveryNumberAndPointers) {
    EXPECT_EQ(tavHash16(5).value(), 5);
    EXPECT_EQ(tavHash16(5LL).value(), 5);
    EXPECT_EQ(tavHash16(true).value(), 1);
    EXPECT_EQ(tavHash16("").value(), tavHash16(static_cast<void const *>("")).value());
}

TEST(InterfaceFoundation, FailuresAreCaughtByTheirBases) {
    try {
        throw tav::DecodeException("/a/b.cpp", 7, "x::y", "text", 3);
    } catch (tav::Exception const & caught) {
        EXPECT_EQ(caught.message(), "text(3)");
        tav::Exception const copy = caught;
        EXPECT_STREQ(copy.what(), caught.what());
    }
    try {
        throw tavInvalidEnumValue(std::string("text"), 3);
    } catch (std::exception const & caught) {
        EXPECT_STREQ(caught.what(), tavInvalidEnumValue("text", 3).what());
    }
    EXPECT_NE(std::string(tavNotSupported("text").what()).find("text"), std::string::npos);
}

TEST(InterfaceFoundation, TextIsBuiltOfValuesAndManipulators) {
    tav::stringger built;
    built << 1 << "a" << tavString("b") << std::setw(3) << 2 << std::hex << 255 << std::endl;
    EXPECT_EQ(built.str(), "1ab  2ff\n");
    tav::stringger const moved(std::move(built));
    EXPECT_EQ(moved.str(), "1ab  2ff\n");
    std::ostringstream out;
    out << tav::printHexChar('a') << tav::_Print("b") << tav::version_t();
    EXPECT_NE(out.str().find("b" + tav::version_t::str()), std::string::npos) << out.str();
}

TEST(InterfaceFoundation, TimesCountWithEveryIntegerType) {
    tavTime const time = tavTime::milliseconds(5000);
    EXPECT_TRUE(time + 1 > time && time + 1LL == time + std::int64_t{1} && time + 1u >= time);
    EXPECT_EQ((time + 1) - time, 1);
    EXPECT_EQ(time - 1000, 4000);
    EXPECT_TRUE(time == 5000 && time != 0 && tavTime() == 0 && !tavTime());
    EXPECT_EQ(tavTime::seconds(5), time);
    long long const count = time;
    EXPECT_EQ(count, time.milliseconds());
    tavCheckTime check;
    check.update(time);
    EXPECT_FALSE(check.expired(time, 1000));
}

TEST(InterfaceFoundation, ZonesAreMadeOfPartsAndOfAnOffset) {
    EXPECT_EQ(tavTimeZone('+', 8, 0).offset(), tavTimeZone::east(8).offset());
    EXPECT_EQ((-tavTimeZone::east(8)).offset(), tavTimeZone::west(8).offset());
    tavTimeZone zone;
    zone.assign(tavTimeZone::hours(8));
    EXPECT_STREQ(zone.str(), tavTimeZone(zone.offset()).str());
}

TEST(InterfaceFoundation, ArgumentsOfBothKindsAreTaken) {
    char program[] = "program";
    char word[] = "word";
    char * plain[] = {program, word, nullptr};
    char const * constant[] = {"program", "word", nullptr};
    tavCmdArgs const a(2, plain);
    tavCmdArgs const b(2, constant);
    ASSERT_EQ(a.numofArguments(), b.numofArguments());
    EXPECT_EQ(a[0], b[0]);
    EXPECT_EQ(a("none", "fallback"), "fallback");
    EXPECT_EQ(b.option("none", "fallback"), "fallback");
}

TEST(InterfaceFoundation, NumbersFollowTheirStart) {
    tavIdGenerator ids(5);
    long long const first = ids.nextSno();
    EXPECT_EQ(ids.nextSno(), first + 1);
    EXPECT_EQ(tavUtil::bytes2int(1, 2), 0x0102);
    EXPECT_EQ(tavUtil::getFileName("/a/b.cpp"), "b.cpp");
}
