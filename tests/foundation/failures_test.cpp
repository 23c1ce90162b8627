#include "tav/vinta/vinta_basetypes_failures.h"

#include "foundation/build_stamp.h"

#include <gtest/gtest.h>

#include <iomanip>
#include <map>
#include <sstream>
#include <string>
#include <type_traits>

extern "C" char const TAV_BUILD_MARKER[];

namespace {

template <class T>
std::string printed(T const & v) {
    std::ostringstream out;
    out << v;
    return out.str();
}

TEST(FailuresCurrentInfo, DefaultHasAllThreeZero) {
    tavCurrentInfo const none;
    EXPECT_EQ(none.file, nullptr);
    EXPECT_EQ(none.line, 0u);
    EXPECT_EQ(none.func, nullptr);
    EXPECT_EQ(printed(none), "(:0)");
}

TEST(FailuresCurrentInfo, KeepsWhatItWasGiven) {
    char const * const file = "/src/x.cpp";
    char const * const func = "a::b";
    tavCurrentInfo const info(file, 4000000000u, func);
    EXPECT_EQ(info.file, file);
    EXPECT_EQ(info.line, 4000000000u);
    EXPECT_EQ(info.func, func);
    EXPECT_EQ(printed(info), "a::b(x.cpp:4000000000)");
}

TEST(FailuresCurrentInfo, DumpWritesTheShortForm) {
    tavCurrentInfo const info("d:/src/vinta_tls_client", 120, "tav::tls::impl::Client::start");
    std::ostringstream out;
    info.dump(out);
    EXPECT_EQ(out.str(), "Client::start(vinta_tls_client:120)");
    EXPECT_EQ(printed(info), out.str());
}

TEST(FailuresCurrentInfo, LineStaysDecimalOnAHexadecimalStream) {
    std::ostringstream out;
    out << std::hex << tavCurrentInfo("f", 255, "g");
    EXPECT_EQ(out.str(), "g(f:255)");
}

TEST(FailuresException, TextHasMarkMessageAndPlace) {
    tav::Exception const e("c:/x/y", 7, "ns::Class::name", "bad");
    EXPECT_STREQ(e.what(), "(tav::Exception) bad\n    throw at Class::name(y:7)");
    EXPECT_EQ(e.message(), "bad");
    EXPECT_EQ(e.position_info().line, 7u);
    EXPECT_STREQ(e.position_info().file, "c:/x/y");
    EXPECT_STREQ(e.position_info().func, "ns::Class::name");
}

TEST(FailuresException, NullMessageIsEmpty) {
    tav::Exception const e("y", 7, "f", tav_istr());
    EXPECT_EQ(e.message(), "");
    EXPECT_STREQ(e.what(), "(tav::Exception) \n    throw at f(y:7)");
}

TEST(FailuresException, MessageOfNullViewWithACountIsEmpty) {
    tav::Exception const e("y", 7, "f", tav_istr(static_cast<char const *>(nullptr), 5u));
    EXPECT_EQ(e.message(), "");
}

TEST(FailuresException, IsAStandardExceptionAndCopies) {
    try {
        throw tav::Exception("y", 7, "a::b::c", "bad");
    } catch (std::exception const & e) {
        EXPECT_STREQ(e.what(), "(tav::Exception) bad\n    throw at b::c(y:7)");
    }
    tav::Exception first("y", 7, "a::b::c", "bad");
    tav::Exception const second("z", 8, "f", "worse");
    tav::Exception const copy(first);
    EXPECT_STREQ(copy.what(), first.what());
    EXPECT_EQ(copy.message(), "bad");
    first = second;
    EXPECT_STREQ(first.what(), "(tav::Exception) worse\n    throw at f(z:8)");
    EXPECT_EQ(first.position_info().line, 8u);
    EXPECT_STREQ(copy.what(), "(tav::Exception) bad\n    throw at b::c(y:7)");
}

TEST(FailuresDecodeException, PositionStandsInTheMessage) {
    tav::DecodeException const e("c:/x/y", 7, "ns::Class::name", "bad", 12);
    EXPECT_EQ(e.message(), "bad(12)");
    EXPECT_EQ(e.position(), 12);
    EXPECT_STREQ(e.what(), "(tav::Exception) bad(12)\n    throw at Class::name(y:7)");
}

TEST(FailuresDecodeException, PositionZeroStillStandsInTheMessage) {
    EXPECT_EQ(tav::DecodeException("y", 7, "f", "bad", 0).message(), "bad(0)");
    EXPECT_EQ(tav::DecodeException("y", 7, "f", "bad", -3).message(), "bad(-3)");
}

TEST(FailuresDecodeException, WithoutPositionTheMessageStays) {
    tav::DecodeException const e("c:/x/y", 7, "ns::Class::name", "bad");
    EXPECT_EQ(e.message(), "bad");
    EXPECT_EQ(e.position(), 0);
    EXPECT_STREQ(e.what(), "(tav::Exception) bad\n    throw at Class::name(y:7)");
}

TEST(FailuresDecodeException, IsCaughtAsItsBaseAndCopies) {
    try {
        throw tav::DecodeException("y", 7, "f", "bad", 12);
    } catch (tav::Exception const & e) {
        EXPECT_EQ(e.message(), "bad(12)");
    }
    tav::DecodeException const e("y", 7, "f", "bad", 12);
    tav::DecodeException const copy(e);
    EXPECT_EQ(copy.position(), 12);
    EXPECT_STREQ(copy.what(), e.what());
}

TEST(FailuresInvalidEnumValue, KeepsMessageAndValue) {
    tavInvalidEnumValue const fromLiteral("no such colour", -7);
    EXPECT_STREQ(fromLiteral.what(), "no such colour");
    EXPECT_EQ(fromLiteral.value(), -7);
    tavInvalidEnumValue const fromString(std::string("none"), 300);
    EXPECT_STREQ(fromString.what(), "none");
    EXPECT_EQ(fromString.value(), 300);
    EXPECT_STREQ(tavInvalidEnumValue(static_cast<char const *>(nullptr), 1).what(), "");
    EXPECT_TRUE((std::is_base_of<std::exception, tavInvalidEnumValue>::value));
}

TEST(FailuresNotSupported, KeepsMessage) {
    EXPECT_STREQ(tavNotSupported("not here").what(), "not here");
    EXPECT_STREQ(tavNotSupported(std::string("nor there")).what(), "nor there");
    EXPECT_STREQ(tavNotSupported(static_cast<char const *>(nullptr)).what(), "");
    EXPECT_TRUE((std::is_base_of<std::exception, tavNotSupported>::value));
}

TEST(FailuresEnumBase, ToStringJoinsPairsInOrderOfNumbers) {
    std::string out = "what was there";
    tavEnumBase::toString_i({{3, "three"}, {-1, "none"}, {0, "zero"}}, out);
    EXPECT_EQ(out, "none=-1,zero=0,three=3");
}

TEST(FailuresEnumBase, ToStringOfOnePairHasNoComma) {
    std::string out;
    tavEnumBase::toString_i({{7, "seven"}}, out);
    EXPECT_EQ(out, "seven=7");
}

TEST(FailuresEnumBase, ToStringKeepsEmptyNames) {
    std::string out;
    tavEnumBase::toString_i({{1, ""}, {2, ""}}, out);
    EXPECT_EQ(out, "=1,=2");
}

TEST(FailuresEnumBase, ToStringOfEmptyMapEmptiesOut) {
    std::string out = "what was there";
    tavEnumBase::toString_i({}, out);
    EXPECT_EQ(out, "");
}

TEST(FailuresEnumBase, FromStringDoesNothing) {
    std::map<int, std::string> names = {{1, "one"}};
    tavEnumBase::fromString_i(names, {{"two", 2}});
    EXPECT_EQ(names, (std::map<int, std::string>{{1, "one"}}));
}

TEST(FailuresEnumBase, HasAVirtualDestructor) {
    EXPECT_TRUE(std::has_virtual_destructor<tavEnumBase>::value);
}

TEST(FailuresVersion, ReleaseIsThatOfTheHeaders) {
    std::ostringstream expected;
    expected << TAV_VERSION_MAJOR << '.' << TAV_VERSION_MINOR << '.' << TAV_VERSION_PATCH;
    EXPECT_EQ(std::string(tav::version_t::release()), expected.str());
}

TEST(FailuresVersion, StampIsSecondsPointAndEightHexadecimalDigitsOrTheVersion) {
    std::string const stamp = tav::version_t::str();
    std::size_t const point = stamp.find('.');
    ASSERT_NE(point, std::string::npos);
    EXPECT_GT(point, 0u);
    EXPECT_EQ(stamp.find_first_not_of("0123456789"), point);
    std::string const revision = stamp.substr(point + 1);
    if (revision[0] == 'v') {
        EXPECT_EQ(revision.substr(1), tav::version_t::release());
    } else {
        EXPECT_EQ(revision.find_first_not_of("0123456789abcdef"), std::string::npos);
        EXPECT_EQ(revision.size(), 8u);
    }
    EXPECT_EQ(printed(tav::version_t()), stamp);
    EXPECT_EQ(stamp, TAV_BUILD_STAMP);
}

TEST(FailuresVersion, UnderscoreFormDiffersOnlyInThePoint) {
    std::string stamp = tav::version_t::str();
    stamp[stamp.find('.')] = '_';
    EXPECT_EQ(stamp, TAV_BUILD_STAMP_UNDERSCORE);
}

TEST(FailuresVersion, MarkerIsPresentUnderItsStampedName) {
    EXPECT_EQ(std::string(TAV_BUILD_MARKER), tav::version_t::str());
}

TEST(FailuresConfig, GroupsStandSideBySideInOrder) {
    std::string const text = printed(tav_config_t());
    std::string const fixed = "(OS: Linux)(Bits: 64)(Release)(Endian: Little)(CPU: x86-64)(Compiler: ";
    EXPECT_EQ(text.substr(0, fixed.size()), fixed);
    EXPECT_EQ(text.find_first_of("()", fixed.size()), text.size() - 1);
    EXPECT_EQ(text.back(), ')');
    EXPECT_GT(text.size(), fixed.size() + 1);
}

} // namespace
