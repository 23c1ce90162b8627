#include "tav/vinta/vinta_xml_tree.h"

#include "formats/xml/xml_modes.h"
#include "foundation/masked_text.h"
#include "foundation/views.h"

#include <algorithm>
#include <array>
#include <cstdio>

namespace tav {
namespace xml {

using tav::detail::bytesOf;
using tav::detail::maskedText;
using tav::xml::detail::logMode;
using tav::xml::detail::noId;
using tav::xml::detail::sampleMode;

namespace {

/// In the order of their numbers, from 1.
constexpr std::array<std::string_view, 17> knownTypes = {
    "Bool",  "Int8",   "Uint8",  "Int16", "Uint16", "Int32", "Uint32",   "Int64", "Uint64",
    "Float", "Double", "String", "Time",  "Bytes",  "Enum",  "Optional", "List"};

constexpr int enumCode = 15;
constexpr int optionalCode = 16;

void writeIfAny(std::string & out, std::string_view name, std::string const & value) {
    if (!value.empty()) {
        Attr::write(out, tav::detail::viewOf(name), tav_istr(value));
    }
}

std::string idText(int id, bool hexadecimal) {
    char text[16];
    int const size = std::snprintf(text, sizeof(text), hexadecimal ? "0x%06x" : "%d", id);
    return std::string(text, static_cast<std::size_t>(size));
}

} // namespace

MetaInfo::MetaInfo() : varid(noId) {}

MetaInfo::MetaInfo(int id, tav_istr var_name, tav_istr type, tav_istr default_value, bool is_optional,
                   bool is_multiple, bool is_protected) {
    setMeta(id, var_name, type, default_value, is_optional, is_multiple, is_protected);
}

void MetaInfo::setMeta(int id, tav_istr var_name, tav_istr type, tav_istr default_value, bool is_optional,
                       bool is_multiple, bool is_protected) {
    varid = id;
    varname = bytesOf(var_name);
    vartype = bytesOf(type);
    defaultValue = bytesOf(default_value);
    optional = is_optional;
    multiple = is_multiple;
    protectedValue = is_protected;
}

void MetaInfo::dump(std::string & out) const {
    static std::string const yes = "true";
    static std::string const no;
    bool const is_unsigned = bytesOf(tav_istr(vartype)).substr(0, 4) == "Uint";
    writeIfAny(out, "type", vartype);
    writeIfAny(out, "super", superclass);
    writeIfAny(out, "optional", optional ? yes : no);
    writeIfAny(out, "multiple", multiple ? yes : no);
    writeIfAny(out, "hexical", hexical && is_unsigned ? yes : no);
    writeIfAny(out, "protected", protectedValue ? yes : no);
    writeIfAny(out, "limited", values.empty() ? no : yes);
    writeIfAny(out, "default", defaultValue);
    writeIfAny(out, "values", values);
    writeIfAny(out, "varname", varname);
    writeIfAny(out, "memo", memo);
}

void MetaInfo::dumpId(std::string & out) const {
    if (varid != noId) {
        writeIfAny(out, "id", idText(varid, hexical));
    }
}

VarInfo::VarInfo() = default;

VarInfo::VarInfo(VarInfo const & other)
    : tavRefCountObject(other), meta_(other.meta_ ? new MetaInfo(*other.meta_) : nullptr) {}

VarInfo & VarInfo::operator=(VarInfo const & other) {
    if (this != &other) {
        meta_.reset(other.meta_ ? new MetaInfo(*other.meta_) : nullptr);
    }
    return *this;
}

VarInfo::~VarInfo() = default;

tavNumber<int, 0> & VarInfo::varid() {
    return check_i().varid;
}

tavNumber<bool, 0> & VarInfo::optional() {
    return check_i().optional;
}

tavNumber<bool, 0> & VarInfo::multiple() {
    return check_i().multiple;
}

tavNumber<bool, 0> & VarInfo::hexical() {
    return check_i().hexical;
}

tavNumber<bool, 0> & VarInfo::protectedValue() {
    return check_i().protectedValue;
}

std::string & VarInfo::vartype() {
    return check_i().vartype;
}

std::string & VarInfo::superclass() {
    return check_i().superclass;
}

std::string & VarInfo::defaultValue() {
    return check_i().defaultValue;
}

std::string & VarInfo::values() {
    return check_i().values;
}

std::string & VarInfo::varname() {
    return check_i().varname;
}

std::string & VarInfo::memo() {
    return check_i().memo;
}

int VarInfo::varid() const {
    return meta_ ? static_cast<int>(meta_->varid) : noId;
}

bool VarInfo::optional() const {
    return meta_ && meta_->optional;
}

bool VarInfo::multiple() const {
    return meta_ && meta_->multiple;
}

bool VarInfo::hexical() const {
    return meta_ && meta_->hexical;
}

bool VarInfo::protectedValue() const {
    return meta_ && meta_->protectedValue;
}

std::string const & VarInfo::vartype() const {
    return meta_ ? meta_->vartype : nullString();
}

std::string const & VarInfo::superclass() const {
    return meta_ ? meta_->superclass : nullString();
}

std::string const & VarInfo::defaultValue() const {
    return meta_ ? meta_->defaultValue : nullString();
}

std::string const & VarInfo::values() const {
    return meta_ ? meta_->values : nullString();
}

std::string const & VarInfo::varname() const {
    return meta_ ? meta_->varname : nullString();
}

std::string const & VarInfo::memo() const {
    return meta_ ? meta_->memo : nullString();
}

void VarInfo::setMeta(int id, tav_istr var_name, tav_istr type, tav_istr default_value, bool is_optional,
                      bool is_multiple, bool is_protected) {
    check_i().setMeta(id, var_name, type, default_value, is_optional, is_multiple, is_protected);
}

void VarInfo::dumpSampleValue(std::string & out, tav_istr text, int mode) const {
    if (protectedValue() && mode == logMode) {
        out += getProtectedString(text);
        return;
    }
    out += protectedValue() && mode == sampleMode ? getProtectedSampleString() : std::string(bytesOf(text));
    if (mode == sampleMode) {
        dumpMiniMeta(out);
    }
}

void VarInfo::dumpMiniMeta(std::string & out) const {
    std::string const type = getMiniMetaType();
    out += '{';
    if (varid() != noId) {
        out += idText(varid(), hexical());
        if (!type.empty()) {
            out += ' ';
        }
    }
    out += type;
    if (multiple()) {
        out += '*';
    } else if (optional()) {
        out += '?';
    }
    out += '}';
}

std::string VarInfo::getMiniMetaType() const {
    std::string type = vartype();
    std::string rest;
    for (int known = parseType(tav_istr(type), rest);
         (known == enumCode || known == optionalCode) && !rest.empty();
         known = parseType(tav_istr(type), rest)) {
        type.swap(rest);
    }
    std::transform(type.begin(), type.end(), type.begin(),
                   [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; });
    return type;
}

std::string VarInfo::getProtectedString(tav_istr text) {
    return maskedText(bytesOf(text), "..***..");
}

std::string VarInfo::getProtectedSampleString() {
    return "********";
}

int VarInfo::parseType(tav_istr type, std::string & rest) {
    std::string_view const text = bytesOf(type);
    std::size_t const size = std::min(text.find_first_of("<( "), text.size());
    auto const found = std::find(knownTypes.begin(), knownTypes.end(), text.substr(0, size));
    if (found == knownTypes.end()) {
        rest = text;
        return 0;
    }
    std::string_view inner = text.substr(size);
    if (!inner.empty()) {
        char const close = inner[0] == '<' ? '>' : inner[0] == '(' ? ')' : '\0';
        inner.remove_prefix(1);
        if (close != '\0' && !inner.empty() && inner.back() == close) {
            inner.remove_suffix(1);
        }
    }
    rest = inner;
    return static_cast<int>(found - knownTypes.begin()) + 1;
}

MetaInfo & VarInfo::check_i() {
    if (!meta_) {
        meta_ = std::make_unique<MetaInfo>();
    }
    return *meta_;
}

Content::Content() = default;

Content::Content(tav_istr text) : text_(bytesOf(text)) {}

Content::Content(Content const & other) = default;

Content & Content::operator=(Content const & other) = default;

Content::~Content() = default;

std::string const & Content::name() const {
    return nullString();
}

std::string const & Content::value() const {
    return text_;
}

std::string & Content::value() {
    return text_;
}

CommentNode::CommentNode() = default;

CommentNode::CommentNode(CommentNode const & other) = default;

CommentNode & CommentNode::operator=(CommentNode const & other) = default;

CommentNode::~CommentNode() = default;

std::string const & CommentNode::name() const {
    return nullString();
}

std::string const & CommentNode::value() const {
    return text_;
}

void CommentNode::comment(tav_istr text) {
    text_ = bytesOf(text);
}

} // namespace xml
} // namespace tav
