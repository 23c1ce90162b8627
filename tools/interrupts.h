#ifndef TAV_TOOLS_INTERRUPTS_H
#define TAV_TOOLS_INTERRUPTS_H

namespace tav {
namespace tool {

/// Takes note of SIGINT, SIGTERM and SIGHUP as long as it lives, so that what is connected can be closed.  A
/// second one ends the program at once, as if nobody took note.  There is one at a time.
class Interrupts {
public:
    Interrupts();
    ~Interrupts();
    Interrupts(Interrupts const &) = delete;
    Interrupts & operator=(Interrupts const &) = delete;

    /// The signal that came; 0 if none has.
    int signal() const;
    /// A descriptor that can be read when one has come.
    int fd() const;
};

/// Thrown where work ends for a signal.
struct Interrupted {
    int signal = 0;
};

} // namespace tool
} // namespace tav

#endif
