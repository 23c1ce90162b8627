#ifndef TAV_FOUNDATION_REPORT_H
#define TAV_FOUNDATION_REPORT_H

#include "tav/vinta/vinta_log.h"

#include <memory>
#include <new>
#include <ostream>
#include <sstream>
#include <streambuf>
#include <string>
#include <string_view>
#include <vector>

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

/// What a text ends in that memory ran short within: its stream goes silent there.
inline constexpr std::string_view cutShort = "... (cut short)";

/// What was printed into a stream of one's own, and where it was cut short.
std::string printedText(std::ostringstream const & out);

/// Counts a log line that memory was too short for.  The log tells of them ahead of its next line.
void countLostLine() noexcept;

/// A text that grows by blocks, so that a long one is not copied as it grows, and a short one takes no
/// memory.
class BlockText final : public std::streambuf {
public:
    BlockText() { setp(first_, first_ + firstSize); }

    std::size_t size() const noexcept;
    void appendTo(std::string & out) const;

protected:
    int_type overflow(int_type c) override;
    /// How much there is is known, and nothing else.
    pos_type seekoff(off_type off, std::ios_base::seekdir way, std::ios_base::openmode which) override;

private:
    static constexpr std::size_t firstSize = 512;
    static constexpr std::size_t blockSize = 16384;

    char first_[firstSize];
    /// All but the last are full.
    std::vector<std::unique_ptr<char[]>> blocks_;
};

/// Writes the record of what was printed, which is copied once, and a line feed.  A text that was cut short
/// says so.
void writeLine(tav_istr tag, tavLogger::LogLevel level, Site site, BlockText const & text, bool cut);

/// Writes one record if `level` is loggable under `tag`: `print` is given a stream, and a line feed is added.
/// No operation fails because memory is too short for a line about it: the line is lost and counted.
template <class Print>
void log(tav_istr tag, tavLogger::LogLevel level, Site site, Print && print) {
    if (!tavLogger::isLoggable(tag, level)) {
        return;
    }
    try {
        BlockText text;
        std::ostream out(&text);
        print(out);
        writeLine(tag, level, site, text, out.bad());
    } catch (std::bad_alloc const &) {
        countLostLine();
    }
}

} // namespace detail
} // namespace tav

#endif
