#include "tools/file_output.h"

#include "tools/descriptor.h"
#include "tools/failure.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstdlib>

namespace tav {
namespace tool {

namespace {

/// The mark stands within these bytes.
constexpr std::size_t markWithin = 1024;

/// 0, or the error.
int writeAll(int fd, std::string_view text) {
    while (!text.empty()) {
        ssize_t const n = ::write(fd, text.data(), text.size());
        if (n >= 0) {
            text.remove_prefix(static_cast<std::size_t>(n));
        } else if (errno != EINTR) {
            return errno;
        }
    }
    return 0;
}

bool isMarked(std::string const & path, std::string_view mark) {
    Descriptor const file(::open(path.c_str(), O_RDONLY | O_CLOEXEC));
    if (file.get() < 0) {
        throw systemFailure(path, "can't open", errno);
    }
    std::array<char, markWithin> front{};
    std::size_t size = 0;
    while (size < front.size()) {
        ssize_t const n = ::read(file.get(), front.data() + size, front.size() - size);
        if (n < 0 && errno == EINTR) {
            continue;
        }
        if (n < 0) {
            throw systemFailure(path, "can't read", errno);
        }
        if (n == 0) {
            break;
        }
        size += static_cast<std::size_t>(n);
    }
    return size == 0 || std::string_view(front.data(), size).find(mark) != std::string_view::npos;
}

void writeInto(std::string const & path, std::string_view text) {
    Descriptor file(::open(path.c_str(), O_WRONLY | O_CLOEXEC));
    if (file.get() < 0) {
        throw systemFailure(path, "can't open", errno);
    }
    int error = writeAll(file.get(), text);
    error = error == 0 ? file.close() : error;
    if (error != 0) {
        throw systemFailure(path, "can't write", error);
    }
}

/// The file that a link leads to.
std::string behindLinks(std::string const & path) {
    char * const real = ::realpath(path.c_str(), nullptr);
    std::string const result = real == nullptr ? path : real;
    std::free(real);
    return result;
}

void replace(std::string const & path, std::string_view text, mode_t mode) {
    std::string temporary = path + ".XXXXXX";
    Descriptor file(::mkostemp(temporary.data(), O_CLOEXEC));
    if (file.get() < 0) {
        throw systemFailure(path, "can't write", errno);
    }
    int error = writeAll(file.get(), text);
    error = error == 0 && ::fchmod(file.get(), mode) != 0 ? errno : error;
    error = error == 0 && ::fsync(file.get()) != 0 ? errno : error;
    int const closed = file.close();
    error = error == 0 ? closed : error;
    error = error == 0 && ::rename(temporary.c_str(), path.c_str()) != 0 ? errno : error;
    if (error != 0) {
        ::unlink(temporary.c_str());
        throw systemFailure(path, "can't write", error);
    }
}

/// The mode of a new file.
mode_t usualMode() {
    mode_t const mask = ::umask(0);
    ::umask(mask);
    return 0666 & ~mask;
}

} // namespace

void checkFile(std::string const & path, std::string_view mark, bool force) {
    struct stat there {};
    if (::stat(path.c_str(), &there) != 0) {
        std::size_t const slash = path.rfind('/');
        std::string const folder = slash == std::string::npos ? "." : path.substr(0, slash + 1);
        if (errno != ENOENT || ::access(folder.c_str(), W_OK) != 0) {
            throw systemFailure(path, "can't write", errno);
        }
        return;
    }
    if (S_ISDIR(there.st_mode)) {
        throw systemFailure(path, "can't write", EISDIR);
    }
    if (S_ISREG(there.st_mode) && !force && !isMarked(path, mark)) {
        throw Failure(exitUse, path + ": is there, and was not generated: --force replaces it");
    }
}

void writeFile(std::string const & path, std::string_view text, std::string_view mark, bool force) {
    checkFile(path, mark, force);
    struct stat there {};
    if (::stat(path.c_str(), &there) != 0) {
        replace(path, text, usualMode());
        return;
    }
    if (!S_ISREG(there.st_mode)) {
        writeInto(path, text);
        return;
    }
    replace(behindLinks(path), text, there.st_mode & 07777);
}

} // namespace tool
} // namespace tav
