#include "tav/vinta/vinta_tls_client.h"

#include "support/client_rig.h"
#include "support/log_capture.h"
#include "support/recording_stream.h"
#include "tav/vinta/vinta_basetypes_util.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <set>
#include <type_traits>

using namespace tav_test;
using tls::client;

namespace {

/// Opens the way to private members.
void endClient(client & c);
void initClient(client & c, tav_istr name);
template <auto End, auto Init>
struct Opened {
    friend void endClient(client & c) { (c.*End)(); }
    friend void initClient(client & c, tav_istr name) { (c.*Init)(name); }
};
template struct Opened<&client::fini, &client::init>;

/// A creator of something that is no message.
class Plain : public tavObject {
public:
    int number = 3;
    tav_istr className() const override { return "Plain"; }
    tav_istr baseName() const override { return "tavObject"; }
    tavObject * newInstance() const override { return new Plain; }
    void assignFrom(tavObject const & other) override { number = dynamic_cast<Plain const &>(other).number; }

protected:
    void traverse(tavCodecStream & s) override { ioField(s, 1, "number", number); }
};

tls::send_option tracked(int wait_ms, unsigned short ack = 0xffff) {
    return tls::send_option(tls::timedout_option(wait_ms), tls::error_function(), tls::message_callback(),
                            ack, false, 4);
}

/// A client without a core, and all lines of the log since it lost it.
struct EndedClient {
    EndedClient() {
        endClient(c);
        log.clear();
    }
    /// Whether the call since the last question has told of the core, and of nothing else.
    bool told() {
        ++calls;
        return log.count("<ASSERT FAILURE> impl_ != nullptr\n") == calls && log.records().size() == calls;
    }

    LogCapture log;
    client c{"a"};
    unsigned calls = 0;
};

} // namespace

static_assert(std::is_base_of<tavCodecInterface, client>::value, "a client can be described by a stream");
static_assert(!std::is_copy_constructible<client>::value && !std::is_copy_assignable<client>::value,
              "a client is one connection");

TEST(ClientInterfaceLife, InstanceIsMadeOnceAndLogged) {
    LogCapture log;
    client & one = client::instance("life.once");
    EXPECT_EQ(log.count("<life.once> client instance creating...\n"), 1u);
    EXPECT_EQ(&client::instance("life.once"), &one);
    EXPECT_EQ(log.count("<life.once> client instance creating...\n"), 1u);
    EXPECT_NE(&client::instance("life.other"), &one);
    EXPECT_TRUE(client::destroy("life.once"));
    EXPECT_TRUE(client::destroy("life.other"));
}

TEST(ClientInterfaceLife, DestroyEndsTheClientAndTheNextInstanceIsANewOne) {
    LogCapture log;
    client & first = client::instance("life.again");
    first.register_class("Plain", [] { return new Plain; });
    ASSERT_TRUE(first.createObject("Plain"));
    EXPECT_TRUE(client::destroy("life.again"));
    EXPECT_TRUE(log.inOrder({"<life.again> client destruct\n", "<life.again> finalizing...\n",
                             "<life.again> Client fini\n", "<life.again> client instance destroyed.\n"}));
    EXPECT_FALSE(client::instance("life.again").createObject("Plain"));
    EXPECT_EQ(log.count("<life.again> client instance creating...\n"), 2u);
    EXPECT_TRUE(client::destroy("life.again"));
}

TEST(ClientInterfaceLife, DestroyOfAnUnknownNameIsFalseAndSilent) {
    LogCapture log;
    EXPECT_FALSE(client::destroy("life.nobody"));
    EXPECT_TRUE(log.records().empty());
}

TEST(ClientInterfaceLife, ConstructionAndDestructionLogInOrder) {
    LogCapture log;
    {
        client const c("a");
        ASSERT_TRUE(log.waitFor("<a> io context loop begin...\n"));
    }
    EXPECT_TRUE(
        log.inOrder({"<a> client construct\n", "<a> initializing...\n", "<a> Client init\n",
                     "<a> io context open\n", "<a> io context loop begin...\n", "<a> client destruct\n",
                     "<a> finalizing...\n", "<a> Client fini\n", "<a> close...\n"}));
    EXPECT_TRUE(
        log.inOrder({"<a> stop io context\n", "<a> io context loop end.\n", "<a> io context close\n"}));
    EXPECT_EQ(log.count("<a> io context loop end.\n"), 1u);
    EXPECT_EQ(log.find("<a> Client init").level, tavLogger::INFO);
    EXPECT_EQ(log.find(" io context loop begin...").level, tavLogger::INFO);
}

TEST(ClientInterfaceLife, SecondInitAndSecondFiniOnlyLog) {
    LogCapture log;
    client c("a");
    initClient(c, "b");
    EXPECT_EQ(log.count("<a> initialized already.\n"), 1u);
    EXPECT_EQ(log.count(" Client init\n"), 1u);
    EXPECT_EQ(c.id(), "<a>");
    endClient(c);
    EXPECT_EQ(log.count("<a> finalizing...\n"), 1u);
    endClient(c);
    EXPECT_EQ(log.count("<a> finalized already.\n"), 1u);
    EXPECT_EQ(log.count("<a> finalizing...\n"), 1u);
}

TEST(ClientInterfaceLife, AnEndedClientCanBeInitialisedAgain) {
    LogCapture log;
    client c("a");
    endClient(c);
    initClient(c, "b");
    EXPECT_EQ(c.id(), "<b>");
    EXPECT_FALSE(c.connected());
    EXPECT_TRUE(log.contains("<b> connected = 0\n"));
}

TEST(ClientInterfaceLife, HundredClientsLeaveNoThreadAndNoDescriptor) {
    LogCapture log("clear(NONE)");
    { client const warm("warm"); }
    Holdings const before;
    for (int i = 0; i < 100; ++i) {
        client const c("n");
    }
    EXPECT_TRUE(before.back()) << before.print();
}

TEST(ClientInterfaceId, StandsInPointedBrackets) {
    LogCapture log;
    client const c("name");
    EXPECT_EQ(c.id(), "<name>");
}

TEST(ClientInterfaceId, AnonymousClientsHaveNumbersOfTheirOwn) {
    LogCapture log;
    client const a("");
    client const b("");
    std::set<std::string> ids;
    for (client const * c : {&a, &b}) {
        std::string const id = c->id();
        ASSERT_GE(id.size(), 3u);
        EXPECT_EQ(id.front(), '<');
        EXPECT_EQ(id.back(), '>');
        std::string const number = id.substr(1, id.size() - 2);
        EXPECT_EQ(number.find_first_not_of("0123456789"), std::string::npos) << id;
        EXPECT_LE(std::stoul(number), 0xffffu);
        ids.insert(id);
    }
    EXPECT_EQ(ids.size(), 2u);
    EXPECT_TRUE(log.contains("<> client construct\n"));
    EXPECT_TRUE(log.contains(a.id() + " Client init\n"));
}

TEST(ClientInterfaceId, WithoutACoreItIsTheNameGiven) {
    LogCapture log;
    client c("");
    endClient(c);
    EXPECT_EQ(c.id(), "<>");
}

TEST(ClientInterfaceIo, DescribesItselfAsAClassWithItsMetaModel) {
    LogCapture log;
    ClientRig rig("a");
    RecordingStream::Calls before;
    RecordingStream first(before, RecordingStream::Options());
    rig.client.io(first);
    ASSERT_GE(before.size(), 4u);
    EXPECT_EQ(before.front(), "enter 'client' ''");
    EXPECT_NE(std::find(before.begin(), before.end(), "child 1:metainfo"), before.end());
    EXPECT_NE(std::find(before.begin(), before.end(), "/1:metainfo enter 'metainfo' ''"), before.end());
    EXPECT_EQ(before.back(), "leave");

    // A start without a template changes nothing in it.
    rig.connect();
    RecordingStream::Calls after;
    RecordingStream second(after, RecordingStream::Options());
    rig.client.io(second);
    EXPECT_EQ(after, before);
}

TEST(ClientInterfaceNull, ConnectionMembersLogTheFailedAssertionAndReturnTheirNullValues) {
    EndedClient ended;
    tls::connect_option option;
    option.host = "127.0.0.1";
    option.port = "1";
    EXPECT_FALSE(ended.c.start(option));
    EXPECT_TRUE(ended.told());
    EXPECT_FALSE(ended.c.start("127.0.0.1", "1", "", "", tls::global_callback(), tls::timedout_option()));
    EXPECT_TRUE(ended.told());
    EXPECT_FALSE(ended.c.reconnect(tls::timedout_option()));
    EXPECT_TRUE(ended.told());
    ended.c.close();
    EXPECT_TRUE(ended.told());
    ended.c.cancel_all();
    EXPECT_TRUE(ended.told());
    EXPECT_FALSE(ended.c.connected());
    EXPECT_TRUE(ended.told());
    ended.c.should_check_heartbeat(true);
    EXPECT_TRUE(ended.told());
    EXPECT_TRUE(ended.c.get_local_addr().empty());
    EXPECT_TRUE(ended.told());
    EXPECT_TRUE(ended.c.get_remote_addr().empty());
    EXPECT_TRUE(ended.told());
    EXPECT_EQ(ended.c.get_next_sno(), 0);
    EXPECT_TRUE(ended.told());
    tavNullStream nothing;
    ended.c.io(nothing);
    EXPECT_TRUE(ended.told());

    LogCapture::Record const record = ended.log.find("<ASSERT FAILURE>");
    EXPECT_EQ(record.level, tavLogger::ERROR);
    EXPECT_NE(record.text.find("start"), std::string::npos) << record.text;
}

TEST(ClientInterfaceNull, SendingMembersLogTheFailedAssertionAndReturnTheirNullValues) {
    tls::send_option const sending = tracked(100);
    EndedClient ended;
    Ask ask;
    Answer answer;
    EXPECT_FALSE(ended.c.send_msg(ask, sending));
    EXPECT_TRUE(ended.told());
    EXPECT_FALSE(ended.c.send_msg(tavSharedPtr<tavMessage>(new Ask), sending));
    EXPECT_TRUE(ended.told());
    EXPECT_FALSE(ended.c.send_json_msg("{}", sending, "Class"));
    EXPECT_TRUE(ended.told());
    EXPECT_FALSE(ended.c.send_nbr_msg(0x1234, nullptr, 0, sending));
    EXPECT_TRUE(ended.told());
    EXPECT_FALSE(ended.c.send_old_nbr_msg(5, ""));
    EXPECT_TRUE(ended.told());
    EXPECT_EQ(ended.c.send_and_wait(ask, answer, 100), tls::result_error);
    EXPECT_TRUE(ended.told());
    EXPECT_EQ(ended.c.send_and_wait(ask, tavSharedPtr<tavMessage>(new Answer), 100), tls::result_error);
    EXPECT_TRUE(ended.told());
    std::shared_ptr<tls::send_info> out;
    EXPECT_EQ(ended.c.send_and_wait(&out, ask, answer, 100), tls::result_error);
    EXPECT_TRUE(ended.told());
}

TEST(ClientInterfaceNull, RegisteringMembersLogTheFailedAssertionAndReturnTheirNullValues) {
    EndedClient ended;
    ended.c.on_msg(1, tls::obj_function());
    EXPECT_TRUE(ended.told());
    ended.c.on_msg(1, tls::ptr_function());
    EXPECT_TRUE(ended.told());
    ended.c.on_json_msg(1, tls::json_function());
    EXPECT_TRUE(ended.told());
    ended.c.on_json_msg("Class", tls::json_function());
    EXPECT_TRUE(ended.told());
    ended.c.on_nbr_msg(1, tls::nbr_function());
    EXPECT_TRUE(ended.told());
    ended.c.set_old_msg_default_callback(tls::nbr_function());
    EXPECT_TRUE(ended.told());
    ended.c.register_class("Plain", [] { return new Plain; });
    EXPECT_TRUE(ended.told());
    ended.c.unregister_class("Plain");
    EXPECT_TRUE(ended.told());
    ended.c.register_message(1, &Ask::create);
    EXPECT_TRUE(ended.told());
    ended.c.unregister_message(1);
    EXPECT_TRUE(ended.told());
    EXPECT_FALSE(ended.c.createMessage(static_cast<unsigned short>(1)));
    EXPECT_TRUE(ended.told());
    EXPECT_FALSE(ended.c.createMessage("1"));
    EXPECT_TRUE(ended.told());
    EXPECT_FALSE(ended.c.createObject("Plain"));
    EXPECT_TRUE(ended.told());
    EXPECT_TRUE(ended.c.find_class_by_code(1).empty());
    EXPECT_TRUE(ended.told());
    EXPECT_EQ(ended.c.find_code_by_class("Plain"), 0);
    EXPECT_TRUE(ended.told());
}

TEST(ClientInterfaceNull, LastFailureIsThatTheClientHasEnded) {
    client c("a");
    endClient(c);
    EXPECT_FALSE(c.send_msg(Ask(1), tls::send_option()));
    EXPECT_EQ(tls::last_failure(), tls::failure::closed);
}

TEST(ClientInterfaceNull, TheFailedAssertionStandsUnderTheDefaultTag) {
    LogCapture log("clear(NONE)TAV(ERROR)");
    client c("a");
    endClient(c);
    EXPECT_FALSE(c.connected());
    EXPECT_EQ(log.count("<ASSERT FAILURE> impl_ != nullptr\n"), 1u);
}

TEST(ClientInterfaceLog, EachConnectionMemberSaysWhatItDoes) {
    LogCapture log;
    ClientRig rig("a");
    rig.connect();
    client & c = rig.client;
    std::string const address = "host=127.0.0.1 port=" + rig.peer.portText() + " ca length=0";
    EXPECT_TRUE(log.contains("<a> starting... " + address + " reuseConnected=0\n"));
    log.clear();

    tls::connect_option timed = rig.option();
    timed.timedout.wait_ms(5000);
    c.start(timed, true);
    EXPECT_TRUE(log.contains("<a> starting... " + address + " max waiting 5000ms... reuseConnected=1\n"));
    c.reconnect(tls::timedout_option(7000), true);
    EXPECT_TRUE(log.contains("<a> reconnecting... "));
    EXPECT_TRUE(log.contains(" reuseConnected=1\n"));
    EXPECT_TRUE(c.connected());
    EXPECT_TRUE(log.contains("<a> connected = 1\n"));
    c.should_check_heartbeat(true);
    EXPECT_TRUE(log.contains("<a> check comm heartbeat = 1\n"));
    c.should_check_heartbeat(false);
    EXPECT_TRUE(log.contains("<a> check comm heartbeat = 0\n"));
    c.cancel_all();
    EXPECT_TRUE(log.contains("<a> cancel all\n"));
    c.close();
    EXPECT_TRUE(log.contains("<a> closing...\n"));
}

TEST(ClientInterfaceLog, EachRegistrationSaysWhatItDoes) {
    LogCapture log;
    client c("a");
    c.on_msg(0x12ab, tls::obj_function());
    EXPECT_TRUE(log.contains("<a> setup type level obj msg callback, msgcode = 0x12AB\n"));
    c.on_msg(0x0bcd, tls::ptr_function());
    EXPECT_TRUE(log.contains("<a> setup type level ptr msg callback, msgcode = 0x0BCD\n"));
    c.on_json_msg(0x1234, tls::json_function());
    EXPECT_TRUE(log.contains("<a> setup type level json msg callback, msgcode = 0x1234\n"));
    c.on_json_msg("some.Class", tls::json_function());
    EXPECT_TRUE(log.contains("<a> setup type level json msg callback, class = some.Class\n"));
    c.on_nbr_msg(7, tls::nbr_function());
    EXPECT_TRUE(log.contains("<a> setup type level nbr msg callback, msgcode = 0x0007\n"));
    c.set_old_msg_default_callback(tls::nbr_function());
    EXPECT_TRUE(log.contains("<a> set old msg callback\n"));
    c.register_class("Plain", [] { return new Plain; });
    EXPECT_TRUE(log.contains("<a> register object class Plain\n"));
    c.createObject("Plain");
    EXPECT_TRUE(log.contains("<a> creating object class = Plain\n"));
    c.unregister_class("Plain");
    EXPECT_TRUE(log.contains("<a> unregister object class Plain\n"));
    c.register_message(0x1234, &Ask::create);
    EXPECT_TRUE(log.contains("<a> register message msgcode = 0x1234\n"));
    c.createMessage(static_cast<unsigned short>(0x1234));
    EXPECT_TRUE(log.contains("<a> creating message msgcode = 0x1234\n"));
    c.createMessage("4660");
    EXPECT_TRUE(log.contains("<a> creating message class_or_code = 4660\n"));
    c.unregister_message(0x1234);
    EXPECT_TRUE(log.contains("<a> unregister message msgcode = 0x1234\n"));
    c.find_class_by_code(0x1234);
    EXPECT_TRUE(log.contains("<a> found class "));
    EXPECT_TRUE(log.contains(" by msgcode 0x1234\n"));
    c.find_code_by_class("some.Class");
    EXPECT_TRUE(log.contains("<a> by class some.Class found msgcode 0xFFFF\n"));
}

TEST(ClientInterfaceFactory, CreatesWhatIsRegistered) {
    LogCapture log;
    client c("a");
    EXPECT_FALSE(c.createMessage(static_cast<unsigned short>(0x1234)));
    c.register_message(0x1234, &Ask::create);
    auto const made = c.createMessage(static_cast<unsigned short>(0x1234));
    ASSERT_TRUE(made);
    EXPECT_EQ(made->msgcode(), 0x1234);
    EXPECT_NE(c.createMessage(static_cast<unsigned short>(0x1234)).get(), made.get());
    c.unregister_message(0x1234);
    EXPECT_FALSE(c.createMessage(static_cast<unsigned short>(0x1234)));
    c.unregister_message(0x1234);
}

TEST(ClientInterfaceFactory, ASecondRegistrationReplacesTheFirst) {
    LogCapture log;
    client c("a");
    c.register_message(1, &Ask::create);
    c.register_message(1, &Answer::create);
    EXPECT_EQ(c.createMessage(static_cast<unsigned short>(1))->msgcode(), 0x1235);
    c.register_class("It", &Ask::create);
    c.register_class("It", [] { return new Plain; });
    EXPECT_TRUE(c.createObject("It")->classOf("Plain"));
}

TEST(ClientInterfaceFactory, ATextWithALeadingDigitIsADecimalCode) {
    LogCapture log;
    client c("a");
    c.register_message(4660, &Ask::create);
    c.register_class("4660", &Answer::create);
    ASSERT_TRUE(c.createMessage("4660"));
    EXPECT_EQ(c.createMessage("4660")->msgcode(), 0x1234);
    EXPECT_FALSE(c.createMessage("4661"));
    EXPECT_FALSE(c.createMessage("70196"));
}

TEST(ClientInterfaceFactory, AnyOtherTextIsAClass) {
    LogCapture log;
    client c("a");
    c.register_class("Ask", &Ask::create);
    c.register_class("Plain", [] { return new Plain; });
    ASSERT_TRUE(c.createMessage("Ask"));
    EXPECT_EQ(c.createMessage("Ask")->msgcode(), 0x1234);
    EXPECT_FALSE(c.createMessage("Plain"));
    EXPECT_TRUE(c.createObject("Plain"));
    EXPECT_FALSE(c.createMessage("ask"));
    EXPECT_FALSE(c.createMessage(""));
    EXPECT_FALSE(c.createObject(""));
    c.unregister_class("Ask");
    EXPECT_FALSE(c.createObject("Ask"));
}

TEST(ClientInterfaceFactory, ACreatorOfNothingOrOfNoMessageGivesNull) {
    LogCapture log;
    unsigned const before = tavObject::counts();
    {
        client c("a");
        unsigned const own = tavObject::counts();
        c.register_message(1, [] { return static_cast<tavObject *>(nullptr); });
        c.register_message(2, [] { return new Plain; });
        c.register_message(3, std::function<tavObject *()>());
        EXPECT_FALSE(c.createMessage(static_cast<unsigned short>(1)));
        EXPECT_FALSE(c.createMessage(static_cast<unsigned short>(2)));
        EXPECT_FALSE(c.createMessage(static_cast<unsigned short>(3)));
        EXPECT_EQ(tavObject::counts(), own);
    }
    EXPECT_EQ(tavObject::counts(), before);
}

TEST(ClientInterfaceMeta, WithoutATemplateNothingIsKnown) {
    LogCapture log;
    client c("a");
    EXPECT_TRUE(c.find_class_by_code(0x1234).empty());
    EXPECT_EQ(c.find_code_by_class("Ask"), 0xffff);
    EXPECT_EQ(c.find_code_by_class(nullptr), 0xffff);
}

TEST(ClientInterfaceMeta, AnUnknownClassSetsItsJsonCallbackUnderAllOnes) {
    LogCapture log;
    ClientRig rig("a");
    Events got;
    rig.client.on_json_msg("nobody.Knows",
                           [&](unsigned long long sno, unsigned short code, char const * json, tavMsgExt) {
                               got.add(textOf(sno) + " " + textOf(code) + json);
                           });
    rig.connect();
    rig.server->send(mobile(0xffff, 9).framed());
    ASSERT_TRUE(got.wait(1));
    EXPECT_EQ(got.all()[0], "9 65535null");
}

TEST(ClientInterfaceSno, NextNumbersAreConsecutiveAndSkipOneZero) {
    LogCapture log;
    client c("a");
    unsigned short last = c.get_next_sno();
    unsigned zeros = 0;
    for (unsigned i = 0; i < 0x20000; ++i) {
        unsigned short const next = c.get_next_sno();
        zeros += next == 0 ? 1u : 0u;
        unsigned short const expected = last == 0xffff ? 1 : static_cast<unsigned short>(last + 1);
        ASSERT_EQ(next, expected);
        last = next;
    }
    EXPECT_EQ(zeros, 0u);
}

TEST(ClientInterfaceStart, LongFormIsTheOptionInPieces) {
    LogCapture log;
    ClientRig rig("a");
    TempFile const ca(TlsIdentity::ecdsa().ca);
    Events & events = rig.events;
    tls::global_callback callback;
    callback.set_on_open([&] { events.add("open"); });
    callback.set_on_error(
        [&](unsigned long long, unsigned short, int, char const *) { events.add("error"); });
    callback.set_nbr_msg_callback([&](unsigned long long, unsigned short code, unsigned char const *,
                                      unsigned, tavMsgExt) { events.add("msg " + textOf(code)); });
    callback.server_name_ = "localhost";
    auto const info = rig.client.start("127.0.0.1", rig.peer.portText().c_str(), ca.path().c_str(), "",
                                       callback, tls::timedout_option(9000), "ECDHE-ECDSA-AES256-GCM-SHA384");
    rig.finish(info);
    EXPECT_EQ(rig.server->serverName(), "localhost");
    EXPECT_EQ(rig.server->cipher(), "ECDHE-ECDSA-AES256-GCM-SHA384");
    EXPECT_TRUE(log.contains("<a> Verifying "));
    rig.server->send(mobile(0x4000, 1).framed());
    ASSERT_TRUE(events.wait(2));
    EXPECT_EQ(events.all(), (std::vector<std::string>{"open", "msg 16384"}));
    EXPECT_TRUE(log.inOrder({"<a> starting... 127.0.0.1:" + rig.peer.portText() + "\n",
                             "<a> starting... host=127.0.0.1 port=" + rig.peer.portText() + " ca length=" +
                                 textOf(ca.path().size()) + " max waiting 9000ms... reuseConnected=0\n"}));
    rig.server->close();
    ASSERT_TRUE(events.wait(3));
    EXPECT_EQ(events.all()[2], "error");
}

TEST(ClientInterfaceStart, LongFormTakesTheProxyAndReuse) {
    LogCapture log;
    ClientRig rig("a");
    std::string asked;
    tls::global_callback callback;
    callback.proxy_host_ = "127.0.0.1";
    callback.proxy_port_ = rig.peer.portText();
    callback.set_on_http_proxy_connect([&](unsigned, char const * host, unsigned short port) {
        asked = std::string(host) + ":" + textOf(port);
        return 0;
    });
    rig.finish(rig.client.start("real.example", "8443", nullptr, nullptr, callback, tls::timedout_option()));
    EXPECT_EQ(asked, "real.example:8443");
    auto const again =
        rig.client.start("real.example", "8443", "", "", callback, tls::timedout_option(), nullptr, true);
    EXPECT_EQ(again->result(), tls::result_ok);
    EXPECT_TRUE(log.contains(" reuseConnected=1\n"));
    EXPECT_EQ(rig.peer.connections(), 1u);
}

TEST(ClientInterfaceStart, LongFormTakesNullTextsAsEmpty) {
    LogCapture log;
    client c("a");
    EXPECT_FALSE(c.start(nullptr, "1", nullptr, nullptr, tls::global_callback(), tls::timedout_option()));
    EXPECT_TRUE(log.contains("<a> host is empty\n"));
    EXPECT_FALSE(
        c.start("127.0.0.1", nullptr, nullptr, nullptr, tls::global_callback(), tls::timedout_option()));
    EXPECT_TRUE(log.contains("<a> port is empty\n"));
}

TEST(ClientInterfaceAddress, EmptyWithoutAConnection) {
    LogCapture log;
    client c("a");
    EXPECT_TRUE(c.get_local_addr().empty());
    EXPECT_TRUE(c.get_remote_addr().empty());
    EXPECT_EQ(log.find("<a> self addr = ***:\n").level, tavLogger::DEBUG);
    EXPECT_EQ(log.find("<a> peer addr = ***:\n").level, tavLogger::DEBUG);
}

TEST(ClientInterfaceAddress, TellsBothEnds) {
    LogCapture log;
    ClientRig rig("a");
    rig.connect();
    EXPECT_EQ(rig.client.get_remote_addr().host, "127.0.0.1");
    EXPECT_EQ(rig.client.get_remote_addr().port, rig.peer.portText());
    EXPECT_EQ(rig.client.get_local_addr().host, "127.0.0.1");
    EXPECT_NE(rig.client.get_local_addr().port, "0");
    EXPECT_TRUE(log.contains("<a> peer addr = 127.0.***:" + rig.peer.portText() + "\n"));
    EXPECT_TRUE(log.contains("<a> self addr = 127.0.***:" + rig.client.get_local_addr().port + "\n"));
}

TEST(ClientInterfaceAddress, ThrowsWhatTheSocketSaysWhenTheConnectionIsGone) {
    LogCapture log;
    ClientRig rig("a");
    rig.connect();
    rig.server->close();
    ASSERT_TRUE(rig.events.wait(2));
    try {
        rig.client.get_local_addr();
        ADD_FAILURE() << "no exception";
    } catch (std::system_error const & e) {
        EXPECT_EQ(std::string(e.what()).rfind("local_endpoint", 0), 0u) << e.what();
    }
    try {
        rig.client.get_remote_addr();
        ADD_FAILURE() << "no exception";
    } catch (std::system_error const & e) {
        EXPECT_EQ(std::string(e.what()).rfind("remote_endpoint", 0), 0u) << e.what();
    }
}

TEST(ClientInterfaceHeartbeat, WithoutAConnectionTheSwitchHasNoEffect) {
    LogCapture log;
    client c("a");
    c.should_check_heartbeat(true);
    EXPECT_TRUE(log.contains("<a> check comm heartbeat = 1\n"));
}

TEST(ClientInterfaceSurvive, WhatIsRegisteredBeforeStartServesTheConnection) {
    LogCapture log;
    ClientRig rig("a");
    Events got;
    rig.client.register_message(0x1234, &Ask::create);
    rig.client.on_msg(0x1234, tls::obj_function([&](unsigned long long, tavMessage const & msg) {
                          got.add("obj " +
                                  textOf(static_cast<unsigned>(dynamic_cast<Ask const &>(msg).number)));
                      }));
    rig.client.set_old_msg_default_callback([&](unsigned long long, unsigned short code,
                                                unsigned char const *, unsigned,
                                                tavMsgExt) { got.add("old " + textOf(code)); });
    rig.connect();
    rig.server->send(mobile(0x1234, 1, bodyOf(8)).framed() + old(5, 1).framed());
    ASSERT_TRUE(got.wait(2));
    EXPECT_EQ(got.all(), (std::vector<std::string>{"obj 8", "old 5"}));
}

TEST(ClientInterfaceFinalize, EndsTheNamedClientsAndNamesTheOthers) {
    LogCapture log;
    client::instance("fin.a");
    client::instance("fin.b");
    client mine("fin.mine");
    client::finalize();
    EXPECT_TRUE(log.inOrder({"finalizing...\n", "finalize: client <fin.a>\n", "<fin.a> closing...\n",
                             "<fin.a> finalizing...\n", "<fin.a> Client fini\n", "finalize: client <fin.b>\n",
                             "<fin.b> closing...\n", "<fin.b> finalizing...\n", "<fin.b> client destruct\n",
                             "<fin.b> finalized already.\n", "finalize: client not deleted: <fin.mine>\n"}));
    EXPECT_EQ(log.find("finalizing...\n").level, tavLogger::DEBUG);
    EXPECT_FALSE(log.contains("not deleted: <fin.a>"));
    EXPECT_TRUE(log.inOrder({"not deleted: <fin.mine>\n", "thread not closed: "}));
    EXPECT_FALSE(client::destroy("fin.a"));
    EXPECT_EQ(tavIdGenerator::globalNextSno(), 1);
}

TEST(ClientInterfaceFinalize, AClientThatTheApplicationHoldsGoesOn) {
    LogCapture log("clear(NONE)");
    ClientRig rig("held");
    rig.connect();
    client::finalize();
    EXPECT_TRUE(rig.client.connected());
    rig.client.close();
    EXPECT_TRUE(rig.server->waitClosed());
}

TEST(ClientInterfaceFinalize, ACallbackOfAnEndingClientFindsThatClient) {
    LogCapture log("clear(NONE)");
    TlsPeer peer;
    Events events;
    client & c = client::instance("fin.cb");
    auto const info = c.start(optionFor(peer.port(), events));
    auto const server = peer.accept();
    ASSERT_TRUE(server->handshake());
    ASSERT_EQ(resultOf(info), tls::result_ok);
    auto const send =
        c.send_msg(Ask(1), tls::send_option(
                               20000,
                               [&](unsigned long long, unsigned short, bool) {
                                   events.add(&client::instance("fin.cb") == &c ? "same" : "another");
                               },
                               false, 4));
    ASSERT_TRUE(send);
    server->receiveFrame();
    client::finalize();
    ASSERT_TRUE(events.wait(2));
    EXPECT_EQ(events.all()[1], "same");
    EXPECT_EQ(send->result(), tls::result_cancelled);
}

TEST(ClientInterfaceFinalize, CanBeFollowedByANewBeginning) {
    LogCapture log("clear(NONE)");
    client::instance("fin.next");
    client::finalize();
    client & again = client::instance("fin.next");
    EXPECT_EQ(again.id(), "<fin.next>");
    EXPECT_FALSE(again.connected());
    client::finalize();
}
