#include "tools/dump_tree.h"

#include "tools/nbr_reader.h"
#include "tools/value_text.h"

#include <tav/vinta/vinta_transport_message.h>

#include <algorithm>
#include <cstdio>
#include <vector>

namespace tav {
namespace tool {

using pml::MetaClass;
using pml::MetaField;

namespace kinds = pml::field_type;

namespace {

constexpr std::size_t largestFrame = 0xFFFFFF;
constexpr std::size_t frameHead = 4;
constexpr std::size_t gateHead = 12;

/// Names by tag; no name is an empty text.
char const * const extNames[] = {"", "serverTime", "clientTime", "traceId"};
char const * const optionNames[] = {"",       "version", "currentPos", "totalSize", "no_resend",
                                    "target", "crypt",   "",           "sessionId", "",
                                    "",       "",        "",           "gwtd",      "hmac"};
char const * const oldNames[] = {"kind",   "subKind", "flag", "sequence", "extra",
                                 "target", "code",    "body", "option"};
constexpr std::size_t oldCode = 6;
constexpr std::size_t oldBody = 7;
constexpr std::size_t oldOption = 8;

unsigned long long bigEndian(std::string_view bytes) {
    unsigned long long value = 0;
    for (char const c : bytes) {
        value = value << 8 | static_cast<unsigned char>(c);
    }
    return value;
}

std::string hexNumber(unsigned long long value) {
    char text[24];
    std::snprintf(text, sizeof(text), "0x%llx", value);
    return text;
}

/// What holds the values that are being read.
struct Context {
    enum class Holds { values, members, elements, entries, entry, named, oldPacket };

    Holds holds = Holds::values;
    /// Of members: their class, null if it is not known.  Of the others the class around them.
    MetaClass const * cls = nullptr;
    MetaField const * field = nullptr;
    /// Of elements, entries and top-level values: their kind.
    Kind kind = kinds::unknown_;
    char const * const * names = nullptr;
    std::size_t count = 0;
    /// How many values have come.
    std::size_t index = 0;
    /// The protected field that all of this stands below; null if there is none.
    MetaField const * guard = nullptr;
};

/// A value with all that is known of it.
struct Spot {
    std::string name;
    MetaField const * field = nullptr;
    MetaClass const * around = nullptr;
    Kind kind = kinds::unknown_;
    std::string note;
    /// The field that protects it; null if none does.
    MetaField const * guard = nullptr;
};

} // namespace

/// Tells the values of a document to the tree.
class DumpTree::NbrTree : public NbrVisitor {
public:
    NbrTree(DumpTree & owner, std::size_t shift, Context root) : owner_(owner), shift_(shift), open_{root} {}

    bool failed() const { return failed_; }
    /// How many values have come at the top.
    std::size_t values() const { return open_.front().index; }

    void simple(NbrValue const & value) override;
    void open(NbrValue const & value) override;
    void close(std::size_t at) override;

private:
    Spot spotOf(NbrValue const & value);
    Spot placeOf(NbrValue const & value);
    Spot memberOf(Context const & in, int tag) const;
    Context contextOf(Spot const & spot, NbrValue const & value) const;
    TreeLine lineOf(Spot const & spot, NbrValue const & value, std::size_t headSize) const;
    std::string typeOf(Spot const & spot, NbrValue const & value) const;
    bool isMasked(Spot const & spot, NbrValue const & value) const;
    void tellData(Spot const & spot, NbrValue const & value);
    std::string notHere(Spot const & spot, NbrValue const & value) const;
    bool nested(std::size_t index, Spot const & spot, NbrValue const & value);

    DumpTree & owner_;
    std::size_t shift_;
    std::vector<Context> open_;
    bool failed_ = false;
    unsigned short code_ = 0;
};

Spot DumpTree::NbrTree::memberOf(Context const & in, int tag) const {
    Spot spot;
    spot.name = "[" + std::to_string(tag) + "]";
    spot.around = in.cls;
    if (in.holds == Context::Holds::named && tag > 0 && static_cast<std::size_t>(tag) < in.count) {
        spot.name += std::string(" ") + in.names[tag];
    } else if (in.cls != nullptr) {
        spot.field = findField(tag, *in.cls, *owner_.model_->factory);
        if (spot.field != nullptr) {
            spot.name += " " + stringOf(spot.field->idName.name);
            spot.kind = spot.field->classType.type;
        } else {
            spot.note = "no field of " + stringOf(in.cls->className) + " has this tag";
        }
    }
    return spot;
}

Spot DumpTree::NbrTree::spotOf(NbrValue const & value) {
    MetaField const * const guard = open_.back().guard;
    Spot spot = placeOf(value);
    spot.guard = guard != nullptr                                   ? guard
                 : spot.field != nullptr && spot.field->isProtected ? spot.field
                                                                    : nullptr;
    return spot;
}

Spot DumpTree::NbrTree::placeOf(NbrValue const & value) {
    Context & in = open_.back();
    std::size_t const index = in.index++;
    Spot spot;
    spot.around = in.cls;
    spot.field = in.field;
    switch (in.holds) {
    case Context::Holds::values: spot.kind = in.kind; break;
    case Context::Holds::oldPacket:
        spot.name = index < std::size(oldNames) ? oldNames[index] : "";
        spot.note = index < std::size(oldNames) ? "" : "a packet has nine values";
        break;
    case Context::Holds::named:
    case Context::Holds::members: return memberOf(in, value.tag);
    case Context::Holds::elements:
        spot.name = "-";
        spot.kind = in.kind;
        break;
    case Context::Holds::entries: spot.name = "-"; break;
    case Context::Holds::entry:
        spot.name = value.tag == 1 ? "key" : value.tag == 2 ? "value" : "[" + std::to_string(value.tag) + "]";
        spot.kind = value.tag == 1 && in.field != nullptr ? static_cast<Kind>(in.field->classType.keyType)
                    : value.tag == 2                      ? in.kind
                                                          : kinds::unknown_;
        break;
    }
    return spot;
}

/// What the complex value at this spot holds.
Context DumpTree::NbrTree::contextOf(Spot const & spot, NbrValue const &) const {
    Context const & around = open_.back();
    Context in;
    in.holds = Context::Holds::members;
    if (around.holds == Context::Holds::values) {
        in.cls = around.cls;
        in.names = around.names;
        in.count = around.count;
        in.holds = in.names != nullptr ? Context::Holds::named : in.holds;
    } else if (around.holds == Context::Holds::entries) {
        in = around;
        in.holds = Context::Holds::entry;
        in.index = 0;
    } else if (spot.kind == kinds::list_ || spot.kind == kinds::ref_list_ || spot.kind == kinds::map_) {
        in.holds = spot.kind == kinds::map_ ? Context::Holds::entries : Context::Holds::elements;
        in.cls = spot.around;
        in.field = spot.field;
        in.kind = spot.field->classType.elementType;
        if (spot.kind == kinds::ref_list_) {
            in.kind = kinds::ref_;
        }
    } else if ((spot.kind == kinds::object_ || spot.kind == kinds::ref_) && spot.field != nullptr) {
        in.cls = findClass(spot.field->classType.name, spot.around, *owner_.model_->factory);
    }
    return in;
}

std::string DumpTree::NbrTree::typeOf(Spot const & spot, NbrValue const & value) const {
    if (spot.kind == kinds::unknown_ || spot.field == nullptr) {
        return value.null ? "" : value.text ? "text" : value.size > 8 || value.size == 0 ? "bytes" : "number";
    }
    Context const & in = open_.back();
    bool const own = in.holds == Context::Holds::members;
    return own ? typeText(*spot.field) : kindName(spot.kind);
}

/// Of what is protected all is masked but numbers where the template has them: what else stands there was
/// meant for something that may be as secret as what it has taken the place of.
bool DumpTree::NbrTree::isMasked(Spot const & spot, NbrValue const & value) const {
    bool const number =
        spot.field != nullptr && widthOf(spot.kind) != 0 && !value.text &&
        oddness(owner_.part(shift_ + value.data, shift_ + value.data + value.size), false, spot.kind).empty();
    return spot.guard != nullptr && !owner_.reveal_ && !number;
}

TreeLine DumpTree::NbrTree::lineOf(Spot const & spot, NbrValue const & value, std::size_t headSize) const {
    TreeLine line;
    line.offset = shift_ + value.begin;
    line.name = spot.name;
    line.note = spot.note;
    if (value.member()) {
        line.pieces.push_back(Piece{shift_ + value.begin, 1, spot.name, false});
    }
    line.pieces.push_back(Piece{shift_ + value.head, headSize, "", false});
    return line;
}

void DumpTree::NbrTree::tellData(Spot const & spot, NbrValue const & value) {
    std::string_view const data = owner_.part(shift_ + value.data, shift_ + value.data + value.size);
    bool const typed = spot.field != nullptr && (kinds::isSimple(spot.kind) || spot.kind == kinds::enum_);
    TreeLine line = lineOf(spot, value, value.data - value.head);
    line.type = typeOf(spot, value);
    bool const hidden = isMasked(spot, value);
    if (value.null) {
        line.value = "null";
    } else if (hidden) {
        line.value = maskedValue(data, *spot.guard);
        line.note = line.note.empty() && !typed ? notHere(spot, value) : line.note;
    } else if (typed) {
        pml::MetaEnum const * const names = spot.kind == kinds::enum_
                                                ? findEnum(*spot.field, *spot.around, *owner_.model_->factory)
                                                : nullptr;
        line.value = data.empty() && spot.kind != kinds::string_
                         ? "(no data)"
                         : typedValue(data, spot.kind, names, owner_.limit_);
        line.note = oddness(data, value.text, spot.kind);
        if (line.note.empty() && names != nullptr && !data.empty() && !isMember(data, *names)) {
            line.note = "no member of " + stringOf(names->name);
        }
    } else {
        line.value = plainValue(data, value.text, owner_.limit_);
        line.note = line.note.empty() ? notHere(spot, value) : line.note;
    }
    std::string const name = spot.name.empty() ? "" : spot.name + ": ";
    line.pieces.back().text =
        value.null ? name + "null" : (value.text ? "text of " : "value of ") + byteCount(value.size);
    if (!value.null && value.size != 0) {
        if (hidden) {
            owner_.hidden_.push_back(HiddenBytes{shift_ + value.data, shift_ + value.data + value.size});
        }
        line.pieces.push_back(
            Piece{shift_ + value.data, value.size, name + line.type + " " + line.value, hidden});
    }
    owner_.to_.leaf(line);
}

/// What is odd in a simple value at a place of what holds others.
std::string DumpTree::NbrTree::notHere(Spot const & spot, NbrValue const & value) const {
    Context const & in = open_.back();
    std::string const what = value.text ? "text" : value.size == 0 || value.size > 8 ? "bytes" : "a number";
    if (in.holds == Context::Holds::entries) {
        return what + " where a map has an entry";
    }
    if (in.holds == Context::Holds::values && in.cls != nullptr && in.names == nullptr) {
        return what + " where " + stringOf(in.cls->className) + " is expected";
    }
    if (spot.field == nullptr || spot.kind == kinds::unknown_) {
        return {};
    }
    bool const own = in.holds == Context::Holds::members;
    bool const isClass = spot.kind == kinds::object_ || spot.kind == kinds::ref_;
    return what + " where the template has " +
           (own       ? typeText(*spot.field)
            : isClass ? stringOf(spot.field->classType.name)
                      : kindName(spot.kind));
}

/// The body and the option of an old packet hold documents of their own.
bool DumpTree::NbrTree::nested(std::size_t index, Spot const & spot, NbrValue const & value) {
    std::size_t const begin = shift_ + value.data;
    std::string_view const data = owner_.part(begin, begin + value.size);
    if (index == oldCode && !data.empty()) {
        code_ = static_cast<unsigned char>(data.front());
    }
    if (value.null || data.empty() || (index != oldBody && index != oldOption)) {
        return false;
    }
    TreeLine line = lineOf(spot, value, value.data - value.head);
    line.value = byteCount(value.size);
    line.pieces.back().text = spot.name + ": " + line.value;
    owner_.to_.open(line);
    MetaClass const * const given = open_.front().cls;
    bool const good =
        index == oldBody
            ? owner_.body("", begin, begin + value.size, given != nullptr ? given : owner_.classOf(code_))
            : owner_.named(begin, begin + value.size, optionNames, std::size(optionNames));
    failed_ = !good;
    if (good) {
        owner_.to_.close(Piece());
    }
    return true;
}

void DumpTree::NbrTree::simple(NbrValue const & value) {
    if (failed_) {
        return;
    }
    std::size_t const index = open_.back().index;
    bool const old = open_.back().holds == Context::Holds::oldPacket;
    Spot const spot = spotOf(value);
    if (!old || !nested(index, spot, value)) {
        tellData(spot, value);
    }
}

void DumpTree::NbrTree::open(NbrValue const & value) {
    if (failed_) {
        return;
    }
    if (owner_.watch_) {
        owner_.watch_(shift_ + value.begin);
    }
    Spot const spot = spotOf(value);
    Context in = contextOf(spot, value);
    in.guard = spot.guard;
    TreeLine line = lineOf(spot, value, 3);
    if (spot.field != nullptr && (kinds::isSimple(spot.kind) || spot.kind == kinds::enum_)) {
        line.note = "an object where the template has " + kindName(spot.kind);
    }
    bool const list = in.holds == Context::Holds::elements || in.holds == Context::Holds::entries;
    line.type = in.holds == Context::Holds::entry ? "entry"
                : list                            ? typeText(*in.field)
                : in.cls != nullptr               ? stringOf(in.cls->className)
                                                  : "object";
    line.pieces.back().text = (spot.name.empty() ? "" : spot.name + ": ") + line.type + " begins";
    owner_.to_.open(line);
    open_.push_back(in);
}

void DumpTree::NbrTree::close(std::size_t at) {
    if (!failed_) {
        open_.pop_back();
        owner_.to_.close(Piece{shift_ + at, 3, "ends", false});
    }
}

bool DumpTree::broken(std::size_t at, std::string const & text) {
    faultAt_ = at;
    faultText_ = text;
    to_.fault(at, text);
    return false;
}

bool DumpTree::document(std::size_t begin, std::size_t end, MetaClass const * cls) {
    Context root;
    root.cls = cls;
    NbrTree tree(*this, begin, root);
    NbrFault fault;
    return readNbr(part(begin, end), tree, fault, to_.base() + begin) ||
           broken(begin + fault.offset, fault.text);
}

bool DumpTree::named(std::size_t begin, std::size_t end, char const * const * names, std::size_t count) {
    Context root;
    root.names = names;
    root.count = count;
    NbrTree tree(*this, begin, root);
    NbrFault fault;
    return readNbr(part(begin, end), tree, fault, to_.base() + begin) ||
           broken(begin + fault.offset, fault.text);
}

MetaClass const * DumpTree::classOf(unsigned short code) const {
    return model_ == nullptr ? nullptr : model_->factory->findClass(code);
}

std::string DumpTree::codeName(unsigned short code) const {
    MetaClass const * const cls = classOf(code);
    return codeText(code) + (cls == nullptr ? "" : " (" + stringOf(cls->className) + ")");
}

void DumpTree::number(std::size_t at, std::size_t size, char const * name, std::string const & value,
                      std::string const & note) {
    TreeLine line;
    line.offset = at;
    line.name = name;
    line.value = value;
    line.note = note;
    line.pieces.push_back(Piece{at, size, std::string(name) + ": " + value, false});
    to_.leaf(line);
}

/// Takes a big-endian number off the front.
bool DumpTree::fixed(std::size_t & at, std::size_t end, std::size_t size, char const * name,
                     unsigned long long & value) {
    if (end - at < size) {
        return broken(end, std::string(name) + " has " + byteCount(size) + ", and " + thereAre(end - at));
    }
    value = bigEndian(part(at, at + size));
    at += size;
    return true;
}

/// Bytes that are NBR, if they look like it or their class is known; else bytes or text.
bool DumpTree::body(char const * name, std::size_t begin, std::size_t end, MetaClass const * cls) {
    std::string_view const bytes = part(begin, end);
    bool const isNbr = cls != nullptr || bytes.substr(0, 3) == "\xFF\x01\x28";
    TreeLine line;
    line.offset = begin;
    line.name = name;
    line.value = byteCount(bytes.size());
    bool const framed = *name != '\0';
    if (!isNbr || bytes.empty()) {
        line.value += bytes.empty() ? "" : ": " + bytesValue(bytes, limit_);
        line.pieces.push_back(
            Piece{begin, bytes.size(), line.name + (framed ? ": " : "") + line.value, false});
        to_.leaf(line);
        return true;
    }
    if (framed) {
        to_.open(line);
    }
    if (!document(begin, end, cls)) {
        return false;
    }
    if (framed) {
        to_.close(Piece());
    }
    return true;
}

bool DumpTree::mobile(std::size_t begin, std::size_t end, MetaClass const * cls) {
    std::size_t at = begin;
    unsigned long long value = 0;
    unsigned long long version = 0;
    if (!fixed(at, end, 2, "version", version)) {
        return false;
    }
    number(begin, 2, "version", std::to_string(version));
    if (!fixed(at, end, 1, "affirm", value)) {
        return false;
    }
    number(at - 1, 1, "affirm",
           hexNumber(value) + (value == 0x20   ? " (asks for a receipt)"
                               : value == 0x30 ? " (a receipt)"
                                               : ""));
    if (!fixed(at, end, 2, "code", value)) {
        return false;
    }
    auto const code = static_cast<unsigned short>(value);
    number(at - 2, 2, "code", codeName(code));
    if (!fixed(at, end, 1, "flags", value)) {
        return false;
    }
    number(at - 1, 1, "flags", hexNumber(value) + ((value & 1) != 0 ? " (grey)" : ""));
    if (!fixed(at, end, 2, "sequence", value)) {
        return false;
    }
    number(at - 2, 2, "sequence", std::to_string(value));
    if (!fixed(at, end, 8, "session", value)) {
        return false;
    }
    number(at - 8, 8, "session", hexNumber(value));
    constexpr unsigned long long firstWithExt = 6;
    if (version >= firstWithExt) {
        if (!fixed(at, end, 2, "size of the extension", value)) {
            return false;
        }
        number(at - 2, 2, "size of the extension", std::to_string(value));
        std::size_t const size = std::min(static_cast<std::size_t>(value), end - at);
        if (size != 0 && !named(at, at + size, extNames, std::size(extNames))) {
            return false;
        }
        at += size;
        if (size < value) {
            return broken(at, "the extension has " + byteCount(value) + ", and " + thereAre(size));
        }
    }
    return body("body", at, end, cls != nullptr ? cls : classOf(code));
}

bool DumpTree::old(std::size_t begin, std::size_t end, MetaClass const * cls) {
    std::size_t at = begin;
    unsigned long long head = 0;
    if (!fixed(at, end, frameHead, "head", head)) {
        return false;
    }
    number(begin, frameHead, "head", hexText(part(begin, at)),
           head >> 8 == 0 ? "" : "three zeros are expected");
    if (head >> 8 != 0) {
        return broken(begin, "the head of an old packet begins with three zeros");
    }
    Context root;
    root.holds = Context::Holds::oldPacket;
    root.cls = cls;
    NbrTree tree(*this, at, root);
    NbrFault fault;
    bool const read = readNbr(part(at, end), tree, fault, to_.base() + at);
    if (tree.failed() || !read) {
        return !tree.failed() && broken(at + fault.offset, fault.text);
    }
    return tree.values() >= std::size(oldNames) ||
           broken(end, "an old packet has nine values, and " + thereAre(tree.values()));
}

bool DumpTree::packet(std::size_t begin, std::size_t end, MetaClass const * cls) {
    bool const isMobile = end - begin >= 2 && to_.bytes()[begin + 1] != '\0';
    TreeLine line;
    line.offset = begin;
    line.name = isMobile ? "mobile packet" : "old packet";
    line.value = byteCount(end - begin);
    to_.open(line);
    if (!(isMobile ? mobile(begin, end, cls) : old(begin, end, cls))) {
        return false;
    }
    to_.close(Piece());
    return true;
}

bool DumpTree::frame(std::size_t begin, std::size_t end, MetaClass const * cls) {
    std::size_t at = begin;
    unsigned long long length = 0;
    if (!fixed(at, end, frameHead, "length", length)) {
        return false;
    }
    TreeLine line;
    line.offset = begin;
    line.name = length == 0 ? "heartbeat" : "frame";
    line.value = length == 0 ? "" : byteCount(length);
    line.pieces.push_back(Piece{begin, frameHead, line.name + (length == 0 ? "" : ": " + line.value), false});
    if (length == 0) {
        to_.leaf(line);
        return true;
    }
    to_.open(line);
    if (length > largestFrame) {
        return broken(begin, "a frame has at most 16777215 bytes");
    }
    std::size_t const stop = std::min(end, at + static_cast<std::size_t>(length));
    if (!packet(at, stop, cls)) {
        return false;
    }
    if (stop - at < length) {
        return broken(stop, "the frame has " + byteCount(length) + ", and " + thereAre(stop - at));
    }
    to_.close(Piece());
    return true;
}

bool DumpTree::gatePart(char const * name, int protocol, std::size_t begin, std::size_t end,
                        MetaClass const * cls) {
    constexpr int nbrProtocol = 3;
    constexpr int binaryProtocol = 2;
    bool const isText = protocol == 1 || (protocol > nbrProtocol && protocol < 8);
    if (protocol == nbrProtocol && begin != end) {
        TreeLine line;
        line.offset = begin;
        line.name = name;
        line.value = byteCount(end - begin);
        to_.open(line);
        if (!document(begin, end, cls)) {
            return false;
        }
        to_.close(Piece());
        return true;
    }
    bool const shownAsText = isText && protocol != binaryProtocol && begin != end;
    std::string const value = begin == end  ? "0 bytes"
                              : shownAsText ? textValue(part(begin, end), limit_)
                                            : bytesValue(part(begin, end), limit_);
    number(begin, end - begin, name, value);
    return true;
}

bool DumpTree::gate(std::size_t begin, std::size_t end, MetaClass const * cls) {
    TreeLine line;
    line.offset = begin;
    line.name = "gate message";
    line.value = byteCount(end - begin);
    to_.open(line);
    if (end - begin < gateHead) {
        return broken(end, "a gate message has a header of 12 bytes, and " + thereAre(end - begin));
    }
    auto const byte = [&](std::size_t i) { return static_cast<unsigned char>(to_.bytes()[begin + i]); };
    number(begin, 1, "protocol",
           std::to_string(byte(0)) + " (" + stringOf(tavGateMessage::getProtocolString(byte(0))) + ")");
    number(begin + 1, 2, "type", hexNumber(bigEndian(part(begin + 1, begin + 3))));
    number(begin + 3, 1, "direction",
           std::to_string(byte(3)) + " (" + stringOf(tavGateMessage::getDirectionString(byte(3))) + ")");
    number(begin + 4, 4, "sequence", std::to_string(static_cast<int>(bigEndian(part(begin + 4, begin + 8)))));
    number(begin + 8, 2, "extras", hexText(part(begin + 8, begin + 10)));
    auto const headSize = static_cast<std::size_t>(bigEndian(part(begin + 10, begin + gateHead)));
    number(begin + 10, 2, "size of the head", std::to_string(headSize));
    std::size_t const body = std::min(end, begin + gateHead + headSize);
    if (!gatePart("head", byte(0), begin + gateHead, body, nullptr)) {
        return false;
    }
    if (body - begin - gateHead < headSize) {
        return broken(body,
                      "the head has " + byteCount(headSize) + ", and " + thereAre(body - begin - gateHead));
    }
    if (!gatePart("body", byte(0), body, end, cls)) {
        return false;
    }
    to_.close(Piece());
    return true;
}

Shape guessShape(std::string_view front, unsigned long long size) {
    constexpr std::size_t mobileHead = 16;
    if (front.empty() || front.front() != '\0') {
        return Shape::nbr;
    }
    bool const values = front.size() >= 7 && front.substr(4, 2) == "\x01\x01";
    if (front.substr(0, 3) == std::string_view("\0\0\0", 3) && values) {
        return Shape::packet;
    }
    if (front.size() < mobileHead || front[1] == '\0') {
        return Shape::frames;
    }
    // A mobile packet has its version ahead, then affirm, code and flags; a frame of its size has a packet
    // behind its length.
    auto const byte = [front](std::size_t i) { return static_cast<unsigned char>(front[i]); };
    bool const asPacket = (byte(2) & 0xCFu) == 0 && byte(5) <= 1;
    bool const asFrame = byte(4) == 0 && (byte(5) != 0 || byte(6) == 0);
    if (asPacket != asFrame) {
        return asPacket ? Shape::packet : Shape::frames;
    }
    bool const fits = size == 0 || bigEndian(front.substr(0, frameHead)) + frameHead <= size;
    return fits ? Shape::frames : Shape::packet;
}

} // namespace tool
} // namespace tav
