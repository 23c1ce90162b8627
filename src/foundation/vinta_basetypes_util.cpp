#include "tav/vinta/vinta_basetypes_util.h"

#include "foundation/platform.h"
#include "foundation/views.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <cstring>
#include <fstream>
#include <functional>
#include <map>
#include <mutex>
#include <string_view>
#include <thread>
#include <utility>
#include <vector>

namespace {

using tav::detail::bytesOf;
using tav::detail::viewOf;

bool putFile(std::string const & path, tav_istr data, std::ios::openmode mode) {
    std::ofstream file(path, std::ios::out | std::ios::binary | mode);
    if (!data.empty()) {
        file.write(data.data(), data.size());
    }
    file.flush();
    return file.good();
}

/// The four bytes of a character above 0xFFFF.
void appendLong(tavString & out, unsigned point) {
    auto const put = [&out](unsigned byte) { out << static_cast<char>(byte); };
    put(0xF0 | point >> 18);
    put(0x80 | (point >> 12 & 0x3F));
    put(0x80 | (point >> 6 & 0x3F));
    put(0x80 | (point & 0x3F));
}

/// UTF-8 of a file name.  A surrogate pair makes one character, a surrogate alone its own three bytes, and
/// what is no character at all its low 16 bits.
tavString encodePath(std::wstring const & path) {
    tavString out;
    for (std::size_t i = 0; i < path.size(); ++i) {
        auto point = static_cast<unsigned>(path[i]);
        if (point > 0x10FFFF) {
            point &= 0xFFFF;
        }
        auto const next = i + 1 < path.size() ? static_cast<unsigned>(path[i + 1]) : 0u;
        if (point >= 0xD800 && point < 0xDC00 && next >= 0xDC00 && next < 0xE000) {
            point = 0x10000 + ((point - 0xD800) << 10) + (next - 0xDC00);
            ++i;
        }
        if (point > 0xFFFF) {
            appendLong(out, point);
        } else {
            out.write(static_cast<wchar_t>(point));
        }
    }
    return out;
}

} // namespace

tav_istr tavUtil::getFileName(char const * path) {
    if (path == nullptr) {
        return tav_istr();
    }
    std::string_view const text(path);
    std::size_t begin = text.size();
    while (begin > 0 && text[begin - 1] != '/' && text[begin - 1] != '\\') {
        --begin;
    }
    return viewOf(text.substr(begin));
}

tav_istr tavUtil::getFuncName(char const * name) {
    if (name == nullptr) {
        return tav_istr();
    }
    std::string_view const text(name);
    int components = 0;
    std::size_t i = text.size();
    while (i > 0) {
        char const c = text[i - 1];
        if (c == ' ' && components > 0) {
            return viewOf(text.substr(i));
        }
        if (c == ':' && i > 1 && text[i - 2] == ':') {
            if (++components == 2) {
                return viewOf(text.substr(i));
            }
            --i;
        }
        --i;
    }
    return viewOf(text);
}

std::string tavUtil::readFile(std::string path) {
    std::string content;
    std::ifstream file(path, std::ios::in | std::ios::binary);
    std::array<char, 16384> block;
    while (file) {
        file.read(block.data(), static_cast<std::streamsize>(block.size()));
        content.append(block.data(), static_cast<std::size_t>(file.gcount()));
    }
    return content;
}

bool tavUtil::writeFile(std::string path, tav_istr data) {
    return putFile(path, data, std::ios::trunc);
}

bool tavUtil::appendFile(std::string path, tav_istr data) {
    return putFile(path, data, std::ios::app);
}

bool tavUtil::moveFile(std::string from, std::string to) {
    return tav::platform::moveFile(from.c_str(), to.c_str());
}

bool tavUtil::moveFile(std::wstring from, std::wstring to) {
    return tav::platform::moveFile(encodePath(from).data(), encodePath(to).data());
}

void tavUtil::arraycopy(tav_istr src, tavBytes & dst, unsigned offset) {
    if (src.empty() || offset >= dst.maxSize()) {
        return;
    }
    std::memmove(dst.buffer() + offset, src.data(), std::min(src.size(), dst.maxSize() - offset));
}

int tavUtil::byte2int(unsigned char b) {
    return b;
}

unsigned char tavUtil::int2byte(int i) {
    return static_cast<unsigned char>(i & 0xFF);
}

int tavUtil::bytes2int(unsigned char b1, unsigned char b2) {
    return b1 << 8 | b2;
}

int tavUtil::bytes2int(unsigned char b1, unsigned char b2, unsigned char b3, unsigned char b4) {
    return static_cast<int>(static_cast<unsigned>(b1) << 24 | static_cast<unsigned>(b2) << 16 |
                            static_cast<unsigned>(b3) << 8 | b4);
}

int tavUtil::bytes2int(tav_istr v, unsigned offset) {
    if (v.empty() || offset >= v.size()) {
        return 0;
    }
    unsigned const count = std::min(4u, v.size() - offset);
    unsigned value = 0;
    for (unsigned i = 0; i < count; ++i) {
        value = value << 8 | static_cast<unsigned char>(v.data()[offset + i]);
    }
    return static_cast<int>(value);
}

void tavUtil::int2bytes(int i, tavBytes & dst, unsigned offset) {
    auto const value = static_cast<unsigned>(i);
    unsigned char * const out = dst.buffer() + offset;
    out[0] = static_cast<unsigned char>(value >> 24);
    out[1] = static_cast<unsigned char>(value >> 16 & 0xFF);
    out[2] = static_cast<unsigned char>(value >> 8 & 0xFF);
    out[3] = static_cast<unsigned char>(value & 0xFF);
}

struct tavCmdArgs::Impl {
    Impl(int count, char const * const * words) : argc(count), argv(words) {
        take();
        bool inComment = false;
        while (char const * const word = take()) {
            parse(word, inComment);
        }
    }

    auto find(tav_istr name) const { return options.find(bytesOf(name)); }

    /// What is left to scan, and the cursor there.
    int argc;
    char const * const * argv;
    std::map<std::string, std::string, std::less<>> options;
    std::vector<std::string> arguments;

private:
    /// The word at the cursor, null at the end.
    char const * peek() const { return argc > 0 ? *argv : nullptr; }

    /// The same, and goes on behind it.
    char const * take() {
        char const * const word = peek();
        if (word != nullptr) {
            --argc;
            ++argv;
        }
        return word;
    }

    void parse(std::string_view word, bool & inComment) {
        if (inComment) {
            bool const closesAhead = word.size() >= 3 && word.substr(0, 2) == "*/";
            bool const closesBehind = word.size() >= 2 && word.substr(word.size() - 2) == "*/";
            inComment = !closesAhead && !closesBehind;
            if (!closesAhead) {
                return;
            }
        }
        if (word.substr(0, 2) == "/*") {
            inComment = true;
        } else if (word.empty() || word.front() != '-') {
            arguments.emplace_back(word);
        } else {
            std::string & value = options[std::string(word.substr(1))];
            char const * const following = peek();
            value = following != nullptr && *following != '-' ? take() : "";
        }
    }
};

tavCmdArgs::tavCmdArgs(int argc, char const ** argv) : impl_(std::make_unique<Impl>(argc, argv)) {}

tavCmdArgs::tavCmdArgs(int argc, char ** argv) : impl_(std::make_unique<Impl>(argc, argv)) {}

tavCmdArgs::~tavCmdArgs() = default;

unsigned tavCmdArgs::numofArguments() const {
    return static_cast<unsigned>(impl_->arguments.size());
}

std::string const & tavCmdArgs::argument(unsigned i) const {
    return impl_->arguments[i];
}

std::string tavCmdArgs::operator[](unsigned i) const {
    return argument(i);
}

bool tavCmdArgs::getArgument(unsigned i, std::string & out) const {
    if (i >= impl_->arguments.size()) {
        return false;
    }
    out = impl_->arguments[i];
    return true;
}

bool tavCmdArgs::hasOption(tav_istr name) const {
    return impl_->find(name) != impl_->options.end();
}

bool tavCmdArgs::getOption(tav_istr name, std::string & out) const {
    auto const found = impl_->find(name);
    if (found == impl_->options.end()) {
        return false;
    }
    out = found->second;
    return true;
}

std::string tavCmdArgs::option(tav_istr name) const {
    return option(name, std::string());
}

std::string tavCmdArgs::option(tav_istr name, std::string fallback) const {
    getOption(name, fallback);
    return fallback;
}

std::string tavCmdArgs::operator()(tav_istr name) const {
    return option(name);
}

std::string tavCmdArgs::operator()(tav_istr name, std::string fallback) const {
    return option(name, std::move(fallback));
}

namespace {

/// The process's own generator, made at first use.
struct GlobalGenerator {
    /// Held around a fork, so that the child finds it free.
    GlobalGenerator() {
        tav::platform::aroundFork([] { get().mutex.lock(); }, [] { get().mutex.unlock(); },
                                  [] { get().mutex.unlock(); });
    }

    std::mutex mutex;
    std::unique_ptr<tavIdGenerator> generator;

    /// Never destroyed, as numbers may be asked for while the process ends.
    static GlobalGenerator & get() {
        static GlobalGenerator * const the = new GlobalGenerator;
        return *the;
    }
};

} // namespace

tavIdGenerator::tavIdGenerator(long long start) : last_(start) {}

long long tavIdGenerator::nextSno() {
    std::lock_guard<tavMutex> const guard(mutex_);
    last_ = static_cast<long long>(static_cast<unsigned long long>(last_) + 1);
    return last_;
}

long long tavIdGenerator::globalNextSno() {
    GlobalGenerator & global = GlobalGenerator::get();
    std::lock_guard<std::mutex> const guard(global.mutex);
    if (!global.generator) {
        global.generator = std::make_unique<tavIdGenerator>(0);
    }
    return global.generator->nextSno();
}

void tavIdGenerator::finalize() {
    GlobalGenerator & global = GlobalGenerator::get();
    std::lock_guard<std::mutex> const guard(global.mutex);
    global.generator.reset();
}

tavMemLeakCheck::tavMemLeakCheck() {}

tavMemLeakCheck::~tavMemLeakCheck() {}

void tavMemLeakCheck::enter() {}

void tavMemLeakCheck::leave() {}

extern "C" {

void tav_init(void) {}

void tav_fini(void) {}

void tav_sleep(unsigned ms) {
    std::this_thread::sleep_for(std::chrono::milliseconds(ms));
}

bool tav_kbhit(void) {
    return tav::platform::keyPressed();
}

unsigned tav_process_id(void) {
    return tav::platform::processId();
}
}
