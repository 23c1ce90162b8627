#include "tav/vinta/vinta_nbr_unit.h"

#include "support/nbr_bytes.h"
#include "support/small_stack.h"
#include "tav/vinta/vinta_object.h"

#include <gtest/gtest.h>

#include <chrono>
#include <functional>
#include <memory>
#include <ostream>
#include <stdexcept>
#include <streambuf>
#include <string>
#include <vector>

using tav::nbr::ComplexValue;
using tav::nbr::NbrInputStream;
using tav::nbr::parser;
using tav::nbr::SimpleValue;
using tav::nbr::ValueBase;
using tav_test::bytes;
using tav_test::onSmallStack;

namespace {

constexpr std::size_t largestBody = 16777215;

/// Counts what is written and keeps nothing.
class CountingBuf : public std::streambuf {
public:
    std::size_t count = 0;

protected:
    int overflow(int c) override {
        ++count;
        return c;
    }
    std::streamsize xsputn(char const *, std::streamsize n) override {
        count += static_cast<std::size_t>(n);
        return n;
    }
};

class Nest : public tavObject {
public:
    int number = 0;
    std::vector<int> list;

    tav_istr className() const override { return "Nest"; }
    tav_istr baseName() const override { return "tavObject"; }
    tavObject * newInstance() const override { return new Nest; }
    void assignFrom(tavObject const &) override {}

protected:
    void traverse(tavCodecStream & s) override {
        ioField(s, 1, "number", number);
        ioField(s, 2, "list", list);
    }
};

std::string nestedMarkers(std::size_t size) {
    std::string result;
    result.reserve(size + 4);
    while (result.size() < size) {
        result.append("\xFF\x01(\x01", 4);
    }
    result.resize(size);
    return result;
}

std::size_t membersOf(tavSharedPtr<ValueBase> const & value) {
    return dynamic_cast<ComplexValue const &>(*value).data().size();
}

} // namespace

TEST(NbrDeep, NestedMarkersAreParsedDumpedAndDestroyedOnASmallStack) {
    std::string const document = nestedMarkers(largestBody);
    onSmallStack([&] {
        NbrInputStream const s{tav_istr(document)};
        EXPECT_FALSE(s.empty());
        CountingBuf buf;
        std::ostream out(&buf);
        s.dump(out, false);
        std::size_t const levels = (largestBody + 3) / 4;
        // An opening brace, a closing one and a blank for each level, and " 1" for each but the last.
        EXPECT_EQ(levels * 3 + (levels - 1) * 2, buf.count);
        EXPECT_EQ(membersOf(s.getComplexValue()), 1u);
    });
}

TEST(NbrDeep, NestedMarkersAsTree) {
    std::string const document = nestedMarkers(largestBody);
    onSmallStack([&] {
        tav_istr view(document);
        tavSharedPtr<ValueBase> root = parser::from(view);
        EXPECT_EQ(view.size(), 0u);
        tavSharedPtr<ValueBase> value = root;
        for (int i = 0; i < 1000000; ++i) {
            value = dynamic_cast<ComplexValue const &>(*value).get(1);
            ASSERT_TRUE(value);
        }
        value.reset();
        CountingBuf buf;
        std::ostream out(&buf);
        root->dump(out, false, 0);
        EXPECT_LT(largestBody, buf.count);
        root.reset();
    });
}

TEST(NbrDeep, MarkersWithoutTagsAreNoNbr) {
    std::string document;
    while (document.size() < largestBody) {
        document.append("\xFF\x01(", 3);
    }
    onSmallStack([&] { EXPECT_THROW(NbrInputStream{tav_istr(document)}, std::invalid_argument); });
}

TEST(NbrDeep, NestedMarkersAreDecoded) {
    std::string const document = nestedMarkers(largestBody);
    onSmallStack([&] {
        Nest object;
        object.number = 7;
        object.decode(tav_istr(document));
        EXPECT_EQ(object.number, 7);
        tavNbrInStream s{tav_istr(document)};
        tavSharedPtr<tavCodecStream> c = s.child(1, "");
        for (int i = 0; i < 200000; ++i) {
            c = c->child(1, "");
            ASSERT_TRUE(c);
        }
        EXPECT_FALSE(c->isNull());
    });
}

TEST(NbrDeep, TreesMadeByHandOfAnyDepth) {
    onSmallStack([] {
        tavSharedPtr<ValueBase> root(new SimpleValue(true));
        for (int i = 0; i < 500000; ++i) {
            auto * const around = new ComplexValue;
            tavSharedPtr<ValueBase> next(around);
            around->add(1, std::move(root));
            around->add(2, nullptr);
            root = std::move(next);
        }
        CountingBuf buf;
        std::ostream out(&buf);
        root->dump(out, false, 0);
        EXPECT_LT(500000u * 6, buf.count);
        // The copy keeps the values alive, so the tree goes with the second of them.
        auto copy = std::make_unique<ComplexValue>(dynamic_cast<ComplexValue const &>(*root));
        root.reset();
        EXPECT_EQ(copy->data().size(), 2u);
        copy.reset();
    });
}

TEST(NbrDeep, DeepOutputStreams) {
    onSmallStack([] {
        tavNbrOutStream s(false);
        tavSharedPtr<tavCodecStream> c = s.child(1, "");
        for (int i = 0; i < 100000; ++i) {
            c->enter("", "");
            c = c->child(1, "");
        }
        int v = 5;
        c->io(v, tavCodecMeta());
        EXPECT_EQ(1u + 4u * 100000 + 3u, s.str().size());
    });
}

TEST(NbrDeep, NullMembersAreManyAndQuick) {
    std::string document = bytes("FF 01 28");
    while (document.size() + 2 <= largestBody) {
        document.append(2, '\0');
    }
    NbrInputStream const s{tav_istr(document)};
    EXPECT_EQ((largestBody - 3) / 2, membersOf(s.getComplexValue()));
    Nest object;
    object.decode(tav_istr(document));
    tavNbrInStream in{tav_istr(document)};
    std::vector<tavSharedPtr<tavCodecStream>> children;
    in.getInputChildren(children);
    EXPECT_EQ((largestBody - 3) / 2, children.size());
    EXPECT_TRUE(children.back()->isNull());
}

TEST(NbrDeep, FaultAtEveryByteIsQuickWhenNothingIsTraced) {
    std::string document = bytes("FF 01 28");
    while (document.size() + 2 <= largestBody) {
        document.append("\x01\xFF", 2);
    }
    document += 'x';
    auto const start = std::chrono::steady_clock::now();
    NbrInputStream const s{tav_istr(document)};
    EXPECT_FALSE(s.empty());
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(20));
}
