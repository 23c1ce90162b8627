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
    return printedText(out);
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

std::string shownText(std::string_view text) {
    std::string shown;
    for (std::size_t nul; (nul = text.find('\0')) != std::string_view::npos; text.remove_prefix(nul + 1)) {
        shown.append(text.substr(0, nul)).append("\\0");
    }
    return shown.append(text);
}

std::string printedText(std::ostringstream const & out) {
    std::string text = out.str();
    if (out.bad()) {
        text += cutShort;
    }
    return text;
}

std::size_t BlockText::size() const noexcept {
    auto const last = static_cast<std::size_t>(pptr() - pbase());
    return blocks_.empty() ? last : firstSize + (blocks_.size() - 1) * blockSize + last;
}

void BlockText::appendTo(std::string & out) const {
    auto const last = static_cast<std::size_t>(pptr() - pbase());
    if (!blocks_.empty()) {
        out.append(first_, firstSize);
    }
    for (std::size_t i = 0; i + 1 < blocks_.size(); ++i) {
        out.append(blocks_[i].get(), blockSize);
    }
    out.append(pbase(), last);
}

BlockText::int_type BlockText::overflow(int_type c) {
    if (traits_type::eq_int_type(c, traits_type::eof())) {
        return traits_type::not_eof(c);
    }
    blocks_.emplace_back();
    try {
        blocks_.back().reset(new char[blockSize]);
    } catch (...) {
        blocks_.pop_back();
        throw;
    }
    setp(blocks_.back().get(), blocks_.back().get() + blockSize);
    return sputc(traits_type::to_char_type(c));
}

BlockText::pos_type BlockText::seekoff(off_type off, std::ios_base::seekdir way, std::ios_base::openmode) {
    bool const here = off == 0 && way == std::ios_base::cur;
    return here ? pos_type(static_cast<off_type>(size())) : pos_type(off_type(-1));
}

void raise(Site site, std::string_view message) {
    std::string text = shownText(message);
    tell(site, "<EXCEPTION> ", text);
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

void reportCaught(Site site) noexcept {
    try {
        throw;
    } catch (std::exception const & e) {
        reportCaught(site, e.what());
    } catch (...) {
        reportCaught(site, "unknown exception");
    }
}

} // namespace detail
} // namespace tav
