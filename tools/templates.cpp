#include "tools/templates.h"

#include "tools/failure.h"
#include "tools/input.h"
#include "tools/template_hints.h"

#include <algorithm>
#include <cstdio>
#include <set>

namespace tav {
namespace tool {

using pml::MetaClass;
using pml::MetaEnum;
using pml::MetaFactory;
using pml::MetaField;

namespace kinds = pml::field_type;

namespace {

constexpr std::size_t largestTemplate = 256 * 1024 * 1024;

} // namespace

std::string Template::told(std::size_t offset, std::string const & kind, std::string const & what) const {
    return toldInText(name, text, offset, kind, what);
}

Template loadTemplate(std::string const & path, Watch const & watch) {
    Template result;
    result.text = readWhole(path, result.name, largestTemplate);
    try {
        result.units = std::make_unique<PmlText>(result.text, watch);
    } catch (PmlFault const & fault) {
        throw Failure(exitFound, result.told(fault.offset(), "error", fault.words()));
    }
    pml::PmlInputStream in(result.units->first());
    result.factory = std::make_unique<MetaFactory>(in);
    return result;
}

MetaClass const * findClass(tavString const & name, MetaClass const * current, MetaFactory const & factory) {
    if (current != nullptr) {
        for (MetaClass const & nested : current->classes) {
            if (nested.className == name) {
                return &nested;
            }
        }
        if (current->className == name) {
            return current;
        }
    }
    return factory.findClass(name);
}

std::vector<MetaClass const *> chainOf(MetaClass const & cls, MetaFactory const & factory) {
    std::vector<MetaClass const *> chain = {&cls};
    std::set<MetaClass const *> known = {&cls};
    for (MetaClass const * at = &cls; !at->superName.empty();) {
        at = findClass(at->superName, at, factory);
        if (at == nullptr || !known.insert(at).second) {
            break;
        }
        chain.push_back(at);
    }
    return chain;
}

MetaField const * findField(int tag, MetaClass const & cls, MetaFactory const & factory) {
    if (MetaField const * const own = cls.findField(static_cast<short>(tag))) {
        return own;
    }
    for (MetaClass const * const one : chainOf(cls, factory)) {
        if (MetaField const * const field = one->findField(static_cast<short>(tag))) {
            return field;
        }
    }
    return nullptr;
}

MetaField const * findField(tav_istr name, MetaClass const & cls, MetaFactory const & factory) {
    if (MetaField const * const own = cls.findField(name)) {
        return own;
    }
    for (MetaClass const * const one : chainOf(cls, factory)) {
        if (MetaField const * const field = one->findField(name)) {
            return field;
        }
    }
    return nullptr;
}

MetaEnum const * findEnum(MetaField const & field, MetaClass const & cls, MetaFactory const & factory) {
    for (MetaClass const * const one : chainOf(cls, factory)) {
        for (MetaEnum const & declared : one->enums) {
            if (declared.name == field.classType.name) {
                return &declared;
            }
        }
    }
    return factory.findEnum(field.classType.name);
}

bool isNecessary(MetaField const & field) {
    Kind const kind = field.classType.type;
    return !field.classType.optional && kind != kinds::optional_ && kind != kinds::list_ &&
           kind != kinds::ref_list_ && kind != kinds::map_;
}

std::string kindName(Kind kind) {
    kinds::Initializer const registered;
    tav_istr const name = tavEnum<Kind>(kind).name();
    return name.empty() ? std::to_string(static_cast<int>(kind)) : std::string(viewOf(name));
}

std::string typeText(MetaField const & field) {
    pml::ClassType const & type = field.classType;
    Kind const kind = type.type;
    std::string text = kindName(kind);
    if (kind == kinds::object_ || kind == kinds::ref_) {
        text = stringOf(type.name);
    } else if (!kinds::isSimple(kind)) {
        text += "{" + (type.keyName.empty() ? std::string() : stringOf(type.keyName) + ",") +
                stringOf(type.name) + "}";
    }
    return text + (type.optional ? "?" : "");
}

bool readCode(std::string_view text, unsigned short & code) {
    if (text.substr(0, 2) == "0x" || text.substr(0, 2) == "0X") {
        text.remove_prefix(2);
    }
    unsigned value = 0;
    for (char const c : text) {
        char const lower = static_cast<char>(c | 0x20);
        int const digit = c >= '0' && c <= '9'           ? c - '0'
                          : lower >= 'a' && lower <= 'f' ? lower - 'a' + 10
                                                         : -1;
        if (digit < 0 || value > 0xFFF) {
            return false;
        }
        value = value * 16 + static_cast<unsigned>(digit);
    }
    code = static_cast<unsigned short>(value);
    return !text.empty();
}

std::string codeText(unsigned short code) {
    char text[8];
    std::snprintf(text, sizeof(text), "0x%04X", static_cast<unsigned>(code));
    return text;
}

std::string nearestClass(std::string const & name, MetaFactory const & factory) {
    std::vector<std::string> others;
    for (auto const & entry : factory.classes) {
        others.push_back(stringOf(entry.first));
    }
    return didYouMean(nearestName(name, others, name.size() / 2));
}

MetaClass const * chosenClass(Template const & model, std::string const & className, std::string const & code,
                              char const * option) {
    if (!code.empty()) {
        unsigned short number = 0;
        if (!readCode(code, number)) {
            throw Failure(exitUse, "--code: \"" + code + "\" is no code: up to four hexadecimal digits");
        }
        MetaClass const * const found = model.factory->findClass(number);
        if (found == nullptr) {
            throw Failure(exitUse, "--code: " + model.name + " has no class of the code " + codeText(number));
        }
        return found;
    }
    if (className.empty()) {
        return nullptr;
    }
    MetaClass const * const found = model.factory->findClass(istrOf(className));
    if (found == nullptr) {
        throw Failure(exitUse, std::string(option) + ": " + model.name + " has no class " + className +
                                   nearestClass(className, *model.factory));
    }
    return found;
}

} // namespace tool
} // namespace tav
