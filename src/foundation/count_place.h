#ifndef TAV_FOUNDATION_COUNT_PLACE_H
#define TAV_FOUNDATION_COUNT_PLACE_H

#include <cstddef>

/// Memory for the count of an object, in the allocation of the object itself.  Internal.
namespace tav {
namespace detail {

/// What the implementation of a tavAtomicInt takes, which differs between machines; its alignment is at most
/// that of a pointer.
[[gnu::visibility("hidden")]] extern std::size_t const countSize;

/// The next tavAtomicInt without a value that this thread makes has its implementation at `place`, which
/// must outlive it.  It must be the count of a tavRefCountObject whose maker makes the first reference
/// before another thread knows the object: that one reference is taken without a lock, all others as ever.
void placeNextCount(void * place) noexcept;

} // namespace detail
} // namespace tav

#endif
