#ifndef TAV_TOOLS_INPUT_H
#define TAV_TOOLS_INPUT_H

#include <cstddef>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace tav {
namespace tool {

/// How bytes stand in an input.  `automatic` takes hexadecimal digits with blanks, colons, commas and 0x for
/// hexadecimal, also where a few other letters are among them, what else looks like base64 for base64, and
/// all other input as it is; the first 4 kB decide, or what of them is there.
enum class Form { automatic, raw, hex, base64 };

/// The names of the forms, as an option takes them.
std::map<std::string, Form> const & formNames();

/// An open file or the standard input, read in pieces.
class InputFile {
public:
    /// "-" is the standard input, which can be taken once.  Fails if the file can't be opened, or is a
    /// folder.
    explicit InputFile(std::string const & path);
    /// A text that was given on the command line, where it was called `name`.
    InputFile(std::string name, std::string text);
    ~InputFile();
    InputFile(InputFile const &) = delete;
    InputFile & operator=(InputFile const &) = delete;

    /// The path, or "<stdin>".
    std::string const & name() const { return name_; }
    /// The bytes of a plain file; 0 of all others.
    unsigned long long size() const { return size_; }
    /// Up to `n` bytes; none at the end alone.
    std::size_t read(char * to, std::size_t n);
    /// Whether reading would not wait.
    bool isReady() const;

    /// Is called with the descriptor whenever a reader is about to wait for more, so that what was written so
    /// far can go out, or something else can be done until there is more.
    static void whenWaiting(std::function<void(int)> call);

private:
    std::string name_;
    std::string text_;
    std::size_t at_ = 0;
    int fd_ = -1;
    unsigned long long size_ = 0;
};

/// The whole of a file; fails above `limit` bytes.
std::string readWhole(std::string const & path, std::string & name, std::size_t limit);

/// Bytes in any form, decoded as they are read, in memory that does not grow with the input.
class ByteReader {
public:
    ByteReader(std::string const & path, Form form);
    /// Of a text that was given on the command line, where it was called `name`.
    ByteReader(std::string const & name, std::string const & text, Form form);

    std::string const & name() const { return name_; }

    /// Up to `n` bytes, fewer at the end alone.  Fails on what is not of the form, with line and column.
    std::size_t read(char * to, std::size_t n);
    /// As read, but what is there is enough: fewer than `n` bytes also where a stream has no more so far.
    std::size_t readSome(char * to, std::size_t n);
    /// Whether there is more at hand, or the end.
    bool isReady() const;

    /// The form, which is known once something has been read, and whether it was guessed.
    Form form() const { return form_; }
    bool guessed() const { return guessed_; }

    /// What was read so far of the file, in its own form, and its size: for progress.
    unsigned long long consumed() const { return consumed_; }
    unsigned long long size() const { return file_ == nullptr ? text_.size() : file_->size(); }

private:
    bool fill();
    void guessForm();
    bool nextByte(char & to);
    bool nextHex(char & to);
    bool nextBase64(char & to);
    /// The next byte that is no blank; -1 at the end.
    int nextDigit();
    [[noreturn]] void refuse(std::string const & what);

    std::unique_ptr<InputFile> file_;
    std::string name_;
    Form form_;
    std::string text_;
    std::size_t at_ = 0;
    unsigned long long consumed_ = 0;
    bool ended_ = false;
    bool guessed_ = false;
    unsigned long long lines_ = 0;
    /// The line that is being read, as far as it was, at most its last bytes.
    std::string line_;
    unsigned long long cut_ = 0;
    /// Of base64: the bits that are over, and the characters of the group.
    unsigned bits_ = 0;
    unsigned count_ = 0;
    bool padded_ = false;
};

/// The rest of a reader, at most `limit` bytes; fails beyond.  `each` is called now and then on the way.
std::string readRest(ByteReader & in, std::size_t limit, std::function<void()> const & each = {});

} // namespace tool
} // namespace tav

#endif
