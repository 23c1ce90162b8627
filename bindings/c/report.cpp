#include "bindings/c/report.h"

#include "bindings/c/session.h"

#include "tav/vinta/vinta_basetypes_failures.h"
#include "tav/vinta/vinta_log.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <iterator>
#include <limits>
#include <stdexcept>
#include <system_error>
#include <utility>

namespace tav {
namespace json_client {

namespace {

using tls::failure;

std::string base64(tav_istr bytes) {
    std::string out;
    tavBase64::encode(bytes, out, false);
    return out;
}

std::string hex(tav_istr bytes) {
    static constexpr char digits[] = "0123456789abcdef";
    std::string out;
    for (unsigned i = 0; i < bytes.size(); ++i) {
        auto const byte = static_cast<unsigned char>(bytes.data()[i]);
        out += digits[byte >> 4u];
        out += digits[byte & 15u];
    }
    return out;
}

std::string quotedList(std::vector<std::string> const & texts) {
    std::string out = "[";
    for (std::string const & each : texts) {
        out += out.size() > 1 ? "," : "";
        appendString(out, each);
    }
    return out + "]";
}

std::string certificateText(tls::peer_certificate const & v) {
    ObjectText out;
    out.text("subject", v.subject).text("issuer", v.issuer).raw("names", quotedList(v.names));
    out.number("valid_from", v.valid_from.milliseconds()).number("valid_to", v.valid_to.milliseconds());
    return out.text("fingerprint", v.fingerprint).take();
}

std::string reportText(tls::tls_report const & v) {
    std::string chain = "[";
    for (tls::peer_certificate const & each : v.chain) {
        chain += (chain.size() > 1 ? "," : "") + certificateText(each);
    }
    ObjectText out;
    out.text("version", v.version).text("cipher", v.cipher).text("alpn", v.alpn);
    out.flag("verified", v.verified).text("matched_name", v.matched_name);
    out.number("verify_result", v.verify_result).text("verify_text", v.verify_text);
    return out.raw("chain", chain + "]").take();
}

std::string addressText(tls::ip_port const & v) {
    bool const six = v.host.find(':') != std::string::npos;
    return (six ? "[" + v.host + "]" : v.host) + ":" + v.port;
}

void putConnection(ObjectText & out, tls::client & client) {
    try {
        out.text("local", addressText(client.get_local_addr()));
        out.text("remote", addressText(client.get_remote_addr()));
    } catch (std::system_error const &) {
        // The connection is over already: there is nothing to tell of it.
    }
    out.raw("tls", reportText(client.negotiated()));
}

} // namespace

std::string connectedText(tls::client & client) {
    ObjectText out("connected", std::string());
    putConnection(out, client);
    return out.take();
}

std::string disconnectedText(failure why, std::string const & text) {
    ObjectText out("disconnected", std::string());
    out.number("code", static_cast<int>(why)).text("name", nameOf(why));
    return out.text("text", text.empty() ? make_error_code(why).message() : text).take();
}

std::string stateText(tls::client & client, bool connected, kit::keeper const * keeper,
                      std::string const & cause, std::string_view extra) {
    ObjectText out("state", extra);
    out.flag("connected", connected);
    if (connected) {
        putConnection(out, client);
    }
    if (keeper != nullptr) {
        out.raw("keeper", keeperText(*keeper, cause));
    }
    return out.take();
}

std::string statisticsText(tls::client const & client, std::string_view extra) {
    tls::statistics const v = client.statistics();
    ObjectText out("statistics", extra);
    out.number("bytes_sent", v.bytes_sent).number("bytes_received", v.bytes_received);
    out.number("frames_sent", v.frames_sent).number("frames_received", v.frames_received);
    out.number("messages_sent", v.messages_sent).number("messages_received", v.messages_received);
    out.number("heartbeats_sent", v.heartbeats_sent).number("heartbeats_received", v.heartbeats_received);
    out.number("receipts_sent", v.receipts_sent).number("receipts_received", v.receipts_received);
    out.number("sends_ok", v.sends_ok).number("sends_timedout", v.sends_timedout);
    out.number("sends_cancelled", v.sends_cancelled).number("sends_refused", v.sends_refused);
    out.number("replies", v.replies).number("pushes", v.pushes);
    out.number("connects_begun", v.connects_begun).number("connects_up", v.connects_up);
    out.number("connects_failed", v.connects_failed).number("breaks_by_peer", v.breaks_by_peer);
    out.number("breaks_by_error", v.breaks_by_error).number("breaks_by_silence", v.breaks_by_silence);
    out.number("closes", v.closes).number("queued_frames", v.queued_frames);
    out.number("queued_bytes", v.queued_bytes).number("tracked_sends", v.tracked_sends);
    out.number("received_waiting", v.received_waiting);
    out.number("received_waiting_bytes", v.received_waiting_bytes);
    return out.number("longest_callback_us", v.longest_callback_us).take();
}

void putExt(ObjectText & out, tavMsgExt const & ext) {
    if (ext.serverTime) {
        out.number("server_time", *ext.serverTime);
    }
    if (ext.clientTime) {
        out.number("client_time", *ext.clientTime);
    }
    if (ext.traceId) {
        out.text("trace_id", std::string(tav_istr(*ext.traceId)));
    }
}

void putMessage(ObjectText & out, unsigned short code, tav_istr body,
                std::shared_ptr<Template const> const & messages) {
    out.number("code", code);
    std::string const class_name = messages ? messages->classOf(code) : std::string();
    if (!class_name.empty()) {
        out.text("class", class_name);
        try {
            out.raw("message", messages->decode(body, code));
            return;
        } catch (Failure const & e) {
            out.text("name", e.name).text("text", e.text);
        }
    }
    out.text("body", base64(body));
}

unsigned short readCode(Fields & fields, std::string_view name,
                        std::shared_ptr<Template const> const & messages) {
    unsigned const i = fields.find(name);
    if (i == 0) {
        fields.lack(name);
        return no_code;
    }
    if (fields.document().node(i).kind != Kind::string) {
        return static_cast<unsigned short>(fields.number(name, 0, no_code - 1, 0));
    }
    std::string const class_name = fields.text(name);
    unsigned short const code = messages ? messages->codeOf(class_name) : no_code;
    if (code == no_code) {
        std::string const path = fields.document().path(i);
        throw failureOf(failure::template_lacks_class,
                        path + (messages ? ": the template has no code for the class " + class_name
                                         : ": there is no template"),
                        path, static_cast<long long>(fields.document().node(i).begin));
    }
    return code;
}

namespace {

tavBytes readBody(Fields & fields) {
    std::string const text = fields.text("body");
    bool const sixteen = fields.word("as", {"base64", "hex"}, 0) == 1;
    tavBytes out;
    if (sixteen) {
        bool const good =
            text.size() % 2 == 0 && text.find_first_not_of("0123456789abcdefABCDEF") == std::string::npos;
        if (!good) {
            fields.refuse(fields.find("body"), "these are no hexadecimal digits");
        }
        out = tavHex16::decode(tav_istr(text));
    } else if (isBase64(text)) {
        tavBase64::decode(tav_istr(text), out);
    } else {
        fields.refuse(fields.find("body"), "this has to be base64");
    }
    return out;
}

/// Of a body: both code and class may be given, and have to mean the same.
unsigned short readBodyCode(Fields & fields, std::shared_ptr<Template const> const & messages) {
    if (!fields.has("code")) {
        return readCode(fields, "class", messages);
    }
    unsigned short const code = readCode(fields, "code", messages);
    if (fields.has("class") && readCode(fields, "class", messages) != code) {
        throw failureOf(failure::template_lacks_class,
                        "code: the template has another code for the class " + fields.text("class"),
                        fields.path("code"));
    }
    return code;
}

} // namespace

Encoded readOutgoing(Fields & fields, std::shared_ptr<Template const> const & messages) {
    unsigned const message = fields.object("message");
    Encoded out;
    unsigned short code = no_code;
    std::string class_name = fields.text("class");
    if (fields.has("code")) {
        code = static_cast<unsigned short>(fields.number("code", 0, no_code - 1, no_code));
    }
    if (message == 0) {
        if (!fields.has("body")) {
            fields.pass("as");
            fields.lack("message", "give this, or body");
            return out;
        }
        out.body = readBody(fields);
        out.code = readBodyCode(fields, messages);
        return out;
    }
    if (!messages) {
        throw failureOf(failure::template_lacks_class, "message: there is no template to encode it by",
                        fields.path("message"));
    }
    if (code != no_code) {
        std::string const of_code = messages->classOf(code);
        if (of_code.empty() || (!class_name.empty() && class_name != of_code)) {
            throw failureOf(failure::template_lacks_class,
                            "code: the template has no class " + class_name + " of the code " +
                                std::to_string(code),
                            fields.path("code"));
        }
        class_name = of_code;
    }
    if (class_name.empty()) {
        fields.lack("class");
        return out;
    }
    try {
        return messages->encode(fields.document(), message, class_name);
    } catch (Failure & e) {
        // The template does not know where its class was named.
        e.field = e.field == "class" ? fields.path("class") : e.field;
        throw;
    }
}

namespace {

/// The type of a request, without which no member means anything.
std::string typeOf(Fields & fields) {
    std::string const found = fields.necessaryText("@type");
    if (found.empty()) {
        Document const & document = fields.document();
        unsigned const object = fields.object();
        fields.pass("@extra");
        for (unsigned i = object + 1; i < document.node(object).next; i = document.node(i).next) {
            std::string_view const name = document.node(i).name;
            if (name.empty() || name.front() != '@') {
                fields.pass(name);
            }
        }
        fields.finish();
    }
    return found;
}

} // namespace

SendWish readSend(Fields & fields, bool request, std::shared_ptr<Template const> const & messages) {
    SendWish wish;
    wish.limit_ms = readLimit(fields);
    wish.repeats = fields.flag("safe_to_repeat", false);
    wish.grey = fields.flag("grey", false);
    wish.version = static_cast<unsigned short>(fields.number("version", 1, 0xffff, 4));
    if (request) {
        wish.reply = readCode(fields, "reply", messages);
    } else {
        wish.receipt = fields.flag("receipt", false);
        wish.target = fields.text("target");
    }
    wish.out = readOutgoing(fields, messages);
    fields.finish();
    if (request && wish.isOld()) {
        throw failureOf(failure::value_does_not_fit,
                        fields.path("code") + ": a message of a code up to 255 has no reply",
                        fields.path("code"));
    }
    if (wish.receipt && wish.isOld()) {
        fields.refuse(fields.find("receipt"), "a message of a code up to 255 has no receipt");
    }
    if (!wish.target.empty() && !wish.isOld()) {
        fields.refuse(fields.find("target"), "only a message of a code up to 255 has a target");
    }
    wish.reply = wish.receipt ? wish.out.code : wish.reply;
    return wish;
}

std::string readType(Document const & document) {
    if (document.node(Document::root).kind != Kind::object) {
        throw failureOf(failure::bad_json, "a request is a JSON object", std::string(), 0);
    }
    Fields fields(document, Document::root);
    return typeOf(fields);
}

namespace {

using Templates = std::shared_ptr<Template const>;

/// The template that the request gives, else the session's.
Templates readTemplate(Session const * session, Fields & fields) {
    if (auto const given = givenTemplate(fields)) {
        return given;
    }
    return session != nullptr ? session->messages() : nullptr;
}

std::string encode(Session const * session, Fields & fields, std::string_view extra) {
    Templates const messages = readTemplate(session, fields);
    bool const sixteen = fields.word("as", {"base64", "hex"}, 0) == 1;
    Encoded const made = readOutgoing(fields, messages);
    fields.finish();
    ObjectText out("encoded", extra);
    out.number("code", made.code).text("class", made.class_name);
    return out.text("body", sixteen ? hex(tav_istr(made.body)) : base64(tav_istr(made.body))).take();
}

std::string decode(Session const * session, Fields & fields, std::string_view extra) {
    Templates const messages = readTemplate(session, fields);
    if (!fields.has("body")) {
        fields.lack("body");
    }
    tavBytes const body = readBody(fields);
    unsigned short const code = readBodyCode(fields, messages);
    fields.finish();
    if (!messages || messages->classOf(code).empty()) {
        throw failureOf(failure::template_lacks_class,
                        "code: there is no class of the code " + std::to_string(code), fields.path("code"));
    }
    ObjectText out("decoded", extra);
    out.number("code", code).text("class", messages->classOf(code));
    return out.raw("message", messages->decode(tav_istr(body), code)).take();
}

/// Reads a request without carrying it out.
std::string check(Session const * session, Fields & fields, std::string_view extra) {
    unsigned const object = fields.object("request");
    Templates const messages = readTemplate(session, fields);
    fields.finish();
    if (object == 0) {
        throw failureOf(failure::field_missing, "request: this is necessary", "request");
    }
    Fields in(fields.document(), object);
    std::string const type = typeOf(in);
    in.pass("@extra");
    if (type == "connect") {
        readConnect(in);
    } else if (type == "send" || type == "request") {
        readSend(in, type == "request", messages);
    } else {
        throw Failure(code_unknown_type, "unknown_type",
                      "request.@type: only connect, send and request are checked", "request.@type");
    }
    return ObjectText("ok", extra).take();
}

std::string version(Fields & fields, std::string_view extra) {
    fields.finish();
    return ObjectText("version", extra)
        .text("release", version_t::release())
        .text("build", version_t::str())
        .take();
}

/// What the log would take in silence, and let everything pass, is refused.
void checkLevels(Fields & fields, std::string const & text) {
    static constexpr std::string_view known[] = {"ALL",  "TRACE", "VERBOSE", "DEBUG", "INFO",
                                                 "WARN", "ERROR", "ASSERT",  "OUT",   "NONE"};
    unsigned const member = fields.find("levels");
    pml::Unit unit;
    try {
        unit.decode(tav_istr(text));
    } catch (std::invalid_argument const & e) {
        fields.refuse(member, wordsOf(e));
    }
    if (!unit.value().empty() || unit.simple() || unit.next()) {
        fields.refuse(member, "levels stand in one pair of brackets, such as (default(WARN))");
    }
    for (tavSharedPtr<pml::Unit> const & child : unit) {
        if (std::find(std::begin(known), std::end(known), child->value()) == std::end(known)) {
            fields.refuse(member, "there is no level " + child->value());
        }
    }
}

void checkLogFile(Fields & fields, std::string const & path) {
    std::FILE * const file = std::fopen(path.c_str(), "ab");
    if (file == nullptr) {
        fields.refuse(fields.find("file"),
                      "can't write " + path + ": " + std::generic_category().message(errno));
    }
    std::fclose(file);
}

std::string log(Fields & fields, std::string_view extra) {
    constexpr int usual_size = 10 << 20;
    bool const to_file = fields.has("file");
    std::string const levels = to_file ? fields.text("levels") : fields.necessaryText("levels");
    std::string const path = to_file ? fields.necessaryText("file") : std::string();
    auto const size =
        static_cast<int>(fields.number("size", 1024, std::numeric_limits<int>::max(), usual_size));
    fields.finish();
    if (!to_file && fields.has("size")) {
        fields.refuse(fields.find("size"), "only a file has a size");
    }
    if (!levels.empty()) {
        checkLevels(fields, levels);
    }
    if (to_file) {
        checkLogFile(fields, path);
        tavLogger::open(tav_istr(path), tav_istr("tav_im_json"), tav_istr(levels), nullptr,
                        tav_istr(version_t::release()), size, false, tavLogger::WARN);
    } else {
        tavLogger::setLogLevel(tav_istr(levels));
    }
    return ObjectText("ok", extra).take();
}

std::string ofClient(Session const * session, Fields & fields, std::string_view type,
                     std::string_view extra) {
    fields.finish();
    auto const client = session != nullptr ? session->client() : nullptr;
    if (!client) {
        throw failureOf(failure::closed, std::string(type) + " needs a client");
    }
    if (type == "statistics") {
        return statisticsText(*client, extra);
    }
    auto const kept = session->kept();
    return stateText(*client, session->isUp(), kept ? &kept->keeper : nullptr, session->cause(), extra);
}

} // namespace

bool serveAtOnce(Session const * session, Fields & fields, std::string_view type, std::string_view extra,
                 std::string & answer) {
    if (type == "version") {
        answer = version(fields, extra);
    } else if (type == "encode") {
        answer = encode(session, fields, extra);
    } else if (type == "decode") {
        answer = decode(session, fields, extra);
    } else if (type == "check") {
        answer = check(session, fields, extra);
    } else if (type == "log") {
        answer = log(fields, extra);
    } else if (type == "state" || type == "statistics") {
        answer = ofClient(session, fields, type, extra);
    } else {
        return false;
    }
    return true;
}

} // namespace json_client
} // namespace tav
