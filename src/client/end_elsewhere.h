#ifndef TAV_CLIENT_END_ELSEWHERE_H
#define TAV_CLIENT_END_ELSEWHERE_H

#include "foundation/build_stamp.h"

#include <chrono>
#include <functional>

/// The ends of clients that nobody present can bring about.  Internal.
namespace tav {
namespace tls {
namespace TAV_IMPL_NAMESPACE {

/// Does `work` on a thread of its own: the end of a client whose own thread the caller is, which would wait
/// for itself.  `client` stands for that client as thread_role knows it, null for none.  If there can be no
/// further thread, the work is kept for `wait_for_ends`.  What it throws goes to the log.
void end_elsewhere(void const * client, std::function<void()> work);

/// Returns when all such ends have come about, but for those that wait for the calling thread, or after
/// `limit`.  Work that found no thread is done here.
void wait_for_ends(std::chrono::milliseconds limit);

} // namespace TAV_IMPL_NAMESPACE
namespace impl = TAV_IMPL_NAMESPACE;
} // namespace tls
} // namespace tav

#endif
