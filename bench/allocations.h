#ifndef TAV_BENCH_ALLOCATIONS_H
#define TAV_BENCH_ALLOCATIONS_H

#include <benchmark/benchmark.h>

/// Allocations of this process so far; counted by operator new in allocations.cpp.
unsigned long long allocations();

/// Adds the allocations of each iteration to what a benchmark prints.
class CountAllocations {
public:
    explicit CountAllocations(benchmark::State & state) : state_(state), begin_(allocations()) {}
    ~CountAllocations() {
        state_.counters["allocs"] = benchmark::Counter(static_cast<double>(allocations() - begin_),
                                                       benchmark::Counter::kAvgIterations);
    }
    CountAllocations(CountAllocations const &) = delete;
    CountAllocations & operator=(CountAllocations const &) = delete;

private:
    benchmark::State & state_;
    unsigned long long begin_;
};

#endif
