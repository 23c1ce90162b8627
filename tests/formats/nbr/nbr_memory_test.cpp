#include "tav/vinta/vinta_nbr_unit.h"

#include "support/heap_meter.h"
#include "support/repeated.h"
#include "tav/vinta/vinta_object.h"

#include <gtest/gtest.h>

#include <list>
#include <string>
#include <thread>
#include <vector>

using tav_test::HeapMeter;
using tav_test::repeated;

// What bytes of a peer may cost beside their own size.

namespace {

/// An object with one list.
template <class List>
class Holder : public tavObject {
public:
    List list;

    tav_istr className() const override { return "Holder"; }
    tav_istr baseName() const override { return "tavObject"; }
    tavObject * newInstance() const override { return new Holder(); }
    void assignFrom(tavObject const &) override {}

protected:
    void traverse(tavCodecStream & s) override { ioField(s, 1, "list", list); }
};

std::string const opening("\xFF\x01(", 3);
std::string const closing("\xFF\x01)", 3);

/// An object whose field 1 is a list of `count` of these elements, each with its tag.
std::string listOf(std::string const & element, unsigned count) {
    return opening + '\1' + opening + repeated(element, count) + closing + closing;
}

/// The most that decoding takes, as a multiple of the input.
template <class List>
double costOfDecoding(std::string const & bytes, std::size_t size) {
    HeapMeter const meter;
    Holder<List> object;
    object.decode(tav_istr(bytes));
    EXPECT_EQ(object.list.size(), size);
    return static_cast<double>(meter.peak()) / static_cast<double>(bytes.size());
}

/// The allocations of a decoding.
template <class List>
long long allocationsOfDecoding(std::string const & bytes, std::size_t size) {
    HeapMeter const meter;
    Holder<List> object;
    object.decode(tav_istr(bytes));
    long long const taken = meter.taken();
    EXPECT_EQ(object.list.size(), size);
    return taken;
}

std::string const shortNumber("\0\1\1\7", 4);
std::string const longNumber("\0\1\4\1\2\3\4", 7);
std::string const shortText("\0\xF1\1x", 4);
std::string const noValue("\0\0", 2);

} // namespace

TEST(NbrMemory, ListOfNumbersTakesTwelveTimesItsBytesAtMost) {
    for (unsigned const count : {200000u, (1u << 17) + 1, (1u << 18) - 1}) {
        EXPECT_LE(costOfDecoding<std::vector<int>>(listOf(shortNumber, count), count), 12);
        EXPECT_LE(costOfDecoding<std::vector<int>>(listOf(longNumber, count), count), 12);
        EXPECT_LE(costOfDecoding<std::vector<long long>>(listOf(shortNumber, count), count), 12);
        EXPECT_LE(costOfDecoding<std::vector<bool>>(listOf(shortNumber, count), count), 12);
        EXPECT_LE(costOfDecoding<std::vector<tavTime>>(listOf(shortNumber, count), count), 12);
    }
}

// What the tree and the list take as they grow, and nothing for an element.
TEST(NbrMemory, ListOfSimpleElementsTakesThirtyTwoAllocationsAtMost) {
    constexpr unsigned count = 200000;
    std::string const numbers = listOf(shortNumber, count);
    EXPECT_LE(allocationsOfDecoding<std::vector<int>>(numbers, count), 32);
    EXPECT_LE(allocationsOfDecoding<std::vector<int>>(listOf(longNumber, count), count), 32);
    EXPECT_LE(allocationsOfDecoding<std::vector<unsigned char>>(numbers, count), 32);
    EXPECT_LE(allocationsOfDecoding<std::vector<long long>>(numbers, count), 32);
    EXPECT_LE(allocationsOfDecoding<std::vector<bool>>(numbers, count), 32);
    EXPECT_LE(allocationsOfDecoding<std::vector<tavTime>>(numbers, count), 32);
    EXPECT_LE(allocationsOfDecoding<std::vector<std::string>>(listOf(shortText, count), count), 32);
}

TEST(NbrMemory, ListTakesNoStreamsBesideItsElements) {
    constexpr unsigned count = 200000;
    std::string const texts = listOf(shortText, count);
    EXPECT_LE(costOfDecoding<std::vector<tavString>>(texts, count), 6 + sizeof(tavString) / 4);
    std::string const bytes = listOf(noValue, count);
    double const elements = static_cast<double>(count) / static_cast<double>(bytes.size());
    EXPECT_LE(costOfDecoding<std::vector<int>>(bytes, count), 14);
    EXPECT_LE(costOfDecoding<std::vector<std::string>>(bytes, count), 8 + sizeof(std::string) * elements);
    EXPECT_LE(costOfDecoding<std::vector<tavOptional<int>>>(bytes, count),
              8 + sizeof(tavOptional<int>) * elements);
}

TEST(NbrMemory, ParsedValuesOfTwoBytesTakeTwentyFourTimesThemAtMost) {
    for (unsigned const count : {1000000u, (1u << 20) + 1}) {
        for (std::string const & unit : {std::string("\1\0", 2), std::string("\xF1\0", 2)}) {
            std::string const bytes = repeated(unit, count);
            HeapMeter const meter;
            tav::nbr::NbrInputStream const in{tav_istr(bytes)};
            EXPECT_FALSE(in.empty());
            EXPECT_LE(meter.peak(), 24 * static_cast<long long>(bytes.size()));
        }
    }
}

TEST(NbrMemory, WalkedValuesOfTwoBytesTakeLittleMoreThanTheList) {
    constexpr unsigned count = 1000000;
    // A list's entry: two links and the pointer, with what the allocator adds.
    constexpr long long entry = 2 * sizeof(void *) + sizeof(tavSharedPtr<tav::nbr::ValueBase>) + 16;
    std::string const bytes = repeated(std::string("\1\0\xF1\0", 4), count / 2);
    HeapMeter const meter;
    tav::nbr::NbrInputStream const in{tav_istr(bytes)};
    unsigned walked = 0;
    for (tavSharedPtr<tav::nbr::ValueBase> const & value : in) {
        auto const & simple = static_cast<tav::nbr::SimpleValue const &>(*value);
        walked += simple.isNull() ? 1 : 0;
    }
    EXPECT_EQ(walked, count);
    EXPECT_LE(meter.kept(), (entry + 16) * count);
}

TEST(NbrMemory, MembersOfTwoBytesTakeTwentyFourTimesThemAtMost) {
    constexpr unsigned count = 1000000;
    std::string const bytes = opening + repeated(noValue, count) + closing;
    HeapMeter const meter;
    tav::nbr::NbrInputStream const in{tav_istr(bytes)};
    EXPECT_EQ(in.getComplexValue()->data().size(), count);
    EXPECT_LE(meter.peak(), 24 * static_cast<long long>(bytes.size()));
}

TEST(NbrMemory, OfStreamsThatWereAskedForOftenIsCountedInWhatAThreadKeeps) {
    constexpr unsigned members = 240;
    constexpr unsigned keys = 100;
    std::string bytes = opening;
    for (unsigned i = 0; i < members; ++i) {
        bytes += std::string{static_cast<char>(1 + i % keys), 1, 1, 5};
    }
    bytes += closing;
    long long kept = 0;
    std::thread([&] {
        HeapMeter const meter;
        {
            // Each is asked so often that it remembers the stream of every value, of which there are too many
            // to be kept.
            std::vector<tavSharedPtr<tavNbrInStream>> streams;
            for (unsigned i = 0; i < 40; ++i) {
                streams.emplace_back(new tavNbrInStream(tav_istr(bytes)));
                for (unsigned asked = 0; asked < members + 1 + keys; ++asked) {
                    ASSERT_TRUE(streams.back()->child(1 + (asked > members ? asked - members - 1 : 0), ""));
                }
            }
        }
        kept = meter.kept();
    }).join();
    EXPECT_LE(kept, 24 * 1024 + 1024);
    EXPECT_GT(kept, 12 * 1024);
}
