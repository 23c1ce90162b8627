#include "tav/vinta/vinta_tls_statistics.h"

#include <gtest/gtest.h>

#include <cstring>
#include <map>
#include <regex>
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

/// A page of metrics, read by the rules of the text format, version 0.0.4: each family begins with its help
/// and its type, its samples stand behind them, none twice, and every line ends.
class Exposition {
public:
    explicit Exposition(std::string const & text) {
        if (text.empty() || text.back() != '\n') {
            fault("the last line has no end");
        }
        std::istringstream lines(text);
        for (std::string line; std::getline(lines, line);) {
            read(line);
        }
    }

    std::string const & faults() const { return faults_; }
    std::size_t samples() const { return samples_.size(); }
    std::set<std::string> const & clients() const { return clients_; }

private:
    void fault(std::string const & what) { faults_ += what + "\n"; }

    void read(std::string const & line) {
        static std::regex const help("# HELP ([a-zA-Z_:][a-zA-Z0-9_:]*) ([^\\\\]+)");
        static std::regex const type("# TYPE ([a-zA-Z_:][a-zA-Z0-9_:]*) (counter|gauge)");
        static std::regex const sample("([a-zA-Z_:][a-zA-Z0-9_:]*)\\{(.*)\\} ([0-9]+)");
        std::smatch found;
        if (std::regex_match(line, found, help)) {
            family_ = found[1];
            if (!families_.insert(family_).second) {
                fault("twice: " + line);
            }
            kind_.clear();
        } else if (std::regex_match(line, found, type)) {
            bool const total = std::regex_match(family_, std::regex(".*_total"));
            if (found[1] != family_ || !kind_.empty() || total != (found[2] == "counter")) {
                fault("a type of another: " + line);
            }
            kind_ = found[2];
        } else if (std::regex_match(line, found, sample)) {
            if (found[1] != family_ || kind_.empty() ||
                !samples_.insert(found[1].str() + found[2].str()).second) {
                fault("not where it belongs: " + line);
            }
            readLabels(found[2]);
        } else {
            fault("no line of the format: " + line);
        }
    }

    /// The label "client" first, and others of plain words.
    void readLabels(std::string const & text) {
        static std::regex const labels(
            "client=\"((?:[^\\\\\"]|\\\\[\\\\\"n])*)\"((?:,[a-zA-Z_][a-zA-Z0-9_]*=\"[a-z]+\")*)");
        std::smatch found;
        if (!std::regex_match(text, found, labels)) {
            fault("no labels: " + text);
            return;
        }
        std::string client;
        std::string const escaped = found[1];
        for (std::size_t i = 0; i < escaped.size(); ++i) {
            bool const escape = escaped[i] == '\\';
            i += escape ? 1 : 0;
            client += escape && escaped[i] == 'n' ? '\n' : escaped[i];
        }
        clients_.insert(client);
    }

    std::string faults_;
    std::string family_;
    std::string kind_;
    std::set<std::string> families_;
    std::set<std::string> samples_;
    std::set<std::string> clients_;
};

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

// As a scraper reads it, which takes all of a page or nothing.
TEST(Statistics, PrometheusIsWhatTheFormatSays) {
    for (char const * name : {"a", "", "a\"b\\c\nd", "{}, =\"", "\xc3\xa4"}) {
        Exposition const page(numbered().prometheus(name));
        EXPECT_EQ(page.faults(), "") << name;
        EXPECT_EQ(page.samples(), sizeof(statistics) / sizeof(unsigned long long));
        EXPECT_EQ(page.clients(), std::set<std::string>{name});
    }
}

TEST(Statistics, PrometheusFormatIsHeldByAReaderThatRefuses) {
    std::string const head = "# HELP a_total Text.\n# TYPE a_total counter\n";
    EXPECT_EQ(Exposition(head + "a_total{client=\"x\"} 1\n").faults(), "");
    for (char const * wrong :
         {"a_total{client=\"x\"} 1", "a_total{client=\"x\"} 1 \n", "a_total{client=x} 1\n", "a_total 1\n",
          "a_total{client=\"x\",} one\n", "a_total{client=\"x\"y\"} 1\n", "b_total{client=\"x\"} 1\n",
          "a_total{client=\"x\"} 1\na_total{client=\"x\"} 2\n", "a_total{client=\"\\t\"} 1\n",
          "\na_total{client=\"x\"} 1\n"}) {
        EXPECT_NE(Exposition(head + wrong).faults(), "") << wrong;
    }
    EXPECT_NE(Exposition("# TYPE a_total gauge\n# HELP a_total T.\na_total{client=\"x\"} 1\n").faults(), "");
    EXPECT_NE(Exposition(head + "a_total{client=\"x\"} 1\n" + head).faults(), "") << "a family twice";
}
