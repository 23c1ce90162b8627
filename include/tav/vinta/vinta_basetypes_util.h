#ifndef TAV_VINTA_BASETYPES_UTIL_H
#define TAV_VINTA_BASETYPES_UTIL_H

#include "tav/vinta/vinta_api.h"
#include "tav/vinta/vinta_basetypes_bytes.h"
#include "tav/vinta/vinta_basetypes_process.h"
#include "tav/vinta/vinta_basetypes_text.h"
#include "tav/vinta/vinta_locks.h"

#include <memory>
#include <string>

/// Small things that the rest stands on: files, bytes, short names, command lines and serial numbers.

/// Functions without state; any thread may call them.  Those that touch files report by their result and
/// never throw for a failing file.
class TAV_API tavUtil {
public:
    /// What stands behind the last `\` or `/`; the whole of a path that has neither; an empty view for null.
    static tav_istr getFileName(char const * path);
    /// The last two components of a full function name, such as `Class::method`: what stands behind the last
    /// but one `::`, or behind the first blank met on the way there from the end, once a `::` was seen.  Else
    /// the whole; an empty view for null.
    static tav_istr getFuncName(char const * name);

    /// The whole content of a file; empty if it can't be read.
    static std::string readFile(std::string path);
    /// Replaces the content of a file or makes it.  True if all of the data went to the system.
    static bool writeFile(std::string path, tav_istr data);
    /// The same behind what the file holds.
    static bool appendFile(std::string path, tav_istr data);
    /// Renames, replacing a file at `to`; false across file systems.
    static bool moveFile(std::string from, std::string to);
    /// The same with the names encoded in UTF-8, surrogate pairs joined.
    static bool moveFile(std::wstring from, std::wstring to);

    /// Copies `src` into the buffer of `dst` at `offset`, as far as its capacity goes.  The size stays.
    static void arraycopy(tav_istr src, tavBytes & dst, unsigned offset);

    static int byte2int(unsigned char b);
    /// The low 8 bits.
    static unsigned char int2byte(int i);
    /// `b1` is the high byte.
    static int bytes2int(unsigned char b1, unsigned char b2);
    /// `b1` is the highest byte.
    static int bytes2int(unsigned char b1, unsigned char b2, unsigned char b3, unsigned char b4);
    /// Up to four bytes from `offset`, big-endian.  A short tail gives a number of fewer bytes; none gives 0.
    static int bytes2int(tav_istr v, unsigned offset);
    /// Stores `i` big-endian at `offset` in the buffer, which must have room there: nothing is checked, and
    /// the size stays.
    static void int2bytes(int i, tavBytes & dst, unsigned offset);
};

/// A program's command line: plain words and options.  `-name value` gives a value, `-name` before another
/// option or at the end none; a word in `-` can't be a value.  Words from one that begins with "/*" to one
/// that ends with "*/" are skipped.  Read-only once made: many threads may ask one object.
class TAV_API tavCmdArgs {
public:
    /// Parses at once; `argv` is not kept.  `argv[0]` is skipped.
    tavCmdArgs(int argc, char const ** argv);
    tavCmdArgs(int argc, char ** argv);
    tavCmdArgs(tavCmdArgs const &) = delete;
    tavCmdArgs & operator=(tavCmdArgs const &) = delete;
    ~tavCmdArgs();

    /// The count of plain words.
    unsigned numofArguments() const;
    /// A plain word; `i` must be below their count.
    std::string const & argument(unsigned i) const;
    /// A copy of a plain word; `i` must be below their count.
    std::string operator[](unsigned i) const;
    /// False, with `out` left alone, if there is no word `i`.
    bool getArgument(unsigned i, std::string & out) const;

    /// True if the option was given, with or without a value.  Names have no leading `-`: `--x` is "-x".
    bool hasOption(tav_istr name) const;
    /// False, with `out` left alone, if the option was not given.
    bool getOption(tav_istr name, std::string & out) const;
    /// The value, empty if the option was not given.
    std::string option(tav_istr name) const;
    /// The value, or `fallback` if the option was not given.
    std::string option(tav_istr name, std::string fallback) const;
    /// The same as option.
    std::string operator()(tav_istr name) const;
    /// The same as option.
    std::string operator()(tav_istr name, std::string fallback) const;

private:
    struct Impl;
    std::unique_ptr<Impl> impl_;
};

/// A source of serial numbers.  One object may be used by many threads.
class TAV_API tavIdGenerator {
public:
    /// The first number will be `start + 1`.
    explicit tavIdGenerator(long long start);

    long long nextSno();

    /// The next number of the process: 1, 2, 3, ...
    static long long globalNextSno();
    /// Lets the process's numbers start at 1 again.
    static void finalize();

private:
    tavMutex mutex_;
    long long last_;
};

/// A marker that an application may put around a scope; it does nothing in this build.
class TAV_API tavMemLeakCheck {
public:
    tavMemLeakCheck();
    ~tavMemLeakCheck();

    static void enter();
    static void leave();
};

#endif
