#ifndef TAV_KIT_KEEPER_TIMER_H
#define TAV_KIT_KEEPER_TIMER_H

#include "tav/vinta/vinta_api.h"
#include "tav/vinta/vinta_basetypes_process.h"
#include "tav/vinta/vinta_mt_thread.h"

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdlib>
#include <iterator>
#include <map>
#include <memory>
#include <mutex>
#include <thread>
#include <utility>

namespace tav {
namespace kit {

/// The time that keepers go by.  Tests give `keeper_option::timer` one of their own, so that they decide what
/// time it is; all other keepers of a process share one thread.
/// Thread safety: all operations.
class keeper_timer {
public:
    using clock = std::chrono::steady_clock;

    /// What is woken.
    class sleeper {
    public:
        virtual void wake() noexcept = 0;

    protected:
        ~sleeper() = default;
    };

    virtual ~keeper_timer() = default;
    virtual clock::time_point now() const = 0;
    /// Has `who` woken once at `at`, in place of any earlier `at`; never within this call, and no longer than
    /// it lives.
    virtual void wake_at(std::shared_ptr<sleeper> const & who, clock::time_point at) = 0;
    /// Whether the calling thread is the one that wakes.
    virtual bool here() const { return false; }
    /// Called for each keeper, at its beginning and at its end.
    virtual void enroll() {}
    virtual void leave() noexcept {}
};

namespace detail {

/// The thread of all keepers of the process, which lives as long as there is one of them.
///
/// It is never destroyed.  A forked process begins with one of its own.  At the exit of the process its
/// thread ends ahead of static destruction; one that is held up by an application's callback is left behind.
class TAV_API process_timer final : public keeper_timer {
public:
    static process_timer & instance() {
        for (;;) {
            process_timer * present = slot();
            if (present != nullptr && present->process_ == tav_process_id()) {
                return *present;
            }
            auto made = std::unique_ptr<process_timer>(new process_timer(present));
            if (slot().compare_exchange_strong(present, made.get())) {
                std::atexit(&end_at_exit);
                return *made.release();
            }
        }
    }

    clock::time_point now() const override { return clock::now(); }

    void wake_at(std::shared_ptr<sleeper> const & who, clock::time_point at) override {
        std::shared_ptr<shift> const present = this->present();
        if (!present) {
            return;
        }
        std::lock_guard<std::mutex> const guard(present->mutex);
        // What was made for its first time serves for all of them: a keeper that found no memory for the
        // next would sleep for ever.
        place & own = present->places[who.get()];
        if (own.waits) {
            own.node = present->due.extract(own.at);
        } else if (!own.node) {
            schedule one;
            one.emplace(at, entry());
            own.node = one.extract(one.begin());
        }
        own.node.key() = at;
        own.node.mapped() = entry{who.get(), who};
        own.at = present->due.insert(std::move(own.node));
        own.waits = true;
        if (own.at == present->due.begin()) {
            present->changed.notify_all();
        }
    }

    bool here() const override {
        std::shared_ptr<shift> const present = this->present();
        return present && present->id == std::this_thread::get_id();
    }

    /// Raises std::system_error if there can be no further thread.
    void enroll() override {
        std::lock_guard<std::mutex> const guard(mutex_);
        if (!present_ && !exiting_) {
            auto const made = std::make_shared<shift>();
            std::lock_guard<std::mutex> const begin(made->mutex);
            made->thread = std::thread([made] { work(*made); });
            made->id = made->thread.get_id();
            present_ = made;
        }
        ++keepers_;
    }

    void leave() noexcept override {
        std::shared_ptr<shift> taken;
        {
            std::lock_guard<std::mutex> const guard(mutex_);
            if (--keepers_ != 0) {
                forget_gone();
                return;
            }
            taken.swap(present_);
        }
        end(std::move(taken));
    }

private:
    struct entry {
        sleeper const * key;
        std::weak_ptr<sleeper> who;
    };
    using schedule = std::multimap<clock::time_point, entry>;
    /// Of one sleeper, for as long as it lives: where it waits, or what it will wait by.
    struct place {
        bool waits = false;
        schedule::iterator at;
        schedule::node_type node;
    };

    /// A thread and what it waits for.
    struct shift {
        std::mutex mutex;
        std::condition_variable changed;
        schedule due;
        std::map<sleeper const *, place> places;
        bool wanted = true;
        bool ended = false;
        std::thread thread;
        /// Its own, also when nobody is to wait for it any more.
        std::thread::id id;
    };

    explicit process_timer(process_timer * parents) : process_(tav_process_id()), parents_(parents) {
        // It is held, and no more.
        static_cast<void>(parents_);
    }

    static std::atomic<process_timer *> & slot() {
        static std::atomic<process_timer *> the{nullptr};
        return the;
    }

    std::shared_ptr<shift> present() const {
        std::lock_guard<std::mutex> const guard(mutex_);
        return present_;
    }

    /// Lets go of the places of sleepers that are gone.
    void forget_gone() noexcept {
        if (!present_) {
            return;
        }
        std::lock_guard<std::mutex> const guard(present_->mutex);
        for (auto each = present_->places.begin(); each != present_->places.end();) {
            place & one = each->second;
            bool const gone =
                one.waits ? one.at->second.who.expired() : !one.node || one.node.mapped().who.expired();
            if (gone && one.waits) {
                present_->due.erase(one.at);
            }
            each = gone ? present_->places.erase(each) : std::next(each);
        }
    }

    static void work(shift & own) {
        tavThread::setCurrentName("tav.kit.keeper");
        std::unique_lock<std::mutex> guard(own.mutex);
        while (own.wanted) {
            if (own.due.empty()) {
                own.changed.wait(guard);
                continue;
            }
            auto const first = own.due.begin();
            if (clock::now() < first->first) {
                clock::time_point const at = first->first;
                own.changed.wait_until(guard, at);
                continue;
            }
            std::weak_ptr<sleeper> const next = first->second.who;
            place & its = own.places[first->second.key];
            its.node = own.due.extract(first);
            its.waits = false;
            guard.unlock();
            if (std::shared_ptr<sleeper> const who = next.lock()) {
                who->wake();
            }
            guard.lock();
        }
        own.ended = true;
        own.changed.notify_all();
    }

    /// Ends the thread and waits for it, but not for a callback that holds it up, nor for itself.
    static void end(std::shared_ptr<shift> taken) noexcept {
        if (!taken) {
            return;
        }
        bool ended = false;
        {
            std::unique_lock<std::mutex> guard(taken->mutex);
            taken->wanted = false;
            taken->changed.notify_all();
            if (taken->id != std::this_thread::get_id()) {
                constexpr std::chrono::milliseconds patience(500);
                ended = taken->changed.wait_for(guard, patience, [&] { return taken->ended; });
            }
        }
        if (ended) {
            taken->thread.join();
        } else {
            taken->thread.detach();
        }
    }

    static void end_at_exit() {
        process_timer * const the = slot();
        if (the->process_ != tav_process_id()) {
            return;
        }
        std::shared_ptr<shift> taken;
        {
            std::lock_guard<std::mutex> const guard(the->mutex_);
            the->exiting_ = true;
            taken.swap(the->present_);
        }
        end(std::move(taken));
    }

    unsigned const process_;
    /// Of the process that forked this one; its thread is not here.
    process_timer * const parents_;
    mutable std::mutex mutex_;
    unsigned keepers_ = 0;
    bool exiting_ = false;
    std::shared_ptr<shift> present_;
};

} // namespace detail

} // namespace kit
} // namespace tav

#endif
