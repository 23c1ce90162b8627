#ifndef TAV_FOUNDATION_UNSHARED_COUNT_H
#define TAV_FOUNDATION_UNSHARED_COUNT_H

/// A faster first reference to objects that are just made.  Internal.
namespace tav {
namespace detail {

/// The next tavRefCountObject that this thread makes is known to nobody but its maker, who refers to it
/// before another thread knows it: that one reference is taken without a lock, all others as ever.
void nextCountIsUnshared() noexcept;

} // namespace detail
} // namespace tav

#endif
