#include "tools/gen_example.h"

#include "tools/failure.h"
#include "tools/output.h"

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

/// The default or, if it is not in the range, the first number of that.
std::string Writer::number(GenField const & field) {
    bool const integer = field.valueKind() >= kinds::int8_ && field.valueKind() <= kinds::uint64_;
    tav::Range const range(istrOf(field.range));
    std::string const preset = field.isContainer() ? std::string() : field.preset;
    if (!integer) {
        char * end = nullptr;
        std::strtod(preset.c_str(), &end);
        bool const plain = preset.find_first_not_of("-.0123456789") == std::string::npos && *end == '\0';
        return preset.empty() || !plain || preset.front() == '.' ? "0.5" : preset;
    }
    bool const plain =
        !preset.empty() &&
        preset.find_first_not_of("0123456789", preset[0] == '-' ? 1 : 0) == std::string::npos &&
        preset != "-" && (preset[0] != '0' || preset == "0");
    long long const wanted = plain ? std::strtoll(preset.c_str(), nullptr, 10) : 1;
    std::string text = plain ? preset : "1";
    if (!field.range.empty() && !range.check(wanted)) {
        text = std::to_string(std::strtoll(field.range.c_str(), nullptr, 0));
    }
    bool const large = field.valueKind() == kinds::int64_ || field.valueKind() == kinds::uint64_;
    return large && text.front() != '-' ? "\"" + text + "\"" : text;
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
