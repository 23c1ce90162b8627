#ifndef TAV_TESTS_SUPPORT_META_RIG_H
#define TAV_TESTS_SUPPORT_META_RIG_H

#include "support/nbr_bytes.h"
#include "tav/vinta/vinta_json2nbr.h"

#include <stdexcept>
#include <string>
#include <vector>

namespace tav_test {

typedef tav::pml::field_type::values Kind;

/// Every kind by its name in templates.
struct NamedKind {
    Kind kind;
    char const * name;
};

inline std::vector<NamedKind> const & allKinds() {
    namespace k = tav::pml::field_type;
    static std::vector<NamedKind> const kinds = {
        {k::bool_, "bool"},         {k::int8_, "int8"},         {k::int16_, "int16"},
        {k::int32_, "int32"},       {k::int64_, "int64"},       {k::uint8_, "uint8"},
        {k::uint16_, "uint16"},     {k::uint32_, "uint32"},     {k::uint64_, "uint64"},
        {k::float_, "float"},       {k::double_, "double"},     {k::char_, "char"},
        {k::wchar_, "wchar"},       {k::string_, "string"},     {k::wstring_, "wstring"},
        {k::u8string_, "u8string"}, {k::bytes_, "bytes"},       {k::time_, "time"},
        {k::enum_, "enum"},         {k::optional_, "optional"}, {k::union_, "union"},
        {k::object_, "object"},     {k::ref_, "ref"},           {k::array_, "array"},
        {k::array2d_, "array2d"},   {k::array3d_, "array3d"},   {k::list_, "list"},
        {k::ref_list_, "ref_list"}, {k::map_, "map"},           {k::null_, "null"},
        {k::unknown_, "unknown"}};
    return kinds;
}

/// A field made by hand, for kinds and combinations that no template text gives.
inline tav::pml::MetaField field(short id, char const * name, Kind kind) {
    tav::pml::MetaField made;
    made.idName.id = id;
    made.idName.name = name;
    made.classType.type = kind;
    return made;
}

/// A list or a map with elements of a kind, or an object of a class.
inline tav::pml::MetaField field(short id, char const * name, Kind kind, Kind element,
                                 char const * className = "", Kind key = tav::pml::field_type::string_) {
    tav::pml::MetaField made = field(id, name, kind);
    made.classType.elementType = element;
    made.classType.keyType = key;
    made.classType.name = className;
    return made;
}

inline tav::pml::MetaField optional(tav::pml::MetaField made) {
    made.classType.optional = true;
    return made;
}

inline tav::pml::MetaClass metaClass(char const * name, std::vector<tav::pml::MetaField> fields,
                                     char const * super = "") {
    tav::pml::MetaClass made;
    made.className = name;
    made.superName = super;
    made.fields = std::move(fields);
    return made;
}

inline tav::pml::MetaFactory factoryOf(std::vector<tav::pml::MetaClass> classes) {
    static tav::pml::field_type::Initializer const names;
    tav::pml::MetaFactory made;
    for (tav::pml::MetaClass & one : classes) {
        tavString const name = one.className;
        made.classes[name] = std::move(one);
    }
    return made;
}

/// The only class of a factory, "M", with these fields.
inline tav::pml::MetaFactory message(std::vector<tav::pml::MetaField> fields) {
    return factoryOf({metaClass("M", std::move(fields))});
}

/// The factory that a template text gives.
inline tav::pml::MetaFactory fromTemplate(std::string const & text) {
    static tav::pml::field_type::Initializer const names;
    tav::pml::PmlInputStream in{tav_istr(text)};
    return tav::pml::MetaFactory(in);
}

/// The classes of the examples: im.Hello with the code 1F01.
inline tav::pml::MetaFactory helloFactory() {
    return fromTemplate("Hello:object(\n"
                        "    __class__(im.Hello)\n"
                        "    __code__(1F01)\n"
                        "    [1]user:string()\n"
                        "    [2]seq:int64()\n"
                        "    [3]tags:list{string}()\n"
                        "    [4]mood:enum{Mood}(\n"
                        "        __default__(good)\n"
                        "        good(0)\n"
                        "        bad(1)\n"
                        "    )\n"
                        ")\n");
}

/// What write gives, in hexadecimal.  On a failure: its text ahead of the position.
inline std::string wrote(tav::pml::MetaFactory const & factory, std::string const & json,
                         char const * className = "M") {
    tavBytes out;
    unsigned short code = 0xFFFF;
    try {
        tav::json2nbr::write(tav_istr(json), out, code, factory, className);
    } catch (std::invalid_argument const & e) {
        std::string const text = e.what();
        return text.substr(0, text.find("\n    throw at "));
    }
    return hex(out);
}

/// The bytes between the outer markers, in hexadecimal; the failure text, if it fails.
inline std::string wroteMembers(tav::pml::MetaFactory const & factory, std::string const & json,
                                char const * className = "M") {
    std::string const all = wrote(factory, json, className);
    std::string const open = "FF 01 28 ";
    std::string const close = "FF 01 29";
    if (all.size() < open.size() + close.size() || all.compare(0, open.size(), open) != 0 ||
        all.compare(all.size() - close.size(), close.size(), close) != 0) {
        return all;
    }
    std::string const within = all.substr(open.size(), all.size() - open.size() - close.size());
    return within.empty() ? within : within.substr(0, within.size() - 1);
}

/// What read gives of bytes in hexadecimal.  On a failure: its text ahead of the position.
inline std::string readOut(tav::pml::MetaFactory const & factory, std::string const & nbr, bool dump = false,
                           char const * className = "M") {
    tavString json;
    std::string const data = bytes(nbr.c_str());
    try {
        tav::json2nbr::read(json, tav_istr(data), tavString(className), factory, dump);
    } catch (std::invalid_argument const & e) {
        std::string const text = e.what();
        return text.substr(0, text.find("\n    throw at "));
    }
    return std::string(json.data(), json.size());
}

/// readOut of an object with these members.
inline std::string readMembers(tav::pml::MetaFactory const & factory, std::string const & members,
                               bool dump = false, char const * className = "M") {
    return readOut(factory, "FF 01 28 " + members + " FF 01 29", dump, className);
}

} // namespace tav_test

#endif
