#ifndef TAV_TOOLS_ENVELOPE_H
#define TAV_TOOLS_ENVELOPE_H

#include "tools/convert_parts.h"
#include "tools/json_text.h"

#include <string>
#include <string_view>

namespace tav {
namespace tool {

/// Reads a packet into the message: all that it says, its body as NBR, and where that begins.  Throws a
/// PlacedFault for one that is cut short or is no packet.
std::size_t readPacket(std::string_view packet, Message & message);

/// The packet of the message.
std::string packetOf(Envelope const & envelope, unsigned short code, std::string_view body);

/// The members of the JSON of an envelope, without its body and without brackets.
std::string envelopeText(Message const & message);

/// Takes the envelope from JSON.  Throws a PlacedFault for a member that is missing or out of its range.
void readEnvelope(JsonText const & json, Message & message);

} // namespace tool
} // namespace tav

#endif
