#ifndef TAV_KIT_RESULT_H
#define TAV_KIT_RESULT_H

#include "tav/kit/failure.h"

#include <optional>
#include <system_error>
#include <utility>

namespace tav {
namespace kit {

/// A value, or the reason why there is none.
///
///     if (reply) {
///         use(reply->text);
///     } else {
///         std::cerr << reply.error().message();
///     }
///
/// Whoever takes the value of a failure gets std::system_error with its code; nothing is ever null.
template <class T>
class [[nodiscard]] result {
public:
    using value_type = T;

    result(T value) : value_(std::move(value)) {}
    result(std::error_code error) : error_(error ? error : make_error_code(failure::unspecified)) {}
    result(failure error) : result(make_error_code(error)) {}

    bool has_value() const noexcept { return value_.has_value(); }
    explicit operator bool() const noexcept { return has_value(); }

    /// Zero, "no error", if there is a value.
    std::error_code error() const noexcept { return error_; }

    T & value() & {
        require();
        return *value_;
    }
    T const & value() const & {
        require();
        return *value_;
    }
    T && value() && {
        require();
        return std::move(*value_);
    }
    T & operator*() & { return value(); }
    T const & operator*() const & { return value(); }
    T && operator*() && { return std::move(*this).value(); }
    T * operator->() { return &value(); }
    T const * operator->() const { return &value(); }

private:
    void require() const {
        if (!value_) {
            throw std::system_error(error_);
        }
    }

    std::optional<T> value_;
    std::error_code error_;
};

/// Done, or the reason why not.
template <>
class [[nodiscard]] result<void> {
public:
    using value_type = void;

    result() = default;
    result(std::error_code error) : error_(error) {}
    result(failure error) : error_(make_error_code(error)) {}

    bool has_value() const noexcept { return !error_; }
    explicit operator bool() const noexcept { return has_value(); }
    std::error_code error() const noexcept { return error_; }

    void value() const {
        if (error_) {
            throw std::system_error(error_);
        }
    }

private:
    std::error_code error_;
};

} // namespace kit
} // namespace tav

#endif
