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

} // namespace tool
} // namespace tav

#endif
