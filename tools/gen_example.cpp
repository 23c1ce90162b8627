#include "tools/gen_example.h"

#include "tools/failure.h"
#include "tools/integers.h"
#include "tools/output.h"
#include "tools/value_text.h"

#include <tav/vinta/vinta_json2nbr.h>

#include <cstdlib>
#include <utility>
#include <vector>

namespace tav {
namespace tool {

namespace kinds = pml::field_type;

namespace {

/// A class appears within itself up to this often, and objects lie up to this deep.
constexpr int mostOfOne = 2;
constexpr std::size_t deepest = 8;
/// Objects of an example; what is beyond is left out.
constexpr std::size_t mostObjects = 200;

/// 64 bits go as a text of digits, negative ones as numbers.
std::string integerJson(Kind kind, std::string const & digits) {
    bool const large = kind == kinds::int64_ || kind == kinds::uint64_ || kind == kinds::time_;
    return large && digits.front() != '-' ? "\"" + digits + "\"" : digits;
}

class Writer {
public:
    explicit Writer(GenModel const & model) : model_(model), open_(model.classes.size()) {}

    std::string object(std::size_t cls, std::size_t indent);

private:
    std::string value(GenField const & field, std::size_t indent);
    std::string single(GenField const & field, Kind kind, std::size_t indent);
    static std::string number(GenField const & field);
    bool isTooDeep(GenField const & field) const {
        return field.cls != none &&
               (open_[field.cls] >= mostOfOne || depth_ >= deepest || count_ >= mostObjects);
    }
    static std::string members(std::vector<std::string> const & parts, char open, char close,
                               std::size_t indent);

    GenModel const & model_;
    /// How many objects of each class are open.
    std::vector<int> open_;
    std::size_t depth_ = 0;
    std::size_t count_ = 0;
};

std::string Writer::members(std::vector<std::string> const & parts, char open, char close,
                            std::size_t indent) {
    if (parts.empty()) {
        return std::string(1, open) + close;
    }
    std::string text(1, open);
    for (std::string const & part : parts) {
        text += (text.size() == 1 ? "\n" : ",\n") + std::string(indent + 2, ' ') + part;
    }
    return text + "\n" + std::string(indent, ' ') + close;
}

std::string Writer::object(std::size_t cls, std::size_t indent) {
    ++open_[cls];
    ++depth_;
    ++count_;
    std::vector<std::size_t> chain;
    for (std::size_t at = cls; at != none; at = model_.classes[at].base) {
        chain.insert(chain.begin(), at);
    }
    std::vector<std::string> parts;
    for (std::size_t const one : chain) {
        for (GenField const & field : model_.classes[one].fields) {
            if (!field.optional || !isTooDeep(field)) {
                parts.push_back(jsonText(field.name) + ": " + value(field, indent + 2));
            }
        }
    }
    --open_[cls];
    --depth_;
    return members(parts, '{', '}', indent);
}

std::string Writer::value(GenField const & field, std::size_t indent) {
    if (!field.isContainer()) {
        return single(field, field.kind, indent);
    }
    bool const isMap = field.kind == kinds::map_;
    std::vector<std::string> parts;
    // No JSON is written to a list of references.
    if (!isTooDeep(field) && field.kind != kinds::ref_list_) {
        bool const digits = field.key == kinds::int64_ || field.key == kinds::uint64_;
        std::string const key = isMap ? digits ? "\"1\": " : "\"key\": " : "";
        parts.push_back(key + single(field, field.element, indent + 2));
    }
    return members(parts, isMap ? '{' : '[', isMap ? '}' : ']', indent);
}

/// The default, or else 1 if that is permitted, or the first number of the range.
std::string Writer::number(GenField const & field) {
    Kind const kind = field.valueKind();
    std::string const preset = presetJson(field);
    if (kind == kinds::float_ || kind == kinds::double_) {
        return preset.empty() ? "0.5" : preset;
    }
    Integer value;
    bool const given = !preset.empty() && readInteger(field.preset, value);
    tav::Range const range(istrOf(field.range));
    long long const wanted = given ? static_cast<long long>(value.bits()) : 1;
    if (!field.range.empty() && !range.check(wanted)) {
        return integerJson(kind, std::to_string(std::strtoll(field.range.c_str(), nullptr, 10)));
    }
    return given ? preset : integerJson(kind, "1");
}

std::string Writer::single(GenField const & field, Kind kind, std::size_t indent) {
    switch (kind) {
    case kinds::bool_: return field.preset == "false" ? "false" : "true";
    case kinds::string_:
    case kinds::wstring_:
    case kinds::u8string_:
        return jsonText(field.preset.empty() || field.isContainer() ? "text" : field.preset);
    case kinds::bytes_: return "\"AQID\"";
    case kinds::time_: return "1700000000000";
    case kinds::enum_: return std::to_string(model_.enums[field.enumeration].preset);
    case kinds::object_:
    case kinds::ref_: return isTooDeep(field) ? "null" : object(field.cls, indent);
    case kinds::char_:
    case kinds::wchar_: return "null";
    default: return number(field);
    }
}

} // namespace

std::string presetJson(GenField const & field) {
    std::string const & text = field.preset;
    if (text.empty() || field.isContainer()) {
        return "";
    }
    switch (field.kind) {
    case kinds::bool_: return text == "true" || text == "false" ? text : "";
    case kinds::string_:
    case kinds::wstring_:
    case kinds::u8string_: return jsonText(text);
    case kinds::float_:
    case kinds::double_:
        return isFloatingText(text, field.kind) ? digitsOf(std::strtod(text.c_str(), nullptr)) : "";
    case kinds::char_:
    case kinds::wchar_:
    case kinds::enum_:
    case kinds::bytes_:
    case kinds::object_:
    case kinds::ref_: return "";
    default: break;
    }
    Integer number;
    bool const good =
        readInteger(text, number) && holds(field.kind, number) &&
        (field.range.empty() || tav::Range(istrOf(field.range)).check(static_cast<long long>(number.bits())));
    std::string const sign = number.negative && number.magnitude != 0 ? "-" : "";
    return good ? integerJson(field.kind, sign + std::to_string(number.magnitude)) : "";
}

GenExamples::GenExamples(GenModel const & model) : model_(model), factory_(*model.source->factory) {
    for (GenClass const & cls : model.classes) {
        factory_.classes.emplace(tavString(cls.name), *cls.meta);
    }
}

GenExample GenExamples::of(std::size_t cls) const {
    GenExample example;
    example.json = Writer(model_).object(cls, 0);
    tavBytes bytes;
    unsigned short code = 0xFFFF;
    GenClass const & what = model_.classes[cls];
    try {
        json2nbr::write(istrOf(example.json), bytes, code, factory_, istrOf(what.name));
    } catch (std::invalid_argument const & e) {
        throw Failure(exitFound,
                      model_.source->told(what.offset, "error",
                                          "an example of this class can't be written: " + reasonOf(e)));
    }
    example.bytes = std::string(viewOf(bytes));
    return example;
}

} // namespace tool
} // namespace tav
