#include "tav/vinta/vinta_im_pkt.h"

#include "formats/nbr/nbr_document.h"
#include "foundation/report.h"
#include "tav/vinta/vinta_basetypes_failures.h"
#include "tav/vinta/vinta_nbr_unit.h"

#include <array>
#include <limits>
#include <new>
#include <optional>
#include <sstream>

namespace tav {
namespace im {

namespace {

constexpr unsigned char needsAffirm = 0x20;
constexpr unsigned char isAffirmed = 0x30;
constexpr unsigned char greyFlag = 0x01;
constexpr unsigned short firstVersionWithExt = 6;
constexpr unsigned mobileHeadSize = 16;
constexpr unsigned mobileExtHeadSize = 2;
constexpr unsigned pcHeadSize = 4;
constexpr unsigned pcZeroBytes = 3;
constexpr unsigned pcValues = 9;

/// At least the bytes that a PacketPC takes besides the content of target, body and option, and that its
/// stream asks for ahead of a number.
constexpr unsigned pcFixedSize = 64;

/// Makes room in `out` for `more` bytes behind those that it holds.
void reserve(tavBytes & out, unsigned long long more) {
    unsigned long long const needed = out.size() + more;
    if (needed > std::numeric_limits<unsigned>::max()) {
        throw std::bad_alloc();
    }
    out.resize(static_cast<unsigned>(needed));
}

/// The data of the values of a PacketPC in their order; a null view for one that is missing or not simple.
std::array<tav_istr, pcValues> valuesOf(nbr::detail::Document const & document) {
    std::array<tav_istr, pcValues> values;
    auto const & nodes = document.nodes();
    for (unsigned i = 0, n = 0; i != nodes.size() && n != pcValues; i = document.next(i), ++n) {
        if (nbr::detail::Document::isSimple(nodes[i])) {
            values[n] = document.data(nodes[i]);
        }
    }
    return values;
}

} // namespace

ProtocolOption::ProtocolOption() : version(0), sessionId(0), gwtd(0) {}

tav_istr ProtocolOption::className() const {
    return "ProtocolOption";
}

tav_istr ProtocolOption::baseName() const {
    return "tavObject";
}

tavObject * ProtocolOption::newInstance() const {
    return new ProtocolOption;
}

void ProtocolOption::assignFrom(tavObject const & other) {
    auto const * const from = dynamic_cast<ProtocolOption const *>(&other);
    if (from != nullptr) {
        *this = *from;
    }
}

void ProtocolOption::traverse(tavCodecStream & s) {
    ioField(s, 1, "version", version);
    ioField(s, 2, "currentPos", currentPos);
    ioField(s, 3, "totalSize", totalSize);
    ioField(s, 4, "no_resend", no_resend);
    ioField(s, 5, "target", target);
    ioField(s, 6, "crypt", crypt);
    ioField(s, 8, "sessionId", sessionId);
    ioField(s, 13, "gwtd", gwtd);
    ioField(s, 14, "hmac", hmac);
}

tavSharedPtr<Packet> Packet::create(bool mobile, unsigned short version) {
    if (mobile) {
        return tavSharedPtr<Packet>(new PacketMobile(version));
    }
    return tavSharedPtr<Packet>(new PacketPC);
}

Packet::~Packet() = default;

bool Packet::decode(tavBytes && data) {
    auto * const mobile = dynamic_cast<PacketMobile *>(this);
    if (mobile == nullptr) {
        bool const read = decode(tav_istr(data));
        data.clear();
        return read;
    }
    tav_istr body = data;
    mobile->decodeHead(body);
    data.remove(data.size() - body.size());
    mobile->body_.swap(data);
    return true;
}

std::ostream & operator<<(std::ostream & out, Packet const & v) {
    // asHex leaves its flags behind, and the target's stream may have flags of its own.
    std::ostringstream o;
    o << '#' << v.sequence() << " 0x" << asHex(v.code(), 4, true);
    unsigned long long const session = v.session();
    o << ' ' << asHex(static_cast<long long>(session >> 56), 2, true) << "***"
      << asHex(static_cast<long long>(session & 0xff), 2, true);
    if (v.affirm() == needsAffirm) {
        o << " need_affirm";
    } else if (v.affirm() == isAffirmed) {
        o << " affirmed";
    }
    tav_istr const target = v.target();
    if (!target.empty()) {
        o << " {" << target.leftstr(3) << "***" << target.rightstr(2) << '}';
    }
    if (v.grey()) {
        o << " grey";
    }
    o << " v" << v.version() << " [" << v.body().size() << "] ";
    return out << detail::printedText(o) << v.ext();
}

PacketMobile::PacketMobile(unsigned short pkt_version)
    : version_(pkt_version), affirm_(0), code_high_(0), code_low_(0), flags_(0), sequence_(0), session_(0) {}

PacketMobile::~PacketMobile() = default;

void PacketMobile::encode(tavBytes & out) {
    // The size is cut to its field, but the bytes are not: they go whole unless the cut size is 0.
    bool const extended = version_ >= firstVersionWithExt;
    auto const ext_size = static_cast<unsigned short>(ext_bytes_.size() & 0xffff);
    tav_istr const ext = extended && ext_size != 0 ? tav_istr(ext_bytes_) : tav_istr();
    unsigned const head_size = extended ? mobileHeadSize + mobileExtHeadSize : mobileHeadSize;
    reserve(out, 0ull + head_size + ext.size() + body_.size());
    out.writeBigEndian(version_);
    out.writeByte(affirm_).writeByte(code_high_).writeByte(code_low_).writeByte(flags_);
    out.writeBigEndian(sequence_);
    out.writeBigEndian(session_);
    if (extended) {
        out.writeBigEndian(ext_size);
    }
    out.writeBytes(ext);
    out.writeBytes(body_);
}

bool PacketMobile::decode(tav_istr data) {
    decodeHead(data);
    body_ = data;
    return true;
}

void PacketMobile::decodeHead(tav_istr & data) {
    version_ = data.readBigEndianUint16();
    affirm_ = data.readByte();
    code_high_ = data.readByte();
    code_low_ = data.readByte();
    flags_ = data.readByte();
    sequence_ = data.readBigEndianUint16();
    session_ = data.readBigEndianUint64();
    if (version_ >= firstVersionWithExt) {
        unsigned short const size = data.readBigEndianUint16();
        if (size != 0) {
            ext_bytes_ = data.readBytes(size);
            if (!ext_bytes_.empty()) {
                tavNbrInStream in(ext_bytes_);
                ext_.io(in);
            }
        }
    }
}

void PacketMobile::setAffirm(unsigned char v) {
    affirm_ = v;
}

unsigned char PacketMobile::affirm() const {
    return affirm_;
}

void PacketMobile::setCode(unsigned short v) {
    code_high_ = static_cast<unsigned char>(v >> 8);
    code_low_ = static_cast<unsigned char>(v & 0xff);
}

unsigned short PacketMobile::code() const {
    return static_cast<unsigned short>(code_high_ << 8 | code_low_);
}

void PacketMobile::setSequence(unsigned long long v) {
    sequence_ = static_cast<unsigned short>(v & 0xffff);
}

unsigned long long PacketMobile::sequence() const {
    return sequence_;
}

void PacketMobile::setBody(tav_istr v) {
    body_ = v;
}

tav_istr PacketMobile::body() const {
    return body_;
}

void PacketMobile::setSession(unsigned long long v) {
    session_ = v;
}

unsigned long long PacketMobile::session() const {
    return session_;
}

void PacketMobile::setTarget(tav_istr) {}

tav_istr PacketMobile::target() const {
    return tav_istr();
}

bool PacketMobile::grey() const {
    return (flags_ & greyFlag) != 0;
}

void PacketMobile::setGrey(bool v) {
    flags_ = static_cast<unsigned char>(v ? flags_ | greyFlag : flags_ & ~greyFlag);
}

unsigned short PacketMobile::version() const {
    return version_;
}

void PacketMobile::setExt(tavMsgExt const & v) {
    ext_ = v;
    if (!ext_.empty()) {
        tavBytes bytes = ext_.encode(false);
        ext_bytes_.swap(bytes);
    }
}

tavMsgExt PacketMobile::ext() const {
    return ext_;
}

PacketPC::PacketPC() : kind_(0), sub_kind_(0), flag_(false), sequence_(0), extra_(0), code_(0) {}

PacketPC::~PacketPC() = default;

void PacketPC::encode(tavBytes & out) {
    tavBytes const option = option_.encode(false);
    reserve(out, 0ull + pcFixedSize + target_.size() + body_.size() + option.size());
    // The values go straight behind what `out` holds.  There is room for all, so that none of them raises.
    nbr::NbrOutputStream values;
    values.swap(out);
    for (unsigned i = 0; i < pcZeroBytes; ++i) {
        values.writeRaw(static_cast<unsigned char>(0));
    }
    values.writeRaw(kind_);
    values << kind_ << sub_kind_ << flag_ << sequence_ << extra_ << target_ << code_ << body_ << option;
    values.swap(out);
}

bool PacketPC::decode(tav_istr data) {
    for (unsigned i = 0; i < pcZeroBytes; ++i) {
        if (data[i] != 0) {
            detail::log(tavLogger::DEFAULT_TAG(), tavLogger::ERROR, detail::here("tav::im::PacketPC::decode"),
                        [&](std::ostream & o) { o << "invalid data " << HexDump(data); });
            return false;
        }
    }
    // What can raise comes before the first field is stored.
    nbr::detail::Document document;
    document.view(data.removeLeft(pcHeadSize), pcValues);
    std::array<tav_istr, pcValues> const values = valuesOf(document);
    tav_istr const option_bytes = values[8];
    std::optional<tavNbrInStream> option;
    if (!option_bytes.empty()) {
        option.emplace(option_bytes);
    }
    // The bytes may be of this packet's own target or body: both are read before one goes.
    tavString target;
    tavBytes body;
    bool const hasTarget = nbr::detail::decodeValue(values[5], target);
    bool const hasBody = nbr::detail::decodeValue(values[7], body);
    nbr::detail::decodeValue(values[0], kind_);
    nbr::detail::decodeValue(values[1], sub_kind_);
    nbr::detail::decodeValue(values[2], flag_);
    nbr::detail::decodeValue(values[3], sequence_);
    nbr::detail::decodeValue(values[4], extra_);
    nbr::detail::decodeValue(values[6], code_);
    if (hasTarget) {
        target_.swap(target);
    }
    if (hasBody) {
        body_.swap(body);
    }
    if (option) {
        option_.io(*option);
    }
    return true;
}

void PacketPC::setAffirm(unsigned char) {}

unsigned char PacketPC::affirm() const {
    return 0;
}

void PacketPC::setCode(unsigned short v) {
    code_ = static_cast<char>(v & 0xff);
}

unsigned short PacketPC::code() const {
    return static_cast<unsigned char>(code_);
}

void PacketPC::setSequence(unsigned long long v) {
    sequence_ = v;
}

unsigned long long PacketPC::sequence() const {
    return sequence_;
}

void PacketPC::setBody(tav_istr v) {
    body_ = v;
}

tav_istr PacketPC::body() const {
    return body_;
}

void PacketPC::setSession(unsigned long long v) {
    option_.sessionId = static_cast<long long>(v);
}

unsigned long long PacketPC::session() const {
    return static_cast<unsigned long long>(option_.sessionId);
}

void PacketPC::setTarget(tav_istr v) {
    target_ = v;
}

tav_istr PacketPC::target() const {
    return target_;
}

bool PacketPC::grey() const {
    return false;
}

void PacketPC::setGrey(bool) {}

unsigned short PacketPC::version() const {
    return 0;
}

void PacketPC::setExt(tavMsgExt const &) {}

tavMsgExt PacketPC::ext() const {
    return tavMsgExt();
}

} // namespace im
} // namespace tav
