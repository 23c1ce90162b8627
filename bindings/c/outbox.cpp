#include "bindings/c/outbox.h"

#include "bindings/c/options.h"

#include <algorithm>
#include <numeric>
#include <utility>

namespace tav {
namespace json_client {

bool Outbox::begin() {
    std::lock_guard<std::mutex> const guard(mutex_);
    under_way_ += ended_ ? 0 : 1;
    return !ended_;
}

void Outbox::forget() noexcept {
    std::lock_guard<std::mutex> const guard(mutex_);
    --under_way_;
    closeInLock();
    came_.notify_all();
}

void Outbox::answer(Item & item) noexcept {
    std::lock_guard<std::mutex> const guard(mutex_);
    items_.splice(items_.end(), item);
    --under_way_;
    closeInLock();
    // "closed" may have come with it.
    came_.notify_all();
}

void Outbox::event(std::string text) {
    Item item;
    item.push_back(std::move(text));
    std::lock_guard<std::mutex> const guard(mutex_);
    if (!closed_) {
        items_.splice(items_.end(), item);
        came_.notify_one();
    }
}

Outbox::Found Outbox::receive(std::string & out, double seconds) {
    constexpr double longest = 1e8;
    double const wait = seconds > 0 ? std::min(seconds, longest) : 0;
    auto const until =
        std::chrono::steady_clock::now() +
        std::chrono::duration_cast<std::chrono::steady_clock::duration>(std::chrono::duration<double>(wait));
    std::unique_lock<std::mutex> guard(mutex_);
    ++receivers_;
    came_.wait_until(guard, until, [this] { return !items_.empty() || done_; });
    --receivers_;
    received_at_ = std::chrono::steady_clock::now();
    if (items_.empty()) {
        return done_ ? Found::gone : Found::none;
    }
    out.swap(items_.front());
    items_.pop_front();
    done_ = closed_ && items_.empty() && last_.empty();
    if (done_) {
        came_.notify_all();
    }
    went_.notify_all();
    return Found::text;
}

bool Outbox::isDone() const {
    std::lock_guard<std::mutex> const guard(mutex_);
    return done_;
}

bool Outbox::isReceivedFrom() const {
    std::lock_guard<std::mutex> const guard(mutex_);
    auto const recently = std::chrono::steady_clock::now() - std::chrono::minutes(1);
    return receivers_ != 0 || received_at_ > recently;
}

std::size_t Outbox::bytes() const {
    std::lock_guard<std::mutex> const guard(mutex_);
    return std::accumulate(items_.begin(), items_.end(), std::size_t(0),
                           [](std::size_t sum, std::string const & each) { return sum + each.size(); });
}

bool Outbox::end() noexcept {
    std::lock_guard<std::mutex> const guard(mutex_);
    bool const first = !ended_;
    ended_ = true;
    went_.notify_all();
    return first;
}

void Outbox::close() noexcept {
    std::lock_guard<std::mutex> const guard(mutex_);
    closed_ = true;
    closeInLock();
    came_.notify_all();
}

void Outbox::closeInLock() noexcept {
    if (closed_ && under_way_ == 0) {
        items_.splice(items_.end(), last_);
    }
}

void Outbox::waitForRoom(std::size_t most, std::function<bool()> const & patient) {
    std::unique_lock<std::mutex> guard(mutex_);
    while (items_.size() >= most && !ended_) {
        guard.unlock();
        bool const goes_on = patient();
        guard.lock();
        if (!goes_on) {
            return;
        }
        if (items_.size() >= most && !ended_) {
            went_.wait_for(guard, std::chrono::milliseconds(100));
        }
    }
}

void Outbox::stir() noexcept {
    std::lock_guard<std::mutex> const guard(mutex_);
    went_.notify_all();
}

Ticket::Ticket(std::shared_ptr<Outbox> to, std::string extra) : to_(std::move(to)), extra_(std::move(extra)) {
    item_.push_back(errorText(failureOf(tls::failure::cancelled), extra_));
}

Ticket::~Ticket() {
    if (!answered_) {
        to_->answer(item_);
    }
}

void Ticket::answer(std::string text) noexcept {
    std::lock_guard<std::mutex> const guard(mutex_);
    if (!answered_) {
        answered_ = true;
        item_.front() = std::move(text);
        to_->answer(item_);
    }
}

void Ticket::fail(Failure const & failure) noexcept {
    try {
        answer(errorText(failure, extra_));
    } catch (std::bad_alloc const &) {
        // The answer that was made ahead has to do.
        std::string made;
        {
            std::lock_guard<std::mutex> const guard(mutex_);
            if (answered_) {
                return;
            }
            made.swap(item_.front());
        }
        answer(std::move(made));
    }
}

void Call::known(std::shared_ptr<tls::future_obj> info) noexcept {
    {
        std::lock_guard<std::mutex> const guard(mutex_);
        known_ = true;
        info_ = std::move(info);
        if (!ended_) {
            return;
        }
    }
    tell();
}

void Call::ended(tls::failure otherwise, std::string text) noexcept {
    {
        std::lock_guard<std::mutex> const guard(mutex_);
        if (ended_) {
            return;
        }
        ended_ = true;
        otherwise_ = otherwise;
        text_ = std::move(text);
        if (!known_) {
            return;
        }
    }
    tell();
}

void Call::tell() noexcept {
    std::shared_ptr<tls::future_obj> info;
    {
        std::lock_guard<std::mutex> const guard(mutex_);
        info.swap(info_);
    }
    try {
        std::error_code const cause = info ? info->error() : std::error_code();
        // The peer closes too when it sees the end, and may be the first to be noticed.
        bool const own = otherwise_ == tls::failure::cancelled && *left_;
        tls::failure const name = cause && !own ? static_cast<tls::failure>(cause.value()) : otherwise_;
        std::string const field = name == tls::failure::bad_policy    ? policyField(text_)
                                  : name == tls::failure::bad_address ? port_
                                                                      : std::string();
        ticket_->fail(failureOf(name, text_, field));
    } catch (std::exception const &) {
        // The ticket's own answer tells the end.
    }
}

std::string errorText(Failure const & failure, std::string_view extra) {
    ObjectText out("error", extra);
    out.number("code", failure.code).text("name", failure.name).text("text", failure.text);
    if (!failure.field.empty()) {
        out.text("field", failure.field);
    }
    if (failure.position >= 0) {
        out.number("position", failure.position);
    }
    return out.take();
}

} // namespace json_client
} // namespace tav
