#include "tools/gateway_rules.h"

#include "tools/integers.h"
#include "tools/json_messages.h"
#include "tools/nbr_reader.h"
#include "tools/template_hints.h"
#include "tools/value_text.h"

#include <tav/vinta/vinta_nbr_unit.h>

#include <algorithm>
#include <cstdlib>
#include <map>
#include <optional>
#include <set>
#include <stdexcept>

namespace tav {
namespace tool {

using gateway::Plan;
using gateway::Step;
using pml::MetaClass;
using pml::MetaField;

namespace kinds = pml::field_type;

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
            std::string_view const start = json_.text().substr(node.begin, 2);
            bool const comment = start == "/*" || start == "//" || start.substr(0, 1) == "#";
            throw PlacedFault(node.begin, comment
                                              ? "JSON has no comments"
                                              : "a rule is an object: { \"class\": ..., \"do\": [ ... ] }");
        }
        demandMembers(node);
        GatewayRule made;
        made.offset = node.begin;
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
        std::set<std::string_view> seen;
        for (JsonNode const * at = first(fields); at != nullptr; at = json_.node(at->next)) {
            if (at->kind == JsonNode::Kind::object || at->kind == JsonNode::Kind::array ||
                at->kind == JsonNode::Kind::null) {
                throw PlacedFault(at->begin, "a field is compared with a text, a number, true or false");
            }
            MetaField const * const field = findField(istrOf(at->name), *cls, *model_->factory);
            if (field == nullptr) {
                throw PlacedFault(at->nameAt, "the class " + stringOf(cls->className) + " has no field " +
                                                  std::string(at->name) + nearestField(at->name, *cls));
            }
            if (!seen.insert(at->name).second) {
                throw PlacedFault(at->nameAt, std::string(at->name) + " is given twice");
            }
            made.fields.push_back({field->idName.id, field->classType.type, valueOf(json_, *at)});
        }
        demandValues(fields, *cls);
    }

    std::string nearestField(std::string_view name, MetaClass const & cls) const {
        std::vector<std::string> others;
        for (MetaClass const * const one : chainOf(cls, *model_->factory)) {
            for (MetaField const & field : one->fields) {
                others.push_back(stringOf(field.idName.name));
            }
        }
        return didYouMean(nearestName(std::string(name), others, name.size() / 2));
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
            // Of a message that is only read, such a member is left out; here it is an error.
            std::string const & note = message.notes.front().text;
            throw PlacedFault(message.notes.front().offset, note.substr(0, note.find(": it is dropped")));
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

/// The single values of the object of a body by their tags; what stands deeper is passed over.
class TopValues : public NbrVisitor {
public:
    explicit TopValues(std::string_view body) : body_(body) {
        NbrFault fault;
        if (!readNbr(body, *this, fault)) {
            // What is not what its class says has no fields.
            values_.clear();
        }
    }

    void simple(NbrValue const & value) override {
        if (depth_ == 1 && objects_ == 1 && !value.null) {
            values_[value.tag] = {body_.substr(value.data, value.size), value.text};
        }
    }
    void open(NbrValue const &) override { objects_ += depth_++ == 0 ? 1 : 0; }
    void close(std::size_t) override { --depth_; }

    struct Value {
        std::string_view data;
        bool text = false;
    };
    Value const * find(int tag) const {
        auto const found = values_.find(tag);
        return found == values_.end() ? nullptr : &found->second;
    }

private:
    std::string_view body_;
    std::size_t depth_ = 0;
    std::size_t objects_ = 0;
    std::map<int, Value> values_;
};

template <class T>
T numberOf(std::string_view data) {
    T value = T();
    nbr::SimpleValue(istrOf(data), false).read(value);
    return value;
}

/// The value as JSON shows it, without quotes and escapes; a bool as a number.
std::string shownValue(std::string_view data, Kind kind) {
    switch (kind) {
    case kinds::bool_: return numberOf<unsigned char>(data) != 0 ? "1" : "0";
    case kinds::int8_:
        return std::to_string(data.empty() ? 0 : static_cast<int>(static_cast<signed char>(data.front())));
    case kinds::int16_: return std::to_string(numberOf<short>(data));
    case kinds::int32_:
    case kinds::enum_: return std::to_string(numberOf<int>(data));
    case kinds::uint8_:
    case kinds::uint16_:
    case kinds::uint32_: return std::to_string(numberOf<unsigned>(data));
    case kinds::int64_:
    case kinds::time_: return std::to_string(numberOf<long long>(data));
    case kinds::uint64_: return std::to_string(numberOf<unsigned long long>(data));
    case kinds::bytes_: {
        tavString base64;
        tavBytes(istrOf(data)).toBase64(base64);
        return stringOf(base64);
    }
    default: return std::string(data);
    }
}

/// Where a number is wanted, true and false are 1 and 0.
std::string asNumber(std::string const & value) {
    return value == "true" ? "1" : value == "false" ? "0" : value;
}

/// Whether two integers are the same; the wanted one may have a point or an exponent.
bool sameInteger(std::string const & wanted, std::string const & value) {
    Integer x;
    Integer y;
    if (readInteger(wanted, x) && readInteger(value, y)) {
        return x.bits() == y.bits() && x.negative == y.negative;
    }
    char * end = nullptr;
    double const number = std::strtod(wanted.c_str(), &end);
    return !wanted.empty() && *end == '\0' && number == std::strtod(value.c_str(), nullptr);
}

/// Whether the value of a field is the wanted one: of texts the bytes, of numbers what the field can hold of
/// the wanted one.
bool same(WantedField const & wanted, TopValues::Value const & value) {
    if (widthOf(wanted.kind) == 0) {
        return wanted.value == shownValue(value.data, wanted.kind);
    }
    if (value.text) {
        return false;
    }
    std::string const number = asNumber(wanted.value);
    switch (wanted.kind) {
    case kinds::float_: return numberOf<float>(value.data) == std::strtof(number.c_str(), nullptr);
    case kinds::double_: return numberOf<double>(value.data) == std::strtod(number.c_str(), nullptr);
    default: return sameInteger(number, shownValue(value.data, wanted.kind));
    }
}

/// Whether no packet gets from the first rule to the second one.
bool takesAllOf(GatewayRule const & first, GatewayRule const & second) {
    return first.fields.empty() && first.skip == 0 && first.times == 0 &&
           (!first.coded || (second.coded && second.code == first.code));
}

} // namespace

GatewayRules::GatewayRules(std::string const & path, Template const * model) {
    std::string name;
    std::string const text = readWhole(path, name, largestRules);
    try {
        if (text.compare(0, 3, "\xEF\xBB\xBF") == 0) {
            throw PlacedFault(0, "the file begins with a byte order mark, which JSON has not");
        }
        std::size_t const begin = text.find_first_not_of(blanks);
        if (begin == std::string::npos || text[begin] != '[') {
            throw PlacedFault(begin == std::string::npos ? 0 : begin, noList);
        }
        rules_ = RulesReader(text, model).read();
    } catch (PlacedFault const & e) {
        throw Failure(exitUse, toldInText(name, text, e.offset(), "error", e.what()));
    }
    for (auto rule = rules_.begin(); rule != rules_.end(); ++rule) {
        auto const before = std::find_if(rules_.begin(), rule,
                                         [&](GatewayRule const & one) { return takesAllOf(one, *rule); });
        if (before != rule) {
            told_ += toldInText(name, text, rule->offset, "warning",
                                "no packet gets to this rule: the one in line " +
                                    std::to_string(placeOf(text, before->offset).line) + " takes them all");
        }
    }
}

std::shared_ptr<Plan const> GatewayRules::planFor(unsigned short code, std::string const & body) {
    std::optional<TopValues> values;
    for (GatewayRule & rule : rules_) {
        if (rule.coded && rule.code != code) {
            continue;
        }
        if (!rule.fields.empty() && !values) {
            values.emplace(body);
        }
        bool const fits =
            std::all_of(rule.fields.begin(), rule.fields.end(), [&](WantedField const & wanted) {
                TopValues::Value const * const value = values->find(wanted.tag);
                return value != nullptr && same(wanted, *value);
            });
        if (!fits) {
            continue;
        }
        unsigned long long const before = rule.fitted++;
        if (before >= rule.skip && (rule.times == 0 || before - rule.skip < rule.times)) {
            return rule.plan;
        }
    }
    return nullptr;
}

} // namespace tool
} // namespace tav
