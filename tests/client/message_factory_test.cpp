#include "client/message_factory.h"

#include "support/option_messages.h"

#include <gtest/gtest.h>

#include <memory>

using tav::tls::impl::decimal_code;
using tav::tls::impl::message_factory;
using tav_test::endsOnAnotherThread;
using tav_test::Note;

namespace {

constexpr unsigned short note_code = 0x1234;

/// An object that is no message.
class Plain : public tavObject {
public:
    tav_istr className() const override { return "Plain"; }
    tav_istr baseName() const override { return "tavObject"; }
    tavObject * newInstance() const override { return new Plain; }
    void assignFrom(tavObject const &) override {}

protected:
    void traverse(tavCodecStream &) override {}
};

tavObject * makeNote() {
    return new Note;
}

tavObject * makePlain() {
    return new Plain;
}

/// A function that asks the factory on another thread when it goes, and keeps whether that got an answer.
message_factory::creator askingAtItsEnd(message_factory & factory, bool & answered) {
    std::shared_ptr<void> const end(nullptr, [&factory, &answered](void *) {
        answered = endsOnAnotherThread([&factory] {
            factory.create_message(note_code);
            factory.create_object("Note");
        });
    });
    return [end] { return makeNote(); };
}

} // namespace

TEST(MessageFactory, MakesANewObjectEachTime) {
    message_factory factory;
    factory.register_message(note_code, &makeNote);
    factory.register_class("Note", &makeNote);
    tavSharedPtr<tavMessage> const by_code = factory.create_message(note_code);
    ASSERT_TRUE(by_code);
    EXPECT_EQ(by_code->className(), "Note");
    EXPECT_NE(factory.create_message(note_code).get(), by_code.get());
    tavSharedPtr<tavObject> const by_class = factory.create_object("Note");
    ASSERT_TRUE(by_class);
    EXPECT_NE(factory.create_object("Note").get(), by_class.get());
}

TEST(MessageFactory, MakesNothingOfWhatIsNotRegistered) {
    message_factory factory;
    EXPECT_FALSE(factory.create_message(note_code));
    EXPECT_FALSE(factory.create_message("4660"));
    EXPECT_FALSE(factory.create_message("Note"));
    EXPECT_FALSE(factory.create_message(""));
    EXPECT_FALSE(factory.create_object("Note"));
    factory.register_class("Note", message_factory::creator());
    factory.register_message(note_code, [] { return static_cast<tavObject *>(nullptr); });
    EXPECT_FALSE(factory.create_object("Note"));
    EXPECT_FALSE(factory.create_message(note_code));
}

TEST(MessageFactory, CodesAndClassesAreTwoRegistries) {
    message_factory factory;
    factory.register_message(note_code, &makeNote);
    EXPECT_FALSE(factory.create_message("Note"));
    EXPECT_FALSE(factory.create_object("4660"));
    factory.register_class("Note", &makeNote);
    factory.unregister_message(note_code);
    EXPECT_FALSE(factory.create_message(note_code));
    EXPECT_TRUE(factory.create_message("Note"));
    factory.unregister_class("Note");
    EXPECT_FALSE(factory.create_message("Note"));
}

TEST(MessageFactory, TextThatBeginsWithADigitIsACode) {
    message_factory factory;
    factory.register_message(note_code, &makeNote);
    factory.register_class("4660", &makePlain);
    ASSERT_TRUE(factory.create_message("4660"));
    EXPECT_EQ(factory.create_message("4660")->className(), "Note");
    EXPECT_TRUE(factory.create_message("4660th"));
    EXPECT_FALSE(factory.create_message("4661"));
    EXPECT_FALSE(factory.create_message("70196"));
}

TEST(MessageFactory, ObjectThatIsNoMessageIsMadeOnlyAsObject) {
    message_factory factory;
    factory.register_class("Plain", &makePlain);
    factory.register_message(note_code, &makePlain);
    EXPECT_TRUE(factory.create_object("Plain"));
    EXPECT_FALSE(factory.create_message("Plain"));
    EXPECT_FALSE(factory.create_message(note_code));
}

TEST(MessageFactory, LastRegistrationCounts) {
    message_factory factory;
    factory.register_class("It", &makePlain);
    factory.register_class("It", &makeNote);
    EXPECT_EQ(factory.create_object("It")->className(), "Note");
    factory.unregister_class("other");
    EXPECT_TRUE(factory.create_object("It"));
}

TEST(MessageFactory, FunctionMayUseTheFactoryAsItRuns) {
    message_factory factory;
    bool answered = false;
    factory.register_class("Note", &makeNote);
    factory.register_message(note_code, [&] {
        answered = endsOnAnotherThread([&factory] {
            factory.unregister_message(note_code);
            factory.create_object("Note");
        });
        return makeNote();
    });
    EXPECT_TRUE(factory.create_message(note_code));
    EXPECT_TRUE(answered);
    EXPECT_FALSE(factory.create_message(note_code));
}

TEST(MessageFactory, FunctionThatIsReplacedOrTakenOutMayUseTheFactoryAsItGoes) {
    message_factory factory;
    bool replaced = false;
    bool taken_out = false;
    factory.register_message(note_code, askingAtItsEnd(factory, replaced));
    factory.register_message(note_code, askingAtItsEnd(factory, taken_out));
    EXPECT_TRUE(replaced);
    factory.unregister_message(note_code);
    EXPECT_TRUE(taken_out);
    replaced = taken_out = false;
    factory.register_class("Note", askingAtItsEnd(factory, replaced));
    factory.register_class("Note", askingAtItsEnd(factory, taken_out));
    EXPECT_TRUE(replaced);
    factory.unregister_class("Note");
    EXPECT_TRUE(taken_out);
}

TEST(MessageFactory, CodeIsTheNumberAtTheFront) {
    EXPECT_EQ(decimal_code("4660"), 0x1234);
    EXPECT_EQ(decimal_code("12x"), 12);
    EXPECT_EQ(decimal_code("65535"), 0xffff);
    EXPECT_EQ(decimal_code("65536"), 0xffff);
    EXPECT_EQ(decimal_code("99999999999999999999"), 0xffff);
    EXPECT_EQ(decimal_code("x"), 0);
    EXPECT_EQ(decimal_code(""), 0);
}
