#ifndef TAV_TOOLS_GEN_EXAMPLE_H
#define TAV_TOOLS_GEN_EXAMPLE_H

#include "tools/gen_model.h"

#include <string>

namespace tav {
namespace tool {

/// An object of a class with a value in each field, as applications write it and as it travels.
struct GenExample {
    /// Of several lines, indented; no line end behind the last one.
    std::string json;
    /// NBR.
    std::string bytes;
};

/// The default of a field as JSON; empty if it has none, or one that is not permitted.
std::string presetJson(GenField const & field);

/// The examples of a model, the same for the same template.  What is large or holds itself is shown in part.
class GenExamples {
public:
    explicit GenExamples(GenModel const & model);

    /// Throws a Failure if there is none that can be encoded.
    GenExample of(std::size_t cls) const;

private:
    GenModel const & model_;
    /// That of the template, in which those that are declared within others are found, too.
    pml::MetaFactory factory_;
};

} // namespace tool
} // namespace tav

#endif
