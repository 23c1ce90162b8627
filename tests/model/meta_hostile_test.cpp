#include "tav/vinta/vinta_pml_meta.h"

#include "support/log_capture.h"
#include "support/meta_model.h"
#include "support/repeated.h"
#include "support/small_stack.h"

#include "model/meta_lookup.h"
#include "tav/vinta/vinta_object.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <functional>
#include <random>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

using tav::pml::MetaClass;
using tav::pml::MetaFactory;
using tav_test::loadTemplate;
using tav_test::onSmallStack;
using tav_test::repeated;
namespace field_type = tav::pml::field_type;

namespace {

constexpr unsigned deep = 20000;

/// A class within a class within a class.
std::string nested(unsigned depth, std::string const & open = "n:N(") {
    return "t:T(" + repeated(open, depth) + "[1]x:int32()" + repeated(")", depth) + ")";
}

unsigned depthOf(MetaClass const & c) {
    unsigned depth = 0;
    for (MetaClass const * at = &c; !at->classes.empty(); at = &at->classes.front()) {
        ++depth;
    }
    return depth;
}

/// Counts the streams that it gives, which keep nothing.
class CountingStream : public tavNullStream {
public:
    using tavNullStream::io;

    explicit CountingStream(unsigned & count) : count_(count) {}

    tavSharedPtr<tavCodecStream> child(int, tav_istr) override { return made(); }
    tavSharedPtr<tavCodecStream> getOutputChild() override { return made(); }

private:
    tavSharedPtr<tavCodecStream> made() {
        ++count_;
        return tavSharedPtr<tavCodecStream>(new CountingStream(count_));
    }
    unsigned & count_;
};

TEST(MetaHostile, ReadsCopiesMovesAndDestroysDeepClasses) {
    onSmallStack([] {
        MetaFactory factory = loadTemplate(nested(deep));
        MetaClass const & c = *factory.findClass("T");
        EXPECT_EQ(deep, depthOf(c));
        MetaClass copy(c);
        EXPECT_EQ(deep, depthOf(copy));
        MetaClass moved(std::move(copy));
        EXPECT_EQ(deep, depthOf(moved));
        EXPECT_EQ(depthOf(copy), 0u);
        copy = moved;
        copy = std::move(copy.classes.front());
        EXPECT_EQ(deep - 1, depthOf(copy));
        factory.classes.clear();
        EXPECT_EQ(deep, depthOf(moved));
    });
}

TEST(MetaHostile, WritesDeepClasses) {
    onSmallStack([] {
        MetaFactory factory = loadTemplate(nested(deep));
        unsigned count = 0;
        CountingStream s(count);
        factory.io(s);
        EXPECT_LT(4 * deep, count);
        std::string const text = tav_test::written(factory);
        EXPECT_NE(text.find("[1]x:int32()"), std::string::npos);
        tav::pml::Unit const again = tav_test::unitOf(text);
        EXPECT_EQ(again.type(), "factory");
    });
}

TEST(MetaHostile, ReadsDeepListsAndMapsInLinearTime) {
    onSmallStack([] {
        auto const begin = std::chrono::steady_clock::now();
        for (char const * open : {"l:list{L}(", "m:map{string,M}(", "l:list{L}(m:map{int32,M}(o:O(",
                                  "l:list{L}((", "e:enum{E}(", "x:int32(", "(", "o:object("}) {
            unsigned const each = deep / 4;
            std::string const brackets = open;
            auto const closing = static_cast<unsigned>(std::count(brackets.begin(), brackets.end(), '('));
            MetaFactory const factory = loadTemplate("t:T(" + repeated(open, each) + "x:int32()" +
                                                     repeated(")", each * closing) + ")");
            EXPECT_EQ(factory.findClass("T")->fields.size(), 1u) << open;
        }
        EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(100));
    });
}

TEST(MetaHostile, ReadsWideTemplates) {
    std::string text;
    for (unsigned i = 0; i < 20000; ++i) {
        text += "c:C" + std::to_string(i) + "(__code__(" + std::to_string(i % 9999) + ")a:A(x:int32())) ";
    }
    MetaFactory const factory = loadTemplate(text);
    EXPECT_EQ(factory.classes.size(), 20000u);
    EXPECT_EQ(factory.code2class.size(), 9999u);
    MetaFactory const wide = loadTemplate("t:T(" + repeated("a:A(x:int32())", 20000) + ")");
    EXPECT_EQ(wide.findClass("T")->classes.size(), 20000u);
    EXPECT_EQ(wide.findClass("T")->fields.size(), 20000u);
}

TEST(MetaHostile, ReadsALongChainOfBases) {
    std::string text;
    for (unsigned i = 0; i < 5000; ++i) {
        text += "c:C" + std::to_string(i) + "(__super__(C" + std::to_string(i + 1) + ")f:int8())";
    }
    MetaFactory const factory = loadTemplate(text);
    tav::detail::ClassChain chain(*factory.findClass("C0"), factory);
    EXPECT_EQ(chain.findField("g"), nullptr);
    EXPECT_EQ(chain.bases().size(), 4999u);
}

TEST(MetaHostile, AnyTextIsAModelOrAFailureOfTheText) {
    tav_test::LogCapture quiet("clear(OUT)");
    char const * const parts[] = {"a",     ":",    "(",          ")",         "object",      "list{",   "}",
                                  "map{",  "enum", "__class__(", "__code__(", "__super__(",  "[1]",     "]",
                                  "ref{",  ",",    "string",     "{***}",     "{.",          "{0..9}",  "(*",
                                  "\"",    "^",    "?",          "[2]",       "__import__(", "int32()", " ",
                                  "Foo()", "null", "true",       "(x:int8())"};
    std::mt19937 random(20);
    unsigned loaded = 0;
    for (unsigned round = 0; round < 6000; ++round) {
        std::string text = "t:T(";
        auto const length = static_cast<unsigned>(random() % 30);
        for (unsigned i = 0; i < length; ++i) {
            text += parts[random() % (sizeof parts / sizeof parts[0])];
        }
        text += repeated(")", static_cast<unsigned>(random() % 6));
        try {
            MetaFactory factory = loadTemplate(text);
            ++loaded;
            std::string const first = tav_test::written(factory);
            MetaFactory copy(factory);
            EXPECT_EQ(first, tav_test::written(copy)) << text;
            for (auto const & entry : factory.classes) {
                EXPECT_EQ(entry.first, entry.second.className) << text;
                tav::detail::ClassChain chain(entry.second, factory);
                EXPECT_EQ(chain.findField("\x01"), nullptr);
            }
        } catch (std::invalid_argument const & e) {
            EXPECT_NE(std::string(e.what()).find("pml"), std::string::npos) << text;
        }
    }
    EXPECT_LT(500u, loaded);
}

TEST(MetaHostile, EveryCutOfATemplateIsAModelOrAFailureOfTheText) {
    tav_test::LogCapture quiet("clear(OUT)");
    std::string const text = tav_test::helloTemplate;
    unsigned failed = 0;
    for (std::size_t i = 0; i < text.size(); ++i) {
        try {
            loadTemplate(text.substr(0, i));
        } catch (std::invalid_argument const &) {
            ++failed;
        }
    }
    EXPECT_LT(text.size() - 10, failed);
}

} // namespace
