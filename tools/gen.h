#ifndef TAV_TOOLS_GEN_H
#define TAV_TOOLS_GEN_H

#include "tools/gen_model.h"

#include <cstddef>
#include <string>
#include <vector>

namespace tav {
namespace tool {

/// What the user should know of what was made.
struct GenWarning {
    std::size_t offset = 0;
    std::string text;
};

struct Generated {
    std::string text;
    std::vector<GenWarning> warnings;
};

/// Stands in the first lines of all that is generated.
extern char const generatedMark[];

/// A header with classes of the kit; those without a package are put into the namespace `outer`, and all
/// others within it.
Generated cppOf(GenModel const & model, std::string const & outer);

/// A page for people: each class with its fields and an example in JSON and in bytes.  Throws a Failure if an
/// example can't be encoded.
Generated markdownOf(GenModel const & model);
Generated htmlOf(GenModel const & model);

/// A JSON Schema, 2020-12, of the JSON that a template reads and writes: `$defs` has each class, and the
/// whole is any of the messages.
Generated schemaOf(GenModel const & model);

/// A module of Python 3.9 with a TypedDict for each class, as the package tav_im takes and gives messages.
Generated pythonOf(GenModel const & model);

} // namespace tool
} // namespace tav

#endif
