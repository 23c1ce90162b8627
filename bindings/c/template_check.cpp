#include "bindings/c/template_check.h"

#include "bindings/c/json.h"
#include "tav/vinta/vinta_pml_streams.h"
#include "tav/vinta/vinta_tls_failure.h"

#include <charconv>
#include <map>
#include <set>
#include <string>
#include <vector>

namespace tav {
namespace json_client {

namespace {

namespace kinds = pml::field_type;
using pml::MetaClass;
using pml::MetaFactory;
using pml::MetaField;

std::string textOf(tavString const & text) {
    tav_istr const view(text);
    return std::string(view.data(), view.size());
}

[[noreturn]] void refuse(std::string const & why) {
    throw Failure(static_cast<int>(tls::failure::bad_template), "bad_template", why);
}

[[noreturn]] void refuse(MetaClass const & cls, std::string const & why) {
    refuse("class " + textOf(cls.className) + ": " + why);
}

[[noreturn]] void refuse(MetaClass const & cls, MetaField const & field, std::string const & why) {
    refuse(cls, "field " + textOf(field.idName.name) + ": " + why);
}

/// What closes more than is open has the library end there, and leave out the rest.
void checkBrackets(std::string_view text) {
    std::size_t open = 0;
    char quote = '\0';
    for (std::size_t i = 0; i < text.size(); ++i) {
        char const c = text[i];
        if (quote != '\0') {
            i += c == '^' ? 1 : 0;
            quote = c == quote ? '\0' : quote;
        } else if (open != 0 && (c == '"' || c == '\'')) {
            quote = c;
        } else if (c == '(') {
            ++open;
        } else if (c == ')' && open-- == 0) {
            refuse("byte " + std::to_string(i) + ": this bracket closes nothing");
        }
    }
}

void checkCode(MetaClass const & cls, std::map<unsigned, std::string> & codes) {
    std::string const text = textOf(cls.code);
    if (text.empty()) {
        return;
    }
    std::string_view digits = text;
    if (digits.substr(0, 2) == "0x" || digits.substr(0, 2) == "0X") {
        digits.remove_prefix(2);
    }
    unsigned short code = 0;
    auto const read = std::from_chars(digits.data(), digits.data() + digits.size(), code, 16);
    if (read.ec != std::errc() || read.ptr != digits.data() + digits.size()) {
        refuse(cls, "the code " + text + " is no hexadecimal number of four digits at most");
    }
    if (code == 0xffff) {
        return;
    }
    auto const put = codes.emplace(code, textOf(cls.className));
    if (!put.second) {
        refuse(cls, "the class " + put.first->second + " has the same code");
    }
}

void checkType(MetaClass const & cls, MetaField const & field, MetaFactory const & factory) {
    auto const & type = field.classType;
    int kind = type.type.value();
    if (kind == kinds::list_ || kind == kinds::ref_list_ || kind == kinds::map_) {
        kind = type.elementType.value();
    }
    bool const object = kind == kinds::object_ || kind == kinds::ref_;
    if (object && classNamed(type.name, cls, factory) == nullptr) {
        refuse(cls, field, "there is neither a type nor a class " + textOf(type.name));
    }
}

/// The fields of the class, and that none takes the place of another one, of a base class either.
void checkFields(MetaClass const & cls, MetaFactory const & factory) {
    std::map<short, std::string> ids;
    std::set<std::string> names;
    for (MetaField const & field : cls.fields) {
        std::string const name = textOf(field.idName.name);
        short const id = field.idName.id;
        if (id < 1 || id > 127) {
            refuse(cls, field, "it needs a tag from 1 to 127");
        }
        if (!names.insert(name).second) {
            refuse(cls, field, "there is another one of this name");
        }
        if (!ids.emplace(id, name).second) {
            refuse(cls, field, "the field " + ids[id] + " has the same tag");
        }
        checkType(cls, field, factory);
    }
    std::set<MetaClass const *> seen{&cls};
    MetaClass const * base = &cls;
    while (!base->superName.empty()) {
        base = classNamed(base->superName, *base, factory);
        if (base == nullptr || !seen.insert(base).second) {
            return;
        }
        for (MetaField const & field : base->fields) {
            MetaField const * const own = cls.findField(tav_istr(field.idName.name));
            if (own != nullptr && own->idName.id != field.idName.id) {
                refuse(cls, *own, "the field of this name of its base class has another tag");
            }
            auto const same = ids.find(field.idName.id);
            if (same != ids.end() && same->second != textOf(field.idName.name)) {
                refuse(cls, "field " + same->second + ": the field " + textOf(field.idName.name) +
                                " of its base class has the same tag");
            }
        }
    }
}

} // namespace

MetaClass const * classNamed(tavString const & name, MetaClass const & within, MetaFactory const & factory) {
    for (MetaClass const & nested : within.classes) {
        if (nested.className == name) {
            return &nested;
        }
    }
    return within.className == name ? &within : factory.findClass(tav_istr(name));
}

namespace {

/// Of two classes of one name the factory has the later alone, so that each unit is read by itself here.
void checkNames(pml::Unit const & first) {
    std::set<tavString> names;
    for (pml::Unit const * unit = &first; unit != nullptr; unit = unit->next().get()) {
        pml::Unit alone(*unit);
        alone.next(tavSharedPtr<pml::Unit>());
        pml::PmlInputStream in(alone);
        MetaFactory const read(in);
        for (auto const & each : read.classes) {
            if (!names.insert(each.first).second) {
                refuse(each.second, "there is another one of this name");
            }
        }
    }
}

void checkAll(MetaFactory const & factory, pml::Unit const & first, std::string_view text) {
    checkBrackets(text);
    checkNames(first);
    std::map<unsigned, std::string> codes;
    std::vector<MetaClass const *> left;
    for (auto const & each : factory.classes) {
        checkCode(each.second, codes);
        left.push_back(&each.second);
    }
    while (!left.empty()) {
        MetaClass const & cls = *left.back();
        left.pop_back();
        if (cls.kind.value() == kinds::enum_) {
            continue;
        }
        std::string const super = textOf(cls.superName);
        if (!super.empty() && super != "DataObject" && classNamed(cls.superName, cls, factory) == nullptr) {
            refuse(cls, "there is no class " + super + " to be its base");
        }
        checkFields(cls, factory);
        for (MetaClass const & nested : cls.classes) {
            left.push_back(&nested);
        }
    }
}

} // namespace

void checkTemplate(MetaFactory const & factory, pml::Unit const & first, std::string_view text,
                   std::string const & member) {
    try {
        checkAll(factory, first, text);
    } catch (Failure & e) {
        e.field = member;
        throw;
    }
}

} // namespace json_client
} // namespace tav
