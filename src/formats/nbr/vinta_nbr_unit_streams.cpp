#include "tav/vinta/vinta_nbr_unit.h"

#include "formats/nbr/nbr_document.h"
#include "tav/vinta/vinta_nbr_write.h"

#include <ostream>

namespace tav {
namespace nbr {

namespace {

/// The value as a T, counted if `value` is; null if it is no T.
template <class T>
tavSharedPtr<T> valueAs(tavSharedPtr<ValueBase> const & value) {
    return tavSharedPtr<T>(dynamic_cast<T *>(value.get()), value.counted());
}

} // namespace

NbrOutputStream::Entry::Entry(NbrOutputStream & s) : stream_(s) {
    enter(stream_);
}

NbrOutputStream::Entry::~Entry() {
    leave(stream_);
}

void NbrOutputStream::Entry::enter(NbrOutputStream & s) {
    detail::writeMarker(s, '(');
}

void NbrOutputStream::Entry::leave(NbrOutputStream & s) {
    detail::writeMarker(s, ')');
}

NbrOutputStream::NbrOutputStream() = default;

NbrOutputStream & NbrOutputStream::operator<<(char v) {
    detail::writeValue(*this, v);
    return *this;
}

NbrOutputStream & NbrOutputStream::operator<<(unsigned char v) {
    detail::writeValue(*this, v);
    return *this;
}

NbrOutputStream & NbrOutputStream::operator<<(short v) {
    detail::writeValue(*this, v);
    return *this;
}

NbrOutputStream & NbrOutputStream::operator<<(unsigned short v) {
    detail::writeValue(*this, v);
    return *this;
}

NbrOutputStream & NbrOutputStream::operator<<(int v) {
    detail::writeValue(*this, v);
    return *this;
}

NbrOutputStream & NbrOutputStream::operator<<(unsigned int v) {
    detail::writeValue(*this, v);
    return *this;
}

NbrOutputStream & NbrOutputStream::operator<<(float v) {
    detail::writeValue(*this, v);
    return *this;
}

NbrOutputStream & NbrOutputStream::operator<<(double v) {
    detail::writeValue(*this, v);
    return *this;
}

NbrOutputStream & NbrOutputStream::operator<<(long v) {
    detail::writeValue(*this, v);
    return *this;
}

NbrOutputStream & NbrOutputStream::operator<<(unsigned long v) {
    detail::writeValue(*this, v);
    return *this;
}

NbrOutputStream & NbrOutputStream::operator<<(long long v) {
    detail::writeValue(*this, v);
    return *this;
}

NbrOutputStream & NbrOutputStream::operator<<(unsigned long long v) {
    detail::writeValue(*this, v);
    return *this;
}

NbrOutputStream & NbrOutputStream::operator<<(bool v) {
    detail::writeValue(*this, v);
    return *this;
}

NbrOutputStream & NbrOutputStream::operator<<(char const * text) {
    write(tav_istr(text), true);
    return *this;
}

NbrOutputStream & NbrOutputStream::operator<<(tav_istr text) {
    write(text, true);
    return *this;
}

NbrOutputStream & NbrOutputStream::operator<<(std::string const & text) {
    write(tav_istr(text), true);
    return *this;
}

NbrOutputStream & NbrOutputStream::operator<<(tavString const & text) {
    detail::writeValue(*this, text);
    return *this;
}

NbrOutputStream & NbrOutputStream::operator<<(tavBytes const & bytes) {
    detail::writeValue(*this, bytes);
    return *this;
}

NbrOutputStream & NbrOutputStream::operator<<(tavTime const & v) {
    detail::writeValue(*this, v);
    return *this;
}

void NbrOutputStream::write(tav_istr data, bool text) {
    detail::writeSized<false>(*this, 0, data.data(), data.empty() ? 0 : data.size(), text);
}

void NbrOutputStream::writeEmpty() {
    detail::writeSized<false>(*this, 0, nullptr, 0, false);
}

void NbrOutputStream::writeNull() {
    writeRaw(static_cast<unsigned char>(0));
}

void NbrOutputStream::writeRaw(unsigned char b) {
    detail::writeByte(*this, b);
}

void NbrOutputStream::writeRaw(char const * data, unsigned int size) {
    writeBytes(tav_istr(data, size));
}

void NbrOutputStream::writeRaw(tav_istr data) {
    writeBytes(data);
}

void NbrOutputStream::writeTag(char tag) {
    detail::writeByte(*this, static_cast<unsigned char>(tag));
}

void NbrOutputStream::enter(tav_istr, tav_istr, tav_istr) {
    detail::writeMarker(*this, '(');
}

void NbrOutputStream::leave() {
    detail::writeMarker(*this, ')');
}

void NbrOutputStream::enterSuper() {}

void NbrOutputStream::leaveSuper() {}

tav_istr NbrOutputStream::str() const {
    return *this;
}

void NbrOutputStream::encode(tavBytes & out) const {
    out = str();
}

void NbrOutputStream::swap(tavBytes & other) {
    tavBytes::swap(other);
}

std::ostream & operator<<(std::ostream & out, NbrOutputStream const & v) {
    return out << NbrInputStream(v.str());
}

NbrInputStream::NbrInputStream(tavSharedPtr<ValueBase> value) : listed_(true) {
    if (value) {
        values_.push_back(std::move(value));
    }
}

NbrInputStream::NbrInputStream(tav_istr bytes)
    : document_(std::make_shared<detail::Document>()), listed_(false) {
    document_->assign(bytes);
}

NbrInputStream::NbrInputStream(tav_istr bytes, char tag)
    : document_(std::make_shared<detail::Document>()), listed_(false) {
    document_->assign(bytes, tag);
}

NbrInputStream::~NbrInputStream() = default;

NbrInputStream::const_iterator NbrInputStream::begin() const {
    return values().begin();
}

NbrInputStream::const_iterator NbrInputStream::end() const {
    return values().end();
}

bool NbrInputStream::empty() const {
    return document_ ? document_->nodes().empty() : values_.empty();
}

tavSharedPtr<SimpleValue> NbrInputStream::getSimpleValue() const {
    return empty() ? tavSharedPtr<SimpleValue>() : valueAs<SimpleValue>(values().front());
}

tavSharedPtr<ComplexValue> NbrInputStream::getComplexValue() const {
    return empty() ? tavSharedPtr<ComplexValue>() : valueAs<ComplexValue>(values().front());
}

tavSharedPtr<ValueBase> NbrInputStream::getChild(char tag) const {
    tavSharedPtr<ComplexValue> const complex = getComplexValue();
    return complex ? complex->get(tag) : tavSharedPtr<ValueBase>();
}

bool NbrInputStream::decoding() const {
    return true;
}

int NbrInputStream::dumping() const {
    return 0;
}

void NbrInputStream::enter(tav_istr, tav_istr, tav_istr) {}

void NbrInputStream::leave() {}

void NbrInputStream::enterSuper() {}

void NbrInputStream::leaveSuper() {}

std::ostream & NbrInputStream::dump(std::ostream & out, bool pretty) const {
    if (!listed_) {
        document_->dump(out, pretty);
        return out;
    }
    for (tavSharedPtr<ValueBase> const & value : values_) {
        value->dump(out, pretty, 0);
        if (pretty) {
            out.put('\n');
        }
    }
    return out;
}

std::list<tavSharedPtr<ValueBase>> & NbrInputStream::values() const {
    if (!listed_) {
        std::list<tavSharedPtr<ValueBase>> all;
        detail::Document::Empties empties;
        for (unsigned i = 0; i != document_->nodes().size(); i = document_->next(i)) {
            all.push_back(detail::Document::value(document_, i, empties));
        }
        values_.swap(all);
        listed_ = true;
    }
    return values_;
}

bool NbrInputStream::firstData(tav_istr & data) const {
    if (document_) {
        if (document_->nodes().empty() || !detail::Document::isSimple(document_->node(0))) {
            return false;
        }
        data = document_->data(document_->node(0));
        return true;
    }
    auto const value = values_.empty() ? nullptr : dynamic_cast<SimpleValue const *>(values_.front().get());
    if (value == nullptr) {
        return false;
    }
    data = value->data();
    return true;
}

std::ostream & operator<<(std::ostream & out, NbrInputStream const & v) {
    return v.dump(out, false);
}

} // namespace nbr
} // namespace tav
