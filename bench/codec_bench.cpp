#include "allocations.h"
#include "peer.h"

#include <benchmark/benchmark.h>

#include <sstream>

namespace {

void encodeOwn(benchmark::State & state) {
    tav_bench_own::Note const note = tav_bench_own::sample();
    CountAllocations const count(state);
    for (auto _ : state) {
        benchmark::DoNotOptimize(note.encode(true));
    }
}
BENCHMARK(encodeOwn);

void encodePeer(benchmark::State & state) {
    tav_bench::Note const note = peerSample();
    CountAllocations const count(state);
    for (auto _ : state) {
        std::string out;
        note.SerializeToString(&out);
        benchmark::DoNotOptimize(out);
    }
}
BENCHMARK(encodePeer);

void decodeOwn(benchmark::State & state) {
    tavBytes const bytes = tav_bench_own::sample().encode(true);
    CountAllocations const count(state);
    for (auto _ : state) {
        tav_bench_own::Note note;
        note.decode(tav_istr(bytes));
        benchmark::DoNotOptimize(note.text);
    }
}
BENCHMARK(decodeOwn);

void decodePeer(benchmark::State & state) {
    std::string const bytes = peerSample().SerializeAsString();
    CountAllocations const count(state);
    for (auto _ : state) {
        tav_bench::Note note;
        note.ParseFromString(bytes);
        benchmark::DoNotOptimize(note.text());
    }
}
BENCHMARK(decodePeer);

void decodeOwnReused(benchmark::State & state) {
    tavBytes const bytes = tav_bench_own::sample().encode(true);
    tav_bench_own::Note note;
    CountAllocations const count(state);
    for (auto _ : state) {
        note.decode(tav_istr(bytes));
        benchmark::DoNotOptimize(note.text);
    }
}
BENCHMARK(decodeOwnReused);

void decodePeerReused(benchmark::State & state) {
    std::string const bytes = peerSample().SerializeAsString();
    tav_bench::Note note;
    CountAllocations const count(state);
    for (auto _ : state) {
        note.ParseFromString(bytes);
        benchmark::DoNotOptimize(note.text());
    }
}
BENCHMARK(decodePeerReused);

void treeParse(benchmark::State & state) {
    tavBytes const bytes = tav_bench_own::sample().encode(true);
    CountAllocations const count(state);
    for (auto _ : state) {
        tav_istr rest = bytes;
        benchmark::DoNotOptimize(tav::nbr::parser::from(rest));
    }
}
BENCHMARK(treeParse);

void treeDump(benchmark::State & state) {
    tavBytes const bytes = tav_bench_own::sample().encode(true);
    CountAllocations const count(state);
    for (auto _ : state) {
        std::ostringstream out;
        out << tav::nbr::_PrintNbr(tav_istr(bytes), true);
        benchmark::DoNotOptimize(out.str());
    }
}
BENCHMARK(treeDump);

} // namespace
