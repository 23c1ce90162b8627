#include "client/pem_keys.h"

#include <algorithm>
#include <string_view>

namespace tav {
namespace tls {
namespace TAV_IMPL_NAMESPACE {

namespace {

bool begins_with(std::string_view line, std::string_view words) {
    return line.substr(0, words.size()) == words;
}

} // namespace

std::string without_keys(std::string const & text) {
    std::string out;
    bool of_key = false;
    for (std::string_view left = text; !left.empty();) {
        std::string_view const line = left.substr(0, std::min(left.find('\n'), left.size() - 1) + 1);
        left.remove_prefix(line.size());
        if (begins_with(line, "-----BEGIN ")) {
            of_key = line.find("PRIVATE KEY-----") != std::string_view::npos;
        }
        if (!of_key) {
            out.append(line);
        }
        if (begins_with(line, "-----END ")) {
            of_key = false;
        }
    }
    return out;
}

} // namespace TAV_IMPL_NAMESPACE
} // namespace tls
} // namespace tav
