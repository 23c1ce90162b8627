#include "allocations.h"
#include "message.h"
#include "message.pb.h"

#include <benchmark/benchmark.h>

#include <sstream>

namespace {

tav_bench::Note peerSample() {
    tav_bench_own::Note const own = tav_bench_own::sample();
    tav_bench::Note note;
    note.set_from(own.from.data());
    note.set_to(own.to.data());
    note.set_topic(own.topic.data());
    note.set_text(own.text.data());
    note.set_mood(own.mood);
    note.set_flags(own.flags);
    note.set_at(own.at);
    note.set_urgent(own.urgent);
    note.set_weight(own.weight);
    for (tavString const & tag : own.tags) {
        note.add_tags(tag.data());
    }
    note.mutable_place()->set_city(own.place.city.data());
    note.mutable_place()->set_floor(own.place.floor);
    note.mutable_place()->set_height(own.place.height);
    note.set_digest(std::string(tav_istr(own.digest)));
    return note;
}

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
