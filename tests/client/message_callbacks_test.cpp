#include "client/message_callbacks.h"

#include "support/option_messages.h"

#include <gtest/gtest.h>

#include <memory>

using tav::tls::callback_json;
using tav::tls::callback_nbr;
using tav::tls::msg_type_callback;
using tav::tls::nbr_function;
using tav::tls::impl::message_callbacks;
using tav_test::bytes;
using tav_test::endsOnAnotherThread;
using tav_test::Seen;

namespace {

/// A function that asks the callbacks on another thread when it goes, and keeps whether that got an answer.
nbr_function askingAtItsEnd(message_callbacks & callbacks, bool & answered) {
    std::shared_ptr<void> const end(nullptr, [&callbacks, &answered](void *) {
        answered = endsOnAnotherThread([&callbacks] {
            callbacks.of_type(7);
            callbacks.old();
        });
    });
    return [end](unsigned long long, unsigned short, unsigned char const *, unsigned, tavMsgExt const &) {};
}

} // namespace

TEST(MessageCallbacks, HasNoneAtFirst) {
    message_callbacks const callbacks;
    EXPECT_EQ(callbacks.of_type(7), nullptr);
    EXPECT_EQ(callbacks.old(), nullptr);
}

TEST(MessageCallbacks, EachCodeHasItsOwn) {
    Seen seen;
    message_callbacks callbacks;
    callbacks.set_type(7, msg_type_callback(seen.json()));
    callbacks.set_type(8, msg_type_callback(seen.nbr()));
    ASSERT_TRUE(callbacks.of_type(7));
    ASSERT_TRUE(callbacks.of_type(8));
    EXPECT_EQ(callbacks.of_type(7)->type(), callback_json);
    EXPECT_EQ(callbacks.of_type(8)->type(), callback_nbr);
    EXPECT_EQ(callbacks.of_type(9), nullptr);
    EXPECT_EQ(callbacks.old(), nullptr);
}

TEST(MessageCallbacks, LastOneCountsAndTheFirstLivesOnWhereItIsUsed) {
    Seen seen;
    message_callbacks callbacks;
    callbacks.set_type(7, msg_type_callback(seen.json()));
    auto const used = callbacks.of_type(7);
    callbacks.set_type(7, msg_type_callback(seen.nbr()));
    EXPECT_EQ(callbacks.of_type(7)->type(), callback_nbr);
    EXPECT_TRUE(used->on_json(1, 7, "{}", tavMsgExt()));
    EXPECT_EQ(seen.kinds, "json ");
}

TEST(MessageCallbacks, NullFunctionForOldMessagesIsNone) {
    Seen seen;
    message_callbacks callbacks;
    callbacks.set_old(seen.nbr());
    auto const used = callbacks.old();
    ASSERT_TRUE(used);
    callbacks.set_old(nbr_function());
    EXPECT_EQ(callbacks.old(), nullptr);
    (*used)(1, 7, bytes("ab"), 2, tavMsgExt());
    EXPECT_EQ(seen.kinds, "nbr ");
}

TEST(MessageCallbacks, FunctionThatIsReplacedMayUseThemAsItGoes) {
    message_callbacks callbacks;
    bool of_type = false;
    bool old = false;
    callbacks.set_type(7, msg_type_callback(askingAtItsEnd(callbacks, of_type)));
    callbacks.set_old(askingAtItsEnd(callbacks, old));
    callbacks.set_type(7, msg_type_callback());
    EXPECT_TRUE(of_type);
    callbacks.set_old(nbr_function());
    EXPECT_TRUE(old);
}
