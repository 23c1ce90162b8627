#include "tav/vinta/vinta_tls_statistics.h"

#include <string_view>

namespace tav {
namespace tls {
namespace {

struct metric_line {
    unsigned long long statistics::*value;
    char const * name;
    char const * labels;
    char const * help;
};

/// Metrics of one name stand together, the first with the help.  A name that ends in "_total" is a counter.
constexpr metric_line metrics[] = {
    {&statistics::bytes_sent, "tav_client_bytes_total", "direction=\"sent\"", "Bytes of frames before TLS."},
    {&statistics::bytes_received, "tav_client_bytes_total", "direction=\"received\"", nullptr},
    {&statistics::frames_sent, "tav_client_frames_total", "direction=\"sent\"",
     "Frames, heartbeats included."},
    {&statistics::frames_received, "tav_client_frames_total", "direction=\"received\"", nullptr},
    {&statistics::messages_sent, "tav_client_messages_total", "direction=\"sent\"", "Messages."},
    {&statistics::messages_received, "tav_client_messages_total", "direction=\"received\"", nullptr},
    {&statistics::heartbeats_sent, "tav_client_heartbeats_total", "direction=\"sent\"", "Heartbeats."},
    {&statistics::heartbeats_received, "tav_client_heartbeats_total", "direction=\"received\"", nullptr},
    {&statistics::receipts_sent, "tav_client_receipts_total", "direction=\"sent\"", "Receipts."},
    {&statistics::receipts_received, "tav_client_receipts_total", "direction=\"received\"", nullptr},
    {&statistics::sends_ok, "tav_client_sends_total", "result=\"ok\"", "Sends by their end."},
    {&statistics::sends_timedout, "tav_client_sends_total", "result=\"timedout\"", nullptr},
    {&statistics::sends_cancelled, "tav_client_sends_total", "result=\"cancelled\"", nullptr},
    {&statistics::sends_refused, "tav_client_sends_total", "result=\"refused\"", nullptr},
    {&statistics::replies, "tav_client_dispatched_total", "level=\"send\"", "Messages by their receiver."},
    {&statistics::pushes, "tav_client_dispatched_total", "level=\"push\"", nullptr},
    {&statistics::connects_begun, "tav_client_connects_total", "stage=\"begun\"", "Connects."},
    {&statistics::connects_up, "tav_client_connects_total", "stage=\"up\"", nullptr},
    {&statistics::connects_failed, "tav_client_connects_total", "stage=\"failed\"", nullptr},
    {&statistics::breaks_by_peer, "tav_client_ends_total", "cause=\"peer\"", "Ends of connections by cause."},
    {&statistics::breaks_by_error, "tav_client_ends_total", "cause=\"error\"", nullptr},
    {&statistics::breaks_by_silence, "tav_client_ends_total", "cause=\"silence\"", nullptr},
    {&statistics::closes, "tav_client_ends_total", "cause=\"application\"", nullptr},
    {&statistics::queued_frames, "tav_client_queued_frames", "", "Frames accepted and not yet written."},
    {&statistics::queued_bytes, "tav_client_queued_bytes", "", "Bytes accepted and not yet written."},
    {&statistics::tracked_sends, "tav_client_tracked_sends", "", "Sends that wait for their end."},
    {&statistics::received_waiting, "tav_client_received_waiting", "",
     "Frames that no callback has begun with."},
    {&statistics::received_waiting_bytes, "tav_client_received_waiting_bytes", "", "Their bytes."},
    {&statistics::longest_callback_us, "tav_client_longest_callback_microseconds", "",
     "Longest message callback."},
};

bool ends_with(std::string_view text, std::string_view end) {
    return text.size() >= end.size() && text.substr(text.size() - end.size()) == end;
}

/// A label's value, with what the format reserves escaped.
std::string escaped(std::string_view text) {
    std::string out;
    for (char const c : text) {
        if (c == '\n') {
            out += "\\n";
            continue;
        }
        if (c == '"' || c == '\\') {
            out += '\\';
        }
        out += c;
    }
    return out;
}

} // namespace

std::string statistics::prometheus(char const * client_name) const {
    std::string const client = "{client=\"" + escaped(client_name != nullptr ? client_name : "") + '"';
    std::string out;
    out.reserve(4096);
    for (metric_line const & metric : metrics) {
        if (metric.help != nullptr) {
            char const * const type = ends_with(metric.name, "_total") ? " counter\n" : " gauge\n";
            out.append("# HELP ").append(metric.name).append(1, ' ').append(metric.help).append(1, '\n');
            out.append("# TYPE ").append(metric.name).append(type);
        }
        out.append(metric.name).append(client);
        if (*metric.labels != '\0') {
            out.append(1, ',').append(metric.labels);
        }
        out.append("} ").append(std::to_string(this->*metric.value)).append(1, '\n');
    }
    return out;
}

} // namespace tls
} // namespace tav
