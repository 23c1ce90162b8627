#include "bindings/c/keeping.h"

#include "bindings/c/report.h"
#include "bindings/c/session.h"

#include <algorithm>
#include <limits>
#include <locale>
#include <sstream>
#include <utility>

namespace tav {
namespace json_client {

namespace {

using std::chrono::milliseconds;

constexpr long long longest_ms = std::numeric_limits<int>::max() - 5;

void readTime(Fields & in, std::string_view name, milliseconds & v) {
    v = milliseconds(in.number(name, 0, longest_ms, v.count()));
}

std::vector<kit::gateway> readGateways(Fields & in, tls::connect_option const & option) {
    std::vector<kit::gateway> out;
    if (!option.host.empty()) {
        out.push_back(kit::gateway{option.host, option.port, 0});
    }
    unsigned const list = in.find("gateways");
    for (unsigned const each : in.objects("gateways")) {
        Fields one(in.document(), each);
        kit::gateway to;
        to.host = one.necessaryText("host");
        to.port = one.portText("port");
        to.preference = static_cast<int>(one.number("preference", 0, std::numeric_limits<int>::max(), 0));
        one.finish();
        out.push_back(std::move(to));
    }
    if (out.empty()) {
        in.refuse(list, "there has to be a gateway");
    }
    return out;
}

void readOutbox(Fields & fields, kit::keeper_option & option) {
    unsigned const object = fields.object("outbox");
    if (object == 0) {
        return;
    }
    Fields in(fields.document(), object);
    constexpr long long most = std::numeric_limits<int>::max();
    option.outbox =
        static_cast<std::size_t>(in.number("messages", 0, most, static_cast<long long>(option.outbox)));
    option.outbox_bytes =
        static_cast<unsigned long long>(in.number("bytes", 0, std::numeric_limits<long long>::max(), 0));
    constexpr kit::when_full policies[] = {kit::when_full::refuse, kit::when_full::drop_oldest,
                                           kit::when_full::wait};
    option.policy = policies[in.word("policy", {"refuse", "drop_oldest", "wait"}, 0)];
    in.finish();
}

std::vector<Expected> readExpected(Fields & fields) {
    std::vector<Expected> out;
    unsigned const object = fields.object("expect");
    if (object == 0) {
        return out;
    }
    Document const & document = fields.document();
    for (unsigned i = object + 1; i < document.node(object).next; i = document.node(i).next) {
        Node const & value = document.node(i);
        if (value.kind != Kind::string && value.kind != Kind::number && value.kind != Kind::boolean) {
            fields.refuse(i, "this has to be a string, a number, true or false");
        }
        out.push_back(Expected{std::string(value.name), value.kind, value.truth, std::string(value.text)});
    }
    return out;
}

std::shared_ptr<LoginWish const> readLogin(Fields & fields, kit::keeper_option & option,
                                           std::shared_ptr<Template const> const & messages) {
    unsigned const object = fields.object("login");
    if (object == 0) {
        return nullptr;
    }
    Fields in(fields.document(), object);
    auto wish = std::make_shared<LoginWish>();
    wish->reply = readCode(in, "reply", messages);
    Encoded out = readOutgoing(in, messages);
    readTime(in, "time_limit_ms", option.login_limit);
    wish->expected = readExpected(in);
    in.finish();
    if (out.code < 0x100) {
        in.refuse(in.find(in.has("code") ? "code" : "class"), "a message of a code up to 255 has no reply");
    }
    if (!wish->expected.empty() && (!messages || messages->classOf(wish->reply).empty())) {
        in.refuse(in.find("expect"), "the template does not have the class of the reply");
    }
    if (!wish->expected.empty()) {
        messages->checkValues(in.document(), in.find("expect"), messages->classOf(wish->reply));
    }
    wish->code = out.code;
    wish->body = std::move(out.body);
    wish->terms = kit::within(option.login_limit);
    wish->messages = messages;
    return wish;
}

bool readReal(std::string_view text, double & value) {
    std::istringstream in{std::string(text)};
    in.imbue(std::locale::classic());
    in >> value;
    return !in.fail() && in.peek() == std::istringstream::traits_type::eof();
}

/// Whether a field of the reply has the value that was wanted.  Both fit the field, so numbers may be written
/// in more than one way, and as strings.
bool isSame(Expected const & wanted, Node const & found) {
    if (found.kind == wanted.kind && found.truth == wanted.truth && found.text == wanted.text) {
        return true;
    }
    bool const number = wanted.kind == Kind::number || found.kind == Kind::number;
    if (!number || wanted.kind == Kind::boolean || found.kind == Kind::boolean) {
        return false;
    }
    if (wanted.text == found.text) {
        return true;
    }
    double first = 0;
    double second = 0;
    bool const whole = wanted.text.find_first_not_of("-0123456789") == std::string::npos &&
                       found.text.find_first_not_of("-0123456789") == std::string_view::npos;
    return !whole && readReal(wanted.text, first) && readReal(found.text, second) && first == second;
}

bool holds(LoginWish const & wish, tav_istr reply) {
    if (wish.expected.empty()) {
        return true;
    }
    std::string const text = wish.messages->decode(reply, wish.reply);
    Document document;
    Failure fault(0, std::string(), std::string());
    if (!document.read(text, fault)) {
        return false;
    }
    return std::all_of(wish.expected.begin(), wish.expected.end(), [&](Expected const & each) {
        unsigned const i = document.member(Document::root, each.name);
        return i != 0 && isSame(each, document.node(i));
    });
}

Failure ownFailure(int code, char const * name, std::error_code why) {
    return Failure(code, name, why.message());
}

ObjectText & putStatus(ObjectText & out, kit::keeper_status const & status, std::string const & words) {
    std::ostringstream state;
    state << status.state;
    out.text("state", state.str()).text("host", status.to.host).text("port", status.to.port);
    out.number("failed", status.failed);
    if (status.state == kit::keeper_state::waiting) {
        auto const left = status.until - kit::keeper_timer::clock::now();
        auto const ms = std::chrono::duration_cast<milliseconds>(left).count();
        out.number("wait_ms", std::max<milliseconds::rep>(ms, 0));
    }
    if (status.cause) {
        Failure const cause = keeperFailure(status.cause, false, words);
        out.number("code", cause.code).text("name", cause.name).text("text", cause.text);
    }
    return out;
}

} // namespace

std::shared_ptr<KeeperWish const> readKeeper(Document const & document, unsigned object,
                                             tls::connect_option const & option,
                                             std::shared_ptr<Template const> const & messages) {
    auto wish = std::make_shared<KeeperWish>();
    kit::keeper_option & how = wish->option;
    Fields in(document, object);
    how.gateways = readGateways(in, option);
    readTime(in, "first_wait_ms", how.first_wait);
    readTime(in, "longest_wait_ms", how.longest_wait);
    readTime(in, "reset_after_ms", how.reset_after);
    readOutbox(in, how);
    wish->login = readLogin(in, how, messages);
    in.finish();
    return wish;
}

kit::login_function loginOf(std::shared_ptr<LoginWish const> const & wish, LoginTaker const & good) {
    return [wish, good](tls::client & client, kit::login_end const & end) {
        tls::send_option option = wish->terms.option(wish->reply);
        option.set_on_timedout([end](unsigned long long, unsigned short, bool cancelled) {
            end(cancelled ? kit::failure::disconnected : kit::failure::timed_out);
        });
        option.set_nbr_ack_callback([wish, good, end](unsigned long long sno, unsigned short,
                                                      unsigned char const * data, unsigned size,
                                                      tavMsgExt const & ext) {
            try {
                tav_istr const body(data, size);
                if (holds(*wish, body)) {
                    good(sno, body, ext);
                    end(kit::result<void>());
                } else {
                    end(kit::failure::login_refused);
                }
            } catch (Failure const &) {
                end(kit::failure::bad_reply);
            }
        });
        if (!client.send_nbr_msg(wish->code, wish->body.data(), wish->body.size(), option)) {
            end(tls::last_failure());
        }
    };
}

void letGo(LastOwner<Kept> & kept, LastOwner<Kept>::Clock::time_point until) noexcept {
    if (kept) {
        kept.share()->keeper.stop();
        kept.end(until);
    }
}

Failure keeperFailure(std::error_code why, bool left, std::string const & cause) {
    using tls::failure;
    if (why.category() == tls::failure_category()) {
        auto const name = static_cast<failure>(why.value());
        return failureOf(name, cause, name == failure::bad_policy ? policyField(cause) : std::string());
    }
    if (why.category() != kit::failures()) {
        return failureOf(failure::other, why.message());
    }
    switch (static_cast<kit::failure>(why.value())) {
    case kit::failure::timed_out: return failureOf(failure::timed_out);
    case kit::failure::cancelled: return failureOf(failure::cancelled);
    case kit::failure::disconnected: return failureOf(left ? failure::cancelled : failure::connection_lost);
    case kit::failure::not_connected: return failureOf(failure::not_connected);
    case kit::failure::over_limit: return failureOf(failure::queue_full);
    case kit::failure::too_long: return failureOf(failure::body_too_long);
    case kit::failure::bad_reply: return ownFailure(code_bad_reply, "bad_reply", why);
    case kit::failure::dropped: return ownFailure(code_dropped, "dropped", why);
    case kit::failure::outbox_full: return ownFailure(code_outbox_full, "outbox_full", why);
    case kit::failure::stopped:
        return left ? failureOf(failure::cancelled) : ownFailure(code_stopped, "stopped", why);
    case kit::failure::login_refused: return ownFailure(code_login_refused, "login_refused", why);
    case kit::failure::not_sent:
    case kit::failure::unspecified: break;
    }
    return failureOf(failure::other, why.message());
}

std::string keeperText(kit::keeper_status const & status, std::string const & cause) {
    ObjectText out("keeper", std::string());
    return putStatus(out, status, cause).take();
}

std::string keeperText(kit::keeper const & keeper, std::string const & cause) {
    ObjectText out;
    return putStatus(out, keeper.status(), cause).number("outbox", keeper.waiting()).take();
}

} // namespace json_client
} // namespace tav
