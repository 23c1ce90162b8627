#include "foundation/report.h"

#include "support/log_capture.h"
#include "tav/vinta/vinta_basetypes_failures.h"
#include "tav/vinta/vinta_json_parser.h"

#include <gtest/gtest.h>

#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

namespace {

using tav::detail::Site;
using tav_test::LogCapture;

constexpr Site site = {"/src/tav/vinta/y.cpp", 7, "tav::ns::Class::name"};

std::string raised(Site where, std::string_view message) {
    try {
        tav::detail::raise(where, message);
    } catch (std::invalid_argument const & e) {
        return e.what();
    }
}

std::string asserted(Site where, std::string_view condition) {
    try {
        tav::detail::raiseAssertion(where, condition);
    } catch (std::invalid_argument const & e) {
        return e.what();
    }
}

TEST(Report, HereIsTheCallersPlace) {
    Site const place = tav::detail::here("a::b::c");
    unsigned const line = __LINE__ - 1;
    EXPECT_STREQ(place.file, __FILE__);
    EXPECT_EQ(place.line, line);
    EXPECT_STREQ(place.func, "a::b::c");
}

TEST(Report, RaisedTextEndsInItsPlace) {
    EXPECT_EQ(raised(site, "bad"), "bad\n    throw at Class::name(y.cpp:7)");
    EXPECT_EQ(raised(site, ""), "\n    throw at Class::name(y.cpp:7)");
}

TEST(Report, NulOfTheMessageIsShownAndEndsNothing) {
    LogCapture log;
    std::string const message("a\0b\0", 4);
    EXPECT_EQ(raised(site, message), "a\\0b\\0\n    throw at Class::name(y.cpp:7)");
    ASSERT_TRUE(log.waitFor("<EXCEPTION> a\\0b\\0\n"));
    tav::Exception const e(site.file, site.line, site.func, tav_istr(message));
    EXPECT_STREQ(e.what(), "(tav::Exception) a\\0b\\0\n    throw at Class::name(y.cpp:7)");
    EXPECT_EQ(e.message(), message);
}

TEST(Report, NulOfAJsonTextIsShownInItsFailure) {
    std::string const text("[1 \"\0 rest", 10);
    try {
        tav::json::JsonParser::from(tav_istr(text));
        FAIL();
    } catch (std::invalid_argument const & e) {
        EXPECT_EQ(std::string(e.what()).find("no value end : \"\\0 rest\n    throw at "), 0u) << e.what();
    }
}

TEST(Report, AssertionThrowsItsConditionWithoutThePlace) {
    EXPECT_EQ(asserted(site, "x > 0"), "assert failure: x > 0");
    EXPECT_EQ(asserted(site, ""), "assert failure: ");
}

TEST(Report, RaiseIsLoggedFirstAtError) {
    LogCapture log;
    EXPECT_EQ(raised(site, "very bad"), "very bad\n    throw at Class::name(y.cpp:7)");
    ASSERT_TRUE(log.waitFor("<EXCEPTION> very bad"));
    LogCapture::Record const record = log.find("<EXCEPTION> very bad");
    EXPECT_EQ(record.level, tavLogger::ERROR);
    EXPECT_NE(record.text.find("<EXCEPTION> very bad\n"), std::string::npos) << record.text;
    EXPECT_EQ(record.text.find("throw at"), std::string::npos) << record.text;
    EXPECT_NE(record.text.find("[TAV]Class::name(y.cpp:7) <EXCEPTION> very bad\n"), std::string::npos)
        << record.text;
}

TEST(Report, AssertionIsLoggedWithItsPlace) {
    LogCapture log;
    asserted(site, "x > 0");
    ASSERT_TRUE(log.waitFor("[TAV]Class::name(y.cpp:7) <EXCEPTION> assert failure: x > 0\n"
                            "    throw at Class::name(y.cpp:7)\n"));
    EXPECT_EQ(log.find("assert failure").level, tavLogger::ERROR);
    EXPECT_EQ(log.count("assert failure"), 1u);
}

TEST(Report, CaughtFailureShowsBothPlacesInOneRecord) {
    LogCapture log;
    std::string const text = raised(site, "bad");
    tav::detail::reportCaught(Site{"z.cpp", 9, "ns::Class::other"}, text.c_str());
    ASSERT_TRUE(log.waitFor("<<< EXCEPTION >>>"));
    LogCapture::Record const record = log.find("<<< EXCEPTION >>>");
    EXPECT_EQ(record.level, tavLogger::ERROR);
    EXPECT_NE(record.text.find("<<< EXCEPTION >>> bad\n    throw at Class::name(y.cpp:7)\n"
                               "    catch at Class::other(z.cpp:9)\n"),
              std::string::npos)
        << record.text;
    EXPECT_TRUE(log.inOrder({"<EXCEPTION> bad", "<<< EXCEPTION >>> bad"}));
    EXPECT_NE(record.text.find("[TAV]Class::other(z.cpp:9) <<< EXCEPTION >>> bad\n"), std::string::npos)
        << record.text;
}

TEST(Report, CaughtNothingHasOnlyItsPlace) {
    LogCapture log;
    tav::detail::reportCaught(site, nullptr);
    ASSERT_TRUE(log.waitFor("<<< EXCEPTION >>> \n    catch at Class::name(y.cpp:7)\n"));
}

TEST(Report, ExceptionInHandIsToldByItsTextOrAsUnknown) {
    LogCapture log;
    try {
        throw std::runtime_error("bad weather");
    } catch (...) {
        tav::detail::reportCaught(site);
    }
    try {
        throw 5;
    } catch (...) {
        tav::detail::reportCaught(site);
    }
    ASSERT_TRUE(log.waitFor("<<< EXCEPTION >>> unknown exception\n    catch at Class::name(y.cpp:7)\n"));
    EXPECT_TRUE(log.inOrder({"<<< EXCEPTION >>> bad weather", "<<< EXCEPTION >>> unknown exception"}));
}

TEST(Report, NothingIsLoggedBelowTheThreshold) {
    LogCapture log("clear(NONE)");
    EXPECT_EQ(raised(site, "silent"), "silent\n    throw at Class::name(y.cpp:7)");
    EXPECT_EQ(asserted(site, "silent"), "assert failure: silent");
    tav::detail::reportCaught(site, "silent");
    tavLogger::setLogLevel(tavLogger::ERROR);
    raised(site, "loud");
    ASSERT_TRUE(log.waitFor("<EXCEPTION> loud"));
    EXPECT_EQ(log.count("silent"), 0u);
}

TEST(Report, ExceptionsByThemselvesLogNothing) {
    LogCapture log;
    tav::Exception const first("y", 7, "f", "quiet");
    tav::DecodeException const second("y", 7, "f", "quiet", 3);
    raised(site, "loud");
    ASSERT_TRUE(log.waitFor("<EXCEPTION> loud"));
    EXPECT_EQ(log.count("quiet"), 0u);
}

TEST(Report, LogAddsTheLineFeedAndAsksTheLevel) {
    LogCapture log("clear(INFO)");
    int prints = 0;
    auto const print = [&prints](std::ostream & out) {
        ++prints;
        out << "value " << 5;
    };
    tav::detail::log("TAV", tavLogger::DEBUG, site, print);
    EXPECT_EQ(prints, 0);
    tav::detail::log("TAV", tavLogger::WARN, site, print);
    EXPECT_EQ(prints, 1);
    ASSERT_TRUE(log.waitFor("value 5\n"));
    EXPECT_EQ(log.find("value 5").level, tavLogger::WARN);
}

TEST(Report, TheDefaultTagsLevelDecides) {
    LogCapture log("clear(TRACE)TAV(NONE)");
    raised(site, "silent");
    asserted(site, "silent");
    tav::detail::reportCaught(site, "silent");
    tav::detail::log("other", tavLogger::ERROR, site, [](std::ostream & out) { out << "loud"; });
    ASSERT_TRUE(log.waitFor("[other]Class::name(y.cpp:7) loud\n"));
    EXPECT_EQ(log.count("silent"), 0u);
}

TEST(Report, RaisesOnAllThreadsAreLogged) {
    LogCapture log;
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([] {
            for (int i = 0; i < 50; ++i) {
                raised(site, "crowd");
            }
        });
    }
    for (std::thread & thread : threads) {
        thread.join();
    }
    EXPECT_TRUE(log.waitFor("<EXCEPTION> crowd", 200));
}

TEST(Report, RaisingGoesOnAfterACatchInTheMiddleOfAnother) {
    LogCapture log;
    try {
        tav::detail::raise(site, "first");
    } catch (std::exception const & e) {
        tav::detail::reportCaught(site, e.what());
        raised(site, "second");
    }
    ASSERT_TRUE(log.waitFor("<EXCEPTION> second"));
    EXPECT_TRUE(log.inOrder({"<EXCEPTION> first", "<<< EXCEPTION >>> first", "<EXCEPTION> second"}));
}

TEST(Report, LongTextKnowsItsSizeWhereverItsBlocksEnd) {
    tav::detail::BlockText text;
    std::ostream out(&text);
    std::string expected;
    for (int i = 0; expected.size() < 70000; ++i) {
        std::string const piece = std::to_string(i) + std::string(static_cast<std::size_t>(i % 400), '.');
        out << piece;
        expected += piece;
        ASSERT_EQ(text.size(), expected.size());
        ASSERT_EQ(out.tellp(), static_cast<std::streamoff>(expected.size()));
    }
    std::string got = "ahead ";
    text.appendTo(got);
    EXPECT_EQ(got, "ahead " + expected);
}

int callbacks = 0;

void raiseInTheCallback(int, char const *) {
    ++callbacks;
    tav::detail::raise(Site{"callback.cpp", 1, "callback"}, "inner");
}

TEST(Report, FailureOfTheLogItselfNeitherLoopsNorHidesTheFirst) {
    callbacks = 0;
    tavLogger::setup("(clear(TRACE))", &raiseInTheCallback, false, tavLogger::NONE);
    EXPECT_EQ(raised(site, "outer"), "outer\n    throw at Class::name(y.cpp:7)");
    EXPECT_EQ(callbacks, 1);
    EXPECT_EQ(asserted(site, "outer"), "assert failure: outer");
    EXPECT_EQ(callbacks, 2);
    tav::detail::reportCaught(site, "outer");
    EXPECT_EQ(callbacks, 3);
    tavLogger::setup("(clear(INFO))", nullptr, false, tavLogger::WARN);
}

} // namespace
