#include "tav/vinta/vinta.h"

#include "support/heap_meter.h"
#include "support/repeated.h"

#include <gtest/gtest.h>

#include <chrono>
#include <map>
#include <string>
#include <thread>
#include <vector>

using tav_test::HeapMeter;
using tav_test::repeated;

// What a thread keeps of what it has used, for its next message.

namespace {

class Item : public tavObject {
public:
    int number = 0;
    tavString text;
    std::vector<int> list;

    tav_istr className() const override { return "Item"; }
    tav_istr baseName() const override { return "tavObject"; }
    tavObject * newInstance() const override { return new Item(); }
    void assignFrom(tavObject const &) override {}

protected:
    void traverse(tavCodecStream & s) override {
        ioField(s, 1, "number", number, tavCodecMeta(3));
        ioField(s, 2, "text", text, tavCodecMeta(13));
        ioField(s, 3, "list", list, tavCodecMeta(26));
    }
};

class Huge : public tavObject {
public:
    std::vector<int> numbers;
    std::vector<Item> items;
    std::map<int, tavString> names;

    void fill(int count) {
        numbers.resize(static_cast<std::size_t>(count));
        items.resize(static_cast<std::size_t>(count / 50));
        for (int i = 0; i < count / 50; ++i) {
            items[static_cast<std::size_t>(i)].list = {i};
            names[i] = tavString("name");
        }
    }

    tav_istr className() const override { return "Huge"; }
    tav_istr baseName() const override { return "tavObject"; }
    tavObject * newInstance() const override { return new Huge(); }
    void assignFrom(tavObject const &) override {}

protected:
    void traverse(tavCodecStream & s) override {
        ioField(s, 1, "numbers", numbers, tavCodecMeta(26));
        ioField(s, 2, "items", items, tavCodecMeta(26));
        ioField(s, 3, "names", names, tavCodecMeta(28));
    }
};

/// Runs `work` on a thread of its own, and gives what that thread still holds behind it.
template <class Work>
long long keptAfter(Work work) {
    long long kept = 0;
    std::thread([&] {
        HeapMeter const meter;
        work();
        kept = meter.kept();
    }).join();
    return kept;
}

constexpr long long most = 64000;

void nbrIntoAnObject() {
    Huge from;
    from.fill(1000000);
    tavBytes const bytes = from.encode(false);
    Huge to;
    to.decode(tav_istr(bytes));
    EXPECT_EQ(to.numbers.size(), 1000000u);
}

void nbrTree() {
    std::string const text = repeated(std::string("\1\1\5", 3), 300000);
    tav::nbr::NbrInputStream const in{tav_istr(text)};
    unsigned count = 0;
    for (tavSharedPtr<tav::nbr::ValueBase> const & value : in) {
        count += value ? 1 : 0;
    }
    EXPECT_EQ(count, 300000u);
}

void deepNbr() {
    constexpr unsigned depth = 100000;
    std::string const opened = repeated(std::string("\xFF\1(\1", 4), depth) + std::string("\1\1\5", 3);
    std::string const text = opened + repeated(std::string("\xFF\1)", 3), depth);
    tavNbrInStream in{tav_istr(text)};
    tavSharedPtr<tavCodecStream> at = in.child(1, "f");
    unsigned levels = 0;
    for (; at; at = at->child(1, "f")) {
        ++levels;
    }
    EXPECT_EQ(levels, depth);
}

void pmlSiblings() {
    tav::pml::Unit unit;
    unit.decode(tav_istr("a(" + repeated("b(1)", 1000000) + ")"));
    EXPECT_EQ(unit.size(), 1000000u);
}

void jsonIntoAnObject() {
    Huge from;
    from.fill(100000);
    tavString const text = from.encodeJson(false);
    Huge to;
    to.decodeJson(tav_istr(text));
    EXPECT_EQ(to.numbers.size(), 100000u);
}

void xmlIntoAnObject() {
    Huge from;
    from.fill(100000);
    tavXmlOutStream out("huge");
    from.io(out);
    Huge to;
    tavXmlInStream in{tav_istr(out.str(false))};
    to.io(in);
    EXPECT_EQ(to.numbers.size(), 100000u);
}

void pmlIntoAnObject() {
    Huge from;
    from.fill(100000);
    tavPmlOutStream out;
    from.io(out);
    Huge to;
    tavPmlInStream in{tav_istr(out.str(false, true))};
    to.io(in);
    EXPECT_EQ(to.numbers.size(), 100000u);
}

/// As many messages of the size that is kept best, within one another.
void manyOfTheUsualSize() {
    Huge from;
    from.fill(1500);
    tavBytes const bytes = from.encode(false);
    std::vector<tavSharedPtr<tavNbrInStream>> streams;
    std::vector<tavSharedPtr<tavNbrOutStream>> outs;
    for (int i = 0; i < 20; ++i) {
        streams.emplace_back(new tavNbrInStream(tav_istr(bytes)));
        Huge to;
        to.io(*streams.back());
        outs.emplace_back(new tavNbrOutStream(false));
        to.io(*outs.back());
    }
}

/// Outputs that all live at one time, each with children of its own.
void manyOutputs() {
    Item item;
    item.list = {1, 2, 3};
    std::vector<tavSharedPtr<tavNbrOutStream>> outs;
    for (int i = 0; i < 1000; ++i) {
        outs.emplace_back(new tavNbrOutStream(false));
        item.io(*outs.back());
    }
}

void manyCounts() {
    std::vector<tavAtomicInt> const counts(10000);
    std::vector<tavAtomicInt64> const wide(10000);
    EXPECT_EQ(counts.back().get() + wide.back().get(), 0u);
}

} // namespace

TEST(ThreadMemory, IsLittleAfterATreeOfAMillionIsGone) {
    EXPECT_LE(keptAfter(nbrIntoAnObject), most);
    EXPECT_LE(keptAfter(nbrTree), most);
    EXPECT_LE(keptAfter(deepNbr), most);
    EXPECT_LE(keptAfter(pmlSiblings), most);
    EXPECT_LE(keptAfter(jsonIntoAnObject), most);
    EXPECT_LE(keptAfter(xmlIntoAnObject), most);
    EXPECT_LE(keptAfter(pmlIntoAnObject), most);
    EXPECT_LE(keptAfter(manyOfTheUsualSize), most);
}

TEST(ThreadMemory, IsLittleAfterManyStreamsAndCountsAtOneTime) {
    EXPECT_LE(keptAfter(manyOutputs), most);
    EXPECT_LE(keptAfter(manyCounts), most);
}

TEST(ThreadMemory, IsLittleInAllWhateverTheThreadHasDone) {
    EXPECT_LE(keptAfter([] {
                  nbrTree();
                  deepNbr();
                  manyOfTheUsualSize();
                  pmlSiblings();
                  jsonIntoAnObject();
                  nbrIntoAnObject();
                  manyOfTheUsualSize();
              }),
              most);
}

TEST(ThreadMemory, IsGivenBackWhenTheThreadEnds) {
    keptAfter(manyOfTheUsualSize);
    HeapMeter const meter;
    keptAfter([] {
        manyOfTheUsualSize();
        pmlSiblings();
    });
    EXPECT_LE(meter.kept(), 1000);
}

TEST(ThreadMemory, IsUsedAgainByTheNextMessage) {
    Item from;
    from.text = tavString("text");
    tavBytes const bytes = from.encode(false);
    Item to;
    to.decode(tav_istr(bytes));
    HeapMeter const meter;
    to.decode(tav_istr(bytes));
    EXPECT_LE(meter.peak(), 200);
}

namespace {

/// Reads a list of so many numbers, of which each takes about 130 bytes, and lets it go.
void readNumbers(int count) {
    tavSharedPtr<tav::json::JsonValue> const list =
        tav::json::JsonParser::from(tav_istr(repeated("1,", count).insert(0, "[")));
    EXPECT_EQ(static_cast<tav::json::JsonArray const &>(*list).size(), static_cast<unsigned>(count));
}

/// Reads small texts until no more than this is kept, for ten seconds at most.
bool givesUpAllBut(HeapMeter const & meter, long long kept) {
    auto const end = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    while (meter.kept() > kept && std::chrono::steady_clock::now() < end) {
        readNumbers(1);
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    return meter.kept() <= kept;
}

constexpr long long largest = 4 * 1024 * 1024 + most;

} // namespace

TEST(ThreadMemory, OfALargeTextServesTheNextOneAndIsGivenUpWhenThatDoesNotCome) {
    readNumbers(60000);
    HeapMeter const meter;
    readNumbers(20000);
    EXPECT_GT(meter.taken(), 70);
    EXPECT_LE(meter.kept(), largest);
    long long const before = meter.taken();
    std::thread([] { readNumbers(20000); }).join();
    EXPECT_LT(meter.taken() - before, 50);
    EXPECT_LE(meter.kept(), largest);
    EXPECT_TRUE(givesUpAllBut(meter, most));
}

TEST(ThreadMemory, OfALargerTextThanThatIsLittleAtOnce) {
    HeapMeter const meter;
    readNumbers(60000);
    EXPECT_LE(meter.kept(), most);
    readNumbers(60000);
    EXPECT_LE(meter.kept(), most);
}

TEST(ThreadMemory, OfManyThreadsThatReadLargeTextsIsNoMoreThanOfOne) {
    HeapMeter const meter;
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back([] {
            for (int round = 0; round < 10; ++round) {
                readNumbers(20000);
            }
        });
    }
    for (std::thread & thread : threads) {
        thread.join();
    }
    EXPECT_LE(meter.kept(), largest);
}
