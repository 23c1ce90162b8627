#ifndef TAV_TOOLS_TEMPLATE_DIFF_H
#define TAV_TOOLS_TEMPLATE_DIFF_H

#include "tools/templates.h"

#include <string>
#include <vector>

namespace tav {
namespace tool {

/// Whether what one version writes is read by the other with the same values, and why not.
struct Way {
    bool holds = true;
    std::string why;
};

enum class Effect { compatible, oneWay, breaking };

char const * effectName(Effect effect);

/// A difference of two versions of a template.
struct Change {
    std::string className;
    /// Empty if the change is the class's own.
    std::string field;
    int tag = 0;
    std::string text;
    Way oldToNew;
    Way newToOld;
    /// Where it stands in the new version, or in the old one if it is no more in the new.
    bool inNew = true;
    std::size_t offset = 0;

    Effect effect() const {
        return oldToNew.holds && newToOld.holds   ? Effect::compatible
               : oldToNew.holds || newToOld.holds ? Effect::oneWay
                                                  : Effect::breaking;
    }
};

/// All changes, class by class.
std::vector<Change> compareTemplates(Template const & before, Template const & after,
                                     Watch const & watch = {});

} // namespace tool
} // namespace tav

#endif
