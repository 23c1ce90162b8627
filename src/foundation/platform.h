#ifndef TAV_FOUNDATION_PLATFORM_H
#define TAV_FOUNDATION_PLATFORM_H

#include <cstddef>
#include <ctime>
#include <string>
#include <string_view>
#include <system_error>
#include <vector>

/// What differs between systems.  Each system has one source, platform_<system>.cpp; nothing else of the
/// library names a system or includes its headers.  Internal.
namespace tav {
namespace platform {

/// The system's name, as the configuration shows it.
char const * systemName() noexcept;

unsigned processId() noexcept;

/// The system's id of the calling thread.
unsigned threadId() noexcept;

/// Tells debuggers the calling thread's name, cut to what the system bears.  A failure is ignored.
void nameThread(std::string_view name) noexcept;

/// Has functions called around each fork from here on: `before` and `inParent` in the process that forks,
/// `inChild` in the new one, whose only thread is the one that forked.  Null for none.  The `before` run in
/// the reverse order of their registration, the others in its order.  False if memory is short.
bool aroundFork(void (*before)(), void (*inParent)(), void (*inChild)()) noexcept;

/// The fields of a time in the process's zone; false if it has none.
bool localTime(std::time_t time, std::tm & fields) noexcept;

/// Renames a file, in place of any other of that name.  False if that fails, as across file systems.
bool moveFile(char const * from, char const * to) noexcept;

/// Whether a key was pressed and not yet read.  False unless the standard input is a terminal.
bool keyPressed() noexcept;

bool isFolder(std::string const & path) noexcept;

/// Appends the names of the entries of a folder, in any order.
std::error_code listFolder(std::string const & path, std::vector<std::string> & names);

/// Appends a text that changes whenever a file or folder does: by its size, its times or its inode.
std::error_code fileState(std::string const & path, std::string & state);

/// Why a file can't be opened for reading; no error if it can.  Blocks on nothing, not even on a pipe.
std::error_code tryReading(std::string const & path) noexcept;

/// While it lives, writing to a pipe that nobody reads fails on this thread, and raises no signal in the
/// process.
class QuietPipes {
public:
    QuietPipes() noexcept;
    ~QuietPipes();
    QuietPipes(QuietPipes const &) = delete;
    QuietPipes & operator=(QuietPipes const &) = delete;

private:
    struct State;
    alignas(void *) unsigned char state_[272];
};

/// A file that is open for appending.  It is made if there is none, and others may read, write, move and
/// remove it meanwhile.
class AppendFile {
public:
    explicit AppendFile(char const * path) noexcept;
    ~AppendFile();
    AppendFile(AppendFile const &) = delete;
    AppendFile & operator=(AppendFile const &) = delete;

    /// Why it is not open; no error if it is.
    std::error_code const & error() const noexcept { return error_; }

    /// A file that grows and can be set aside, not a device or a pipe.
    bool regular() const noexcept { return regular_; }

    /// The size as it was opened, 0 of what is not regular.
    long long size() const noexcept { return size_; }

    /// Writes the whole text, in one piece if the system takes it so.  What can't be written is lost: then
    /// why, and `written` is the number of bytes ahead of it.
    std::error_code write(std::string_view text, std::size_t & written) const noexcept;

private:
    int descriptor_;
    std::error_code error_;
    bool regular_ = false;
    long long size_ = 0;
};

/// Makes all that is under way on a socket fail at once, and all that follows.  The socket stays open.
void shutDown(int socket) noexcept;

/// Has the system probe a connection that has been silent for `idle_s` seconds, each `interval_s` seconds,
/// and end it after `probes` without an answer; 0 leaves these two to the system.
std::error_code keepAlive(int socket, int idle_s, int interval_s, int probes) noexcept;

/// Has the system end a connection when bytes that were sent have not been acknowledged for so long.
std::error_code limitUnacknowledged(int socket, int ms) noexcept;

/// How many bytes of data have come on a connection by now, whether read or not; 0 if the system can't tell.
unsigned long long bytesReceived(int socket) noexcept;

/// The number of a TCP service that this machine knows by the name; 0 if it knows none.
unsigned short servicePort(std::string const & name) noexcept;

/// Has a socket in blocking mode while it lives.
class BlockingMode {
public:
    explicit BlockingMode(int socket) noexcept;
    ~BlockingMode();
    BlockingMode(BlockingMode const &) = delete;
    BlockingMode & operator=(BlockingMode const &) = delete;

private:
    int const socket_;
    int const flags_;
};

} // namespace platform
} // namespace tav

#endif
