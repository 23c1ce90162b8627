#include "tav/vinta/vinta_tls_client.h"

#include "support/proxy_servers.h"

#include <gtest/gtest.h>

using namespace tav_test;

namespace {

std::unique_ptr<ServerProcess> haproxy(ServerSettings const & settings) {
    return std::make_unique<HaproxyServer>(settings);
}

std::unique_ptr<ServerProcess> stunnel(ServerSettings const & settings) {
    return std::make_unique<StunnelServer>(settings);
}

constexpr bool talks = true;

} // namespace

TEST(ClientPolicyServers, HaproxysChainsAreRefusedForTheirReasons) {
    expectRows(CertificateRows().chains(), haproxy, talks);
}

TEST(ClientPolicyServers, HaproxysNamesAreCheckedWithAPolicyOnly) {
    expectRows(CertificateRows().names(), haproxy, talks);
}

TEST(ClientPolicyServers, HaproxyIsShownACertificateOrMissesIt) {
    expectClientRows(haproxy, "sslv3 alert handshake failure");
}

TEST(ClientPolicyServers, StunnelsChainsAreRefusedForTheirReasons) {
    expectRows(CertificateRows().chains(), stunnel, talks);
}

TEST(ClientPolicyServers, StunnelsNamesAreCheckedWithAPolicyOnly) {
    expectRows(CertificateRows().names(), stunnel, talks);
}

TEST(ClientPolicyServers, StunnelIsShownACertificateOrMissesIt) {
    expectClientRows(stunnel, "sslv3 alert handshake failure");
}
