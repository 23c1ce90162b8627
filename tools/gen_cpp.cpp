#include "tools/cpp_names.h"
#include "tools/failure.h"
#include "tools/gen.h"
#include "tools/integers.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <iterator>
#include <limits>
#include <set>

namespace tav {
namespace tool {

namespace kinds = pml::field_type;

namespace {

/// The columns of a line, as the project's own sources have them.
constexpr std::size_t columns = 110;
/// Objects that hold themselves lie at most this deep.
constexpr int deepest = 64;

std::string quoted(std::string const & text) {
    std::string result = "\"";
    for (char const c : text) {
        auto const byte = static_cast<unsigned char>(c);
        // Two question marks may begin a trigraph.
        if (c == '"' || c == '\\' || (c == '?' && result.back() == '?')) {
            result += std::string("\\") + c;
        } else if (byte < 32 || byte == 127) {
            std::array<char, 8> octal{};
            std::snprintf(octal.data(), octal.size(), "\\%03o", static_cast<unsigned>(byte));
            result += octal.data();
        } else {
            result += c;
        }
    }
    return result + "\"";
}

char const * simpleType(Kind kind) {
    switch (kind) {
    case kinds::bool_: return "bool";
    case kinds::int8_:
    case kinds::char_: return "char";
    case kinds::int16_: return "short";
    case kinds::int32_: return "int";
    case kinds::int64_: return "long long";
    case kinds::uint8_: return "unsigned char";
    case kinds::uint16_: return "unsigned short";
    case kinds::uint32_: return "unsigned";
    case kinds::uint64_: return "unsigned long long";
    case kinds::float_: return "float";
    case kinds::double_: return "double";
    case kinds::wchar_: return "wchar_t";
    case kinds::wstring_: return "tavWstring";
    case kinds::bytes_: return "tavBytes";
    case kinds::time_: return "tavTime";
    default: return "tavString";
    }
}

std::string integerLiteral(Kind kind, long long value) {
    if (kind == kinds::int64_ && value == std::numeric_limits<long long>::min()) {
        return "-9223372036854775807LL - 1";
    }
    if (kind == kinds::int32_ && value == std::numeric_limits<int>::min()) {
        return "-2147483647 - 1";
    }
    return std::to_string(value) + (kind == kinds::int64_ ? "LL" : kind == kinds::uint32_ ? "u" : "");
}

bool isInteger(Kind kind) {
    return kind >= kinds::int8_ && kind <= kinds::uint64_;
}

bool isText(Kind kind) {
    return kind == kinds::string_ || kind == kinds::u8string_;
}

bool hasPresetText(GenField const * field) {
    return isText(field->kind) && !field->optional && !field->preset.empty();
}

class CppWriter {
public:
    CppWriter(GenModel const & model, std::string const & outer)
        : model_(model), outer_(outer), names_(model, outer), order_(model.inOrder()) {}

    Generated write();

private:
    void head();
    void enter(std::string const & space);
    void writeEnum(GenEnum const & e);
    void writePresets();
    void writeNames(GenEnum const & e);
    void declareAhead();
    void writeClass(std::size_t index);
    void writeHandMade(std::size_t index, std::string const & base);
    void writeFields(std::size_t index);
    void writeTraverse(std::size_t index);
    void writeTraverseLater(std::size_t index);
    void body(std::size_t index, std::string const & indent, std::string const & stream);
    void ioField(std::string const & indent, std::string const & stream, GenField const & field);

    bool inCycle(std::size_t index) const { return model_.classes[index].holdsItself; }
    /// Whether it is in a cycle of several classes.
    bool isKnot(std::size_t index) const { return model_.classes[index].isKnotted; }
    bool holdsBack(GenField const & field, std::size_t index) const {
        return field.cls != none && model_.classes[field.cls].knot == model_.classes[index].knot;
    }
    std::string valueType(GenField const & field, std::size_t index) const;
    std::string typeOf(GenField const & field, std::size_t index) const;
    std::string preset(GenField const & field);
    std::string number(GenField const & field);
    void warn(GenField const & field, std::string const & text) {
        warnings_.push_back(GenWarning{field.offset, text});
    }
    void line(std::string const & text) { out_ += text + "\n"; }
    void call(std::string const & indent, std::string const & name, std::vector<std::string> const & args);
    void blank() {
        if (out_.size() > 1 && out_.compare(out_.size() - 2, 2, "\n\n") != 0) {
            out_ += "\n";
        }
    }

    GenModel const & model_;
    std::string outer_;
    CppNames names_;
    std::vector<std::size_t> const order_;
    std::string space_;
    std::string out_;
    std::vector<GenWarning> warnings_;
};

Generated CppWriter::write() {
    head();
    for (GenEnum const & e : model_.enums) {
        writeEnum(e);
    }
    writePresets();
    for (GenEnum const & e : model_.enums) {
        writeNames(e);
    }
    declareAhead();
    for (std::size_t const index : order_) {
        writeClass(index);
    }
    for (std::size_t const index : order_) {
        if (isKnot(index)) {
            writeTraverseLater(index);
        }
    }
    enter("");
    blank();
    line("#endif");
    Generated result;
    result.warnings = names_.takeWarnings();
    result.warnings.insert(result.warnings.end(), warnings_.begin(), warnings_.end());
    result.text = std::move(out_);
    return result;
}

void CppWriter::head() {
    std::string guard = "TAV_GEN_" + (outer_.empty() ? "" : outer_ + "_") + model_.title() + "_H";
    for (char & c : guard) {
        bool const fits =
            std::isalnum(static_cast<unsigned char>(c)) != 0 && static_cast<unsigned char>(c) < 128;
        c = fits ? static_cast<char>(std::toupper(static_cast<unsigned char>(c))) : '_';
    }
    // A name with two in a row is reserved.
    guard.erase(std::unique(guard.begin(), guard.end(), [](char a, char b) { return a == '_' && b == '_'; }),
                guard.end());
    std::set<std::string> own = {"tav/kit/message.h"};
    std::set<std::string> standard;
    for (std::size_t i = 0; i < model_.classes.size(); ++i) {
        if (inCycle(i)) {
            own.insert("tav/kit/depth.h");
        }
        for (GenField const & field : model_.classes[i].fields) {
            own.insert("tav/vinta/vinta_pml_field_types.h");
            if (field.isContainer()) {
                standard.insert(field.kind == kinds::map_ ? "map" : "vector");
            }
        }
    }
    line(std::string("// ") + generatedMark + " cpp from " + model_.title() + ": changes here are lost.");
    line("#ifndef " + guard);
    line("#define " + guard);
    for (std::set<std::string> const * const names : {&own, &standard}) {
        blank();
        for (std::string const & name : *names) {
            line("#include <" + name + ">");
        }
    }
    blank();
}

/// Closes the namespace that is open and opens this one.
void CppWriter::enter(std::string const & space) {
    if (space == space_) {
        return;
    }
    if (!space_.empty()) {
        blank();
        line("} // namespace " + space_);
        blank();
    }
    space_ = space;
    if (!space.empty()) {
        blank();
        line("namespace " + space + " {");
        blank();
    }
}

void CppWriter::writeEnum(GenEnum const & e) {
    enter(names_.spaceOf(e));
    blank();
    line("enum class " + names_.nameOf(e) + " : int {");
    for (std::size_t i = 0; i < e.members.size(); ++i) {
        line("    " + names_.memberOf(e, i) + " = " + integerLiteral(kinds::int32_, e.members[i].number) +
             ",");
    }
    line("};");
}

/// The numbers of new values, where they are not 0; behind all enums, as they stand in another namespace.
void CppWriter::writePresets() {
    for (GenEnum const & e : model_.enums) {
        if (e.preset == 0) {
            continue;
        }
        std::string const & space = names_.spaceOf(e);
        enter("tav");
        blank();
        line("template <>");
        line("struct EnumDefault<::" + space + (space.empty() ? "" : "::") + names_.nameOf(e) + "> {");
        line("    static constexpr int value = " + integerLiteral(kinds::int32_, e.preset) + ";");
        line("};");
    }
}

/// Registers the names of the members when the program starts.
void CppWriter::writeNames(GenEnum const & e) {
    std::string const & name = names_.nameOf(e);
    enter(names_.spaceOf(e));
    blank();
    line("inline bool const " + name + "_has_names = [] {");
    for (std::size_t i = 0; i < e.members.size(); ++i) {
        call("    ", "tavEnum<" + name + ">::add",
             {name + "::" + names_.memberOf(e, i), quoted(e.members[i].name)});
    }
    line("    return true;");
    line("}();");
}

void CppWriter::declareAhead() {
    for (std::size_t const index : order_) {
        GenClass const & cls = model_.classes[index];
        if (isKnot(index)) {
            if (names_.spaceOf(cls) != space_ ||
                out_.substr(out_.rfind('\n', out_.size() - 2) + 1, 7) != "struct ") {
                enter(names_.spaceOf(cls));
                blank();
            }
            line("struct " + names_.nameOf(cls) + ";");
        }
    }
}

std::string CppWriter::valueType(GenField const & field, std::size_t index) const {
    Kind const kind = field.valueKind();
    GenClass const & from = model_.classes[index];
    if (kind == kinds::enum_) {
        return "tavEnum<" + names_.enumIn(field.enumeration, from) + ">";
    }
    if (kind != kinds::object_ && kind != kinds::ref_) {
        return simpleType(kind);
    }
    std::string const name = names_.classIn(field.cls, from);
    // What holds itself does so by pointers; a list may hold what is not yet whole.
    bool const shared =
        field.kind == kinds::ref_list_ || (holdsBack(field, index) && field.kind != kinds::list_);
    return shared ? "tavSharedPtr<" + name + ">" : name;
}

std::string CppWriter::typeOf(GenField const & field, std::size_t index) const {
    std::string type = valueType(field, index);
    if (field.kind == kinds::list_ || field.kind == kinds::ref_list_) {
        type = "std::vector<" + type + ">";
    } else if (field.kind == kinds::map_) {
        type = std::string("std::map<") + simpleType(field.key) + ", " + type + ">";
    }
    return field.optional ? "tavOptional<" + type + ">" : type;
}

/// The default of an integer or a floating-point number.
std::string CppWriter::number(GenField const & field) {
    std::string const & text = field.preset;
    char * end = nullptr;
    if (field.kind == kinds::float_ || field.kind == kinds::double_) {
        double const value = std::strtod(text.c_str(), &end);
        bool const plain = text.find_first_not_of("+-.0123456789eE") == std::string::npos;
        if (text.empty() || !plain || *end != '\0' || !std::isfinite(value) ||
            (field.kind == kinds::float_ && std::fabs(value) > 3.4e38)) {
            return "";
        }
        std::array<char, 40> digits{};
        for (int n = 1; n <= 17 && (n == 1 || std::strtod(digits.data(), nullptr) != value); ++n) {
            std::snprintf(digits.data(), digits.size(), "%.*g", n, value);
        }
        std::string literal = digits.data();
        literal += literal.find_first_of(".e") == std::string::npos ? ".0" : "";
        return literal + (field.kind == kinds::float_ ? "f" : "");
    }
    Integer number;
    if (!readInteger(text, number) || !holds(field.kind, number)) {
        return "";
    }
    return field.kind == kinds::uint64_ ? std::to_string(number.magnitude) + "ULL"
                                        : integerLiteral(field.kind, static_cast<long long>(number.bits()));
}

/// What a new object has in the field; empty if its type says that already.
std::string CppWriter::preset(GenField const & field) {
    if (field.optional || field.isContainer()) {
        return "";
    }
    std::string const & text = field.preset;
    std::string zero;
    if (field.kind == kinds::bool_) {
        return text == "true" ? "true" : "false";
    }
    if (isInteger(field.kind)) {
        zero = "0";
    } else if (field.kind == kinds::float_ || field.kind == kinds::double_) {
        zero = field.kind == kinds::float_ ? "0.0f" : "0.0";
    } else if (field.kind == kinds::char_ || field.kind == kinds::wchar_) {
        return "0";
    } else if (isText(field.kind)) {
        return text.empty() ? "" : quoted(text);
    } else {
        if (!text.empty() && field.kind != kinds::enum_) {
            warn(field, "the default \"" + text + "\" is left out: C++ has none for this type");
        }
        return "";
    }
    if (text.empty()) {
        return zero;
    }
    std::string const literal = number(field);
    if (literal.empty()) {
        warn(field, "the default \"" + text + "\" is left out: it is no " + kindName(field.kind));
    }
    return literal.empty() ? zero : literal;
}

void CppWriter::writeFields(std::size_t index) {
    for (GenField const & field : model_.classes[index].fields) {
        if (!field.comment.empty()) {
            std::string text = field.comment;
            std::replace_if(
                text.begin(), text.end(), [](char c) { return static_cast<unsigned char>(c) < 32; }, ' ');
            bool const continues =
                text.back() == '\\' || (text.size() > 2 && text.compare(text.size() - 3, 3, "?\?/") == 0);
            line("    /// " + text + (continues ? "." : ""));
        }
        std::string const start = "    " + typeOf(field, index) + " " + names_.fieldOf(field);
        std::string const value = preset(field);
        if (value.empty()) {
            line(start + ";");
        } else if (start.size() + value.size() + 4 <= columns) {
            line(start + " = " + value + ";");
        } else {
            line(start + " =");
            line("        " + value + ";");
        }
    }
}

void CppWriter::writeClass(std::size_t index) {
    GenClass const & cls = model_.classes[index];
    std::string const & name = names_.nameOf(cls);
    std::string const base = cls.base == none ? "" : names_.classIn(cls.base, cls);
    enter(names_.spaceOf(cls));
    blank();
    if (cls.message && !cls.hasCode) {
        writeHandMade(index, base);
        return;
    }
    line("struct " + name + " : tav::kit::" + (cls.message ? "message<" : "object<") + name +
         (base.empty() ? "" : ", " + base) + "> {");
    line("    static constexpr char const * type_name = " + quoted(cls.name) + ";");
    if (cls.hasCode) {
        line("    static constexpr unsigned short type_code = " + codeText(cls.code) + ";");
    }
    writeFields(index);
    writeTraverse(index);
    line("};");
}

/// A message without a code, of which others derive: the kit has no such class.
void CppWriter::writeHandMade(std::size_t index, std::string const & base) {
    GenClass const & cls = model_.classes[index];
    std::string const & name = names_.nameOf(cls);
    std::string const root = base.empty() ? "tavMessage" : base;
    line("/// Has no code of its own: it is the base of messages, or derives from one.");
    line("struct " + name + " : " + root + " {");
    writeFields(index);
    blank();
    line("    tav_istr className() const override { return " + quoted(cls.name) + "; }");
    line("    tav_istr baseName() const override { return " +
         quoted(cls.base == none ? "tavMessage" : model_.classes[cls.base].name) + "; }");
    line("    unsigned short msgcode() const override { return 0xFFFF; }");
    line("    tavObject * newInstance() const override { return new " + name + "(); }");
    line("    void assignFrom(tavObject const & kit_from) override {");
    line("        if (auto const * const kit_same = dynamic_cast<" + name + " const *>(&kit_from)) {");
    line("            *this = *kit_same;");
    line("        }");
    line("    }");
    writeTraverse(index);
    line("};");
}

/// Writes a call on one line, or on several: below its bracket, or where no line would hold an argument
/// there, further in.
void CppWriter::call(std::string const & indent, std::string const & name,
                     std::vector<std::string> const & args) {
    std::string text = indent + name + "(";
    std::string below(text.size(), ' ');
    bool const wide = std::any_of(args.begin(), args.end(), [&below](std::string const & arg) {
        return below.size() + arg.size() + 2 > columns;
    });
    if (wide) {
        line(text);
        below = indent + "    ";
        text = below;
    }
    bool first = true;
    for (std::size_t i = 0; i < args.size(); ++i) {
        std::string const part = args[i] + (i + 1 == args.size() ? ");" : ",");
        if (!first && text.size() + 1 + part.size() > columns) {
            line(text);
            text = below;
            first = true;
        }
        text += (first ? "" : " ") + part;
        first = false;
    }
    line(text);
}

void CppWriter::ioField(std::string const & indent, std::string const & stream, GenField const & field) {
    std::string meta = "tavCodecMeta(tav::pml::field_type::" + kindName(field.kind) + "_";
    if (field.isProtected) {
        meta += ", true, " + quoted(field.mask) + (field.optional ? ", true" : "");
    } else if (!field.range.empty()) {
        meta += ", false, " + quoted(field.range) + (field.optional ? ", true" : "");
    } else if (field.optional) {
        meta += ", false, nullptr, true";
    }
    call(indent, "ioField",
         {stream, std::to_string(field.tag), quoted(field.name), names_.fieldOf(field), meta + ")"});
}

/// All fields in the order in which a template's encoder has them, those of the bases among them.
void CppWriter::body(std::size_t index, std::string const & indent, std::string const & stream) {
    if (inCycle(index)) {
        std::string const guard = names_.freeName(index, {"limit", "depth", "depth_limit"});
        line(indent + "tav::kit::depth_limit const " + guard + "(" + std::to_string(deepest) + ");");
    }
    std::vector<GenField const *> const fields = model_.fieldsOf(index);
    std::vector<GenField const *> presetTexts;
    std::copy_if(fields.begin(), fields.end(), std::back_inserter(presetTexts), hasPresetText);
    if (!presetTexts.empty()) {
        line(indent + "// An empty text leaves what is there, which is the default of a new object.");
        line(indent + "if (!" + stream + ".isOutputStream()) {");
        for (GenField const * const field : presetTexts) {
            line(indent + "    " + names_.fieldOf(*field) + ".clear();");
        }
        line(indent + "}");
    }
    for (GenField const * const field : fields) {
        ioField(indent, stream, *field);
    }
}

void CppWriter::writeTraverse(std::size_t index) {
    GenClass const & cls = model_.classes[index];
    if (cls.fields.empty() && cls.base != none) {
        return;
    }
    blank();
    if (model_.fieldsOf(index).empty()) {
        line("    void traverse(tavCodecStream &) override {}");
        return;
    }
    std::string const stream = names_.freeName(index, {"s", "stream", "codec"});
    if (isKnot(index)) {
        line("    void traverse(tavCodecStream & " + stream + ") override;");
        return;
    }
    line("    void traverse(tavCodecStream & " + stream + ") override {");
    body(index, "        ", stream);
    line("    }");
}

void CppWriter::writeTraverseLater(std::size_t index) {
    GenClass const & cls = model_.classes[index];
    if (model_.fieldsOf(index).empty() || (cls.fields.empty() && cls.base != none)) {
        return;
    }
    std::string const stream = names_.freeName(index, {"s", "stream", "codec"});
    enter(names_.spaceOf(cls));
    blank();
    line("inline void " + names_.nameOf(cls) + "::traverse(tavCodecStream & " + stream + ") {");
    body(index, "    ", stream);
    line("}");
}

} // namespace

char const generatedMark[] = "Generated by tav gen";

Generated cppOf(GenModel const & model, std::string const & outer) {
    return CppWriter(model, outer).write();
}

} // namespace tool
} // namespace tav
