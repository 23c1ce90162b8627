#include "tools/field_values.h"

#include <tav/vinta/vinta_nbr_unit.h>

#include <algorithm>
#include <cstdlib>
#include <limits>
#include <set>
#include <sstream>
#include <vector>

namespace tav {
namespace tool {

namespace kinds = pml::field_type;

namespace {

/// An integer of any kind, so that those of 64 bits with and without sign can be compared.
struct Number {
    bool negative = false;
    /// In two's complement if it is negative.
    unsigned long long bits = 0;

    bool operator==(Number const & other) const { return negative == other.negative && bits == other.bits; }
    bool operator<(Number const & other) const {
        return negative != other.negative ? negative : bits < other.bits;
    }
    std::string text() const {
        return negative ? std::to_string(static_cast<long long>(bits)) : std::to_string(bits);
    }
};

Number fromSigned(long long v) {
    return Number{v < 0, static_cast<unsigned long long>(v)};
}

template <class T>
Number fromAny(T v) {
    return std::is_signed<T>::value ? fromSigned(static_cast<long long>(v))
                                    : Number{false, static_cast<unsigned long long>(v)};
}

struct Ends {
    Number low;
    Number high;
};

template <class T>
Ends endsOf() {
    return Ends{fromAny(std::numeric_limits<T>::min()), fromAny(std::numeric_limits<T>::max())};
}

bool isInteger(Kind kind) {
    return kind <= kinds::uint64_ || kind == kinds::enum_ || kind == kinds::time_;
}

bool isText(Kind kind) {
    return kind == kinds::string_ || kind == kinds::wstring_ || kind == kinds::u8string_;
}

/// The numbers that a kind holds.
Ends endsOfKind(Kind kind) {
    switch (kind) {
    case kinds::bool_: return Ends{fromSigned(0), fromSigned(1)};
    case kinds::int8_: return endsOf<signed char>();
    case kinds::int16_: return endsOf<short>();
    case kinds::int64_:
    case kinds::time_: return endsOf<long long>();
    case kinds::uint8_: return endsOf<unsigned char>();
    case kinds::uint16_: return endsOf<unsigned short>();
    case kinds::uint32_: return endsOf<unsigned>();
    case kinds::uint64_: return endsOf<unsigned long long>();
    default: return endsOf<int>();
    }
}

template <class T>
void writeAs(nbr::NbrOutputStream & out, Number v) {
    out << static_cast<T>(v.bits);
}

/// The bytes of a number as a field of this kind has it.
tavBytes written(Kind kind, Number v) {
    nbr::NbrOutputStream out;
    switch (kind) {
    case kinds::bool_: out << (v.bits != 0); break;
    case kinds::int8_: writeAs<char>(out, v); break;
    case kinds::int16_: writeAs<short>(out, v); break;
    case kinds::uint8_: writeAs<unsigned char>(out, v); break;
    case kinds::uint16_: writeAs<unsigned short>(out, v); break;
    case kinds::uint32_: writeAs<unsigned>(out, v); break;
    case kinds::uint64_: writeAs<unsigned long long>(out, v); break;
    case kinds::int64_:
    case kinds::time_: writeAs<long long>(out, v); break;
    default: writeAs<int>(out, v); break;
    }
    return tavBytes(out.str());
}

template <class T>
Number readAs(nbr::NbrInputStream const & in) {
    T value = T();
    in >> value;
    return fromAny(value);
}

Number readBack(Kind kind, tavBytes const & bytes) {
    nbr::NbrInputStream const in{tav_istr(bytes)};
    switch (kind) {
    case kinds::bool_: {
        bool value = false;
        in >> value;
        return fromSigned(value ? 1 : 0);
    }
    case kinds::int8_: return fromSigned(static_cast<signed char>(readAs<char>(in).bits));
    case kinds::int16_: return readAs<short>(in);
    case kinds::uint8_: return readAs<unsigned char>(in);
    case kinds::uint16_: return readAs<unsigned short>(in);
    case kinds::uint32_: return readAs<unsigned>(in);
    case kinds::uint64_: return readAs<unsigned long long>(in);
    case kinds::int64_:
    case kinds::time_: return readAs<long long>(in);
    default: return readAs<int>(in);
    }
}

/// Whether a field of this type takes the number.
bool permits(ValueType const & type, Number v) {
    Ends const ends = endsOfKind(type.kind);
    if (v < ends.low || ends.high < v) {
        return false;
    }
    if (type.kind == kinds::enum_) {
        return type.field->validValues.count(static_cast<int>(v.bits)) != 0;
    }
    return type.kind == kinds::time_ || type.field->range.check(static_cast<long long>(v.bits));
}

/// Numbers where types and ranges end, with their neighbours.
std::set<Number> probes(ValueType const & type) {
    std::set<Number> all;
    auto const add = [&all](Number v) {
        for (unsigned long long const step : {~0ull, 0ull, 1ull}) {
            Number const near{step == 0
                                  ? v.negative
                                  : static_cast<long long>(v.bits + step) < 0 && (v.negative || v.bits == 0),
                              v.bits + step};
            all.insert(near);
        }
    };
    for (Kind const kind : {kinds::bool_, kinds::int8_, kinds::int16_, kinds::int32_, kinds::int64_,
                            kinds::uint8_, kinds::uint16_, kinds::uint32_, kinds::uint64_}) {
        add(endsOfKind(kind).low);
        add(endsOfKind(kind).high);
    }
    for (int const member : type.field->validValues) {
        add(fromSigned(member));
    }
    // A set of numbers prints as "{ 1:1 3:5 }".
    std::ostringstream printed;
    printed << type.field->range;
    std::string const text = printed.str();
    for (std::size_t at = text.find_first_of("-0123456789"); at != std::string::npos;
         at = text.find_first_of("-0123456789", at)) {
        std::size_t const end = std::min(text.find_first_of(": }", at), text.size());
        add(fromSigned(std::strtoll(text.substr(at, end - at).c_str(), nullptr, 10)));
        at = end;
    }
    return all;
}

/// A member of an enum that has another number in the other version means something else.
bool keepsMeaning(ValueType const & writer, ValueType const & reader, std::string & why) {
    if (writer.names == nullptr || reader.names == nullptr) {
        return true;
    }
    for (tavSharedPtr<pml::Unit> const & member : writer.names->values) {
        tavSharedPtr<pml::Unit> const other = reader.names->values.find(istrOf(member->name()));
        bool const directive = member->name().compare(0, 2, "__") == 0;
        if (!directive && other && other->asInt64Value() != member->asInt64Value()) {
            why = member->name() + " is written as " + member->value() + " and read as " + other->value();
            return false;
        }
    }
    return true;
}

} // namespace

bool isCarried(ValueType const & writer, ValueType const & reader, std::string & why) {
    if (!isInteger(writer.kind) || !isInteger(reader.kind)) {
        bool const same = writer.kind == reader.kind || (isText(writer.kind) && isText(reader.kind));
        why = same ? "" : "a " + kindName(writer.kind) + " is not read as a " + kindName(reader.kind);
        return same;
    }
    if (!keepsMeaning(writer, reader, why)) {
        return false;
    }
    std::set<Number> all = probes(writer);
    for (Number const v : probes(reader)) {
        all.insert(v);
    }
    // Those that are near to zero make the better examples.
    std::vector<Number> sorted(all.begin(), all.end());
    std::sort(sorted.begin(), sorted.end(), [](Number a, Number b) {
        auto const size = [](Number v) { return v.negative ? 0 - v.bits : v.bits; };
        return size(a) < size(b);
    });
    for (Number const v : sorted) {
        if (!permits(writer, v)) {
            continue;
        }
        Number const read = readBack(reader.kind, written(writer.kind, v));
        if (!(read == v)) {
            why = v.text() + " is read as " + read.text();
            return false;
        }
        if (!permits(reader, read)) {
            why = v.text() + " is not permitted";
            return false;
        }
    }
    return true;
}

} // namespace tool
} // namespace tav
