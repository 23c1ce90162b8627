#include "tav/vinta/vinta_tls_client.h"

#include "tav/vinta/vinta_vad.h"

#include "support/exact.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <functional>
#include <memory>
#include <ostream>
#include <sstream>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

using tav_test::ConstOp;
using tav_test::exact;
using tav_test::isCopied;
using tav_test::onlyExplicit;
using tav_test::Op;

// What programs compile against: the exact forms of the client, its options and results, and of the second
// transport.

namespace {

template <class T>
constexpr bool isNotCopied = !std::is_copy_constructible<T>::value && !std::is_copy_assignable<T>::value;
/// A value that a program makes empty and copies.
template <class T>
constexpr bool isRecord = std::is_default_constructible<T>::value && isCopied<T>;

using Text = std::string;
template <class T>
using Printed = std::ostream & (*)(std::ostream &, T);

namespace vad = tav::vad;
using Channel = std::shared_ptr<vad::channel>;
using OnData = std::function<void(Channel, tav_ostr)>;
using OnChannel = std::function<void(Channel)>;

static_assert(std::is_same<std::underlying_type_t<vad::channel_type>, unsigned char>::value &&
              std::is_convertible<vad::channel_type, int>::value && vad::channel_none == 0);
static_assert(isRecord<vad::ip_port> && std::is_nothrow_move_constructible<vad::ip_port>::value &&
              std::is_nothrow_move_assignable<vad::ip_port>::value &&
              std::is_constructible<vad::ip_port, tav_istr, unsigned short>::value);
static_assert(exact<Text vad::ip_port::*>(&vad::ip_port::host) &&
              exact<unsigned short vad::ip_port::*>(&vad::ip_port::port));
static_assert(isRecord<vad::header> && std::is_convertible<vad::channel_type, vad::header>::value &&
              std::is_constructible<vad::header, vad::channel_type, unsigned char>::value);
static_assert(exact<unsigned vad::header::*>(&vad::header::magic) &&
              exact<unsigned char vad::header::*>(&vad::header::type) &&
              exact<unsigned char vad::header::*>(&vad::header::flags) &&
              exact<unsigned vad::header::*>(&vad::header::length));
static_assert(std::is_standard_layout<vad::header>::value && sizeof(vad::header) == 12 &&
              offsetof(vad::header, magic) == 0 && offsetof(vad::header, type) == 4 &&
              offsetof(vad::header, flags) == 5 && offsetof(vad::header, length) == 8);
static_assert(std::is_base_of<tavInterface, vad::channel>::value && std::is_abstract<vad::channel>::value);
static_assert(exact<Op<vad::channel, void>>(&vad::channel::operation_1) &&
              exact<Op<vad::channel, void>>(&vad::channel::operation_10));
static_assert(std::is_default_constructible<vad::client>::value && isNotCopied<vad::client>);
static_assert(exact<void (*)()>(&vad::client::init) && exact<void (*)()>(&vad::client::fini));
static_assert(
    exact<Op<vad::client, void, tav_istr, unsigned short, unsigned short, std::function<bool(void *)>>>(
        &vad::client::open) &&
    exact<Op<vad::client, void, tav_istr>>(&vad::client::reopen) &&
    exact<Op<vad::client, void>>(&vad::client::close));
static_assert(exact<Op<vad::client, Channel, tav_istr, unsigned short, vad::channel_type, unsigned char,
                       OnData, OnChannel, OnChannel>>(&vad::client::create_channel));
static_assert(exact<Op<vad::client, std::vector<Channel>, tav_istr, unsigned short, vad::channel_type,
                       unsigned char, OnData, OnChannel, OnChannel>>(&vad::client::create_channels));

/// Overrides each of the ten, and nothing else is pure.
struct TenOperations : vad::channel {
    void operation_1() override { ++calls; }
    void operation_2() override { ++calls; }
    void operation_3() override { ++calls; }
    void operation_4() override { ++calls; }
    void operation_5() override { ++calls; }
    void operation_6() override { ++calls; }
    void operation_7() override { ++calls; }
    void operation_8() override { ++calls; }
    void operation_9() override { ++calls; }
    void operation_10() override { ++calls; }
    int calls = 0;
};
static_assert(!std::is_abstract<TenOperations>::value);

using namespace tav::tls;
using U16 = unsigned short;
using U64 = unsigned long long;
using Bytes = unsigned char const *;
using Ext = tavMsgExt const &;
using MessagePtr = tavSharedPtr<tavMessage>;
using Simple = std::function<void()>;

static_assert(std::is_same<timedout_function, std::function<void(U64, U16, bool)>>::value);
static_assert(std::is_same<error_function, std::function<void(U64, U16, int, char const *)>>::value);
static_assert(std::is_same<json_function, std::function<void(U64, U16, char const *, tavMsgExt)>>::value);
static_assert(
    std::is_same<nbr_function, std::function<void(U64, U16, Bytes, unsigned int, tavMsgExt)>>::value);
static_assert(std::is_same<obj_function, std::function<void(U64, tavMessage const &)>>::value);
static_assert(std::is_same<ptr_function, std::function<void(U64, MessagePtr)>>::value);
static_assert(std::is_same<proxy_function, std::function<int(unsigned int, char const *, U16)>>::value);

static_assert(result_pending == -3 && result_busy == -2 && result_unknown == -1 && result_ok == 0 &&
              result_error == 1 && result_timedout == 2 && result_cancelled == 3);
static_assert(callback_none == -1 && callback_json == 0 && callback_nbr == 1 && callback_obj == 2 &&
              callback_ptr == 3);
static_assert(std::is_convertible<result_type, int>::value && std::is_convertible<callback_type, int>::value);
static_assert(exact<void (*)(error_function const &, U64, U16, int, Text)>(&on_error_call));
static_assert(exact<Printed<result_type>>(&tav::tls::operator<<) &&
              exact<Printed<ip_port const &>>(&tav::tls::operator<<) &&
              exact<Printed<msginfo const &>>(&tav::tls::operator<<) &&
              exact<Printed<timedout_option const &>>(&tav::tls::operator<<) &&
              exact<Printed<message_callback const &>>(&tav::tls::operator<<) &&
              exact<Printed<connect_option const &>>(&tav::tls::operator<<) &&
              exact<Printed<send_option const &>>(&tav::tls::operator<<) &&
              exact<Printed<send_info const &>>(&tav::tls::operator<<));

static_assert(isRecord<ip_port> && std::is_constructible<ip_port, Text, Text>::value &&
              std::is_constructible<ip_port, Text, U16>::value);
static_assert(exact<ConstOp<ip_port, bool>>(&ip_port::empty) && exact<Text ip_port::*>(&ip_port::host) &&
              exact<Text ip_port::*>(&ip_port::port));
static_assert(isRecord<msginfo> && std::is_constructible<msginfo, U64, U16, int>::value);
static_assert(exact<ConstOp<msginfo, bool>>(&msginfo::empty) && exact<U64 msginfo::*>(&msginfo::sno) &&
              exact<U16 msginfo::*>(&msginfo::msgcode) && exact<int msginfo::*>(&msginfo::size));

using Timed = timedout_option;
static_assert(isRecord<Timed> && onlyExplicit<Timed, int> &&
              std::is_constructible<Timed, int, timedout_function>::value);
static_assert(exact<ConstOp<Timed, int>>(&Timed::wait_ms) && exact<Op<Timed, void, int>>(&Timed::wait_ms) &&
              exact<ConstOp<Timed, bool>>(&Timed::empty));
static_assert(exact<Op<Timed, void, timedout_function>>(&Timed::set_on_timedout) &&
              exact<ConstOp<Timed, void, Timed &>>(&Timed::get) && exact<Op<Timed, void>>(&Timed::clear));
static_assert(exact<Op<Timed, void, U64, U16, bool>>(&Timed::on_timedout) &&
              exact<Op<Timed, bool, U64, U16, int>>(&Timed::check_timedout));

using Callback = message_callback;
static_assert(isRecord<Callback> && std::is_convertible<json_function, Callback>::value &&
              std::is_convertible<nbr_function, Callback>::value &&
              std::is_convertible<obj_function, Callback>::value &&
              std::is_convertible<ptr_function, Callback>::value);
static_assert(exact<ConstOp<Callback, callback_type>>(&Callback::type) &&
              exact<ConstOp<Callback, bool>>(&Callback::empty) &&
              exact<Op<Callback, void>>(&Callback::clear) &&
              exact<ConstOp<Callback, void, Callback &>>(&Callback::get));
static_assert(
    exact<Op<Callback, bool, char const *, U64, U16, char const *, Ext>>(&Callback::on_json_msg) &&
    exact<Op<Callback, bool, char const *, U64, U16, Bytes, unsigned int, Ext>>(&Callback::on_nbr_msg) &&
    exact<Op<Callback, bool, char const *, U64, tavMessage const &>>(&Callback::on_base_msg) &&
    exact<Op<Callback, bool, char const *, U64, MessagePtr>>(&Callback::on_ptr_msg));

using OfType = msg_type_callback;
static_assert(std::is_base_of<Callback, OfType>::value && isRecord<OfType> &&
              std::is_convertible<json_function, OfType>::value &&
              std::is_convertible<nbr_function, OfType>::value &&
              std::is_convertible<obj_function, OfType>::value &&
              std::is_convertible<ptr_function, OfType>::value);
static_assert(exact<Op<OfType, bool, U64, U16, char const *, Ext>>(&OfType::on_json) &&
              exact<Op<OfType, bool, U64, U16, Bytes, unsigned int, Ext>>(&OfType::on_nbr) &&
              exact<Op<OfType, bool, U64, tavMessage const &>>(&OfType::on_base) &&
              exact<Op<OfType, bool, U64, MessagePtr>>(&OfType::on_ptr));

/// What global_callback and connect_option share.
template <class C>
constexpr bool hasHandlers =
    exact<error_function C::*>(&C::on_error_) && exact<Simple C::*>(&C::on_heartbeat_timedout_) &&
    exact<Simple C::*>(&C::on_open_) && exact<proxy_function C::*>(&C::on_http_proxy_connect_) &&
    exact<Text C::*>(&C::reserved_) && exact<Op<C, void, error_function>>(&C::set_on_error) &&
    exact<Op<C, void, Simple>>(&C::set_on_heartbeat_timedout) &&
    exact<Op<C, void, Simple>>(&C::set_on_open) &&
    exact<Op<C, void, proxy_function>>(&C::set_on_http_proxy_connect) &&
    exact<Op<C, void, json_function>>(&C::set_json_msg_callback) &&
    exact<Op<C, void, nbr_function>>(&C::set_nbr_msg_callback) &&
    exact<Op<C, void, ptr_function>>(&C::set_ptr_msg_callback) && exact<Op<C, bool>>(&C::on_open) &&
    exact<Op<C, bool>>(&C::on_heartbeat_timedout) && exact<Op<C, bool, U64, U16, int, Text>>(&C::on_error) &&
    exact<Op<C, int, unsigned int, char const *, U16>>(&C::on_http_proxy_connect) &&
    exact<Op<C, bool, U64, U16, char const *, Ext>>(&C::on_json_msg) &&
    exact<Op<C, bool, U64, U16, Bytes, unsigned int, Ext>>(&C::on_nbr_msg) &&
    exact<Op<C, bool, U64, MessagePtr>>(&C::on_ptr_msg);

using Global = global_callback;
static_assert(std::is_base_of<Callback, Global>::value && isRecord<Global> && hasHandlers<Global>);
static_assert(exact<Text Global::*>(&Global::proxy_host_) && exact<Text Global::*>(&Global::proxy_port_) &&
              exact<Text Global::*>(&Global::server_name_));
static_assert(exact<Op<Global, void, obj_function>>(&Global::set_base_msg_callback) &&
              exact<Op<Global, bool, U64, tavMessage const &>>(&Global::on_base_msg));

using Connect = connect_option;
static_assert(isRecord<Connect> && hasHandlers<Connect>);
static_assert(exact<Text Connect::*>(&Connect::host) && exact<Text Connect::*>(&Connect::port) &&
              exact<Text Connect::*>(&Connect::ca) && exact<Text Connect::*>(&Connect::metainfo) &&
              exact<Text Connect::*>(&Connect::cipher) && exact<Text Connect::*>(&Connect::proxy_host) &&
              exact<Text Connect::*>(&Connect::proxy_port) && exact<Text Connect::*>(&Connect::server_name));
static_assert(exact<Callback Connect::*>(&Connect::callback_) && exact<Timed Connect::*>(&Connect::timedout));
static_assert(exact<Op<Connect, void, obj_function>>(&Connect::set_obj_msg_callback) &&
              exact<Op<Connect, bool, U64, tavMessage const &>>(&Connect::on_obj_msg));
static_assert(exact<ConstOp<Connect, Text const &>>(&Connect::connect_host) &&
              exact<ConstOp<Connect, Text const &>>(&Connect::connect_port) &&
              exact<ConstOp<Connect, Text>>(&Connect::cipher_list) &&
              exact<ConstOp<Connect, bool>>(&Connect::empty));

using Send = send_option;
template <class F>
constexpr bool sendsFor =
    std::is_constructible<Send, int, timedout_function, error_function, F, U16, bool, U16>::value;
static_assert(std::is_base_of<Timed, Send>::value && isRecord<Send> &&
              std::is_move_constructible<Send>::value && std::is_move_assignable<Send>::value);
static_assert(exact<Op<Send, Send &, Send const &>>(&Send::operator=) &&
              exact<Op<Send, Send &, Send &&>>(&Send::operator=));
static_assert(sendsFor<obj_function> && sendsFor<json_function> && sendsFor<nbr_function> &&
              sendsFor<ptr_function>);
static_assert(
    std::is_constructible<Send, int, timedout_function, bool, U16>::value &&
    std::is_constructible<Send, Timed const &, error_function, Callback const &, U16, bool, U16>::value &&
    std::is_constructible<Send, Timed const &, bool, U16>::value);
static_assert(exact<error_function Send::*>(&Send::on_error_) && exact<Callback Send::*>(&Send::callback_) &&
              exact<U16 Send::*>(&Send::ack) && exact<bool Send::*>(&Send::grey) &&
              exact<U16 Send::*>(&Send::version) && exact<U64 Send::*>(&Send::sno) &&
              exact<tavMsgExt Send::*>(&Send::ext));
static_assert(exact<ConstOp<Send, bool>>(&Send::empty) && exact<Op<Send, void>>(&Send::clear));
static_assert(exact<Op<Send, void, json_function>>(&Send::set_json_ack_callback) &&
              exact<Op<Send, void, nbr_function>>(&Send::set_nbr_ack_callback) &&
              exact<Op<Send, void, obj_function>>(&Send::set_base_ack_callback) &&
              exact<Op<Send, void, ptr_function>>(&Send::set_ptr_ack_callback));
static_assert(exact<Op<Send, bool, U64, U16, char const *, Ext>>(&Send::on_json_ack) &&
              exact<Op<Send, bool, U64, U16, Bytes, unsigned int, Ext>>(&Send::on_nbr_ack) &&
              exact<Op<Send, bool, U64, tavMessage const &>>(&Send::on_base_ack) &&
              exact<Op<Send, bool, U64, MessagePtr>>(&Send::on_ptr_ack) &&
              exact<Op<Send, bool, U64, U16, int, Text>>(&Send::on_error));

static_assert(std::is_abstract<future_obj>::value && std::has_virtual_destructor<future_obj>::value);
static_assert(exact<Op<future_obj, void>>(&future_obj::cancel) &&
              exact<Op<future_obj, result_type>>(&future_obj::wait) &&
              exact<ConstOp<future_obj, result_type>>(&future_obj::result) &&
              exact<ConstOp<future_obj, void>>(&future_obj::lock) &&
              exact<ConstOp<future_obj, void>>(&future_obj::unlock));
static_assert(std::is_base_of<future_obj, connect_info>::value &&
              std::is_base_of<future_obj, send_info>::value && std::is_abstract<connect_info>::value &&
              std::is_abstract<send_info>::value);
static_assert(exact<ConstOp<send_info, U64>>(&send_info::sno) &&
              exact<ConstOp<send_info, U16>>(&send_info::msgcode) &&
              exact<ConstOp<send_info, Send>>(&send_info::option));

/// Results that a program makes itself: nothing else is pure.
struct OwnConnect : connect_info {
    void cancel() override {}
    result_type wait() override { return result_ok; }
    result_type result() const override { return result_ok; }
};
struct OwnSend : send_info {
    void cancel() override {}
    result_type wait() override { return result_ok; }
    result_type result() const override { return result_ok; }
    unsigned long long sno() const override { return 7; }
    unsigned short msgcode() const override { return 0x1f01; }
    send_option option() const override { return send_option(); }
};
static_assert(!std::is_abstract<OwnConnect>::value && !std::is_abstract<OwnSend>::value);

using Connected = std::shared_ptr<connect_info>;
using Sent = std::shared_ptr<send_info>;
using Creator = std::function<tavObject *()>;
using Chars = char const *;

static_assert(std::is_base_of<tavCodecInterface, client>::value && !std::is_abstract<client>::value &&
              isNotCopied<client> && onlyExplicit<client, tav_istr> &&
              !std::is_default_constructible<client>::value);
static_assert(exact<client & (*)(tav_istr)>(&client::instance) &&
              exact<bool (*)(tav_istr)>(&client::destroy) && exact<void (*)()>(&client::finalize));
static_assert(exact<ConstOp<client, Text>>(&client::id) &&
              exact<Op<client, void, tavCodecStream &>>(&client::io));
static_assert(
    exact<Op<client, Connected, Connect const &, bool>>(&client::start) &&
    exact<Op<client, Connected, Chars, Chars, Chars, Chars, Global const &, Timed const &, Chars, bool>>(
        &client::start) &&
    exact<Op<client, Connected, Timed const &, bool>>(&client::reconnect));
static_assert(exact<Op<client, void>>(&client::close) && exact<Op<client, void>>(&client::cancel_all) &&
              exact<ConstOp<client, bool>>(&client::connected) &&
              exact<Op<client, void, bool>>(&client::should_check_heartbeat) &&
              exact<Op<client, ip_port>>(&client::get_local_addr) &&
              exact<Op<client, ip_port>>(&client::get_remote_addr));
static_assert(
    exact<Op<client, Sent, tavMessage const &, Send const &>>(&client::send_msg) &&
    exact<Op<client, Sent, MessagePtr, Send const &>>(&client::send_msg) &&
    exact<Op<client, Sent, Chars, Send const &, Chars>>(&client::send_json_msg) &&
    exact<Op<client, Sent, U16, Bytes, unsigned int, Send const &, tav_istr>>(&client::send_nbr_msg) &&
    exact<Op<client, Sent, unsigned char, tav_istr, tav_istr>>(&client::send_old_nbr_msg));
static_assert(
    exact<Op<client, result_type, tavMessage const &, tavMessage &, int, bool, U16>>(
        &client::send_and_wait) &&
    exact<Op<client, result_type, tavMessage const &, MessagePtr, int, bool, U16>>(&client::send_and_wait) &&
    exact<Op<client, result_type, Sent *, tavMessage const &, tavMessage &, int, bool, U16>>(
        &client::send_and_wait));
static_assert(exact<Op<client, void, U16, obj_function>>(&client::on_msg) &&
              exact<Op<client, void, U16, ptr_function>>(&client::on_msg) &&
              exact<Op<client, void, U16, json_function>>(&client::on_json_msg) &&
              exact<Op<client, void, Chars, json_function>>(&client::on_json_msg) &&
              exact<Op<client, void, U16, nbr_function>>(&client::on_nbr_msg) &&
              exact<Op<client, void, nbr_function>>(&client::set_old_msg_default_callback));
static_assert(exact<Op<client, void, tav_istr, Creator>>(&client::register_class) &&
              exact<Op<client, void, tav_istr>>(&client::unregister_class) &&
              exact<Op<client, void, U16, Creator>>(&client::register_message) &&
              exact<Op<client, void, U16>>(&client::unregister_message));
static_assert(exact<Op<client, MessagePtr, U16>>(&client::createMessage) &&
              exact<Op<client, MessagePtr, tav_istr>>(&client::createMessage) &&
              exact<Op<client, tavSharedPtr<tavObject>, tav_istr>>(&client::createObject));
static_assert(exact<Op<client, tavString, U16>>(&client::find_class_by_code) &&
              exact<ConstOp<client, U16, Chars>>(&client::find_code_by_class) &&
              exact<Op<client, U16>>(&client::get_next_sno));

class Note : public tavMessage {
public:
    unsigned short msgcode() const override { return 0x1f01; }
    tav_istr className() const override { return "Note"; }
    tav_istr baseName() const override { return "tavMessage"; }
    tavObject * newInstance() const override { return new Note; }
    void assignFrom(tavObject const & other) override { *this = dynamic_cast<Note const &>(other); }
};

/// Each call of the client with all and with the fewest arguments; compiled, never called.
[[maybe_unused]] void callEach(client & c, Note & note, Send const & option,
                               std::shared_ptr<send_info> & info) {
    c.start(Connect());
    c.start(Connect(), true);
    c.start("host", "443", nullptr, nullptr, Global(), Timed(100));
    c.start("host", "443", "ca", "meta", Global(), Timed(100), "cipher", true);
    c.reconnect(Timed(100));
    c.reconnect(Timed(100), true);
    info = c.send_msg(note, option);
    info = c.send_msg(tavSharedPtr<tavMessage>(new Note), option);
    info = c.send_msg(MessagePtr(new Note), Send(Timed(100), false, 4));
    info = c.send_json_msg("{}", option, "im.Note");
    unsigned char const body[] = {1};
    info = c.send_nbr_msg(0x1f01, body, sizeof(body), option);
    info = c.send_nbr_msg(0x1f01, body, 1, option, "target");
    info = c.send_old_nbr_msg(0x90, "body");
    info = c.send_old_nbr_msg(0x90, Text("body"), "target");
    Note ack;
    result_type result = c.send_and_wait(note, ack, 100);
    result = c.send_and_wait(note, ack, 100, true, 4);
    result = c.send_and_wait(note, tavSharedPtr<tavMessage>(&ack, false), 100);
    result = c.send_and_wait(&info, note, ack, 100);
    static_cast<void>(result);
    c.on_msg(0x1f01, [](U64, tavMessage const &) {});
    c.on_msg(0x1f01, [](U64, tavSharedPtr<tavMessage>) {});
    c.on_json_msg(0x1f01, [](U64, U16, char const *, tavMsgExt const &) {});
    c.on_json_msg("im.Note", [](U64, U16, char const *, tavMsgExt) {});
    c.on_nbr_msg(0x1f01, [](U64, U16, unsigned char const *, unsigned, tavMsgExt const &) {});
    c.set_old_msg_default_callback([](U64, U16, unsigned char const *, unsigned, tavMsgExt const &) {});
}

TEST(InterfaceClientVadInterface, TheLastFunctionsMayBeLeftOut) {
    vad::client::init();
    vad::client client;
    client.open("host", 1, 2, [](void *) { return true; });
    client.open("host", 1, 2, nullptr);
    client.reopen(Text("host"));
    Channel const none = client.create_channel(
        "host", 1, vad::channel_none, 0, [](Channel, tav_ostr) {}, [](Channel) {});
    EXPECT_FALSE(none);
    EXPECT_TRUE(client.create_channels("host", 1, static_cast<vad::channel_type>(3), 0).empty());
    client.close();
    vad::client::fini();
    TenOperations own;
    vad::channel & base = own;
    base.operation_1();
    base.operation_10();
    EXPECT_EQ(own.calls, 2);
    vad::header const header = static_cast<vad::channel_type>(3);
    EXPECT_EQ(header.type, 3);
    EXPECT_EQ(vad::ip_port("host", 80).port, 80);
}

TEST(InterfaceClientOptionsInterface, TakeWhatCanBeCalled) {
    int calls = 0;
    Timed const timed(100, [&calls](U64, U16, bool) { ++calls; });
    Send send(
        timed, [&calls](U64, U16, int, char const *) { ++calls; },
        Callback([&calls](U64, U16, char const *, tavMsgExt const &) { ++calls; }), 0x1f02, false, 4);
    EXPECT_EQ(send.callback_.type(), callback_json);
    EXPECT_TRUE(send.on_json_ack(1, 0x1f02, "{}", tavMsgExt()));
    send.on_error(1, 0x1f01, 5, "text");
    send.on_timedout(1, 0x1f01, true);
    EXPECT_EQ(calls, 3);

    Send const plain(
        100, [](U64, U16, bool) {}, true, 3);
    EXPECT_TRUE(plain.grey);
    Send const object(
        100, nullptr, nullptr, [](U64, tavMessage const &) {}, 1, false, 4);
    EXPECT_EQ(object.callback_.type(), callback_obj);
    Send const shared(
        100, nullptr, nullptr, [](U64, MessagePtr) {}, 1, false, 4);
    EXPECT_EQ(shared.callback_.type(), callback_ptr);
    Send const bytes(
        100, nullptr, nullptr, [](U64, U16, Bytes, unsigned, tavMsgExt) {}, 1, false, 4);
    EXPECT_EQ(bytes.callback_.type(), callback_nbr);

    Callback callback([](U64, MessagePtr) {});
    EXPECT_EQ(callback.type(), callback_ptr);
    callback = json_function([](U64, U16, char const *, tavMsgExt) {});
    EXPECT_EQ(callback.type(), callback_json);
    OfType const ofType([](U64, tavMessage const &) {});
    EXPECT_EQ(ofType.type(), callback_obj);

    Connect connect;
    connect.set_on_open([&calls] { ++calls; });
    connect.set_obj_msg_callback([&calls](U64, tavMessage const &) { ++calls; });
    connect.set_on_http_proxy_connect([](unsigned, char const *, U16) { return 0; });
    Connect copy;
    copy = connect;
    EXPECT_TRUE(copy.on_open());
    EXPECT_TRUE(copy.on_obj_msg(1, Note()));
    EXPECT_EQ(calls, 5);
}

TEST(InterfaceClientOptionsInterface, ResultsAreLockedAndPrintedThroughTheirBase) {
    OwnSend own;
    future_obj & result = own;
    result.lock();
    EXPECT_EQ(result.result(), result_ok);
    result.unlock();
    send_info const & info = own;
    std::ostringstream out;
    out << info << ip_port("host", 80) << msginfo(7, 0x1f01, 3) << result.wait();
    EXPECT_NE(out.str().find("1f01"), std::string::npos);
    EXPECT_EQ(OwnConnect().wait(), result_ok);
    EXPECT_EQ(ip_port("host", "80").port, ip_port("host", 80).port);
}

TEST(InterfaceClient, ClassesAreRegisteredByCreatorsOfAnyMessage) {
    client c("interface.client");
    c.register_class("Note", [] { return new Note; });
    c.register_message(0x1f01, [] { return new Note; });
    EXPECT_TRUE(c.createObject("Note")->classEqual(*c.createMessage(0x1f01)));
    EXPECT_EQ(c.createMessage("Note")->msgcode(), 0x1f01);
    EXPECT_EQ(c.createMessage(tavString("Note"))->className(), "Note");
    EXPECT_EQ(c.find_code_by_class("none"), c.find_code_by_class(nullptr));
    EXPECT_FALSE(c.connected());
}

} // namespace
