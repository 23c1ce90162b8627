#include "bindings/json_rig.h"

#include "support/server_process.h"

using namespace tav_test;

// A connection that the peer ends behind its handshake.
namespace {

/// A text as a file.
class Text {
public:
    explicit Text(std::string const & text) {
        char path[] = "/tmp/tav_json_test_XXXXXX";
        ::close(::mkstemp(path));
        path_ = path;
        std::ofstream(path_) << text;
    }
    ~Text() { std::remove(path_.c_str()); }
    Text(Text const &) = delete;
    Text & operator=(Text const &) = delete;

    std::string const & path() const { return path_; }

private:
    std::string path_;
};

/// A server by TLS 1.3 that wants a certificate, which it misses when the client has done its part.
class WantingServer final : public ServerProcess {
public:
    WantingServer() : own_(made().chain + made().key), ca_(made().ca) {
        start({TAV_OPENSSL, "s_server", "-accept", "127.0.0.1:0", "-cert", own_.path(), "-key", own_.path(),
               "-tls1_3", "-Verify", "3", "-verify_return_error", "-CAfile", ca_.path()});
        readPort("ACCEPT 127.0.0.1:");
    }

private:
    static tav::gateway::Certificates const & made() { return Gate::certificates(); }

    Text const own_;
    Text const ca_;
};

} // namespace

TEST(JsonBreak, HasTheSameNameWithAKeeperAndWithout) {
    WantingServer const server;
    for (bool const by_keeper : {false, true}) {
        Talker ann;
        Json request = {{"@type", "connect"},
                        {"host", "127.0.0.1"},
                        {"port", server.port()},
                        {"time_limit_ms", 10000},
                        {"policy", {{"safe", false}}}};
        if (by_keeper) {
            request["keeper"] = Json::object();
        }
        EXPECT_EQ(nameOf(ann.ask(request)), "ok");
        EXPECT_EQ(ann.event("disconnected")["name"], "handshake_failed") << by_keeper;
    }
}
