#include "tav/vinta/vinta_pml_field_types.h"

#include "support/log_capture.h"
#include "support/small_stack.h"

#include <gtest/gtest.h>

#include <chrono>
#include <functional>
#include <map>
#include <random>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

using tav::pml::ClassType;
using tav::pml::Unit;
using tav_test::LogCapture;
using tav_test::onSmallStack;
namespace field_type = tav::pml::field_type;

namespace {

/// The plainest possible parser of type texts, one step after the other and with recursion, to compare with.
struct PlainType {
    int type = 13;
    std::string name;
    std::string keyName;
    bool optional = false;
    bool isRef = false;
    std::vector<std::string> dimensions;
    int elementType = 127;
    int keyType = 127;

    explicit PlainType(std::string text, bool isOptional = false)
        : name(std::move(text)), optional(isOptional) {}

    bool parse(Unit const & cfg) {
        if (name.empty()) {
            type = 13;
            optional = true;
            name = language(13, cfg, true);
            return true;
        }
        if (name.back() == ']') {
            std::size_t open = name.rfind('[');
            std::size_t close = name.rfind(']');
            while (open != std::string::npos && close != std::string::npos && open < close) {
                dimensions.push_back(trim(name.substr(open + 1, close - open - 1)));
                name = name.substr(0, open);
                open = name.rfind('[');
                close = name.rfind(']');
            }
        }
        if (!name.empty() && name.back() == '?') {
            name.pop_back();
            optional = true;
        }
        for (auto const & kind : kinds()) {
            if (check(kind.first, kind.second, cfg)) {
                return true;
            }
        }
        for (auto const & alias : aliases()) {
            if (alias.second.second) {
                if (name.compare(0, alias.first.size(), alias.first) == 0) {
                    type = alias.second.first;
                    optional = true;
                    name = language(type, cfg, true);
                    return true;
                }
            } else if (check(alias.first, alias.second.first, cfg)) {
                return true;
            }
        }
        type = 21;
        return false;
    }

    bool check(std::string const & prefix, int kind, Unit const & cfg) {
        if (name.compare(0, prefix.size(), prefix) != 0) {
            return false;
        }
        type = kind;
        if (kind <= 17) {
            name = language(kind, cfg, optional);
            return true;
        }
        name = name.substr(prefix.size());
        if (name.size() <= 2 || name.front() != '{' || name.back() != '}') {
            return false;
        }
        bool const references = cfg.child("objectIsReference").value() == "true";
        name = name.substr(1, name.size() - 2);
        if (kind == 19) {
            optional = true;
            PlainType inner(name, true);
            if (inner.parse(cfg)) {
                type = inner.type;
                name = inner.name;
            }
        } else if (kind == 18) {
            PlainType inner(name);
            if (inner.parse(cfg) && inner.type == 22) {
                isRef = true;
                name = inner.name;
            }
        } else if (kind == 26) {
            PlainType inner(name);
            if (!inner.parse(cfg)) {
                elementType = 21;
            } else {
                name = inner.name;
                if (inner.type == 22) {
                    type = 27;
                } else if (inner.type <= 17) {
                    elementType = inner.type;
                }
            }
        } else if (kind == 28) {
            std::size_t const comma = name.find(',');
            if (comma == std::string::npos) {
                return true;
            }
            PlainType key(trim(name.substr(0, comma)));
            PlainType value(trim(name.substr(comma + 1)));
            key.parse(cfg);
            value.parse(cfg);
            keyName = key.type <= 17 ? language(key.type, cfg, key.optional || references) : key.name;
            keyType = key.type;
            name = value.type <= 17 ? language(value.type, cfg, value.optional || references) : value.name;
            elementType = value.type;
        }
        return true;
    }

    static std::string trim(std::string const & text) {
        std::size_t const first = text.find_first_not_of(" \t\r\n");
        return first == std::string::npos ? ""
                                          : text.substr(first, text.find_last_not_of(" \t\r\n") - first + 1);
    }

    static std::string language(int kind, Unit const & cfg, bool optional) {
        for (auto const & entry : kinds()) {
            if (entry.second == kind) {
                Unit const & types = cfg.child("types");
                if (optional && types.hasChild(tav_istr(entry.first + "?"))) {
                    return types.child(tav_istr(entry.first + "?")).value();
                }
                return types.hasChild(tav_istr(entry.first)) ? types.child(tav_istr(entry.first)).value()
                                                             : entry.first;
            }
        }
        return std::to_string(kind);
    }

    static std::map<std::string, int> const & kinds() {
        static std::map<std::string, int> const map = {
            {"bool", 0},      {"int8", 1},    {"int16", 2},     {"int32", 3},   {"int64", 4},
            {"uint8", 5},     {"uint16", 6},  {"uint32", 7},    {"uint64", 8},  {"float", 9},
            {"double", 10},   {"char", 11},   {"wchar", 12},    {"string", 13}, {"wstring", 14},
            {"u8string", 15}, {"bytes", 16},  {"time", 17},     {"enum", 18},   {"optional", 19},
            {"union", 20},    {"object", 21}, {"ref", 22},      {"array", 23},  {"array2d", 24},
            {"array3d", 25},  {"list", 26},   {"ref_list", 27}, {"map", 28},    {"null", 126},
            {"unknown", 127}};
        return map;
    }

    static std::map<std::string, std::pair<int, bool>> const & aliases() {
        static std::map<std::string, std::pair<int, bool>> const map = {
            {"boolean", {0, false}},  {"byte", {1, false}},   {"sbyte", {1, false}},
            {"short", {2, false}},    {"int", {3, false}},    {"long", {4, false}},
            {"longlong", {4, false}}, {"ubyte", {5, false}},  {"ushort", {6, false}},
            {"uint", {7, false}},     {"ulong", {8, false}},  {"ulonglong", {8, false}},
            {"Boolean", {0, true}},   {"Byte", {1, true}},    {"Sbyte", {1, true}},
            {"Short", {2, true}},     {"Integer", {3, true}}, {"Long", {4, true}},
            {"Longlong", {4, true}},  {"Ubyte", {5, true}},   {"Ushort", {6, true}},
            {"Uinteger", {7, true}},  {"Ulong", {8, true}},   {"Ulonglong", {8, true}},
            {"Float", {9, true}},     {"Double", {10, true}}};
        return map;
    }
};

template <class T>
std::string shown(bool known, int type, int elementType, int keyType, T const & v) {
    std::ostringstream out;
    out << known << ' ' << type << ' ' << v.name << ' ' << v.keyName << ' ' << v.optional << v.isRef << ' '
        << elementType << ' ' << keyType;
    for (auto const & dimension : v.dimensions) {
        out << '[' << dimension << ']';
    }
    return out.str();
}

void expectSame(std::string const & text, Unit const & cfg) {
    for (bool const optional : {false, true}) {
        PlainType plain(text, optional);
        bool const expected = plain.parse(cfg);
        ClassType type(tav_istr(text), optional);
        bool const known = type.parse(cfg);
        EXPECT_EQ(shown(expected, plain.type, plain.elementType, plain.keyType, plain),
                  shown(known, type.type.value(), type.elementType.value(), type.keyType.value(), type))
            << '"' << text << '"';
    }
}

Unit configuration() {
    Unit cfg;
    cfg.child("types").child("int32").value("int");
    cfg.child("types").child("int32?").value("Integer");
    cfg.child("types").child("string").value("String");
    cfg.child("types").child("bool?").value("Boolean");
    cfg.child("objectIsReference").value("true");
    return cfg;
}

std::string nested(std::string const & open, std::string const & core, std::string const & close,
                   unsigned depth) {
    std::string out;
    out.reserve((open.size() + close.size()) * depth + core.size());
    for (unsigned i = 0; i < depth; ++i) {
        out += open;
    }
    out += core;
    for (unsigned i = 0; i < depth; ++i) {
        out += close;
    }
    return out;
}

/// Parses a text with the library, in a small stack and a bounded time.
ClassType parsed(std::string const & text, bool & known) {
    ClassType type(tav_istr(text), false);
    onSmallStack([&] {
        auto const start = std::chrono::steady_clock::now();
        known = type.parse(Unit());
        EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(20)) << text.substr(0, 20);
    });
    return type;
}

/// A test's time is for the plain parser's sake, which is quadratic.
constexpr unsigned shallow = 60;
constexpr unsigned deep = 170000;

} // namespace

TEST(ClassTypeHostile, EveryPairOfTokensIsParsedAsByThePlainParser) {
    LogCapture const log("clear(ASSERT)");
    std::vector<std::string> tokens = {"{", "}", "[", "]", "?", ",", " ", "Foo", "{}", "[1]", "x"};
    for (auto const & kind : PlainType::kinds()) {
        tokens.push_back(kind.first);
    }
    for (auto const & alias : PlainType::aliases()) {
        tokens.push_back(alias.first);
    }
    Unit const cfg = configuration();
    expectSame("", Unit());
    for (std::string const & a : tokens) {
        expectSame(a, Unit());
        for (std::string const & b : tokens) {
            expectSame(a + b, Unit());
            expectSame(a + "{" + b + "}", Unit());
            expectSame("list{" + a + "{" + b + "}}", cfg);
            expectSame("map{" + a + "," + b + "}", cfg);
        }
    }
}

TEST(ClassTypeHostile, RandomTextsAreParsedAsByThePlainParser) {
    LogCapture const log("clear(ASSERT)");
    char const * const tokens[] = {"list", "map",    "optional", "enum", "ref",  "array", "array2d", "object",
                                   "null", "string", "int32",    "bool", "Long", "int",   "Foo",     "{",
                                   "{",    "{",      "}",        "}",    "}",    ",",     ",",       "?",
                                   "[",    "]",      "]",        " ",    "x"};
    std::mt19937 random(20);
    Unit const cfg = configuration();
    for (int round = 0; round < 15000; ++round) {
        std::string text;
        for (auto n = random() % 14; n > 0; --n) {
            text += tokens[random() % (sizeof(tokens) / sizeof(tokens[0]))];
        }
        expectSame(text, round % 2 == 0 ? Unit() : cfg);
    }
}

TEST(ClassTypeHostile, RandomWellFormedTextsAreParsedAsByThePlainParser) {
    LogCapture const log("clear(ASSERT)");
    std::mt19937 random(21);
    char const * const wrappers[] = {"list{", "map{string,", "optional{",         "enum{", "ref{", "object{",
                                     "map{",  "array{",      "map{list{Integer},"};
    char const * const cores[] = {"int32", "Foo", "", "Integer", "listing", "a,b", "ref{Foo}", "string?"};
    char const * const ends[] = {"}", "}", "}", "}?", "}[2]", "} ", "}?[3]"};
    Unit const cfg = configuration();
    for (int round = 0; round < 10000; ++round) {
        std::string text = cores[random() % 8];
        for (auto n = random() % 6; n > 0; --n) {
            text = wrappers[random() % 9] + text + ends[random() % 7];
        }
        expectSame(text, round % 2 == 0 ? Unit() : cfg);
    }
}

TEST(ClassTypeHostile, EveryCutOfATextIsParsedAsByThePlainParser) {
    LogCapture const log("clear(ASSERT)");
    std::string const text = "optional{map{string?,list{map{enum{ref{Color}},ref{Foo}?}}}}?[2][ 3 ]";
    for (std::size_t first = 0; first <= text.size(); ++first) {
        for (std::size_t size = 0; first + size <= text.size(); ++size) {
            expectSame(text.substr(first, size), Unit());
        }
    }
}

TEST(ClassTypeHostile, DeepTextsAreAsShallowOnes) {
    LogCapture const log("clear(ASSERT)");
    struct {
        char const * open;
        char const * core;
        char const * close;
    } const rows[] = {{"list{", "int32", "}"},
                      {"list{", "ref{Foo}", "}"},
                      {"list{", "Foo", "}"},
                      {"list{", "listing", "}"},
                      {"optional{", "int32", "}"},
                      {"optional{", "Foo", "}"},
                      {"enum{", "ref{Foo}", "}"},
                      {"ref{", "Foo", "}"},
                      {"map{a,", "int32", "}"},
                      {"map{string?,", "Foo", "}"},
                      {"map{list{int8},", "", "}"},
                      {"list{optional{", "int32", "}?}"},
                      {"list{", "int32", "}[1]"},
                      {"list{", "", ""},
                      {"", "", "}"},
                      {"map{", "a,b", "}"},
                      {"map{", "", ",b}"},
                      {"list", "{int32}", ""},
                      {"array", "bool", ""},
                      {"list{ ", "int32", "}"},
                      {"map{ a , ", "int32", " }"},
                      {"list{", "int32", "?}?"}};
    for (auto const & row : rows) {
        SCOPED_TRACE(std::string(row.open) + row.core + row.close);
        expectSame(nested(row.open, row.core, row.close, 1), Unit());
        expectSame(nested(row.open, row.core, row.close, shallow), Unit());
        PlainType plain(nested(row.open, row.core, row.close, shallow));
        bool const expected = plain.parse(Unit());
        bool known = !expected;
        ClassType const type = parsed(nested(row.open, row.core, row.close, deep), known);
        EXPECT_EQ(known, expected);
        EXPECT_EQ(plain.type, type.type.value());
        EXPECT_EQ(plain.elementType, type.elementType.value());
        EXPECT_EQ(plain.keyType, type.keyType.value());
        EXPECT_EQ(plain.optional, type.optional);
        EXPECT_EQ(plain.isRef, type.isRef);
        if (plain.name.size() < 10) {
            EXPECT_EQ(plain.name, type.name);
        }
    }
}

TEST(ClassTypeHostile, ManyBracketsAreReadInTheirNumber) {
    bool known = false;
    ClassType const pairs = parsed("int32" + nested("[]", "", "", deep), known);
    EXPECT_TRUE(known);
    EXPECT_EQ(deep, pairs.dimensions.size());
    ClassType const opens = parsed("int32" + nested("[", "", "]", deep), known);
    EXPECT_EQ(opens.dimensions.size(), 1u);
    ClassType const spread =
        parsed(nested("list{", "int32", "}", deep) + nested("[1]x", "", "", deep) + "[2]", known);
    EXPECT_EQ(deep + 1, spread.dimensions.size());
    EXPECT_EQ(field_type::list_, spread.type);
}
