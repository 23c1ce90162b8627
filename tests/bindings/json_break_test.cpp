#include "bindings/json_rig.h"

#include "support/server_process.h"

using namespace tav_test;

// A connection that the peer ends behind its handshake.
namespace {

/// A server by TLS 1.3 that wants a certificate, which it misses when the client has done its part.
class WantingServer final : public ServerProcess {
public:
    WantingServer() {
        std::string const own = folder_.write("own.pem", made().chain + made().key);
        start({TAV_OPENSSL, "s_server", "-accept", "127.0.0.1:0", "-cert", own, "-key", own, "-tls1_3",
               "-Verify", "3", "-verify_return_error", "-CAfile", folder_.write("ca.pem", made().ca)});
        readPort("ACCEPT 127.0.0.1:");
    }

private:
    static tav::gateway::Certificates const & made() { return Gate::certificates(); }

    Folder const folder_;
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
                        {"policy", {{"safe", false}, {"max_version", "1.3"}}}};
        if (by_keeper) {
            request["keeper"] = Json::object();
        }
        EXPECT_EQ(nameOf(ann.ask(request)), "ok");
        EXPECT_EQ(ann.event("disconnected")["name"], "handshake_failed") << by_keeper;
    }
}
