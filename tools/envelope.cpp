#include "tools/envelope.h"

#include "tools/integers.h"
#include "tools/nbr_reader.h"
#include "tools/value_text.h"

#include <tav/vinta/vinta_im_pkt.h>

#include <algorithm>
#include <iterator>
#include <limits>

namespace tav {
namespace tool {

namespace {

constexpr std::size_t oldHead = 4;
constexpr std::size_t oldValues = 9;
constexpr std::size_t oldBody = 7;
constexpr unsigned short firstWithExtension = 6;
constexpr unsigned short largestOldCode = 0xFF;

/// Takes numbers off the front of a packet.
class Head {
public:
    explicit Head(std::string_view bytes) : bytes_(bytes) {}

    unsigned long long number(std::size_t size, char const * name) {
        unsigned long long value = 0;
        for (char const c : take(size, name)) {
            value = value << 8 | static_cast<unsigned char>(c);
        }
        return value;
    }
    std::string_view take(std::size_t size, char const * name) {
        if (bytes_.size() - at_ < size) {
            throw PlacedFault(bytes_.size(), std::string("the packet ends within its ") + name);
        }
        at_ += size;
        return bytes_.substr(at_ - size, size);
    }
    std::size_t at() const { return at_; }

private:
    std::string_view bytes_;
    std::size_t at_ = 0;
};

void appendNumber(std::string & to, unsigned long long value, std::size_t size) {
    for (std::size_t i = size; i-- != 0;) {
        to += static_cast<char>(value >> (8 * i) & 0xFFu);
    }
}

std::string mobilePacket(Envelope const & e, unsigned short code, std::string_view body) {
    std::string packet;
    appendNumber(packet, e.version, 2);
    appendNumber(packet, e.affirm, 1);
    appendNumber(packet, code, 2);
    appendNumber(packet, e.flags, 1);
    appendNumber(packet, e.sequence, 2);
    appendNumber(packet, e.session, 8);
    if (e.version >= firstWithExtension) {
        appendNumber(packet, e.extension.size(), 2);
        packet += e.extension;
    }
    packet += body;
    return packet;
}

std::string oldPacket(Envelope const & e, unsigned short code, std::string_view body) {
    if (e.ahead.empty()) {
        tavSharedPtr<im::Packet> const packet = im::Packet::create(false, 0);
        packet->setCode(code);
        packet->setSequence(e.sequence);
        packet->setSession(e.session);
        packet->setBody(istrOf(body));
        tavBytes bytes;
        packet->encode(bytes);
        return std::string(viewOf(tav_istr(bytes)));
    }
    std::string size;
    for (std::size_t rest = body.size(); size.empty() || rest != 0 || (size.back() & 0x80) != 0; rest >>= 8) {
        size += static_cast<char>(rest & 0xFFu);
    }
    return e.ahead + static_cast<char>(size.size()) + size + std::string(body) + e.behind;
}

/// Notes where the values of an old packet stand.
class OldValues : public NbrVisitor {
public:
    void simple(NbrValue const & value) override {
        if (depth_ == 0) {
            values.push_back(value);
        }
    }
    void open(NbrValue const & value) override {
        if (depth_++ == 0) {
            throw PlacedFault(oldHead + value.begin, "an old packet has no objects among its values");
        }
    }
    void close(std::size_t) override { --depth_; }

    std::vector<NbrValue> values;

private:
    std::size_t depth_ = 0;
};

std::size_t readMobile(std::string_view packet, Message & message) {
    Head head(packet);
    Envelope & e = message.envelope;
    e.version = static_cast<unsigned short>(head.number(2, "version"));
    e.affirm = static_cast<unsigned char>(head.number(1, "affirm"));
    message.code = static_cast<unsigned short>(head.number(2, "code"));
    e.flags = static_cast<unsigned char>(head.number(1, "flags"));
    e.sequence = head.number(2, "sequence");
    e.session = head.number(8, "session");
    if (e.version >= firstWithExtension) {
        std::size_t const size = static_cast<std::size_t>(head.number(2, "size of the extension"));
        e.extension = std::string(head.take(size, "extension"));
    }
    message.nbr = istrOf(packet.substr(head.at()));
    return head.at();
}

std::size_t readOld(std::string_view packet, Message & message) {
    if (packet.size() < oldHead || packet.substr(0, 3) != std::string_view("\0\0\0", 3)) {
        throw PlacedFault(0, "the head of an old packet begins with three zeros");
    }
    OldValues found;
    NbrFault fault;
    if (!readNbr(packet.substr(oldHead), found, fault)) {
        throw PlacedFault(oldHead + fault.offset, fault.text);
    }
    if (found.values.size() != oldValues) {
        throw PlacedFault(packet.size(),
                          "an old packet has nine values, and " + thereAre(found.values.size()));
    }
    tavSharedPtr<im::Packet> const decoded = im::Packet::create(false, 0);
    decoded->decode(istrOf(packet));
    NbrValue const & body = found.values[oldBody];
    Envelope & e = message.envelope;
    message.code = decoded->code();
    e.sequence = decoded->sequence();
    e.session = decoded->session();
    std::size_t const begin = oldHead + body.data;
    message.nbr = istrOf(packet.substr(begin, body.size));
    if (oldPacket(e, message.code, packet.substr(begin, body.size)) != packet) {
        e.ahead = std::string(packet.substr(0, oldHead + body.head));
        e.behind = std::string(packet.substr(begin + body.size));
    }
    return begin;
}

std::string base64Of(std::string const & bytes) {
    tavString text;
    tavBytes(istrOf(bytes)).toBase64(text);
    return stringOf(text);
}

std::string member(char const * name, unsigned long long value, bool quoted = false) {
    char const * const quote = quoted ? "\"" : "";
    return std::string(",\"") + name + "\":" + quote + std::to_string(value) + quote;
}

/// Reads members of an envelope.
class Members {
public:
    explicit Members(JsonText const & json) : json_(json) {}

    unsigned long long number(char const * name, unsigned long long most, unsigned long long absent) const {
        JsonNode const * const node = json_.member(json_.root(), name);
        if (node == nullptr) {
            return absent;
        }
        Integer value;
        bool const simple = node->kind == JsonNode::Kind::number || node->kind == JsonNode::Kind::string;
        if (!simple || !readInteger(json_.content(*node), value) || value.negative ||
            value.magnitude > most) {
            throw PlacedFault(node->begin,
                              std::string(name) + " is a number from 0 to " + std::to_string(most));
        }
        return value.magnitude;
    }
    bool truth(char const * name) const {
        JsonNode const * const node = json_.member(json_.root(), name);
        if (node != nullptr && node->kind != JsonNode::Kind::boolean) {
            throw PlacedFault(node->begin, std::string(name) + " is true or false");
        }
        return node != nullptr && json_.content(*node) == "true";
    }
    std::string bytes(char const * name) const {
        JsonNode const * const node = json_.member(json_.root(), name);
        if (node == nullptr) {
            return {};
        }
        tavBytes out;
        std::string const text = node->quoted ? unescaped(json_.content(*node)) : "?";
        tavBase64::decode(istrOf(text), out);
        std::string const decoded(viewOf(tav_istr(out)));
        if (base64Of(decoded) != text) {
            throw PlacedFault(node->begin, std::string(name) + " has bytes as a text of base64");
        }
        return decoded;
    }

private:
    JsonText const & json_;
};

/// What an envelope of this kind does not have would be lost.
void refuseOthers(JsonText const & json, bool mobile) {
    static std::string_view const common[] = {"packet", "code",  "sequence", "session", "body",
                                              "bytes",  "order", "version",  "affirm",  "grey"};
    for (JsonNode const * at = json.node(json.root().firstChild); at != nullptr; at = json.node(at->next)) {
        bool const known = std::find(std::begin(common), std::end(common), at->name) != std::end(common) ||
                           (mobile ? at->name == "flags" || at->name == "extension"
                                   : at->name == "ahead" || at->name == "behind");
        if (!known) {
            throw PlacedFault(at->nameAt,
                              "no envelope of this packet has the member " + std::string(at->name));
        }
    }
}

} // namespace

std::size_t readPacket(std::string_view packet, Message & message) {
    message.envelope.mobile = packet.size() > 1 && packet[1] != '\0';
    return message.envelope.mobile ? readMobile(packet, message) : readOld(packet, message);
}

std::string packetOf(Envelope const & envelope, unsigned short code, std::string_view body) {
    return envelope.mobile ? mobilePacket(envelope, code, body) : oldPacket(envelope, code, body);
}

std::string envelopeText(Message const & message) {
    Envelope const & e = message.envelope;
    std::string text = std::string("\"packet\":\"") + (e.mobile ? "mobile" : "old") + "\"";
    text += member("version", e.version) + member("code", message.code) +
            member("sequence", e.sequence, true) + member("session", e.session, true) +
            member("affirm", e.affirm) + ",\"grey\":" + ((e.flags & 1u) != 0 ? "true" : "false");
    text += e.flags > 1 ? member("flags", e.flags) : "";
    text += e.extension.empty() ? "" : ",\"extension\":\"" + base64Of(e.extension) + "\"";
    text += e.ahead.empty()
                ? ""
                : ",\"ahead\":\"" + base64Of(e.ahead) + "\",\"behind\":\"" + base64Of(e.behind) + "\"";
    return text;
}

void readEnvelope(JsonText const & json, Message & message) {
    JsonNode const * const kind = json.member(json.root(), "packet");
    std::string_view const word = kind == nullptr ? std::string_view() : json.content(*kind);
    if (word != "mobile" && word != "old" && word != "heartbeat") {
        throw PlacedFault(kind == nullptr ? 0 : kind->begin,
                          "an envelope has a member packet: mobile, old or heartbeat");
    }
    message.enveloped = true;
    message.heartbeat = word == "heartbeat";
    if (message.heartbeat) {
        return;
    }
    Envelope & e = message.envelope;
    e.mobile = word == "mobile";
    refuseOthers(json, e.mobile);
    Members const members(json);
    JsonNode const * const code = json.member(json.root(), "code");
    if (code == nullptr) {
        throw PlacedFault(0, "an envelope has a member code");
    }
    message.code = static_cast<unsigned short>(
        members.number("code", e.mobile ? Message::noCode - 1 : largestOldCode, 0));
    e.version = static_cast<unsigned short>(members.number("version", 0xFFFF, firstWithExtension));
    if (e.mobile && (e.version & 0xFFu) == 0) {
        throw PlacedFault(json.member(json.root(), "version")->begin,
                          "a mobile packet has no version whose low byte is 0: it is read as an old one");
    }
    e.affirm = static_cast<unsigned char>(members.number("affirm", 0xFF, 0));
    bool const grey = members.truth("grey");
    e.flags = static_cast<unsigned char>(members.number("flags", 0xFF, grey ? 1 : 0));
    e.flags = static_cast<unsigned char>((e.flags & 0xFEu) | (grey ? 1u : 0u));
    e.sequence =
        members.number("sequence", e.mobile ? 0xFFFF : std::numeric_limits<unsigned long long>::max(), 0);
    e.session = members.number("session", std::numeric_limits<unsigned long long>::max(), 0);
    e.extension = members.bytes("extension");
    e.ahead = members.bytes("ahead");
    e.behind = members.bytes("behind");
    std::string const bytes = members.bytes("bytes");
    message.nbr = istrOf(bytes);
}

} // namespace tool
} // namespace tav
