#ifndef TAV_BINDINGS_C_REPORT_H
#define TAV_BINDINGS_C_REPORT_H

#include "bindings/c/fields.h"
#include "bindings/c/message.h"

#include "tav/kit/keeper.h"

#include "tav/vinta/vinta_tls_client.h"

#include <memory>
#include <string>

/// What answers and events say.
namespace tav {
namespace json_client {

std::string connectedText(tls::client & client);
std::string disconnectedText(tls::failure why, std::string const & text);
/// The answer of "state".
std::string stateText(tls::client & client, bool connected, kit::keeper const * keeper,
                      std::string const & cause, std::string_view extra);
/// The answer of "statistics".
std::string statisticsText(tls::client const & client, std::string_view extra);
void putExt(ObjectText & out, tavMsgExt const & ext);

/// A code: a number, or the name of a class of the template; no_code if it is missing.
unsigned short readCode(Fields & fields, std::string_view name,
                        std::shared_ptr<Template const> const & messages);

/// What a `send` or `request` wants.
struct SendWish {
    Encoded out;
    /// no_code if nothing is awaited.
    unsigned short reply = no_code;
    /// It is a receipt that is awaited, which has the message's own code.
    bool receipt = false;
    int limit_ms = 0;
    bool grey = false;
    unsigned short version = 4;
    bool repeats = false;
    std::string target;

    bool isOld() const { return out.code < 0x100; }
};

/// Reads all members of a send, or of a request.  Throws Failure.
SendWish readSend(Fields & fields, bool request, std::shared_ptr<Template const> const & messages);

} // namespace json_client
} // namespace tav

#endif
