#include "support/pki.h"
#include "support/tool.h"
#include "tav/vinta/vinta_im_pkt.h"
#include "tools/json_messages.h"
#include "tools/web.h"

#include <gtest/gtest.h>
#include <httplib.h>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <memory>
#include <optional>
#include <string>
#include <thread>
#include <vector>

namespace {

using tav::gateway::Gateway;
using tav::gateway::Stats;
using tav::tool::Traffic;
using tav::tool::Web;
using tav::tool::WebOptions;
using tav_test::CertificateSpec;
using tav_test::Identity;
using tav_test::ToolRig;
using tav_test::ToolRun;

char const * const model = "Say:object(__class__(im.Say)__code__(2001)[1]text:string()[2]n:int32?()"
                           "[5]secret:string?({***})[6]key:bytes?({***}))\n"
                           "Said:object(__class__(im.Said)__code__(2002)[1]text:string())\n";

bool has(std::string const & text, std::string const & part) {
    return text.find(part) != std::string::npos;
}

/// A text as the first field, and another one as the secret.
std::string bodyOf(std::string const & text, std::string const & secret = std::string()) {
    auto const lengthOf = [](std::size_t n) {
        std::string bytes;
        for (; n != 0; n >>= 8) {
            bytes += static_cast<char>(n & 0xFFu);
        }
        return n = bytes.size(), static_cast<char>(0xF0 + n) + bytes;
    };
    return "\xFF\x01\x28\x01" + lengthOf(text.size()) + text +
           (secret.empty() ? "" : "\x05" + lengthOf(secret.size()) + secret) + "\xFF\x01\x29";
}

std::string frameOf(unsigned short code, std::string const & body) {
    std::string const packet = std::string("\x00\x04\x00", 3) + static_cast<char>(code >> 8) +
                               static_cast<char>(code & 0xFFu) + std::string("\x00\x00\x07", 3) +
                               std::string(8, '\0') + body;
    std::string frame;
    for (int shift = 24; shift >= 0; shift -= 8) {
        frame += static_cast<char>(packet.size() >> shift & 0xFFu);
    }
    return frame + packet;
}

/// A gateway with its page, and somebody who asks for it.
struct WebRig {
    explicit WebRig(WebOptions const & options = WebOptions()) {
        tool.file("m.pml", model);
        tool.file("ca.pem", root.pem());
        classes = tav::tool::loadTemplate(tool.path("m.pml"));
        tav::gateway::Options how;
        how.on_frame = [this](unsigned connection, bool in, std::string const & frame,
                              std::optional<unsigned short> copyOf) {
            traffic.frame(connection, in, frame, now += 100, copyOf);
        };
        how.on_connection = [this](unsigned connection, bool open, std::string const & peer) {
            traffic.connection(connection, open, peer, now);
        };
        how.on_silence = [this](unsigned connection, bool silent) { traffic.silence(connection, silent); };
        gateway = std::make_unique<Gateway>(
            how, tav::gateway::Certificates{root.pem(), server.pem(), server.keyPem()});
        gateway->start();
        web = std::make_unique<Web>(options, classes, traffic, *gateway);
        std::string const place = web->place();
        std::size_t const slash = place.find("/?token=");
        origin = place.substr(0, slash);
        token = place.substr(slash + 8);
    }
    ~WebRig() {
        web.reset();
        gateway->stop();
    }

    /// As it comes over the wire.
    httplib::Result ask(std::string const & path, std::string const & method = "GET",
                        std::string const & body = std::string(), httplib::Headers headers = {}) const {
        httplib::Client client(origin);
        client.set_read_timeout(60);
        if (headers.find("X-Tav-Token") == headers.end()) {
            headers.emplace("X-Tav-Token", token);
        }
        return method == "GET" ? client.Get(path, headers)
                               : client.Post(path, headers, body, "application/json");
    }
    std::string get(std::string const & path) const {
        httplib::Result const result = ask(path);
        EXPECT_TRUE(result) << path;
        return result ? result->body : std::string();
    }
    int status(std::string const & path, std::string const & method = "GET",
               std::string const & body = std::string()) const {
        httplib::Result const result = ask(path, method, body);
        return result ? result->status : -1;
    }
    void saw(std::string const & frame) { traffic.frame(1, true, frame, now += 100); }

    std::string place() const { return "127.0.0.1:" + std::to_string(gateway->port()); }
    bool waitFor(std::string const & path, std::string const & part) const {
        for (int i = 0; i < 500; ++i) {
            // Those who come while too many are there get no answer.
            httplib::Result const result = ask(path);
            if (result && has(result->body, part)) {
                return true;
            }
            std::this_thread::sleep_for(std::chrono::milliseconds(20));
        }
        return false;
    }

    Identity const root{CertificateSpec::ca("Test root")};
    Identity const server{CertificateSpec(), &root};
    ToolRig const tool{TAV_TOOL};
    tav::tool::Template classes;
    Traffic traffic;
    std::atomic<long long> now{1000000};
    std::unique_ptr<Gateway> gateway;
    std::unique_ptr<Web> web;
    std::string origin;
    std::string token;
};

struct Request {
    char const * method;
    char const * path;
};
Request const requests[] = {
    {"GET", "/"},           {"GET", "/api/state"},  {"GET", "/api/packet?id=1"}, {"POST", "/api/push"},
    {"POST", "/api/reset"}, {"POST", "/api/close"}, {"POST", "/api/silence"},    {"GET", "/none"},
};

TEST(ToolWeb, TokenIsDemandedAtEveryRequest) {
    WebRig rig;
    rig.saw(frameOf(0x2001, bodyOf("seen")));
    EXPECT_EQ(rig.token.size(), 32u);
    EXPECT_NE(rig.token, WebRig().token);
    for (Request const & one : requests) {
        for (std::string const & wrong :
             {std::string(), std::string("x"), std::string(32, '0'), rig.token + "0", rig.token.substr(1)}) {
            httplib::Result const result = rig.ask(one.path, one.method, "{}", {{"X-Tav-Token", wrong}});
            ASSERT_TRUE(result) << one.path;
            EXPECT_EQ(result->status, 403) << one.method << one.path << wrong;
            EXPECT_EQ(result->get_header_value("Content-Type") == "application/json", has(one.path, "/api/"));
            EXPECT_FALSE(has(result->body, "seen"));
        }
    }
    // The address has it for the page alone, so that no other site's form or picture can use one it has seen.
    httplib::Client client(rig.origin);
    client.set_read_timeout(60);
    EXPECT_EQ(client.Get("/?token=" + rig.token)->status, 200);
    EXPECT_EQ(client.Get("/?token=" + rig.token.substr(1) + "0")->status, 403);
    EXPECT_EQ(client.Get("/api/state?token=" + rig.token)->status, 403);
    EXPECT_EQ(client.Options("/api/state")->status, 403);
    EXPECT_EQ(client.Head("/?token=" + rig.token)->status, 200);
    EXPECT_EQ(client.Post("/?token=" + rig.token)->status, 404);
    // A body of which nobody knows how long it will be.
    auto const piece = [](std::size_t, httplib::DataSink & sink) {
        sink.write("{}", 2);
        sink.done();
        return true;
    };
    httplib::Result const chunked =
        client.Post("/api/push?connection=0", {{"X-Tav-Token", rig.token}}, piece, "application/json");
    ASSERT_TRUE(chunked);
    EXPECT_EQ(chunked->status, 411);
    EXPECT_TRUE(has(chunked->body, "with its length ahead")) << chunked->body;
    EXPECT_EQ(rig.status("/api/state"), 200);
}

TEST(ToolWeb, OnlyAddressesAndLocalhostMayBeAskedFor) {
    WebRig const rig;
    std::string const path = "/?token=" + rig.token;
    struct Case {
        char const * host;
        int status;
    };
    for (Case const & one :
         {Case{"localhost", 200}, Case{"localhost:80", 200}, Case{"127.0.0.1:1", 200}, Case{"[::1]:80", 200},
          Case{"evil.example", 403}, Case{"localhost.evil.example:80", 403},
          Case{"127.0.0.1.evil.example", 403}, Case{"[evil]", 403}, Case{"", 403}}) {
        httplib::Result const result = rig.ask(path, "GET", "", {{"Host", one.host}});
        ASSERT_TRUE(result) << one.host;
        EXPECT_EQ(result->status, one.status) << one.host;
    }
}

TEST(ToolWeb, ListensOnLoopbackUnlessTold) {
    WebRig const rig;
    std::string const port = rig.origin.substr(rig.origin.rfind(':'));
    EXPECT_EQ(rig.origin.substr(0, rig.origin.rfind(':')), "http://127.0.0.1");
    EXPECT_FALSE(httplib::Client("http://127.0.0.2" + port).Get("/"));
    WebOptions other;
    other.address = "127.0.0.2";
    WebRig const told(other);
    EXPECT_EQ(told.origin.substr(0, told.origin.rfind(':')), "http://127.0.0.2");
    EXPECT_EQ(told.status("/api/state"), 200);
    EXPECT_FALSE(told.web->isOnAllAddresses());
    WebOptions taken;
    taken.port = std::stoi(port.substr(1));
    EXPECT_THROW(WebRig{taken}, tav::tool::Failure);
}

// All addresses are none that a browser could ask for.
TEST(ToolWeb, OnAllAddressesItIsToldWhereThisMachineFindsIt) {
    for (char const * const all : {"0.0.0.0", "0"}) {
        WebOptions options;
        options.address = all;
        WebRig const rig(options);
        std::size_t const port = rig.origin.rfind(':');
        EXPECT_EQ(rig.origin.substr(0, port), "http://127.0.0.1");
        EXPECT_TRUE(rig.web->isOnAllAddresses());
        EXPECT_EQ(rig.status("/api/state"), 200);
        EXPECT_TRUE(httplib::Client("http://127.0.0.2" + rig.origin.substr(port)).Get("/"));
    }
}

TEST(ToolWeb, PageLetsNothingInFromElsewhere) {
    WebRig const rig;
    std::string const path = "/?token=" + rig.token;
    httplib::Result const page = rig.ask(path);
    ASSERT_TRUE(page);
    std::string const policy = page->get_header_value("Content-Security-Policy");
    EXPECT_EQ(policy.find("default-src 'none'; script-src 'nonce-"), 0u) << policy;
    EXPECT_FALSE(has(policy, "unsafe")) << policy;
    for (char const * const part :
         {"connect-src 'self'", "base-uri 'none'", "form-action 'none'", "frame-ancestors 'none'"}) {
        EXPECT_TRUE(has(policy, part)) << policy;
    }
    std::string const nonce = policy.substr(policy.find("nonce-") + 6, 32);
    EXPECT_TRUE(has(page->body, "<script nonce=\"" + nonce + "\">"));
    EXPECT_NE(rig.ask(path)->get_header_value("Content-Security-Policy"), policy);
    for (Request const & one : requests) {
        httplib::Result const result = rig.ask(one.path, one.method);
        EXPECT_EQ(result->get_header_value("X-Content-Type-Options"), "nosniff") << one.path;
        EXPECT_EQ(result->get_header_value("Referrer-Policy"), "no-referrer") << one.path;
        EXPECT_EQ(result->get_header_value("Cache-Control"), "no-store") << one.path;
        EXPECT_EQ(result->get_header_value("X-Frame-Options"), "DENY") << one.path;
        EXPECT_EQ(result->get_header_value("Access-Control-Allow-Origin"), "") << one.path;
    }
    // It works offline, and has no way from a text to markup.
    for (char const * const part :
         {"http://", "https://", "//cdn", "innerHTML", "outerHTML", "insertAdjacentHTML", "document.write",
          "eval(", "Function(", " onclick", " style=\"", "NONCE"}) {
        EXPECT_FALSE(has(page->body, part)) << part;
    }
}

TEST(ToolWeb, ProtectedFieldsAreMaskedUnlessTheyAreToBeShown) {
    std::string const secret = "open sesame";
    std::string const hex = "6F 70 65 6E";
    for (bool const reveal : {false, true}) {
        WebOptions options;
        options.reveal = reveal;
        WebRig rig(options);
        std::string whole = bodyOf("hello", secret);
        whole.insert(whole.size() - 3, "\x06\xF1\x06"
                                       "barley");
        rig.saw(frameOf(0x2001, whole));
        // What is cut off in the secret is as secret.
        std::string const broken = bodyOf("hello", secret);
        rig.saw(frameOf(0x2001, broken.substr(0, broken.size() - 5)));
        std::string all = rig.get("/api/state") + rig.get("/api/state?text=sesame");
        for (char const * const id : {"1", "2"}) {
            all += rig.get(std::string("/api/packet?id=") + id);
        }
        EXPECT_TRUE(has(all, "hello"));
        EXPECT_EQ(has(all, "sesame"), reveal);
        EXPECT_EQ(has(all, "YmFybGV5"), reveal) << all;
        EXPECT_EQ(has(all, "62 61 72 6C"), reveal) << all;
        EXPECT_EQ(has(all, hex), reveal) << all;
        EXPECT_EQ(has(all, "***"), !reveal);
        EXPECT_EQ(has(rig.get("/api/state"), "\"masked\":true"), !reveal);
    }
}

TEST(ToolWeb, ProtectedFieldsAreMaskedInWhatTheGatewaySendsBack) {
    std::string const secret = "open sesame";
    std::string const body = bodyOf("hello", secret);
    for (bool const reveal : {false, true}) {
        WebOptions options;
        options.reveal = reveal;
        WebRig rig(options);
        // The class of the answer does not protect what that of the question does, or there is none.
        rig.traffic.frame(1, false, frameOf(0x2002, body), rig.now += 100,
                          static_cast<unsigned short>(0x2001));
        rig.traffic.frame(1, false, frameOf(0x2003, body), rig.now += 100,
                          static_cast<unsigned short>(0x2002));
        rig.saw(frameOf(0x4444, body));
        std::string all = rig.get("/api/state") + rig.get("/api/state?text=sesame");
        for (char const * const id : {"1", "2", "3"}) {
            all += rig.get(std::string("/api/packet?id=") + id);
        }
        EXPECT_TRUE(has(all, "hello"));
        EXPECT_EQ(has(all, "sesame"), reveal) << all;
        EXPECT_EQ(has(all, "6F 70 65 6E"), reveal) << all;
        EXPECT_EQ(has(all, "no class of the code 0x4444, so that its 28 bytes are shown with --reveal alone"),
                  !reveal)
            << all;
        tavBytes const bytes(tav_istr(body.data(), static_cast<unsigned>(body.size())));
        tavString base64;
        bytes.toBase64(base64);
        EXPECT_EQ(has(all, std::string(base64.data(), base64.size())), reveal) << all;
    }
    // Of a copy of what has no class nothing is known, whatever the class of its own code says.
    WebRig rig;
    rig.traffic.frame(1, false, frameOf(0x2001, body), rig.now += 100, static_cast<unsigned short>(0x4444));
    std::string const strange = rig.get("/api/state") + rig.get("/api/packet?id=1");
    EXPECT_TRUE(has(strange, "no class of the code 0x4444")) << strange;
    EXPECT_FALSE(has(strange, "hello")) << strange;
    // The gateway tells whose body it sends.
    EXPECT_NE(rig.tool
                  .run("request " + rig.place() +
                       " --ca ca.pem -t m.pml -c im.Say --reply-code 2002 "
                       R"('{"text":"hello","secret":"open sesame"}')")
                  .code,
              2);
    EXPECT_TRUE(has(rig.get("/api/state?way=out"), "hello"));
    EXPECT_FALSE(has(rig.get("/api/state") + rig.get("/api/packet?id=3"), "sesame"));
}

TEST(ToolWeb, ProtectedFieldsAreMaskedInOldPacketsThatTheGatewaySendsBack) {
    WebRig rig;
    rig.tool.file("old.pml", "A:object(__class__(A)__code__(40)[1]text:string()[5]secret:string?({***}))\n"
                             "B:object(__class__(B)__code__(41)[1]text:string()[5]secret:string?())\n");
    rig.classes = tav::tool::loadTemplate(rig.tool.path("old.pml"));
    std::string const body = bodyOf("hello", "open sesame");
    tavSharedPtr<tav::im::Packet> const packet = tav::im::Packet::create(false, 0);
    packet->setCode(0x41);
    packet->setBody(tav_istr(body));
    tavBytes bytes;
    packet->encode(bytes);
    tavBytes frame;
    frame.writeBigEndian(bytes.size()).writeBytes(tav_istr(bytes));
    rig.traffic.frame(1, false, std::string(tav_istr(frame)), rig.now += 100,
                      static_cast<unsigned short>(0x40));
    std::string const all = rig.get("/api/state") + rig.get("/api/packet?id=1");
    EXPECT_TRUE(has(all, "hello")) << all;
    EXPECT_FALSE(has(all, "sesame")) << all;
    EXPECT_FALSE(has(all, "6F 70 65 6E")) << all;
}

TEST(ToolWeb, PacketIsShownInEachEncoding) {
    WebRig rig;
    rig.saw(frameOf(0x2001, bodyOf("hi")));
    rig.saw(frameOf(0x4444, bodyOf("hi")));
    rig.saw(frameOf(0x2001, "\xFF\x01\x28\x01\xF9"));
    rig.saw(std::string("\0\0\0\3\0\0\0", 7));
    std::string const good = rig.get("/api/packet?id=1");
    for (char const * const part :
         {"\"json\":\"{\\n", "\\\"text\\\":\\\"hi\\\"", "im.Say(text(hi))",
          "<im.Say>\\n        <text>hi</text>", "[1] text: string \\\"hi\\\"", "68 69 ", "\\\"code\\\":8193",
          "\"class\":\"im.Say\"", "\"code\":\"0x2001\""}) {
        EXPECT_TRUE(has(good, part)) << part << "\n" << good;
    }
    EXPECT_TRUE(has(rig.get("/api/packet?id=2"), "the template has no class of the code 0x4444"));
    std::string const broken = rig.get("/api/packet?id=3");
    EXPECT_TRUE(has(broken, "It is broken: ")) << broken;
    EXPECT_TRUE(has(broken, "broken here: ")) << broken;
    EXPECT_TRUE(has(rig.get("/api/packet?id=4"), "It is broken: "));
    EXPECT_EQ(rig.status("/api/packet?id=5"), 404);
    EXPECT_EQ(rig.status("/api/packet?id=x"), 400);
}

TEST(ToolWeb, WhatClientsSayIsNeverMoreThanAText) {
    WebRig rig;
    std::string const evil =
        "</script><script>alert(1)</script>\"'\\ \x01\x1b[31m\x7f\r\n\t<img src=x onerror=y>";
    rig.saw(frameOf(0x2001, bodyOf(evil)));
    rig.saw(frameOf(0x2001, bodyOf(std::string(1024 * 1024, '<'))));
    rig.saw(frameOf(0x2001, bodyOf("\xC0\xAF\xED\xA0\x80\xF5")));
    for (char const * const path :
         {"/api/state", "/api/packet?id=1", "/api/packet?id=2", "/api/packet?id=3"}) {
        httplib::Result const result = rig.ask(path);
        ASSERT_TRUE(result);
        EXPECT_EQ(result->status, 200);
        EXPECT_EQ(result->get_header_value("Content-Type"), "application/json");
        EXPECT_LT(result->body.size(), 2u * 1024 * 1024) << path;
        for (char const c : result->body) {
            ASSERT_GE(static_cast<unsigned char>(c), 32u) << path;
        }
        EXPECT_EQ(tav::tool::JsonText(result->body).root().kind, tav::tool::JsonNode::Kind::object);
    }
    EXPECT_TRUE(has(rig.get("/api/state"), "1048"));
    // Nor is what somebody asks for.
    std::string const odd = "/api/state?code=%3Cscript%3E";
    EXPECT_EQ(rig.ask(odd)->status, 400);
    EXPECT_EQ(rig.ask(odd)->get_header_value("Content-Type"), "application/json");
}

TEST(ToolWeb, FiltersLeaveWhatFits) {
    WebRig rig;
    rig.saw(frameOf(0x2001, bodyOf("Apple")));
    rig.saw(frameOf(0x2002, bodyOf("pear")));
    rig.traffic.frame(7, false, frameOf(0x2001, bodyOf("plum")), rig.now += 100);
    struct Case {
        char const * asked;
        bool apple, pear, plum;
    };
    for (Case const & one :
         {Case{"", true, true, true}, Case{"way=in", true, true, false}, Case{"way=out", false, false, true},
          Case{"connection=7", false, false, true}, Case{"code=0x2002", false, true, false},
          Case{"code=2001&way=in", true, false, false}, Case{"class=SAID", false, true, false},
          Case{"text=apple", true, false, false}, Case{"after=1", false, true, true},
          Case{"after=99", false, false, false}}) {
        std::string const state = rig.get(std::string("/api/state?") + one.asked);
        EXPECT_EQ(has(state, "Apple"), one.apple) << one.asked;
        EXPECT_EQ(has(state, "pear"), one.pear) << one.asked;
        EXPECT_EQ(has(state, "plum"), one.plum) << one.asked;
    }
    for (char const * const wrong :
         {"way=up", "connection=x", "code=12345", "after=-1", "after=99999999999999999999"}) {
        EXPECT_EQ(rig.status(std::string("/api/state?") + wrong), 400) << wrong;
    }
}

/// Connects to the page and sends what begins a question.
int dawdler(WebRig const & rig, std::string const & begin) {
    sockaddr_in place{};
    place.sin_family = AF_INET;
    place.sin_port =
        htons(static_cast<unsigned short>(std::stoul(rig.origin.substr(rig.origin.rfind(':') + 1))));
    place.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    int const one = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    EXPECT_EQ(::connect(one, reinterpret_cast<sockaddr *>(&place), sizeof(place)), 0);
    EXPECT_EQ(::send(one, begin.data(), begin.size(), MSG_NOSIGNAL), static_cast<ssize_t>(begin.size()));
    return one;
}

TEST(ToolWeb, AnswerAheadOfTheBodyIsFollowedByNoReset) {
    WebOptions options;
    options.patience = 60000;
    WebRig const rig(options);
    int const one = dawdler(
        rig, "POST /api/push HTTP/1.1\r\nHost: localhost\r\nConnection: close\r\nContent-Length: 4\r\n\r\n{");
    std::string answer;
    std::array<char, 4096> buffer{};
    pollfd ready{one, POLLIN, 0};
    for (ssize_t n = 1; n > 0; answer.append(buffer.data(), static_cast<std::size_t>(n))) {
        ASSERT_EQ(::poll(&ready, 1, 10000), 1) << answer;
        n = ::recv(one, buffer.data(), buffer.size(), 0);
        ASSERT_GE(n, 0) << answer;
    }
    EXPECT_TRUE(has(answer, "HTTP/1.1 403 ")) << answer;
    // What comes of a reset comes at once on this machine's own network.
    for (char const * const part : {" ", "}"}) {
        EXPECT_EQ(::send(one, part, 1, MSG_NOSIGNAL), 1);
        pollfd reset{one, 0, 0};
        EXPECT_EQ(::poll(&reset, 1, 100), 0) << reset.revents;
    }
    ::close(one);
    EXPECT_EQ(rig.status("/api/state"), 200);
}

TEST(ToolWeb, WhoConnectsAndAsksNothingHoldsNobodyUpForLong) {
    WebRig const rig;
    std::vector<int> silent;
    for (int i = 0; i < 24; ++i) {
        silent.push_back(dawdler(rig, ""));
    }
    EXPECT_EQ(rig.status("/api/state"), 200);
    for (int const one : silent) {
        ::close(one);
    }
}

TEST(ToolWeb, WhoDribblesAQuestionIsEndedAndHoldsNobodyUpForLong) {
    WebOptions options;
    options.patience = 300;
    WebRig const rig(options);
    // What the HTTP library makes at its first question is made ahead of those who come at once: it is built
    // without the thread sanitizer, which does not see its guard.
    EXPECT_EQ(rig.status("/api/state"), 200);
    // Heads without an end, and bodies: each byte comes in time for itself.
    std::string const heads[] = {"GET /api/state HTTP/1.1\r\nHost: localhost\r\n",
                                 "POST /api/push HTTP/1.1\r\nHost: localhost\r\nX-Tav-Token: " + rig.token +
                                     "\r\nContent-Length: 100000\r\n\r\n"};
    std::vector<int> slow;
    for (int i = 0; i < 24; ++i) {
        slow.push_back(dawdler(rig, heads[i % 2]));
    }
    std::thread asking([&rig] { EXPECT_EQ(rig.status("/api/state"), 200); });
    std::size_t ended = 0;
    auto const end = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    while (ended < slow.size() && std::chrono::steady_clock::now() < end) {
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
        ended = 0;
        for (int const one : slow) {
            ended += ::send(one, "a", 1, MSG_NOSIGNAL | MSG_DONTWAIT) == 1 ? 0 : 1;
        }
    }
    asking.join();
    EXPECT_EQ(ended, slow.size());
    for (int const one : slow) {
        ::close(one);
    }
}

TEST(ToolWeb, HeadsAndConnectionsWithoutATokenAreBounded) {
    WebOptions options;
    options.patience = 60000;
    WebRig const rig(options);
    // A head that does not end, in lines and in one.
    for (std::string const & part : {std::string("A: b\r\n"), std::string("a"), std::string("a\n")}) {
        int const one = dawdler(rig, "GET / HTTP/1.1\r\n");
        std::string sent;
        while (sent.size() < 65536) {
            sent += part;
        }
        std::size_t all = 0;
        ssize_t n = 0;
        while (all < (64u << 20) && (n = ::send(one, sent.data(), sent.size(), MSG_NOSIGNAL)) > 0) {
            all += static_cast<std::size_t>(n);
        }
        EXPECT_LT(all, 32u << 20) << part;
        ::close(one);
    }
    // Of those who wait the last are sent away at once.
    std::vector<int> waiting;
    for (int i = 0; i < 100; ++i) {
        waiting.push_back(dawdler(rig, "GET"));
    }
    pollfd last{waiting.back(), POLLIN, 0};
    EXPECT_EQ(::poll(&last, 1, 10000), 1);
    char byte = 0;
    EXPECT_LE(::recv(waiting.back(), &byte, 1, MSG_DONTWAIT), 0);
    EXPECT_EQ(::recv(waiting.front(), &byte, 1, MSG_DONTWAIT), -1);
    EXPECT_EQ(errno, EAGAIN);
    for (int const one : waiting) {
        ::close(one);
    }
    EXPECT_TRUE(rig.waitFor("/api/state", "\"all\":"));
}

TEST(ToolWeb, EndsAtOnceBesideWhoDribbles) {
    int one = -1;
    auto begin = std::chrono::steady_clock::now();
    {
        WebOptions options;
        options.patience = 60000;
        WebRig const rig(options);
        one = dawdler(rig, "GET / ");
        EXPECT_EQ(rig.status("/api/state"), 200);
        begin = std::chrono::steady_clock::now();
    }
    EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(10));
    ::close(one);
}

TEST(ToolWeb, MemoryIsBounded) {
    Traffic traffic;
    std::string const small = frameOf(0x2001, bodyOf("x"));
    // A thousand a second are kept, whole.
    for (long long i = 0; i < 12000; ++i) {
        traffic.frame(1, true, small, 1000 + i);
    }
    EXPECT_EQ(traffic.counts().kept, Traffic::mostPackets);
    EXPECT_EQ(traffic.counts().leftOut, 0u);
    EXPECT_EQ(traffic.packet(2000), nullptr);
    EXPECT_NE(traffic.packet(2001), nullptr);
    // As many may come at once behind a quiet second.
    for (int i = 0; i < 900; ++i) {
        traffic.frame(1, true, small, 20000);
    }
    EXPECT_EQ(traffic.counts().leftOut, 0u);
    // Of ten thousand in a second a thousand are, from all of it, and a thousand that were saved up.
    Traffic flood;
    for (long long i = 0; i < 10000; ++i) {
        flood.frame(1, true, small, 5000 + i / 10);
    }
    EXPECT_EQ(flood.counts().all, 10000u);
    EXPECT_EQ(flood.counts().kept, 1999u);
    EXPECT_EQ(flood.counts().leftOut, 8001u);
    EXPECT_GT(flood.packets(0).back()->time, 5900);
    // Large ones go by their bytes.
    Traffic large;
    std::string const big = frameOf(0x2001, std::string(8 * 1024 * 1024, 'x'));
    for (long long i = 0; i < 10; ++i) {
        large.frame(1, true, big, 1000 * i);
    }
    EXPECT_EQ(large.counts().kept, 7u);
    // So do connections that have ended.
    for (unsigned id = 1; id <= 1000; ++id) {
        traffic.connection(id, true, "peer", 0);
        traffic.connection(id, false, "peer", 0);
    }
    EXPECT_EQ(traffic.connections().size(), Traffic::mostClosed);
    // Heartbeats are nobody's message.
    traffic.frame(1, true, std::string(4, '\0'), 0);
    EXPECT_EQ(traffic.counts().all, 12900u);
}

TEST(ToolWeb, AnswerHasAsMuchAsAPageCanTakeAndSaysWhatItPassedOver) {
    WebRig rig;
    for (int i = 0; i < 1000; ++i) {
        rig.saw(frameOf(0x2001, bodyOf("x")));
    }
    std::string const state = rig.get("/api/state");
    std::size_t rows = 0;
    for (std::size_t at = state.find("\"sequence\""); at != std::string::npos;
         at = state.find("\"sequence\"", at + 1)) {
        ++rows;
    }
    EXPECT_EQ(rows, 200u);
    EXPECT_TRUE(has(state, "\"last\":1000,\"all\":1000,\"leftOut\":0,\"kept\":1000,\"passed\":800,"))
        << state.substr(0, 200);
    EXPECT_EQ(rig.status("/api/push?connection=0", "POST", std::string(2 * 1024 * 1024, ' ')), 413);
}

TEST(ToolWeb, ButtonsPushFallSilentCloseAndReset) {
    WebRig rig;
    std::string const listening =
        "$TAV listen " + rig.place() + " --ca ca.pem -t m.pml --reconnect never >out 2>err";
    auto const listen = [&](std::string const & name) {
        rig.tool.shell("(" + listening + name + "; echo ended >>err" + name +
                       ") </dev/null >/dev/null 2>&1 &");
    };
    listen("");
    ASSERT_TRUE(rig.waitFor("/api/state", "\"id\":1,"));
    EXPECT_TRUE(has(rig.get("/api/state"), "\"open\":true,\"silent\":false"));
    std::string const said = "{\"__class__\":\"im.Said\",\"text\":\"from the page\"}";
    for (char const * const to : {"0", "1"}) {
        httplib::Result const pushed = rig.ask(std::string("/api/push?connection=") + to, "POST", said);
        EXPECT_EQ(pushed->body, "{\"done\":\"pushed\",\"code\":\"0x2002\",\"to\":1}");
    }
    EXPECT_TRUE(rig.gateway->wait([](Stats const & s) { return s.pushes == 2; }));
    EXPECT_TRUE(rig.waitFor("/api/state?way=out", "from the page"));
    // A silent connection gets nothing, until it is not silent any more.
    EXPECT_EQ(rig.status("/api/silence?connection=1&on=1", "POST"), 200);
    EXPECT_TRUE(rig.waitFor("/api/state", "\"silent\":true"));
    for (char const * const to : {"0", "1"}) {
        EXPECT_EQ(rig.status(std::string("/api/push?connection=") + to, "POST", said), 409);
    }
    EXPECT_EQ(rig.status("/api/silence?connection=1&on=0", "POST"), 200);
    EXPECT_TRUE(rig.waitFor("/api/state", "\"silent\":false"));
    rig.ask("/api/push?connection=1", "POST", said);
    EXPECT_TRUE(rig.waitFor("/api/state?way=out", "\"id\":3,"));
    EXPECT_EQ(rig.status("/api/reset?connection=1", "POST"), 200);
    EXPECT_TRUE(rig.waitFor("/api/state", "\"open\":false"));
    EXPECT_EQ(rig.status("/api/close?connection=1", "POST"), 404);
    for (char const * const path :
         {"/api/push?connection=1", "/api/reset?connection=2", "/api/silence?connection=9"}) {
        EXPECT_EQ(rig.status(path, "POST", said), 404) << path;
    }
    // Who listens has written all that came once it has ended, and then leaves its folder alone.
    EXPECT_EQ(rig.tool
                  .shell("for i in $(seq 3000); do grep -q ended err && break; sleep 0.01; done\n"
                         "grep -c 'from the page' out")
                  .out,
              "3\n");
}

/// What the page has of a gateway whose rules misbehave.
char const * const misbehaved = R"sh(
    mkfifo hold
    $TAV gateway --chain chain.pem --key key.pem -t m.pml --rules r.json --record r.bin --port-file port --web 0 \
        --until-eof <hold >gw.out 2>&1 &
    exec 9>hold
    for i in $(seq 1000); do grep -q 'page is at' gw.out && break; sleep 0.01; done
    ask() { exec $TAV request 127.0.0.1:$(cat port) --ca ca.pem -t m.pml -c im.Say "{\"text\":\"a\",\"n\":$1}" >/dev/null 2>&1; }
    (ask 1); (ask 2); (ask 3)
    ask 4 &
    waits=$!
    python3 - "$(sed -n 's/.*page is at //p' gw.out)" <<'END'
import json, sys, time, urllib.request
place, token = sys.argv[1].split("/?token=")
def ask(path):
    return json.load(urllib.request.urlopen(urllib.request.Request(place + path, headers={"X-Tav-Token": token}), timeout=10))
end = time.monotonic() + 10
while time.monotonic() < end:
    state = ask("/api/state?way=out")
    if any(one["silent"] for one in state["connections"]):
        break
    time.sleep(0.01)
print([one["silent"] for one in sorted(state["connections"], key=lambda one: one["id"])])
for one in state["packets"]:
    print(one["connection"], one["odd"], one["size"], one["text"][:6], ask("/api/packet?id=%d" % one["id"])["bytes"][:40])
END
    kill $waits
    exec 9>&-
    wait
    $TAV convert -t m.pml --from frames --to json --keep-going r.bin 2>told
    grep -c error told
)sh";

TEST(ToolWeb, SilenceByARuleAndBytesThatAreNoFrameAreShown) {
    WebRig const rig;
    rig.tool.file("chain.pem", rig.server.pem());
    rig.tool.file("key.pem", rig.server.keyPem());
    rig.tool.file("r.json", R"([{"class":"im.Say","fields":{"n":1},"do":["cut"]},
                                {"class":"im.Say","fields":{"n":2},"do":["oversize"]},
                                {"class":"im.Say","fields":{"n":3},"do":["garbage","close"]},
                                {"class":"im.Say","fields":{"n":4},"do":["silence","usual"]}])");
    ToolRun const run = rig.tool.shell(misbehaved);
    // The record has the frame that is no packet, and of the others none, as nobody could read on behind
    // them.
    EXPECT_EQ(run.out, "[False, False, False, True]\n"
                       "1 half a frame 50 sent t 0000  00 00 00 64 78 78 78 78  half a fr\n"
                       "2 a length above the limit 4 sent t 0000  01 00 00 00              a length \n"
                       "3  64 broken 0000  00 00 00 40              frame: 64\n"
                       R"({ "__class__":"im.Say", "n":1, "text":"a" })"
                       "\n"
                       R"({ "__class__":"im.Say", "n":2, "text":"a" })"
                       "\n"
                       R"({ "__class__":"im.Say", "n":3, "text":"a" })"
                       "\n"
                       R"({ "__class__":"im.Say", "n":4, "text":"a" })"
                       "\n1\n")
        << run.err << tav_test::contentOf(rig.tool.path("gw.out"));
}

TEST(ToolWeb, MessageThatIsNoneIsToldWithItsPlace) {
    WebRig const rig;
    struct Case {
        char const * message;
        char const * told;
    };
    for (Case const & one :
         {Case{"", "message:1:1: error: "}, Case{"[]", "message:1:1: error: a message is a JSON object"},
          Case{"{\"__class__\":\"im.Sad\"}", "message:1:14: error: meta class not found"},
          Case{"{\"__class__\":\"im.Said\",\"text\":\"a\"} {}",
               "message:1:36: error: what follows is not read"},
          Case{"{\"__class__\":\"im.Said\",\n\"text\":7}", "message:2:8: error: field text"},
          Case{"{\"__class__\":\"im.Said\",\"text\":\"a\",\"b\":1}",
               "message:1:35: error: not found field name [b]"}}) {
        httplib::Result const result = rig.ask("/api/push?connection=0", "POST", one.message);
        ASSERT_TRUE(result);
        EXPECT_EQ(result->status, 400) << one.message;
        EXPECT_TRUE(has(result->body, one.told)) << one.message << result->body;
    }
    EXPECT_TRUE(has(rig.ask("/api/push?connection=0", "POST", R"({"__class__":"im.Said","text":"a"})")->body,
                    "Nobody is connected"));
    EXPECT_TRUE(has(rig.ask("/api/push", "POST", std::string(2 << 20, ' '))->body, "larger than 1 MB"));
}

TEST(ToolWeb, CommandLineStartsThePageAndPrintsWhereItIs) {
    WebRig const rig;
    rig.tool.file("chain.pem", rig.server.pem());
    rig.tool.file("key.pem", rig.server.keyPem());
    std::string const with = "gateway --chain chain.pem --key key.pem --until-eof ";
    ToolRun const run = rig.tool.run(with + "-t m.pml --web 0");
    EXPECT_EQ(run.code, 0) << run.err;
    EXPECT_TRUE(has(run.out, "gateway: the page is at http://127.0.0.1:")) << run.out;
    EXPECT_FALSE(has(run.out, "all addresses")) << run.out;
    ToolRun const wide = rig.tool.run(with + "-t m.pml --web 0 --web-address 0.0.0.0");
    EXPECT_EQ(wide.code, 0) << wide.err;
    EXPECT_TRUE(has(wide.out, "gateway: the page is at http://127.0.0.1:")) << wide.out;
    EXPECT_TRUE(has(wide.out, "gateway: the page listens on all addresses of this machine\n")) << wide.out;
    EXPECT_EQ(rig.tool.run(with + "--web 0").code, 2);
    EXPECT_EQ(rig.tool.run(with + "-t m.pml --reveal").code, 2);
    EXPECT_EQ(rig.tool.run(with + "-t m.pml --web 70000").code, 2);
    ToolRun const nowhere = rig.tool.run(with + "-t m.pml --web 0 --web-address 192.0.2.1");
    EXPECT_EQ(nowhere.code, 3);
    EXPECT_FALSE(has(nowhere.out, "listening"));
    EXPECT_TRUE(has(nowhere.err, "port 0: Cannot assign requested address")) << nowhere.err;
    rig.tool.file("n.pml", "Say:object(__class__(im.Say)__code__(2001)[1]n:int32?({***}))\n");
    EXPECT_TRUE(has(rig.tool.run(with + "-t n.pml --web 0").err,
                    "n.pml:1:55: warning: only texts and bytes are masked: a int32 is shown [protected]"))
        << rig.tool.run(with + "-t n.pml --web 0").err;
}

} // namespace
