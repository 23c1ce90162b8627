#include "tav/vinta/vinta.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <fstream>
#include <functional>
#include <limits>
#include <map>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

// docs/encodings.md tells what each encoding makes of a value on the way there and back.  Each row is tried
// here, and its cells have to be what comes out.

namespace {

namespace types = tav::pml::field_type;

enum class Mood { good = 0, bad = 1 };

/// An object with the field in question, and one more.
template <class T>
class One : public tavObject {
public:
    T value{};
    tavCodecMeta meta;
    int other = 1;

    One(tavCodecMeta const & m, T const & v) : value(v), meta(m) {}

    tav_istr className() const override { return "One"; }
    tav_istr baseName() const override { return "tavObject"; }
    tavObject * newInstance() const override { return nullptr; }
    void assignFrom(tavObject const &) override {}

protected:
    void traverse(tavCodecStream & s) override {
        ioField(s, 1, "f", value, meta);
        ioField(s, 2, "other", other, tavCodecMeta(types::int32_));
    }
};

class Nothing : public tavObject {
public:
    tav_istr className() const override { return "Nothing"; }
    tav_istr baseName() const override { return "tavObject"; }
    tavObject * newInstance() const override { return nullptr; }
    void assignFrom(tavObject const &) override {}
    friend bool operator==(Nothing const &, Nothing const &) { return true; }
};

void viaNbr(tavObject & from, tavObject & to) {
    to.decode(tav_istr(from.encode(false)));
}

void viaJson(tavObject & from, tavObject & to) {
    to.decodeJson(tav_istr(from.encodeJson(false)));
}

void viaPml(tavObject & from, tavObject & to) {
    tavPmlOutStream out;
    out.name("one");
    from.io(out);
    tavPmlInStream in{tav_istr(out.str(false, false))};
    to.io(in);
}

void viaXml(tavObject & from, tavObject & to) {
    tavXmlOutStream out("one");
    from.io(out);
    tavXmlInStream in{tav_istr(out.str(false))};
    to.io(in);
}

using Carry = void (*)(tavObject & from, tavObject & to);
constexpr Carry encodings[] = {viaNbr, viaJson, viaPml, viaXml};

template <class T>
bool same(T const & a, T const & b) {
    return a == b;
}
bool same(double a, double b) {
    return std::isnan(a) ? std::isnan(b) : a == b && std::signbit(a) == std::signbit(b);
}
bool same(float a, float b) {
    return same(static_cast<double>(a), static_cast<double>(b));
}
bool same(tavBytes const & a, tavBytes const & b) {
    return tav_istr(a) == tav_istr(b);
}
bool same(tavTime const & a, tavTime const & b) {
    return a.milliseconds() == b.milliseconds();
}
template <class T>
bool same(tavOptional<T> const & a, tavOptional<T> const & b) {
    return a.has_value() == b.has_value() && (!a.has_value() || same(a.value(), b.value()));
}
bool same(tavSharedPtr<Nothing> const & a, tavSharedPtr<Nothing> const & b) {
    return static_cast<bool>(a) == static_cast<bool>(b);
}

bool same(std::vector<tavOptional<int>> const & a, std::vector<tavOptional<int>> const & b) {
    return std::equal(a.begin(), a.end(), b.begin(), b.end(),
                      [](tavOptional<int> const & x, tavOptional<int> const & y) { return same(x, y); });
}

std::string quoted(std::string const & text) {
    std::string shown = "`";
    for (char const c : text) {
        auto const byte = static_cast<unsigned char>(c);
        if (byte < 32 || byte == 127) {
            char digits[8];
            std::snprintf(digits, sizeof digits, "\\x%02x", static_cast<unsigned>(byte));
            shown += digits;
        } else {
            shown += c;
        }
    }
    return shown + "`";
}

template <class T>
std::string shown(T const & v) {
    std::ostringstream out;
    out.precision(12);
    out << v;
    return quoted(out.str());
}
std::string shown(tavTime const & v) {
    return shown(v.milliseconds());
}
template <class T>
std::string shown(tavOptional<T> const & v) {
    return v.has_value() ? "set to " + shown(v.value()) : "unset";
}
std::string shown(tavWstring const &) {
    return "another text";
}
std::string shown(tavSharedPtr<Nothing> const & v) {
    return v ? "an object" : "null";
}
template <class T>
std::string shown(std::vector<T> const & v) {
    return std::to_string(v.size()) + (v.size() == 1 ? " element" : " elements");
}
template <class K, class V>
std::string shown(std::map<K, V> const & v) {
    if (v.size() != 1) {
        return std::to_string(v.size()) + " entries";
    }
    return "key " + shown(v.begin()->first);
}

/// One word for what becomes of `value` on the way: into an object that holds `before`.
template <class T>
std::string fate(Carry carry, tavCodecMeta const & meta, T const & value, T const & before) {
    One<T> from(meta, value);
    One<T> to(meta, before);
    try {
        carry(from, to);
    } catch (std::invalid_argument const &) {
        return "refused";
    }
    if (same(to.value, value)) {
        return "exact";
    }
    if (same(to.value, before)) {
        return "keeps";
    }
    if (same(to.value, T())) {
        return "emptied";
    }
    return shown(to.value);
}

struct Row {
    std::string what;
    std::function<std::string(Carry)> fateBy;
};

template <class T>
Row row(char const * what, int type, T value, T before, bool optional = false) {
    return Row{what, [=](Carry carry) {
                   tavEnum<Mood>::add(Mood::good, "good");
                   tavEnum<Mood>::add(Mood::bad, "bad");
                   return fate(carry, tavCodecMeta(type, false, nullptr, optional), value, before);
               }};
}

template <class T>
std::vector<T> listOf(std::initializer_list<T> elements) {
    return std::vector<T>(elements);
}

tavString text(char const * v) {
    return tavString(v);
}

std::map<tavString, int> entry(tav_istr key) {
    return std::map<tavString, int>{{tavString(key), 1}};
}

std::vector<Row> numberRows() {
    using Limits = std::numeric_limits<long long>;
    double const infinite = std::numeric_limits<double>::infinity();
    return {
        row("`bool`", types::bool_, true, false),
        row("`char` -1, of the code `int8_`", types::int8_, static_cast<char>(-1), char(7)),
        row("`unsigned char` 200", types::uint8_, static_cast<unsigned char>(200),
            static_cast<unsigned char>(7)),
        row("`int` -5", types::int32_, -5, 7),
        row("`unsigned` 4294967295", types::uint32_, 4294967295u, 7u),
        row("`long long` -5", types::int64_, -5ll, 7ll),
        row("`long long`, the least", types::int64_, Limits::min(), 7ll),
        row("`unsigned long long`, the largest", types::uint64_, ~0ull, 7ull),
        row("`long` -5", types::int64_, -5l, 7l),
        row("`float` 0.1", types::float_, 0.1f, 7.f),
        row("`float` 16777216", types::float_, 16777216.f, 7.f),
        row("`double` 0.1", types::double_, 0.1, 7.),
        row("`double` 1234567.5", types::double_, 1234567.5, 7.),
        row("`double` 0.1 + 0.2", types::double_, 0.1 + 0.2, 7.),
        row("`double` 1e300", types::double_, 1e300, 7.),
        row("`double` -0.0", types::double_, -0.0, 7.),
        row("infinity", types::double_, infinite, 7.),
        row("not a number", types::double_, std::numeric_limits<double>::quiet_NaN(), 7.),
        row("`tavTime`, whole seconds", types::time_, tavTime::milliseconds(1700000000000ll),
            tavTime::milliseconds(7000)),
        row("`tavTime`, milliseconds", types::time_, tavTime::milliseconds(1700000000123ll),
            tavTime::milliseconds(7000)),
        row("`tavEnum`, a registered value", types::enum_, tavEnum<Mood>(Mood::bad),
            tavEnum<Mood>(Mood::good)),
    };
}

std::vector<Row> textRows() {
    tavString const other("other");
    return {
        row("text", types::string_, text("plain"), other),
        row("empty text", types::string_, text(""), other),
        row("`std::string`, empty", types::string_, std::string(), std::string("other")),
        row("text with blanks at its ends", types::string_, text("  a b  "), other),
        row("text of blanks", types::string_, text("   "), other),
        row("text `null`", types::string_, text("null"), other),
        row("quotes, `<`, `&`, `(`, `:`, `^`, `\\`, `/`", types::string_, text("\"'<&>(:)^\\/]]>"), other),
        row("line feed, tab", types::string_, text("a\nb\tc"), other),
        row("carriage return", types::string_, text("a\rb"), other),
        row("other control characters (1)", types::string_, text("a\1b"), other),
        row("a NUL", types::string_, tavString(tav_istr("a\0b", 3u)), other),
        row("UTF-8", types::string_, text("\xc3\xa4\xe4\xb8\xad\xf0\x9f\x98\x80"), other),
        row("bytes that are no UTF-8", types::string_, text("\xff\xfe"), other),
        row("`tavWstring`", types::wstring_, tavWstring(std::wstring(L"\u00e4\u4e2d")),
            tavWstring(std::wstring(L"other"))),
        row("`tavWstring` beyond 16 bits", types::wstring_, tavWstring(std::wstring(L"\U0001F600")),
            tavWstring(std::wstring(L"other"))),
        row("`tavBytes`", types::bytes_, tavBytes(tav_istr("\0\1\xff", 3u)), tavBytes(tav_istr("other"))),
        row("`tavBytes`, empty", types::bytes_, tavBytes(), tavBytes(tav_istr("other"))),
    };
}

std::vector<Row> absentRows() {
    tavSharedPtr<Nothing> const none;
    return {
        row("`tavOptional`, set", types::int32_, tavOptional<int>(5), tavOptional<int>(7), true),
        row("`tavOptional`, unset, meta optional", types::int32_, tavOptional<int>(), tavOptional<int>(7),
            true),
        row("`tavOptional`, unset, meta not optional", types::int32_, tavOptional<int>(),
            tavOptional<int>(7)),
        row("`tavOptional`, unset, into a new object", types::int32_, tavOptional<int>(), tavOptional<int>(),
            true),
        row("`tavOptional` of an empty text", types::string_, tavOptional<tavString>(tavString()),
            tavOptional<tavString>(), true),
        row("pointer, null, meta optional", types::ref_, none, tavSharedPtr<Nothing>(new Nothing), true),
        row("pointer to an object without fields", types::ref_, tavSharedPtr<Nothing>(new Nothing), none,
            true),
    };
}

std::vector<Row> containerRows() {
    std::map<int, int> const negative{{-5, 1}};
    return {
        row("list", types::list_, listOf({1, -2, 0}), listOf({7})),
        row("empty list", types::list_, std::vector<int>(), listOf({7})),
        row("list with an empty text", types::list_, listOf({text("a"), text(""), text("b")}),
            listOf({text("c")})),
        row("list with an unset optional", types::list_, listOf({tavOptional<int>(1), tavOptional<int>()}),
            listOf({tavOptional<int>(7)})),
        row("`std::vector<bool>`", types::list_, listOf({true, false, true}), listOf({true})),
        row("map with text keys", types::map_, entry("key"), entry("other")),
        row("empty map", types::map_, std::map<tavString, int>(), entry("other")),
        row("key -5", types::map_, negative, std::map<int, int>{{7, 1}}),
        row("empty key", types::map_, entry(""), entry("other")),
        row("key with a blank inside", types::map_, entry("a b"), entry("other")),
        row("key with blanks at its ends", types::map_, entry(" a "), entry("other")),
        row("key with a digit first", types::map_, entry("1a"), entry("other")),
        row("key with `:`", types::map_, entry("a:b"), entry("other")),
        row("key with `(`", types::map_, entry("a(b"), entry("other")),
        row("key with `<`", types::map_, entry("a<b"), entry("other")),
        row("key with a double quote", types::map_, entry("a\"b"), entry("other")),
        row("key with a backslash", types::map_, entry("a\\b"), entry("other")),
        row("key with `/`", types::map_, entry("a/b"), entry("other")),
        row("key with a NUL", types::map_, entry(tav_istr("a\0b", 3u)), entry("other")),
        row("key in UTF-8", types::map_, entry("\xc3\xa4"), entry("other")),
    };
}

std::vector<Row> allRows() {
    std::vector<Row> all;
    for (auto const & part : {numberRows(), textRows(), absentRows(), containerRows()}) {
        all.insert(all.end(), part.begin(), part.end());
    }
    return all;
}

std::vector<std::string> documentLines() {
    std::ifstream in(TAV_SOURCE_DIR "/docs/encodings.md");
    std::vector<std::string> lines;
    for (std::string line; std::getline(in, line);) {
        lines.push_back(line);
    }
    return lines;
}

class EncodingsTable : public testing::TestWithParam<std::size_t> {};

} // namespace

TEST_P(EncodingsTable, RowIsWhatComesOut) {
    Row const row = allRows()[GetParam()];
    std::string line = "| " + row.what + " |";
    for (Carry const carry : encodings) {
        line += ' ' + row.fateBy(carry) + " |";
    }
    std::vector<std::string> const lines = documentLines();
    EXPECT_EQ(std::count(lines.begin(), lines.end(), line), 1) << line;
}

INSTANTIATE_TEST_SUITE_P(All, EncodingsTable, testing::Range(std::size_t(0), allRows().size()));

TEST(EncodingsTableAsAWhole, HasNoOtherRows) {
    std::size_t rows = 0;
    for (std::string const & line : documentLines()) {
        bool const head = line.find("| NBR |") != std::string::npos || line.find("|--") == 0;
        rows += line.find("| ") == 0 && !head ? 1 : 0;
    }
    EXPECT_EQ(rows, allRows().size());
}
