#ifndef TAV_LOG_LOG_FILE_H
#define TAV_LOG_LOG_FILE_H

#include "foundation/guarded.h"
#include "foundation/platform.h"

#include <cstddef>
#include <memory>
#include <string>
#include <string_view>
#include <system_error>

namespace tav {
namespace detail {

/// Writes records to a file, which is opened for each of them and set aside when it is full.  What can't be
/// written is counted, and told in the file once it takes a record again.
class LogFile {
public:
    struct Target {
        std::string path;
        std::string backup;
        std::string banner;
        long long maxSize;
    };

    /// The record that tells of lines that were lost, or nothing if none may be told of.
    using LostRecord = std::string (*)(unsigned lines, std::error_code const & why);

    /// Another file follows, or the same one again: what is wrong with it is told anew.
    void begin();
    /// Nothing is left of before, lines that were lost neither.
    void clear();
    /// In a forked child, where the thread that had the lock may be missing, and whose parent tells of what
    /// was lost.
    void afterFork() TAV_AROUND_FORK;

    using TargetPtr = std::shared_ptr<Target const>;

    /// Each may raise std::bad_alloc; then nothing is written.
    void writeBanner(TargetPtr const & to);
    void write(TargetPtr const & to, std::string_view record, LostRecord lostRecord);
    /// Tells of what was lost, if there is anything and it can be told by now.
    void tellLost(TargetPtr const & to, LostRecord lostRecord);

private:
    /// What is written in one piece.
    struct Piece {
        std::string_view text() const { return joined.empty() ? record : std::string_view(joined); }

        std::string_view record;
        std::string joined;
        /// Where the banner ends, and what tells of lost lines; 0 without one.
        std::size_t bannerEnd = 0;
        std::size_t lostEnd = 0;
    };

    enum class Kind { line, banner, word };

    void turnTo(TargetPtr const & to) TAV_REQUIRES(mutex_);
    Piece piece(Target const & to, bool mark, bool banner, std::string_view lost,
                std::string_view record) const TAV_REQUIRES(mutex_);
    void append(Target const & to, std::string_view lost, std::string_view record) TAV_REQUIRES(mutex_);
    bool opens(Target const & to, platform::AppendFile const & file) TAV_REQUIRES(mutex_);
    void put(platform::AppendFile const & file, Piece const & piece) TAV_REQUIRES(mutex_);
    void lose(std::error_code const & why) TAV_REQUIRES(mutex_);

    /// One record at a time, so that a full file is set aside once.
    Mutex mutex_;
    bool unopenedIsTold_ TAV_GUARDED_BY(mutex_) = false;
    /// Of the record in hand.
    Kind kind_ TAV_GUARDED_BY(mutex_) = Kind::line;
    /// The file that was last written to, whose are the next two.
    TargetPtr of_ TAV_GUARDED_BY(mutex_);
    /// It ends within a record.
    bool cut_ TAV_GUARDED_BY(mutex_) = false;
    /// It has to get its banner yet.
    bool bannerOwed_ TAV_GUARDED_BY(mutex_) = false;
    unsigned lost_ TAV_GUARDED_BY(mutex_) = 0;
    std::error_code why_ TAV_GUARDED_BY(mutex_);
};

} // namespace detail
} // namespace tav

#endif
