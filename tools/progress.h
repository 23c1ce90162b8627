#ifndef TAV_TOOLS_PROGRESS_H
#define TAV_TOOLS_PROGRESS_H

#include <chrono>
#include <string>

namespace tav {
namespace tool {

/// A line on the standard error that tells how far long work is.  It is shown on a terminal alone, after a
/// second, and is gone at the end.
class Progress {
public:
    /// What is written meanwhile: if something is, and goes to the same terminal, that shows how far it is.
    enum class Beside { output, nothing };

    explicit Progress(Beside beside = Beside::output);
    ~Progress();
    Progress(Progress const &) = delete;
    Progress & operator=(Progress const &) = delete;

    /// `size` is 0 if it is not known.
    void show(unsigned long long done, unsigned long long size);

private:
    bool terminal_;
    bool shown_ = false;
    unsigned calls_ = 0;
    unsigned long long told_ = 0;
    std::chrono::steady_clock::time_point next_;
};

/// The same for work that is counted otherwise, and writes at its end alone.
class StatusLine {
public:
    StatusLine();
    ~StatusLine();
    StatusLine(StatusLine const &) = delete;
    StatusLine & operator=(StatusLine const &) = delete;

    /// Whether it is time for another text.
    bool due() const;
    void show(std::string const & text);

private:
    bool terminal_;
    bool shown_ = false;
    std::chrono::steady_clock::time_point next_;
};

} // namespace tool
} // namespace tav

#endif
