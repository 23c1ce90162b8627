#include "tav/vinta/vinta_log.h"

#include "foundation/build_stamp.h"
#include "foundation/guarded.h"
#include "foundation/platform.h"
#include "foundation/report.h"
#include "foundation/time_text.h"
#include "foundation/views.h"
#include "log/log_file.h"
#include "runtime/thread_manager.h"
#include "tav/vinta/vinta_basetypes_codec.h"
#include "tav/vinta/vinta_basetypes_failures.h"
#include "tav/vinta/vinta_basetypes_time.h"
#include "tav/vinta/vinta_basetypes_util.h"
#include "tav/vinta/vinta_mt_thread.h"
#include "tav/vinta/vinta_pml_tree.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <charconv>
#include <climits>
#include <cstdint>
#include <forward_list>
#include <functional>
#include <iostream>
#include <map>
#include <memory>
#include <new>
#include <stdexcept>
#include <string>
#include <string_view>
#include <system_error>
#include <type_traits>

using tav::detail::bytesOf;

namespace {

/// The names of the levels, both ways: a null view for a level without a name, UNKNOWN for an unknown name.
tav::vinta::EnumValues const & levelNames() {
    // Never destroyed, as threads may log while the process ends.
    static tav::vinta::EnumValues const * const table = [] {
        auto names = std::make_unique<tav::vinta::EnumValues>();
        names->add(tavLogger::ALL, "ALL");
        names->add(tavLogger::TRACE, "TRACE");
        names->add(tavLogger::VERBOSE, "VERBOSE");
        names->add(tavLogger::DEBUG, "DEBUG");
        names->add(tavLogger::INFO, "INFO");
        names->add(tavLogger::WARN, "WARN");
        names->add(tavLogger::ERROR, "ERROR");
        names->add(tavLogger::ASSERT, "ASSERT");
        names->add(tavLogger::OUT, "OUT");
        names->add(tavLogger::NONE, "NONE");
        names->add(tavLogger::UNKNOWN, "UNKNOWN");
        return names.release();
    }();
    return *table;
}

std::string_view nameOf(int level) {
    return bytesOf(levelNames().getName(level));
}

void appendNumber(std::string & out, long long value) {
    char digits[24];
    out.append(digits, std::to_chars(digits, digits + sizeof digits, value).ptr);
}

/// The thresholds.  A tag that was ever set keeps its node for the life of the process, so a node that a
/// reader holds never goes, and forgetting a tag only marks it.  Readers take no lock unless they meet a rule
/// being applied: `version_` is odd meanwhile, and they see each rule as a whole or not at all.
class Levels {
public:
    bool passes(std::string_view tag, int level) const {
        if (level < lowest_.load(std::memory_order_acquire)) {
            return false;
        }
        unsigned const version = version_.load(std::memory_order_acquire);
        int const threshold = thresholdOf(tag);
        if (version % 2 == 0 && version_.load(std::memory_order_relaxed) == version) {
            return level >= threshold;
        }
        tav::detail::Guard const guard(mutex_);
        return level >= thresholdOf(tag);
    }

    void set(std::string_view tag, int level) {
        tav::detail::Guard const guard(mutex_);
        unsigned const version = version_.load(std::memory_order_relaxed);
        // Makes room first: from here on nothing may fail.
        Node * const own = tag == "clear" || tag == "all" || tag == "default" ? nullptr : &node(tag);
        version_.store(version + 1, std::memory_order_relaxed);
        if (own != nullptr) {
            int const former = own->level.load(std::memory_order_relaxed);
            own->level.store(level, std::memory_order_release);
            followLowest(former, level);
        } else {
            if (tag != "default") {
                int const others = tag == "clear" ? unset : level;
                forEach([others](Node & node) {
                    if (node.level.load(std::memory_order_relaxed) != unset) {
                        node.level.store(others, std::memory_order_release);
                    }
                });
            }
            default_.store(level, std::memory_order_release);
            updateLowest();
        }
        version_.store(version + 2, std::memory_order_release);
    }

    /// Around a fork, so that the child finds each rule whole.
    void lock() const TAV_AROUND_FORK { mutex_.lock(); }
    void unlock() const TAV_AROUND_FORK { mutex_.unlock(); }

    /// Each threshold as name and level: the default first, then the tags in ascending order.
    std::string str() const {
        tav::detail::Guard const guard(mutex_);
        std::map<std::string_view, int> levels;
        forEach([&levels](Node & node) {
            int const level = node.level.load(std::memory_order_relaxed);
            if (level != unset) {
                levels.emplace(node.tag, level);
            }
        });
        std::string out;
        auto const append = [&out](std::string_view tag, int level) {
            out.append(tag).append(1, '(').append(nameOf(level)).append(1, ')');
        };
        append("default", default_.load(std::memory_order_relaxed));
        for (auto const & [tag, level] : levels) {
            append(tag, level);
        }
        return out;
    }

private:
    struct Node {
        Node(std::string_view tagged, Node * following) : tag(tagged), next(following) {}

        std::string const tag;
        std::atomic<int> level{unset};
        Node * const next;
    };

    static constexpr int unset = INT_MIN;
    static constexpr std::size_t bucketCount = 64;

    static std::size_t bucketOf(std::string_view tag) {
        std::uint32_t hash = 2166136261u;
        for (char const c : tag) {
            hash = (hash ^ static_cast<unsigned char>(c)) * 16777619u;
        }
        return (hash ^ (hash >> 16)) % bucketCount;
    }

    int thresholdOf(std::string_view tag) const {
        Node const * const node = find(tag);
        int const own = node != nullptr ? node->level.load(std::memory_order_acquire) : unset;
        return own != unset ? own : default_.load(std::memory_order_acquire);
    }

    Node * find(std::string_view tag) const {
        Node * node = buckets_[bucketOf(tag)].load(std::memory_order_acquire);
        while (node != nullptr && node->tag != tag) {
            node = node->next;
        }
        return node;
    }

    Node & node(std::string_view tag) TAV_REQUIRES(mutex_) {
        if (Node * const known = find(tag)) {
            return *known;
        }
        std::atomic<Node *> & bucket = buckets_[bucketOf(tag)];
        // Owned by the table for good, see above.
        Node * const made = new Node(tag, bucket.load(std::memory_order_relaxed));
        bucket.store(made, std::memory_order_release);
        return *made;
    }

    template <class Visit>
    void forEach(Visit visit) const {
        for (std::atomic<Node *> const & bucket : buckets_) {
            for (Node * at = bucket.load(std::memory_order_relaxed); at != nullptr; at = at->next) {
                visit(*at);
            }
        }
    }

    /// A tag has another level: all others are looked at only if it may have been the one with the lowest.
    void followLowest(int former, int level) TAV_REQUIRES(mutex_) {
        int const lowest = lowest_.load(std::memory_order_relaxed);
        if (level <= lowest) {
            lowest_.store(level, std::memory_order_release);
        } else if (former == lowest) {
            updateLowest();
        }
    }

    void updateLowest() TAV_REQUIRES(mutex_) {
        int lowest = default_.load(std::memory_order_relaxed);
        forEach([&lowest](Node & node) {
            int const level = node.level.load(std::memory_order_relaxed);
            lowest = level != unset && level < lowest ? level : lowest;
        });
        lowest_.store(lowest, std::memory_order_release);
    }

    /// At most the lowest of all thresholds: what lies below is refused without a look-up.
    std::atomic<int> lowest_{tavLogger::INFO};
    std::atomic<int> default_{tavLogger::INFO};
    std::array<std::atomic<Node *>, bucketCount> buckets_{};
    std::atomic<unsigned> version_{0};
    tav::detail::Mutex mutex_;
};

/// Made before any code runs, and never destroyed.
Levels thresholds;
static_assert(std::is_trivially_destructible<Levels>::value, "threads may log while the process ends");

/// Counts the forks that led to this process, so that a thread knows when its ids are out of date.
std::atomic<unsigned> forkCount{0};

[[maybe_unused]] bool const forksAreCounted =
    tav::platform::aroundFork(nullptr, nullptr, [] { forkCount.fetch_add(1, std::memory_order_relaxed); });

unsigned processGeneration() {
    return forkCount.load(std::memory_order_relaxed);
}

/// Lines that were lost since the log last told of them.
std::atomic<unsigned> lostLines{0};

/// Keeps lines of several threads on the console apart.
tav::detail::Mutex consoleMutex;

/// Makes a mutex anew that some thread of the parent may have held at the fork.  The former one ends by the
/// reuse of its memory: a mutex that is held may not be destroyed, and owns nothing beside that memory.
template <class Mutex>
void renew(Mutex & mutex) {
    new (&mutex) Mutex;
}

/// "{", process, ".", thread, "}" and the build stamp, as they stand in each line of the calling thread.
std::string_view idsAndStamp() {
    // Plain memory, so that a thread may log until its very end.
    struct Cache {
        unsigned generation;
        unsigned size;
        char text[24 + sizeof TAV_BUILD_STAMP_UNDERSCORE];
    };
    thread_local Cache cache{};
    unsigned const generation = processGeneration();
    if (cache.size == 0 || cache.generation != generation) {
        char * at = cache.text;
        *at++ = '{';
        at = std::to_chars(at, at + 10, tav_get_pid()).ptr;
        *at++ = '.';
        at = std::to_chars(at, at + 10, tav_get_tid()).ptr;
        *at++ = '}';
        for (char const * c = TAV_BUILD_STAMP_UNDERSCORE; *c != '\0'; ++c) {
            *at++ = *c;
        }
        cache.generation = generation;
        cache.size = static_cast<unsigned>(at - cache.text);
    }
    return std::string_view(cache.text, cache.size);
}

std::string makeBanner(std::string_view name, std::string_view version, int maxSize) {
    std::string const rule(78, '=');
    std::string out = "\n";
    out.append(rule).append("\n");
    out.append(name).append(" version ").append(version).append("\n");
    out.append("TAV(Tandem Application Vehicle) " TAV_BUILD_STAMP "(release)\n");
    out.append("This software comes without any warranty.\n");
    out.append("Compiled on: " TAV_BUILD_DATE " " TAV_BUILD_CLOCK "\n");
    out.append("Log started: ").append(bytesOf(tavTime::now().str())).append("\n");
    out.append("Log file max size: ");
    appendNumber(out, maxSize);
    out.append("\n").append(rule).append("\n");
    return out;
}

/// What tells of lines that the file could not take; nothing if such a line may not be told.
std::string lostRecord(unsigned lines, std::error_code const & why);

} // namespace

namespace tav {

namespace TAV_IMPL_NAMESPACE {

/// The state behind tavLogger.  There is one, made at first use and put back to its defaults by `finalize`;
/// its own memory stays, as any thread may log at any time.
class LoggerImpl {
public:
    struct LogRecord {
        int level;
        std::string text;
        /// The banner of a file that has just been opened.
        bool banner = false;
    };
    typedef tavMsgQueueThread<LogRecord> Writer;

    static LoggerImpl & get() {
        static LoggerImpl * const the = new LoggerImpl();
        return *the;
    }

    /// Hold what a record needs around a fork, so that the child finds it whole.
    void beforeFork() const TAV_AROUND_FORK {
        thresholds.lock();
        sinksMutex_.lock();
        writerMutex_.lock();
    }

    void afterForkInParent() const TAV_AROUND_FORK {
        writerMutex_.unlock();
        sinksMutex_.unlock();
        thresholds.unlock();
    }

    /// The background thread is not here, so records go straight to the sinks.  It is left behind with what
    /// its queue holds, which the parent delivers.
    void afterForkInChild() TAV_AROUND_FORK {
        if (writer_) {
            try {
                former_.push_front(std::move(writer_));
            } catch (std::bad_alloc const &) {
                new (&writer_) tavSharedPtr<Writer>;
            }
        }
        hasWriter_.store(false, std::memory_order_release);
        afterForkInParent();
        renew(mutex_);
        logFile_.afterFork();
        renew(consoleMutex);
    }

    void open(tav_istr path, tav_istr name, tav_istr levelText, tavLogger::Callback callback,
              tav_istr version, int maxSize, bool console, int vipLevel) {
        tav::detail::Guard const guard(mutex_);
        std::string banner = makeBanner(bytesOf(name), bytesOf(version), maxSize);
        {
            auto file = fileOf(path, banner, maxSize);
            tav::detail::Guard const sinksGuard(sinksMutex_);
            file_.swap(file);
        }
        logFile_.begin();
        post(LogRecord{tavLogger::INFO, std::move(banner), true});
        tavLogger::setLogLevel(levelText);
        setSwitches(callback, console, vipLevel);
        closeWriter();
        // A callback on the background thread may fork: in the child, that thread has no record to handle.
        tavSharedPtr<Writer> const writer(
            new Writer("logger", -1, [this, born = processGeneration()](LogRecord const & record) {
                if (born == processGeneration()) {
                    handle(record);
                }
            }));
        setWriter(writer);
        try {
            writer->start();
        } catch (...) {
            setWriter(tavSharedPtr<Writer>());
            throw;
        }
    }

    void close() {
        tav::detail::Guard const guard(mutex_);
        closeWriter();
        tellLost();
    }

    void flush() const {
        if (tavSharedPtr<Writer> const to = writer()) {
            to->flush();
        }
    }

    void finalize() {
        tav::detail::Guard const guard(mutex_);
        closeWriter();
        tellLost();
        setSwitches(nullptr, false, tavLogger::WARN);
        thresholds.set("clear", tavLogger::INFO);
        logFile_.clear();
        tav::detail::Guard const sinksGuard(sinksMutex_);
        file_.reset();
    }

    void setCallback(tavLogger::Callback callback) {
        tav::detail::Guard const guard(sinksMutex_);
        callback_ = callback;
    }

    void setSwitches(tavLogger::Callback callback, bool console, int vipLevel) {
        setCallback(callback);
        console_.store(console, std::memory_order_relaxed);
        vipLevel_.store(vipLevel, std::memory_order_relaxed);
    }

    void post(LogRecord record) {
        tavSharedPtr<Writer> const to = writer();
        if (!to) {
            handle(record);
            return;
        }
        bool const urgent = record.level >= vipLevel_.load(std::memory_order_relaxed);
        to->put(std::move(record));
        if (urgent) {
            // Does nothing on the writer's own thread, which can't wait for itself.
            to->flush();
        }
    }

    tavString str() const {
        std::string out = "(";
        out += thresholds.str();
        out += console_.load(std::memory_order_relaxed) ? "__console(1)__vip(" : "__console(0)__vip(";
        appendNumber(out, vipLevel_.load(std::memory_order_relaxed));
        out += "))";
        return tavString(out);
    }

private:
    typedef tav::detail::LogFile::Target File;

    /// Null without a path.
    static std::shared_ptr<File const> fileOf(tav_istr path, std::string const & banner, int maxSize) {
        std::string_view const bytes = bytesOf(path);
        std::string const name(bytes.substr(0, bytes.find('\0')));
        if (name.empty()) {
            return nullptr;
        }
        return std::make_shared<File const>(File{name, name + ".bak", banner, maxSize});
    }

    LoggerImpl() {
        tav::platform::aroundFork([] { get().beforeFork(); }, [] { get().afterForkInParent(); },
                                  [] { get().afterForkInChild(); });
    }

    tavSharedPtr<Writer> writer() const {
        if (!hasWriter_.load(std::memory_order_acquire)) {
            return tavSharedPtr<Writer>();
        }
        tav::detail::Guard const guard(writerMutex_);
        return writer_;
    }

    void setWriter(tavSharedPtr<Writer> writer) {
        // The former one ends behind the lock: it may still log.
        tav::detail::Guard const guard(writerMutex_);
        writer_.swap(writer);
        hasWriter_.store(static_cast<bool>(writer_), std::memory_order_release);
    }

    /// Ends the background thread, if there is one.  What it logs while it closes still goes through it; what
    /// is left then is delivered with its end.
    void closeWriter() TAV_REQUIRES(mutex_) {
        if (tavSharedPtr<Writer> const former = writer()) {
            former->close();
            setWriter(tavSharedPtr<Writer>());
        }
    }

    /// A last try to have the file tell what it lacks.
    void tellLost() TAV_REQUIRES(mutex_) {
        std::shared_ptr<File const> file;
        {
            tav::detail::Guard const guard(sinksMutex_);
            file = file_;
        }
        if (file) {
            try {
                logFile_.tellLost(file, &lostRecord);
            } catch (std::bad_alloc const &) {
                // It is told ahead of the next line.
            }
        }
    }

    void handle(LogRecord const & record) {
        tavLogger::Callback callback = nullptr;
        std::shared_ptr<File const> file;
        {
            tav::detail::Guard const guard(sinksMutex_);
            callback = callback_;
            file = file_;
        }
        if (file) {
            try {
                record.banner ? logFile_.writeBanner(file) : logFile_.write(file, record.text, &lostRecord);
            } catch (std::bad_alloc const &) {
                if (!record.banner) {
                    tav::detail::countLostLine();
                }
            }
        }
        if (callback != nullptr) {
            callback(record.level, record.text.c_str());
        }
    }

    /// Held through open, close and finalize; recursive, as a callback may run within.
    tav::detail::RecursiveMutex mutex_;

    tav::detail::Mutex sinksMutex_;
    tavLogger::Callback callback_ TAV_GUARDED_BY(sinksMutex_) = nullptr;
    std::shared_ptr<File const> file_ TAV_GUARDED_BY(sinksMutex_);

    tav::detail::LogFile logFile_;

    tav::detail::Mutex writerMutex_;
    tavSharedPtr<Writer> writer_ TAV_GUARDED_BY(writerMutex_);
    /// Spares the lock where there is none.
    std::atomic<bool> hasWriter_{false};

    /// Those of the processes that forked this one.
    std::forward_list<tavSharedPtr<Writer>> former_;

    std::atomic<bool> console_{false};
    std::atomic<int> vipLevel_{tavLogger::WARN};
};

} // namespace TAV_IMPL_NAMESPACE

namespace impl = TAV_IMPL_NAMESPACE;

} // namespace tav

namespace {

/// The parts and the end in one piece, with room for so many bytes more.
template <std::size_t N>
std::string joined(std::array<std::string_view, N> const & parts, std::string_view end, std::size_t more) {
    std::size_t size = end.size();
    for (std::string_view const part : parts) {
        size += part.size();
    }
    std::string out;
    out.reserve(size + more);
    out.resize(size);
    char * at = out.data();
    for (std::string_view const part : parts) {
        at = std::copy(part.begin(), part.end(), at);
    }
    std::copy(end.begin(), end.end(), at);
    return out;
}

/// What stands ahead of the text of a record, with room for so many bytes of that.
std::string headOfLine(tav_istr tag, tavLogger::LogLevel level, std::size_t size, char const * file, int line,
                       char const * func) {
    char time[tav::detail::timeTextSize];
    char digits[24];
    std::size_t const digitCount =
        static_cast<std::size_t>(std::to_chars(digits, digits + sizeof digits, line).ptr - digits);
    std::string const * const thread = tavThreadManager::ownName();
    std::array<std::string_view, 14> const parts{tav::detail::timeText(tavTime::now(), time),
                                                 idsAndStamp(),
                                                 "[",
                                                 nameOf(level),
                                                 "]{",
                                                 thread != nullptr ? std::string_view(*thread) : "main",
                                                 "}[",
                                                 bytesOf(tag),
                                                 "]",
                                                 bytesOf(tavUtil::getFuncName(func)),
                                                 "(",
                                                 bytesOf(tavUtil::getFileName(file)),
                                                 ":",
                                                 std::string_view(digits, digitCount)};
    return joined(parts, ") ", size);
}

/// One record as it stands in the log.
std::string wholeLine(tav_istr tag, tavLogger::LogLevel level, tav_istr text, char const * file, int line,
                      char const * func) {
    std::string out = headOfLine(tag, level, text.size(), file, line, func);
    out.append(bytesOf(text));
    return out;
}

void post(tavLogger::LogLevel level, std::string line) {
    tav::impl::LoggerImpl::get().post({level, std::move(line)});
}

std::string lostRecord(unsigned lines, std::error_code const & why) {
    if (!tavLogger::isLoggable(tavLogger::DEFAULT_TAG(), tavLogger::WARN)) {
        return std::string();
    }
    std::string const text =
        std::to_string(lines) + " log lines lost, as the file could not be written: " + why.message() + "\n";
    return wholeLine(tavLogger::DEFAULT_TAG(), tavLogger::WARN, tav_istr(text), __FILE__, __LINE__,
                     "tavLogger::writeLog");
}

/// Tells of the lines that were lost, if there is memory for that.
void tellLostLines() {
    unsigned const count = lostLines.exchange(0);
    if (count == 0 || !tavLogger::isLoggable(tavLogger::DEFAULT_TAG(), tavLogger::WARN)) {
        return;
    }
    try {
        std::string const text = std::to_string(count) + " log lines lost, as memory was short\n";
        std::string whole = wholeLine(tavLogger::DEFAULT_TAG(), tavLogger::WARN, tav_istr(text), __FILE__,
                                      __LINE__, "tavLogger::writeLog");
        post(tavLogger::WARN, std::move(whole));
    } catch (std::bad_alloc const &) {
        lostLines.fetch_add(count);
    }
}

/// To be called ahead of each record.
void tellLostLinesIfAny() {
    if (lostLines.load(std::memory_order_relaxed) != 0) {
        tellLostLines();
    }
}

void logLine(tavLogger::LogLevel level, tav_istr text, char const * file, int line, char const * func) {
    if (!tavLogger::isLoggable(tavLogger::DEFAULT_TAG(), level)) {
        return;
    }
    std::string whole(bytesOf(text));
    whole += '\n';
    tavLogger::writeLog(tavLogger::DEFAULT_TAG(), level, tav_istr(whole), file, line, func);
}

/// Whether a part of a level text is one of those by which tavLogger::str shows what is no level.
bool isSwitch(std::string_view tag) {
    return tag == "__console" || tag == "__vip";
}

/// Tells who sets the levels what is wrong with the text, as a log that stays empty can't.
void tellBadLevels(tav_istr levels, std::string_view wrong) {
    tav::debugger() << "log levels " << levels << ": " << wrong
                    << "; a level text looks like (default(INFO)net(DEBUG))";
}

/// What stands ahead of each line on the console.
void writePrefix(std::ostream & out) {
    out << tavTime::now().str() << '{' << tav::asHex(tav_get_pid(), 0, true) << '.'
        << tav::asHex(tav_get_tid(), 0, true) << "} --- ";
}

/// Writes to the standard output in one piece and flushes it.  Never throws: it also runs in destructors.
void writeToConsole(std::string const & text) noexcept {
    try {
        tav::detail::Guard const guard(consoleMutex);
        tav::platform::QuietPipes const quiet;
        std::cout.write(text.data(), static_cast<std::streamsize>(text.size()));
        std::cout.flush();
    } catch (...) {
        // A console that can't be written to has nobody to tell.
    }
}

} // namespace

tavLogger::tavLogger() = default;

void tav::detail::countLostLine() noexcept {
    lostLines.fetch_add(1, std::memory_order_relaxed);
}

void tav::detail::writeLine(tav_istr tag, tavLogger::LogLevel level, Site site, BlockText const & text,
                            bool cut) {
    tellLostLinesIfAny();
    std::string_view const end = cut ? cutShort : std::string_view();
    std::string line = headOfLine(tag, level, text.size() + end.size() + 1, site.file,
                                  static_cast<int>(site.line), site.func);
    text.appendTo(line);
    line.append(end).append(1, '\n');
    post(level, std::move(line));
}

tav_istr tavLogger::DEFAULT_TAG() {
    return tav_istr("TAV", 3u);
}

void tavLogger::open(tav_istr path, tav_istr name, tav_istr levels, Callback callback, tav_istr version,
                     int maxSize, bool console, LogLevel vipLevel) {
    tav::impl::LoggerImpl::get().open(path, name, levels, callback, version, maxSize, console, vipLevel);
}

void tavLogger::setup(tav_istr levels, Callback callback, bool console, LogLevel vipLevel) {
    setLogLevel(levels);
    tav::impl::LoggerImpl::get().setSwitches(callback, console, vipLevel);
}

void tavLogger::close() {
    tav::impl::LoggerImpl::get().close();
}

void tavLogger::flush() {
    tav::impl::LoggerImpl::get().flush();
}

void tavLogger::finalize() {
    tav::impl::LoggerImpl::get().finalize();
}

bool tavLogger::isLoggable(tav_istr tag, LogLevel level) {
    return thresholds.passes(bytesOf(tag), level);
}

void tavLogger::setLogLevel(tav_istr levels) {
    // As many as anyone reads.
    constexpr unsigned mostTold = 16;
    tav::pml::Unit unit;
    try {
        unit.decode(levels);
    } catch (std::invalid_argument const &) {
        tellBadLevels(levels, "it is no level text");
        throw;
    }
    std::string wrong;
    if (!unit.value().empty() || (unit.simple() && !unit.name().empty()) || unit.next()) {
        wrong = "only what stands in one pair of brackets counts";
    }
    unsigned unknown = 0;
    for (tavSharedPtr<tav::pml::Unit> const & child : unit) {
        int const level = levelNames().getValue(tav_istr(child->value()));
        if (level == UNKNOWN && child->value() != nameOf(UNKNOWN) && !isSwitch(child->name()) &&
            ++unknown <= mostTold) {
            wrong += wrong.empty() ? "" : "; ";
            wrong.append("there is no level \"").append(child->value()).append("\", so all of ");
            wrong.append(child->name()).append(" passes");
        }
        thresholds.set(child->name(), level);
    }
    if (unknown > mostTold) {
        wrong.append("; the same of ").append(std::to_string(unknown - mostTold)).append(" more");
    }
    if (!wrong.empty()) {
        tellBadLevels(levels, wrong);
    }
}

void tavLogger::setLogLevel(tav_istr tag, LogLevel level) {
    thresholds.set(bytesOf(tag), level);
}

void tavLogger::setLogLevel(LogLevel level) {
    thresholds.set("default", level);
}

void tavLogger::setCallback(Callback callback) {
    tav::impl::LoggerImpl::get().setCallback(callback);
}

void tavLogger::writeLog(tav_istr tag, LogLevel level, tav_istr text, char const * file, int line,
                         char const * func) {
    tellLostLinesIfAny();
    post(level, wholeLine(tag, level, text, file, line, func));
}

tavString tavLogger::str() {
    return tav::impl::LoggerImpl::get().str();
}

std::ostream & operator<<(std::ostream & out, tavLogger const &) {
    return out << tavLogger::str();
}

void tav_log_setup(char const * levels) {
    tavLogger::setup(tav_istr(levels), nullptr, true, tavLogger::WARN);
    logLine(tavLogger::OUT, tavLogger::str(), __FILE__, __LINE__, "tav_log_setup");
}

void tav_log_trace_(char const * text, char const * file, int line, char const * func) {
    logLine(tavLogger::TRACE, text, file, line, func);
}

void tav_log_verbose_(char const * text, char const * file, int line, char const * func) {
    logLine(tavLogger::VERBOSE, text, file, line, func);
}

void tav_log_debug_(char const * text, char const * file, int line, char const * func) {
    logLine(tavLogger::DEBUG, text, file, line, func);
}

void tav_log_info_(char const * text, char const * file, int line, char const * func) {
    logLine(tavLogger::INFO, text, file, line, func);
}

void tav_log_warn_(char const * text, char const * file, int line, char const * func) {
    logLine(tavLogger::WARN, text, file, line, func);
}

void tav_log_error_(char const * text, char const * file, int line, char const * func) {
    logLine(tavLogger::ERROR, text, file, line, func);
}

void tav_log_out_(char const * text, char const * file, int line, char const * func) {
    logLine(tavLogger::OUT, text, file, line, func);
}

namespace tav {

console::console() {
    writePrefix(out_);
}

console::~console() {
    try {
        writeToConsole(tav::detail::printedText(out_) + '\n');
    } catch (...) {
        // Out of memory: the line is lost.
    }
}

std::string console::str() const {
    return out_.str();
}

void console::print(std::string text) {
    writeToConsole(text);
}

void console::println(std::string text) {
    text += '\n';
    writeToConsole(text);
}

debugger::debugger() {
    writePrefix(out_);
}

debugger::~debugger() {
    try {
        std::string const text = tav::detail::printedText(out_) + '\n';
        print(text);
        writeToConsole(text);
    } catch (...) {
        // Out of memory: the line is lost.
    }
}

std::string debugger::str() const {
    return out_.str();
}

void debugger::print(std::string) {}

void debugger::println(std::string text) {
    text += '\n';
    print(std::move(text));
}

} // namespace tav
