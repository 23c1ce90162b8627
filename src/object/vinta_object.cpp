#include "tav/vinta/vinta_object.h"

#include "formats/nbr/nbr_elements.h"
#include "foundation/masked_text.h"
#include "foundation/report.h"
#include "foundation/thread_pool.h"
#include "foundation/views.h"
#include "tav/vinta/vinta_nbr_unit.h"

#include <algorithm>
#include <atomic>
#include <charconv>
#include <iterator>
#include <memory>
#include <sstream>
#include <string>
#include <string_view>
#include <utility>

using tav::detail::bytesOf;

namespace {

std::atomic<unsigned> objectCount{0};
std::atomic<unsigned> messageCount{0};

/// The walk takes objects without const, as it may fill them; on an output stream it only reads.
tavObject & writable(tavObject const & v) {
    return const_cast<tavObject &>(v);
}

void writeText(std::ostream & out, std::string_view text) {
    out.write(text.data(), static_cast<std::streamsize>(text.size()));
}

/// Decimal, whatever the base, width and fill of the stream.
template <class N>
void writeNumber(std::ostream & out, N v) {
    char text[24];
    char const * const end = std::to_chars(std::begin(text), std::end(text), v).ptr;
    out.write(text, end - text);
}

} // namespace

namespace tav {
namespace detail {

struct InputChildren::Streams {
    using Pool = ThreadPool<Streams, 4 * 1024>;

    std::vector<tavSharedPtr<tavCodecStream>> list;
    Streams * next = nullptr;

    std::size_t footprint() const noexcept {
        return sizeof(*this) + 2 * allocationCost + list.capacity() * sizeof(list.front());
    }

    void release() noexcept {
        list.clear();
        Pool::give(this);
    }
};

InputChildren::InputChildren(tavCodecStream & s) {
    nbr::detail::Elements const elements = nbr::detail::openElements(s);
    if (elements.stream != nullptr) {
        nbr_ = elements.stream;
        at_ = elements.first;
        size_ = elements.count;
        return;
    }
    streams_ = Streams::Pool::take();
    if (streams_ == nullptr) {
        streams_ = new Streams;
    }
    try {
        s.getInputChildren(streams_->list);
    } catch (...) {
        streams_->release();
        throw;
    }
    size_ = streams_->list.size();
}

tavCodecStream * InputChildren::next() {
    if (nbr_ == nullptr) {
        return streams_->list[at_++].get();
    }
    at_ = nbr::detail::nextElement(*nbr_, static_cast<unsigned>(at_));
    return nbr_;
}

InputChildren::~InputChildren() {
    if (nbr_ != nullptr) {
        nbr::detail::closeElements(*nbr_);
        return;
    }
    streams_->release();
}

unsigned long long numberOfKey(tav_istr text) {
    std::string_view digits = bytesOf(text);
    bool const negative = !digits.empty() && digits.front() == '-';
    if (negative || (!digits.empty() && digits.front() == '+')) {
        digits.remove_prefix(1);
    }
    unsigned long long number = 0;
    for (char const c : digits) {
        if (c < '0' || c > '9') {
            return 0;
        }
        number = number * 10u + static_cast<unsigned>(c - '0');
    }
    return negative ? 0u - number : number;
}

void raiseInvalidEnumField(tav_istr name, int value) {
    std::string text("invalid enum field name ");
    text.append(bytesOf(name)).append(" value ").append(std::to_string(value));
    raise(here("ioField"), text);
}

} // namespace detail
} // namespace tav

tavObject::tavObject() {
    ++objectCount;
}

tavObject::tavObject(tavObject const & other)
    : tavRefCountObject(other), tavCodecInterface(other), tavSharedObject(other) {
    ++objectCount;
}

tavObject & tavObject::operator=(tavObject const &) {
    return *this;
}

tavObject::~tavObject() {
    --objectCount;
}

void tavObject::io(tavCodecStream & s) {
    s.enter(className(), baseName());
    traverse(s);
    s.leave();
    checkFields(s);
}

bool tavObject::empty() const {
    tavNullStream s;
    writable(*this).io(s);
    return s.isEmpty();
}

void tavObject::traverse(tavCodecStream &) {}

tavBytes tavObject::encode(bool hideEmpty) const {
    tavNbrOutStream s(hideEmpty);
    writable(*this).io(s);
    return tavBytes(s.str());
}

void tavObject::decode(tav_istr bytes) {
    tavNbrInStream s(bytes);
    io(s);
}

tavString tavObject::dump(bool singleLine, int level) const {
    std::ostringstream out;
    tavDumper s(out, singleLine, level, false);
    writable(*this).io(s);
    return tavString(tav::detail::printedText(out));
}

bool tavObject::classEqual(tavObject const & other) const {
    return className() == other.className();
}

bool tavObject::classOf(tav_istr name) const {
    return className() == name;
}

tavObject * tavObject::clone() const {
    std::unique_ptr<tavObject> copy(newInstance());
    if (copy) {
        copy->assignFrom(*this);
    }
    return copy.release();
}

void tavObject::assign(tavObject const & other) {
    assignFrom(other);
}

tavObject const * tavObject::self() const {
    return this;
}

unsigned tavObject::counts() {
    return objectCount.load();
}

std::ostream & operator<<(std::ostream & out, tavObject const & v) {
    tavDumper s(out, true, 0, false);
    writable(v).io(s);
    return out;
}

tavMsgExt::tavMsgExt() = default;

tavMsgExt::tavMsgExt(tavMsgExt const & other) = default;

tavMsgExt & tavMsgExt::operator=(tavMsgExt const & other) = default;

tavMsgExt::~tavMsgExt() = default;

bool tavMsgExt::empty() const {
    return !serverTime.has_value() && !clientTime.has_value() && !traceId.has_value();
}

tav_istr tavMsgExt::className() const {
    return "tavMsgExt";
}

tav_istr tavMsgExt::baseName() const {
    return "tavObject";
}

tavObject * tavMsgExt::newInstance() const {
    return std::make_unique<tavMsgExt>().release();
}

void tavMsgExt::assignFrom(tavObject const & other) {
    if (auto const * const same = dynamic_cast<tavMsgExt const *>(&other)) {
        *this = *same;
    }
}

void tavMsgExt::traverse(tavCodecStream & s) {
    ioField(s, 1, "serverTime", serverTime);
    ioField(s, 2, "clientTime", clientTime);
    ioField(s, 3, "traceId", traceId);
}

tavMessage::tavMessage() {
    ++messageCount;
}

tavMessage::tavMessage(tavMessage const & other)
    : tavRefCountObject(other), tavObject(other), tavMsgInterface(other), sno(other.sno), ext(other.ext) {
    ++messageCount;
}

tavMessage & tavMessage::operator=(tavMessage const & other) = default;

tavMessage::~tavMessage() {
    --messageCount;
}

unsigned tavMessage::counts() {
    return messageCount.load();
}

void tavMessage::traverse(tavCodecStream &) {}

tavNullStream::tavNullStream() = default;

tavNullStream::~tavNullStream() = default;

bool tavNullStream::isNull() const {
    return false;
}

bool tavNullStream::hideEmpty() const {
    return false;
}

bool tavNullStream::isOutputStream() const {
    return true;
}

bool tavNullStream::isMapEntryCombined() const {
    return false;
}

tavSharedPtr<tavCodecStream> tavNullStream::child(int, tav_istr) {
    return nullptr;
}

tavSharedPtr<tavCodecStream> tavNullStream::getOutputChild() {
    return nullptr;
}

void tavNullStream::getInputChildren(std::vector<tavSharedPtr<tavCodecStream>> &) {}

void tavNullStream::getInputChildMap(std::map<tavString, tavSharedPtr<tavCodecStream>> &) {}

void tavNullStream::enter(tav_istr, tav_istr) {}

void tavNullStream::leave() {}

void tavNullStream::io(tavTime &, tavCodecMeta const &) {}

void tavNullStream::io(tavBytes &, tavCodecMeta const &) {}

void tavNullStream::io(tavString &, tavCodecMeta const &) {}

void tavNullStream::io(double &, tavCodecMeta const &) {}

void tavNullStream::io(float &, tavCodecMeta const &) {}

void tavNullStream::io(unsigned long long &, tavCodecMeta const &) {}

void tavNullStream::io(long long &, tavCodecMeta const &) {}

void tavNullStream::io(unsigned long &, tavCodecMeta const &) {}

void tavNullStream::io(long &, tavCodecMeta const &) {}

void tavNullStream::io(unsigned int &, tavCodecMeta const &) {}

void tavNullStream::io(int &, tavCodecMeta const &) {}

void tavNullStream::io(unsigned short &, tavCodecMeta const &) {}

void tavNullStream::io(short &, tavCodecMeta const &) {}

void tavNullStream::io(unsigned char &, tavCodecMeta const &) {}

void tavNullStream::io(char &, tavCodecMeta const &) {}

void tavNullStream::io(bool &, tavCodecMeta const &) {}

tavCollectMetaStream::tavCollectMetaStream() = default;

tavCollectMetaStream::~tavCollectMetaStream() = default;

void tavCollectMetaStream::on_each_field_meta(int id, tav_istr name, std::set<int> const & values,
                                              tavCodecMeta const & meta) {
    fields_.emplace_back(id, name, values, meta);
}

std::vector<tavFieldMeta> const & tavCollectMetaStream::fields() const {
    return fields_;
}

void tavCollectMetaStream::for_each_field(std::function<void(tavFieldMeta const &)> fn) const {
    for (tavFieldMeta const & field : fields_) {
        fn(field);
    }
}

tavDumper::tavDumper(std::ostream & out, bool singleLine, int level, bool hideEmpty)
    : out_(out), singleLine_(singleLine), level_(level), hideEmpty_(hideEmpty) {}

tavDumper::~tavDumper() = default;

bool tavDumper::isNull() const {
    return false;
}

bool tavDumper::hideEmpty() const {
    return hideEmpty_;
}

bool tavDumper::isOutputStream() const {
    return true;
}

bool tavDumper::isMapEntryCombined() const {
    return true;
}

tavSharedPtr<tavCodecStream> tavDumper::child(int fieldId, tav_istr fieldName) {
    indent();
    id(fieldId);
    name(fieldName);
    sep('=');
    return new tavDumper(out_, singleLine_, level_, hideEmpty_);
}

tavSharedPtr<tavCodecStream> tavDumper::getOutputChild() {
    indent();
    return new tavDumper(out_, singleLine_, level_, hideEmpty_);
}

void tavDumper::getInputChildren(std::vector<tavSharedPtr<tavCodecStream>> &) {}

void tavDumper::getInputChildMap(std::map<tavString, tavSharedPtr<tavCodecStream>> &) {}

void tavDumper::enter(tav_istr className, tav_istr) {
    if (!className.empty()) {
        sep('@');
        name(className);
    }
    sep('{');
    ++level_;
}

void tavDumper::leave() {
    --level_;
    indent();
    sep('}');
}

void tavDumper::io(tavTime & v, tavCodecMeta const & meta) {
    write(v, meta);
}

void tavDumper::io(tavBytes & v, tavCodecMeta const & meta) {
    write(v, meta);
}

void tavDumper::io(tavString & v, tavCodecMeta const & meta) {
    write(v, meta);
}

void tavDumper::io(double & v, tavCodecMeta const & meta) {
    write(v, meta);
}

void tavDumper::io(float & v, tavCodecMeta const & meta) {
    write(v, meta);
}

void tavDumper::io(unsigned long long & v, tavCodecMeta const & meta) {
    write(v, meta);
}

void tavDumper::io(long long & v, tavCodecMeta const & meta) {
    write(v, meta);
}

void tavDumper::io(unsigned long & v, tavCodecMeta const & meta) {
    write(v, meta);
}

void tavDumper::io(long & v, tavCodecMeta const & meta) {
    write(v, meta);
}

void tavDumper::io(unsigned int & v, tavCodecMeta const & meta) {
    write(v, meta);
}

void tavDumper::io(int & v, tavCodecMeta const & meta) {
    write(v, meta);
}

void tavDumper::io(unsigned short & v, tavCodecMeta const & meta) {
    write(v, meta);
}

void tavDumper::io(short & v, tavCodecMeta const & meta) {
    write(v, meta);
}

void tavDumper::io(unsigned char & v, tavCodecMeta const & meta) {
    write(v, meta);
}

void tavDumper::io(char & v, tavCodecMeta const & meta) {
    write(v, meta);
}

void tavDumper::io(bool & v, tavCodecMeta const & meta) {
    write(v, meta);
}

void tavDumper::indent() {
    if (singleLine_) {
        out_.put(' ');
        return;
    }
    out_.put('\n');
    for (int i = 0; i < level_; ++i) {
        writeText(out_, "    ");
    }
}

void tavDumper::id(int id) {
    out_.put('[');
    writeNumber(out_, id);
    out_.put(']');
}

void tavDumper::name(tav_istr name) {
    writeText(out_, bytesOf(name));
}

void tavDumper::sep(char c) {
    out_.put(c);
}

tavString tavDumper::protectedValue(tav_istr value, tavCodecMeta const & meta) {
    std::string_view const whole = bytesOf(value);
    return tavString(meta.isProtected ? tav::detail::maskedText(whole, bytesOf(meta.spec))
                                      : std::string(whole) + tav::detail::shownLength(whole));
}

void tavDumper::print(tavTime const & v, tavCodecMeta const &) {
    out_ << v;
}

void tavDumper::print(tavBytes const & v, tavCodecMeta const & meta) {
    if (meta.isProtected) {
        name(protectedValue(v, meta));
    } else {
        out_ << v;
    }
}

void tavDumper::print(tavString const & v, tavCodecMeta const & meta) {
    if (meta.isProtected) {
        name(protectedValue(v, meta));
        return;
    }
    sep('\'');
    name(v);
    sep('\'');
}

void tavDumper::print(double v, tavCodecMeta const &) {
    out_ << v;
}

void tavDumper::print(float v, tavCodecMeta const &) {
    out_ << v;
}

void tavDumper::print(unsigned long long v, tavCodecMeta const &) {
    writeNumber(out_, v);
}

void tavDumper::print(long long v, tavCodecMeta const &) {
    writeNumber(out_, v);
}

void tavDumper::print(unsigned long v, tavCodecMeta const &) {
    writeNumber(out_, v);
}

void tavDumper::print(long v, tavCodecMeta const &) {
    writeNumber(out_, v);
}

void tavDumper::print(unsigned int v, tavCodecMeta const &) {
    writeNumber(out_, v);
}

void tavDumper::print(int v, tavCodecMeta const &) {
    writeNumber(out_, v);
}

void tavDumper::print(unsigned short v, tavCodecMeta const &) {
    writeNumber(out_, static_cast<unsigned int>(v));
}

void tavDumper::print(short v, tavCodecMeta const &) {
    writeNumber(out_, static_cast<int>(v));
}

void tavDumper::print(unsigned char v, tavCodecMeta const &) {
    writeNumber(out_, static_cast<unsigned int>(v));
}

void tavDumper::print(char v, tavCodecMeta const &) {
    writeNumber(out_, static_cast<int>(v));
}

void tavDumper::print(bool v, tavCodecMeta const &) {
    writeText(out_, v ? "true" : "false");
}
