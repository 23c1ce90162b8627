#include "support/tool.h"
#include "tools/template_diff.h"

#include <tav/vinta/vinta_json2nbr.h>
#include <tav/vinta/vinta_json_tree.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <regex>
#include <sstream>
#include <stdexcept>

namespace {

using tav::json::JsonUnit;
using tav::pml::MetaClass;
using tav::pml::MetaFactory;
using tav::pml::MetaField;
using tav::tool::Change;
using tav::tool::Kind;
using tav::tool::Template;
using tav_test::ToolRig;
using tav_test::ToolRun;
namespace kinds = tav::pml::field_type;

std::string str(tavString const & text) {
    return tav::tool::stringOf(text);
}

/// A row of the page's table.
struct Row {
    std::string name;
    std::string before;
    std::string after;
    bool oldToNew;
    bool newToOld;
};

std::string bare(std::string cell) {
    cell = std::regex_replace(cell, std::regex("^ +| +$"), "");
    bool const quoted =
        cell.size() >= 2 && cell.front() == '`' && std::count(cell.begin(), cell.end(), '`') == 2;
    return quoted && cell.back() == '`' ? cell.substr(1, cell.size() - 2) : cell;
}

std::vector<Row> rowsOfPage() {
    std::vector<Row> rows;
    std::istringstream page(tav_test::contentOf(std::string(TAV_SOURCE_DIR) + "/docs/tool/diff.md"));
    for (std::string line; std::getline(page, line);) {
        std::vector<std::string> cells;
        std::istringstream in(line);
        for (std::string cell; std::getline(in, cell, '|');) {
            cells.push_back(bare(cell));
        }
        if (cells.size() == 6 && (cells[4] == "yes" || cells[4] == "no")) {
            rows.push_back(Row{cells[1], cells[2], cells[3], cells[4] == "yes", cells[5] == "yes"});
        }
    }
    return rows;
}

std::string templateOf(std::string const & cell) {
    bool const beside = !cell.empty() && std::isupper(static_cast<unsigned char>(cell.front())) != 0;
    return "M:object(__class__(im.M)__code__(1F01)[1]a:int32()" + (beside ? "" : cell) + ")" +
           (beside ? cell : "");
}

/// From all ends of what integers hold.
std::vector<std::string> const integers = {"1",
                                           "0",
                                           "5",
                                           "7",
                                           "9",
                                           "10",
                                           "20",
                                           "99",
                                           "100",
                                           "127",
                                           "128",
                                           "200",
                                           "255",
                                           "256",
                                           "32767",
                                           "32768",
                                           "65535",
                                           "65536",
                                           "2147483647",
                                           "2147483648",
                                           "4294967295",
                                           "4294967296",
                                           "9223372036854775807",
                                           "18446744073709551615",
                                           "-1",
                                           "-128",
                                           "-129",
                                           "-32768",
                                           "-2147483648",
                                           "-2147483649",
                                           "-9223372036854775808"};

/// JSON texts of values that a field of this kind may have; the first one fits all that permit anything near.
std::vector<std::string> valuesOf(MetaField const & field, Kind kind, MetaClass const & cls,
                                  MetaFactory const & factory) {
    std::vector<std::string> values;
    auto const first = [&] { return valuesOf(field, field.classType.elementType, cls, factory).front(); };
    switch (kind) {
    case kinds::bool_: return {"true", "false"};
    case kinds::float_:
    case kinds::double_: return {"0", "1.5", "-2", "1000"};
    case kinds::string_:
    case kinds::u8string_:
    case kinds::wstring_: return {"\"ann\"", "\"7\""};
    case kinds::bytes_: return {"\"AQID\"", "\"/w==\""};
    case kinds::time_: return {"0", "1700000000000", "-5"};
    case kinds::list_:
        for (std::string const & one : valuesOf(field, field.classType.elementType, cls, factory)) {
            values.push_back("[" + first() + "," + one + "]");
        }
        return values;
    case kinds::map_:
        for (std::string const & one : valuesOf(field, field.classType.elementType, cls, factory)) {
            values.push_back((field.classType.keyType == kinds::string_ ? "{\"k\":" : "{\"1000\":") + one +
                             "}");
        }
        return values;
    case kinds::object_:
    case kinds::ref_: {
        MetaClass const * const inner = tav::tool::findClass(field.classType.name, &cls, factory);
        MetaField const & of = inner->fields.front();
        for (std::string const & one : valuesOf(of, of.classType.type, *inner, factory)) {
            values.push_back("{\"" + str(of.idName.name) + "\":" + one + "}");
        }
        return values;
    }
    default: return integers;
    }
}

std::vector<MetaField const *> fieldsOf(MetaClass const & cls, MetaFactory const & factory) {
    std::vector<MetaField const *> fields;
    for (MetaClass const * const one : tav::tool::chainOf(cls, factory)) {
        for (MetaField const & field : one->fields) {
            fields.push_back(&field);
        }
    }
    return fields;
}

/// All values with no more quotes around numbers, and truth as a number: what is compared.
std::string plain(std::string text) {
    static std::regex const quoted("\"(-?[0-9]+)\"");
    static std::regex const yes("true");
    static std::regex const no("false");
    return std::regex_replace(std::regex_replace(std::regex_replace(text, quoted, "$1"), yes, "1"), no, "0");
}

typedef std::map<std::string, std::string> Members;

/// Writes a message; false if the version does not take it.
bool writes(MetaFactory const & factory, MetaClass const & cls, Members const & members, tavBytes & bytes,
            unsigned short & code) {
    std::string json;
    for (auto const & member : members) {
        json += (json.empty() ? "{\"" : ",\"") + member.first + "\":" + member.second;
    }
    try {
        code = 0xFFFF;
        tav::json2nbr::write(tav_istr(json.empty() ? "{" : json + "}"), bytes, code, factory, cls.className);
        return true;
    } catch (std::invalid_argument const &) {
        return false;
    }
}

/// The members of what a version reads; none if it reads nothing.
Members reads(MetaFactory const & factory, tavBytes const & bytes, unsigned short code) {
    Members members;
    tavString json;
    try {
        tav::json2nbr::read(json, bytes, code, factory, false);
    } catch (std::invalid_argument const &) {
        return members;
    }
    if (json == "null") {
        return members;
    }
    JsonUnit unit;
    unit.decode(json);
    for (auto const & member : unit) {
        members[str(member.first)] = str(member.second.toString(false));
    }
    members.emplace("", "");
    return members;
}

/// The number that the reader's enum has for the name that the writer's has for a number.
std::string meant(std::string const & number, MetaField const & from, MetaClass const & fromClass,
                  MetaFactory const & writer, MetaField const & to, MetaClass const & toClass,
                  MetaFactory const & reader) {
    tav::pml::MetaEnum const * const names = tav::tool::findEnum(from, fromClass, writer);
    tav::pml::MetaEnum const * const others = tav::tool::findEnum(to, toClass, reader);
    if (from.classType.type == kinds::enum_ && to.classType.type == kinds::enum_ && names != nullptr &&
        others != nullptr) {
        for (auto const & member : names->values) {
            if (member->value() == number && others->values.hasChild(tav_istr(member->name()))) {
                return others->values.child(tav_istr(member->name())).value();
            }
        }
    }
    return number;
}

/// Whether a message of the writer is read by the reader with the same values, which it takes itself.
bool goes(MetaFactory const & writer, MetaClass const & cls, Members const & message,
          MetaFactory const & reader) {
    tavBytes bytes;
    unsigned short code = 0;
    EXPECT_TRUE(writes(writer, cls, message, bytes, code));
    Members const own = reads(writer, bytes, code);
    Members read = reads(reader, bytes, code);
    if (read.empty()) {
        return false;
    }
    MetaClass const & other = *reader.findClass(code);
    for (MetaField const * const field : fieldsOf(cls, writer)) {
        std::string const name = str(field->idName.name);
        if (own.count(name) == 0) {
            continue;
        }
        MetaField const * to = tav::tool::findField(field->idName.name, other, reader);
        to = to != nullptr ? to : tav::tool::findField(field->idName.id, other, reader);
        if (to == nullptr) {
            continue;
        }
        auto const there = read.find(str(to->idName.name));
        std::string const value = meant(plain(own.at(name)), *field, cls, writer, *to, other, reader);
        if (there == read.end() || plain(there->second) != value) {
            return false;
        }
    }
    // What was read can be sent on.  The transcoder takes negative numbers and times as numbers alone.
    static std::regex const quoted("\"(-?[0-9]+)\"(?!:)");
    Members again;
    for (auto const & member : read) {
        MetaField const * const field = tav::tool::findField(tav_istr(member.first), other, reader);
        if (field != nullptr) {
            bool const text = field->classType.type >= kinds::char_ && field->classType.type <= kinds::bytes_;
            again[member.first] = text ? member.second : std::regex_replace(member.second, quoted, "$1");
        }
    }
    return writes(reader, other, again, bytes, code);
}

/// Whether all messages of the writer's template that can be made up go to the reader.
bool allGo(Template const & from, Template const & to, std::size_t & count) {
    MetaFactory const & writer = *from.factory;
    bool all = true;
    for (auto const & entry : writer.code2class) {
        MetaClass const & cls = *writer.findClass(entry.first);
        std::vector<MetaField const *> const fields = fieldsOf(cls, writer);
        Members base;
        auto const takes = [&](Members const & members) {
            tavBytes bytes;
            unsigned short code = 0;
            if (!writes(writer, cls, members, bytes, code)) {
                return false;
            }
            // A number beyond its type is cut: that is no value of the field.
            Members const own = reads(writer, bytes, code);
            return !own.empty() && std::all_of(members.begin(), members.end(), [&](auto const & member) {
                JsonUnit unit;
                unit.decode(tav_istr("[" + member.second + "]"));
                std::string const given = str(unit.arrayValue().at(0).toString(false));
                return own.count(member.first) != 0 && plain(own.at(member.first)) == plain(given);
            });
        };
        for (MetaField const * const field : fields) {
            base[str(field->idName.name)] = valuesOf(*field, field->classType.type, cls, writer).front();
        }
        for (MetaField const * const field : fields) {
            std::vector<std::string> const values = valuesOf(*field, field->classType.type, cls, writer);
            for (std::string const & value : values) {
                Members message = base;
                message[str(field->idName.name)] = value;
                if (takes(message)) {
                    ++count;
                    all = goes(writer, cls, message, to.factory ? *to.factory : writer) && all;
                }
            }
            Members without = base;
            without.erase(str(field->idName.name));
            if (!tav::tool::isNecessary(*field) && takes(without)) {
                ++count;
                all = goes(writer, cls, without, *to.factory) && all;
            }
        }
    }
    return all;
}

TEST(ToolDiff, EachRowOfThePageIsWhatEncodingAndDecodingGiveAndWhatIsTold) {
    ToolRig const rig(TAV_TOOL);
    std::vector<Row> const rows = rowsOfPage();
    ASSERT_GE(rows.size(), 50u);
    for (Row const & row : rows) {
        rig.file("old.pml", templateOf(row.before));
        rig.file("new.pml", templateOf(row.after));
        Template const before = tav::tool::loadTemplate(rig.path("old.pml"));
        Template const after = tav::tool::loadTemplate(rig.path("new.pml"));
        std::size_t count = 0;
        EXPECT_EQ(allGo(before, after, count), row.oldToNew) << row.name << ", old to new, as encoded";
        EXPECT_EQ(allGo(after, before, count), row.newToOld) << row.name << ", new to old, as encoded";
        EXPECT_GT(count, 10u) << row.name;
        bool oldToNew = true;
        bool newToOld = true;
        for (Change const & change : tav::tool::compareTemplates(before, after)) {
            oldToNew = oldToNew && change.oldToNew.holds;
            newToOld = newToOld && change.newToOld.holds;
        }
        EXPECT_EQ(oldToNew, row.oldToNew) << row.name << ", old to new, as told";
        EXPECT_EQ(newToOld, row.newToOld) << row.name << ", new to old, as told";
        bool const same = row.before == row.after || row.name == "the order changes";
        EXPECT_EQ(tav::tool::compareTemplates(before, after).empty(), same) << row.name;
    }
}

/// The simple kinds whose values JSON can carry.
std::vector<std::string> const simpleTypes = {"bool",   "int8",   "int16",    "int32",  "int64",
                                              "uint8",  "uint16", "uint32",   "uint64", "float",
                                              "double", "string", "u8string", "bytes",  "time"};

TEST(ToolDiff, EachPairOfSimpleTypesIsToldAsItIsRead) {
    ToolRig const rig(TAV_TOOL);
    for (std::string const & from : simpleTypes) {
        for (std::string const & to : simpleTypes) {
            rig.file("old.pml", templateOf("[2]b:" + from + "()"));
            rig.file("new.pml", templateOf("[2]b:" + to + "()"));
            Template const before = tav::tool::loadTemplate(rig.path("old.pml"));
            Template const after = tav::tool::loadTemplate(rig.path("new.pml"));
            std::vector<Change> const changes = tav::tool::compareTemplates(before, after);
            bool const told = changes.empty() || changes[0].oldToNew.holds;
            std::size_t count = 0;
            EXPECT_EQ(allGo(before, after, count), told) << from << " to " << to;
        }
    }
}

TEST(ToolDiff, RuleSaysWhatMakesTheExitCode) {
    ToolRig const rig(TAV_TOOL);
    rig.file("0.pml", templateOf(""));
    rig.file("1.pml", templateOf("[2]b:string()"));
    rig.file("2.pml", templateOf("[2]b:string() [3]c:uint8()"));
    rig.file("3.pml", templateOf("[2]b:string() [3]c:uint16()"));
    rig.file("4.pml", templateOf("[2]b:uint16() [3]c:string()"));
    struct Case {
        char const * arguments;
        int code;
    };
    for (Case const & one :
         {Case{"1.pml 1.pml", 0}, Case{"--rule both 1.pml 1.pml", 0}, Case{"0.pml 1.pml", 0},
          Case{"--rule both 0.pml 1.pml", 1}, Case{"--rule old-to-new 0.pml 1.pml", 1},
          Case{"--rule new-to-old 0.pml 1.pml", 0}, Case{"--rule old-to-new 2.pml 3.pml", 0},
          Case{"--rule new-to-old 2.pml 3.pml", 1}, Case{"1.pml 4.pml", 1},
          Case{"--rule none 1.pml 1.pml", 2}, Case{"1.pml absent.pml", 2}}) {
        EXPECT_EQ(rig.run(std::string("diff ") + one.arguments).code, one.code) << one.arguments;
    }
}

TEST(ToolDiff, ChangesThatAreOneWayEachMayBreakTogether) {
    ToolRig const rig(TAV_TOOL);
    rig.file("old.pml", templateOf("[2]b:string()"));
    rig.file("new.pml", templateOf("[3]c:string()"));
    ToolRun const run = rig.run("diff old.pml new.pml");
    EXPECT_EQ(run.code, 1);
    EXPECT_EQ(run.out, "new.pml:1:51: one way: im.M [3]c: the field is added\n"
                       "    old to new: the field is missing, and is necessary\n"
                       "old.pml:1:51: one way: im.M [2]b: the field is removed\n"
                       "    new to old: the field is missing, and is necessary\n"
                       "0 compatible, 2 one way, 0 breaking; together breaking\n");
}

TEST(ToolDiff, JsonHasAllThatTheTextHas) {
    ToolRig const rig(TAV_TOOL);
    rig.file("old.pml", templateOf("[2]b:uint8()"));
    rig.file("new.pml", templateOf("[2]b:uint16()"));
    EXPECT_EQ(rig.run("diff --json old.pml new.pml").out,
              "{\"changes\":[{\"place\":\"new.pml:1:51\",\"file\":\"new.pml\",\"line\":1,\"column\":51,"
              "\"offset\":50,\"class\":\"im.M\",\"field\":\"b\",\"tag\":2,"
              "\"text\":\"uint8 becomes "
              "uint16\",\"effect\":\"one "
              "way\",\"old_to_new\":{\"holds\":true},\"new_to_old\":{\"holds\":false,\"why\":\"256 is "
              "read as 0\"}}],\"effect\":\"one way\",\"old_to_new\":true,\"new_to_old\":false}\n");
}

TEST(ToolDiff, TemplateThatIsBrokenIsToldWithItsPlace) {
    ToolRig const rig(TAV_TOOL);
    rig.file("old.pml", templateOf(""));
    rig.file("new.pml", "M:object(\n[1]a:int32(\n");
    ToolRun const run = rig.run("diff old.pml new.pml");
    EXPECT_EQ(run.code, 1);
    EXPECT_EQ(run.err, "tav: new.pml:2:11: error: this ( has no )\n    [1]a:int32(\n              ^\n");
}

TEST(ToolDiff, ClassesThatNameEachOtherAreComparedOnce) {
    ToolRig const rig(TAV_TOOL);
    std::string const loop =
        "A:object(__class__(im.A)__code__(5)[1]b:im.B?()) B:object(__class__(im.B)[1]a:im.A?()[2]n:";
    rig.file("old.pml", loop + "uint8())");
    rig.file("new.pml", loop + "uint16())");
    EXPECT_NE(rig.run("diff old.pml new.pml").out.find("0 compatible, 1 one way, 0 breaking"),
              std::string::npos);
}

TEST(ToolDiff, FileIsCompatibleWithItselfWhateverIsTwiceInIt) {
    ToolRig const rig(TAV_TOOL);
    rig.file("t.pml", templateOf("N:object(__class__(im.N)__code__(1F02)[1]c:int32())"
                                 "O:object(__class__(im.O)__code__(1F02)[1]d:int32())"));
    ToolRun const run = rig.run("diff t.pml t.pml");
    EXPECT_EQ(run.code, 0) << run.out;
    EXPECT_EQ(run.out, "0 compatible, 0 one way, 0 breaking; together compatible\n");
    EXPECT_NE(run.err.find("t.pml:1:"), std::string::npos) << run.err;
    EXPECT_NE(run.err.find("[code-twice]\n"), std::string::npos) << run.err;
    EXPECT_EQ(rig.run("diff - -").code, 2);
}

TEST(ToolDiff, FieldWhoseClassOnlyOneVersionHasIsReadByThatOneAlone) {
    ToolRig const rig(TAV_TOOL);
    std::string const front = "M:object(__class__(im.M)__code__(1F01)[2]b:";
    rig.file("there.pml", front + "im.P())P:object(__class__(im.P)[1]c:int32())");
    rig.file("gone.pml", front + "im.Q())P:object(__class__(im.P)[1]c:int32())");
    ToolRun const gone = rig.run("diff there.pml gone.pml");
    EXPECT_NE(gone.out.find("[2]b: im.P becomes im.Q\n    old to new: there is no class im.Q\n"),
              std::string::npos)
        << gone.out;
    ToolRun const come = rig.run("diff --rule new-to-old gone.pml there.pml");
    EXPECT_EQ(come.code, 1) << come.out;
    EXPECT_NE(come.out.find("new to old: there is no class im.Q\n"), std::string::npos) << come.out;
}

TEST(ToolDiff, TagThatNobodyReadsIsAWarning) {
    ToolRig const rig(TAV_TOOL);
    rig.file("old.pml", "M:object(__class__(im.M)__code__(1F01)[1]a:int32())");
    rig.file("new.pml", "M:object(__class__(im.M)__code__(1F01)[1]a:int32()\n[200]b:int32?())");
    ToolRun const run = rig.run("diff old.pml new.pml");
    EXPECT_EQ(run.code, 0);
    EXPECT_NE(run.err.find("new.pml:2:1: warning: the tag 200 of b is not from 1 to 127"), std::string::npos)
        << run.err;
}

} // namespace
