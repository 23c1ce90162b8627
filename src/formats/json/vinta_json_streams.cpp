#include "tav/vinta/vinta_json_streams.h"

#include <utility>

namespace tav {
namespace json {

JsonInputStream::JsonInputStream(JsonUnit const & unit) : borrowed_(&unit) {}

JsonInputStream::JsonInputStream(tav_istr text) : borrowed_(nullptr) {
    owned_.decode(text);
}

JsonInputStream::JsonInputStream(JsonInputStream const & other) = default;

JsonInputStream & JsonInputStream::operator=(JsonInputStream const & other) = default;

JsonInputStream::~JsonInputStream() = default;

JsonInputStream const & JsonInputStream::me() const {
    return *this;
}

JsonUnit const & JsonInputStream::child(tav_istr name) const {
    return unit().child(name);
}

JsonUnit const & JsonInputStream::child(tav_istr name, tav_istr alternative) const {
    return child(alternative.empty() ? name : alternative);
}

JsonUnit const & JsonInputStream::operator[](tav_istr name) const {
    return child(name);
}

tavString JsonInputStream::asString() const {
    return unit().asString();
}

tavString JsonInputStream::str() const {
    return unit().toString(false);
}

tavSharedPtr<JsonValue> const & JsonInputStream::value() const {
    return unit().value();
}

bool JsonInputStream::isNull() const {
    return unit().isNull();
}

bool JsonInputStream::isEmpty() const {
    return isNull();
}

JsonFieldType JsonInputStream::fieldType(tav_istr name) const {
    return child(name).type();
}

bool JsonInputStream::getArrayChildren(JsonArray::const_iterator & begin,
                                       JsonArray::const_iterator & end) const {
    JsonArray const * const array = unit().arrayValue();
    if (array == nullptr) {
        return false;
    }
    begin = array->begin();
    end = array->end();
    return true;
}

bool JsonInputStream::getObjectChildren(JsonObject::const_iterator & begin,
                                        JsonObject::const_iterator & end) const {
    JsonObject const * const object = unit().objectValue();
    if (object == nullptr) {
        return false;
    }
    begin = object->begin();
    end = object->end();
    return true;
}

bool JsonInputStream::decoding() const {
    return true;
}

int JsonInputStream::dumping() const {
    return 0;
}

void JsonInputStream::enter(tav_istr, tav_istr, tav_istr) {}

void JsonInputStream::leave() {}

void JsonInputStream::enterSuper() {}

void JsonInputStream::leaveSuper() {}

JsonOutputStream::JsonOutputStream() : borrowed_(nullptr), array_(nullptr), index_(0), dumping_(0) {}

JsonOutputStream::JsonOutputStream(JsonUnit & unit) : JsonOutputStream() {
    borrowed_ = &unit;
}

JsonOutputStream::JsonOutputStream(JsonOutputStream const & other) = default;

JsonOutputStream::JsonOutputStream(JsonInputStream const & in) : JsonOutputStream() {
    owned_ = in.unit();
}

JsonOutputStream::JsonOutputStream(JsonArray & array, unsigned index) : JsonOutputStream() {
    array_ = &array;
    index_ = index;
}

JsonOutputStream & JsonOutputStream::operator=(JsonOutputStream const & other) = default;

JsonOutputStream::~JsonOutputStream() = default;

JsonUnit & JsonOutputStream::unit() {
    return const_cast<JsonUnit &>(static_cast<JsonOutputStream const &>(*this).unit());
}

JsonUnit const & JsonOutputStream::unit() const {
    if (borrowed_ != nullptr) {
        return *borrowed_;
    }
    return array_ != nullptr ? array_->at(index_) : owned_;
}

JsonOutputStream & JsonOutputStream::me() {
    return *this;
}

JsonUnit & JsonOutputStream::child(tav_istr name) {
    return unit().child(name);
}

JsonUnit & JsonOutputStream::child(tav_istr name, char const * alternative, int) {
    tav_istr const other(alternative);
    return child(other.empty() ? name : other);
}

JsonUnit & JsonOutputStream::operator[](tav_istr name) {
    return child(name);
}

JsonUnit & JsonOutputStream::newChild() {
    return unit().newChild();
}

tavSharedPtr<JsonValue> const & JsonOutputStream::value() const {
    return unit().value();
}

JsonArray & JsonOutputStream::arrayValue() {
    return unit().arrayValue();
}

JsonObject & JsonOutputStream::objectValue() {
    return unit().objectValue();
}

void JsonOutputStream::setNull() {
    unit().setNull();
}

void JsonOutputStream::add(JsonOutputStream const & other) {
    // The other unit may be this one, whose value the coercion drops, or an element of this array.
    JsonUnit const added = other.unit();
    arrayValue().add(added);
}

bool JsonOutputStream::decoding() const {
    return false;
}

int JsonOutputStream::dumping() const {
    return dumping_;
}

void JsonOutputStream::dumping(int v) {
    dumping_ = v;
}

void JsonOutputStream::enter(tav_istr, tav_istr, tav_istr) {}

void JsonOutputStream::leave() {}

void JsonOutputStream::enterSuper() {}

void JsonOutputStream::leaveSuper() {}

tavString JsonOutputStream::encode(bool pretty, bool skipNull, int level, bool sample) const {
    return JsonFormatter(value().get(), pretty, skipNull, level, sample).toString();
}

tavString JsonOutputStream::str(bool pretty, bool skipNull, bool sample) const {
    return encode(pretty, skipNull, 1, sample);
}

tavString JsonOutputStream::dump(bool sample) const {
    return encode(false, false, 1, sample);
}

} // namespace json
} // namespace tav

namespace {

/// A codec stream with its implementation in one piece.
template <class Stream, class Impl>
class StreamOfPart : public Stream {
public:
    explicit StreamOfPart(Impl const & impl) : Stream(&own_, false), own_(impl) {}

private:
    Impl own_;
};

tavSharedPtr<tavJsonInStream> newInStream(tav::json::JsonUnit const & unit) {
    return new StreamOfPart<tavJsonInStream, tavJsonInStreamImpl>(tavJsonInStreamImpl(unit));
}

/// Whether nobody but its keeper holds the stream.
bool isFree(tavCodecStream const * stream) {
    return stream != nullptr && stream->getRefCount() == 1;
}

/// Drops a stream that may keep its own child, and so on as deep as somebody went down: one by one.
template <class Stream>
void dropChain(tavSharedPtr<Stream> first, tavSharedPtr<Stream> Stream::*next) {
    while (isFree(first.get())) {
        tavSharedPtr<Stream> second = std::move((*first).*next);
        first = std::move(second);
    }
}

} // namespace

tavJsonInStream::tavJsonInStream(tav_istr text) : impl_(new tavJsonInStreamImpl(text)), owns_(true) {}

tavJsonInStream::tavJsonInStream(tavJsonInStreamImpl * impl, bool owns) : impl_(impl), owns_(owns) {}

tavJsonInStream::~tavJsonInStream() {
    dropChain(std::move(spare_), &tavJsonInStream::spare_);
    if (owns_) {
        delete impl_;
    }
}

bool tavJsonInStream::isNull() const {
    return impl_->isNull();
}

bool tavJsonInStream::isOutputStream() const {
    return false;
}

tavSharedPtr<tavCodecStream> tavJsonInStream::child(int, tav_istr name) {
    tav::json::JsonUnit const & unit = field(name);
    if (unit.isNull()) {
        return nullptr;
    }
    if (isFree(spare_.get())) {
        *spare_->impl_ = tavJsonInStreamImpl(unit);
        tav::detail::FieldAccess::markEmpty(*spare_);
    } else {
        spare_ = newInStream(unit);
    }
    return spare_;
}

tavSharedPtr<tavCodecStream> tavJsonInStream::getOutputChild() {
    return nullptr;
}

void tavJsonInStream::getInputChildren(std::vector<tavSharedPtr<tavCodecStream>> & children) {
    tav::json::JsonArray const * const array = impl_->unit().arrayValue();
    if (array == nullptr) {
        return;
    }
    children.reserve(children.size() + array->size());
    for (tav::json::JsonUnit const & element : *array) {
        children.push_back(newInStream(element));
    }
}

bool tavJsonInStream::isMapEntryCombined() const {
    return true;
}

void tavJsonInStream::getInputChildMap(std::map<tavString, tavSharedPtr<tavCodecStream>> & children) {
    for (auto const & member : impl_->unit()) {
        children.insert_or_assign(children.end(), member.first, newInStream(member.second));
    }
}

void tavJsonInStream::enter(tav_istr, tav_istr) {}

void tavJsonInStream::leave() {}

void tavJsonInStream::io(tavTime & v, tavCodecMeta const &) {
    tavTime work;
    *impl_ >> work;
    v = work;
}

void tavJsonInStream::io(tavBytes & v, tavCodecMeta const &) {
    tavBytes work;
    *impl_ >> work;
    v.swap(work);
}

void tavJsonInStream::io(tavString & v, tavCodecMeta const &) {
    if (tav::json::JsonString const * const text = impl_->unit().stringValue()) {
        v = text->getValue();
    } else {
        v.clear();
    }
}

void tavJsonInStream::io(double & v, tavCodecMeta const &) {
    *impl_ >> v;
}

void tavJsonInStream::io(float & v, tavCodecMeta const &) {
    *impl_ >> v;
}

void tavJsonInStream::io(unsigned long long & v, tavCodecMeta const &) {
    *impl_ >> v;
}

void tavJsonInStream::io(long long & v, tavCodecMeta const &) {
    *impl_ >> v;
}

void tavJsonInStream::io(unsigned long & v, tavCodecMeta const &) {
    unsigned long long work = 0;
    *impl_ >> work;
    v = static_cast<unsigned long>(work);
}

void tavJsonInStream::io(long & v, tavCodecMeta const &) {
    long long work = 0;
    *impl_ >> work;
    v = static_cast<long>(work);
}

void tavJsonInStream::io(unsigned int & v, tavCodecMeta const &) {
    *impl_ >> v;
}

void tavJsonInStream::io(int & v, tavCodecMeta const &) {
    *impl_ >> v;
}

void tavJsonInStream::io(unsigned short & v, tavCodecMeta const &) {
    *impl_ >> v;
}

void tavJsonInStream::io(short & v, tavCodecMeta const &) {
    *impl_ >> v;
}

void tavJsonInStream::io(unsigned char & v, tavCodecMeta const &) {
    *impl_ >> v;
}

void tavJsonInStream::io(char & v, tavCodecMeta const &) {
    *impl_ >> v;
}

void tavJsonInStream::io(bool & v, tavCodecMeta const &) {
    *impl_ >> v;
}

bool tavJsonInStream::fieldExists(tav_istr name) const {
    return !field(name).isNull();
}

tav::JsonFieldType tavJsonInStream::fieldType(tav_istr name) const {
    return field(name).type();
}

tavString tavJsonInStream::fieldValue(tav_istr name) const {
    return field(name).toString(false);
}

bool tavJsonInStream::valueIsEmpty() const {
    return impl_->isNull();
}

tav::json::JsonUnit const & tavJsonInStream::field(tav_istr name) const {
    return impl_->child(name);
}

tavJsonOutStream::tavJsonOutStream() : impl_(new tavJsonOutStreamImpl), owns_(true) {}

tavJsonOutStream::tavJsonOutStream(tavJsonOutStreamImpl * impl, bool owns) : impl_(impl), owns_(owns) {}

tavJsonOutStream::~tavJsonOutStream() {
    dropChain(std::move(spare_), &tavJsonOutStream::spare_);
    if (owns_) {
        delete impl_;
    }
}

bool tavJsonOutStream::isOutputStream() const {
    return true;
}

tavSharedPtr<tavCodecStream> tavJsonOutStream::child(int, tav_istr name) {
    return streamOf(tavJsonOutStreamImpl(impl_->child(name)));
}

tavSharedPtr<tavCodecStream> tavJsonOutStream::getOutputChild() {
    tav::json::JsonArray & array = impl_->arrayValue();
    unsigned const index = array.size();
    array.newChild();
    return streamOf(tavJsonOutStreamImpl(array, index));
}

void tavJsonOutStream::getInputChildren(std::vector<tavSharedPtr<tavCodecStream>> &) {}

bool tavJsonOutStream::isMapEntryCombined() const {
    return true;
}

void tavJsonOutStream::getInputChildMap(std::map<tavString, tavSharedPtr<tavCodecStream>> &) {}

void tavJsonOutStream::enter(tav_istr, tav_istr) {}

void tavJsonOutStream::leave() {}

void tavJsonOutStream::io(tavTime & v, tavCodecMeta const &) {
    *impl_ << v;
}

void tavJsonOutStream::io(tavBytes & v, tavCodecMeta const &) {
    *impl_ << v;
}

void tavJsonOutStream::io(tavString & v, tavCodecMeta const &) {
    *impl_ << v;
}

void tavJsonOutStream::io(double & v, tavCodecMeta const &) {
    *impl_ << v;
}

void tavJsonOutStream::io(float & v, tavCodecMeta const &) {
    *impl_ << v;
}

void tavJsonOutStream::io(unsigned long long & v, tavCodecMeta const &) {
    *impl_ << v;
}

void tavJsonOutStream::io(long long & v, tavCodecMeta const &) {
    *impl_ << v;
}

void tavJsonOutStream::io(unsigned long & v, tavCodecMeta const &) {
    *impl_ << static_cast<unsigned long long>(v);
}

void tavJsonOutStream::io(long & v, tavCodecMeta const &) {
    *impl_ << static_cast<long long>(v);
}

void tavJsonOutStream::io(unsigned int & v, tavCodecMeta const &) {
    *impl_ << v;
}

void tavJsonOutStream::io(int & v, tavCodecMeta const &) {
    *impl_ << v;
}

void tavJsonOutStream::io(unsigned short & v, tavCodecMeta const &) {
    *impl_ << v;
}

void tavJsonOutStream::io(short & v, tavCodecMeta const &) {
    *impl_ << v;
}

void tavJsonOutStream::io(unsigned char & v, tavCodecMeta const &) {
    *impl_ << v;
}

void tavJsonOutStream::io(char & v, tavCodecMeta const &) {
    *impl_ << v;
}

void tavJsonOutStream::io(bool & v, tavCodecMeta const &) {
    *impl_ << v;
}

void tavJsonOutStream::writeNull() {
    impl_->setNull();
}

void tavJsonOutStream::makeArrayValue() {
    impl_->arrayValue();
}

void tavJsonOutStream::makeObjectValue() {
    impl_->objectValue();
}

tavString tavJsonOutStream::str(bool pretty, bool skipNull) const {
    return impl_->str(pretty, skipNull, false);
}

tavSharedPtr<tavCodecStream> tavJsonOutStream::streamOf(tavJsonOutStreamImpl const & impl) {
    if (isFree(spare_.get())) {
        *spare_->impl_ = impl;
        tav::detail::FieldAccess::markEmpty(*spare_);
    } else {
        spare_ = new StreamOfPart<tavJsonOutStream, tavJsonOutStreamImpl>(impl);
    }
    return spare_;
}
