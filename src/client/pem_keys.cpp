#include "client/pem_keys.h"

#include <algorithm>

namespace tav {
namespace tls {
namespace TAV_IMPL_NAMESPACE {

std::string without_keys(std::string const & text) {
    constexpr char const * begin = "-----BEGIN ";
    constexpr char const * end = "-----END ";
    constexpr char const * kind = "PRIVATE KEY-----";
    auto const line_behind = [&text](std::size_t at) {
        return at == std::string::npos ? text.size() : std::min(text.find('\n', at), text.size());
    };
    std::string out;
    std::size_t kept = 0;
    for (std::size_t at = text.find(begin); at != std::string::npos; at = text.find(begin, at)) {
        std::size_t const line = line_behind(at);
        if (text.find(kind, at) < line) {
            out.append(text, kept, at - kept);
            at = line_behind(text.find(end, line));
            kept = at;
        } else {
            at = line;
        }
    }
    return out.append(text, kept, std::string::npos);
}

} // namespace TAV_IMPL_NAMESPACE
} // namespace tls
} // namespace tav
