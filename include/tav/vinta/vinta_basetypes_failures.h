#ifndef TAV_VINTA_BASETYPES_FAILURES_H
#define TAV_VINTA_BASETYPES_FAILURES_H

#include "tav/vinta/vinta_api.h"
#include "tav/vinta/vinta_basetypes_bytes.h"
#include "tav/vinta/vinta_basetypes_text.h"

#include <exception>
#include <ios>
#include <map>
#include <ostream>
#include <sstream>
#include <string>

/// How failures are told and how raw values get into logs: the place of a failure, the exception classes, and
/// small values that print themselves.  All of them are plain values: distinct objects may be used by
/// distinct threads, one object by one thread at a time.

/// Where something happened.  It owns nothing: both texts must be literals or outlive it.
class TAV_API tavCurrentInfo {
public:
    /// No place: null, 0, null.
    tavCurrentInfo();
    /// `file` is a full source path and `func` a full function name, as "tav::nbr::parser::peekValue".
    tavCurrentInfo(char const * file, unsigned line, char const * func);

    /// Writes the short form `Class::name(file:line)`: the path without its directories, the name with its
    /// last two components.
    void dump(std::ostream & out) const;

    char const * file;
    unsigned line;
    char const * func;
};

/// The same as dump.
TAV_API std::ostream & operator<<(std::ostream & out, tavCurrentInfo const & v);

/// A number that names no value of an enum.
class TAV_API tavInvalidEnumValue : public std::exception {
public:
    tavInvalidEnumValue(char const * message, int value);
    tavInvalidEnumValue(std::string const & message, int value);
    ~tavInvalidEnumValue() override;

    /// The number.
    int value() const;
    char const * what() const noexcept override;

private:
    std::string message_;
    int value_;
};

/// An operation that its object does not offer.
class TAV_API tavNotSupported : public std::exception {
public:
    tavNotSupported(char const * message);
    tavNotSupported(std::string const & message);
    ~tavNotSupported() override;

    char const * what() const noexcept override;

private:
    std::string message_;
};

/// The root of the enum wrappers.
class TAV_API tavEnumBase {
public:
    tavEnumBase() = default;
    tavEnumBase(tavEnumBase const &) = default;
    tavEnumBase & operator=(tavEnumBase const &) = default;
    virtual ~tavEnumBase();

    /// Replaces `out` by all pairs in the order of the numbers: `name=number`, joined by ",".
    static void toString_i(std::map<int, std::string> const & names, std::string & out);
    /// Does nothing: the wrappers keep their reverse map by other means.
    static void fromString_i(std::map<int, std::string> & names, std::map<std::string, int> const & byName);
};

/// Prints what the library was built for and with, as "(OS: Linux)(Bits: 64)(Release)...".
class TAV_API tav_config_t {};

TAV_API std::ostream & operator<<(std::ostream & out, tav_config_t const & v);

namespace tav {

/// A failure with its place.  Building one logs nothing.
class TAV_API Exception : public std::exception {
public:
    /// `file` and `func` must be literals; a null `message` is empty.
    Exception(char const * file, unsigned line, char const * func, tav_istr message);
    Exception(Exception const &) = default;
    Exception & operator=(Exception const &) = default;
    ~Exception() override;

    /// "(tav::Exception) ", the message with each NUL byte shown as \0, "\n    throw at " and the place.
    char const * what() const noexcept override;

    /// The text as the thrower gave it.
    std::string const & message() const;
    tavCurrentInfo const & position_info() const;

private:
    tavCurrentInfo info_;
    std::string message_;
    std::string text_;
};

/// A text that can't be decoded, with the position in it.
class TAV_API DecodeException : public Exception {
public:
    /// The position is 0 and the message stays as it is.
    DecodeException(char const * file, unsigned line, char const * func, tav_istr message);
    /// The message gets "(", `position` in decimal and ")" behind it.
    DecodeException(char const * file, unsigned line, char const * func, tav_istr message, int position);
    DecodeException(DecodeException const &) = default;
    DecodeException & operator=(DecodeException const &) = default;
    ~DecodeException() override;

    int position() const;

private:
    int position_;
};

/// Prints a number in hexadecimal, a negative one as its sixteen digits of two's complement.  A `width` other
/// than 0 pads it with `0`.  It leaves the stream decimal with a blank as fill; `upper` sets the stream's
/// upper-case flag, which stays set.
class TAV_API asHex {
public:
    asHex(long long value, int width, bool upper);

    long long value;
    int width;
    bool upper;
};

TAV_API std::ostream & operator<<(std::ostream & out, asHex const & v);

/// Prints bytes as `[01020304 05]`.  A view: the bytes must outlive it.
class TAV_API printAsHex {
public:
    printAsHex(tav_istr v);
    printAsHex(char const * first, char const * last);

    tav_istr view;
};

TAV_API std::ostream & operator<<(std::ostream & out, printAsHex const & v);

/// Prints one byte as two upper-case hexadecimal digits.
class TAV_API printHexChar {
public:
    printHexChar(char c);

    char value;
};

TAV_API std::ostream & operator<<(std::ostream & out, printHexChar const & v);

/// Prints text that may be binary: `~t`, `~r`, `~n` and `~~` for a tab, a carriage return, a line feed and a
/// tilde, runs of unprintable bytes as `[2]~x[0102]`, all else as it is.  A view: the bytes must outlive it.
class TAV_API _Print {
public:
    _Print(tav_istr v);

    tav_istr view;
};

TAV_API std::ostream & operator<<(std::ostream & out, _Print const & v);

/// Prints bytes with their count, as `[4]~x[01020304]`; nothing as `[0]`.  A view: the bytes must outlive it.
class TAV_API _PrintHex {
public:
    _PrintHex(tav_istr v);

    tav_istr view;
};

TAV_API std::ostream & operator<<(std::ostream & out, _PrintHex const & v);

/// Prints bytes as a table with offsets, sixteen a line, behind two lines of heading.  It holds a copy.
class TAV_API HexDump {
public:
    HexDump(tav_istr v);

    tavBytes bytes;
};

TAV_API std::ostream & operator<<(std::ostream & out, HexDump const & v);

/// Which build this is.
class TAV_API version_t {
public:
    /// The build's time in seconds since 1970, a point, and eight hexadecimal digits of the source revision;
    /// "v" and the version, if the sources had no history.
    static std::string str();

    /// The version of the library, such as "1.0.0": TAV_VERSION_MAJOR, _MINOR and _PATCH as they were when it
    /// was built.  A constant.
    static char const * release() noexcept;
};

/// The same as str.
TAV_API std::ostream & operator<<(std::ostream & out, version_t const & v);

/// Builds a text from whatever prints; manipulators are taken too.
class TAV_API stringger {
public:
    stringger();
    stringger(stringger && other);
    stringger & operator=(stringger && other);
    stringger(stringger const &) = delete;
    stringger & operator=(stringger const &) = delete;
    ~stringger();

    template <class T>
    stringger & operator<<(T const & v) {
        out_ << v;
        return *this;
    }
    stringger & operator<<(std::ostream & (*manipulator)(std::ostream &));
    stringger & operator<<(std::ios & (*manipulator)(std::ios &));
    stringger & operator<<(std::ios_base & (*manipulator)(std::ios_base &));

    /// A copy of the text so far.
    std::string str() const;

private:
    std::ostringstream out_;
};

/// A set of numbers, given as numbers and closed intervals: `1,3..5,9`.  An empty one permits every number.
/// Making, copying and asking an empty one allocates nothing.
class TAV_API Range {
public:
    Range() = default;
    /// Calls setup and drops its answer.
    Range(tav_istr pattern);

    /// Adds the numbers of `pattern`.  An interval that begins where another one does replaces it.  Text that
    /// is no number counts as 0, a number beyond 64 bits as the largest or smallest.  An empty element ends
    /// the pattern.  A single point is bad: false, with a record at ERROR, and what was read before it stays.
    bool setup(tav_istr pattern);

    /// True if the set is empty or holds `v`.
    bool check(long long v) const {
        if (intervals_.empty()) {
            return true;
        }
        for (auto const & interval : intervals_) {
            if (v < interval.first) {
                return false;
            }
            if (v <= interval.second) {
                return true;
            }
        }
        return false;
    }

    bool empty() const { return intervals_.empty(); }

private:
    friend TAV_API std::ostream & operator<<(std::ostream & out, Range const & v);

    std::map<long long, long long> intervals_;
};

/// Prints `{ 1:1 3:5 9:9 }`, and an empty set as `{ }`.
TAV_API std::ostream & operator<<(std::ostream & out, Range const & v);

} // namespace tav

#endif
