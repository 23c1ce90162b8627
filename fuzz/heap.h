#ifndef TAV_FUZZ_HEAP_H
#define TAV_FUZZ_HEAP_H

/// The heap of the process in bytes, counted at each allocation: by the sanitizers' hooks where there are
/// any, by the allocator's functions elsewhere.
namespace tav_fuzz {
namespace heap {

/// What is taken now.  The peak starts again from here.
long long begin();
/// The most that was taken at one time since.
long long peak();

} // namespace heap
} // namespace tav_fuzz

#endif
