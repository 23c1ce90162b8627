#include "client/address_race.h"

#include <asio/error.hpp>

#include <utility>

namespace tav {
namespace tls {
namespace TAV_IMPL_NAMESPACE {

address_race::address_race(asio::io_context & io) : io_(io), timer_(io), next_(0), running_(0), round_(0) {}

void address_race::start(std::vector<endpoint> addresses, done_function done) {
    cancel();
    addresses_ = std::move(addresses);
    last_error_ = asio::error::not_found;
    start_next(std::make_shared<done_function const>(std::move(done)));
}

void address_race::cancel() {
    ++round_;
    timer_.cancel();
    attempts_.clear();
    addresses_.clear();
    next_ = 0;
    running_ = 0;
}

// Begins with the next address that a socket can be made for; without one, the attempts that run decide.
void address_race::start_next(done_ptr const & done) {
    while (next_ < addresses_.size()) {
        endpoint const address = addresses_[next_];
        ++next_;
        auto made = std::make_unique<socket>(io_);
        made->open(address.protocol(), last_error_);
        if (last_error_) {
            continue;
        }
        std::error_code ignored;
        made->set_option(asio::ip::tcp::no_delay(true), ignored);
        socket & attempt = *made;
        std::size_t const place = attempts_.size();
        attempts_.push_back(std::move(made));
        ++running_;
        attempt.async_connect(address, [this, done, place, round = round_](std::error_code ec) {
            if (round == round_) {
                on_connected(place, ec, done);
            }
        });
        await_next(done);
        return;
    }
    if (running_ == 0) {
        finish(last_error_, socket(io_), done);
    }
}

void address_race::await_next(done_ptr const & done) {
    timer_.cancel();
    if (next_ == addresses_.size()) {
        return;
    }
    timer_.expires_after(head_start);
    // A wait that ended as an address failed finds the next one begun already.
    timer_.async_wait([this, done, next = next_, round = round_](std::error_code ec) {
        if (!ec && round == round_ && next == next_) {
            start_next(done);
        }
    });
}

void address_race::on_connected(std::size_t place, std::error_code ec, done_ptr const & done) {
    std::unique_ptr<socket> const ended = std::move(attempts_[place]);
    --running_;
    if (!ec) {
        finish(ec, std::move(*ended), done);
        return;
    }
    last_error_ = ec;
    start_next(done);
}

void address_race::finish(std::error_code ec, socket winner, done_ptr const & done) {
    cancel();
    (*done)(ec, std::move(winner));
}

} // namespace TAV_IMPL_NAMESPACE
} // namespace tls
} // namespace tav
