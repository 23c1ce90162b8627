#ifndef TAV_CLIENT_VINTA_TLS_CLIENT_IMPL_LOG_H
#define TAV_CLIENT_VINTA_TLS_CLIENT_IMPL_LOG_H

#include "client/failures.h"
#include "foundation/report.h"
#include "tav/vinta/vinta_log.h"

#include <charconv>
#include <new>
#include <string>
#include <string_view>
#include <system_error>
#include <type_traits>

/// Log lines of the TLS client.  Internal.
namespace tav {
namespace tls {

/// The tag of every line of the client.
inline constexpr char log_tag[] = "TLS.CLT";

/// A place that stands in the log under another file than its own.  Lines keep the name that they are
/// searched under when their code is taken to another file.  The name is the log's alone: there need be no
/// such file.
constexpr detail::Site site_in(char const * file, char const * func,
                               unsigned line = static_cast<unsigned>(__builtin_LINE())) {
    return detail::Site{file, line, func};
}

/// Appends a text, or a number in decimal.
template <class T>
void append_part(std::string & out, T const & part) {
    if constexpr (std::is_integral_v<T>) {
        char digits[24];
        out.append(digits, std::to_chars(digits, digits + sizeof digits, part).ptr);
    } else {
        out.append(std::string_view(part));
    }
}

/// Writes one record made of texts and numbers, and a line feed, if `level` is loggable.  This is the form
/// for lines that come with every frame: no stream is built.  A line for which there is no memory is lost,
/// and told of by the next, so that none keeps anything from being done.
template <class... Parts>
void log_parts(tavLogger::LogLevel level, detail::Site site, Parts const &... parts) noexcept {
    try {
        if (!tavLogger::isLoggable(tav_istr(log_tag), level)) {
            return;
        }
        std::string text;
        text.reserve(128);
        (append_part(text, parts), ...);
        text.push_back('\n');
        tavLogger::writeLog(tav_istr(log_tag), level, tav_istr(text), site.file, static_cast<int>(site.line),
                            site.func);
    } catch (std::bad_alloc const &) {
        tav::detail::countLostLine();
    } catch (...) {
    }
}

/// The same for a line that is printed to a stream.
template <class Print>
void log_line(tavLogger::LogLevel level, detail::Site site, Print const & print) noexcept {
    try {
        detail::log(tav_istr(log_tag), level, site, print);
    } catch (...) {
    }
}

/// For a line with an object of the application: what the printing of that throws goes to the caller.
template <class Print>
void log_object(tavLogger::LogLevel level, detail::Site site, Print const & print) {
    detail::log(tav_istr(log_tag), level, site, print);
}

/// The text of an error; a short one if there is no memory for it.
inline std::string text_of(std::error_code ec) noexcept {
    try {
        return impl::message_of(ec);
    } catch (...) {
        return "no memory";
    }
}

} // namespace tls
} // namespace tav

#endif
