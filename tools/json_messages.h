#ifndef TAV_TOOLS_JSON_MESSAGES_H
#define TAV_TOOLS_JSON_MESSAGES_H

#include "tools/convert_parts.h"
#include "tools/json_text.h"

namespace tav {
namespace tool {

/// Makes messages of JSON objects, by the classes of a template, which must outlive it.
class JsonMessages {
public:
    explicit JsonMessages(Template const & model);

    /// Makes the message of an object: of the class of its code, which `message` may have, else of the one
    /// that it names, else of `cls`, which may be null.  Throws a PlacedFault, by the bytes of the text.
    void write(JsonText const & json, JsonNode const & object, pml::MetaClass const * cls,
               Message & message) const;

private:
    pml::MetaClass const * classOf(JsonText const & json, JsonNode const & object, pml::MetaClass const * cls,
                                   unsigned short code) const;

    Template const & model_;
    pml::MetaFactory writing_;
};

/// The code that a packet of the class has; Message::noCode if it has none.
unsigned short codeOf(pml::MetaClass const & cls);

} // namespace tool
} // namespace tav

#endif
