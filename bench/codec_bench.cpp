#include "allocations.h"
#include "peer.h"

#include <benchmark/benchmark.h>

#include <sstream>
#include <vector>

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

/// A list of 200,000 numbers and nothing else.
class Numbers : public tavObject {
public:
    std::vector<int> list;

    tav_istr className() const override { return "Numbers"; }
    tav_istr baseName() const override { return "tavObject"; }
    tavObject * newInstance() const override { return new Numbers; }
    void assignFrom(tavObject const &) override {}

protected:
    void traverse(tavCodecStream & s) override { ioField(s, 1, "list", list); }
};

tavBytes manyNumbers() {
    Numbers numbers;
    for (int i = 0; i < 200000; ++i) {
        numbers.list.push_back(i % 100);
    }
    return numbers.encode(true);
}

void listParse(benchmark::State & state) {
    tavBytes const bytes = manyNumbers();
    for (auto _ : state) {
        tav_istr rest = bytes;
        benchmark::DoNotOptimize(tav::nbr::parser::from(rest));
    }
}
BENCHMARK(listParse);

void listDecode(benchmark::State & state) {
    tavBytes const bytes = manyNumbers();
    for (auto _ : state) {
        Numbers numbers;
        numbers.decode(tav_istr(bytes));
        benchmark::DoNotOptimize(numbers.list.data());
    }
}
BENCHMARK(listDecode);

} // namespace
