#include "tools/cpp_names.h"

#include "tools/cpp_system.h"
#include "tools/failure.h"

#include <algorithm>
#include <cctype>
#include <map>

namespace tav {
namespace tool {

namespace {

bool isKeyword(std::string const & name) {
    static std::set<std::string> const all = {
        "alignas",     "alignof",  "and",        "and_eq",    "asm",       "auto",         "bitand",
        "bitor",       "bool",     "break",      "case",      "catch",     "char",         "char16_t",
        "char32_t",    "char8_t",  "class",      "co_await",  "co_return", "co_yield",     "compl",
        "concept",     "const",    "const_cast", "consteval", "constexpr", "constinit",    "continue",
        "decltype",    "default",  "delete",     "do",        "double",    "dynamic_cast", "else",
        "enum",        "explicit", "export",     "extern",    "false",     "float",        "for",
        "friend",      "goto",     "if",         "inline",    "int",       "long",         "mutable",
        "namespace",   "new",      "noexcept",   "not",       "not_eq",    "nullptr",      "operator",
        "or",          "or_eq",    "private",    "protected", "public",    "register",     "reinterpret_cast",
        "requires",    "return",   "short",      "signed",    "sizeof",    "static",       "static_assert",
        "static_cast", "struct",   "switch",     "template",  "this",      "thread_local", "throw",
        "true",        "try",      "typedef",    "typeid",    "typename",  "union",        "unsigned",
        "using",       "virtual",  "void",       "volatile",  "wchar_t",   "while",        "xor",
        "xor_eq"};
    return all.count(name) != 0;
}

/// What the names within a class mean already.
bool isOfTheLibrary(std::string const & name) {
    static std::set<std::string> const all = {"assign",       "assignFrom",  "baseName",     "checkFields",
                                              "classEqual",   "className",   "classOf",      "clone",
                                              "counts",       "decode",      "decodeJson",   "dump",
                                              "empty",        "encode",      "encodeJson",   "ext",
                                              "io",           "ioField",     "kit_self",     "msgcode",
                                              "newInstance",  "self",        "sno",          "std",
                                              "tav",          "tavBytes",    "tavCodecMeta", "tavCodecStream",
                                              "tavEnum",      "tavMessage",  "tavObject",    "tavOptional",
                                              "tavSharedPtr", "tavString",   "tavTime",      "tavWstring",
                                              "tav_istr",     "traverse",    "type_code",    "type_name",
                                              "decRefCount",  "getRefCount", "incRefCount",  "swap"};
    return all.count(name) != 0;
}

bool isLetter(char c) {
    return std::isalpha(static_cast<unsigned char>(c)) != 0 && static_cast<unsigned char>(c) < 128;
}

bool isDigit(char c) {
    return c >= '0' && c <= '9';
}

/// The name itself, or one that is like it and that C++ carries.
std::string fitting(std::string const & name) {
    if (cppFault(name).empty()) {
        return name;
    }
    std::string result;
    for (char const c : name) {
        char const kept = isLetter(c) || isDigit(c) ? c : '_';
        if (kept != '_' || (!result.empty() && result.back() != '_')) {
            result += kept;
        }
    }
    if (result.empty() || isDigit(result.front())) {
        result = "n" + result;
    }
    return cppFault(result).empty() ? result : result + "_";
}

} // namespace

std::string cppFault(std::string const & name) {
    if (name.empty()) {
        return "is empty";
    }
    if (isKeyword(name)) {
        return "is a keyword of C++";
    }
    if (isSystemMacro(name)) {
        return "may be a macro";
    }
    if (isOfTheLibrary(name)) {
        return "is a name of the library";
    }
    if (isDigit(name.front()) || !std::all_of(name.begin(), name.end(),
                                              [](char c) { return isLetter(c) || isDigit(c) || c == '_'; })) {
        return "is no identifier of C++";
    }
    bool const reserved = name.find("__") != std::string::npos ||
                          (name.front() == '_' && (name.size() == 1 || !std::islower(name[1])));
    return reserved ? "is reserved in C++" : "";
}

/// The name, or what stands for it in C++, of which a warning tells.
std::string CppNames::fit(std::string const & name, char const * what, std::size_t offset) {
    std::string const fault = cppFault(name);
    std::string const result = fitting(name);
    if (!fault.empty()) {
        warnings_.push_back(GenWarning{offset, std::string("the ") + what + " \"" + name + "\" " + fault +
                                                   ": it is " + result + " there"});
    }
    return result;
}

CppNames::Named CppNames::split(std::string const & name, char const * what, std::size_t offset) {
    Named named{outer_, std::string()};
    std::size_t begin = 0;
    for (;;) {
        std::size_t const end = name.find_first_of(".$", begin);
        std::string const part = name.substr(begin, end == std::string::npos ? end : end - begin);
        if (end == std::string::npos) {
            named.name = fit(part, what, offset);
            if (named.space.empty() && isGlobalName(named.name)) {
                warnings_.push_back(GenWarning{offset, std::string("the ") + what + " \"" + part +
                                                           "\" has the name of something global: it is " +
                                                           named.name + "_ there"});
                named.name += "_";
            }
            return named;
        }
        // The namespace of the library is none for others: a class of theirs may have the name of one of it.
        named.space += (named.space.empty() ? "" : "::") + fit(part, "package", offset);
        begin = end + 1;
    }
}

/// Fails if the name is another one's already.
void CppNames::claim(Named const & named, std::string const & what, std::size_t offset) {
    std::string const whole = named.space + "::" + named.name;
    if (!claimed_.insert(whole).second) {
        throw Failure(exitFound,
                      model_.source->told(offset, "error",
                                          what + " is " + named.name + " in C++, as something else is too"));
    }
}

CppNames::CppNames(GenModel const & model, std::string const & outer) : model_(model), outer_(outer) {
    nameClasses();
    nameEnums();
    nameFields();
    refuseSpacesThatAreClasses();
    std::stable_sort(warnings_.begin(), warnings_.end(),
                     [](GenWarning const & a, GenWarning const & b) { return a.offset < b.offset; });
}

void CppNames::nameClasses() {
    std::size_t unnamed = 0;
    for (GenClass const & cls : model_.classes) {
        std::string const name = cls.name.empty() ? "Unnamed" + std::to_string(++unnamed) : cls.name;
        classes_.push_back(split(name, "class", cls.offset));
        claim(classes_.back(), "the class " + cls.name, cls.offset);
    }
}

/// An enum stands beside the class that declares it; where several have the name, each is named after its
/// class too.
void CppNames::nameEnums() {
    std::map<std::string, int> counts;
    std::vector<Named> plain;
    for (GenEnum const & e : model_.enums) {
        std::size_t const dot = e.name.find_last_of(".$");
        auto const around = std::find_if(model_.classes.begin(), model_.classes.end(),
                                         [&e](GenClass const & cls) { return cls.name == e.around; });
        Named named = split(e.name, "enum", e.offset);
        if (dot == std::string::npos && around != model_.classes.end()) {
            named.space = spaceOf(*around);
        }
        ++counts[named.space + "::" + named.name];
        plain.push_back(named);
        members_.emplace_back();
        std::set<std::string> taken;
        for (GenEnum::Member const & member : e.members) {
            members_.back().push_back(fit(member.name, "member", member.offset));
            if (!taken.insert(members_.back().back()).second) {
                throw Failure(exitFound,
                              model_.source->told(member.offset, "error",
                                                  "two members are " + members_.back().back() + " in C++"));
            }
        }
    }
    for (std::size_t i = 0; i < plain.size(); ++i) {
        Named named = plain[i];
        std::string const whole = named.space + "::" + named.name;
        if (counts[whole] > 1 || claimed_.count(whole) != 0) {
            std::string const & around = model_.enums[i].around;
            named.name = split(around, "class", model_.enums[i].offset).name + named.name;
        }
        enums_.push_back(named);
        claim(named, "the enum " + model_.enums[i].name, model_.enums[i].offset);
    }
}

void CppNames::nameFields() {
    for (std::size_t i = 0; i < model_.classes.size(); ++i) {
        fields_.emplace_back();
        std::vector<GenField const *> const fields = model_.fieldsOf(i);
        for (GenField const * const field : fields) {
            if (!fields_.back().insert(fieldOf(*field)).second) {
                throw Failure(exitFound,
                              model_.source->told(field->offset, "error",
                                                  "two fields are " + fieldOf(*field) + " in C++"));
            }
        }
        for (GenField const & field : model_.classes[i].fields) {
            if (fieldOf(field) == fitting(field.name)) {
                fit(field.name, "field", field.offset);
            } else {
                warnings_.push_back(GenWarning{field.offset, "the field \"" + field.name +
                                                                 "\" has the name of a class: it is " +
                                                                 fieldOf(field) + " there"});
            }
        }
    }
}

std::string CppNames::fieldOf(GenField const & field) const {
    std::string const name = fitting(field.name);
    bool const isClass = std::any_of(classes_.begin(), classes_.end(),
                                     [&name](Named const & cls) { return cls.name == name; });
    return isClass ? name + "_" : name;
}

/// A namespace and a class can't have one name.
void CppNames::refuseSpacesThatAreClasses() {
    for (GenClass const & cls : model_.classes) {
        for (std::string space = spaceOf(cls); !space.empty();) {
            std::size_t const colon = space.rfind("::");
            Named const named{colon == std::string::npos ? std::string() : space.substr(0, colon),
                              colon == std::string::npos ? space : space.substr(colon + 2)};
            if (claimed_.count(named.space + "::" + named.name) != 0) {
                throw Failure(exitFound, model_.source->told(cls.offset, "error",
                                                             "the package of the class " + cls.name +
                                                                 " has the name of a class or an enum"));
            }
            space = named.space;
        }
    }
}

std::string CppNames::in(Named const & named, GenClass const & from) const {
    std::set<std::string> const & hidden = fields_[indexOf(from)];
    if (named.space == spaceOf(from) && hidden.count(named.name) == 0) {
        return named.name;
    }
    return "::" + named.space + (named.space.empty() ? "" : "::") + named.name;
}

std::string CppNames::classIn(std::size_t cls, GenClass const & from) const {
    return in(classes_[cls], from);
}

std::string CppNames::enumIn(std::size_t e, GenClass const & from) const {
    return in(enums_[e], from);
}

std::string CppNames::freeName(std::size_t cls, std::vector<std::string> const & names) const {
    for (std::string const & name : names) {
        if (fields_[cls].count(name) == 0) {
            return name;
        }
    }
    std::string name = names.back();
    while (fields_[cls].count(name) != 0) {
        name += "_";
    }
    return name;
}

} // namespace tool
} // namespace tav
