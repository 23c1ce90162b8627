#ifndef TAV_TOOLS_TEMPLATES_H
#define TAV_TOOLS_TEMPLATES_H

#include "tools/pml_text.h"

#include <tav/vinta/vinta_pml_meta.h>

#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace tav {
namespace tool {

typedef pml::field_type::values Kind;

/// The text of a template's file, and the model that was loaded from it.
struct Template {
    std::string name;
    std::string text;
    std::unique_ptr<PmlText> units;
    std::unique_ptr<pml::MetaFactory> factory;

    /// "NAME:LINE:COLUMN: KIND: WHAT" with the line and a caret.
    std::string told(std::size_t offset, std::string const & kind, std::string const & what) const;
};

/// Throws a Failure if the file can't be read or is no PML.
Template loadTemplate(std::string const & path, Watch const & watch = {});

/// The class that a name means within another one: one that is declared in it, itself, or one of the factory.
/// Null if there is none; `current` may be null.
pml::MetaClass const * findClass(tavString const & name, pml::MetaClass const * current,
                                 pml::MetaFactory const & factory);

/// The class and its bases, nearest first.  A base that was there before ends the chain.
std::vector<pml::MetaClass const *> chainOf(pml::MetaClass const & cls, pml::MetaFactory const & factory);

/// The field with this tag, of the class or the nearest base that has it; null if there is none.
pml::MetaField const * findField(int tag, pml::MetaClass const & cls, pml::MetaFactory const & factory);
pml::MetaField const * findField(tav_istr name, pml::MetaClass const & cls, pml::MetaFactory const & factory);

/// The enum that a field of the class means; null if there is none.
pml::MetaEnum const * findEnum(pml::MetaField const & field, pml::MetaClass const & cls,
                               pml::MetaFactory const & factory);

/// Whether a message without the field is incomplete.
bool isNecessary(pml::MetaField const & field);

/// The name of a kind.
std::string kindName(Kind kind);
/// The type as a template has it: "list{string}", "int32?".
std::string typeText(pml::MetaField const & field);

/// A message code in hexadecimal, with or without 0x; false if the text is none.
bool readCode(std::string_view text, unsigned short & code);
/// "0x1F01".
std::string codeText(unsigned short code);

/// "; did you mean NAME?" with the class whose name is nearest; empty if none is near.
std::string nearestClass(std::string const & name, pml::MetaFactory const & factory);

/// The class that the options of a command line mean; null if both are empty.  Throws a Failure if the
/// template has none such, with names that are near; `option` is where the class was named.
pml::MetaClass const * chosenClass(Template const & model, std::string const & className,
                                   std::string const & code, char const * option = "--class");

inline std::string stringOf(tavString const & text) {
    return std::string(text.data() == nullptr ? "" : text.data(), text.size());
}
inline std::string_view viewOf(tav_istr text) {
    return text.empty() ? std::string_view() : std::string_view(text.data(), text.size());
}
inline tav_istr istrOf(std::string_view text) {
    return tav_istr(text.data(), static_cast<unsigned>(text.size()));
}

} // namespace tool
} // namespace tav

#endif
