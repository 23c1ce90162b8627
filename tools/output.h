#ifndef TAV_TOOLS_OUTPUT_H
#define TAV_TOOLS_OUTPUT_H

#include <chrono>
#include <map>
#include <string>
#include <string_view>

namespace tav {
namespace tool {

class Interrupts;

enum class Colours { automatic, always, never };

/// The names of the choices, as an option takes them.
std::map<std::string, Colours> const & colourNames();

/// The standard output, and the standard error for what is told to people.  What can't be written ends the
/// program: a full disk with a text, a reader that went away by SIGPIPE, as it ends any filter.
class Output {
public:
    Output() = default;
    /// Writes to a text in place of the standard output, and tells nothing.
    explicit Output(std::string & to) : text_(&to) {}
    Output(Output const &) = delete;
    Output & operator=(Output const &) = delete;

    /// Colour on a terminal alone, and not where NO_COLOR is set, unless it is asked for.
    void colours(Colours choice);

    /// Whether a program reads the output, so that a failure is told there too.
    void forPrograms(bool are) { forPrograms_ = are; }
    bool forPrograms() const { return forPrograms_; }

    void write(std::string_view text);
    void line(std::string_view text) {
        write(text);
        write("\n");
    }
    /// To be called at the end: what was written has then been taken by the system.
    void flush();

    /// From here on, unless this is null, a reader who takes nothing holds up no signal: what is then still
    /// to be written is dropped after half a second, and Interrupted thrown.
    void endsBy(Interrupts const * interrupts);

    /// The text in a colour, if there are colours: 'r'ed, 'y'ellow, 'g'reen, 'c'yan, 'd'im, 'b'old.
    std::string in(char colour, std::string_view text) const;

    /// Writes to the standard error, behind all that was written before.  What would move a terminal is shown
    /// as an escape: texts quote files and peers.
    void tell(std::string_view text);

private:
    using Clock = std::chrono::steady_clock;

    void waitForReader(int fd);
    void writeAll(int fd, std::string_view text);

    std::string buffer_;
    Interrupts const * interrupts_ = nullptr;
    /// When nobody is waited for any more.
    Clock::time_point end_ = Clock::time_point::max();
    std::string * text_ = nullptr;
    bool coloured_ = false;
    bool tellsInColour_ = false;
    bool forPrograms_ = false;
};

/// The text as JSON: quoted, with escapes, and with U+FFFD for what is no UTF-8.
std::string jsonText(std::string_view text);

/// Bytes as "FF 01 28".
std::string hexText(std::string_view bytes);

} // namespace tool
} // namespace tav

#endif
