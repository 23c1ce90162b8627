#include "tools/command.h"
#include "tools/failure.h"
#include "tools/progress.h"
#include "tools/template_check.h"
#include "tools/template_diff.h"
#include "tools/terminal_text.h"

#include <memory>

namespace tav {
namespace tool {

namespace {

/// What has to hold.
enum class Rule { breaking, both, oldToNew, newToOld };

struct Options {
    std::string before;
    std::string after;
    Rule rule = Rule::breaking;
    bool json = false;
};

std::map<std::string, Rule> const & ruleNames() {
    static std::map<std::string, Rule> const names = {{"breaking", Rule::breaking},
                                                      {"both", Rule::both},
                                                      {"old-to-new", Rule::oldToNew},
                                                      {"new-to-old", Rule::newToOld}};
    return names;
}

/// All changes together.
struct Sum {
    std::size_t counts[3] = {0, 0, 0};
    bool oldToNew = true;
    bool newToOld = true;

    void add(Change const & change) {
        ++counts[static_cast<std::size_t>(change.effect())];
        oldToNew = oldToNew && change.oldToNew.holds;
        newToOld = newToOld && change.newToOld.holds;
    }
    Effect effect() const {
        return oldToNew && newToOld   ? Effect::compatible
               : oldToNew || newToOld ? Effect::oneWay
                                      : Effect::breaking;
    }
    bool breaks(Rule rule) const {
        switch (rule) {
        case Rule::both: return effect() != Effect::compatible;
        case Rule::oldToNew: return !oldToNew;
        case Rule::newToOld: return !newToOld;
        default: return effect() == Effect::breaking;
        }
    }
};

std::string placeOfChange(Change const & change, Template const & before, Template const & after) {
    Template const & model = change.inNew ? after : before;
    TextPlace const place = placeOf(model.text, change.offset);
    return model.name + ":" + std::to_string(place.line) + ":" + std::to_string(place.column);
}

char colourOf(Effect effect) {
    return effect == Effect::compatible ? 'g' : effect == Effect::oneWay ? 'y' : 'r';
}

void print(Change const & change, std::string const & place, Output & output) {
    Effect const effect = change.effect();
    std::string const what =
        change.className +
        (change.field.empty() ? "" : " [" + std::to_string(change.tag) + "]" + change.field);
    output.line(forTerminal(place) + ": " + output.in(colourOf(effect), effectName(effect)) + ": " +
                forTerminal(what + ": " + change.text));
    if (!change.oldToNew.holds) {
        output.line("    old to new: " + forTerminal(change.oldToNew.why));
    }
    if (!change.newToOld.holds) {
        output.line("    new to old: " + forTerminal(change.newToOld.why));
    }
}

std::string wayJson(Way const & way) {
    return way.holds ? "{\"holds\":true}" : "{\"holds\":false,\"why\":" + jsonText(way.why) + "}";
}

std::string asJson(Change const & change, std::string const & place, Template const & model) {
    TextPlace const at = placeOf(model.text, change.offset);
    return "{\"place\":" + jsonText(place) + ",\"file\":" + jsonText(model.name) +
           ",\"line\":" + std::to_string(at.line) + ",\"column\":" + std::to_string(at.column) +
           ",\"offset\":" + std::to_string(change.offset) + ",\"class\":" + jsonText(change.className) +
           ",\"field\":" + jsonText(change.field) + ",\"tag\":" + std::to_string(change.tag) +
           ",\"text\":" + jsonText(change.text) + ",\"effect\":\"" + effectName(change.effect()) +
           "\",\"old_to_new\":" + wayJson(change.oldToNew) + ",\"new_to_old\":" + wayJson(change.newToOld) +
           "}";
}

/// What work that shows its progress comes to.
template <class Work>
auto watched(Work const & work) {
    Progress progress(Progress::Beside::nothing);
    return work([&progress](std::size_t done, std::size_t size) { progress.show(done, size); });
}

/// What is there twice hides something from the comparison, as it does from a peer, and a tag may be one that
/// nobody reads.
void tellHidden(Template const & model, Output & output) {
    for (Finding const & finding :
         watched([&](Watch const & watch) { return checkTemplate(model.text, watch); })) {
        if (finding.rule == "class-twice" || finding.rule == "code-twice" || finding.rule == "tag-twice" ||
            finding.rule == "tag-range") {
            output.tell("tav: " +
                        model.told(finding.offset, "warning", finding.text + " [" + finding.rule + "]"));
        }
    }
}

int diff(Options const & options, Output & output) {
    Template const before = watched([&](Watch const & watch) { return loadTemplate(options.before, watch); });
    Template const after = watched([&](Watch const & watch) { return loadTemplate(options.after, watch); });
    tellHidden(before, output);
    tellHidden(after, output);
    Sum sum;
    std::string json;
    for (Change const & change :
         watched([&](Watch const & watch) { return compareTemplates(before, after, watch); })) {
        sum.add(change);
        std::string const place = placeOfChange(change, before, after);
        if (options.json) {
            json += (json.empty() ? "" : ",") + asJson(change, place, change.inNew ? after : before);
        } else {
            print(change, place, output);
        }
    }
    Effect const effect = sum.effect();
    if (options.json) {
        output.line("{\"changes\":[" + json + "],\"effect\":\"" + effectName(effect) +
                    "\",\"old_to_new\":" + (sum.oldToNew ? "true" : "false") +
                    ",\"new_to_old\":" + (sum.newToOld ? "true" : "false") + "}");
    } else {
        std::string const all =
            effect == Effect::oneWay ? sum.oldToNew ? ", old to new" : ", new to old" : "";
        output.line(std::to_string(sum.counts[0]) + " compatible, " + std::to_string(sum.counts[1]) +
                    " one way, " + std::to_string(sum.counts[2]) + " breaking; together " +
                    output.in(colourOf(effect), effectName(effect)) + all);
    }
    return sum.breaks(options.rule) ? exitFound : exitGood;
}

} // namespace

Run addDiff(CLI::App & app) {
    auto const options = std::make_shared<Options>();
    app.add_option("OLD", options->before, "the template that peers have")->required();
    app.add_option("NEW", options->after, "the template that it becomes")->required();
    addChoice(app, "--rule", options->rule, ruleNames(),
              "exit with 1 if no way holds (breaking, the default), if one does not (both), or if this one "
              "does not");
    app.add_flag("--json", options->json, "print one JSON object");
    return [options](Output & output) { return diff(*options, output); };
}

} // namespace tool
} // namespace tav
