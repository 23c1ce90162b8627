#include "tav/vinta/vinta_nbr_unit.h"

#include "formats/nbr/nbr_document.h"
#include "foundation/masked_text.h"
#include "foundation/report.h"
#include "foundation/scope_exit.h"
#include "foundation/tree_end.h"
#include "foundation/views.h"
#include "tav/vinta/vinta_basetypes_failures.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cstdint>
#include <mutex>
#include <ostream>
#include <string>
#include <string_view>
#include <typeinfo>

std::ostream & operator<<(std::ostream & out, tav_nbr_buf const & v) {
    return out << tav::nbr::_PrintNbr(tav_istr(v.data, v.size), false);
}

namespace tav {
namespace nbr {

namespace detail {

using tav::detail::here;
using tav::detail::Site;

/// Reads values off bytes that may be anything.  It never leaves the bytes that it was given; a position
/// moves backward only as a size of 2^31 and more says, and not ahead of the first byte.
///
/// The data of a value that leads backward are all that remain, so such values share their bytes.  When they
/// hold together several times as much as the input, the input is used up: or whoever copies their data would
/// need the square of its size.
class Scanner {
public:
    explicit Scanner(tav_istr bytes) : bytes_(bytes), size_(bytes.empty() ? 0 : bytes.size()) {}
    Scanner(Scanner const &) = delete;
    Scanner & operator=(Scanner const &) = delete;

    tav_istr bytes() const { return bytes_; }
    tav_istr remaining() const { return tav_istr(bytes_.data() + pos_, left()); }
    unsigned left() const { return size_ - pos_; }
    bool atEnd() const { return pos_ == size_; }
    unsigned position() const { return pos_; }

    bool atOpen() const { return atMarker('('); }
    bool atClose() const { return atMarker(')'); }
    void skipMarker() { pos_ += 3; }
    char takeByte() { return bytes_.data()[pos_++]; }

    /// To be called when a value ends that began at `start`, in a loop over values: one that did not get
    /// ahead uses the input up, so that each loop ends.
    void demandProgress(unsigned start) {
        if (pos_ <= start) {
            pos_ = size_;
        }
    }

    /// Reads one simple value of 1 to 255 bytes that is all there, as most are.  False, with nothing
    /// consumed, if it is anything else.
    bool peekShort(tav_istr & data, bool & text) {
        if (left() < 3) {
            return false;
        }
        char const * const p = bytes_.data() + pos_;
        unsigned const size = static_cast<unsigned char>(p[1]);
        bool const known = p[0] == '\x01' || p[0] == '\xF1';
        if (!known || size == 0 || size > left() - 2) {
            return false;
        }
        text = p[0] != '\x01';
        data = tav_istr(p + 2, size);
        pos_ += 2 + size;
        return true;
    }

    /// Reads one simple value.  False if there is none.
    [[gnu::noinline]] bool peekValue(tav_istr & data, bool & text) {
        constexpr char const * func = "tav::nbr::parser::peekValue";
        if (atEnd()) {
            trace(here(func), "empty iptr_\n");
            return false;
        }
        unsigned const head = static_cast<unsigned char>(takeByte());
        if (atEnd()) {
            trace(here(func), "no data after length of size\n");
            return false;
        }
        if (head == 0xFF) {
            trace(here(func), "...data truncated : length of data too large...\n");
            return false;
        }
        if (head >= 0x10 && head < 0xF0) {
            fail(here(func), "maybe not nbr: invalid high part of lengthOfSize ", head, 16);
        }
        text = head >= 0xF0;
        unsigned const lengthOfSize = head & 0x0F;
        if (lengthOfSize == 0) {
            return false;
        }
        if (lengthOfSize > 4) {
            fail(here(func), "maybe not nbr: invalid lengthOfSize ", lengthOfSize, 10);
        }
        if (left() < lengthOfSize) {
            trace(here(func), "...data truncated : length of data too small...\n");
            return false;
        }
        tav_istr const field(bytes_.data() + pos_, lengthOfSize);
        pos_ += lengthOfSize;
        if (field.empty()) {
            trace(here(func), "empty size, expected " + std::to_string(lengthOfSize) + '\n');
            return false;
        }
        unsigned const size = static_cast<unsigned>(readCompact(field.data(), lengthOfSize));
        if (size == 0) {
            data = tav_istr();
            return true;
        }
        if (atEnd()) {
            trace(here(func), "no data after size\n");
            return false;
        }
        data = remaining().leftstr(size);
        move(size);
        return true;
    }

    /// Reads the first member with this tag of the flat complex value here.  False if there is no such simple
    /// value.
    bool find(char tag, tav_istr & data, bool & text) {
        if (atEnd()) {
            traceEmptyInput();
            return false;
        }
        if (!atOpen()) {
            return false;
        }
        skipMarker();
        while (!atEnd() && !atClose()) {
            unsigned const start = pos_;
            bool const sought = takeByte() == tag;
            if (atEnd()) {
                traceEmptyValue();
                return false;
            }
            bool const read = peekValue(data, text);
            if (sought) {
                return read;
            }
            demandProgress(start);
        }
        return false;
    }

    void traceEmptyInput() { trace(here("tav::nbr::parser::parseValue"), "eof: empty iptr_\n"); }
    void traceEmptyValue() { trace(here("tav::nbr::parser::parseValue"), "eof: empty value\n"); }

private:
    bool atMarker(char last) const {
        char const * const p = bytes_.data() + pos_;
        return left() >= 3 && p[0] == '\xFF' && p[1] == '\x01' && p[2] == last;
    }

    void move(unsigned size) {
        if (size < 0x80000000u) {
            pos_ += std::min(size, left());
            return;
        }
        constexpr unsigned long long always = 64 * 1024;
        shared_ += left();
        unsigned const back = 0u - size;
        bool const follows = back <= pos_ && shared_ <= 4ull * size_ + always;
        pos_ = follows ? pos_ - back : size_;
    }

    /// The level is asked for once in the life of a scanner: hostile input may have a fault at every byte.
    void trace(Site site, std::string_view text) {
        if (tracing_ == Tracing::unknown) {
            bool const loggable = tavLogger::isLoggable(tavLogger::DEFAULT_TAG(), tavLogger::TRACE);
            tracing_ = loggable ? Tracing::on : Tracing::off;
        }
        if (tracing_ == Tracing::on) {
            tavLogger::writeLog(tavLogger::DEFAULT_TAG(), tavLogger::TRACE, tav::detail::viewOf(text),
                                site.file, static_cast<int>(site.line), site.func);
        }
    }

    [[noreturn]] static void fail(Site site, char const * what, unsigned number, int base) {
        std::array<char, 16> digits;
        char * const end = std::to_chars(digits.data(), digits.data() + digits.size(), number, base).ptr;
        tav::detail::raise(site, std::string("DecodeException: ").append(what).append(digits.data(), end));
    }

    enum class Tracing : unsigned char { unknown, off, on };

    tav_istr const bytes_;
    unsigned const size_;
    unsigned pos_ = 0;
    /// The bytes of all data that led backward.
    unsigned long long shared_ = 0;
    Tracing tracing_ = Tracing::unknown;
};

namespace {

void printNumber(std::ostream & out, long long v) {
    std::array<char, 24> digits;
    char * const end = std::to_chars(digits.data(), digits.data() + digits.size(), v).ptr;
    out.write(digits.data(), end - digits.data());
}

/// What stands ahead of a member, or of a closing brace: a blank, or a line end and the indentation.
void printSeparator(std::ostream & out, bool pretty, long long level) {
    if (!pretty) {
        out.put(' ');
        return;
    }
    out.put('\n');
    constexpr std::string_view blanks = "                                                                ";
    for (long long n = 4 * level; n > 0;) {
        long long const some = std::min(n, static_cast<long long>(blanks.size()));
        out.write(blanks.data(), static_cast<std::streamsize>(some));
        n -= some;
    }
}

void printMember(std::ostream & out, char tag, bool pretty, long long level) {
    printSeparator(out, pretty, level);
    printNumber(out, static_cast<signed char>(tag));
}

void printSimple(std::ostream & out, tav_istr data, bool text) {
    unsigned const size = data.empty() ? 0 : data.size();
    out.put('[');
    printNumber(out, size);
    out.put(']');
    if (size == 0) {
        return;
    }
    if (text) {
        std::string const masked = tav::detail::maskedText(tav::detail::bytesOf(data), "...***...");
        out.put('"');
        out.write(masked.data(), static_cast<std::streamsize>(masked.size()));
        out.put('"');
    } else if (size <= 2) {
        printNumber(out, static_cast<short>(readCompact(data.data(), size)));
    } else if (size <= 4) {
        printNumber(out, static_cast<int>(readCompact(data.data(), size)));
    } else if (size <= 8) {
        printNumber(out, static_cast<long long>(readCompact(data.data(), size)));
    } else {
        out << tav::printAsHex(data.leftstr(4));
        out.write("***", 3);
        out << tav::printAsHex(data.rightstr(4));
    }
}

/// What is known of the members so far of the complex value that is being parsed.
struct Members {
    unsigned count = 0;
    char lastTag = 0;
    bool ordered = true;

    void note(char tag) {
        bool const ascends = static_cast<unsigned char>(tag) > static_cast<unsigned char>(lastTag);
        ordered = ordered && (ascends || count == 0);
        lastTag = tag;
        ++count;
    }
};

} // namespace

void Document::assign(tav_istr bytes) {
    copy(bytes);
    parseAll(buffer_);
}

void Document::view(tav_istr bytes, std::size_t expected) {
    nodes_.clear();
    nodes_.reserve(expected);
    base_ = bytes.data();
    parseAll(bytes);
}

void Document::check(tav_istr bytes) {
    Scanner in(bytes);
    while (!in.atEnd()) {
        unsigned const start = in.position();
        tav_istr data;
        bool text = false;
        if (in.atOpen()) {
            checkComplex(in);
        } else {
            in.peekValue(data, text);
        }
        in.demandProgress(start);
    }
}

void Document::checkComplex(Scanner & in) {
    in.skipMarker();
    for (unsigned depth = 1; depth != 0;) {
        if (in.atEnd()) {
            return;
        }
        if (in.atClose()) {
            in.skipMarker();
            --depth;
            continue;
        }
        unsigned const start = in.position();
        in.takeByte();
        tav_istr data;
        bool text = false;
        if (in.atEnd()) {
            in.traceEmptyValue();
        } else if (in.peekShort(data, text)) {
            continue;
        } else if (in.atOpen()) {
            in.skipMarker();
            ++depth;
        } else {
            in.peekValue(data, text);
            in.demandProgress(start);
        }
    }
}

void Document::parseAll(tav_istr bytes) {
    Scanner in(bytes);
    while (!in.atEnd()) {
        unsigned const start = in.position();
        if (in.atOpen()) {
            parse(in);
        } else {
            tav_istr data;
            bool text = false;
            if (in.peekValue(data, text)) {
                append(in, 0, text ? Kind::text : Kind::binary, data);
            }
        }
        in.demandProgress(start);
    }
}

void Document::assign(tav_istr bytes, char tag) {
    copy(bytes);
    Scanner in(buffer_);
    tav_istr data;
    bool text = false;
    if (in.find(tag, data, text)) {
        append(in, 0, text ? Kind::text : Kind::binary, data);
    }
}

void Document::parse(Scanner & in) {
    base_ = in.bytes().data();
    unsigned open = begin(in, 0, none);
    Members members;
    while (open != none) {
        if (in.atEnd() || in.atClose()) {
            if (!in.atEnd()) {
                in.skipMarker();
            }
            Node & closed = nodes_[open];
            open = closed.place;
            closed.place = static_cast<unsigned>(nodes_.size());
            closed.size = members.count;
            closed.ordered = members.ordered;
            if (open != none) {
                Node const & around = nodes_[open];
                members = Members{around.size, around.lastTag, around.ordered};
            }
            continue;
        }
        unsigned const start = in.position();
        char const tag = in.takeByte();
        if (in.atEnd()) {
            in.traceEmptyValue();
            continue;
        }
        members.note(tag);
        tav_istr data;
        bool text = false;
        if (in.peekShort(data, text)) {
            append(in, tag, text ? Kind::text : Kind::binary, data);
        } else if (in.atOpen()) {
            Node & around = nodes_[open];
            around.size = members.count;
            around.lastTag = members.lastTag;
            around.ordered = members.ordered;
            open = begin(in, tag, open);
            members = Members();
        } else {
            bool const read = in.peekValue(data, text);
            append(in, tag, !read ? Kind::null : text ? Kind::text : Kind::binary, data);
            in.demandProgress(start);
        }
    }
}

void Document::clear() {
    constexpr unsigned keptBytes = 4096;
    constexpr std::size_t keptNodes = 340;
    if (buffer_.maxSize() > keptBytes) {
        buffer_.clear();
    }
    if (nodes_.capacity() > keptNodes) {
        std::vector<Node>().swap(nodes_);
    }
    nodes_.clear();
    base_ = nullptr;
}

unsigned Document::search(unsigned parent, char tag, unsigned & cursor) const {
    unsigned const end = nodes_[parent].place;
    unsigned i = parent + 1;
    if (!nodes_[parent].ordered) {
        unsigned found = none;
        for (; i != end; i = next(i)) {
            if (nodes_[i].tag == tag) {
                found = i;
            }
        }
        return found;
    }
    auto const order = [](char t) { return static_cast<unsigned char>(t); };
    if (cursor != parent && order(nodes_[cursor].tag) < order(tag)) {
        i = next(cursor);
    }
    for (; i != end && order(nodes_[i].tag) <= order(tag); i = next(i)) {
        cursor = i;
        if (nodes_[i].tag == tag) {
            return i;
        }
    }
    return none;
}

tavSharedPtr<ValueBase> Document::value(std::shared_ptr<Document const> const & document, unsigned i,
                                        Empties & empties) {
    Node const & node = document->nodes_[i];
    if (node.kind == Kind::null) {
        return nullptr;
    }
    if (node.kind == Kind::complex) {
        return tavSharedPtr<ValueBase>(new ComplexValue(document, i));
    }
    bool const text = node.kind == Kind::text;
    if (node.size != 0) {
        return tavSharedPtr<ValueBase>(new SimpleValue(document->data(node), text));
    }
    // Two bytes of input are not worth a value of their own.
    tavSharedPtr<ValueBase> & empty = text ? empties.text : empties.binary;
    if (!empty) {
        empty = tavSharedPtr<ValueBase>(new SimpleValue(text));
    }
    return empty;
}

void Document::dump(std::ostream & out, unsigned i, bool pretty, int level) const {
    Node const & root = nodes_[i];
    if (root.kind != Kind::complex) {
        printSimple(out, data(root), root.kind == Kind::text);
        return;
    }
    std::vector<unsigned> ends(1, root.place);
    auto const depth = [&] { return level + static_cast<long long>(ends.size()); };
    out.put('{');
    ++i;
    while (!ends.empty()) {
        if (i == ends.back()) {
            ends.pop_back();
            printSeparator(out, pretty, depth());
            out.put('}');
            continue;
        }
        Node const & node = nodes_[i];
        ++i;
        printMember(out, node.tag, pretty, depth());
        if (node.kind == Kind::complex) {
            ends.push_back(node.place);
            out.put('{');
        } else if (node.kind == Kind::null) {
            out.write("[]", 2);
        } else {
            printSimple(out, data(node), node.kind == Kind::text);
        }
    }
}

void Document::dump(std::ostream & out, bool pretty) const {
    for (unsigned i = 0; i != nodes_.size(); i = next(i)) {
        dump(out, i, pretty, 0);
        if (pretty) {
            out.put('\n');
        }
    }
}

void Document::copy(tav_istr bytes) {
    nodes_.clear();
    buffer_.size(0);
    buffer_.writeBytes(bytes);
    base_ = tav_istr(buffer_).data();
}

/// Makes room, but for no more values than what is left may hold: each takes two bytes or more, unless sizes
/// lead backward.
void Document::grow(Scanner const & in) {
    std::size_t const used = nodes_.size();
    std::size_t const usual = used == 0 ? std::min(in.left() / 4 + 1, 64u) : used * 2;
    nodes_.reserve(std::min(usual, used + in.left() / 2 + 1));
}

unsigned Document::begin(Scanner & in, char tag, unsigned around) {
    in.skipMarker();
    unsigned const i = append(in, tag, Kind::complex, tav_istr());
    nodes_[i].place = around;
    return i;
}

} // namespace detail

namespace {

/// The locks under which the nodes of trees that threads share are made.  Each tree node has one of them.
std::mutex & treeMutex(void const * node) {
    static std::array<std::mutex, 16> mutexes;
    return mutexes[reinterpret_cast<std::uintptr_t>(node) / 64 % mutexes.size()];
}

using End = tav::detail::TreeEnd<std::vector<ComplexValue::Item>, 1>;

} // namespace

/// The place of the last member of each tag; `none` for a tag that is not there.
struct ComplexValue::Index {
    static constexpr std::size_t none = static_cast<std::size_t>(-1);

    explicit Index(std::vector<Item> const & items) {
        last.fill(none);
        for (std::size_t i = 0; i < items.size(); ++i) {
            at(items[i].first) = i;
        }
    }

    std::size_t & at(char tag) { return last[static_cast<unsigned char>(tag)]; }

    std::array<std::size_t, 256> last;
};

ValueBase::~ValueBase() = default;

SimpleValue::SimpleValue(tav_istr data, bool text) : data_(data), text_(text) {}

SimpleValue::SimpleValue(bool text) : text_(text) {}

bool SimpleValue::simple() const {
    return true;
}

std::ostream & SimpleValue::dump(std::ostream & out, bool, int) const {
    detail::printSimple(out, data_, text_);
    return out;
}

tav_istr SimpleValue::data() const {
    return data_;
}

bool SimpleValue::isNull() const {
    return data_.data() == nullptr && data_.size() == 0;
}

bool SimpleValue::isEmpty() const {
    return data_.data() != nullptr && data_.size() == 0;
}

bool SimpleValue::isNullOrEmpty() const {
    return data_.data() == nullptr || data_.size() == 0;
}

bool SimpleValue::read(char & v) const {
    return detail::decodeValue(data_, v);
}

bool SimpleValue::read(unsigned char & v) const {
    return detail::decodeValue(data_, v);
}

bool SimpleValue::read(bool & v) const {
    return detail::decodeValue(data_, v);
}

bool SimpleValue::read(short & v) const {
    return detail::decodeValue(data_, v);
}

bool SimpleValue::read(unsigned short & v) const {
    return detail::decodeValue(data_, v);
}

bool SimpleValue::read(int & v) const {
    return detail::decodeValue(data_, v);
}

bool SimpleValue::read(unsigned int & v) const {
    return detail::decodeValue(data_, v);
}

bool SimpleValue::read(float & v) const {
    return detail::decodeValue(data_, v);
}

bool SimpleValue::read(long & v) const {
    return detail::decodeValue(data_, v);
}

bool SimpleValue::read(unsigned long & v) const {
    return detail::decodeValue(data_, v);
}

bool SimpleValue::read(long long & v) const {
    return detail::decodeValue(data_, v);
}

bool SimpleValue::read(unsigned long long & v) const {
    return detail::decodeValue(data_, v);
}

bool SimpleValue::read(double & v) const {
    return detail::decodeValue(data_, v);
}

bool SimpleValue::read(tavTime & v) const {
    return detail::decodeValue(data_, v);
}

bool SimpleValue::read(tavBytes & v) const {
    return detail::decodeValue(data_, v);
}

bool SimpleValue::read(tavString & v) const {
    return detail::decodeValue(data_, v);
}

bool SimpleValue::decode(tav_istr data, char & v) {
    return detail::decodeValue(data, v);
}

bool SimpleValue::decode(tav_istr data, unsigned char & v) {
    return detail::decodeValue(data, v);
}

bool SimpleValue::decode(tav_istr data, bool & v) {
    return detail::decodeValue(data, v);
}

bool SimpleValue::decode(tav_istr data, short & v) {
    return detail::decodeValue(data, v);
}

bool SimpleValue::decode(tav_istr data, unsigned short & v) {
    return detail::decodeValue(data, v);
}

bool SimpleValue::decode(tav_istr data, int & v) {
    return detail::decodeValue(data, v);
}

bool SimpleValue::decode(tav_istr data, unsigned int & v) {
    return detail::decodeValue(data, v);
}

bool SimpleValue::decode(tav_istr data, float & v) {
    return detail::decodeValue(data, v);
}

bool SimpleValue::decode(tav_istr data, long & v) {
    return detail::decodeValue(data, v);
}

bool SimpleValue::decode(tav_istr data, unsigned long & v) {
    return detail::decodeValue(data, v);
}

bool SimpleValue::decode(tav_istr data, long long & v) {
    return detail::decodeValue(data, v);
}

bool SimpleValue::decode(tav_istr data, unsigned long long & v) {
    return detail::decodeValue(data, v);
}

bool SimpleValue::decode(tav_istr data, double & v) {
    return detail::decodeValue(data, v);
}

bool SimpleValue::decode(tav_istr data, tavTime & v) {
    return detail::decodeValue(data, v);
}

bool SimpleValue::decode(tav_istr data, tavBytes & v) {
    return detail::decodeValue(data, v);
}

bool SimpleValue::decode(tav_istr data, tavString & v) {
    return detail::decodeValue(data, v);
}

ComplexValue::ComplexValue() : node_(detail::Document::none), loaded_(true), index_(nullptr) {}

ComplexValue::ComplexValue(ComplexValue const & other)
    : ValueBase(other),
      document_(other.document_),
      node_(other.node_),
      loaded_(true),
      items_(other.data()),
      index_(nullptr) {}

ComplexValue & ComplexValue::operator=(ComplexValue const & other) {
    if (this != &other) {
        std::vector<Item> items(other.data());
        document_ = other.document_;
        node_ = other.node_;
        items_.swap(items);
        loaded_.store(true, std::memory_order_release);
        delete index_.exchange(nullptr, std::memory_order_acq_rel);
    }
    return *this;
}

ComplexValue::~ComplexValue() {
    delete index_.load(std::memory_order_relaxed);
    if (!items_.empty()) {
        End::destroy([this] { items_.clear(); },
                     [this](std::vector<std::vector<Item>> & below) { below.push_back(std::move(items_)); });
    }
}

bool ComplexValue::simple() const {
    return false;
}

std::ostream & ComplexValue::dump(std::ostream & out, bool pretty, int level) const {
    if (document_) {
        document_->dump(out, node_, pretty, level);
        return out;
    }
    // The values that the printing is in, and their next members.
    std::vector<std::pair<ComplexValue const *, std::size_t>> open(1, {this, 0});
    auto const depth = [&] { return level + static_cast<int>(open.size()); };
    out.put('{');
    while (!open.empty()) {
        std::vector<Item> const & items = open.back().first->items_;
        if (open.back().second == items.size()) {
            open.pop_back();
            detail::printSeparator(out, pretty, depth());
            out.put('}');
            continue;
        }
        Item const & item = items[open.back().second++];
        detail::printMember(out, item.first, pretty, depth());
        ValueBase const * const value = item.second.get();
        if (value == nullptr) {
            out.write("[]", 2);
            continue;
        }
        ValueBase const & known = *value;
        ComplexValue const * const inner =
            typeid(known) == typeid(ComplexValue) ? static_cast<ComplexValue const *>(value) : nullptr;
        if (inner == nullptr || inner->document_) {
            value->dump(out, pretty, depth());
        } else {
            open.emplace_back(inner, 0);
            out.put('{');
        }
    }
    return out;
}

void ComplexValue::add(char tag, tavSharedPtr<ValueBase> value) {
    load();
    items_.emplace_back(tag, std::move(value));
    document_.reset();
    if (Index * const index = index_.load(std::memory_order_relaxed)) {
        index->at(tag) = items_.size() - 1;
    }
}

tavSharedPtr<ValueBase> ComplexValue::get(char tag) const {
    constexpr std::size_t few = 32;
    std::vector<Item> const & items = data();
    std::size_t i = Index::none;
    if (items.size() > few) {
        i = index().at(tag);
    } else {
        for (std::size_t n = items.size(); n > 0 && i == Index::none; --n) {
            if (items[n - 1].first == tag) {
                i = n - 1;
            }
        }
    }
    return i == Index::none ? tavSharedPtr<ValueBase>() : items[i].second;
}

std::vector<ComplexValue::Item> const & ComplexValue::data() const {
    if (!loaded_.load(std::memory_order_acquire)) {
        load();
    }
    return items_;
}

ComplexValue::const_iterator ComplexValue::begin() const {
    return data().begin();
}

ComplexValue::const_iterator ComplexValue::end() const {
    return data().end();
}

ComplexValue::ComplexValue(std::shared_ptr<detail::Document const> document, unsigned node)
    : document_(std::move(document)), node_(node), loaded_(false), index_(nullptr) {}

void ComplexValue::load() const {
    std::lock_guard<std::mutex> guard(treeMutex(this));
    if (loaded_.load(std::memory_order_relaxed)) {
        return;
    }
    detail::Document::Node const & root = document_->node(node_);
    std::vector<Item> items;
    items.reserve(root.size);
    detail::Document::Empties empties;
    for (unsigned i = node_ + 1; i != root.place; i = document_->next(i)) {
        items.emplace_back(document_->node(i).tag, detail::Document::value(document_, i, empties));
    }
    items_.swap(items);
    loaded_.store(true, std::memory_order_release);
}

ComplexValue::Index & ComplexValue::index() const {
    Index * index = index_.load(std::memory_order_acquire);
    if (index == nullptr) {
        std::lock_guard<std::mutex> guard(treeMutex(this));
        index = index_.load(std::memory_order_relaxed);
        if (index == nullptr) {
            index = new Index(items_);
            index_.store(index, std::memory_order_release);
        }
    }
    return *index;
}

parser::parser(tav_istr & input) : input_(input) {}

tavSharedPtr<ValueBase> parser::from(tav_istr & input) {
    return parser(input).parseValue();
}

tavSharedPtr<SimpleValue> parser::from(tav_istr input, char tag) {
    return parser(input).findValue(tag);
}

tavSharedPtr<ValueBase> parser::parseValue() {
    detail::Scanner in(input_);
    if (in.atEnd()) {
        in.traceEmptyInput();
        return nullptr;
    }
    // What was consumed stays consumed, also when the parsing fails.
    tav::detail::ScopeExit const consume([&] { input_ = in.remaining(); });
    if (in.atOpen()) {
        auto const document = std::make_shared<detail::Document>();
        document->parse(in);
        detail::Document::Empties none;
        return detail::Document::value(document, document->first(), none);
    }
    tav_istr data;
    bool text = false;
    return in.peekValue(data, text) ? tavSharedPtr<ValueBase>(new SimpleValue(data, text)) : nullptr;
}

tavSharedPtr<SimpleValue> parser::findValue(char tag) {
    detail::Scanner in(input_);
    tav_istr data;
    bool text = false;
    return in.find(tag, data, text) ? tavSharedPtr<SimpleValue>(new SimpleValue(data, text)) : nullptr;
}

_PrintNbr::_PrintNbr(tav_istr bytes, bool pretty) : bytes_(bytes), pretty_(pretty) {}

std::ostream & operator<<(std::ostream & out, _PrintNbr const & v) {
    return NbrInputStream(v.bytes_).dump(out, v.pretty_);
}

} // namespace nbr
} // namespace tav
