#include "foundation/report.h"

#include "tav/vinta/vinta_basetypes_failures.h"

#include <stdexcept>
#include <string>

namespace tav {
namespace detail {

namespace {

std::string shortForm(Site site) {
    std::ostringstream out;
    tavCurrentInfo(site.file, site.line, site.func).dump(out);
    return out.str();
}

/// Set while this thread tells the log of a failure: one that is raised by that very work is not told again.
thread_local bool telling = false;

/// Writes one record at ERROR under the default tag, whatever becomes of it: a failure that can't be logged
/// must still reach its catcher.
void tell(Site site, std::string_view mark, std::string_view text) noexcept {
    if (telling) {
        return;
    }
    telling = true;
    try {
        if (tavLogger::isLoggable(tavLogger::DEFAULT_TAG(), tavLogger::ERROR)) {
            std::string record;
            record.reserve(mark.size() + text.size() + 1);
            record.append(mark).append(text).append(1, '\n');
            tavLogger::writeLog(tavLogger::DEFAULT_TAG(), tavLogger::ERROR, tav_istr(record), site.file,
                                static_cast<int>(site.line), site.func);
        }
    } catch (...) {
    }
    telling = false;
}

} // namespace

void raise(Site site, std::string_view message) {
    tell(site, "<EXCEPTION> ", message);
    std::string text(message);
    text += "\n    throw at ";
    text += shortForm(site);
    throw std::invalid_argument(text);
}

void raiseAssertion(Site site, std::string_view condition) {
    std::string failure = "assert failure: ";
    failure += condition;
    tell(site, "<EXCEPTION> ", failure + "\n    throw at " + shortForm(site));
    throw std::invalid_argument(failure);
}

void reportCaught(Site site, char const * what) noexcept {
    try {
        std::string text(what != nullptr ? what : "");
        text += "\n    catch at ";
        text += shortForm(site);
        tell(site, "<<< EXCEPTION >>> ", text);
    } catch (...) {
    }
}

} // namespace detail
} // namespace tav
