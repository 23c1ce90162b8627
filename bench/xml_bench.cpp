#include "allocations.h"

#include "tav/vinta/vinta_xml_node.h"

#include <benchmark/benchmark.h>
#include <pugixml.hpp>

#include <cstdint>
#include <cstdlib>
#include <iostream>
#include <string>

namespace {

constexpr int records = 900;

/// A document of about 240 kB: records with attributes, short texts, entities and a CDATA section.
std::string const & document() {
    static std::string const text = [] {
        std::string out = "<?xml version=\"1.0\"?>\n<book>\n";
        for (int i = 0; i < records; ++i) {
            std::string const n = std::to_string(i);
            out += "  <note id=\"" + n +
                   "\" mood=\"good &amp; calm\">\n    <from>ann</from>\n    <to>bob</to>\n"
                   "    <text>The weather in Utrecht is fine today, and tomorrow too.</text>\n"
                   "    <tags><tag>sun</tag><tag>wind</tag><tag>rain</tag></tags>\n"
                   "    <raw><![CDATA[a<b]]></raw>\n    <at>1700000000" +
                   n + "</at>\n  </note>\n";
        }
        return out + "</book>\n";
    }();
    return text;
}

/// Ends the program: a reader that refuses its input would be fast.
void check(bool ok) {
    if (!ok) {
        std::cerr << "the document was not read\n";
        std::exit(1);
    }
}

void setBytes(benchmark::State & state) {
    state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations()) *
                            static_cast<std::int64_t>(document().size()));
}

void parseOwn(benchmark::State & state) {
    CountAllocations const count(state);
    for (auto _ : state) {
        tav::xml::Node node;
        node.decode(tav_istr(document()));
        check(node.end() - node.begin() == records);
    }
    setBytes(state);
}
BENCHMARK(parseOwn);

void parsePeer(benchmark::State & state) {
    CountAllocations const count(state);
    for (auto _ : state) {
        pugi::xml_document parsed;
        check(parsed.load_buffer(document().data(), document().size()));
        benchmark::DoNotOptimize(parsed);
    }
    setBytes(state);
}
BENCHMARK(parsePeer);

void writeOwn(benchmark::State & state) {
    tav::xml::Node node;
    node.decode(tav_istr(document()));
    CountAllocations const count(state);
    for (auto _ : state) {
        benchmark::DoNotOptimize(node.encode(false, false, 0, true).size());
    }
    setBytes(state);
}
BENCHMARK(writeOwn);

/// Keeps what is written in one text, as ours does.
struct TextWriter : pugi::xml_writer {
    void write(void const * data, std::size_t size) override {
        text.append(static_cast<char const *>(data), size);
    }
    std::string text;
};

void writePeer(benchmark::State & state) {
    pugi::xml_document parsed;
    check(parsed.load_buffer(document().data(), document().size()));
    TextWriter writer;
    CountAllocations const count(state);
    for (auto _ : state) {
        writer.text.clear();
        parsed.save(writer, "", pugi::format_raw);
        benchmark::DoNotOptimize(writer.text.size());
    }
    setBytes(state);
}
BENCHMARK(writePeer);

} // namespace
