#include "tav/vinta/vinta_json_parser.h"

#include "formats/json/json_text.h"

#include <gtest/gtest.h>

#include <climits>
#include <cstddef>
#include <cstring>
#include <string>
#include <string_view>
#include <sys/mman.h>
#include <unistd.h>

using tav::json::JsonArray;
using tav::json::JsonFormatter;
using tav::json::JsonNumber;
using tav::json::JsonObject;
using tav::json::JsonParser;
using tav::json::JsonString;
using tav::json::JsonUnit;
using tav::json::JsonValue;

namespace {

JsonUnit decoded(char const * text) {
    JsonUnit unit;
    unit.decode(text);
    return unit;
}

std::string formatted(JsonUnit const & unit, bool pretty, bool skipNull, int level, bool sample) {
    return std::string(
        tav_istr(JsonFormatter(unit.value().get(), pretty, skipNull, level, sample).toString()));
}

std::string indented(bool pretty, int level) {
    tavString out("x");
    JsonFormatter::indent(out, pretty, level);
    return std::string(tav_istr(out));
}

class OtherValue : public JsonValue {
public:
    tavString toString() const override { return "<other>"; }
    bool simple() const override { return true; }
};

} // namespace

TEST(JsonFormatterRecord, HoldsItsSettings) {
    JsonNumber const number("1");
    JsonFormatter const formatter(&number, true, false, 3, true);
    EXPECT_EQ(&number, formatter.value);
    EXPECT_TRUE(formatter.pretty);
    EXPECT_FALSE(formatter.skipNull);
    EXPECT_EQ(formatter.level, 3);
    EXPECT_TRUE(formatter.sample);
}

TEST(JsonFormatterText, NullValue) {
    JsonFormatter const formatter(nullptr, true, true, 4, true);
    EXPECT_EQ(formatter.toString(), "null");
    tavString out("a=");
    formatter.format(out);
    EXPECT_EQ(out, "a=null");
}

TEST(JsonFormatterText, FormatAppends) {
    JsonUnit const unit = decoded("[1]");
    tavString out("a=");
    JsonFormatter(unit.value().get(), false, false, 0, false).format(out);
    JsonFormatter(unit.value().get(), false, false, 0, false).format(out);
    EXPECT_EQ(out, "a=[ 1 ][ 1 ]");
}

TEST(JsonFormatterIndent, OneBlankOrALine) {
    EXPECT_EQ(indented(false, 0), "x ");
    EXPECT_EQ(indented(false, 5), "x ");
    EXPECT_EQ(indented(true, 0), "x\n");
    EXPECT_EQ(indented(true, 1), "x\n    ");
    EXPECT_EQ(indented(true, 2), "x\n        ");
    EXPECT_EQ(indented(true, -1), "x\n");
}

TEST(JsonFormatterText, Compact) {
    EXPECT_EQ(decoded("{b:[1,2],\"a\":\"x\"}").value()->toJson(), "{ \"a\":\"x\", \"b\":[ 1, 2 ] }");
    EXPECT_EQ(decoded("{}").value()->toJson(), "{ }");
    EXPECT_EQ(decoded("[]").value()->toJson(), "[ ]");
    EXPECT_EQ(decoded("[[],{},[[]]]").value()->toJson(), "[ [ ], { }, [ [ ] ] ]");
    EXPECT_EQ(decoded("{a:}").value()->toJson(), "{ \"a\":null }");
    // The level plays no part.
    EXPECT_EQ(formatted(decoded("[1]"), false, false, 9, false), "[ 1 ]");
}

TEST(JsonFormatterText, Formatted) {
    EXPECT_EQ(decoded("{b:[1,2],\"a\":\"x\"}").value()->toFormatted(), "{\n"
                                                                       "        \"a\" : \"x\",\n"
                                                                       "        \"b\" : [\n"
                                                                       "            1,\n"
                                                                       "            2\n"
                                                                       "        ]\n"
                                                                       "    }");
    EXPECT_EQ(decoded("{}").value()->toFormatted(), "{\n    }");
    EXPECT_EQ(decoded("[]").value()->toFormatted(), "[\n    ]");
    EXPECT_EQ(decoded("[{a:[]},1]").value()->toFormatted(),
              "[\n        {\n            \"a\" : [\n            ]\n        },\n        1\n    ]");
}

TEST(JsonFormatterText, SkipNullLeavesMembersOutAndNoElements) {
    JsonUnit unit = decoded("{a:null,b:1,c:null}");
    EXPECT_EQ(formatted(unit, false, true, 0, false), "{ \"b\":1 }");
    EXPECT_EQ(formatted(unit, false, false, 0, false), "{ \"a\":null, \"b\":1, \"c\":null }");
    EXPECT_EQ(unit.value()->toFormatted(), "{\n        \"b\" : 1\n    }");
    JsonUnit array;
    array.newChild();
    array.newChild().objectValue().get("x");
    EXPECT_EQ(formatted(array, false, true, 0, false), "[ null, { } ]");
    EXPECT_EQ(formatted(decoded("{a:null}"), false, true, 0, false), "{ }");
}

TEST(JsonFormatterText, NamesAreWrittenRaw) {
    EXPECT_EQ(decoded("{'a\"/\\n':1}").value()->toJson(), "{ \"a\"/\n\":1 }");
}

TEST(JsonFormatterText, NullMemberPutUnderTheEmptyName) {
    JsonUnit unit;
    unit.objectValue().put("", nullptr);
    EXPECT_EQ(unit.toString(false), "{ \"\":null }");
}

TEST(JsonFormatterText, Sample) {
    JsonUnit const unit = decoded("{__class__:Msg,a:1,b:{__class__:'In/ner',c:x},d:null}");
    EXPECT_EQ(unit.value()->toFormattedSample(), "@Msg{\n"
                                                 "        a : 1,\n"
                                                 "        b : @In/ner{\n"
                                                 "            c : \"x\"\n"
                                                 "        },\n"
                                                 "        d : null\n"
                                                 "    }");
    EXPECT_EQ(decoded("{__class__:Msg,a:1}").value()->toJson(), "{ \"__class__\":\"Msg\", \"a\":1 }");
    EXPECT_EQ(formatted(decoded("{__class__:Msg,a:1}"), false, false, 0, true), "@Msg{ a:1 }");
    EXPECT_EQ(formatted(decoded("{__class__:Msg}"), false, false, 0, true), "@Msg{ }");
    EXPECT_EQ(formatted(decoded("{a:1}"), false, false, 0, true), "{ a:1 }");
    EXPECT_EQ(formatted(decoded("[{__class__:A},{__class__:B}]"), false, false, 0, true), "[ @A{ }, @B{ } ]");
}

TEST(JsonFormatterText, SampleClassOfAnyValue) {
    // A null one is there, and its text is empty.
    EXPECT_EQ(formatted(decoded("{__class__:null}"), false, false, 0, true), "@{ }");
    EXPECT_EQ(formatted(decoded("{__class__:null,a:1}"), false, true, 0, true), "@{ a:1 }");
    EXPECT_EQ(formatted(decoded("{__class__:12}"), false, false, 0, true), "@12{ }");
    EXPECT_EQ(formatted(decoded("{__class__:{__class__:X}}"), false, false, 0, true),
              "@{ \"__class__\":\"X\" }{ }");
}

TEST(JsonFormatterText, UsualSettings) {
    JsonUnit const unit = decoded("{__class__:M,a:null,b:[1]}");
    JsonValue const & value = *unit.value();
    EXPECT_EQ(formatted(unit, false, false, 0, false), std::string(tav_istr(value.toJson())));
    EXPECT_EQ(formatted(unit, true, true, 1, false), std::string(tav_istr(value.toFormatted())));
    EXPECT_EQ(formatted(unit, true, false, 1, true), std::string(tav_istr(value.toFormattedSample())));
    EXPECT_EQ(formatted(unit, true, false, 1, true), std::string(tav_istr(value.dump(true))));
    EXPECT_EQ(formatted(unit, false, true, 1, false), std::string(tav_istr(value.dump(false))));
    EXPECT_EQ(value.dump(false), "{ \"__class__\":\"M\", \"b\":[ 1 ] }");
    for (int bits = 0; bits < 8; ++bits) {
        bool const pretty = (bits & 1) != 0;
        bool const skipNull = (bits & 2) != 0;
        bool const sample = (bits & 4) != 0;
        EXPECT_EQ(formatted(unit, pretty, skipNull, 3, sample),
                  std::string(tav_istr(value.encode(pretty, skipNull, 3, sample))));
    }
}

TEST(JsonFormatterText, LevelIsThatOfTheClosingBracket) {
    EXPECT_EQ(formatted(decoded("[1]"), true, false, 0, false), "[\n    1\n]");
    EXPECT_EQ(formatted(decoded("[1]"), true, false, 2, false), "[\n            1\n        ]");
    EXPECT_EQ(formatted(decoded("[1]"), true, false, -1, false), "[\n1\n]");
    EXPECT_EQ(formatted(decoded("[[1]]"), true, false, -1, false), "[\n[\n    1\n]\n]");
    EXPECT_EQ(formatted(decoded("[1]"), true, false, INT_MIN, false), "[\n1\n]");
}

TEST(JsonFormatterText, LevelBeyondAnyStringIsRefused) {
    EXPECT_THROW(formatted(decoded("[1]"), true, false, INT_MAX, false), std::length_error);
    EXPECT_EQ(formatted(decoded("[1]"), false, false, INT_MAX, false), "[ 1 ]");
}

TEST(JsonFormatterText, SimpleValues) {
    EXPECT_EQ(
        JsonFormatter(tavSharedPtr<JsonString>(new JsonString("a/b")).get(), true, true, 7, true).toString(),
        "\"a\\/b\"");
    EXPECT_EQ(JsonNumber("1234567890123456").toJson(), "\"1234567890123456\"");
    EXPECT_EQ(tav::json::JsonBoolean(true).toFormatted(), "true");
    EXPECT_EQ(OtherValue().toJson(), "<other>");
    JsonUnit unit;
    unit["o"] = JsonUnit(tavSharedPtr<JsonValue>(new OtherValue));
    EXPECT_EQ(unit.toString(false), "{ \"o\":<other> }");
}

TEST(JsonFormatterText, ReadsBackAsItself) {
    JsonUnit const unit = decoded("{a:[1,-2.5,true,'x\\n\\\"y',[],{}],b:{c:null,d:12345678901234567890}}");
    JsonUnit again;
    again.decode(unit.toString(false));
    EXPECT_EQ(unit.toString(false), again.toString(false));
    JsonUnit pretty;
    pretty.decode(unit.toString(true));
    EXPECT_EQ(unit.toString(true), pretty.toString(true));
    EXPECT_EQ(tav::JsonFieldString, pretty["b"]["d"].type());
}

TEST(JsonFormatterText, ControlBytesDoNotReadBack) {
    JsonUnit unit;
    unit.newChild().stringValue().setValue("\n\x1F");
    EXPECT_EQ(unit.toString(false), "[ \"\\n\\u001F\" ]");
    unit.decode(unit.toString(false));
    EXPECT_EQ(unit.arrayValue().at(0).asString(), "\n31");
}

namespace {

/// A page between two that nobody may touch.
class Page {
public:
    Page()
        : size_(static_cast<std::size_t>(::sysconf(_SC_PAGESIZE))),
          map_(static_cast<char *>(
              ::mmap(nullptr, 3 * size_, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0))) {}
    ~Page() { ::munmap(map_, 3 * size_); }
    Page(Page const &) = delete;
    Page & operator=(Page const &) = delete;

    bool opened() const {
        return map_ != MAP_FAILED && ::mprotect(map_ + size_, size_, PROT_READ | PROT_WRITE) == 0;
    }
    /// The text at the begin of the page, or at its end.
    std::string_view put(std::string_view text, bool atEnd) const {
        char * const to = map_ + size_ + (atEnd ? size_ - text.size() : 0);
        std::memcpy(to, text.data(), text.size());
        return std::string_view(to, text.size());
    }

private:
    std::size_t size_;
    char * map_;
};

} // namespace

TEST(JsonFormatterText, IsReadFromItsFirstByteToItsLast) {
    Page const page;
    ASSERT_TRUE(page.opened());
    for (std::size_t size = 0; size <= 40; ++size) {
        for (std::size_t escaped = 0; escaped <= size; ++escaped) {
            std::string text(size, 'a');
            std::string expected = text;
            if (escaped < size) {
                text[escaped] = '"';
                expected = text.substr(0, escaped) + "\\\"" + text.substr(escaped + 1);
            }
            for (bool const atEnd : {false, true}) {
                std::string out;
                tav::detail::appendEscaped(out, page.put(text, atEnd));
                ASSERT_EQ(out, '"' + expected + '"');
            }
        }
    }
}
