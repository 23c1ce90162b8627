#include "tav/vinta/vinta_transport_message.h"

#include "foundation/report.h"
#include "tav/vinta/vinta_basetypes_util.h"
#include "tav/vinta/vinta_nbr_unit.h"

#include <limits>
#include <new>
#include <sstream>
#include <stdexcept>

namespace {

constexpr unsigned headerSize = 12;
constexpr unsigned headSizeBytes = 2;

enum Protocol : unsigned char {
    NOTHING = 0,
    TEXT = 1,
    BINARY = 2,
    NBR = 3,
    PML = 5,
    XML = 6,
    JSON = 7,
    HEARTBEAT = 8,
    UNKNOWN_PROTOCOL = 255
};

enum Direction : unsigned char { ARG = 0, ACK = 1, NOTIFY = 2, UNKNOWN_DIRECTION = 255 };

tavString numbered(char const * prefix, unsigned char value) {
    return tavString(prefix + std::to_string(static_cast<signed char>(value)));
}

} // namespace

tavGateMessage::tavGateMessage() : tavGateMessage(UNKNOWN_PROTOCOL, UNKNOWN_DIRECTION) {}

tavGateMessage::tavGateMessage(unsigned char protocol, unsigned char direction)
    : tavGateMessage(protocol, 0, 0, direction, 0, 0, 0, tav_istr(), tav_istr()) {}

tavGateMessage::tavGateMessage(unsigned char protocol, unsigned char domain, unsigned char code,
                               unsigned char direction, int sequence, unsigned char extra1,
                               unsigned char extra2, tav_istr head, tav_istr body)
    : protocol_(protocol),
      domain_(domain),
      code_(code),
      direction_(direction),
      sequence_(sequence),
      extra1_(extra1),
      extra2_(extra2),
      head_(head),
      body_(body) {}

tavGateMessage::tavGateMessage(unsigned char protocol, unsigned char domain, unsigned char code,
                               unsigned char direction, int sequence, tav_istr body)
    : tavGateMessage(protocol, domain, code, direction, sequence, 0, 0, tav_istr(), body) {}

tavGateMessage::tavGateMessage(unsigned char protocol, int type, unsigned char direction, int sequence,
                               tav_istr body)
    : tavGateMessage(protocol, get_type_domain(type), get_type_code(type), direction, sequence, body) {}

tavGateMessage tavGateMessage::HEARTBEAT_MESSAGE() {
    return tavGateMessage(HEARTBEAT, NOTIFY);
}

tavGateMessage tavGateMessage::createArg(int type, tavString const & text) {
    return tavGateMessage(TEXT, type, ARG, 0, tav_istr(text));
}

tavGateMessage tavGateMessage::createArg(int type, char const * text) {
    return tavGateMessage(TEXT, type, ARG, 0, tav_istr(text));
}

tavGateMessage tavGateMessage::createArg(int type, std::string const & text) {
    return tavGateMessage(TEXT, type, ARG, 0, tav_istr(text));
}

tavGateMessage tavGateMessage::createArg(int type, tav_istr bytes) {
    return createArg(type, 0, bytes);
}

tavGateMessage tavGateMessage::createArg(int type, int sequence, tav_istr bytes) {
    return tavGateMessage(BINARY, type, ARG, sequence, bytes);
}

tavGateMessage tavGateMessage::createAck(int type, tavString const & text) {
    return tavGateMessage(TEXT, type, ACK, 0, tav_istr(text));
}

tavGateMessage tavGateMessage::createAck(int type, char const * text) {
    return tavGateMessage(TEXT, type, ACK, 0, tav_istr(text));
}

tavGateMessage tavGateMessage::createAck(int type, std::string const & text) {
    return tavGateMessage(TEXT, type, ACK, 0, tav_istr(text));
}

tavGateMessage tavGateMessage::createAck(int type, tav_istr bytes) {
    return createAck(type, 0, bytes);
}

tavGateMessage tavGateMessage::createAck(int type, int sequence, tav_istr bytes) {
    return tavGateMessage(BINARY, type, ACK, sequence, bytes);
}

tavGateMessage tavGateMessage::createAck() const {
    if (direction_ != ARG && direction_ != NOTIFY) {
        return tavGateMessage();
    }
    return tavGateMessage(protocol_, domain_, code_, direction_ == ARG ? ACK : NOTIFY, sequence_, extra1_,
                          extra2_, tav_istr(), tav_istr());
}

int tavGateMessage::make_type(unsigned char domain, unsigned char code) {
    return tavUtil::bytes2int(domain, code);
}

unsigned char tavGateMessage::get_type_domain(int type) {
    return tavUtil::int2byte(type >> 8);
}

unsigned char tavGateMessage::get_type_code(int type) {
    return tavUtil::int2byte(type);
}

tavString tavGateMessage::getProtocolString(unsigned char protocol) {
    switch (protocol) {
    case UNKNOWN_PROTOCOL: return "UNKNOWN";
    case NOTHING: return "NOTHING";
    case TEXT: return "TEXT";
    case BINARY: return "BINARY";
    case NBR: return "NBR";
    case PML: return "PML";
    case XML: return "XML";
    case JSON: return "JSON";
    case HEARTBEAT: return "HEARTBEAT";
    default: return numbered("PROTOCOL~", protocol);
    }
}

tavString tavGateMessage::getDirectionString(unsigned char direction) {
    switch (direction) {
    case UNKNOWN_DIRECTION: return "UNKNOWN";
    case ARG: return "ARG";
    case ACK: return "ACK";
    case NOTIFY: return "NOTIFY";
    default: return numbered("DIRECTION~", direction);
    }
}

int tavGateMessage::type() const {
    return make_type(domain_, code_);
}

tavGateMessage & tavGateMessage::setType(int type) {
    domain_ = get_type_domain(type);
    code_ = get_type_code(type);
    return *this;
}

unsigned char tavGateMessage::protocol() const {
    return protocol_;
}

unsigned char tavGateMessage::domain() const {
    return domain_;
}

unsigned char tavGateMessage::code() const {
    return code_;
}

unsigned char tavGateMessage::direction() const {
    return direction_;
}

int tavGateMessage::sequence() const {
    return sequence_;
}

unsigned char tavGateMessage::extra1() const {
    return extra1_;
}

unsigned char tavGateMessage::extra2() const {
    return extra2_;
}

tavBytes const & tavGateMessage::head() const {
    return head_;
}

tavBytes const & tavGateMessage::body() const {
    return body_;
}

unsigned short tavGateMessage::headSize() const {
    return static_cast<unsigned short>(head_.size() & 0xffff);
}

unsigned tavGateMessage::bodySize() const {
    return body_.size();
}

unsigned tavGateMessage::size() const {
    return headerSize + headSize() + bodySize();
}

bool tavGateMessage::isEmpty() const {
    return protocol_ == UNKNOWN_PROTOCOL && direction_ == UNKNOWN_DIRECTION;
}

bool tavGateMessage::isHeartbeat() const {
    return protocol_ == HEARTBEAT;
}

void tavGateMessage::encode(tavBytes & out) const {
    unsigned long long const needed = 0ull + out.size() + headerSize + head_.size() + body_.size();
    if (needed > std::numeric_limits<unsigned>::max()) {
        throw std::bad_alloc();
    }
    out.resize(static_cast<unsigned>(needed));
    out.writeByte(protocol_).writeByte(domain_).writeByte(code_).writeByte(direction_);
    out.writeBigEndian(sequence_);
    out.writeByte(extra1_).writeByte(extra2_);
    out.writeBigEndian(headSize());
    out.writeBytes(head_).writeBytes(body_);
}

void tavGateMessage::decode(tav_istr data) {
    if (data.size() < headerSize) {
        throw std::invalid_argument("IllegalArgumentException");
    }
    // Both blocks are copied ahead of the rest: `data` may be a view of this message's own bytes.
    tav_istr blocks = data.removeLeft(headerSize - headSizeBytes);
    unsigned short const head_size = blocks.readBigEndianUint16();
    tavBytes head(blocks.readBytes(head_size));
    tavBytes body(blocks);
    protocol_ = data.readByte();
    domain_ = data.readByte();
    code_ = data.readByte();
    direction_ = data.readByte();
    sequence_ = data.readBigEndianInt32();
    extra1_ = data.readByte();
    extra2_ = data.readByte();
    head_.swap(head);
    body_.swap(body);
}

tavGateMessage tavGateMessage::from(tav_istr data) {
    try {
        tavGateMessage message;
        message.decode(data);
        return message;
    } catch (std::bad_alloc const &) {
        throw;
    } catch (std::exception const & e) {
        tav::detail::log(tavLogger::DEFAULT_TAG(), tavLogger::ERROR,
                         tav::detail::here("tavGateMessage::from"),
                         [&e](std::ostream & out) { out << e.what(); });
        return tavGateMessage();
    }
}

void tavGateMessage::dump(std::ostream & out) const {
    // The target's stream may have flags of its own, and gets nothing if a body can't be printed.
    std::ostringstream line;
    line << getProtocolString(protocol_) << ' ' << static_cast<unsigned>(domain_) << ' '
         << static_cast<unsigned>(code_) << ' ' << getDirectionString(direction_) << ' ' << sequence_ << ' '
         << static_cast<unsigned>(extra1_) << ' ' << static_cast<unsigned>(extra2_);
    line << " [" << head_.size() << ']';
    if (!head_.empty()) {
        dump_str(line, protocol_, head_);
    }
    if (!body_.empty()) {
        line << " [" << body_.size() << ']';
        dump_str(line, protocol_, body_);
    }
    out << tav::detail::printedText(line);
}

void tavGateMessage::dump_str(std::ostream & out, unsigned char protocol, tavBytes const & bytes) {
    switch (protocol) {
    case TEXT:
    case PML:
    case XML:
    case JSON: out << tav_istr(bytes); break;
    case NBR: out << tav::nbr::_PrintNbr(tav_istr(bytes), false); break;
    default: out << bytes;
    }
}
