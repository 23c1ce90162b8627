#include "tav/vinta/vinta_mt_thread.h"

#include "foundation/platform.h"
#include "foundation/report.h"
#include "foundation/scope_exit.h"
#include "runtime/thread_manager.h"
#include "tav/vinta/vinta_log.h"

#include <exception>
#include <locale>
#include <mutex>
#include <ostream>
#include <string_view>
#include <system_error>

using tav::detail::here;
using tav::detail::IdText;
using tav::detail::Site;

namespace {

using MonitorGuard = std::lock_guard<tavMonitor const>;

template <class Print>
void log(tavLogger::LogLevel level, Site site, Print && print) {
    tav::detail::log(tavLogger::DEFAULT_TAG(), level, site, std::forward<Print>(print));
}

void log(tavLogger::LogLevel level, Site site, char const * text, tavThread const & thread) {
    log(level, site, [&](std::ostream & out) { out << text << thread; });
}

/// A line of a thread's life.  It never keeps the thread from its life, not even when the log's callback
/// raises on a thread that has no caller.
template <class Print>
void tell(tavLogger::LogLevel level, Site site, Print && print) noexcept {
    try {
        log(level, site, std::forward<Print>(print));
    } catch (...) {
    }
}

void tell(tavLogger::LogLevel level, Site site, char const * text, tavThread const & thread) noexcept {
    tell(level, site, [&](std::ostream & out) { out << text << thread; });
}

/// The calling thread's registration.  Trivial, so that it can be asked at any time of the thread's life.
thread_local tavThreadManager::Registration const * own = nullptr;

/// The process's manager and its lock.  Made before any code runs and never destroyed, so that threads may
/// end after the static objects.
struct Manager {
    std::mutex mutex;
    std::shared_ptr<tavThreadManager> the;
};

union Undestroyed {
    constexpr Undestroyed() : manager() {}
    ~Undestroyed() {}
    Manager manager;
} undestroyed;

Manager & manager() {
    return undestroyed.manager;
}

/// A map's node with a value, to be put under its key without an allocation.
template <class Map>
typename Map::node_type makeNode(typename Map::mapped_type value) {
    Map map;
    map.emplace(std::thread::id(), std::move(value));
    return map.extract(map.begin());
}

/// Puts `node` under `id`.  What stood there before is in `node` afterwards, and so ends outside of the lock.
template <class Map>
void putNode(std::mutex & mutex, Map & map, std::thread::id id, typename Map::node_type & node) {
    node.key() = id;
    std::lock_guard<std::mutex> const guard(mutex);
    auto result = map.insert(std::move(node));
    if (!result.inserted) {
        std::swap(result.position->second, result.node.mapped());
        node = std::move(result.node);
    }
}

/// Takes what stands under `id` out, so that it ends outside of the lock.
template <class Map>
typename Map::node_type takeNode(std::mutex & mutex, Map & map, std::thread::id id) {
    std::lock_guard<std::mutex> const guard(mutex);
    return map.extract(id);
}

using Lock = std::lock_guard<std::mutex>;

[[maybe_unused]] bool const forksAreWatched = tav::platform::aroundFork(
    &tavThreadManager::beforeFork, &tavThreadManager::afterForkInParent, &tavThreadManager::afterForkInChild);

} // namespace

tavThreadEntry::tavThreadEntry(tav_istr name, tavThread * thread)
    : manager_(tavThreadManager::instance()),
      name_(name),
      registeredName_(makeNode<tavThreadManager::Names>(name)) {
    if (thread != nullptr) {
        thread_ = makeNode<tavThreadManager::Threads>(tavSharedPtr<tavThread>(thread));
    }
}

tavThreadManager::Registration::Registration(tavThreadEntry & entry) noexcept : entry_(entry) {
    std::thread::id const id = std::this_thread::get_id();
    tavThreadManager & the = *entry.manager_;
    if (entry.thread_) {
        putNode(the.threadsMutex_, the.threads_, id, entry.thread_);
    }
    putNode(the.namesMutex_, the.names_, id, entry.registeredName_);
    own = this;
}

tavThreadManager::Registration::~Registration() {
    own = nullptr;
    std::thread::id const id = std::this_thread::get_id();
    tavThreadManager & the = *entry_.manager_;
    takeNode(the.threadsMutex_, the.threads_, id);
    takeNode(the.namesMutex_, the.names_, id);
}

std::string const * tavThreadManager::ownName() {
    Registration const * const mine = registered();
    return mine != nullptr ? &mine->entry_.name_ : nullptr;
}

tavSharedPtr<tavThread> tavThreadManager::ownThread() {
    Registration const * const mine = registered();
    if (mine == nullptr) {
        return nullptr;
    }
    tavThreadManager & the = *mine->entry_.manager_;
    Lock const guard(the.threadsMutex_);
    auto const found = the.threads_.find(std::this_thread::get_id());
    return found != the.threads_.end() ? found->second : nullptr;
}

tavString tavThreadManager::nameOf(std::thread::id id) {
    std::shared_ptr<tavThreadManager> const the = instance();
    Lock const guard(the->namesMutex_);
    auto const found = the->names_.find(id);
    return found != the->names_.end() ? found->second : tavString();
}

void tavThreadManager::print() {
    std::map<std::thread::id, tavString> names;
    {
        std::shared_ptr<tavThreadManager> const the = instance();
        Lock const guard(the->namesMutex_);
        names = the->names_;
    }
    for (auto const & entry : names) {
        log(tavLogger::INFO, here("tavThreadManager::print"), [&](std::ostream & out) {
            out << "thread not closed: " << tavThread::getThreadId(entry.first) << '.' << entry.second;
        });
    }
}

void tavThreadManager::finalize() {
    std::shared_ptr<tavThreadManager> last;
    Lock const guard(manager().mutex);
    last.swap(manager().the);
    if (last) {
        last->live_ = false;
    }
}

void tavThreadManager::beforeFork() noexcept {
    manager().mutex.lock();
    if (tavThreadManager * const the = manager().the.get()) {
        the->threadsMutex_.lock();
        the->namesMutex_.lock();
    }
}

void tavThreadManager::afterForkInParent() noexcept {
    if (tavThreadManager * const the = manager().the.get()) {
        the->namesMutex_.unlock();
        the->threadsMutex_.unlock();
    }
    manager().mutex.unlock();
}

void tavThreadManager::afterForkInChild() noexcept {
    // Never ends: the objects of the parent's threads would wait for threads that are not here.
    static union Kept {
        constexpr Kept() : manager() {}
        ~Kept() {}
        std::shared_ptr<tavThreadManager> manager;
    } kept;
    tavThreadManager * const parents = manager().the.get();
    afterForkInParent();
    if (parents != nullptr) {
        parents->former_ = std::move(kept.manager);
        kept.manager = std::move(manager().the);
    }
}

std::shared_ptr<tavThreadManager> tavThreadManager::instance() {
    Lock const guard(manager().mutex);
    if (!manager().the) {
        manager().the = std::make_shared<tavThreadManager>();
    }
    return manager().the;
}

tavThreadManager::Registration const * tavThreadManager::registered() {
    return own != nullptr && own->entry_.manager_->live_ ? own : nullptr;
}

tav::detail::IdText::IdText(std::thread::id id) {
    setp(buffer_, buffer_ + sizeof buffer_);
    if (id == std::thread::id()) {
        sputc('0');
        return;
    }
    std::ostream out(this);
    out.imbue(std::locale::classic());
    out << id;
}

/// The underlying thread of a tavThread.  What is known about the handle stands in `state_`, since the handle
/// itself must not be asked while another thread joins it.
class tavThreadImpl {
public:
    explicit tavThreadImpl(std::string name) : name_(std::move(name)) { id_.reserve(IdText::size); }

    ~tavThreadImpl() {
        if (state_ == State::joinable) {
            thread_->detach();
        }
    }

    void setId(std::string_view id) {
        MonitorGuard guard(monitor_);
        id_.assign(id);
    }

    std::string id() const {
        MonitorGuard guard(monitor_);
        return id_;
    }

    /// Starts `run`.  Who closes or detaches meanwhile waits until the handle is there.
    void start(std::function<void()> run) {
        {
            MonitorGuard guard(monitor_);
            if (state_ == State::joinable) {
                thread_->detach();
            }
            state_ = State::starting;
        }
        try {
            std::shared_ptr<std::thread> thread = tav::detail::startThread(std::move(run), name_, 0);
            become(State::joinable, std::move(thread));
        } catch (...) {
            become(State::none, nullptr);
            throw;
        }
    }

    /// Joins.  If another thread joins already, waits for the end of that.
    void close() {
        std::shared_ptr<std::thread> thread;
        bool onItself = false;
        {
            MonitorGuard guard(monitor_);
            awaitHandle();
            if (state_ == State::none) {
                return;
            }
            thread = thread_;
            onItself = handleId_ == std::this_thread::get_id();
            if (!onItself && state_ == State::joining) {
                while (state_ == State::joining) {
                    monitor_.waitInLock(-1);
                }
                return;
            }
            if (!onItself) {
                state_ = State::joining;
            }
        }
        if (onItself) {
            report("join thread begin...");
            throw std::system_error(std::make_error_code(std::errc::resource_deadlock_would_occur));
        }
        try {
            report("join thread begin...");
            thread->join();
        } catch (...) {
            become(State::joinable, std::move(thread));
            throw;
        }
        become(State::none, nullptr);
        report("join thread end...");
    }

    void detach() {
        MonitorGuard guard(monitor_);
        awaitHandle();
        if (state_ == State::joinable) {
            thread_->detach();
            state_ = State::none;
        }
    }

private:
    enum class State { none, starting, joinable, joining };

    void awaitHandle() {
        while (state_ == State::starting) {
            monitor_.waitInLock(-1);
        }
    }

    void become(State state, std::shared_ptr<std::thread> thread) {
        MonitorGuard guard(monitor_);
        state_ = state;
        handleId_ = thread ? thread->get_id() : std::thread::id();
        thread_ = std::move(thread);
        monitor_.signalAllInLock();
    }

    void report(char const * text) const {
        log(tavLogger::DEBUG, here("tavThreadImpl::close"),
            [&](std::ostream & out) { out << text << name_; });
    }

    tavMonitor monitor_;
    std::shared_ptr<std::thread> thread_;
    std::thread::id handleId_;
    State state_ = State::none;
    std::string id_;
    std::string const name_;
};

tavThread::tavThread(tav_istr name) : name_(createThreadName(name)) {
    impl_ = std::make_unique<tavThreadImpl>(std::string(this->name()));
    log(tavLogger::DEBUG, here("tavThread::tavThread"), "thead init ", *this);
}

tavThread::~tavThread() {
    tell(tavLogger::DEBUG, here("tavThread::~tavThread"), "thead fini ", *this);
}

void tavThread::on_stop() {}

bool tavThread::on_open() {
    return true;
}

void tavThread::on_close() {}

void tavThread::start() {
    tavSharedPtr<tavThread> const self(this);
    log(tavLogger::INFO, here("tavThread::start"), "thead starting... ", *this);
    stopping_ = false;
    auto const entry = std::make_shared<tavThreadEntry>(name(), this);
    impl_->start([self, entry] { self->run(*entry); });
    MonitorGuard guard(startMonitor_);
    while (!started_) {
        startMonitor_.waitInLock(-1);
    }
}

void tavThread::stopRunning() {
    log(tavLogger::DEBUG, here("tavThread::stopRunning"), "thead break running ", *this);
    stopping_ = true;
    running_ = false;
    monitor_.signal();
}

void tavThread::close() {
    log(tavLogger::INFO, here("tavThread::close"), "thead closing... ", *this);
    {
        brokenBeforeClose_ = broken_.load();
        tav::detail::ScopeExit const end([this] { brokenBeforeClose_ = true; });
        stopRunning();
        onStop();
    }
    impl_->close();
}

void tavThread::detach() {
    log(tavLogger::INFO, here("tavThread::detach"), "thead detach ", *this);
    impl_->detach();
}

void tavThread::run_internally() {
    stopping_ = false;
    tavThreadEntry entry(name(), this);
    run(entry);
}

tav_istr tavThread::name() const {
    return name_;
}

std::string tavThread::id() const {
    return impl_->id();
}

void tavThread::lock() const {
    monitor_.lock();
}

void tavThread::unlock() const {
    monitor_.unlock();
}

bool tavThread::wait(int ms) const {
    return monitor_.wait(ms);
}

bool tavThread::waitInLock(int ms) const {
    return monitor_.waitInLock(ms);
}

void tavThread::notify() const {
    monitor_.signal();
}

void tavThread::notifyAll() const {
    monitor_.signalAll();
}

void tavThread::notifyInLock() const {
    monitor_.signalInLock();
}

void tavThread::notifyAllInLock() const {
    monitor_.signalAllInLock();
}

tavSharedPtr<tavThread> tavThread::current() {
    return tavThreadManager::ownThread();
}

std::string tavThread::currentId() {
    return getThreadId(std::this_thread::get_id());
}

tavString tavThread::currentName() {
    std::string const * const name = tavThreadManager::ownName();
    return name != nullptr ? tavString(*name) : tavString("main");
}

tavString tavThread::createThreadName(tav_istr name) {
    std::string const * const creator = tavThreadManager::ownName();
    tavString full;
    if (creator != nullptr) {
        full << *creator << '.';
    }
    full << name;
    return full;
}

std::string tavThread::getThreadId(std::thread::id id) {
    return std::string(IdText(id).text());
}

tavString tavThread::getThreadName(std::shared_ptr<std::thread> thread) {
    return thread ? tavThreadManager::nameOf(thread->get_id()) : tavString();
}

void tavThread::setCurrentName(char const * name) {
    if (name != nullptr) {
        tav::platform::nameThread(name);
    }
}

void tavThread::printThreads() {
    tavThreadManager::print();
}

void tavThread::finalize() {
    tavThreadManager::finalize();
}

bool tavThread::onOwnThread() const {
    return tavThreadManager::ownThread().get() == this;
}

bool tavThread::onLoop() {
    try {
        return on_loop();
    } catch (std::exception const & e) {
        tav::detail::reportCaught(here("tavThread::onLoop"), e.what());
    } catch (...) {
        tell(tavLogger::ERROR, here("tavThread::onLoop"),
             [](std::ostream & out) { out << "<<< EXCEPTION >>> unknown exception"; });
    }
    return true;
}

void tavThread::run(tavThreadEntry & entry) {
    tavSharedPtr<tavThread> const self(this);
    impl_->setId(IdText(std::this_thread::get_id()).text());
    setCurrentName(entry.name());
    tavThreadManager::Registration const registration(entry);
    tell(tavLogger::DEBUG, here("tavThread::run"), "thead run ", *this);

    running_ = onOpen();
    // A stop that came while it opened must not be lost: stopRunning sets the one before it clears the other.
    if (stopping_) {
        running_ = false;
    }
    {
        MonitorGuard guard(startMonitor_);
        started_ = true;
        startMonitor_.signalAllInLock();
    }
    while (running_ && onLoop()) {
    }
    broken_ = true;
    onClose();
}

bool tavThread::onOpen() {
    bool const opened = on_open();
    tell(tavLogger::INFO, here("tavThread::onOpen"), "thead started. ", *this);
    return opened;
}

void tavThread::onStop() {
    log(tavLogger::DEBUG, here("tavThread::onStop"), "thead on_stop ", *this);
    on_stop();
}

void tavThread::onClose() {
    on_close();
    tell(tavLogger::INFO, here("tavThread::onClose"), "thead closed. ", *this);
}

std::ostream & operator<<(std::ostream & out, tavThread const & v) {
    std::string const id = v.id();
    out << '{' << v.name();
    if (!id.empty()) {
        out << '.' << id;
    }
    return out << '}';
}

tavThread_::tavThread_(tav_istr name, std::function<bool()> onLoop, std::function<void()> onStop,
                       std::function<bool()> onOpen, std::function<void()> onClose)
    : tavThread(name),
      onLoop_(std::move(onLoop)),
      onStop_(std::move(onStop)),
      onOpen_(std::move(onOpen)),
      onClose_(std::move(onClose)) {}

tavThread_::~tavThread_() = default;

bool tavThread_::on_loop() {
    return onLoop_ && onLoop_();
}

void tavThread_::on_stop() {
    if (onStop_) {
        onStop_();
    }
}

bool tavThread_::on_open() {
    return !onOpen_ || onOpen_();
}

void tavThread_::on_close() {
    if (onClose_) {
        onClose_();
    }
}

tavTimerThread::tavTimerThread(tav_istr name, int interval, std::function<bool(bool)> onTimer,
                               std::function<void()> onCancel, int count)
    : tavThread(name),
      interval_(interval),
      onTimer_(std::move(onTimer)),
      onCancel_(std::move(onCancel)),
      count_(count),
      last_(std::chrono::steady_clock::now()) {}

tavTimerThread::~tavTimerThread() = default;

bool tavTimerThread::on_loop() {
    using std::chrono::milliseconds;
    auto const passed = std::chrono::steady_clock::now() - last_;
    auto const elapsed = std::chrono::duration_cast<milliseconds>(passed).count();
    bool signalled = false;
    if (elapsed < interval_) {
        std::lock_guard<tavThread const> guard(*this);
        signalled = stopping() || waitInLock(interval_ - static_cast<int>(elapsed));
    }
    last_ = std::chrono::steady_clock::now();
    if (count_ > 0) {
        --count_;
    }
    return onTimer_ && onTimer_(signalled) && count_ != 0;
}

void tavTimerThread::on_stop() {
    // Broken by this very close does not count: whether onCancel is called must not hang on who is faster.
    if (broken() && brokenBeforeClose_) {
        return;
    }
    log(tavLogger::INFO, here("tavTimerThread::on_stop"),
        [this](std::ostream & out) { out << "cancel timer " << name(); });
    if (onCancel_) {
        onCancel_();
    }
}

bool tavTimerThread::on_open() {
    tell(tavLogger::INFO, here("tavTimerThread::on_open"),
         [this](std::ostream & out) { out << "started timer " << name(); });
    return true;
}

void tavTimerThread::on_close() {
    tell(tavLogger::INFO, here("tavTimerThread::on_close"),
         [this](std::ostream & out) { out << "closed timer " << name(); });
}

unsigned tav_get_tid() {
    return tav::platform::threadId();
}

unsigned tav_get_pid() {
    return tav::platform::processId();
}
