#include "tav/vinta/vinta_tls_statistics.h"

#include <gtest/gtest.h>

#include <cstring>
#include <map>
#include <set>
#include <sstream>
#include <string>

using tav::tls::statistics;

namespace {

/// Each number a different one, from 1.
statistics numbered() {
    constexpr std::size_t count = sizeof(statistics) / sizeof(unsigned long long);
    unsigned long long values[count];
    for (std::size_t i = 0; i < count; ++i) {
        values[i] = i + 1;
    }
    statistics all;
    static_assert(sizeof values == sizeof all, "plain numbers and nothing else");
    std::memcpy(&all, values, sizeof values);
    return all;
}

std::map<std::string, std::string> samples(std::string const & text) {
    std::map<std::string, std::string> found;
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);) {
        if (line[0] != '#') {
            std::size_t const blank = line.rfind(' ');
            found[line.substr(0, blank)] = line.substr(blank + 1);
        }
    }
    return found;
}

} // namespace

TEST(Statistics, PrometheusTellsEachNumberOnce) {
    statistics const all = numbered();
    std::set<std::string> values;
    for (auto const & sample : samples(all.prometheus("a"))) {
        EXPECT_TRUE(values.insert(sample.second).second) << sample.first;
    }
    EXPECT_EQ(values.size(), sizeof(statistics) / sizeof(unsigned long long));
}

TEST(Statistics, PrometheusLabelsEachLineWithTheClient) {
    statistics one;
    one.frames_sent = 7;
    one.tracked_sends = 2;
    auto const found = samples(one.prometheus("alice"));
    EXPECT_EQ(found.at("tav_client_frames_total{client=\"alice\",direction=\"sent\"}"), "7");
    EXPECT_EQ(found.at("tav_client_tracked_sends{client=\"alice\"}"), "2");
    EXPECT_EQ(found.at("tav_client_sends_total{client=\"alice\",result=\"ok\"}"), "0");
}

TEST(Statistics, PrometheusEscapesTheClientsName) {
    auto const found = samples(statistics().prometheus("a\"b\\c\nd"));
    EXPECT_EQ(found.count("tav_client_queued_frames{client=\"a\\\"b\\\\c\\nd\"}"), 1u);
    EXPECT_EQ(samples(statistics().prometheus(nullptr)).count("tav_client_queued_frames{client=\"\"}"), 1u);
}

TEST(Statistics, PrometheusNamesTheKindOfEachMetricOnce) {
    std::string const text = statistics().prometheus("a");
    std::set<std::string> typed;
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);) {
        if (line.rfind("# TYPE ", 0) == 0) {
            EXPECT_TRUE(typed.insert(line).second) << line;
        } else if (line[0] != '#') {
            std::string const name = line.substr(0, line.find('{'));
            bool const total = name.size() > 6 && name.compare(name.size() - 6, 6, "_total") == 0;
            EXPECT_EQ(typed.count("# TYPE " + name + (total ? " counter" : " gauge")), 1u) << name;
        }
    }
}
