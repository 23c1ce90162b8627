#ifndef TAV_FOUNDATION_SCOPE_EXIT_H
#define TAV_FOUNDATION_SCOPE_EXIT_H

#include <utility>

/// Work for the end of a scope.  Internal.
namespace tav {
namespace detail {

/// Calls the action when the scope ends, however it ends.  The action must not throw.
template <class Action>
class ScopeExit {
public:
    explicit ScopeExit(Action action) : action_(std::move(action)) {}
    ~ScopeExit() { action_(); }
    ScopeExit(ScopeExit const &) = delete;
    ScopeExit & operator=(ScopeExit const &) = delete;

private:
    Action action_;
};

} // namespace detail
} // namespace tav

#endif
