#include "tools/gen.h"
#include "tools/gen_example.h"
#include "tools/output.h"

#include <algorithm>
#include <cstdlib>

namespace tav {
namespace tool {

namespace kinds = pml::field_type;

namespace {

/// A value that is one of a kind, as members of a schema.
std::string integer(std::string const & low, std::string const & high) {
    return "\"type\": \"integer\", \"minimum\": " + low + ", \"maximum\": " + high;
}

/// 64 bits: numbers, or digits in a string, as they are read.
std::string large(std::string const & low, std::string const & high, char const * pattern) {
    return "\"anyOf\": [{" + integer(low, high) + "}, {\"type\": \"string\", \"pattern\": \"" + pattern +
           "\"}]";
}

std::string simple(Kind kind) {
    char const * const signedDigits = "^-?[0-9]{1,19}$";
    switch (kind) {
    case kinds::bool_: return "\"type\": \"boolean\"";
    case kinds::int8_: return integer("-128", "127");
    case kinds::int16_: return integer("-32768", "32767");
    case kinds::int32_: return integer("-2147483648", "2147483647");
    case kinds::uint8_: return integer("0", "255");
    case kinds::uint16_: return integer("0", "65535");
    case kinds::uint32_: return integer("0", "4294967295");
    case kinds::int64_:
    case kinds::time_: return large("-9223372036854775808", "9223372036854775807", signedDigits);
    case kinds::uint64_: return large("0", "18446744073709551615", "^[0-9]{1,20}$");
    case kinds::float_:
    case kinds::double_: return "\"type\": \"number\"";
    case kinds::bytes_: return "\"type\": \"string\", \"contentEncoding\": \"base64\"";
    case kinds::char_:
    case kinds::wchar_: return "\"type\": \"null\"";
    default: return "\"type\": \"string\"";
    }
}

/// The parts of "1,3..5" as schemas; empty if one of them is not plain decimal.
std::vector<std::string> partsOf(std::string const & range) {
    std::vector<std::string> parts;
    for (std::size_t begin = 0; begin <= range.size();) {
        std::size_t const comma = std::min(range.find(',', begin), range.size());
        std::string const part = range.substr(begin, comma - begin);
        std::size_t const dots = part.find("..");
        std::string const ends[] = {part.substr(0, dots),
                                    dots == std::string::npos ? part : part.substr(dots + 2)};
        std::string numbers[2];
        for (int i = 0; i < 2; ++i) {
            char * end = nullptr;
            long long const number = std::strtoll(ends[i].c_str(), &end, 10);
            if (ends[i].empty() || end == ends[i].c_str()) {
                return {};
            }
            numbers[i] = std::to_string(number);
        }
        parts.push_back("{\"minimum\": " + numbers[0] + ", \"maximum\": " + numbers[1] + "}");
        begin = comma + 1;
    }
    return parts;
}

class SchemaWriter {
public:
    explicit SchemaWriter(GenModel const & model) : model_(model), examples_(model) {}

    std::string write();

private:
    void writeClass(std::size_t index, bool last);
    std::string value(GenField const & field) const;
    std::string single(GenField const & field) const;
    std::string reference(std::size_t cls) const {
        // A name within an address: what has a meaning there is escaped.
        std::string text = "#/$defs/";
        for (char const c : model_.classes[cls].name) {
            text += c == '~'   ? std::string("~0")
                    : c == '/' ? std::string("~1")
                    : c == '%' ? std::string("%25")
                               : std::string(1, c);
        }
        return "\"$ref\": " + jsonText(text);
    }
    void line(std::size_t indent, std::string const & text) {
        out_ += std::string(indent * 2, ' ') + text + "\n";
    }

    GenModel const & model_;
    GenExamples const examples_;
    std::string out_;
};

std::string SchemaWriter::single(GenField const & field) const {
    Kind const kind = field.valueKind();
    if (field.enumeration != none) {
        std::string numbers;
        for (GenEnum::Member const & member : model_.enums[field.enumeration].members) {
            numbers += (numbers.empty() ? "" : ", ") + std::to_string(member.number);
        }
        return "\"enum\": [" + numbers + "]";
    }
    if (field.cls != none) {
        return "\"anyOf\": [{" + reference(field.cls) + "}, {\"type\": \"null\"}]";
    }
    std::string text = simple(kind);
    bool const small = kind >= kinds::int8_ && kind <= kinds::uint32_ && kind != kinds::int64_;
    std::vector<std::string> const parts =
        small && !field.range.empty() ? partsOf(field.range) : std::vector<std::string>();
    for (std::size_t i = 0; i < parts.size(); ++i) {
        text += (i == 0 ? ", \"anyOf\": [" : ", ") + parts[i] + (i + 1 == parts.size() ? "]" : "");
    }
    return text;
}

std::string SchemaWriter::value(GenField const & field) const {
    std::string text = single(field);
    if (field.kind == kinds::map_) {
        text = "\"type\": \"object\", \"additionalProperties\": {" + text + "}";
        if (field.key == kinds::int64_ || field.key == kinds::uint64_) {
            text += ", \"propertyNames\": {\"pattern\": \"^-?[0-9]+$\"}";
        }
    } else if (field.isContainer()) {
        text = "\"type\": \"array\", \"items\": {" + text + "}";
    }
    if (field.optional) {
        text = "\"anyOf\": [{" + text + "}, {\"type\": \"null\"}]";
    }
    std::string const preset = presetJson(field);
    if (!preset.empty()) {
        text += ", \"default\": " + preset;
    }
    if (!field.comment.empty()) {
        text += ", \"description\": " + jsonText(field.comment);
    }
    return "{" + text + "}";
}

void SchemaWriter::writeClass(std::size_t index, bool last) {
    GenClass const & cls = model_.classes[index];
    std::vector<GenField const *> const fields = model_.fieldsOf(index);
    std::string required;
    line(2, jsonText(cls.name) + ": {");
    line(3, "\"type\": \"object\",");
    if (cls.hasCode) {
        line(3, "\"description\": \"The message of the code " + codeText(cls.code) + ".\",");
    }
    line(3, "\"properties\": {");
    line(4, "\"__class__\": {\"const\": " + jsonText(cls.name) + "}" + (fields.empty() ? "" : ","));
    for (std::size_t i = 0; i < fields.size(); ++i) {
        if (fields[i]->necessary()) {
            required += (required.empty() ? "" : ", ") + jsonText(fields[i]->name);
        }
        line(4, jsonText(fields[i]->name) + ": " + value(*fields[i]) + (i + 1 == fields.size() ? "" : ","));
    }
    line(3, "},");
    line(3, "\"required\": [" + required + "],");
    std::string example;
    for (char const c : examples_.of(index).json) {
        example += c == '\n' ? std::string("\n        ") : std::string(1, c);
    }
    line(3, "\"examples\": [");
    line(4, example);
    line(3, "]");
    line(2, last ? "}" : "},");
}

std::string SchemaWriter::write() {
    line(0, "{");
    line(1, "\"$schema\": \"https://json-schema.org/draft/2020-12/schema\",");
    line(1, "\"$comment\": " + jsonText(std::string(generatedMark) + " schema from " + model_.title() +
                                        ": changes here are lost."));
    out_.insert(out_.size() - 1, ",");
    line(1, "\"title\": " + jsonText(model_.title()) + ",");
    line(1, "\"anyOf\": [");
    std::string references;
    for (std::size_t i = 0; i < model_.classes.size(); ++i) {
        if (model_.classes[i].hasCode) {
            references += (references.empty() ? "    {" : ",\n    {") + reference(i) + "}";
        }
    }
    out_ += references.empty() ? "    {}\n" : references + "\n";
    line(1, "],");
    line(1, "\"$defs\": {");
    for (std::size_t i = 0; i < model_.classes.size(); ++i) {
        writeClass(i, i + 1 == model_.classes.size());
    }
    line(1, "}");
    line(0, "}");
    return std::move(out_);
}

} // namespace

Generated schemaOf(GenModel const & model) {
    return Generated{SchemaWriter(model).write(), {}};
}

} // namespace tool
} // namespace tav
