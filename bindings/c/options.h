#ifndef TAV_BINDINGS_C_OPTIONS_H
#define TAV_BINDINGS_C_OPTIONS_H

#include "bindings/c/fields.h"
#include "bindings/c/keeping.h"
#include "bindings/c/message.h"

#include "tav/vinta/vinta_tls_client_options.h"

#include <memory>
#include <string>
#include <string_view>

/// What a connect wants, from JSON.
namespace tav {
namespace json_client {

struct ConnectWish {
    tls::connect_option option;
    std::shared_ptr<Template const> messages; ///< Null without a template.
    int limit_ms = 0;
    bool heartbeat = true;
    std::shared_ptr<KeeperWish const> keeper; ///< Null if nothing is to keep the connection.
};

/// The member that has the port of a gateway, or that of the proxy, which is the one that is looked up then.
std::string portField(ConnectWish const & wish, kit::gateway const & to);

/// The member of a connect that a text of failure::bad_policy begins with; empty if it names none.
std::string policyField(std::string_view text);

/// The template of the member "template", or of the file that "template_file" names; null without either.
std::shared_ptr<Template const> givenTemplate(Fields & fields);

/// The member "time_limit_ms".
int readLimit(Fields & fields);

/// Reads all members of a connect.  Throws Failure.
ConnectWish readConnect(Fields & fields);

} // namespace json_client
} // namespace tav

#endif
