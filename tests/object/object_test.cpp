#include "tav/vinta/vinta_object.h"

#include "support/log_capture.h"
#include "support/recording_stream.h"

#include <gtest/gtest.h>

#include <sys/mman.h>
#include <unistd.h>

#include <atomic>
#include <cstring>
#include <initializer_list>
#include <iterator>
#include <map>
#include <memory>
#include <new>
#include <sstream>
#include <stdexcept>
#include <string>
#include <thread>
#include <type_traits>
#include <unordered_map>
#include <utility>
#include <vector>

namespace {

using tav_test::RecordingStream;

std::string hex(tav_istr bytes) {
    static char const digits[] = "0123456789ABCDEF";
    std::string text;
    for (unsigned i = 0; i < bytes.size(); ++i) {
        unsigned char const byte = static_cast<unsigned char>(bytes[i]);
        text += i != 0 ? " " : "";
        text += digits[byte >> 4];
        text += digits[byte & 15];
    }
    return text;
}

std::string unhex(std::string const & text) {
    std::istringstream in(text);
    std::string bytes;
    for (unsigned byte; in >> std::hex >> byte;) {
        bytes += static_cast<char>(byte);
    }
    return bytes;
}

class Fieldless : public tavObject {
public:
    tav_istr className() const override { return "Fieldless"; }
    tav_istr baseName() const override { return "tavObject"; }
    tavObject * newInstance() const override { return nullptr; }
    void assignFrom(tavObject const &) override {}
};

/// The object of the wire format's worked example.
class Sample : public tavObject {
public:
    int number = 0;
    tavString text;
    std::vector<unsigned short> list;

    tav_istr className() const override { return "Sample"; }
    tav_istr baseName() const override { return "tavObject"; }
    tavObject * newInstance() const override { return new Sample(); }
    void assignFrom(tavObject const & other) override {
        if (auto const * const same = dynamic_cast<Sample const *>(&other)) {
            *this = *same;
        }
    }

protected:
    void traverse(tavCodecStream & s) override {
        ioField(s, 1, "number", number);
        ioField(s, 2, "text", text);
        ioField(s, 3, "list", list);
    }
};

class Optionals : public tavObject {
public:
    tavOptional<int> a;
    tavOptional<tavString> b;

    tav_istr className() const override { return "Optionals"; }
    tav_istr baseName() const override { return "tavObject"; }
    tavObject * newInstance() const override { return new Optionals(); }
    void assignFrom(tavObject const &) override {}

protected:
    void traverse(tavCodecStream & s) override {
        ioField(s, 1, "a", a, tavCodecMeta(3, false, nullptr, true));
        ioField(s, 2, "b", b, tavCodecMeta(13, false, nullptr, true));
    }
};

class Hideable : public tavObject {
public:
    int kept = 0;
    int hidden = 0;
    tavString text;
    Optionals nested;

    tav_istr className() const override { return "Hideable"; }
    tav_istr baseName() const override { return "tavObject"; }
    tavObject * newInstance() const override { return new Hideable(); }
    void assignFrom(tavObject const &) override {}

protected:
    void traverse(tavCodecStream & s) override {
        tavCodecMeta const optional(-1, false, nullptr, true);
        ioField(s, 1, "kept", kept);
        ioField(s, 2, "hidden", hidden, optional);
        ioField(s, 3, "text", text, optional);
        ioField(s, 4, "nested", nested, optional);
    }
};

class Note : public tavMessage {
public:
    tavString text;
    Sample sample;

    tav_istr className() const override { return "Note"; }
    tav_istr baseName() const override { return "tavMessage"; }
    tavObject * newInstance() const override { return new Note(); }
    void assignFrom(tavObject const & other) override {
        if (auto const * const same = dynamic_cast<Note const *>(&other)) {
            *this = *same;
        }
    }
    unsigned short msgcode() const override { return 77; }

protected:
    void traverse(tavCodecStream & s) override {
        tavMessage::traverse(s);
        ioField(s, 1, "text", text);
        ioField(s, 2, "sample", sample);
    }
};

enum class Mood { good = 1, bad = 2, none = 9 };

/// Every kind of field that is more than a plain value.
class EveryKind : public tavObject {
public:
    tavEnum<Mood> mood;
    tavNumber<int, 5> number;
    tavNumber<double, 2> real;
    tavOptional<tavEnum<Mood>> maybe;
    tavOptional<int> unset;
    Sample sample;
    tavSharedPtr<Sample> pointer{new Sample()};
    std::vector<bool> bits{true, false};
    std::vector<tavEnum<Mood>> moods{Mood::good, Mood::bad};
    std::map<tavEnum<Mood>, tavNumber<short, 1>> map{{Mood::bad, tavNumber<short, 1>()}};
    std::unordered_map<int, tavOptional<int>> table{{3, 4}};
    std::string text = "t";
    tavWstring wide{L"w"};
    wchar_t letter = L'l';

    tav_istr className() const override { return "EveryKind"; }
    tav_istr baseName() const override { return "tavObject"; }
    tavObject * newInstance() const override { return new EveryKind(); }
    void assignFrom(tavObject const &) override {}

protected:
    void traverse(tavCodecStream & s) override {
        ioField(s, 1, "mood", mood);
        ioField(s, 2, "number", number);
        ioField(s, 3, "real", real);
        ioField(s, 4, "maybe", maybe);
        ioField(s, 5, "unset", unset);
        ioField(s, 6, "sample", sample);
        ioField(s, 7, "pointer", pointer);
        ioField(s, 8, "bits", bits);
        ioField(s, 9, "moods", moods);
        ioField(s, 10, "map", map);
        ioField(s, 11, "table", table);
        ioField(s, 12, "text", text);
        ioField(s, 13, "wide", wide);
        ioField(s, 14, "letter", letter);
    }
};

/// Memory that can be written to only until it is sealed.
class SealedMemory {
public:
    explicit SealedMemory(std::size_t size) {
        std::size_t const page = static_cast<std::size_t>(::sysconf(_SC_PAGESIZE));
        size_ = (size + page - 1) / page * page;
        data_ = ::mmap(nullptr, size_, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
        if (data_ == MAP_FAILED) {
            throw std::bad_alloc();
        }
    }
    SealedMemory(SealedMemory const &) = delete;
    SealedMemory & operator=(SealedMemory const &) = delete;
    ~SealedMemory() { ::munmap(data_, size_); }

    void * data() const { return data_; }
    bool seal(bool sealed) {
        return ::mprotect(data_, size_, sealed ? PROT_READ : PROT_READ | PROT_WRITE) == 0;
    }

private:
    void * data_;
    std::size_t size_;
};

/// A step of a walk into a class that holds itself.
class Level {
public:
    explicit Level(int limit) {
        if (depth_ >= limit) {
            throw std::invalid_argument("too deep");
        }
        ++depth_;
    }
    ~Level() { --depth_; }
    Level(Level const &) = delete;
    Level & operator=(Level const &) = delete;

private:
    static thread_local int depth_;
};
thread_local int Level::depth_ = 0;

class Reply : public tavObject {
public:
    static int limit;

    int number = 0;
    std::vector<Reply> replies;

    tav_istr className() const override { return "Reply"; }
    tav_istr baseName() const override { return "tavObject"; }
    tavObject * newInstance() const override { return new Reply(); }
    void assignFrom(tavObject const &) override {}

protected:
    void traverse(tavCodecStream & s) override {
        Level const level(limit);
        ioField(s, 1, "number", number);
        ioField(s, 2, "replies", replies);
    }
};
int Reply::limit = 64;

/// A reply to a reply, and so on: as many objects as `levels`.
std::string replies(int levels) {
    std::string const open = unhex("FF 01 28 01 01 01 07 02 FF 01 28 00");
    std::string const close = unhex("FF 01 29 FF 01 29");
    std::string text;
    text.reserve((open.size() + close.size()) * static_cast<std::size_t>(levels));
    for (int i = 1; i < levels; ++i) {
        text += open;
    }
    text += unhex("FF 01 28 01 01 01 07 FF 01 29");
    for (int i = 1; i < levels; ++i) {
        text += close;
    }
    return text;
}

int depthOf(Reply const & reply) {
    int depth = 1;
    for (Reply const * r = &reply; !r->replies.empty(); r = &r->replies.front()) {
        ++depth;
    }
    return depth;
}

/// The place of a virtual operation in its class's table.
template <class Operation>
std::size_t placeOf(Operation operation) {
    std::size_t words[2];
    static_assert(sizeof(operation) == sizeof(words), "a pointer to an operation is two words");
    std::memcpy(words, &operation, sizeof(words));
    return (words[0] - 1) / sizeof(void *);
}

char const sampleBytes[] =
    "FF 01 28 01 01 01 05 02 F1 02 61 62 03 FF 01 28 00 01 01 07 00 01 02 2C 01 FF 01 29 FF 01 29";

Sample sampleObject() {
    Sample v;
    v.number = 5;
    v.text = "ab";
    v.list = {7, 300};
    return v;
}

} // namespace

TEST(TavObject, ClassTreeIsAsDeclared) {
    EXPECT_TRUE((std::is_base_of<tavCodecInterface, tavObject>::value));
    EXPECT_TRUE((std::is_base_of<tavSharedObject, tavObject>::value));
    EXPECT_TRUE((std::is_base_of<tavObject, tavMessage>::value));
    EXPECT_TRUE((std::is_base_of<tavMsgInterface, tavMessage>::value));
    EXPECT_TRUE((std::is_base_of<tavObject, tavMsgExt>::value));
    EXPECT_TRUE((std::is_base_of<tavSharedObject, tavCodecStream>::value));
}

TEST(TavObject, CountIsOneOnEveryPathToIt) {
    struct Other : tavSharedObject {};
    struct Both : Sample, Other {};
    tavSharedPtr<tavRefCountObject> const held(new Both());
    EXPECT_EQ(held->getRefCount(), 1u);
    EXPECT_EQ(tavSharedPtr<tavObject>(new Both())->getRefCount(), 1u);
}

TEST(TavObject, OperationsHaveTheirPlaces) {
    struct Exposed : tavObject {
        using tavObject::traverse;
    };
    std::size_t const io = placeOf(&tavCodecInterface::io);
    EXPECT_EQ(placeOf(&tavCodecInterface::empty), io + 1);
    EXPECT_EQ(placeOf(&tavObject::io), io);
    EXPECT_EQ(placeOf(&tavObject::empty), io + 1);
    EXPECT_EQ(placeOf(&Exposed::traverse), io + 2);
    EXPECT_EQ(placeOf(&tavObject::className), io + 3);
    EXPECT_EQ(placeOf(&tavObject::baseName), io + 4);
    EXPECT_EQ(placeOf(&tavObject::newInstance), io + 5);
    EXPECT_EQ(placeOf(&tavObject::assignFrom), io + 6);
}

TEST(ObjectCodecStream, OperationsHaveTheirPlaces) {
    using S = tavCodecStream;
    using M = tavCodecMeta const &;
    std::size_t const places[] = {placeOf(&S::isNull),
                                  placeOf(&S::hideEmpty),
                                  placeOf(&S::isOutputStream),
                                  placeOf(&S::child),
                                  placeOf(&S::getOutputChild),
                                  placeOf(&S::getInputChildren),
                                  placeOf(&S::isMapEntryCombined),
                                  placeOf(&S::getInputChildMap),
                                  placeOf(&S::enter),
                                  placeOf(&S::leave),
                                  placeOf<void (S::*)(tavTime &, M)>(&S::io),
                                  placeOf<void (S::*)(tavBytes &, M)>(&S::io),
                                  placeOf<void (S::*)(tavString &, M)>(&S::io),
                                  placeOf<void (S::*)(double &, M)>(&S::io),
                                  placeOf<void (S::*)(float &, M)>(&S::io),
                                  placeOf<void (S::*)(unsigned long long &, M)>(&S::io),
                                  placeOf<void (S::*)(long long &, M)>(&S::io),
                                  placeOf<void (S::*)(unsigned long &, M)>(&S::io),
                                  placeOf<void (S::*)(long &, M)>(&S::io),
                                  placeOf<void (S::*)(unsigned int &, M)>(&S::io),
                                  placeOf<void (S::*)(int &, M)>(&S::io),
                                  placeOf<void (S::*)(unsigned short &, M)>(&S::io),
                                  placeOf<void (S::*)(short &, M)>(&S::io),
                                  placeOf<void (S::*)(unsigned char &, M)>(&S::io),
                                  placeOf<void (S::*)(char &, M)>(&S::io),
                                  placeOf<void (S::*)(bool &, M)>(&S::io),
                                  placeOf(&S::writeNull),
                                  placeOf(&S::makeArrayValue),
                                  placeOf(&S::makeObjectValue),
                                  placeOf(&S::on_each_field_meta)};
    ASSERT_EQ(std::size(places), 30u);
    for (std::size_t i = 0; i < std::size(places); ++i) {
        EXPECT_EQ(places[i], places[0] + i);
    }
}

TEST(TavObject, FieldsComeBetweenEnterAndLeave) {
    RecordingStream::Calls calls;
    RecordingStream s(calls, {});
    Optionals v;
    v.a = 3;
    v.io(s);
    EXPECT_EQ(calls, (RecordingStream::Calls{
                         "enter 'Optionals' 'tavObject'", "field 1:a ( ) {3, false, , true}", "child 1:a",
                         "/1:a io int 3 {3, false, , true}", "field 2:b ( ) {13, false, , true}", "leave"}));
}

TEST(TavObject, IoBracketsTheFields) {
    RecordingStream::Calls calls;
    RecordingStream s(calls, {});
    Fieldless v;
    v.io(s);
    EXPECT_EQ(calls, (RecordingStream::Calls{"enter 'Fieldless' 'tavObject'", "leave"}));
}

TEST(TavObject, EncodesToTheWorkedBytes) {
    EXPECT_EQ(hex(sampleObject().encode(false)), sampleBytes);
    EXPECT_EQ(hex(sampleObject().encode(true)), sampleBytes);
    Sample empty = sampleObject();
    empty.list.clear();
    EXPECT_EQ(hex(empty.encode(false)), "FF 01 28 01 01 01 05 02 F1 02 61 62 03 FF 01 28 FF 01 29 FF 01 29");
}

TEST(TavObject, DecodesWhatItEncodes) {
    Sample v;
    v.list = {1};
    v.decode(unhex(sampleBytes));
    EXPECT_EQ(v.number, 5);
    EXPECT_TRUE(v.text == "ab");
    EXPECT_EQ(v.list, (std::vector<unsigned short>{7, 300}));
}

TEST(TavObject, WithoutFieldsItIsSixBytesAndEmpty) {
    EXPECT_EQ(hex(Fieldless().encode(false)), "FF 01 28 FF 01 29");
    EXPECT_EQ(hex(Fieldless().encode(true)), "FF 01 28 FF 01 29");
    EXPECT_TRUE(Fieldless().empty());
}

TEST(TavObject, WithAFieldItIsNotEmptyEvenAtItsDefaults) {
    EXPECT_FALSE(Sample().empty());
    EXPECT_FALSE(Hideable().empty());
}

TEST(TavObject, WithNothingButUnsetOptionalFieldsItIsEmpty) {
    Optionals v;
    EXPECT_TRUE(v.empty());
    v.a = 0;
    EXPECT_FALSE(v.empty());
}

TEST(TavObject, HidingLeavesOutOptionalEmptyFieldsOnly) {
    Hideable v;
    EXPECT_EQ(hex(v.encode(true)), "FF 01 28 01 01 01 00 FF 01 29");
    EXPECT_EQ(hex(v.encode(false)),
              "FF 01 28 01 01 01 00 02 01 01 00 03 F1 00 04 FF 01 28 FF 01 29 FF 01 29");
    v.hidden = 1;
    v.nested.a = 2;
    EXPECT_EQ(hex(v.encode(true)),
              "FF 01 28 01 01 01 00 02 01 01 01 04 FF 01 28 01 01 01 02 FF 01 29 FF 01 29");
}

TEST(TavObject, HidingStopsAtTheTopLevel) {
    struct Outer : Sample {
        Hideable inner;
        int hidden = 0;
        void traverse(tavCodecStream & s) override {
            ioField(s, 1, "inner", inner);
            ioField(s, 2, "hidden", hidden, tavCodecMeta(-1, false, nullptr, true));
        }
    } v;
    EXPECT_EQ(hex(v.encode(true)),
              "FF 01 28 01 FF 01 28 01 01 01 00 02 01 01 00 03 F1 00 04 FF 01 28 FF 01 29 "
              "FF 01 29 FF 01 29");
}

TEST(TavObject, OutputOnlyReadsTheObject) {
    tavEnum<Mood>::add(Mood::good, "good");
    tavEnum<Mood>::add(Mood::bad, "bad");
    SealedMemory memory(sizeof(EveryKind));
    EveryKind * const v = new (memory.data()) EveryKind();
    v->mood = Mood::none;
    v->maybe = tavEnum<Mood>(Mood::good);
    std::string const expected = hex(v->encode(false));
    ASSERT_TRUE(memory.seal(true));
    EXPECT_EQ(hex(v->encode(false)), expected);
    EXPECT_EQ(hex(v->encode(true)), expected);
    EXPECT_FALSE(v->empty());
    EXPECT_FALSE(v->dump(false, 0).empty());
    std::vector<std::thread> threads;
    std::atomic<int> right{0};
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back([&] { right += hex(v->encode(true)) == expected ? 1 : 0; });
    }
    for (std::thread & thread : threads) {
        thread.join();
    }
    EXPECT_EQ(right, 4);
    ASSERT_TRUE(memory.seal(false));
    EveryKind copy;
    copy.mood = Mood::none;
    copy.decode(v->encode(false));
    EXPECT_EQ(hex(copy.encode(false)), expected);
    v->~EveryKind();
}

TEST(TavObject, HalfDecodedItStaysAsItIs) {
    tav_test::LogCapture log;
    tavEnum<Mood>::add(Mood::good, "good");
    struct Moody : Sample {
        int before = 0;
        tavEnum<Mood> mood;
        int behind = 0;
        void traverse(tavCodecStream & s) override {
            ioField(s, 1, "before", before);
            ioField(s, 2, "mood", mood);
            ioField(s, 3, "behind", behind);
        }
    } v;
    EXPECT_THROW(v.decode(unhex("FF 01 28 01 01 01 05 02 01 01 4D 03 01 01 06 FF 01 29")),
                 std::invalid_argument);
    EXPECT_EQ(v.before, 5);
    EXPECT_EQ(v.mood.value(), 0);
    EXPECT_EQ(v.behind, 0);
}

TEST(TavObject, ClassThatHoldsItselfIsWalkedToItsLastLevel) {
    Reply::limit = 3000;
    Reply v;
    v.decode(replies(3000));
    EXPECT_EQ(depthOf(v), 3000);
    EXPECT_EQ(std::string(tav_istr(v.encode(false))).size(), replies(3000).size() + 7);
    EXPECT_FALSE(v.dump(true, 0).empty());
    Reply::limit = 64;
}

TEST(TavObject, ClassThatHoldsItselfLimitsItsDepthInTraverse) {
    Reply v;
    v.decode(replies(64));
    EXPECT_EQ(depthOf(v), 64);
    for (int const levels : {65, 200000}) {
        Reply deep;
        try {
            deep.decode(replies(levels));
            FAIL() << levels << " levels were taken";
        } catch (std::invalid_argument const & e) {
            EXPECT_STREQ(e.what(), "too deep");
        }
        EXPECT_EQ(depthOf(deep), 65);
    }
    Reply other;
    other.decode(replies(64));
    EXPECT_EQ(depthOf(other), 64);
}

TEST(TavObject, NoBytesLeaveItUnchanged) {
    Sample v = sampleObject();
    v.decode(tav_istr());
    v.decode("");
    EXPECT_EQ(hex(v.encode(false)), sampleBytes);
}

TEST(TavObject, MissingAndUnknownFieldsAreNoFailure) {
    Sample v = sampleObject();
    v.decode(unhex("FF 01 28 63 01 01 09 01 01 01 06 FF 01 29"));
    EXPECT_EQ(v.number, 6);
    EXPECT_TRUE(v.text == "ab");
    EXPECT_EQ(v.list.size(), 2u);
}

TEST(TavObject, FailureOfTheStreamPassesThrough) {
    tav_test::LogCapture log;
    Sample v = sampleObject();
    EXPECT_THROW(v.decode(unhex("28 01")), std::invalid_argument);
    EXPECT_EQ(v.number, 5);
}

TEST(TavObject, CutBytesGiveWhatWasComplete) {
    std::string const whole = unhex(sampleBytes);
    for (std::size_t size = 0; size < whole.size(); ++size) {
        Sample v;
        v.decode(tav_istr(whole.data(), size));
        EXPECT_EQ(v.number, size >= 7 ? 5 : 0) << size;
        EXPECT_TRUE(v.text.empty() || v.text == "ab" || v.text == "a") << size;
        // A close marker cut to two bytes reads as one more member, without a value.
        EXPECT_LE(v.list.size(), 3u) << size;
    }
}

TEST(TavObject, NestedObjectsRoundTrip) {
    Note note;
    note.text = "n";
    note.sample = sampleObject();
    Note copy;
    copy.decode(note.encode(false));
    EXPECT_TRUE(copy.text == "n");
    EXPECT_EQ(hex(copy.sample.encode(false)), sampleBytes);
}

TEST(TavObject, ClassIsKnownByItsName) {
    Sample const sample;
    EXPECT_TRUE(sample.classEqual(Sample()));
    EXPECT_FALSE(sample.classEqual(Fieldless()));
    EXPECT_TRUE(sample.classOf("Sample"));
    EXPECT_FALSE(sample.classOf("Samples"));
    EXPECT_FALSE(sample.classOf("Sampl"));
    EXPECT_EQ(sample.self(), &sample);
}

TEST(TavObject, CloneIsANewObjectWithTheSameFields) {
    Sample const sample = sampleObject();
    std::unique_ptr<tavObject> const copy(sample.clone());
    ASSERT_TRUE(copy != nullptr);
    EXPECT_NE(copy.get(), &sample);
    EXPECT_EQ(copy->getRefCount(), 0u);
    EXPECT_EQ(hex(copy->encode(false)), sampleBytes);
}

TEST(TavObject, CloneIsNullWithoutANewInstance) {
    EXPECT_EQ(Fieldless().clone(), nullptr);
}

TEST(TavObject, AssignIsAssignFrom) {
    Sample v;
    v.assign(sampleObject());
    EXPECT_EQ(v.number, 5);
    v.assign(Fieldless());
    EXPECT_EQ(v.number, 5);
}

TEST(TavObject, CountsLiveObjects) {
    unsigned const objects = tavObject::counts();
    {
        Sample const a;
        EXPECT_EQ(tavObject::counts(), objects + 1);
        Sample const b(a);
        EXPECT_EQ(tavObject::counts(), objects + 2);
        Sample c;
        c = b;
        EXPECT_EQ(tavObject::counts(), objects + 3);
    }
    EXPECT_EQ(tavObject::counts(), objects);
}

TEST(TavObject, CheckingFieldsHasNoEffectOnOtherStreams) {
    tav_test::LogCapture log;
    RecordingStream::Calls calls;
    tav_test::Node const nothing;
    RecordingStream s(calls, {}, nothing);
    EXPECT_NO_THROW(sampleObject().checkFields(s));
    EXPECT_NO_THROW(sampleObject().checkFields(tavNullStream()));
    EXPECT_TRUE(calls.empty());
    EXPECT_TRUE(log.records().empty());
}

TEST(TavObject, CopyHasACountOfItsOwn) {
    tavSharedPtr<Sample> const held(new Sample());
    Sample const copy(*held);
    EXPECT_EQ(held->getRefCount(), 1u);
    EXPECT_EQ(copy.getRefCount(), 0u);
}

TEST(TavObject, ThreadsEncodeObjectsOfOneClassAtOnce) {
    unsigned const objects = tavObject::counts();
    std::atomic<int> right{0};
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back([&] {
            for (int round = 0; round < 200; ++round) {
                Note note;
                note.decode(unhex("FF 01 28 01 F1 01 6E FF 01 29"));
                note.sample.decode(unhex(sampleBytes));
                right += hex(sampleObject().encode(round % 2 != 0)) == sampleBytes && note.text == "n" &&
                                 note.sample.list.size() == 2
                             ? 1
                             : 0;
            }
        });
    }
    for (std::thread & thread : threads) {
        thread.join();
    }
    EXPECT_EQ(right, 800);
    EXPECT_EQ(tavObject::counts(), objects);
}

TEST(ObjectMsgExt, NamesItsClass) {
    EXPECT_EQ(tavMsgExt().className(), "tavMsgExt");
    EXPECT_EQ(tavMsgExt().baseName(), "tavObject");
    std::unique_ptr<tavObject> const made(tavMsgExt().newInstance());
    EXPECT_TRUE(made->classOf("tavMsgExt"));
}

TEST(ObjectMsgExt, IsEmptyUntilOneOfTheThreeIsSet) {
    EXPECT_TRUE(tavMsgExt().empty());
    tavMsgExt a;
    a.serverTime = 0;
    EXPECT_FALSE(a.empty());
    tavMsgExt b;
    b.clientTime = 0;
    EXPECT_FALSE(b.empty());
    tavMsgExt c;
    c.traceId = tavString();
    EXPECT_FALSE(c.empty());
}

TEST(ObjectMsgExt, UnsetFieldsTravelAsNulls) {
    EXPECT_EQ(hex(tavMsgExt().encode(false)), "FF 01 28 01 00 02 00 03 00 FF 01 29");
    EXPECT_EQ(hex(tavMsgExt().encode(true)), "FF 01 28 01 00 02 00 03 00 FF 01 29");
    tavMsgExt ext;
    ext.serverTime = 4294967296ll;
    ext.traceId = tavString("t");
    EXPECT_EQ(hex(ext.encode(true)), "FF 01 28 01 01 05 00 00 00 00 01 02 00 03 F1 01 74 FF 01 29");
    tavMsgExt read;
    read.clientTime = 9;
    read.decode(ext.encode(false));
    EXPECT_EQ(*read.serverTime, 4294967296ll);
    EXPECT_EQ(*read.clientTime, 9);
    EXPECT_TRUE(*read.traceId == "t");
}

TEST(ObjectMsgExt, MemberWithoutDataSetsTheOptionalAndLeavesItsValue) {
    tavMsgExt ext;
    *ext.clientTime = 9;
    *ext.traceId = "t";
    ext.decode(unhex("FF 01 28 01 01 00 02 01 00 03 F1 00 FF 01 29"));
    EXPECT_TRUE(ext.serverTime.has_value());
    EXPECT_EQ(*ext.serverTime, 0);
    EXPECT_TRUE(ext.clientTime.has_value());
    EXPECT_EQ(*ext.clientTime, 9);
    EXPECT_TRUE(ext.traceId.has_value());
    EXPECT_TRUE(*ext.traceId == "t");
}

TEST(ObjectMsgExt, FieldNamesAreFixed) {
    tavCollectMetaStream s;
    tavMsgExt ext;
    ext.io(s);
    ASSERT_EQ(s.fields().size(), 3u);
    EXPECT_EQ(s.fields()[0].name, "serverTime");
    EXPECT_EQ(s.fields()[1].name, "clientTime");
    EXPECT_EQ(s.fields()[2].name, "traceId");
    for (int i = 0; i < 3; ++i) {
        EXPECT_EQ(s.fields()[static_cast<std::size_t>(i)].id, i + 1);
        EXPECT_FALSE(s.fields()[static_cast<std::size_t>(i)].meta.isOptional());
    }
}

TEST(ObjectMsgExt, CopiesByValueAndFromItsOwnClassOnly) {
    tavMsgExt ext;
    ext.traceId = tavString("t");
    tavMsgExt const copy = ext;
    EXPECT_TRUE(*copy.traceId == "t");
    tavMsgExt assigned;
    assigned.assignFrom(ext);
    EXPECT_TRUE(*assigned.traceId == "t");
    assigned.assignFrom(Fieldless());
    EXPECT_TRUE(*assigned.traceId == "t");
}

TEST(ObjectMessage, HasASequenceAndAnExtensionBlock) {
    Note note;
    EXPECT_EQ(note.sno, 0u);
    EXPECT_TRUE(note.ext.empty());
    EXPECT_EQ(note.msgcode(), 77);
    note.sno = 9;
    note.ext.clientTime = 5;
    Note const copy(note);
    EXPECT_EQ(copy.sno, 9u);
    EXPECT_EQ(*copy.ext.clientTime, 5);
    Note assigned;
    assigned = note;
    EXPECT_EQ(assigned.sno, 9u);
    EXPECT_EQ(*assigned.ext.clientTime, 5);
}

TEST(ObjectMessage, SequenceAndExtensionBlockAreNoFields) {
    Note note;
    note.sno = 1;
    note.ext.clientTime = 5;
    EXPECT_EQ(hex(note.encode(false)), hex(Note().encode(false)));
    EXPECT_EQ(note.dump(true, 0), Note().dump(true, 0));
}

TEST(ObjectMessage, CountsTwiceAsObjects) {
    unsigned const objects = tavObject::counts();
    unsigned const messages = tavMessage::counts();
    struct Bare : tavMessage {
        tav_istr className() const override { return "Bare"; }
        tav_istr baseName() const override { return "tavMessage"; }
        tavObject * newInstance() const override { return new Bare(); }
        void assignFrom(tavObject const &) override {}
        unsigned short msgcode() const override { return 1; }
    };
    {
        Bare const a;
        Bare const b(a);
        EXPECT_EQ(tavMessage::counts(), messages + 2);
        EXPECT_EQ(tavObject::counts(), objects + 4);
        EXPECT_TRUE(a.empty());
    }
    EXPECT_EQ(tavMessage::counts(), messages);
    EXPECT_EQ(tavObject::counts(), objects);
}
