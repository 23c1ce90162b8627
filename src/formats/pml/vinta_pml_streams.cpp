#include "tav/vinta/vinta_pml_streams.h"

#include "foundation/number_text.h"
#include "foundation/views.h"

#include <limits>
#include <string_view>
#include <utility>

namespace tav {
namespace pml {

using detail::bytesOf;

namespace {

/// All of `text` as an integer.  A form with a prefix must fit the bits of T, a decimal one its range.  `out`
/// is set on success only.
template <class T>
bool readNumber(std::string_view text, T & out) {
    unsigned long long value = 0;
    if (detail::readPrefixed(text, value)) {
        if (value > std::numeric_limits<std::make_unsigned_t<T>>::max()) {
            return false;
        }
        out = static_cast<T>(value);
        return true;
    }
    return detail::readDecimal(text, out);
}

tavSharedPtr<Unit> borrowed(Unit const & unit) {
    return tavSharedPtr<Unit>(const_cast<Unit *>(&unit), false);
}

tavSharedPtr<Unit> decoded(tav_istr text) {
    tavSharedPtr<Unit> unit(new Unit());
    unit->decode(text);
    return unit;
}

} // namespace

PmlInputStream::PmlInputStream() = default;

PmlInputStream::PmlInputStream(Unit const & unit) : unit_(borrowed(unit)) {}

PmlInputStream::PmlInputStream(tavSharedPtr<Unit> unit) : unit_(std::move(unit)) {}

PmlInputStream::PmlInputStream(tav_istr text) : unit_(decoded(text)) {}

PmlInputStream::PmlInputStream(PmlInputStream const & other) = default;

PmlInputStream & PmlInputStream::operator=(PmlInputStream const & other) = default;

Unit const & PmlInputStream::unit() const {
    return unit_ ? *unit_ : Unit::null();
}

tavSharedPtr<Unit> PmlInputStream::unitPtr() const {
    return unit_;
}

PmlInputStream const & PmlInputStream::me() const {
    return *this;
}

std::string const & PmlInputStream::name() const {
    return unit().name();
}

std::string const & PmlInputStream::type() const {
    return unit().type();
}

std::string const & PmlInputStream::value() const {
    return unit().value();
}

Unit const & PmlInputStream::child(tav_istr name) const {
    return unit().child(name);
}

Unit const & PmlInputStream::child(tav_istr name, tav_istr alternative) const {
    return unit().child(name, alternative, 0);
}

Unit const & PmlInputStream::operator[](tav_istr name) const {
    return child(name);
}

Unit::const_iterator PmlInputStream::begin() const {
    return unit().begin();
}

Unit::const_iterator PmlInputStream::end() const {
    return unit().end();
}

tavSharedPtr<Unit> PmlInputStream::next() const {
    return unit().getNext();
}

bool PmlInputStream::isEmpty() const {
    return unit().empty();
}

bool PmlInputStream::isNull() const {
    return unit().isNull();
}

std::string PmlInputStream::str() const {
    return unit().toCompacted(true, false);
}

bool PmlInputStream::decoding() const {
    return true;
}

int PmlInputStream::dumping() const {
    return 0;
}

void PmlInputStream::enter(tav_istr, tav_istr, tav_istr) {}

void PmlInputStream::leave() {}

void PmlInputStream::enterSuper() {}

void PmlInputStream::leaveSuper() {}

void PmlInputStream::read(char & v) const {
    if (!isNull()) {
        short work = 0;
        readNumber(value(), work);
        v = static_cast<char>(work);
    }
}

void PmlInputStream::read(unsigned char & v) const {
    if (!isNull()) {
        unsigned short work = 0;
        readNumber(value(), work);
        v = static_cast<unsigned char>(work);
    }
}

void PmlInputStream::read(short & v) const {
    if (!isNull()) {
        readNumber(value(), v);
    }
}

void PmlInputStream::read(unsigned short & v) const {
    if (!isNull()) {
        readNumber(value(), v);
    }
}

void PmlInputStream::read(int & v) const {
    if (!isNull()) {
        readNumber(value(), v);
    }
}

void PmlInputStream::read(unsigned int & v) const {
    if (!isNull()) {
        readNumber(value(), v);
    }
}

void PmlInputStream::read(long & v) const {
    // Stored also if nothing was read, and so from the null unit too.
    long long work = 0;
    read(work);
    v = static_cast<long>(work);
}

void PmlInputStream::read(unsigned long & v) const {
    unsigned long long work = 0;
    read(work);
    v = static_cast<unsigned long>(work);
}

void PmlInputStream::read(long long & v) const {
    if (!isNull()) {
        readNumber(value(), v);
    }
}

void PmlInputStream::read(unsigned long long & v) const {
    if (!isNull()) {
        readNumber(value(), v);
    }
}

void PmlInputStream::read(float & v) const {
    if (!isNull()) {
        detail::readFloating(value(), v);
    }
}

void PmlInputStream::read(double & v) const {
    if (!isNull()) {
        detail::readFloating(value(), v);
    }
}

void PmlInputStream::read(tavString & v) const {
    if (!isNull()) {
        v = value();
    }
}

void PmlInputStream::read(std::string & v) const {
    if (!isNull()) {
        v = value();
    }
}

void PmlInputStream::read(std::wstring & v) const {
    if (!isNull()) {
        v = tavString(value()).toWstring();
    }
}

void PmlInputStream::read(tavBytes & v) const {
    if (!isNull()) {
        tavBase64::decode(value(), v);
    }
}

void PmlInputStream::read(tavTime & v) const {
    if (!isNull()) {
        std::string_view const text = value();
        v = tavTime::from(detail::viewOf(text.substr(0, text.find('\0'))));
    }
}

void PmlInputStream::read(bool & v) const {
    if (!isNull()) {
        std::string const & text = value();
        if (text == "true" || text == "1") {
            v = true;
        } else if (text == "false" || text == "0") {
            v = false;
        }
    }
}

PmlOutputStream::PmlOutputStream() : unit_(new Unit()) {}

PmlOutputStream::PmlOutputStream(Unit & unit) : unit_(borrowed(unit)) {}

PmlOutputStream::PmlOutputStream(tavSharedPtr<Unit> unit) : unit_(std::move(unit)) {
    if (!unit_) {
        unit_ = tavSharedPtr<Unit>(new Unit());
    }
}

PmlOutputStream::PmlOutputStream(tav_istr name) : unit_(new Unit(name)) {}

PmlOutputStream::PmlOutputStream(PmlOutputStream const & other) = default;

PmlOutputStream & PmlOutputStream::operator=(PmlOutputStream const & other) = default;

Unit & PmlOutputStream::unit() const {
    return *unit_;
}

PmlOutputStream & PmlOutputStream::me() {
    return *this;
}

std::string & PmlOutputStream::name() {
    return unit_->name();
}

std::string & PmlOutputStream::type() {
    return unit_->type();
}

std::string & PmlOutputStream::value() {
    return unit_->value();
}

std::string const & PmlOutputStream::name() const {
    return unit_->name();
}

std::string const & PmlOutputStream::type() const {
    return unit_->type();
}

std::string const & PmlOutputStream::value() const {
    return unit_->value();
}

Unit & PmlOutputStream::child(tav_istr name) {
    return unit_->child(name);
}

Unit & PmlOutputStream::child(tav_istr name, tav_istr alternative, int id) {
    return unit_->child(name, alternative, id);
}

Unit & PmlOutputStream::operator[](tav_istr name) {
    return child(name);
}

Unit & PmlOutputStream::newChild() {
    return unit_->newChild();
}

bool PmlOutputStream::decoding() const {
    return false;
}

int PmlOutputStream::dumping() const {
    return dumping_;
}

void PmlOutputStream::dumping(int v) {
    dumping_ = v;
}

void PmlOutputStream::enter(tav_istr a, tav_istr, tav_istr c) {
    if (!c.empty() && name().empty()) {
        unit_->name(c);
    }
    if (!a.empty() && type().empty()) {
        unit_->type(a);
    }
}

void PmlOutputStream::leave() {}

void PmlOutputStream::enterSuper() {}

void PmlOutputStream::leaveSuper() {}

std::string PmlOutputStream::encode(bool formatted, bool skipEmpty, int level, bool withType,
                                    bool withId) const {
    return unit_->encode(formatted, skipEmpty, level, withType, withId);
}

std::string PmlOutputStream::str(bool formatted, bool skipEmpty) const {
    return encode(formatted, skipEmpty, 1, !skipEmpty, formatted);
}

void PmlOutputStream::write(char v) {
    detail::appendNumber(value(), static_cast<short>(v));
}

void PmlOutputStream::write(unsigned char v) {
    detail::appendNumber(value(), static_cast<unsigned short>(v));
}

void PmlOutputStream::write(short v) {
    detail::appendNumber(value(), v);
}

void PmlOutputStream::write(unsigned short v) {
    detail::appendNumber(value(), v);
}

void PmlOutputStream::write(int v) {
    detail::appendNumber(value(), v);
}

void PmlOutputStream::write(unsigned int v) {
    detail::appendNumber(value(), v);
}

void PmlOutputStream::write(long v) {
    detail::appendNumber(value(), v);
}

void PmlOutputStream::write(unsigned long v) {
    detail::appendNumber(value(), v);
}

void PmlOutputStream::write(long long v) {
    detail::appendNumber(value(), v);
}

void PmlOutputStream::write(unsigned long long v) {
    detail::appendNumber(value(), v);
}

void PmlOutputStream::write(float v) {
    detail::appendNumber(value(), static_cast<double>(v));
}

void PmlOutputStream::write(double v) {
    detail::appendNumber(value(), v);
}

void PmlOutputStream::write(bool v) {
    value() += v ? "true" : "false";
}

void PmlOutputStream::write(char const * v) {
    if (v != nullptr) {
        value() += v;
    }
}

void PmlOutputStream::write(tav_istr v) {
    value() += bytesOf(v);
}

void PmlOutputStream::write(tavString const & v) {
    write(tav_istr(v));
}

void PmlOutputStream::write(std::string const & v) {
    value() += v;
}

void PmlOutputStream::write(std::wstring const & v) {
    write(tavString(v));
}

void PmlOutputStream::write(tavBytes const & v) {
    std::string text;
    tavBase64::encode(tav_istr(v), text, false);
    value() += text;
}

void PmlOutputStream::write(tavTime const & v) {
    write(v.str());
}

} // namespace pml

namespace detail {

/// How streams keep their last child's stream to use it again.
struct SparePmlStream {
    template <class Stream, class Impl>
    static tavSharedPtr<tavCodecStream> of(Stream & parent, Impl const & impl) {
        if (parent.spare_ && parent.spare_->getRefCount() == 1) {
            parent.spare_->own_ = impl;
            FieldAccess::markEmpty(*parent.spare_);
        } else {
            parent.spare_ = tavSharedPtr<Stream>(new Stream(impl));
        }
        return parent.spare_;
    }

    /// Lets a chain of spares go from the outer end, in the same stack whatever its length.
    template <class Stream>
    static void release(Stream & parent) {
        tavSharedPtr<Stream> spare = std::move(parent.spare_);
        while (spare && spare->getRefCount() == 1) {
            tavSharedPtr<Stream> next = std::move(spare->spare_);
            spare = std::move(next);
        }
    }
};

} // namespace detail
} // namespace tav

using tav::detail::SparePmlStream;

tavPmlInStream::tavPmlInStream(tav_istr text) : own_(text), impl_(&own_), owns_(false) {}

tavPmlInStream::tavPmlInStream(tavPmlInStreamImpl * impl, bool owns)
    : impl_(impl != nullptr ? impl : &own_), owns_(owns && impl != nullptr) {}

tavPmlInStream::~tavPmlInStream() {
    SparePmlStream::release(*this);
    if (owns_) {
        delete impl_;
    }
}

bool tavPmlInStream::isNull() const {
    return impl_->isNull();
}

bool tavPmlInStream::isOutputStream() const {
    return false;
}

tavSharedPtr<tavCodecStream> tavPmlInStream::child(int, tav_istr name) {
    tav::pml::Unit const & unit = impl_->child(name);
    if (unit.isNull()) {
        return nullptr;
    }
    return SparePmlStream::of(*this, tavPmlInStreamImpl(unit));
}

tavSharedPtr<tavCodecStream> tavPmlInStream::getOutputChild() {
    return nullptr;
}

void tavPmlInStream::getInputChildren(std::vector<tavSharedPtr<tavCodecStream>> & children) {
    children.reserve(children.size() + impl_->unit().size());
    for (tavSharedPtr<tav::pml::Unit> const & unit : *impl_) {
        children.emplace_back(new tavPmlInStream(tavPmlInStreamImpl(unit)));
    }
}

bool tavPmlInStream::isMapEntryCombined() const {
    return true;
}

void tavPmlInStream::getInputChildMap(std::map<tavString, tavSharedPtr<tavCodecStream>> & children) {
    for (tavSharedPtr<tav::pml::Unit> const & unit : *impl_) {
        tavSharedPtr<tavCodecStream> stream(new tavPmlInStream(tavPmlInStreamImpl(unit)));
        children[tavString(unit->name())] = std::move(stream);
    }
}

void tavPmlInStream::enter(tav_istr, tav_istr) {}

void tavPmlInStream::leave() {}

void tavPmlInStream::io(tavTime & v, tavCodecMeta const &) {
    *impl_ >> v;
}

void tavPmlInStream::io(tavBytes & v, tavCodecMeta const &) {
    *impl_ >> v;
}

void tavPmlInStream::io(tavString & v, tavCodecMeta const &) {
    *impl_ >> v;
}

void tavPmlInStream::io(double & v, tavCodecMeta const &) {
    *impl_ >> v;
}

void tavPmlInStream::io(float & v, tavCodecMeta const &) {
    *impl_ >> v;
}

void tavPmlInStream::io(unsigned long long & v, tavCodecMeta const &) {
    *impl_ >> v;
}

void tavPmlInStream::io(long long & v, tavCodecMeta const &) {
    *impl_ >> v;
}

void tavPmlInStream::io(unsigned long & v, tavCodecMeta const &) {
    *impl_ >> v;
}

void tavPmlInStream::io(long & v, tavCodecMeta const &) {
    *impl_ >> v;
}

void tavPmlInStream::io(unsigned int & v, tavCodecMeta const &) {
    *impl_ >> v;
}

void tavPmlInStream::io(int & v, tavCodecMeta const &) {
    *impl_ >> v;
}

void tavPmlInStream::io(unsigned short & v, tavCodecMeta const &) {
    *impl_ >> v;
}

void tavPmlInStream::io(short & v, tavCodecMeta const &) {
    *impl_ >> v;
}

void tavPmlInStream::io(unsigned char & v, tavCodecMeta const &) {
    *impl_ >> v;
}

void tavPmlInStream::io(char & v, tavCodecMeta const &) {
    *impl_ >> v;
}

void tavPmlInStream::io(bool & v, tavCodecMeta const &) {
    *impl_ >> v;
}

tav_istr tavPmlInStream::name() const {
    return tav_istr(impl_->name());
}

tav_istr tavPmlInStream::type() const {
    return tav_istr(impl_->type());
}

bool tavPmlInStream::valueIsEmpty() const {
    return impl_->isEmpty();
}

tavPmlInStream::tavPmlInStream(tavPmlInStreamImpl const & impl) : own_(impl), impl_(&own_), owns_(false) {}

tavPmlOutStream::tavPmlOutStream() : impl_(&own_), owns_(false) {}

tavPmlOutStream::tavPmlOutStream(tavPmlOutStreamImpl * impl, bool owns)
    : own_(impl != nullptr ? *impl : tavPmlOutStreamImpl()),
      impl_(impl != nullptr ? impl : &own_),
      owns_(owns && impl != nullptr) {}

tavPmlOutStream::~tavPmlOutStream() {
    SparePmlStream::release(*this);
    if (owns_) {
        delete impl_;
    }
}

bool tavPmlOutStream::isOutputStream() const {
    return true;
}

tavSharedPtr<tavCodecStream> tavPmlOutStream::child(int, tav_istr name) {
    return SparePmlStream::of(*this, tavPmlOutStreamImpl(impl_->child(name)));
}

tavSharedPtr<tavCodecStream> tavPmlOutStream::getOutputChild() {
    return SparePmlStream::of(*this, tavPmlOutStreamImpl(impl_->newChild()));
}

void tavPmlOutStream::getInputChildren(std::vector<tavSharedPtr<tavCodecStream>> &) {}

bool tavPmlOutStream::isMapEntryCombined() const {
    return true;
}

void tavPmlOutStream::getInputChildMap(std::map<tavString, tavSharedPtr<tavCodecStream>> &) {}

void tavPmlOutStream::enter(tav_istr className, tav_istr baseName) {
    impl_->enter(className, baseName, tav_istr());
}

void tavPmlOutStream::leave() {}

void tavPmlOutStream::io(tavTime & v, tavCodecMeta const &) {
    *impl_ << v;
}

void tavPmlOutStream::io(tavBytes & v, tavCodecMeta const &) {
    *impl_ << v;
}

void tavPmlOutStream::io(tavString & v, tavCodecMeta const &) {
    *impl_ << v;
}

void tavPmlOutStream::io(double & v, tavCodecMeta const &) {
    *impl_ << v;
}

void tavPmlOutStream::io(float & v, tavCodecMeta const &) {
    *impl_ << v;
}

void tavPmlOutStream::io(unsigned long long & v, tavCodecMeta const &) {
    *impl_ << v;
}

void tavPmlOutStream::io(long long & v, tavCodecMeta const &) {
    *impl_ << v;
}

void tavPmlOutStream::io(unsigned long & v, tavCodecMeta const &) {
    *impl_ << v;
}

void tavPmlOutStream::io(long & v, tavCodecMeta const &) {
    *impl_ << v;
}

void tavPmlOutStream::io(unsigned int & v, tavCodecMeta const &) {
    *impl_ << v;
}

void tavPmlOutStream::io(int & v, tavCodecMeta const &) {
    *impl_ << v;
}

void tavPmlOutStream::io(unsigned short & v, tavCodecMeta const &) {
    *impl_ << v;
}

void tavPmlOutStream::io(short & v, tavCodecMeta const &) {
    *impl_ << v;
}

void tavPmlOutStream::io(unsigned char & v, tavCodecMeta const &) {
    *impl_ << v;
}

void tavPmlOutStream::io(char & v, tavCodecMeta const &) {
    *impl_ << v;
}

void tavPmlOutStream::io(bool & v, tavCodecMeta const &) {
    *impl_ << v;
}

tavPmlOutStream & tavPmlOutStream::name(tav_istr v) {
    impl_->unit().name(v);
    return *this;
}

tavPmlOutStream & tavPmlOutStream::type(tav_istr v) {
    impl_->unit().type(v);
    return *this;
}

tav_istr tavPmlOutStream::name() const {
    return tav_istr(impl_->unit().name());
}

tav_istr tavPmlOutStream::type() const {
    return tav_istr(impl_->unit().type());
}

std::string tavPmlOutStream::str(bool formatted, bool skipEmpty) const {
    return impl_->str(formatted, skipEmpty);
}

tavPmlOutStream::tavPmlOutStream(tavPmlOutStreamImpl const & impl) : own_(impl), impl_(&own_), owns_(false) {}
