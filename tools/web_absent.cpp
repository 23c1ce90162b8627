#include "tools/failure.h"
#include "tools/web.h"

namespace tav {
namespace tool {

class Web::Server {};

void Web::demand() {
    throw Failure(exitUse, "--web: this tav was built without libcpp-httplib-dev");
}

Web::Web(WebOptions const &, Template const &, Traffic &, gateway::Gateway &) {
    demand();
}

Web::~Web() = default;

std::string Web::place() const {
    return {};
}

bool Web::isOnAllAddresses() const {
    return false;
}

} // namespace tool
} // namespace tav
