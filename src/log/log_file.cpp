#include "log/log_file.h"

#include "tav/vinta/vinta_basetypes_util.h"
#include "tav/vinta/vinta_log.h"

#include <new>

namespace tav {
namespace detail {

namespace {

constexpr std::string_view cutMark = "... (cut short)\n";

/// A word about the file on the console.  What becomes of the record in hand is settled: without memory the
/// word is left out.
template <class Print>
void tell(Print const & print) {
    try {
        debugger out;
        print(out);
    } catch (std::bad_alloc const &) {
    }
}

} // namespace

void LogFile::begin() {
    Guard const guard(mutex_);
    unopenedIsTold_ = false;
    of_.reset();
}

void LogFile::clear() {
    begin();
    Guard const guard(mutex_);
    lost_ = 0;
}

// The former lock ends by the reuse of its memory: a mutex that is held may not be destroyed, and owns
// nothing beside that memory.
void LogFile::afterFork() {
    new (&mutex_) Mutex;
    cut_ = false;
    bannerOwed_ = false;
    lost_ = 0;
}

// The thread of a former file may still write a record to that one.
void LogFile::turnTo(TargetPtr const & to) {
    if (of_ != to) {
        of_ = to;
        cut_ = false;
        bannerOwed_ = false;
    }
}

// Until it is written it is owed: without memory for it now, the file gets it with the next record.
void LogFile::writeBanner(TargetPtr const & to) {
    Guard const guard(mutex_);
    turnTo(to);
    bannerOwed_ = true;
    kind_ = Kind::banner;
    append(*to, std::string_view(), to->banner);
}

void LogFile::write(TargetPtr const & to, std::string_view record, LostRecord lostRecord) {
    Guard const guard(mutex_);
    turnTo(to);
    kind_ = Kind::line;
    append(*to, lost_ != 0 ? lostRecord(lost_, why_) : std::string(), record);
}

void LogFile::tellLost(TargetPtr const & to, LostRecord lostRecord) {
    Guard const guard(mutex_);
    turnTo(to);
    kind_ = Kind::word;
    std::string const lost = lost_ != 0 ? lostRecord(lost_, why_) : std::string();
    if (!lost.empty()) {
        append(*to, lost, std::string_view());
    }
}

LogFile::Piece LogFile::piece(Target const & to, bool mark, bool banner, std::string_view lost,
                              std::string_view record) const {
    Piece out;
    out.record = record;
    if (!mark && !banner && lost.empty()) {
        out.bannerEnd = kind_ == Kind::banner ? record.size() : 0;
        return out;
    }
    out.joined.reserve(cutMark.size() + to.banner.size() + 1 + lost.size() + record.size());
    if (mark) {
        out.joined.append(cutMark);
    }
    if (banner) {
        out.joined.append(to.banner).append(1, '\n');
        out.bannerEnd = out.joined.size();
    }
    if (!lost.empty()) {
        out.joined.append(lost);
        out.lostEnd = out.joined.size();
    }
    out.joined.append(record);
    return out;
}

void LogFile::append(Target const & to, std::string_view lost, std::string_view record) {
    Piece whole;
    {
        platform::AppendFile const file(to.path.c_str());
        if (!opens(to, file)) {
            return;
        }
        bool const begun = !file.regular() || file.size() != 0;
        whole = piece(to, cut_ && begun, bannerOwed_ && kind_ != Kind::banner, lost, record);
        bool const full =
            file.regular() && file.size() + static_cast<long long>(whole.text().size()) > to.maxSize;
        if (!full) {
            put(file, whole);
            return;
        }
    }
    // Made ahead of the move, behind which nothing fails that the new file would lack.
    Piece fresh = piece(to, false, true, lost, record);
    bool const moved = tavUtil::moveFile(to.path, to.backup);
    if (moved) {
        whole = std::move(fresh);
        cut_ = false;
        bannerOwed_ = true;
    }
    platform::AppendFile const file(to.path.c_str());
    if (opens(to, file)) {
        put(file, whole);
    }
    if (moved) {
        tell([&](debugger & out) { out << "logfile " << to.path << " moved to " << to.backup; });
    }
}

/// Tells once that there is no file.
bool LogFile::opens(Target const & to, platform::AppendFile const & file) {
    if (!file.error()) {
        unopenedIsTold_ = false;
        return true;
    }
    lose(file.error());
    if (!unopenedIsTold_) {
        unopenedIsTold_ = true;
        tell([&](debugger & out) {
            out << "logfile " << to.path << " can't be opened: " << file.error().message();
        });
    }
    return false;
}

void LogFile::put(platform::AppendFile const & file, Piece const & piece) {
    std::size_t const size = piece.text().size();
    std::size_t written = 0;
    std::error_code const why = file.write(piece.text(), written);
    if (written != 0) {
        cut_ = written < size;
    }
    if (piece.bannerEnd != 0 && written >= piece.bannerEnd) {
        bannerOwed_ = false;
    }
    if (piece.lostEnd != 0 && written >= piece.lostEnd) {
        lost_ = 0;
    }
    if (why) {
        lose(why);
    }
}

void LogFile::lose(std::error_code const & why) {
    why_ = why;
    if (kind_ == Kind::banner) {
        bannerOwed_ = true;
    } else if (kind_ == Kind::line) {
        ++lost_;
    }
}

} // namespace detail
} // namespace tav
