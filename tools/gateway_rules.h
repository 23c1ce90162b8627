#ifndef TAV_TOOLS_GATEWAY_RULES_H
#define TAV_TOOLS_GATEWAY_RULES_H

#include "gateway/gateway_core.h"
#include "tools/json_text.h"
#include "tools/templates.h"

#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace tav {
namespace tool {

/// What the file of rules wants of a field.
struct WantedField {
    int tag = 0;
    Kind kind = pml::field_type::unknown_;
    std::string value;
};

/// Which packets a rule is for, and what is done for them.
struct GatewayRule {
    /// Whether there is a code, given or of a class.
    bool coded = false;
    unsigned short code = 0;
    std::vector<WantedField> fields;
    /// Of the packets that fit, so many are passed over, and so many are then taken; 0 takes all.
    unsigned long long skip = 0;
    unsigned long long times = 0;
    std::shared_ptr<gateway::Plan> plan;
    unsigned long long fitted = 0;
    /// Where it begins in the file.
    std::size_t offset = 0;
};

/// The rules of a file, in the order in which they are tried.
class GatewayRules {
public:
    /// Throws a Failure with the place for what is no rule.  The template may be null.
    GatewayRules(std::string const & path, Template const * model);

    /// What the first rule that fits the packet does; null if none fits.
    std::shared_ptr<gateway::Plan const> planFor(unsigned short code, std::string const & body);
    /// What is odd about the rules, with its places; empty if nothing is.
    std::string const & told() const { return told_; }

private:
    std::vector<GatewayRule> rules_;
    std::string told_;
};

} // namespace tool
} // namespace tav

#endif
