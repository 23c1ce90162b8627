#include "tools/frame_views.h"

#include "tools/dump_tree.h"
#include "tools/envelope.h"
#include "tools/live.h"
#include "tools/nbr_reader.h"
#include "tools/tree_output.h"

#include <algorithm>
#include <stdexcept>

namespace tav {
namespace tool {

namespace {

constexpr std::size_t frameHead = 4;
/// Of a line of the list, of the messages that are worth one, and of each view.
constexpr std::size_t lineBytes = 300;
constexpr std::size_t largestLine = 64 * 1024;
constexpr std::size_t largestView = 256 * 1024;

/// For whoever wants to know only what is hidden.
class NoTree : public TreeOutput {
public:
    using TreeOutput::TreeOutput;
    void leaf(TreeLine const &) override {}
    void open(TreeLine const &) override {}
    void close(Piece const &) override {}
    void fault(std::size_t, std::string const &) override {}
};

class NoVisitor : public NbrVisitor {
public:
    void simple(NbrValue const &) override {}
    void open(NbrValue const &) override {}
    void close(std::size_t) override {}
};

/// At most so many bytes, and no half character.
std::string cut(std::string text, std::size_t most) {
    if (text.size() <= most) {
        return text;
    }
    std::size_t end = most;
    while (end > 0 && (static_cast<unsigned char>(text[end]) & 0xC0u) == 0x80) {
        --end;
    }
    std::size_t const left = text.size() - end;
    text.resize(end);
    return text + "... and " + std::to_string(left) + " bytes more";
}

/// Reads the packet of a frame; false with the reason if it is none.
bool readFrame(std::string const & frame, Template const & model, Message & message, std::string & reason) {
    try {
        message.enveloped = true;
        message.readAsNbr = true;
        readPacket(std::string_view(frame).substr(std::min(frameHead, frame.size())), message);
        message.cls = model.factory->findClass(message.code);
        NoVisitor none;
        NbrFault fault;
        if (message.cls != nullptr && !message.nbr.empty() &&
            !readNbr(viewOf(tav_istr(message.nbr)), none, fault)) {
            reason = "byte " + std::to_string(fault.offset) + " of the message: " + fault.text;
        }
    } catch (std::invalid_argument const & e) {
        reason = reasonOf(e);
    }
    return reason.empty();
}

} // namespace

std::string FrameViews::masked(SeenPacket const & packet) const {
    std::string const & frame = packet.frame;
    std::string result = frame;
    std::string nowhere;
    Output output(nowhere);
    // What is protected in the packet that came is so in its copy as well.
    pml::MetaClass const * const copied = packet.copyOf ? model_.factory->findClass(*packet.copyOf) : nullptr;
    pml::MetaClass const * const classes[] = {nullptr, copied};
    for (std::size_t i = 0; i < (copied == nullptr ? 1u : 2u); ++i) {
        NoTree tree(output);
        DumpTree dump(tree, &model_, reveal_, 1);
        tree.bytes(frame, 0);
        dump.frame(0, frame.size(), classes[i]);
        for (HiddenBytes const & range : dump.hidden()) {
            std::fill(result.begin() + static_cast<std::ptrdiff_t>(range.begin),
                      result.begin() + static_cast<std::ptrdiff_t>(std::min(range.end, result.size())), '*');
        }
    }
    return result;
}

std::string FrameViews::withheld(SeenPacket const & packet, Message const & message) const {
    bool const isCopyOfStranger = packet.copyOf && model_.factory->findClass(*packet.copyOf) == nullptr;
    if (reveal_ || (message.cls != nullptr && !isCopyOfStranger) || message.nbr.empty()) {
        return std::string();
    }
    unsigned short const code = message.cls == nullptr ? message.code : *packet.copyOf;
    return "the template has no class of the code " + codeText(code) + ", so that its " +
           std::to_string(message.nbr.size()) + " bytes are shown with --reveal alone";
}

FrameSummary FrameViews::summary(SeenPacket const & packet) const {
    std::string const & frame = packet.frame;
    FrameSummary shown;
    if (!packet.odd.empty()) {
        shown.size = frame.size();
        shown.text = "sent to misbehave";
        return shown;
    }
    shown.size = frame.size() - std::min(frameHead, frame.size());
    Message message;
    std::string reason;
    bool const good = readFrame(masked(packet), model_, message, reason);
    std::string const why = withheld(packet, message);
    shown.code = message.code;
    shown.sequence = message.envelope.sequence;
    constexpr unsigned kind = 0xF0;
    constexpr unsigned asks = 0x20;
    constexpr unsigned given = 0x30;
    unsigned const affirm = message.envelope.affirm & kind;
    shown.receipt = affirm == asks ? "asks" : affirm == given ? "receipt" : "";
    shown.className = message.cls == nullptr ? std::string() : stringOf(message.cls->className);
    if (!good) {
        shown.text = "broken: " + reason;
    } else if (!why.empty()) {
        shown.text = why;
    } else if (message.nbr.empty()) {
        shown.text.clear();
    } else if (message.nbr.size() > largestLine) {
        shown.text = std::to_string(message.nbr.size()) + " bytes";
    } else {
        try {
            shown.text = cut(jsonOf(message.code, viewOf(tav_istr(message.nbr)), model_), lineBytes);
        } catch (std::invalid_argument const & e) {
            shown.text = "not what its class says: " + reasonOf(e);
        }
    }
    return shown;
}

std::string FrameViews::tree(std::string const & frame, bool annotated) const {
    constexpr std::size_t shownBytes = 200;
    std::string text;
    Output output(text);
    TextTree tree(output, annotated);
    DumpTree dump(tree, &model_, reveal_, shownBytes);
    tree.bytes(frame, 0);
    dump.frame(0, frame.size(), nullptr);
    return cut(std::move(text), largestView);
}

std::string FrameViews::text(Message const & message, Encoding encoding) const {
    ConvertOptions options;
    options.to = encoding;
    options.pretty = true;
    std::string text;
    Output output(text);
    try {
        Message copy = message;
        makeSink(options, model_, output)->put(copy);
    } catch (std::exception const & e) {
        return "It can't be shown so: " + reasonOf(e);
    }
    return cut(std::move(text), largestView);
}

FrameDetails FrameViews::details(SeenPacket const & packet) const {
    std::string const & frame = packet.frame;
    FrameDetails shown;
    if (!packet.odd.empty()) {
        shown.envelope = shown.json = shown.pml = shown.xml = shown.nbr =
            "It is no frame, but " + packet.odd + ", sent to misbehave.";
        Output output(shown.bytes);
        TextTree tree(output, true);
        tree.bytes(frame, 0);
        TreeLine line;
        line.pieces.push_back({0, frame.size(), packet.odd, false});
        tree.leaf(line);
        return shown;
    }
    Message message;
    std::string reason;
    std::string const bytes = masked(packet);
    bool const good = readFrame(bytes, model_, message, reason);
    std::string const why = withheld(packet, message);
    if (good && !why.empty()) {
        shown.envelope = "{" + envelopeText(message) + "}";
        shown.json = shown.pml = shown.xml = shown.nbr = shown.bytes = why;
        return shown;
    }
    // What a copy has hidden is not known to its own class.
    shown.nbr = tree(packet.copyOf ? bytes : frame, false);
    shown.bytes = tree(packet.copyOf ? bytes : frame, true);
    if (!good) {
        shown.envelope = shown.json = shown.pml = shown.xml = "It is broken: " + reason;
        return shown;
    }
    shown.envelope = "{" + envelopeText(message) + "}";
    shown.json = text(message, Encoding::json);
    shown.pml = text(message, Encoding::pml);
    shown.xml = text(message, Encoding::xml);
    return shown;
}

} // namespace tool
} // namespace tav
