#include "allocations.h"
#include "peer.h"

#include "tav/vinta/vinta_json2nbr.h"
#include "tav/vinta/vinta_json_parser.h"
#include "tav/vinta/vinta_pml_meta.h"

#include <benchmark/benchmark.h>
#include <google/protobuf/util/json_util.h>
#include <nlohmann/json.hpp>
#include <rapidjson/document.h>
#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>

#ifdef TAV_BENCH_SIMDJSON
#include <simdjson.h>
#endif

#include <cstdlib>
#include <iostream>
#include <string>

namespace {

using google::protobuf::util::JsonStringToMessage;
using google::protobuf::util::MessageToJsonString;

char const templateText[] = R"(
Place:object(
    __class__(Place)
    [1]city:string()
    [2]floor:int32()
    [3]height:double()
)
Note:object(
    __class__(Note)
    __code__(2001)
    [1]from:string()
    [2]to:string()
    [3]topic:string()
    [4]text:string()
    [5]mood:int32()
    [6]flags:uint32()
    [7]at:int64()
    [8]urgent:bool()
    [9]weight:double()
    [10]tags:list{string}()
    [11]place:Place()
    [12]digest:bytes()
)
Book:object(
    __class__(Book)
    __code__(2002)
    [1]notes:list{Note}()
)
)";

constexpr int notesInBook = 1000;

/// Ends the program: a peer that refuses its input would be fast.
void check(bool ok, char const * what) {
    if (!ok) {
        std::cerr << what << " failed\n";
        std::exit(1);
    }
}

tav_bench::Book peerBook() {
    tav_bench::Book book;
    for (int i = 0; i < notesInBook; ++i) {
        *book.add_notes() = peerSample();
    }
    return book;
}

std::string jsonOf(google::protobuf::Message const & message) {
    std::string out;
    check(MessageToJsonString(message, &out).ok(), "writing JSON");
    return out;
}

/// The documents by the benchmark's argument: 0 is one note, 1 is the book.
std::string const & document(long which) {
    static std::string const small = jsonOf(peerSample());
    static std::string const large = jsonOf(peerBook());
    return which == 0 ? small : large;
}

std::string const & className(long which) {
    static std::string const names[] = {"Note", "Book"};
    return names[which == 0 ? 0 : 1];
}

std::unique_ptr<google::protobuf::Message> peerMessage(long which) {
    if (which == 0) {
        return std::make_unique<tav_bench::Note>();
    }
    return std::make_unique<tav_bench::Book>();
}

tav::pml::MetaFactory const & factory() {
    static tav::pml::MetaFactory const loaded = [] {
        tav::pml::PmlInputStream in{tav_istr(templateText)};
        return tav::pml::MetaFactory(in);
    }();
    return loaded;
}

tavBytes transcoded(long which) {
    tavBytes out;
    unsigned short code = 0xffff;
    tav::json2nbr::write(tav_istr(document(which)), out, code, factory(), tav_istr(className(which)));
    return out;
}

void setBytes(benchmark::State & state) {
    state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations()) *
                            static_cast<std::int64_t>(document(state.range(0)).size()));
}

void parseOwn(benchmark::State & state) {
    std::string const & text = document(state.range(0));
    CountAllocations const count(state);
    for (auto _ : state) {
        benchmark::DoNotOptimize(tav::json::JsonParser::from(tav_istr(text)));
    }
    setBytes(state);
}
BENCHMARK(parseOwn)->DenseRange(0, 1);

void parseRapidJson(benchmark::State & state) {
    std::string const & text = document(state.range(0));
    CountAllocations const count(state);
    for (auto _ : state) {
        rapidjson::Document parsed;
        parsed.Parse(text.data(), text.size());
        check(!parsed.HasParseError(), "RapidJSON");
        benchmark::DoNotOptimize(parsed);
    }
    setBytes(state);
}
BENCHMARK(parseRapidJson)->DenseRange(0, 1);

void parseNlohmann(benchmark::State & state) {
    std::string const & text = document(state.range(0));
    CountAllocations const count(state);
    for (auto _ : state) {
        benchmark::DoNotOptimize(nlohmann::json::parse(text));
    }
    setBytes(state);
}
BENCHMARK(parseNlohmann)->DenseRange(0, 1);

#ifdef TAV_BENCH_SIMDJSON
/// The limit: the text becomes a tape in the memory of a parser that is kept, and no tree that could be
/// changed.
void parseSimdjson(benchmark::State & state) {
    simdjson::padded_string const text(document(state.range(0)));
    simdjson::dom::parser parser;
    CountAllocations const count(state);
    for (auto _ : state) {
        simdjson::dom::element parsed;
        check(parser.parse(text).get(parsed) == simdjson::SUCCESS, "simdjson");
        benchmark::DoNotOptimize(parsed);
    }
    setBytes(state);
}
BENCHMARK(parseSimdjson)->DenseRange(0, 1);
#endif

void writeOwn(benchmark::State & state) {
    tavSharedPtr<tav::json::JsonValue> const value =
        tav::json::JsonParser::from(tav_istr(document(state.range(0))));
    CountAllocations const count(state);
    for (auto _ : state) {
        benchmark::DoNotOptimize(value->toJson());
    }
    setBytes(state);
}
BENCHMARK(writeOwn)->DenseRange(0, 1);

void writeRapidJson(benchmark::State & state) {
    rapidjson::Document parsed;
    parsed.Parse(document(state.range(0)).data(), document(state.range(0)).size());
    CountAllocations const count(state);
    for (auto _ : state) {
        rapidjson::StringBuffer buffer;
        rapidjson::Writer<rapidjson::StringBuffer> writer(buffer);
        parsed.Accept(writer);
        benchmark::DoNotOptimize(buffer.GetString());
    }
    setBytes(state);
}
BENCHMARK(writeRapidJson)->DenseRange(0, 1);

void writeNlohmann(benchmark::State & state) {
    nlohmann::json const parsed = nlohmann::json::parse(document(state.range(0)));
    CountAllocations const count(state);
    for (auto _ : state) {
        benchmark::DoNotOptimize(parsed.dump());
    }
    setBytes(state);
}
BENCHMARK(writeNlohmann)->DenseRange(0, 1);

void jsonToBinaryOwn(benchmark::State & state) {
    CountAllocations const count(state);
    for (auto _ : state) {
        benchmark::DoNotOptimize(transcoded(state.range(0)));
    }
    setBytes(state);
}
BENCHMARK(jsonToBinaryOwn)->DenseRange(0, 1);

void jsonToBinaryPeer(benchmark::State & state) {
    std::string const & text = document(state.range(0));
    CountAllocations const count(state);
    for (auto _ : state) {
        auto const message = peerMessage(state.range(0));
        check(JsonStringToMessage(text, message.get()).ok(), "JsonStringToMessage");
        benchmark::DoNotOptimize(message->SerializeAsString());
    }
    setBytes(state);
}
BENCHMARK(jsonToBinaryPeer)->DenseRange(0, 1);

void binaryToJsonOwn(benchmark::State & state) {
    tavBytes const bytes = transcoded(state.range(0));
    tavString const name(className(state.range(0)));
    CountAllocations const count(state);
    for (auto _ : state) {
        tavString json;
        tav::json2nbr::read(json, tav_istr(bytes), name, factory(), false);
        check(!json.empty(), "reading NBR");
        benchmark::DoNotOptimize(json);
    }
    setBytes(state);
}
BENCHMARK(binaryToJsonOwn)->DenseRange(0, 1);

void binaryToJsonPeer(benchmark::State & state) {
    std::string bytes;
    {
        auto const message = peerMessage(state.range(0));
        check(JsonStringToMessage(document(state.range(0)), message.get()).ok(), "JsonStringToMessage");
        message->SerializeToString(&bytes);
    }
    CountAllocations const count(state);
    for (auto _ : state) {
        auto const message = peerMessage(state.range(0));
        check(message->ParseFromString(bytes), "ParseFromString");
        benchmark::DoNotOptimize(jsonOf(*message));
    }
    setBytes(state);
}
BENCHMARK(binaryToJsonPeer)->DenseRange(0, 1);

void loadTemplate(benchmark::State & state) {
    CountAllocations const count(state);
    for (auto _ : state) {
        tav::pml::PmlInputStream in{tav_istr(templateText)};
        tav::pml::MetaFactory const loaded(in);
        benchmark::DoNotOptimize(loaded.classes.size());
    }
}
BENCHMARK(loadTemplate);

void classToJson(benchmark::State & state) {
    tav_bench_own::Note const note = tav_bench_own::sample();
    CountAllocations const count(state);
    for (auto _ : state) {
        benchmark::DoNotOptimize(note.encodeJson(true));
    }
}
BENCHMARK(classToJson);

void classFromJson(benchmark::State & state) {
    tavString const json = tav_bench_own::sample().encodeJson(true);
    CountAllocations const count(state);
    for (auto _ : state) {
        tav_bench_own::Note note;
        note.decodeJson(tav_istr(json));
        benchmark::DoNotOptimize(note.text);
    }
}
BENCHMARK(classFromJson);

} // namespace
