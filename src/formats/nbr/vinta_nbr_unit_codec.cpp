#include "tav/vinta/vinta_nbr_unit.h"

#include "formats/nbr/nbr_document.h"
#include "formats/nbr/nbr_elements.h"
#include "foundation/thread_pool.h"
#include "tav/vinta/vinta_nbr_write.h"

#include <memory>
#include <ostream>
#include <typeinfo>
#include <vector>

namespace tav {
namespace nbr {
namespace detail {

namespace {

/// Streams that are lent out without being counted.  Each has one count here, so that a counted pointer that
/// someone makes of it can come and go.
template <class Stream>
class Lent {
public:
    Lent() = default;
    Lent(Lent const &) = delete;
    Lent & operator=(Lent const &) = delete;
    ~Lent() { shrink(0); }

    unsigned size() const { return static_cast<unsigned>(streams_.size()); }
    Stream & operator[](unsigned i) { return *streams_[i]; }

    void add(std::unique_ptr<Stream> stream) {
        streams_.push_back(stream.get());
        stream.release()->incRefCount();
    }

    /// Keeps `size` streams at most, and none if there were many.
    void shrink(std::size_t size) noexcept {
        bool const many = streams_.capacity() > keptRoom;
        while (streams_.size() > (many ? 0 : size)) {
            streams_.back()->decRefCount();
            streams_.pop_back();
        }
        if (many) {
            std::vector<Stream *>().swap(streams_);
        }
    }

    /// The bytes that all this holds.
    std::size_t footprint() const noexcept {
        // A stream has an allocation for its count, too.
        constexpr std::size_t whole = sizeof(Stream) + 2 * tav::detail::allocationCost + 64;
        return streams_.size() * whole + streams_.capacity() * sizeof(Stream *);
    }

private:
    static constexpr std::size_t keptRoom = 256;

    std::vector<Stream *> streams_;
};

/// Makes a stream as new: no walk has met a field through it.
inline void renew(tavCodecStream & stream) {
    tav::detail::FieldAccess::markEmpty(stream);
}

// What a stream keeps for the next one of its thread.
constexpr unsigned keptOutStreams = 16;
constexpr unsigned keptInStreams = 48;
constexpr unsigned keptElements = 8;
constexpr unsigned keptBytes = 8 * 1024;
constexpr std::size_t keptSlots = 256;

/// Something new, or what the thread has used before.
template <class Family>
Family * takeFamily() {
    Family * const kept = Family::Pool::take();
    return kept != nullptr ? kept : new Family;
}

} // namespace

/// What belongs to an output stream at the root: its own buffer, if it has no other, and its child streams.
/// These have no state but their place in the buffer, so one for each depth serves.
class OutFamily {
public:
    using Pool = tav::detail::ThreadPool<OutFamily, 14 * 1024>;

    tavNbrOutStreamImpl buffer;
    OutFamily * next = nullptr;

    std::size_t footprint() const noexcept {
        return sizeof(*this) + tav::detail::allocationCost + buffer.maxSize() + streams_.footprint();
    }

    static OutFamily * take(tavNbrOutStreamImpl * target) {
        OutFamily * const family = takeFamily<OutFamily>();
        family->target_ = target != nullptr ? target : &family->buffer;
        for (unsigned i = 0; i < family->streams_.size(); ++i) {
            family->aim(family->streams_[i]);
        }
        return family;
    }

    /// Writes a tag and gives the stream for the value behind it.
    static tavSharedPtr<tavCodecStream> nextStream(tavNbrOutStream & parent, unsigned char tag) {
        writeByte(*parent.impl_, tag);
        if (parent.next_ == nullptr) {
            findNext(parent);
        }
        renew(*parent.next_);
        return tavSharedPtr<tavCodecStream>(parent.next_, false);
    }

    void release() noexcept {
        streams_.shrink(keptOutStreams);
        if (streams_.size() != 0) {
            streams_[streams_.size() - 1].next_ = nullptr;
        }
        if (buffer.maxSize() > keptBytes) {
            buffer.clear();
        } else {
            buffer.size(0);
        }
        Pool::give(this);
    }

private:
    [[gnu::noinline]] static void findNext(tavNbrOutStream & parent) {
        if (parent.family_ == nullptr) {
            parent.family_ = take(parent.impl_);
        }
        parent.next_ = &parent.family_->at(parent.depth_ + 1);
    }

    tavNbrOutStream & at(unsigned depth) {
        while (depth >= streams_.size()) {
            std::unique_ptr<tavNbrOutStream> stream(new tavNbrOutStream(*this, streams_.size()));
            aim(*stream);
            streams_.add(std::move(stream));
        }
        return streams_[depth];
    }

    /// Child streams are of this class exactly, so that the walk may write past their virtual operations.
    void aim(tavNbrOutStream & stream) {
        stream.impl_ = target_;
        tav::detail::FieldAccess::setNbrBuffer(stream, target_);
    }

    tavNbrOutStreamImpl * target_ = nullptr;
    Lent<tavNbrOutStream> streams_;
};

/// What belongs to an input stream at the root: the document that it reads, if it has no other, and one
/// stream for each value that was asked for.
class InFamily {
public:
    using Pool = tav::detail::ThreadPool<InFamily, 24 * 1024>;

    Document document;
    InFamily * next = nullptr;

    std::size_t footprint() const noexcept {
        return sizeof(*this) + tav::detail::allocationCost + document.footprint() +
               slots_.capacity() * sizeof(unsigned) + streams_.footprint() + nulls_.footprint() +
               elements_.footprint();
    }

    /// Reads the value of a stream, if it is simple.
    template <class T>
    static void read(tavNbrInStream const & stream, T & v) {
        tav_istr data;
        if (stream.document_ == nullptr) {
            if (stream.impl_->firstData(data)) {
                decodeValue(data, v);
            }
        } else if (stream.node_ != Document::none) {
            Document::Node const & node = stream.document_->node(stream.node_);
            if (Document::isSimple(node)) {
                decodeValue(stream.document_->data(node), v);
            }
        }
    }

    static bool isComplex(tavNbrInStream const & stream) {
        return stream.node_ != Document::none &&
               stream.document_->node(stream.node_).kind == Document::Kind::complex;
    }

    /// The stream of the member with this tag of a stream's complex value; null if there is none or it is
    /// null.
    static tavSharedPtr<tavCodecStream> child(tavNbrInStream & parent, char tag) {
        if (!isComplex(parent)) {
            return nullptr;
        }
        Document const & document = *parent.document_;
        unsigned const node = document.member(parent.node_, tag, parent.cursor_);
        if (node == Document::none || document.node(node).kind == Document::Kind::null) {
            return nullptr;
        }
        return tavSharedPtr<tavCodecStream>(&of(parent).at(document, node), false);
    }

    /// Appends the streams of all members of a stream's complex value.
    static void children(tavNbrInStream & parent, std::vector<tavSharedPtr<tavCodecStream>> & streams) {
        if (!isComplex(parent)) {
            return;
        }
        Document const & document = *parent.document_;
        Document::Node const & list = document.node(parent.node_);
        InFamily & family = of(parent);
        streams.reserve(streams.size() + list.size);
        for (unsigned i = parent.node_ + 1; i != list.place; i = document.next(i)) {
            bool const null = document.node(i).kind == Document::Kind::null;
            streams.emplace_back(null ? &family.nullStream() : &family.at(document, i), false);
        }
    }

    static Elements openElements(tavNbrInStream & list) {
        InFamily & family = of(list);
        if (family.openLists_ == family.elements_.size()) {
            family.elements_.add(std::unique_ptr<tavNbrInStream>(new tavNbrInStream(family)));
        }
        tavNbrInStream & stream = family.elements_[family.openLists_];
        ++family.openLists_;
        stream.document_ = list.document_;
        return Elements{&stream, list.node_ + 1, isComplex(list) ? list.document_->node(list.node_).size : 0};
    }

    static unsigned nextElement(tavNbrInStream & stream, unsigned place) {
        bool const null = stream.document_->node(place).kind == Document::Kind::null;
        stream.node_ = null ? Document::none : place;
        stream.cursor_ = stream.node_;
        renew(stream);
        return stream.document_->next(place);
    }

    static void closeElements(tavNbrInStream & stream) noexcept { --stream.family_->openLists_; }

    /// Whether nothing of a stream was overridden, and its values are a document's.
    static bool isPlain(tavCodecStream & stream) {
        return typeid(stream) == typeid(tavNbrInStream) &&
               static_cast<tavNbrInStream &>(stream).document_ != nullptr;
    }

    /// Has `stream` read the bytes themselves, which stay.
    static void view(tavNbrInStream & stream, tav_istr bytes) {
        Document & document = stream.family_->document;
        document.view(bytes, 0);
        stream.node_ = document.first();
        stream.cursor_ = stream.node_;
    }

    void release() noexcept {
        if (slots_.capacity() > keptSlots) {
            std::vector<unsigned>().swap(slots_);
        }
        slots_.clear();
        streams_.shrink(keptInStreams);
        elements_.shrink(keptElements);
        used_ = 0;
        document.clear();
        Pool::give(this);
    }

private:
    static InFamily & of(tavNbrInStream & stream) {
        if (stream.family_ == nullptr) {
            stream.family_ = takeFamily<InFamily>();
        }
        return *stream.family_;
    }

    /// A stream for one node of `from`, which is always the same document.
    tavNbrInStream & at(Document const & from, unsigned node) {
        if (used_ >= from.nodes().size()) {
            return again(from, node);
        }
        if (used_ == streams_.size()) {
            streams_.add(std::unique_ptr<tavNbrInStream>(new tavNbrInStream(*this)));
        }
        tavNbrInStream & stream = streams_[used_];
        ++used_;
        stream.document_ = &from;
        stream.node_ = node;
        stream.cursor_ = node;
        renew(stream);
        return stream;
    }

    /// There are as many streams as nodes, so that some were asked for repeatedly: from here on each node
    /// keeps to one stream, or the streams would grow with the asking.
    [[gnu::noinline]] tavNbrInStream & again(Document const & from, unsigned node) {
        if (slots_.empty()) {
            slots_.resize(from.nodes().size());
            for (unsigned i = 0; i != used_; ++i) {
                slots_[streams_[i].node_] = i + 1;
            }
        }
        if (slots_[node] == 0) {
            if (used_ == streams_.size()) {
                streams_.add(std::unique_ptr<tavNbrInStream>(new tavNbrInStream(*this)));
            }
            tavNbrInStream & fresh = streams_[used_];
            fresh.document_ = &from;
            fresh.node_ = node;
            fresh.cursor_ = node;
            slots_[node] = ++used_;
        }
        tavNbrInStream & stream = streams_[slots_[node] - 1];
        renew(stream);
        return stream;
    }

    /// Null values are all alike.
    tavNbrInStream & nullStream() {
        if (nulls_.size() == 0) {
            nulls_.add(std::unique_ptr<tavNbrInStream>(new tavNbrInStream(*this)));
        }
        renew(nulls_[0]);
        return nulls_[0];
    }

    /// By node: one more than the place of its stream, 0 if it has none.  Empty until it is needed.
    std::vector<unsigned> slots_;
    unsigned used_ = 0;
    Lent<tavNbrInStream> streams_;
    Lent<tavNbrInStream> nulls_;
    /// One for each list that is open within another.
    Lent<tavNbrInStream> elements_;
    unsigned openLists_ = 0;
};

Elements openElements(tavCodecStream & list) {
    return InFamily::isPlain(list) ? InFamily::openElements(static_cast<tavNbrInStream &>(list))
                                   : Elements{nullptr, 0, 0};
}

unsigned nextElement(tavNbrInStream & stream, unsigned place) {
    return InFamily::nextElement(stream, place);
}

void closeElements(tavNbrInStream & stream) noexcept {
    InFamily::closeElements(stream);
}

void readInPlace(tav_istr bytes, std::function<void(tavCodecStream &)> const & read) {
    tavNbrInStream in{tav_istr()};
    InFamily::view(in, bytes);
    read(in);
}

} // namespace detail
} // namespace nbr
} // namespace tav

using tav::nbr::detail::Document;
using tav::nbr::detail::InFamily;
using tav::nbr::detail::OutFamily;
using tav::nbr::detail::takeFamily;

tavNbrOutStream::tavNbrOutStream(bool hideEmpty)
    : family_(OutFamily::take(nullptr)), next_(nullptr), depth_(root), owns_(false), hideEmpty_(hideEmpty) {
    impl_ = &family_->buffer;
}

tavNbrOutStream::tavNbrOutStream(tavNbrOutStreamImpl * impl, bool owns)
    : impl_(impl), family_(nullptr), next_(nullptr), depth_(root), owns_(owns), hideEmpty_(false) {}

tavNbrOutStream::~tavNbrOutStream() {
    if (depth_ == root) {
        if (family_ != nullptr) {
            family_->release();
        }
        if (owns_) {
            delete impl_;
        }
    }
}

bool tavNbrOutStream::isNull() const {
    return false;
}

bool tavNbrOutStream::hideEmpty() const {
    return hideEmpty_;
}

bool tavNbrOutStream::isOutputStream() const {
    return true;
}

tavSharedPtr<tavCodecStream> tavNbrOutStream::child(int id, tav_istr) {
    return OutFamily::nextStream(*this, static_cast<unsigned char>(id));
}

tavSharedPtr<tavCodecStream> tavNbrOutStream::getOutputChild() {
    return OutFamily::nextStream(*this, 0);
}

void tavNbrOutStream::getInputChildren(std::vector<tavSharedPtr<tavCodecStream>> &) {}

bool tavNbrOutStream::isMapEntryCombined() const {
    return false;
}

void tavNbrOutStream::getInputChildMap(std::map<tavString, tavSharedPtr<tavCodecStream>> &) {}

void tavNbrOutStream::enter(tav_istr, tav_istr) {
    // A class that is derived from this one may have overridden what the walk would pass by.
    if (depth_ == root && typeid(*this) == typeid(tavNbrOutStream)) {
        tav::detail::FieldAccess::setNbrBuffer(*this, impl_);
    }
    tav::nbr::detail::writeMarker(*impl_, '(');
}

void tavNbrOutStream::leave() {
    tav::nbr::detail::writeMarker(*impl_, ')');
}

void tavNbrOutStream::io(tavTime & v, tavCodecMeta const &) {
    tav::nbr::detail::writeValue(*impl_, v);
}

void tavNbrOutStream::io(tavBytes & v, tavCodecMeta const &) {
    tav::nbr::detail::writeValue(*impl_, v);
}

void tavNbrOutStream::io(tavString & v, tavCodecMeta const &) {
    tav::nbr::detail::writeValue(*impl_, v);
}

void tavNbrOutStream::io(double & v, tavCodecMeta const &) {
    tav::nbr::detail::writeValue(*impl_, v);
}

void tavNbrOutStream::io(float & v, tavCodecMeta const &) {
    tav::nbr::detail::writeValue(*impl_, v);
}

void tavNbrOutStream::io(unsigned long long & v, tavCodecMeta const &) {
    tav::nbr::detail::writeValue(*impl_, v);
}

void tavNbrOutStream::io(long long & v, tavCodecMeta const &) {
    tav::nbr::detail::writeValue(*impl_, v);
}

void tavNbrOutStream::io(unsigned long & v, tavCodecMeta const &) {
    tav::nbr::detail::writeValue(*impl_, v);
}

void tavNbrOutStream::io(long & v, tavCodecMeta const &) {
    tav::nbr::detail::writeValue(*impl_, v);
}

void tavNbrOutStream::io(unsigned int & v, tavCodecMeta const &) {
    tav::nbr::detail::writeValue(*impl_, v);
}

void tavNbrOutStream::io(int & v, tavCodecMeta const &) {
    tav::nbr::detail::writeValue(*impl_, v);
}

void tavNbrOutStream::io(unsigned short & v, tavCodecMeta const &) {
    tav::nbr::detail::writeValue(*impl_, v);
}

void tavNbrOutStream::io(short & v, tavCodecMeta const &) {
    tav::nbr::detail::writeValue(*impl_, v);
}

void tavNbrOutStream::io(unsigned char & v, tavCodecMeta const &) {
    tav::nbr::detail::writeValue(*impl_, v);
}

void tavNbrOutStream::io(char & v, tavCodecMeta const &) {
    tav::nbr::detail::writeValue(*impl_, v);
}

void tavNbrOutStream::io(bool & v, tavCodecMeta const &) {
    tav::nbr::detail::writeValue(*impl_, v);
}

void tavNbrOutStream::writeNull() {
    tav::nbr::detail::writeByte(*impl_, 0);
}

tav_istr tavNbrOutStream::str() const {
    return impl_->str();
}

void tavNbrOutStream::dump(std::ostream & out) const {
    out << *impl_;
}

tavNbrOutStream::tavNbrOutStream(OutFamily & family, unsigned depth)
    : impl_(nullptr), family_(&family), next_(nullptr), depth_(depth), owns_(false), hideEmpty_(false) {}

tavNbrInStream::tavNbrInStream(tav_istr bytes)
    : impl_(nullptr),
      family_(takeFamily<InFamily>()),
      document_(&family_->document),
      node_(Document::none),
      cursor_(Document::none),
      root_(true),
      owns_(false) {
    try {
        family_->document.assign(bytes);
    } catch (...) {
        family_->release();
        throw;
    }
    node_ = document_->first();
    cursor_ = node_;
}

tavNbrInStream::tavNbrInStream(tavNbrInStreamImpl * impl, bool owns)
    : impl_(impl),
      family_(nullptr),
      document_(impl->document_.get()),
      node_(document_ != nullptr ? document_->first() : Document::none),
      cursor_(node_),
      root_(true),
      owns_(owns) {}

tavNbrInStream::~tavNbrInStream() {
    if (root_) {
        if (family_ != nullptr) {
            family_->release();
        }
        if (owns_) {
            delete impl_;
        }
    }
}

bool tavNbrInStream::isNull() const {
    return document_ == nullptr ? impl_->empty() : node_ == Document::none;
}

bool tavNbrInStream::hideEmpty() const {
    return false;
}

bool tavNbrInStream::isOutputStream() const {
    return false;
}

tavSharedPtr<tavCodecStream> tavNbrInStream::child(int id, tav_istr) {
    char const tag = static_cast<char>(id);
    if (document_ == nullptr) {
        tavSharedPtr<tav::nbr::ValueBase> value = impl_->getChild(tag);
        return value ? streamOf(std::move(value)) : tavSharedPtr<tavCodecStream>();
    }
    return InFamily::child(*this, tag);
}

tavSharedPtr<tavCodecStream> tavNbrInStream::getOutputChild() {
    return nullptr;
}

void tavNbrInStream::getInputChildren(std::vector<tavSharedPtr<tavCodecStream>> & children) {
    if (document_ == nullptr) {
        if (tavSharedPtr<tav::nbr::ComplexValue> const value = impl_->getComplexValue()) {
            for (tav::nbr::ComplexValue::Item const & item : *value) {
                children.push_back(streamOf(item.second));
            }
        }
        return;
    }
    InFamily::children(*this, children);
}

bool tavNbrInStream::isMapEntryCombined() const {
    return false;
}

void tavNbrInStream::getInputChildMap(std::map<tavString, tavSharedPtr<tavCodecStream>> &) {}

void tavNbrInStream::enter(tav_istr, tav_istr) {}

void tavNbrInStream::leave() {}

void tavNbrInStream::io(tavTime & v, tavCodecMeta const &) {
    InFamily::read(*this, v);
}

void tavNbrInStream::io(tavBytes & v, tavCodecMeta const &) {
    InFamily::read(*this, v);
}

void tavNbrInStream::io(tavString & v, tavCodecMeta const &) {
    InFamily::read(*this, v);
}

void tavNbrInStream::io(double & v, tavCodecMeta const &) {
    InFamily::read(*this, v);
}

void tavNbrInStream::io(float & v, tavCodecMeta const &) {
    InFamily::read(*this, v);
}

void tavNbrInStream::io(unsigned long long & v, tavCodecMeta const &) {
    InFamily::read(*this, v);
}

void tavNbrInStream::io(long long & v, tavCodecMeta const &) {
    InFamily::read(*this, v);
}

void tavNbrInStream::io(unsigned long & v, tavCodecMeta const &) {
    unsigned long long value = 0;
    InFamily::read(*this, value);
    v = static_cast<unsigned long>(value);
}

void tavNbrInStream::io(long & v, tavCodecMeta const &) {
    long long value = 0;
    InFamily::read(*this, value);
    v = static_cast<long>(value);
}

void tavNbrInStream::io(unsigned int & v, tavCodecMeta const &) {
    InFamily::read(*this, v);
}

void tavNbrInStream::io(int & v, tavCodecMeta const &) {
    InFamily::read(*this, v);
}

void tavNbrInStream::io(unsigned short & v, tavCodecMeta const &) {
    InFamily::read(*this, v);
}

void tavNbrInStream::io(short & v, tavCodecMeta const &) {
    InFamily::read(*this, v);
}

void tavNbrInStream::io(unsigned char & v, tavCodecMeta const &) {
    InFamily::read(*this, v);
}

void tavNbrInStream::io(char & v, tavCodecMeta const &) {
    InFamily::read(*this, v);
}

void tavNbrInStream::io(bool & v, tavCodecMeta const &) {
    InFamily::read(*this, v);
}

tavNbrInStream::tavNbrInStream(InFamily & family)
    : impl_(nullptr),
      family_(&family),
      document_(&family.document),
      node_(Document::none),
      cursor_(Document::none),
      root_(false),
      owns_(false) {}

tavSharedPtr<tavCodecStream> tavNbrInStream::streamOf(tavSharedPtr<tav::nbr::ValueBase> value) {
    auto impl = std::make_unique<tavNbrInStreamImpl>(std::move(value));
    tavSharedPtr<tavCodecStream> stream(new tavNbrInStream(impl.get(), true));
    impl.release();
    return stream;
}
