#ifndef TAV_TOOLS_TEMPLATE_CHECK_H
#define TAV_TOOLS_TEMPLATE_CHECK_H

#include "tools/pml_text.h"

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace tav {
namespace tool {

/// Something that is wrong in a template.
struct Finding {
    bool error = true;
    /// The offset in the template's text.
    std::size_t offset = 0;
    /// The name of the rule that is broken.
    std::string rule;
    std::string text;
};

/// All that is wrong in the text of a template, in the order of the text.
std::vector<Finding> checkTemplate(std::string_view text, Watch const & watch = {});

/// The names of all rules that checkTemplate knows.
std::vector<std::string> const & checkRules();

} // namespace tool
} // namespace tav

#endif
