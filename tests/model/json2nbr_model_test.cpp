#include "tav/vinta/vinta_json2nbr.h"

#include "support/log_capture.h"
#include "support/meta_rig.h"
#include "support/transcoder_model.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <ostream>
#include <random>
#include <set>
#include <stdexcept>
#include <string>
#include <vector>

using tav::pml::MetaClass;
using tav::pml::MetaFactory;
using tav::pml::MetaField;
using tav_test::bytes;
using tav_test::factoryOf;
using tav_test::field;
using tav_test::hex;
using tav_test::LogCapture;
using tav_test::messageOf;
using tav_test::metaClass;
using tav_test::optional;
using tav_test::text;
using tav_test::TranscoderModel;

namespace k = tav::pml::field_type;

namespace {

/// What one call did: the result or the failure, the code behind it, and the lines that it logged.
struct Outcome {
    std::string result;
    unsigned code = 0;
    std::vector<std::string> lines;
};

bool operator==(Outcome const & a, Outcome const & b) {
    return a.result == b.result && a.code == b.code && a.lines == b.lines;
}

std::ostream & operator<<(std::ostream & out, Outcome const & v) {
    out << v.code << " " << v.result;
    for (std::string const & line : v.lines) {
        out << "\n    " << line;
    }
    return out;
}

/// The lines of the transcoder that were captured, as the model tells them.
std::vector<std::string> captured(LogCapture const & log) {
    std::vector<std::string> lines;
    for (LogCapture::Record const & record : log.records()) {
        bool const failure = record.text.find("<EXCEPTION> ") != std::string::npos;
        EXPECT_EQ(failure ? std::string::npos != record.text.find("TAV")
                          : std::string::npos != record.text.find("JSON2NBR"),
                  true)
            << record.text;
        std::string line = record.level == tavLogger::ERROR ? "ERROR" : "INFO";
        for (char const * place : {"write", "writeTo", "read", "readFrom"}) {
            if (record.text.find(std::string("json2nbr::") + place + "(") != std::string::npos) {
                line += std::string(" ") + place;
            }
        }
        std::size_t at = std::string::npos;
        for (char const * begin : {"not found ", "<ERROR> ", "<EXCEPTION> "}) {
            at = std::min(at, record.text.find(begin));
        }
        line += " " + (at != std::string::npos ? record.text.substr(at) : record.text);
        lines.push_back(line.substr(0, line.find_last_not_of("\r\n") + 1));
    }
    return lines;
}

/// Failures are told in one line, behind all others.
void addFailure(Outcome & outcome, std::invalid_argument const & e) {
    outcome.result = messageOf(e);
    outcome.lines.push_back("failed: " + outcome.result);
}

/// Takes the place off the line of a failure.
void joinFailure(Outcome & outcome) {
    for (std::string & line : outcome.lines) {
        std::size_t const at = line.find("<EXCEPTION> ");
        if (at != std::string::npos) {
            line = "failed: " + line.substr(at + std::string("<EXCEPTION> ").size());
        }
    }
}

Outcome modelWrites(MetaFactory const & factory, std::string const & json, unsigned short code) {
    Outcome outcome;
    tavBytes out(tav_istr("old"));
    TranscoderModel model(factory);
    try {
        model.write(json, out, code, "M");
        outcome.lines = model.lines;
        outcome.result = hex(out);
    } catch (std::invalid_argument const & e) {
        outcome.lines = model.lines;
        addFailure(outcome, e);
    }
    outcome.code = code;
    return outcome;
}

Outcome transcoderWrites(MetaFactory const & factory, std::string const & json, unsigned short code,
                         LogCapture & log) {
    Outcome outcome;
    tavBytes out(tav_istr("old"));
    log.clear();
    try {
        tav::json2nbr::write(tav_istr(json), out, code, factory, "M");
        outcome.result = hex(out);
    } catch (std::invalid_argument const & e) {
        outcome.result = messageOf(e);
        EXPECT_EQ(hex(out), "6F 6C 64");
    }
    outcome.lines = captured(log);
    joinFailure(outcome);
    outcome.code = code;
    return outcome;
}

Outcome modelReads(MetaFactory const & factory, std::string const & nbr, bool dump) {
    Outcome outcome;
    tavString json("old");
    TranscoderModel model(factory);
    try {
        model.read(json, nbr, "M", dump);
        outcome.lines = model.lines;
        outcome.result = text(json);
    } catch (std::invalid_argument const & e) {
        outcome.lines = model.lines;
        addFailure(outcome, e);
    }
    return outcome;
}

Outcome transcoderReads(MetaFactory const & factory, std::string const & nbr, bool dump, LogCapture & log) {
    Outcome outcome;
    tavString json("old");
    log.clear();
    try {
        tav::json2nbr::read(json, tav_istr(nbr), tavString("M"), factory, dump);
        outcome.result = text(json);
    } catch (std::invalid_argument const & e) {
        outcome.result = messageOf(e);
        EXPECT_EQ(json, "old");
    }
    outcome.lines = captured(log);
    joinFailure(outcome);
    return outcome;
}

/// A class M that has a field of every kind, some that refer to M itself or to a class within it, two of one
/// name, two of one tag, ranges, and bases.  Only "f1" is necessary.
MetaFactory everything() {
    std::vector<MetaField> fields;
    short id = 1;
    for (tav_test::NamedKind const & one : tav_test::allKinds()) {
        MetaField made = field(id, one.name, one.kind, k::int32_, id % 3 == 0 ? "Inner" : "M");
        made.validValues = {0, 1};
        made.isProtected = id % 2 == 0;
        made.spec = "..***..";
        fields.push_back(optional(made));
        ++id;
    }
    auto const add = [&](MetaField made) { fields.push_back(optional(std::move(made))); };
    add(field(40, "lists", k::list_, k::list_, "M"));
    add(field(41, "maps", k::map_, k::map_, "M", k::u8string_));
    add(field(42, "objects", k::list_, k::object_, "M"));
    add(field(43, "refs", k::map_, k::ref_, "Inner", k::int64_));
    add(field(44, "lost", k::map_, k::string_, "", k::int32_));
    add(field(45, "nowhere", k::ref_, k::unknown_, "Nowhere"));
    add(field(46, "enums", k::list_, k::enum_));
    fields.back().validValues = {1, 2};
    add(field(47, "ranged", k::int16_));
    fields.back().range = tav::Range("0..9,20..30");
    add(field(48, "twice", k::int32_));
    add(field(49, "twice", k::string_));
    add(field(48, "again", k::string_));
    add(field(200, "high", k::int32_));
    add(field(-3, "negative", k::string_));
    // Kinds that meet in one member, one of which writes nothing.
    add(field(53, "mixed", k::list_, k::int32_));
    add(field(54, "mixed", k::map_, k::object_, "M"));
    add(field(55, "mixed", k::ref_, k::unknown_, "Inner"));
    add(field(56, "mixed", k::int64_));
    add(field(57, "mixed", k::array_));
    // Names that are written as they stand, and that meet the name of the class; a tag of 0 is not shown.
    add(field(58, "q\"\n\\", k::string_));
    add(field(59, "__class__", k::list_, k::string_));
    add(field(0, "__class__", k::map_, k::double_));
    add(field(63, "texts", k::map_, k::string_));
    fields.push_back(field(51, "f1", k::uint8_));
    MetaField secret = field(52, "secrets", k::map_, k::string_);
    secret.isProtected = true;
    secret.spec = ".***.";
    add(secret);
    MetaClass m = metaClass("M", fields, "Base");
    m.code = "1F01";
    m.classes.push_back(metaClass("Inner",
                                  {field(1, "x", k::int32_), field(2, "m", k::ref_, k::unknown_, "M"),
                                   field(3, "self", k::list_, k::ref_, "Inner")},
                                  "Base"));
    MetaClass base =
        metaClass("Base", {optional(field(60, "b", k::int8_)), optional(field(1, "bool", k::bytes_))}, "Top");
    MetaClass top = metaClass("Top", {optional(field(61, "t", k::object_, k::unknown_, "Deep"))}, "Base");
    top.classes.push_back(metaClass("Deep", {field(1, "d", k::int32_)}));
    MetaFactory factory = factoryOf({m, base, top});
    factory.code2class[0x1F01] = "M";
    factory.code2class[7] = "Base";
    factory.code2class[8] = "Gone";
    return factory;
}

/// Random JSON of the names that `everything` has.
class Texts {
public:
    explicit Texts(unsigned seed) : random_(seed) {
        for (auto const & cls : everything().classes) {
            for (MetaField const & one : cls.second.fields) {
                names_.push_back(text(one.idName.name));
            }
        }
        for (char const * name : {"x", "m", "self", "d", "unknown", "__odd", "\xC3\xA4", "Z"}) {
            names_.push_back(name);
        }
    }

    std::string message() {
        std::string result = "{\"f1\":1";
        if (pick(8) == 0) {
            result +=
                one({",__class__:M", ",__class__:Base", ",__class__:No", ",__class__:5", ",__class__:null"});
        }
        if (pick(8) == 0) {
            result += one({",__code__:7", ",__code__:'0x1F01'", ",__code__:8", ",__code__:65535",
                           ",__code__:true", ",__code__:'-1'", ",__code__:''"});
        }
        for (unsigned n = pick(4); n > 0; --n) {
            result += ",\"" + name() + "\":" + value(3);
        }
        return result + "}";
    }

private:
    unsigned pick(unsigned n) { return static_cast<unsigned>(random_() % n); }
    std::string one(std::vector<char const *> const & choices) {
        return choices[pick(static_cast<unsigned>(choices.size()))];
    }
    std::string const & name() { return names_[pick(static_cast<unsigned>(names_.size()))]; }

    std::string value(unsigned depth) {
        unsigned const kind = pick(depth == 0 ? 5 : 9);
        if (kind < 5) {
            return one({"0",        "1",          "2",
                        "25",       "-5",         "300",
                        "70000",    "4294967297", "18446744073709551615",
                        "1.5",      "1e9",        "true",
                        "false",    "null",       "\"\"",
                        "\"5\"",    "\"-5\"",     "\"text\"",
                        "\"aGk=\"", "word"});
        }
        std::string result = kind < 7 ? "[" : "{";
        for (unsigned n = pick(4); n > 0; --n) {
            if (kind >= 7) {
                result += "\"" + (pick(4) == 0 ? std::to_string(pick(99)) : name()) + "\":";
            }
            result += value(depth - 1) + ",";
        }
        return result + (kind < 7 ? "]" : "}");
    }

    std::mt19937 random_;
    std::vector<std::string> names_;
};

/// Random NBR with tags that `everything` has.
class Documents {
public:
    explicit Documents(unsigned seed) : random_(seed) {}

    std::string message() {
        std::string result = bytes("FF 01 28");
        if (pick(6) != 0) {
            result += bytes("33 01 01 07");
        }
        members(result, 4);
        result += bytes("FF 01 29");
        if (pick(8) == 0) {
            result.resize(pick(static_cast<unsigned>(result.size())) + 1);
        }
        return result;
    }

private:
    unsigned pick(unsigned n) { return static_cast<unsigned>(random_() % n); }

    void members(std::string & out, unsigned depth) {
        for (unsigned n = pick(5); n > 0; --n) {
            out += static_cast<char>(pick(5) == 0 ? pick(256) : pick(2) == 0 ? pick(4) : pick(64));
            value(out, depth);
        }
    }

    /// What a map has.
    void entries(std::string & out, unsigned depth) {
        static char const * const keys[] = {"F1 01 6B",    "F1 01 6A", "F1 09 5F 5F 63 6C 61 73 73 5F 5F",
                                            "F1 02 22 0A", "F1 00",    "01 01 07"};
        for (unsigned n = pick(4); n > 0; --n) {
            out += bytes("00 FF 01 28 01") + bytes(keys[pick(6)]) + bytes("02");
            value(out, depth);
            out += bytes("FF 01 29");
        }
    }

    void value(std::string & out, unsigned depth) {
        static char const * const values[] = {"00",
                                              "01 00",
                                              "F1 00",
                                              "01 01 01",
                                              "01 01 C8",
                                              "01 02 FF FF",
                                              "01 04 00 00 80 3F",
                                              "01 08 FF FF FF FF FF FF FF FF",
                                              "01 08 00 00 00 00 00 00 F8 3F",
                                              "01 0A 01 02 03 04 05 06 07 08 09 0A",
                                              "F1 01 6B",
                                              "F1 05 68 65 6C 6C 6F",
                                              "F1 02 35 22"};
        if (depth == 0 || pick(2) == 0) {
            out += bytes(values[pick(13)]);
            return;
        }
        out += bytes("FF 01 28");
        if (pick(3) == 0) {
            entries(out, depth - 1);
        } else {
            members(out, depth - 1);
        }
        out += bytes("FF 01 29");
    }

    std::mt19937 random_;
};

} // namespace

TEST(Json2NbrModel, WritesAgree) {
    MetaFactory const factory = everything();
    LogCapture log("clear(INFO)");
    Texts texts(41);
    std::set<std::string> results;
    for (int i = 0; i < 8000; ++i) {
        std::string const json = texts.message();
        auto const code = static_cast<unsigned short>(i % 3 != 0 ? 0xFFFF : i % 9);
        Outcome const expected = modelWrites(factory, json, code);
        ASSERT_EQ(transcoderWrites(factory, json, code, log), expected) << json;
        results.insert(expected.result);
    }
    EXPECT_LT(800u, results.size());
}

TEST(Json2NbrModel, WritesOfBrokenTextsAgree) {
    MetaFactory const factory = everything();
    LogCapture log("clear(INFO)");
    Texts texts(42);
    std::mt19937 random(5);
    for (int i = 0; i < 6000; ++i) {
        std::string json = texts.message();
        if (i % 2 == 0) {
            json.resize(random() % json.size() + 1);
        } else {
            json[random() % json.size()] = "{}[],:\"'"[random() % 8];
        }
        ASSERT_EQ(modelWrites(factory, json, 0xFFFF), transcoderWrites(factory, json, 0xFFFF, log)) << json;
    }
}

TEST(Json2NbrModel, EachFieldAgreesOnEachValue) {
    MetaFactory const factory = everything();
    LogCapture log("clear(INFO)");
    for (MetaField const & one : factory.findClass(tav_istr("M"))->fields) {
        for (char const * value : {"null",
                                   "true",
                                   "false",
                                   "0",
                                   "1",
                                   "5",
                                   "31",
                                   "-1",
                                   "300",
                                   "4294967296",
                                   "1.5",
                                   "\"\"",
                                   "\"12\"",
                                   "\"-12\"",
                                   "\"aGk=\"",
                                   "[]",
                                   "[1]",
                                   "[\"a\"]",
                                   "[true,[1],{}]",
                                   "{}",
                                   "{\"1\":1}",
                                   "{\"x\":\"s\"}",
                                   "{\"f1\":1,\"b\":[]}",
                                   "{\"1\":{\"x\":5,\"y\":6,\"__z\":7}}",
                                   "[{\"b\":1},{\"q\":2}]"}) {
            std::string const json = "{\"f1\":1,\"" + text(one.idName.name) + "\":" + value + "}";
            ASSERT_EQ(modelWrites(factory, json, 0xFFFF), transcoderWrites(factory, json, 0xFFFF, log))
                << json;
        }
    }
}

TEST(Json2NbrModel, ReadsAgree) {
    MetaFactory const factory = everything();
    LogCapture log("clear(INFO)");
    Documents documents(43);
    std::set<std::string> results;
    for (int i = 0; i < 6000; ++i) {
        std::string const nbr = documents.message();
        for (bool const dump : {false, true}) {
            Outcome const expected = modelReads(factory, nbr, dump);
            ASSERT_EQ(transcoderReads(factory, nbr, dump, log), expected) << hex(tav_istr(nbr));
            results.insert(expected.result);
        }
    }
    EXPECT_LT(3000u, results.size());
}

TEST(Json2NbrModel, EachTagAgreesOnEachValue) {
    MetaFactory const factory = everything();
    LogCapture log("clear(INFO)");
    for (int tag = 0; tag < 256; ++tag) {
        for (char const * value :
             {"00", "01 00", "F1 00", "01 01 05", "F1 06 68 65 6C 6C 6F 31", "FF 01 28 FF 01 29",
              "FF 01 28 01 01 01 05 02 F1 01 61 FF 01 29",
              "FF 01 28 00 FF 01 28 01 F1 01 35 02 F1 01 62 01 00 FF 01 29 00 00 00 01 01 09 FF 01 29",
              "FF 01 28 00 FF 01 28 01 F1 09 5F 5F 63 6C 61 73 73 5F 5F 02 F1 02 22 0A FF 01 29 FF 01 29",
              "FF 01 28 00 FF 01 28 02 FF 01 28 01 01 01 05 3C 01 01 06 FF 01 29 FF 01 29 FF 01 29"}) {
            // Once, and twice so that the second one meets what the first one left.
            std::string const member = std::string(1, static_cast<char>(tag)) + bytes(value);
            for (std::string const & members :
                 {member, member + std::string(1, static_cast<char>(tag)) + bytes("F1 01 7A"),
                  member + std::string(1, static_cast<char>(tag)) + bytes("FF 01 28 00 01 01 08 FF 01 29"),
                  member + member}) {
                std::string const nbr = bytes("FF 01 28 33 01 01 07") + members + bytes("FF 01 29");
                for (bool const dump : {false, true}) {
                    ASSERT_EQ(modelReads(factory, nbr, dump), transcoderReads(factory, nbr, dump, log))
                        << hex(tav_istr(nbr));
                }
            }
        }
    }
}

TEST(Json2NbrModel, WhatIsWrittenIsReadAlike) {
    MetaFactory const factory = everything();
    LogCapture log("clear(INFO)");
    Texts texts(47);
    unsigned written = 0;
    for (int i = 0; i < 6000; ++i) {
        std::string const json = texts.message();
        tavBytes out;
        unsigned short code = 0xFFFF;
        try {
            tav::json2nbr::write(tav_istr(json), out, code, factory, "M");
        } catch (std::invalid_argument const &) {
            continue;
        }
        ++written;
        std::string const nbr = text(out);
        ASSERT_EQ(modelReads(factory, nbr, false), transcoderReads(factory, nbr, false, log)) << json;
        ASSERT_EQ(modelReads(factory, nbr, true), transcoderReads(factory, nbr, true, log)) << json;
    }
    EXPECT_LT(1000u, written);
}
