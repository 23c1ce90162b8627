#include "tav/vinta/vinta_basetypes_codec.h"

#include <deque>
#include <list>
#include <mutex>
#include <string_view>

namespace {

char const * nameOf(bool v) {
    return v ? "true" : "false";
}

/// Whether a type is known to one source file only, by its name in the compilers' common form: a part of it
/// is an unnamed namespace, or a function with internal linkage.  Such types of two files may have one name.
bool isLocalToAFile(std::string_view typeName) {
    if (typeName.find("_GLOBAL__N_") != std::string_view::npos) {
        return true;
    }
    std::size_t const function = typeName.find("ZL");
    return function != std::string_view::npos && function + 2 < typeName.size() &&
           typeName[function + 2] >= '0' && typeName[function + 2] <= '9';
}

} // namespace

tavInterface::~tavInterface() = default;

tavCodecInterface::~tavCodecInterface() = default;

bool tavCodecInterface::empty() const {
    return false;
}

tavMsgInterface::~tavMsgInterface() = default;

tavCodecMeta & tavCodecMeta::operator=(tavCodecMeta const & other) {
    if (this != &other) {
        type = other.type;
        isProtected = other.isProtected;
        spec = other.spec;
        optional = other.optional;
        dropRange();
    }
    return *this;
}

tav::Range const & tavCodecMeta::range() const {
    if (isProtected) {
        // Never destroyed, as fields may be checked until the process ends.
        static tav::Range const & none = *new tav::Range;
        return none;
    }
    tav::Range const * held = range_.load(std::memory_order_acquire);
    if (held == nullptr) {
        auto made = std::make_unique<tav::Range const>(spec);
        // Whoever is first stays: references to its range may be out already.
        if (range_.compare_exchange_strong(held, made.get(), std::memory_order_acq_rel,
                                           std::memory_order_acquire)) {
            held = made.release();
        }
    }
    return *held;
}

bool tavCodecMeta::rangeIsEmpty() const {
    return range().empty();
}

bool tavCodecMeta::checkRange(long long v) const {
    return range().check(v);
}

void tavCodecMeta::dropRange() {
    std::unique_ptr<tav::Range const> const held(range_.exchange(nullptr, std::memory_order_acq_rel));
}

std::ostream & operator<<(std::ostream & out, tavCodecMeta const & v) {
    return out << '{' << std::to_string(v.type) << ", " << nameOf(v.isProtected) << ", " << v.spec << ", "
               << nameOf(v.optional) << '}';
}

tavFieldMeta::tavFieldMeta() : id(-1) {}

tavFieldMeta::tavFieldMeta(int fieldId, tav_istr fieldName, std::set<int> const & validValues,
                           tavCodecMeta const & fieldMeta)
    : id(fieldId), name(fieldName), values(validValues), meta(fieldMeta) {}

namespace tav {
namespace detail {

/// What was registered at one time.  It never changes, so it is read without a lock.
struct EnumRegistry::Snapshot {
    std::set<int> values;
    std::map<int, tav_istr> names;
};

struct EnumRegistry::Impl {
    std::mutex mutex;
    /// Every text that was ever a name: views of them are out for good.
    std::set<std::string> texts;
    std::map<int, tav_istr> names;
    std::map<tavString, int> numbers;
    /// Every snapshot that was ever given out; the last one is `current`, unless something was added since.
    std::list<Snapshot> snapshots;
    std::atomic<Snapshot const *> current{nullptr};
};

EnumRegistry::EnumRegistry() : impl_(std::make_unique<Impl>()) {}

EnumRegistry::~EnumRegistry() = default;

EnumRegistry & EnumRegistry::of(std::type_info const & type) {
    // Never destroyed: enums are printed and checked until the last thread ends.  The names are copies, as a
    // library may be unloaded before that.
    static auto & mutex = *new std::mutex;
    static auto & shared = *new std::map<std::string, EnumRegistry>;
    static auto & local = *new std::deque<EnumRegistry>;

    std::string const name(type.name());
    std::lock_guard<std::mutex> guard(mutex);
    if (isLocalToAFile(name)) {
        local.emplace_back();
        return local.back();
    }
    return shared[name];
}

void EnumRegistry::add(int value, char const * name) {
    std::lock_guard<std::mutex> guard(impl_->mutex);
    tav_istr const text(*impl_->texts.emplace(name != nullptr ? name : "").first);
    tav_istr & named = impl_->names[value];
    int & number = impl_->numbers.emplace(tavString(text), value).first->second;
    if (named.data() == text.data() && number == value) {
        return;
    }
    named = text;
    number = value;
    impl_->current.store(nullptr, std::memory_order_release);
}

tav_istr EnumRegistry::name(int value) const {
    std::map<int, tav_istr> const & names = snapshot().names;
    auto const found = names.find(value);
    return found != names.end() ? found->second : tav_istr();
}

bool EnumRegistry::permits(int value) const {
    std::set<int> const & values = snapshot().values;
    return values.empty() || values.count(value) != 0;
}

std::set<int> const & EnumRegistry::values() const {
    return snapshot().values;
}

std::map<tavString, int> EnumRegistry::numbers() const {
    std::lock_guard<std::mutex> guard(impl_->mutex);
    return impl_->numbers;
}

EnumRegistry::Snapshot const & EnumRegistry::snapshot() const {
    Snapshot const * current = impl_->current.load(std::memory_order_acquire);
    if (current != nullptr) {
        return *current;
    }
    std::lock_guard<std::mutex> guard(impl_->mutex);
    current = impl_->current.load(std::memory_order_relaxed);
    if (current == nullptr) {
        Snapshot made;
        made.names = impl_->names;
        for (auto const & entry : impl_->names) {
            made.values.insert(made.values.end(), entry.first);
        }
        impl_->snapshots.push_back(std::move(made));
        current = &impl_->snapshots.back();
        impl_->current.store(current, std::memory_order_release);
    }
    return *current;
}

} // namespace detail
} // namespace tav

tavCodecStream::tavCodecStream() = default;

tavCodecStream::~tavCodecStream() = default;

bool tavCodecStream::isNull() const {
    return false;
}

bool tavCodecStream::hideEmpty() const {
    return false;
}

void tavCodecStream::writeNull() {}

void tavCodecStream::makeArrayValue() {}

void tavCodecStream::makeObjectValue() {}

void tavCodecStream::on_each_field_meta(int, tav_istr, std::set<int> const &, tavCodecMeta const &) {}

void tavCodecStream::io(std::string & v, tavCodecMeta const & meta) {
    tavString text;
    if (isOutputStream()) {
        text = v;
        io(text, meta);
        return;
    }
    io(text, tavCodecMeta());
    v.assign(text.data(), text.size());
}

void tavCodecStream::io(tavWstring & v, tavCodecMeta const & meta) {
    tavString text;
    if (isOutputStream()) {
        text.fromWstring(v);
        io(text, meta);
        return;
    }
    io(text, tavCodecMeta());
    v = text.toWstring();
}

void tavCodecStream::io(wchar_t & v, tavCodecMeta const & meta) {
    tavString text;
    if (isOutputStream()) {
        text.write(v);
        io(text, meta);
        return;
    }
    io(text, tavCodecMeta());
    std::wstring const wide = text.toWstring();
    if (!wide.empty()) {
        v = wide.front();
    }
}

namespace tav {
namespace vinta {

EnumValues::EnumValues() = default;

void EnumValues::add(int value, char const * name) {
    tavString const text(name);
    names_[value] = text;
    values_[text] = value;
}

tav_istr EnumValues::getName(int value) const {
    auto const found = names_.find(value);
    return found != names_.end() ? tav_istr(found->second) : tav_istr();
}

int EnumValues::getValue(tav_istr name) const {
    auto const found = values_.find(tavString(name));
    return found != values_.end() ? found->second : -1;
}

void EnumValues::clear() {
    names_.clear();
    values_.clear();
}

} // namespace vinta
} // namespace tav
