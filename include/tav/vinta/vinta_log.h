#ifndef TAV_VINTA_LOG_H
#define TAV_VINTA_LOG_H

#include "tav/vinta/vinta_api.h"
#include "tav/vinta/vinta_basetypes_text.h"
#include "tav/vinta/vinta_log_c.h"

#include <ostream>
#include <sstream>
#include <string>

// The names of the levels are ones that programs define as macros for themselves.  This header means the
// levels, and leaves the macros as they were; a program that has one of them uses the level behind an #undef,
// or by its number.
#pragma push_macro("ALL")
#pragma push_macro("TRACE")
#pragma push_macro("VERBOSE")
#pragma push_macro("DEBUG")
#pragma push_macro("INFO")
#pragma push_macro("WARN")
#pragma push_macro("ERROR")
#pragma push_macro("ASSERT")
#pragma push_macro("OUT")
#pragma push_macro("NONE")
#pragma push_macro("UNKNOWN")
#undef ALL
#undef TRACE
#undef VERBOSE
#undef DEBUG
#undef INFO
#undef WARN
#undef ERROR
#undef ASSERT
#undef OUT
#undef NONE
#undef UNKNOWN

/// The one log of the library.
///
/// A record is formatted on the thread that logs, handed to a background thread named "logger", written to a
/// file of limited size and passed to a callback.  Before `open`, and after `close`, a record goes to the
/// same sinks on the caller's own thread.  Code that logs asks `isLoggable` ahead of any formatting:
///
///     if (tavLogger::isLoggable(tag, tavLogger::DEBUG)) {
///         tavLogger::writeLog(tag, tavLogger::DEBUG, "connected\n", __FILE__, __LINE__, "app::connect");
///     }
///
/// All operations may be called from any thread, unless they say otherwise.
class TAV_API tavLogger {
public:
    /// A record passes if its level is not below the threshold of its tag.
    enum LogLevel {
        ALL = 0,
        TRACE = 1,
        VERBOSE = 2,
        DEBUG = 3,
        INFO = 4,
        WARN = 5,
        ERROR = 6,
        ASSERT = 7,
        OUT = 100,
        NONE = 255,
        /// What an unknown level name stands for; as a threshold it lets everything pass.
        UNKNOWN = -1
    };

    /// Receives each record: its level and the whole line as a C string, valid during the call only.  Called
    /// on the logger's thread, or on the caller's if there is none.  It must not block for long and must call
    /// none of `open`, `close` and `finalize`.
    typedef void (*Callback)(int level, char const * text);

    /// An empty handle: all state is the process's.  Made to be printed.
    tavLogger();

    /// The tag of the library's own records, "TAV".
    static tav_istr DEFAULT_TAG();

    /// Starts file logging and the background thread; a former thread is closed first.
    /// `path` is the log file in UTF-8, empty for no file.  `name` and `version` stand in the banner, which
    /// is the first record and heads each new file.  `levels` is a level text, as for setLogLevel.  `maxSize`
    /// is the size in bytes that the file may not exceed: the record that would do so moves the file to the
    /// same name with ".bak" added.  Records at or above `vipLevel` have reached the sinks when writeLog
    /// returns (within a bounded wait).  `console` is only stored and printed by `str`. Throws what the
    /// decoding of a bad `levels` throws; banner and file are set by then.
    static void open(tav_istr path, tav_istr name, tav_istr levels, Callback callback, tav_istr version,
                     int maxSize, bool console, LogLevel vipLevel);

    /// Sets the levels and the three fields; starts no file and no thread.  Throws as `open`.
    static void setup(tav_istr levels, Callback callback, bool console, LogLevel vipLevel);

    /// Closes the background thread, if there is one, when it has delivered what was posted.  Later records
    /// go straight to the sinks.
    static void close();

    /// Waits until the background thread has delivered what was posted so far, about one second at most.
    static void flush();

    /// Closes the background thread and drops all state: the next call starts with the defaults.
    static void finalize();

    /// True if a record of this level under this tag is to be written.  Makes no string, and takes no lock
    /// unless a level is being set at that moment; a level set by the same thread is seen at once.
    static bool isLoggable(tav_istr tag, LogLevel level);

    /// Decodes a level text such as "(default(WARN)net(DEBUG))", the form that `str` prints: each child of
    /// its first unit is a tag with the name of a level, and the rule of the form below is applied in order.
    /// The outer brackets are needed: "net(DEBUG)" is a unit without children and changes nothing, as does an
    /// empty text.  An unknown level name counts as UNKNOWN.  Throws std::invalid_argument on a malformed
    /// text.
    static void setLogLevel(tav_istr levels);

    /// Tag "clear" forgets all tags and sets the default; "all" sets every tag known by now, and the default;
    /// "default" sets the default; any other tag gets a threshold of its own.
    static void setLogLevel(tav_istr tag, LogLevel level);

    /// Sets the threshold of the tags that have none of their own.
    static void setLogLevel(LogLevel level);

    /// Replaces the callback; null for none.
    static void setCallback(Callback callback);

    /// Formats one record and posts it, whatever the level.  `text` brings its own line feed.  `file` is a
    /// path, `func` a full function name without arguments; the line shows their short forms.
    static void writeLog(tav_istr tag, LogLevel level, tav_istr text, char const * file, int line,
                         char const * func);

    /// The levels and switches as text, such as "(default(INFO)net(DEBUG)__console(0)__vip(5))".
    static tavString str();
};

/// Prints tavLogger::str().
TAV_API std::ostream & operator<<(std::ostream & out, tavLogger const & v);

namespace tav {

/// One line on the standard output, outside the log: made, streamed into, and delivered by its destructor.
///
///     tav::console() << "listening on " << port;
///
/// The line begins with the time, the process and thread ids and " --- ".  Hexadecimal numbers are written in
/// upper case.  An object belongs to one thread.
class TAV_API console {
public:
    /// Writes the prefix into the object.
    console();

    /// Writes the text and a line feed to the standard output and flushes it.
    ~console();

    console(console const &) = delete;
    console & operator=(console const &) = delete;

    template <class T>
    console & operator<<(T const & v) {
        out_ << v;
        return *this;
    }

    /// For manipulators such as std::endl.
    console & operator<<(std::ostream & (*manipulator)(std::ostream &)) {
        manipulator(out_);
        return *this;
    }

    /// The text so far, prefix included.
    std::string str() const;

    /// Writes `text` to the standard output, without prefix, and flushes.
    static void print(std::string text);

    /// As print, with a line feed behind.
    static void println(std::string text);

private:
    std::ostringstream out_;
};

/// As console, for the platform's debugger too.  This platform has no debugger output: an object's text goes
/// to the standard output alone, and the static operations write nothing anywhere.
class TAV_API debugger {
public:
    /// Writes the prefix into the object.
    debugger();

    /// Hands the text and a line feed to the debugger and to the standard output, which is flushed.
    ~debugger();

    debugger(debugger const &) = delete;
    debugger & operator=(debugger const &) = delete;

    template <class T>
    debugger & operator<<(T const & v) {
        out_ << v;
        return *this;
    }

    /// For manipulators such as std::endl.
    debugger & operator<<(std::ostream & (*manipulator)(std::ostream &)) {
        manipulator(out_);
        return *this;
    }

    /// The text so far, prefix included.
    std::string str() const;

    /// Hands `text` to the debugger only.
    static void print(std::string text);

    /// As print, with a line feed behind.
    static void println(std::string text);

private:
    std::ostringstream out_;
};

} // namespace tav

#pragma pop_macro("ALL")
#pragma pop_macro("TRACE")
#pragma pop_macro("VERBOSE")
#pragma pop_macro("DEBUG")
#pragma pop_macro("INFO")
#pragma pop_macro("WARN")
#pragma pop_macro("ERROR")
#pragma pop_macro("ASSERT")
#pragma pop_macro("OUT")
#pragma pop_macro("NONE")
#pragma pop_macro("UNKNOWN")

#endif
