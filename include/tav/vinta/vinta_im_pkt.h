#ifndef TAV_VINTA_IM_PKT_H
#define TAV_VINTA_IM_PKT_H

#include "tav/vinta/vinta_api.h"
#include "tav/vinta/vinta_basetypes_bytes.h"
#include "tav/vinta/vinta_basetypes_codec.h"
#include "tav/vinta/vinta_basetypes_text.h"
#include "tav/vinta/vinta_locks.h"
#include "tav/vinta/vinta_object.h"

#include <iosfwd>

/// The unit that crosses the connection: a message code, a sequence, session data and a body whose bytes the
/// packet never looks into.  Two wire formats share one interface.
///
/// PacketMobile, all numbers big-endian:
///
///     offset  size      field
///     0       2         version
///     2       1         affirm: 0x20 asks for a receipt, 0x30 is one
///     3       2         code
///     5       1         flags: bit 0 is grey, the others are carried as they are
///     6       2         sequence
///     8       8         session
///     16      2         ext size          from version 6 on only
///     18      ext size  ext, an NBR object  from version 6 on only
///     ...     the rest  body
///
///     00 06  00  12 34  00  00 02  00 00 00 00 00 00 00 03  00 00  41 42
///
/// PacketPC is a head of four bytes, three zeros and `kind`, and nine NBR values without tags: kind, sub kind
/// (one byte each), flag (bool), sequence (64 bits), extra (32 bits), target (text), code (one signed byte),
/// body (bytes), option (bytes: a ProtocolOption as an NBR object).
///
/// In both, the second byte tells the format: 0 is a PacketPC.
///
/// Thread safety: none.  A packet is filled by one thread and only read afterwards.
namespace tav {
namespace im {

/// The option block of a PacketPC.  The library carries these values and acts on none but `sessionId`.
/// All fields are always present on the wire; an optional one that is not set travels as a null.
class TAV_API ProtocolOption : public tavObject {
public:
    ProtocolOption();

    int version;                                ///< Id 1.
    tavOptional<unsigned long long> currentPos; ///< Id 2.
    tavOptional<unsigned long long> totalSize;  ///< Id 3.
    tavOptional<bool> no_resend;                ///< Id 4.
    tavString target;                           ///< Id 5.
    tavOptional<bool> crypt;                    ///< Id 6.
    long long sessionId;                        ///< Id 8; what Packet::session answers.
    long long gwtd;                             ///< Id 13.
    tavString hmac;                             ///< Id 14.

    tav_istr className() const override;
    tav_istr baseName() const override;
    tavObject * newInstance() const override;
    void assignFrom(tavObject const & other) override;

protected:
    void traverse(tavCodecStream & s) override;
};

/// A packet of either format.  A field that a format lacks is set without effect and answers its null value.
/// The views that it answers are valid until the field is next set, or the packet decoded or destroyed.
class TAV_API Packet : public tavSharedObject {
public:
    /// A new PacketMobile of this version, or a new PacketPC, which has none, if `mobile` is false.
    static tavSharedPtr<Packet> create(bool mobile, unsigned short version);

    ~Packet() override;

    /// Appends the wire form to `out`, which stays as it was if this raises.
    virtual void encode(tavBytes & out) = 0;

    /// Reads the whole of `data`, whose bytes are copied.  False, with a record at ERROR, if the head of a
    /// PacketPC is not zero.  Bytes that must be NBR and can't be raise std::invalid_argument; a PacketPC
    /// then stays as it was.
    virtual bool decode(tav_istr data) = 0;
    /// The same, but takes the bytes over, so that the body of a PacketMobile costs no memory of its own.
    /// What is derived from a PacketMobile is read as one, whatever it makes of the other.
    bool decode(tavBytes && data);

    virtual void setAffirm(unsigned char v) = 0;
    virtual unsigned char affirm() const = 0;

    /// The message code: 16 bits in a PacketMobile, the low 8 in a PacketPC.
    virtual void setCode(unsigned short v) = 0;
    virtual unsigned short code() const = 0;

    /// The sequence: the low 16 bits in a PacketMobile, all in a PacketPC.
    virtual void setSequence(unsigned long long v) = 0;
    virtual unsigned long long sequence() const = 0;

    virtual void setBody(tav_istr v) = 0;
    virtual tav_istr body() const = 0;

    virtual void setSession(unsigned long long v) = 0;
    virtual unsigned long long session() const = 0;

    virtual void setTarget(tav_istr v) = 0;
    virtual tav_istr target() const = 0;

    virtual bool grey() const = 0;
    virtual void setGrey(bool v) = 0;

    virtual unsigned short version() const = 0;

    /// The extension.  An empty one replaces what `ext` answers, but not the bytes that go onto the wire.
    virtual void setExt(tavMsgExt const & v) = 0;
    virtual tavMsgExt ext() const = 0;
};

/// The log form, with session and target masked: `#7 0x1234 00***03 need_affirm {abc***yz} grey v6 [2] ` and
/// the extension.
TAV_API std::ostream & operator<<(std::ostream & out, Packet const & v);

/// The format with the fixed header.  Decoding never fails on short data: what is missing is 0 or empty, and
/// an ext size beyond the end takes what is left.
class TAV_API PacketMobile : public Packet {
public:
    explicit PacketMobile(unsigned short version);
    ~PacketMobile() override;

    void encode(tavBytes & out) override;
    bool decode(tav_istr data) override;
    using Packet::decode;
    void setAffirm(unsigned char v) override;
    unsigned char affirm() const override;
    void setCode(unsigned short v) override;
    unsigned short code() const override;
    void setSequence(unsigned long long v) override;
    unsigned long long sequence() const override;
    void setBody(tav_istr v) override;
    tav_istr body() const override;
    void setSession(unsigned long long v) override;
    unsigned long long session() const override;
    void setTarget(tav_istr v) override;
    tav_istr target() const override;
    bool grey() const override;
    void setGrey(bool v) override;
    unsigned short version() const override;
    void setExt(tavMsgExt const & v) override;
    tavMsgExt ext() const override;

private:
    friend class Packet;

    /// Takes the fields ahead of the body off the front.
    void decodeHead(tav_istr & data);

    unsigned short version_;
    unsigned char affirm_;
    unsigned char code_high_;
    unsigned char code_low_;
    unsigned char flags_;
    unsigned short sequence_;
    unsigned long long session_;
    tavBytes ext_bytes_;
    tavBytes body_;
    tavMsgExt ext_;
};

/// The older format, made of NBR values.  Decoding takes as many of the nine values as there are; the fields
/// of the missing ones stay as they were.
class TAV_API PacketPC : public Packet {
public:
    PacketPC();
    ~PacketPC() override;

    void encode(tavBytes & out) override;
    bool decode(tav_istr data) override;
    using Packet::decode;
    void setAffirm(unsigned char v) override;
    unsigned char affirm() const override;
    void setCode(unsigned short v) override;
    unsigned short code() const override;
    void setSequence(unsigned long long v) override;
    unsigned long long sequence() const override;
    void setBody(tav_istr v) override;
    tav_istr body() const override;
    void setSession(unsigned long long v) override;
    unsigned long long session() const override;
    void setTarget(tav_istr v) override;
    tav_istr target() const override;
    bool grey() const override;
    void setGrey(bool v) override;
    unsigned short version() const override;
    void setExt(tavMsgExt const & v) override;
    tavMsgExt ext() const override;

private:
    unsigned char kind_;
    unsigned char sub_kind_;
    bool flag_;
    unsigned long long sequence_;
    unsigned int extra_;
    tavString target_;
    char code_;
    tavBytes body_;
    ProtocolOption option_;
};

} // namespace im
} // namespace tav

#endif
