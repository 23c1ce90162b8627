#ifndef TAV_TOOLS_JSON_JUDGE_H
#define TAV_TOOLS_JSON_JUDGE_H

#include "tools/json_text.h"
#include "tools/templates.h"

#include <string>
#include <vector>

namespace tav {
namespace tool {

/// A JSON text as the library's transcoder takes it without a loss.
struct JudgedJson {
    std::string text;
    /// What is dropped all the same.
    std::vector<Note> notes;
};

/// The template with the kinds that the judged text is written by: times as integers, and keys without a
/// sign, which have the same bytes.
pml::MetaFactory writingFactory(pml::MetaFactory factory);

/// Holds an object to its class ahead of the transcoder, which cuts and clears what a field can't hold.
/// Throws a PlacedFault, with the place, for such a value.  In the text that it gives, escapes of four digits
/// are the characters that they mean, and numbers of 64 bits with a sign have lost their quotes.
JudgedJson judgeJson(JsonText const & json, JsonNode const & object, pml::MetaClass const & cls,
                     pml::MetaFactory const & factory);

} // namespace tool
} // namespace tav

#endif
