#ifndef TAV_FOUNDATION_REPORT_H
#define TAV_FOUNDATION_REPORT_H

#include "tav/vinta/vinta_log.h"

#include <new>
#include <sstream>
#include <string>
#include <string_view>

/// How the library's own code tells the log and its callers what happened.  Internal.
namespace tav {
namespace detail {

/// A place in the source: full path, line and full function name.  All three are literals.
struct Site {
    char const * file;
    unsigned line;
    char const * func;
};

/// The caller's place, under the given full function name, such as "tav::nbr::parser::peekValue".
constexpr Site here(char const * func, char const * file = __builtin_FILE(),
                    unsigned line = static_cast<unsigned>(__builtin_LINE())) {
    return Site{file, line, func};
}

/// A text as failures show it: each NUL byte as a backslash and a zero, so that what() shows all of it.
std::string shownText(std::string_view text);

/// Logs "<EXCEPTION> " and the message at ERROR, if that is loggable, and throws std::invalid_argument with
/// the message, "\n    throw at " and the site's short form.  The message is shown as by shownText.
[[noreturn]] void raise(Site site, std::string_view message);

/// Tells of a failed assertion: throws std::invalid_argument with "assert failure: " and the condition alone.
/// The position is in the log only: "<EXCEPTION> ", that text, "\n    throw at " and the site's short form at
/// ERROR, if that is loggable.
[[noreturn]] void raiseAssertion(Site site, std::string_view condition);

/// Logs "<<< EXCEPTION >>> ", the text, "\n    catch at " and the site's short form at ERROR, if loggable.
void reportCaught(Site site, char const * what) noexcept;

/// The same of the exception that is being handled; "unknown exception" if it has no text.
void reportCaught(Site site) noexcept;

/// What was printed into a stream of one's own.  A stream goes silent when memory runs short within it; the
/// text then ends in "... (cut short)".
std::string printedText(std::ostringstream const & out);

/// Counts a log line that memory was too short for.  The log tells of them ahead of its next line.
void countLostLine() noexcept;

/// Writes the record that `make` makes the text of.  No operation fails because memory is too short for a
/// line about it: the line is lost and counted.
template <class Make>
void logOrLose(tav_istr tag, tavLogger::LogLevel level, Site site, Make && make) {
    try {
        std::string const text = make();
        tavLogger::writeLog(tag, level, tav_istr(text), site.file, static_cast<int>(site.line), site.func);
    } catch (std::bad_alloc const &) {
        countLostLine();
    }
}

/// Writes one record if `level` is loggable under `tag`: `print` is given a stream, and a line feed is added.
template <class Print>
void log(tav_istr tag, tavLogger::LogLevel level, Site site, Print && print) {
    if (!tavLogger::isLoggable(tag, level)) {
        return;
    }
    logOrLose(tag, level, site, [&] {
        std::ostringstream out;
        print(static_cast<std::ostream &>(out));
        return printedText(out) + '\n';
    });
}

} // namespace detail
} // namespace tav

#endif
