#ifndef TAV_TESTS_SUPPORT_OPENSSL_SERVER_H
#define TAV_TESTS_SUPPORT_OPENSSL_SERVER_H

#include "support/policy_matrix.h"

#include <string>
#include <vector>

namespace tav_test {

/// OpenSSL's own server, `openssl s_server` (the program TAV_OPENSSL).  It takes one connection after another
/// and echoes nothing.
class OpensslServer final : public ServerProcess {
public:
    /// `more` are further arguments.
    explicit OpensslServer(ServerSettings const & settings, std::vector<std::string> const & more = {})
        : own_(settings.pemOfOwn()), above_(settings.pemOfOthers()) {
        std::string const place = settings.ipv6 ? "[::1]:" : "127.0.0.1:";
        std::vector<std::string> arguments = {TAV_OPENSSL,
                                              "s_server",
                                              "-accept",
                                              place + "0",
                                              "-cert",
                                              own_.path(),
                                              "-key",
                                              own_.path(),
                                              "-cipher",
                                              weakest,
                                              settings.version == 2 ? "-tls1_2" : "-tls1_3"};
        if (settings.chain.size() > 1) {
            arguments.insert(arguments.end(), {"-cert_chain", above_.path()});
        }
        if (!settings.clients.empty()) {
            arguments.insert(arguments.end(),
                             {"-Verify", "3", "-verify_return_error", "-CAfile", settings.clients});
        }
        arguments.insert(arguments.end(), more.begin(), more.end());
        start(arguments);
        readPort("ACCEPT " + place);
    }

private:
    /// Certificates that are too weak for others are shown as well.
    static constexpr char weakest[] = "DEFAULT:@SECLEVEL=0";

    TempFile const own_;
    TempFile const above_;
};

} // namespace tav_test

#endif
