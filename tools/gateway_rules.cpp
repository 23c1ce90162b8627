#include "tools/gateway_rules.h"

#include "tools/integers.h"
#include "tools/json_messages.h"
#include "tools/live.h"

#include <cstdlib>
#include <set>
#include <stdexcept>

namespace tav {
namespace tool {

using gateway::Plan;
using gateway::Step;
using pml::MetaClass;

namespace {

constexpr std::size_t largestRules = 16 * 1024 * 1024;
constexpr char const * blanks = " \t\r\n";
constexpr char const * noList = "rules are a list: [ { ... }, { ... } ]";
constexpr unsigned long long longestDelay = 3600 * 1000;

std::map<std::string, Step::Kind> const & stepNames() {
    static std::map<std::string, Step::Kind> const names = {
        {"close", Step::Kind::close},       {"cut", Step::Kind::cut},     {"garbage", Step::Kind::garbage},
        {"oversize", Step::Kind::oversize}, {"reset", Step::Kind::reset}, {"silence", Step::Kind::silence},
        {"usual", Step::Kind::usual},
    };
    return names;
}

std::string valueOf(JsonText const & json, JsonNode const & node) {
    return node.quoted ? unescaped(json.content(node)) : std::string(json.content(node));
}

/// Reads the rules of a text.  Throws a PlacedFault for what is no rule.
class RulesReader {
public:
    RulesReader(std::string_view text, Template const * model) : json_(text), model_(model) {
        if (model != nullptr) {
            messages_ = std::make_unique<JsonMessages>(*model);
        }
    }

    std::vector<GatewayRule> read() const {
        if (json_.root().kind != JsonNode::Kind::array) {
            throw PlacedFault(json_.root().begin, noList);
        }
        std::size_t const rest = json_.text().find_first_not_of(blanks, json_.root().end);
        if (rest != std::string_view::npos) {
            throw PlacedFault(rest, "what follows is not read");
        }
        std::vector<GatewayRule> rules;
        for (JsonNode const * at = first(json_.root()); at != nullptr; at = json_.node(at->next)) {
            rules.push_back(rule(*at));
        }
        return rules;
    }

private:
    JsonNode const * first(JsonNode const & of) const { return json_.node(of.firstChild); }

    std::string text(JsonNode const & node, char const * what) const {
        if (node.kind != JsonNode::Kind::string) {
            throw PlacedFault(node.begin, what);
        }
        return valueOf(json_, node);
    }

    unsigned long long number(JsonNode const & node, unsigned long long least,
                              unsigned long long most) const {
        Integer value;
        if (node.kind != JsonNode::Kind::number || !readInteger(json_.content(node), value) ||
            value.negative || value.magnitude < least || value.magnitude > most) {
            throw PlacedFault(node.begin, std::string(node.name) + " is a number from " +
                                              std::to_string(least) + " to " + std::to_string(most));
        }
        return value.magnitude;
    }

    GatewayRule rule(JsonNode const & node) const {
        if (node.kind != JsonNode::Kind::object) {
            throw PlacedFault(node.begin, "a rule is an object: { \"class\": ..., \"do\": [ ... ] }");
        }
        demandMembers(node);
        GatewayRule made;
        MetaClass const * const cls = readMatch(node, made);
        if (JsonNode const * const fields = json_.member(node, "fields")) {
            readFields(*fields, cls, made);
        }
        constexpr unsigned long long most = 1000000000;
        if (JsonNode const * const skip = json_.member(node, "skip")) {
            made.skip = number(*skip, 0, most);
        }
        if (JsonNode const * const times = json_.member(node, "times")) {
            made.times = number(*times, 1, most);
        }
        JsonNode const * const steps = json_.member(node, "do");
        if (steps == nullptr || steps->kind != JsonNode::Kind::array || first(*steps) == nullptr) {
            throw PlacedFault(steps == nullptr ? node.begin : steps->begin,
                              "a rule has a list of steps: \"do\": [ \"drop\" ]");
        }
        made.plan = std::make_shared<Plan>();
        for (JsonNode const * at = first(*steps); at != nullptr; at = json_.node(at->next)) {
            readStep(*at, *made.plan);
        }
        return made;
    }

    void demandMembers(JsonNode const & node) const {
        static std::set<std::string_view> const known = {"code", "class", "fields", "skip", "times", "do"};
        std::set<std::string_view> seen;
        for (JsonNode const * at = first(node); at != nullptr; at = json_.node(at->next)) {
            if (known.count(at->name) == 0) {
                throw PlacedFault(at->nameAt, "a rule has no member " + std::string(at->name) +
                                                  ": it has code, class, fields, skip, times and do");
            }
            if (!seen.insert(at->name).second) {
                throw PlacedFault(at->nameAt, std::string(at->name) + " is given twice");
            }
        }
    }

    /// Reads code or class, and answers the class that they mean, or null.
    MetaClass const * readMatch(JsonNode const & node, GatewayRule & made) const {
        JsonNode const * const code = json_.member(node, "code");
        JsonNode const * const named = json_.member(node, "class");
        if (code != nullptr && named != nullptr) {
            throw PlacedFault(named->nameAt, "a rule has a code or a class, and not both");
        }
        made.coded = code != nullptr || named != nullptr;
        if (code != nullptr) {
            char const * const what = "code is a text of up to four hexadecimal digits: \"0x3001\"";
            if (!readCode(text(*code, what), made.code)) {
                throw PlacedFault(code->begin, what);
            }
            return model_ == nullptr ? nullptr : model_->factory->findClass(made.code);
        }
        if (named == nullptr) {
            return nullptr;
        }
        std::string const name = text(*named, "class is the name of a class of the template");
        demandTemplate(*named);
        MetaClass const * const cls = model_->factory->findClass(istrOf(name));
        if (cls == nullptr) {
            throw PlacedFault(named->begin,
                              model_->name + " has no class " + name + nearestClass(name, *model_->factory));
        }
        made.code = codeOf(*cls);
        if (made.code == Message::noCode) {
            throw PlacedFault(named->begin, "the class " + name + " has no code, so that no packet is one");
        }
        return cls;
    }

    void demandTemplate(JsonNode const & node) const {
        if (model_ == nullptr) {
            throw PlacedFault(node.begin, "this needs a template: --template FILE");
        }
    }

    void readFields(JsonNode const & fields, MetaClass const * cls, GatewayRule & made) const {
        if (fields.kind != JsonNode::Kind::object) {
            throw PlacedFault(fields.begin, "fields are an object: { \"room\": \"hall\" }");
        }
        if (cls == nullptr) {
            throw PlacedFault(fields.nameAt,
                              "fields need a class, or a code that a class of the template has");
        }
        for (JsonNode const * at = first(fields); at != nullptr; at = json_.node(at->next)) {
            if (at->kind == JsonNode::Kind::object || at->kind == JsonNode::Kind::array ||
                at->kind == JsonNode::Kind::null) {
                throw PlacedFault(at->begin, "a field is compared with a text, a number, true or false");
            }
            if (findField(istrOf(at->name), *cls, *model_->factory) == nullptr) {
                throw PlacedFault(at->nameAt, "the class " + stringOf(cls->className) + " has no field " +
                                                  std::string(at->name));
            }
            made.fields.push_back({std::string(at->name), valueOf(json_, *at), at->quoted});
        }
        demandValues(fields, *cls);
    }

    /// A value that the field can't have would never be met.
    void demandValues(JsonNode const & fields, MetaClass const & cls) const {
        Message message;
        try {
            messages_->write(json_, fields, &cls, message);
        } catch (PlacedFault const & e) {
            // The other fields of the class need not be there.
            if (std::string_view(e.what()).substr(0, 17) != "missing necessary") {
                throw;
            }
        }
    }

    void readStep(JsonNode const & node, Plan & plan) const {
        char const * const what =
            "a step is one of answer, close, cut, delay, drop, garbage, oversize, push, "
            "push_all, reset, silence and usual";
        if (node.kind == JsonNode::Kind::object) {
            JsonNode const * const only = first(node);
            if (only == nullptr || only->next != JsonNode::none) {
                throw PlacedFault(node.begin, "a step has one member: { \"delay\": 100 }");
            }
            readStepOf(*only, plan, what);
            return;
        }
        std::string const word = text(node, what);
        if (word == "drop") {
            plan.receipt = false;
            return;
        }
        auto const found = stepNames().find(word);
        if (found == stepNames().end()) {
            throw PlacedFault(node.begin, what);
        }
        Step step;
        step.kind = found->second;
        plan.steps.push_back(step);
    }

    void readStepOf(JsonNode const & node, Plan & plan, char const * what) const {
        static std::map<std::string_view, Step::Kind> const names = {
            {"answer", Step::Kind::answer}, {"push", Step::Kind::push}, {"push_all", Step::Kind::push_all}};
        Step step;
        auto const found = names.find(node.name);
        if (node.name == "delay") {
            step.kind = Step::Kind::delay;
            step.delay_ms = static_cast<int>(number(node, 0, longestDelay));
        } else if (found != names.end()) {
            step.kind = found->second;
            readMessage(node, step);
        } else {
            throw PlacedFault(node.nameAt, what);
        }
        plan.steps.push_back(step);
    }

    void readMessage(JsonNode const & node, Step & step) const {
        if (node.kind != JsonNode::Kind::object) {
            throw PlacedFault(node.begin, std::string(node.name) +
                                              " is a message: { \"__class__\": \"chat.Said\", ... }");
        }
        demandTemplate(node);
        Message message;
        messages_->write(json_, node, nullptr, message);
        if (!message.notes.empty()) {
            throw PlacedFault(message.notes.front().offset, message.notes.front().text);
        }
        if (message.code == Message::noCode) {
            throw PlacedFault(node.begin,
                              "the class " + stringOf(message.cls->className) + " has no code to be sent by");
        }
        step.code = message.code;
        step.body = std::string(viewOf(tav_istr(message.nbr)));
    }

    JsonText const json_;
    Template const * model_;
    std::unique_ptr<JsonMessages> messages_;
};

/// Where a number is wanted, true and false are 1 and 0.
std::string const & asNumber(std::string const & value) {
    static std::string const one = "1";
    static std::string const zero = "0";
    return value == "true" ? one : value == "false" ? zero : value;
}

/// Whether two values are the same: of texts the bytes, of numbers the value.
bool same(std::string const & first, std::string const & second) {
    std::string const & a = asNumber(first);
    std::string const & b = asNumber(second);
    Integer x;
    Integer y;
    if (a == b) {
        return true;
    }
    if (readInteger(a, x) && readInteger(b, y)) {
        return x.bits() == y.bits() && x.negative == y.negative;
    }
    char * endA = nullptr;
    char * endB = nullptr;
    double const left = std::strtod(a.c_str(), &endA);
    double const right = std::strtod(b.c_str(), &endB);
    return !a.empty() && !b.empty() && *endA == '\0' && *endB == '\0' && left == right;
}

} // namespace

GatewayRules::GatewayRules(std::string const & path, Template const * model) : model_(model) {
    std::string name;
    std::string const text = readWhole(path, name, largestRules);
    try {
        if (text.find_first_not_of(blanks) == std::string::npos) {
            throw PlacedFault(0, noList);
        }
        rules_ = RulesReader(text, model).read();
    } catch (PlacedFault const & e) {
        throw Failure(exitUse, toldInText(name, text, e.offset(), "error", e.what()));
    }
}

std::shared_ptr<Plan const> GatewayRules::planFor(unsigned short code, std::string const & body) {
    for (GatewayRule & rule : rules_) {
        if (!fits(rule, code, body)) {
            continue;
        }
        unsigned long long const before = rule.fitted++;
        if (before >= rule.skip && (rule.times == 0 || before - rule.skip < rule.times)) {
            return rule.plan;
        }
    }
    return nullptr;
}

bool GatewayRules::fits(GatewayRule const & rule, unsigned short code, std::string const & body) const {
    if (rule.coded && rule.code != code) {
        return false;
    }
    if (rule.fields.empty()) {
        return true;
    }
    try {
        std::string const text = jsonOf(code, body, *model_);
        JsonText const json(text);
        for (WantedField const & wanted : rule.fields) {
            JsonNode const * const node = json.member(json.root(), wanted.name);
            if (node == nullptr) {
                return false;
            }
            std::string const value = valueOf(json, *node);
            if (wanted.quoted && node->quoted ? value != wanted.value : !same(value, wanted.value)) {
                return false;
            }
        }
    } catch (std::invalid_argument const &) {
        // What is not what its class says has no fields.
        return false;
    }
    return true;
}

} // namespace tool
} // namespace tav
