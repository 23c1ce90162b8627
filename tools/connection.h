#ifndef TAV_TOOLS_CONNECTION_H
#define TAV_TOOLS_CONNECTION_H

#include "tools/output.h"

#include <tav/vinta/vinta_tls_client.h>

#include <CLI/CLI.hpp>

#include <atomic>
#include <memory>
#include <string>
#include <system_error>
#include <vector>

namespace tav {
namespace tool {

/// "HOST:PORT" or "[HOST]:PORT" in two; throws a Failure for all else.
void parsePlace(std::string const & place, std::string & host, std::string & port);

/// What a subcommand that connects is told of the connection.
struct ConnectionOptions {
    std::string place;
    std::string ca;
    std::string serverName;
    /// What the policy has of its own stands in it.
    tls::tls_policy policy = tls::tls_policy::safe();
    std::string alsoTrusted;
    std::string passwordFile;
    std::string keyLog;
    /// The first error of writing to it; 0 if there was none.
    std::shared_ptr<std::atomic<int>> keyLogError = std::make_shared<std::atomic<int>>(0);
    bool insecure = false;
    bool noNameCheck = false;
    bool noHostName = false;
    unsigned timeoutMs = 10000;
};

/// HOST:PORT and the options of TLS and of the time.
void addConnectionOptions(CLI::App & app, ConnectionOptions & options);

/// Throws a Failure for a place that is none, and for files that can't be used.
tls::connect_option connectOption(ConnectionOptions const & options);

/// The exit code, once all connections have ended: that of a file that can't be written if the key log could
/// not, which is told.
int withKeyLog(ConnectionOptions const & options, int code, Output & output);

/// The name of a failure of the library, as "timed_out".
std::string nameOf(std::error_code why);

/// "NAME: MESSAGE", and what else is known of it between brackets.
std::string toldFailure(std::error_code why, std::string const & text = std::string());

} // namespace tool
} // namespace tav

#endif
