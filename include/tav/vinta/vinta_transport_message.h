#ifndef TAV_VINTA_TRANSPORT_MESSAGE_H
#define TAV_VINTA_TRANSPORT_MESSAGE_H

#include "tav/vinta/vinta_api.h"
#include "tav/vinta/vinta_basetypes_bytes.h"
#include "tav/vinta/vinta_basetypes_text.h"

#include <iosfwd>
#include <string>

/// A message with a 12-byte header, for gateways that speak typed requests, acknowledgements and notices.
/// The TLS client does not use it.
///
/// On the wire, numbers big-endian: protocol, domain, code, direction (a byte each), sequence (4 bytes,
/// signed), two extra bytes, the head's size (2 bytes), the head, and the body up to the end.  The type is
/// domain times 256 plus code.
///
/// Protocols, with their names: 0 NOTHING, 1 TEXT, 2 BINARY, 3 NBR, 5 PML, 6 XML, 7 JSON, 8 HEARTBEAT,
/// 255 UNKNOWN.  Directions: 0 ARG, 1 ACK, 2 NOTIFY, 255 UNKNOWN.
///
/// A value: copies share nothing.  One message belongs to one thread at a time.
class TAV_API tavGateMessage {
public:
    /// The empty message: protocol and direction 255, all else 0 or empty.
    tavGateMessage();
    tavGateMessage(unsigned char protocol, unsigned char direction);
    tavGateMessage(unsigned char protocol, unsigned char domain, unsigned char code, unsigned char direction,
                   int sequence, unsigned char extra1, unsigned char extra2, tav_istr head, tav_istr body);
    tavGateMessage(unsigned char protocol, unsigned char domain, unsigned char code, unsigned char direction,
                   int sequence, tav_istr body);
    tavGateMessage(unsigned char protocol, int type, unsigned char direction, int sequence, tav_istr body);

    /// Protocol 8, direction 2, all else 0 or empty.
    static tavGateMessage HEARTBEAT_MESSAGE();

    /// A request: text travels under the protocol TEXT, bytes under BINARY.
    static tavGateMessage createArg(int type, tavString const & text);
    static tavGateMessage createArg(int type, char const * text);
    static tavGateMessage createArg(int type, std::string const & text);
    static tavGateMessage createArg(int type, tav_istr bytes);
    static tavGateMessage createArg(int type, int sequence, tav_istr bytes);

    /// An acknowledgement, likewise.
    static tavGateMessage createAck(int type, tavString const & text);
    static tavGateMessage createAck(int type, char const * text);
    static tavGateMessage createAck(int type, std::string const & text);
    static tavGateMessage createAck(int type, tav_istr bytes);
    static tavGateMessage createAck(int type, int sequence, tav_istr bytes);
    /// The answer to this message, without head and body: to a request the acknowledgement, to a notice a
    /// notice, to all others the empty message.
    tavGateMessage createAck() const;

    static int make_type(unsigned char domain, unsigned char code);
    /// Bits 8 to 15.
    static unsigned char get_type_domain(int type);
    /// Bits 0 to 7.
    static unsigned char get_type_code(int type);

    /// The name; for a value without one "PROTOCOL~" or "DIRECTION~" and the value as a signed byte.
    static tavString getProtocolString(unsigned char protocol);
    static tavString getDirectionString(unsigned char direction);

    int type() const;
    tavGateMessage & setType(int type);
    unsigned char protocol() const;
    unsigned char domain() const;
    unsigned char code() const;
    unsigned char direction() const;
    int sequence() const;
    unsigned char extra1() const;
    unsigned char extra2() const;
    tavBytes const & head() const;
    tavBytes const & body() const;

    /// As the wire has it: cut to 16 bits.  A head of 65536 bytes or more can't be told from a shorter one by
    /// who reads it, although `encode` writes all of its bytes.
    unsigned short headSize() const;
    unsigned bodySize() const;
    /// 12, `headSize()` and `bodySize()`.
    unsigned size() const;
    /// Protocol and direction are both 255.
    bool isEmpty() const;
    bool isHeartbeat() const;

    /// Appends the message to `out`.
    void encode(tavBytes & out) const;

    /// Takes the fields from `data`.  A head or body that is cut short is taken as far as it goes.
    /// Throws std::invalid_argument, and changes nothing, if there are fewer than 12 bytes.
    void decode(tav_istr data);

    /// The message that `data` holds; the empty message, and a line in the log, if decoding fails.  Throws
    /// std::bad_alloc when memory is short.
    static tavGateMessage from(tav_istr data);

    /// One line for logs, without a line end.  Throws what printing a malformed NBR body throws.
    void dump(std::ostream & out) const;

    /// Prints `bytes` as text, as an NBR tree or in the form of tavBytes, whatever `protocol` stands for.
    static void dump_str(std::ostream & out, unsigned char protocol, tavBytes const & bytes);

private:
    unsigned char protocol_;
    unsigned char domain_;
    unsigned char code_;
    unsigned char direction_;
    int sequence_;
    unsigned char extra1_;
    unsigned char extra2_;
    tavBytes head_;
    tavBytes body_;
};

#endif
