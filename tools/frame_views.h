#ifndef TAV_TOOLS_FRAME_VIEWS_H
#define TAV_TOOLS_FRAME_VIEWS_H

#include "tools/convert_parts.h"
#include "tools/templates.h"
#include "tools/traffic.h"

#include <string>

namespace tav {
namespace tool {

/// What a list shows of a frame.
struct FrameSummary {
    unsigned short code = Message::noCode;
    std::string className;
    unsigned long long sequence = 0;
    std::size_t size = 0;
    /// "receipt", "asks" for one, or nothing.
    char const * receipt = "";
    /// The message as JSON on a line, cut short.
    std::string text;
};

/// A frame as people see it.  Long ones are cut; what is broken is shown up to there.
struct FrameDetails {
    std::string envelope;
    std::string json;
    std::string pml;
    std::string xml;
    std::string nbr;
    std::string bytes;
};

/// Shows frames by a template, which must outlive it.  Values that the template protects are masked, unless
/// they are to be shown, and so is the message of a code that it does not know, and a copy of such a one:
/// nothing tells what of it is protected.
class FrameViews {
public:
    FrameViews(Template const & model, bool reveal) : model_(model), reveal_(reveal) {}

    FrameSummary summary(SeenPacket const & packet) const;
    FrameDetails details(SeenPacket const & packet) const;

private:
    /// The frame with asterisks in place of what is hidden, byte for byte.
    std::string masked(SeenPacket const & packet) const;
    /// Why the message is not shown; empty if it is.
    std::string withheld(SeenPacket const & packet, Message const & message) const;
    std::string tree(std::string const & frame, bool annotated) const;
    std::string text(Message const & message, Encoding encoding) const;

    Template const & model_;
    bool reveal_;
};

} // namespace tool
} // namespace tav

#endif
