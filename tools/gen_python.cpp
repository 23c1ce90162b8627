#include "tools/failure.h"
#include "tools/gen.h"
#include "tools/utf8.h"

#include <algorithm>
#include <cctype>
#include <map>
#include <set>

namespace tav {
namespace tool {

namespace kinds = pml::field_type;

namespace {

/// Words of the language, and names that the module or an enum, which is an int, has for itself.
bool isTaken(std::string const & name) {
    static std::set<std::string> const all = {
        "Dict",        "False",     "IntEnum",   "List",       "None",       "Optional",
        "True",        "TypedDict", "Union",     "and",        "as",         "as_integer_ratio",
        "assert",      "async",     "await",     "bit_count",  "bit_length", "bool",
        "break",       "class",     "conjugate", "continue",   "def",        "del",
        "denominator", "dict",      "elif",      "else",       "except",     "finally",
        "float",       "for",       "from",      "from_bytes", "global",     "if",
        "imag",        "import",    "in",        "int",        "is",         "is_integer",
        "lambda",      "list",      "mro",       "name",       "nonlocal",   "not",
        "numerator",   "or",        "pass",      "raise",      "real",       "return",
        "str",         "to_bytes",  "try",       "value",      "while",      "with",
        "yield"};
    return all.count(name) != 0;
}

std::string pythonName(std::string const & name) {
    std::string result;
    for (char const c : name) {
        bool const fits =
            (std::isalnum(static_cast<unsigned char>(c)) != 0 && static_cast<unsigned char>(c) < 128) ||
            c == '_';
        result += fits ? c : '_';
    }
    if (result.empty() || std::isdigit(static_cast<unsigned char>(result.front())) != 0 ||
        result.front() == '_') {
        result.insert(0, "n");
    }
    return isTaken(result) || result.find("__") != std::string::npos ? result + "_" : result;
}

/// A text between double quotes.
std::string quoted(std::string_view text) {
    std::string result = "\"";
    while (!text.empty()) {
        std::size_t const size = utf8Character(text);
        char const c = text.front();
        if (size == 0 || static_cast<unsigned char>(c) < 32 || c == 127) {
            constexpr char digits[] = "0123456789abcdef";
            auto const byte = static_cast<unsigned char>(c);
            result += std::string("\\x") + digits[byte >> 4] + digits[byte & 15];
        } else if (c == '"' || c == '\\') {
            result += std::string("\\") + c;
        } else {
            result += text.substr(0, size);
        }
        text.remove_prefix(size == 0 ? 1 : size);
    }
    return result + "\"";
}

char const * simpleType(Kind kind) {
    switch (kind) {
    case kinds::bool_: return "bool";
    case kinds::float_:
    case kinds::double_: return "float";
    case kinds::int64_:
    case kinds::uint64_:
    case kinds::time_: return "Union[int, str]";
    case kinds::string_:
    case kinds::wstring_:
    case kinds::u8string_:
    case kinds::bytes_: return "str";
    case kinds::char_:
    case kinds::wchar_: return "None";
    default: return "int";
    }
}

class PythonWriter {
public:
    explicit PythonWriter(GenModel const & model) : model_(model) {}

    Generated write();

private:
    void nameAll();
    std::string fit(std::string const & name, char const * what, std::size_t offset);
    std::string claimed(std::string const & name, std::string const & whole, char const * what,
                        std::size_t offset);
    void writeEnum(std::size_t index);
    void writeClass(std::size_t index);
    void writeMembers(std::string const & name, std::vector<std::string> const & members, bool total);
    std::string typeOf(GenField const & field) const;
    void line(std::string const & text) { out_ += text + "\n"; }

    GenModel const & model_;
    std::vector<std::string> classes_;
    std::vector<std::string> enums_;
    std::map<std::string, int> counts_;
    std::set<std::string> claimed_;
    std::string out_;
    std::vector<GenWarning> warnings_;
};

std::string PythonWriter::fit(std::string const & name, char const * what, std::size_t offset) {
    std::string const result = pythonName(name);
    if (result != name) {
        warnings_.push_back(GenWarning{offset, std::string("the ") + what + " \"" + name +
                                                   "\" is no name of Python: it is " + result + " there"});
    }
    return result;
}

std::string lastOf(std::string const & name) {
    return name.substr(name.find_last_of(".$") + 1);
}

/// The name without its package, or with that where others are named so.
std::string PythonWriter::claimed(std::string const & name, std::string const & whole, char const * what,
                                  std::size_t offset) {
    std::string result = name;
    if (counts_[lastOf(name)] > 1) {
        result = whole;
        std::replace_if(
            result.begin(), result.end(), [](char c) { return c == '.' || c == '$'; }, '_');
    } else {
        result = lastOf(name);
    }
    result = fit(result, what, offset);
    if (!claimed_.insert(result).second) {
        throw Failure(exitFound, model_.source->told(offset, "error",
                                                     std::string("the ") + what + " " + name + " is " +
                                                         result + " in Python, as something else is too"));
    }
    return result;
}

void PythonWriter::nameAll() {
    for (GenClass const & cls : model_.classes) {
        ++counts_[lastOf(cls.name)];
    }
    for (GenEnum const & e : model_.enums) {
        ++counts_[lastOf(e.name)];
    }
    for (GenClass const & cls : model_.classes) {
        classes_.push_back(claimed(cls.name, cls.name, "class", cls.offset));
    }
    for (GenEnum const & e : model_.enums) {
        enums_.push_back(claimed(e.name, e.around + "." + e.name, "enum", e.offset));
    }
}

void PythonWriter::writeEnum(std::size_t index) {
    GenEnum const & e = model_.enums[index];
    line("\n\nclass " + enums_[index] + "(IntEnum):");
    std::set<std::string> taken;
    for (GenEnum::Member const & member : e.members) {
        std::string const name = fit(member.name, "member", member.offset);
        if (!taken.insert(name).second) {
            throw Failure(exitFound, model_.source->told(member.offset, "error",
                                                         "two members are " + name + " in Python"));
        }
        line("    " + name + " = " + std::to_string(member.number));
    }
}

std::string PythonWriter::typeOf(GenField const & field) const {
    std::string type = field.cls != none ? quoted(classes_[field.cls]) : simpleType(field.valueKind());
    if (field.kind == kinds::map_) {
        type = "Dict[str, " + type + "]";
    } else if (field.isContainer()) {
        type = "List[" + type + "]";
    }
    return field.optional ? "Optional[" + type + "]" : type;
}

void PythonWriter::writeMembers(std::string const & name, std::vector<std::string> const & members,
                                bool total) {
    line("\n" + name + " = TypedDict(");
    line("    " + quoted(name) + ",");
    if (members.empty()) {
        line("    {},");
    } else {
        line("    {");
        for (std::string const & member : members) {
            line("        " + member + ",");
        }
        line("    },");
    }
    if (!total) {
        line("    total=False,");
    }
    line(")");
}

void PythonWriter::writeClass(std::size_t index) {
    GenClass const & cls = model_.classes[index];
    std::vector<std::string> necessary;
    std::vector<std::string> others = {"\"__class__\": str"};
    for (GenField const * const field : model_.fieldsOf(index)) {
        (field->necessary() ? necessary : others).push_back(quoted(field->name) + ": " + typeOf(*field));
    }
    std::string const & name = classes_[index];
    line("");
    writeMembers("_" + name + "Necessary", necessary, true);
    writeMembers("_" + name + "Other", others, false);
    line("\n\nclass " + name + "(_" + name + "Necessary, _" + name + "Other):");
    std::string const what =
        cls.hasCode ? "The message of the code " + codeText(cls.code) + "." : "An object.";
    line("    \"\"\"" + what + "\"\"\"");
}

Generated PythonWriter::write() {
    nameAll();
    std::string title = quoted(model_.title());
    title = title.substr(1, title.size() - 2);
    line("\"\"\"" + std::string(generatedMark) + " python from " + title + ": changes here are lost.\"\"\"");
    std::string words = "from typing import ";
    line("");
    std::size_t const head = out_.size();
    for (std::size_t i = 0; i < model_.enums.size(); ++i) {
        writeEnum(i);
    }
    for (std::size_t i = 0; i < model_.classes.size(); ++i) {
        writeClass(i);
    }
    // What is imported and used by nobody is told by those who check.
    for (std::string const word : {"Dict", "List", "Optional", "TypedDict", "Union"}) {
        if (word == "TypedDict" || out_.find(word + "[", head) != std::string::npos) {
            words += (words.back() == ' ' ? "" : ", ") + word;
        }
    }
    out_.insert(head, (model_.enums.empty() ? "" : "from enum import IntEnum\n") + words + "\n");
    return Generated{std::move(out_), std::move(warnings_)};
}

} // namespace

Generated pythonOf(GenModel const & model) {
    return PythonWriter(model).write();
}

} // namespace tool
} // namespace tav
