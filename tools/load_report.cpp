#include "tools/load_report.h"

#include <algorithm>
#include <cmath>
#include <cstdarg>
#include <cstdio>

namespace tav {
namespace tool {

namespace {

struct Percentile {
    char const * name;
    double percent;
};

constexpr Percentile percentiles[] = {{"p50", 50}, {"p75", 75},     {"p90", 90},      {"p95", 95},
                                      {"p99", 99}, {"p99.9", 99.9}, {"p99.99", 99.99}};

std::string formatted(char const * format, ...) __attribute__((format(printf, 1, 2)));

std::string formatted(char const * format, ...) {
    char text[512];
    std::va_list values;
    va_start(values, format);
    std::vsnprintf(text, sizeof(text), format, values);
    va_end(values);
    return text;
}

double milliseconds(Histogram::Number microseconds) {
    return static_cast<double>(microseconds) / 1000;
}

std::string lines(LoadResult::Counts const & counts) {
    std::string text;
    for (auto const & each : counts) {
        text += formatted("  %-22s %llu\n", each.first.c_str(), each.second);
    }
    return text;
}

std::string json(LoadResult::Counts const & counts) {
    std::string text;
    for (auto const & each : counts) {
        text += (text.empty() ? "\"" : ",\"") + each.first + "\":" + std::to_string(each.second);
    }
    return "{" + text + "}";
}

std::string json(Histogram const & histogram) {
    bool const none = histogram.count() == 0;
    auto const member = [none](char const * name, double value) {
        return formatted(",\"%s\":", name) + (none ? "null" : formatted("%.3f", value));
    };
    std::string text =
        "{\"count\":" + std::to_string(histogram.count()) + member("mean", histogram.mean() / 1000);
    for (Percentile const & each : percentiles) {
        text += member(each.name, milliseconds(histogram.percentile(each.percent)));
    }
    return text + member("max", milliseconds(histogram.most())) + "}";
}

double share(LoadResult const & result) {
    return result.wallSeconds > 0 ? 100 * result.cpuSeconds / result.wallSeconds : 0;
}

double begunEachSecond(LoadResult const & result) {
    return result.seconds > 0 ? static_cast<double>(result.begun) / result.seconds : 0;
}

/// The place of a percentile: each nine takes as much room as the one ahead of it.
double across(double percent) {
    return -std::log10(std::max(1 - percent / 100, 1e-4)) / 4;
}

constexpr double left = 70;
constexpr double top = 40;
constexpr double width = 560;
constexpr double height = 300;

/// The scale of the latencies: whole powers of ten, in microseconds.
struct Scale {
    double low;
    double high;

    explicit Scale(Histogram const & histogram)
        : low(std::floor(std::log10(std::max(1.0, static_cast<double>(histogram.percentile(1)))))),
          high(std::max(low + 1,
                        std::ceil(std::log10(std::max(1.0, static_cast<double>(histogram.most())))))) {}

    double down(double microseconds) const {
        return top + height * (high - std::log10(std::max(1.0, microseconds))) / (high - low);
    }
};

std::string grid(Scale const & scale) {
    std::string text;
    for (double power = scale.low; power <= scale.high; ++power) {
        double const y = scale.down(std::pow(10, power));
        text += formatted("<line class=\"grid\" x1=\"%.0f\" y1=\"%.1f\" x2=\"%.0f\" y2=\"%.1f\"/>"
                          "<text x=\"%.0f\" y=\"%.1f\" text-anchor=\"end\">%g ms</text>\n",
                          left, y, left + width, y, left - 6, y + 4, std::pow(10, power - 3));
    }
    for (Percentile const & each :
         {Percentile{"0", 0}, Percentile{"p50", 50}, Percentile{"p90", 90}, Percentile{"p99", 99},
          Percentile{"p99.9", 99.9}, Percentile{"p99.99", 99.99}}) {
        double const x = left + width * across(each.percent);
        text += formatted("<line class=\"grid\" x1=\"%.1f\" y1=\"%.0f\" x2=\"%.1f\" y2=\"%.0f\"/>"
                          "<text x=\"%.1f\" y=\"%.0f\" text-anchor=\"middle\">%s</text>\n",
                          x, top, x, top + height, x, top + height + 18, each.name);
    }
    return text;
}

std::string curve(Histogram const & histogram, Scale const & scale, char const * name) {
    std::string points;
    constexpr int steps = 200;
    for (int i = 0; i <= steps; ++i) {
        double const part = static_cast<double>(i) / steps;
        double const percent = 100 * (1 - std::pow(10, -4 * part));
        points += formatted("%.1f,%.1f ", left + width * part,
                            scale.down(static_cast<double>(histogram.percentile(percent))));
    }
    return formatted("<polyline class=\"%s\" points=\"", name) + points + "\"/>\n";
}

} // namespace

char const plotMark[] = "Drawn by tav load";

std::string reportOf(LoadPlan const & plan, LoadResult const & result) {
    std::string text = formatted("connected %u of %u clients in %.1f s\n", result.connected, plan.clients,
                                 result.connectSeconds) +
                       lines(result.connects);
    text += formatted("begun     %llu %s in %.1f s, %.1f a second, %.3f MB\n", result.begun,
                      plan.push ? "messages" : "requests", result.seconds, begunEachSecond(result),
                      static_cast<double>(result.bytes) / 1e6);
    text += lines(result.sends);
    if (plan.push) {
        text += formatted("delivered %llu of %llu\n", result.delivered, result.expected);
    }
    if (!result.breaks.empty()) {
        text += "connections that ended\n" + lines(result.breaks);
    }
    if (result.latency.count() > 0) {
        text += plan.push ? "latency in ms, from when a message was due\n"
                          : "latency in ms, from when a request was due, and from when it was made\n";
        for (Percentile const & each : percentiles) {
            text +=
                formatted("  %-8s %12.3f", each.name, milliseconds(result.latency.percentile(each.percent)));
            text += plan.push ? "\n"
                              : formatted(" %12.3f\n", milliseconds(result.service.percentile(each.percent)));
        }
        text += formatted("  %-8s %12.3f", "max", milliseconds(result.latency.most()));
        text += plan.push ? "\n" : formatted(" %12.3f\n", milliseconds(result.service.most()));
    }
    if (result.signal != 0) {
        text += formatted("ended by signal %d\n", result.signal);
    }
    return text + formatted("this process: %.2f s of CPU, %.0f %% of one, %.0f MB at most\n",
                            result.cpuSeconds, share(result), result.memoryMegabytes);
}

std::string jsonReportOf(LoadPlan const & plan, LoadResult const & result) {
    std::string text =
        formatted("{\"mode\":\"%s\",\"rate\":%g,\"duration_s\":%g,\"ramp_s\":%g,\"clients\":%u",
                  plan.push ? "push" : "request", plan.rate, plan.seconds, plan.ramp, plan.clients);
    text += formatted(",\"connected\":%u,\"connect_s\":%.3f,\"connects\":", result.connected,
                      result.connectSeconds) +
            json(result.connects) + ",\"breaks\":" + json(result.breaks);
    text += formatted(",\"begun\":%llu,\"seconds\":%.3f,\"bytes\":%llu,\"sends\":", result.begun,
                      result.seconds, result.bytes) +
            json(result.sends);
    text += formatted(",\"delivered\":%llu,\"expected\":%llu,\"latency_ms\":", result.delivered,
                      result.expected) +
            json(result.latency);
    text += plan.push ? std::string() : ",\"service_ms\":" + json(result.service);
    return text + formatted(",\"cpu_s\":%.3f,\"cpu_percent\":%.1f,\"memory_mb\":%.1f,\"signal\":%d}\n",
                            result.cpuSeconds, share(result), result.memoryMegabytes, result.signal);
}

std::string plotOf(LoadPlan const & plan, LoadResult const & result) {
    Scale const scale(result.latency);
    std::string text = formatted(
        "<svg xmlns=\"http://www.w3.org/2000/svg\" width=\"%.0f\" height=\"%.0f\" font-family=\"sans-serif\" "
        "font-size=\"12\">\n"
        "<!-- %s: changes here are lost. -->\n"
        "<style>.grid{stroke:#ddd}.latency{stroke:#c33;fill:none;stroke-width:2}"
        ".service{stroke:#36c;fill:none}</style>\n"
        "<rect width=\"100%%\" height=\"100%%\" fill=\"white\"/>\n",
        left + width + 30, top + height + 40, plotMark);
    text += formatted(
        "<text x=\"%.0f\" y=\"22\">%u clients, %g a second, %.1f s: latency from when each was due "
        "(red)%s</text>\n",
        left, plan.clients, plan.rate, result.seconds, plan.push ? "" : ", and from when it was made (blue)");
    if (result.latency.count() == 0) {
        return text +
               formatted("<text x=\"%.0f\" y=\"%.0f\">no message has a latency</text>\n</svg>\n", left, top);
    }
    text += grid(scale);
    text += plan.push ? std::string() : curve(result.service, scale, "service");
    return text + curve(result.latency, scale, "latency") + "</svg>\n";
}

} // namespace tool
} // namespace tav
