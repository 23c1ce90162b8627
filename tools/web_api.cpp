#include "tools/web_api.h"

#include <algorithm>
#include <stdexcept>

namespace tav {
namespace tool {

namespace {

/// Of packets and connections in one answer.
constexpr std::size_t mostRows = 200;
constexpr std::size_t mostConnections = 100;

std::string const & of(WebApi::Parameters const & asked, char const * name) {
    static std::string const none;
    auto const found = asked.find(name);
    return found == asked.end() ? none : found->second;
}

unsigned long long numberOf(WebApi::Parameters const & asked, char const * name) {
    std::string const & text = of(asked, name);
    constexpr std::size_t mostDigits = 18;
    if (text.size() > mostDigits || text.find_first_not_of("0123456789") != std::string::npos) {
        throw WebFailure(400, std::string(name) + " is a number");
    }
    return text.empty() ? 0 : std::stoull(text);
}

std::string lower(std::string text) {
    for (char & c : text) {
        c = c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
    }
    return text;
}

std::string member(char const * name, std::string const & text) {
    return std::string(",\"") + name + "\":" + jsonText(text);
}

std::string member(char const * name, unsigned long long value) {
    return std::string(",\"") + name + "\":" + std::to_string(value);
}

std::string member(char const * name, bool value) {
    return std::string(",\"") + name + "\":" + (value ? "true" : "false");
}

std::string rowOf(SeenPacket const & packet, FrameSummary const & shown) {
    return "{\"id\":" + std::to_string(packet.id) + ",\"time\":" + std::to_string(packet.time) +
           member("connection", static_cast<unsigned long long>(packet.connection)) +
           member("in", packet.in) +
           member("code", shown.code == Message::noCode ? std::string() : codeText(shown.code)) +
           member("class", shown.className) + member("sequence", shown.sequence) +
           member("size", static_cast<unsigned long long>(shown.size)) +
           member("receipt", std::string(shown.receipt)) + member("odd", packet.odd) +
           member("text", shown.text) + "}";
}

std::string rowOf(SeenConnection const & one) {
    return "{\"id\":" + std::to_string(one.id) + ",\"since\":" + std::to_string(one.since) +
           member("peer", one.peer) + member("open", one.open) + member("silent", one.silent) +
           member("in", one.in) + member("out", one.out) + "}";
}

template <class All>
std::string listOf(All const & rows) {
    std::string text = "[";
    for (std::string const & row : rows) {
        text += (text.size() == 1 ? "" : ",") + row;
    }
    return text + "]";
}

} // namespace

/// What the page wants to see.
struct WebApi::Filter {
    explicit Filter(Parameters const & asked)
        : way(of(asked, "way")),
          className(lower(of(asked, "class"))),
          text(lower(of(asked, "text"))),
          connection(numberOf(asked, "connection")) {
        std::string const & wanted = of(asked, "code");
        coded = !wanted.empty();
        if (coded && !readCode(wanted, code)) {
            throw WebFailure(400, "code has up to four hexadecimal digits");
        }
        if (!way.empty() && way != "in" && way != "out") {
            throw WebFailure(400, "way is in or out");
        }
    }

    bool admits(SeenPacket const & packet) const {
        return (way.empty() || packet.in == (way == "in")) &&
               (connection == 0 || packet.connection == connection);
    }
    bool admits(FrameSummary const & shown) const {
        return (!coded || shown.code == code) &&
               (className.empty() || lower(shown.className).find(className) != std::string::npos) &&
               (text.empty() || lower(shown.text).find(text) != std::string::npos);
    }

    std::string way;
    std::string className;
    std::string text;
    unsigned long long connection;
    bool coded = false;
    unsigned short code = 0;
};

WebApi::WebApi(WebOptions const & options, Template const & model, Traffic & traffic,
               gateway::Gateway & gateway)
    : options_(options),
      traffic_(traffic),
      gateway_(gateway),
      views_(model, options.reveal),
      messages_(model) {}

FrameSummary const & WebApi::summaryOf(SeenPacket const & packet) {
    auto const found = summaries_.find(packet.id);
    return found != summaries_.end() ? found->second
                                     : summaries_.emplace(packet.id, views_.summary(packet)).first->second;
}

void WebApi::forget(unsigned long long oldest) {
    summaries_.erase(summaries_.begin(), summaries_.lower_bound(oldest));
}

std::string WebApi::state(Parameters const & asked) {
    Filter const filter(asked);
    unsigned long long const after = numberOf(asked, "after");
    std::vector<Traffic::Packet> const packets = traffic_.packets(after);
    Traffic::Counts const counts = traffic_.counts();
    std::vector<std::string> rows;
    std::size_t looked = 0;
    {
        std::lock_guard<std::mutex> const guard(mutex_);
        forget(counts.last - counts.kept + 1);
        for (auto at = packets.rbegin(); at != packets.rend() && rows.size() < mostRows; ++at, ++looked) {
            if (filter.admits(**at) && filter.admits(summaryOf(**at))) {
                rows.push_back(rowOf(**at, summaryOf(**at)));
            }
        }
    }
    std::reverse(rows.begin(), rows.end());
    std::vector<SeenConnection> const connections = traffic_.connections();
    std::vector<std::string> shown;
    std::size_t open = 0;
    for (SeenConnection const & one : connections) {
        open += one.open ? 1 : 0;
    }
    for (auto at = connections.rbegin(); at != connections.rend() && shown.size() < mostConnections; ++at) {
        shown.push_back(rowOf(*at));
    }
    return "{\"last\":" + std::to_string(packets.empty() ? after : packets.back()->id) +
           member("all", counts.all) + member("leftOut", counts.leftOut) +
           member("kept", static_cast<unsigned long long>(counts.kept)) +
           member("passed", static_cast<unsigned long long>(packets.size() - looked)) +
           member("open", static_cast<unsigned long long>(open)) +
           member("moreConnections", static_cast<unsigned long long>(connections.size() - shown.size())) +
           member("masked", !options_.reveal) + ",\"connections\":" + listOf(shown) +
           ",\"packets\":" + listOf(rows) + "}";
}

std::string WebApi::packet(Parameters const & asked) const {
    Traffic::Packet const packet = traffic_.packet(numberOf(asked, "id"));
    if (packet == nullptr) {
        throw WebFailure(404, "This packet is not kept any more.");
    }
    FrameDetails const shown = views_.details(*packet);
    std::string const row = rowOf(*packet, views_.summary(*packet));
    return row.substr(0, row.size() - 1) + member("envelope", shown.envelope) + member("json", shown.json) +
           member("pml", shown.pml) + member("xml", shown.xml) + member("nbr", shown.nbr) +
           member("bytes", shown.bytes) + "}";
}

unsigned WebApi::openConnection(Parameters const & asked) const {
    unsigned long long const id = numberOf(asked, "connection");
    for (SeenConnection const & one : traffic_.connections()) {
        if (one.id == id && one.open) {
            return one.id;
        }
    }
    throw WebFailure(404, "Connection " + std::to_string(id) + " is not open.");
}

std::string WebApi::push(Parameters const & asked, std::string const & message) {
    bool const all = numberOf(asked, "connection") == 0;
    unsigned const to = all ? 0 : openConnection(asked);
    Message made;
    try {
        JsonText const json(message);
        if (json.root().kind != JsonNode::Kind::object) {
            throw PlacedFault(0, "a message is a JSON object");
        }
        std::size_t const rest = json.text().find_first_not_of(" \t\r\n", json.root().end);
        if (rest != std::string_view::npos) {
            throw PlacedFault(rest, "what follows is not read");
        }
        messages_.write(json, json.root(), nullptr, made);
        if (!made.notes.empty()) {
            // Nothing is dropped: the message is refused.
            std::string const & note = made.notes.front().text;
            throw PlacedFault(made.notes.front().offset, note.substr(0, note.find(": it is dropped")));
        }
    } catch (PlacedFault const & e) {
        throw WebFailure(400, toldInText("message", message, e.offset(), "error", e.what()));
    }
    if (made.code == Message::noCode) {
        throw WebFailure(400, "The class " + stringOf(made.cls->className) + " has no code to be sent by.");
    }
    std::size_t const receivers = receiversOf(to);
    if (receivers == 0) {
        throw WebFailure(409, all ? "Nobody is connected to get it."
                                  : "Connection " + std::to_string(to) + " is silent: nothing goes out.");
    }
    std::string const body(viewOf(tav_istr(made.nbr)));
    if (all) {
        gateway_.push(made.code, body, false);
    } else {
        gateway_.pushTo(to, made.code, body);
    }
    return "{\"done\":\"pushed\"" + member("code", codeText(made.code)) +
           member("to", static_cast<unsigned long long>(receivers)) + "}";
}

std::size_t WebApi::receiversOf(unsigned to) const {
    std::size_t count = 0;
    for (SeenConnection const & one : traffic_.connections()) {
        count += one.open && !one.silent && (to == 0 || one.id == to) ? 1 : 0;
    }
    return count;
}

std::string WebApi::close(Parameters const & asked) {
    gateway_.drop(openConnection(asked), false);
    return "{\"done\":\"closed\"}";
}

std::string WebApi::reset(Parameters const & asked) {
    gateway_.drop(openConnection(asked), true);
    return "{\"done\":\"reset\"}";
}

std::string WebApi::silence(Parameters const & asked) {
    unsigned const id = openConnection(asked);
    bool const on = numberOf(asked, "on") != 0;
    gateway_.silence(id, on);
    return "{\"done\":\"silence\"}";
}

} // namespace tool
} // namespace tav
