#include "torture/sample.h"
#include "torture/scenarios.h"

#include "foundation/report.h"
#include "tav/vinta/vinta_basetypes_containers.h"

#include <sstream>
#include <stdexcept>
#include <utility>
#include <vector>

namespace tav_test {
namespace torture {
namespace {

void bytesAndDigits() {
    tavBytes const bytes(viewOf(written().nbr));
    tavString text;
    bytes.toBase64(text);
    tavBytes back;
    back.fromBase64(text);
    holds(same(back, written().nbr), "base64 gives the bytes back");
    std::string lines;
    tavBase64::encode(bytes, lines, true);
    tavBase64::decode(viewOf(lines), back);
    holds(same(back, written().nbr), "base64 in lines gives the bytes back");
    holds(same(tavHex16::decode(tavHex16::encode(bytes)), written().nbr), "digits give the bytes back");
}

void bytesGrow() {
    tavBytes out;
    for (int i = 0; i < 200; ++i) {
        out << i << "text" << 1.5;
        out.writeBytes(out);
        out.size(out.size() > 2000 ? 10 : out.size());
    }
    tavBytes copy(out);
    tavBytes assigned;
    assigned = copy;
    tavBytes moved(std::move(copy));
    copy = std::move(moved);
    holds(copy == assigned && copy == out, "copies are equal");
}

void wideText() {
    tavString const text(viewOf(written().json));
    std::wstring const wide = text.toWstring();
    tavString back;
    back.fromWstring(tav_iwstr(wide));
    holds(back == text, "wide text comes back");
}

void textChanged() {
    tavString text("a text that is no short one");
    text << " and more of it" << 'c';
    text.insert(2, "longer ").remove(0, 2);
    holds(text.replace("o", "oooooo").size() > text.size() && text.toUpperCase().size() == text.size(),
          "a text is replaced");
    holds((text | "and this").size() > text.size() && text.substring(0, 20).size() >= 20 &&
              tavString::from(1234567890123456789ll, true, 30).size() >= 16,
          "texts are joined and cut");
}

void bytesShown() {
    std::ostringstream out;
    out.exceptions(std::ios::badbit);
    tav_istr const view = viewOf(written().nbr);
    out << tav::_Print(view) << tav::_PrintHex(view) << tav::HexDump(view) << tav::printAsHex(view)
        << tavBytes(view);
    holds(out.tellp() > 2000, "bytes are printed");
    tav::stringger text;
    text << "a text of some length and a number: " << 5 << std::hex << 255;
    tav::stringger moved(std::move(text));
    holds(moved.str().size() == 39 || isCutShort(moved.str()),
          "a text is whole, or says that it is cut short");
}

void ranges() {
    tav::Range range("1,3..5,9,100..200");
    tav::Range const copy(range);
    std::ostringstream out;
    out.exceptions(std::ios::badbit);
    out << copy;
    holds(copy.check(4) && !copy.check(6) && out.tellp() > 10, "a range holds its numbers");
    holds(!range.setup("5,6.7,8"), "a bad pattern is refused");
}

void timesAndZones() {
    tavString const text = tavTime::milliseconds(1600000000123).str();
    holds(text.size() == 28 && tavTime::from(text).milliseconds() != 0, "a time has a text");
    std::ostringstream out;
    out.exceptions(std::ios::badbit);
    out << tavTime::now() << tavTimeZone::local().str();
    holds(out.tellp() > 30, "a time is printed");
}

void enumNames() {
    sample();
    tavEnum<Mood> const mood = Mood::bad;
    holds(same(mood.name(), "bad") && tavEnum<Mood>::numbers().size() == 2 &&
              tavEnum<Mood>::values().size() == 2,
          "values have their names");
    try {
        tavEnum<Mood> const none = 77;
        std::ostringstream out;
        out.exceptions(std::ios::badbit);
        out << none;
        holds(false, "a number that has no name is refused");
    } catch (tavInvalidEnumValue const & e) {
        holds(e.value() == 77, "the failure has the number");
    }
}

void failuresTold() {
    try {
        tav::detail::raise(tav::detail::here("tav::torture::failuresTold"),
                           "a text of some length for a failure");
    } catch (std::invalid_argument const & e) {
        holds(std::string_view(e.what()).find("throw at") != std::string_view::npos,
              "a failure tells its place");
        tav::detail::reportCaught(tav::detail::here("tav::torture::failuresTold"));
    }
    tav::Exception const failed("a file", 5, "a function", "a text of some length for a failure");
    tav::Exception copy(failed);
    copy = failed;
    tav::DecodeException const position("a file", 5, "a function", "a text of some length", 77);
    holds(copy.message() == failed.message() && position.position() == 77, "a failure is copied");
}

void commandLine() {
    char const * const line[] = {"program", "-name", "a value that is no short one",
                                 "a plain word of some length"};
    tavCmdArgs const args(4, const_cast<char const **>(line));
    holds(args.option("name") == line[2] && args[0] == line[3] &&
              args.option("none", "fallback") == "fallback",
          "words and options are told apart");
}

void files() {
    static std::string const path = "/tmp/tav_torture_" + std::to_string(tav_process_id());
    bool kept = tavUtil::writeFile(path, viewOf(written().json));
    kept = tavUtil::appendFile(path, "more") && kept;
    std::string const content = tavUtil::readFile(path);
    holds(kept && content.size() == written().json.size() + 4, "a file is written and read");
    holds(tavUtil::moveFile(path, path + ".moved") && tavUtil::moveFile(path + ".moved", path),
          "a file is moved");
}

void locks() {
    tavMutex const mutex;
    std::lock_guard<tavMutex const> const guard(mutex);
    tavMonitor const monitor;
    monitor.signalAll();
    tavAtomicInt counter;
    tavAtomicInt64 wide;
    tavAtomicLong number;
    tavIdGenerator ids(5);
    tavCheckTime check;
    holds(ids.nextSno() == 6 && !monitor.wait(0) && check.expired(tavTime::seconds(5), 1), "all locks work");
}

class Counted : public tavSharedObject {};

void sharedPointers() {
    std::vector<tavSharedPtr<tavRefCountObject>> all;
    for (int i = 0; i < 300; ++i) {
        all.push_back(tavSharedPtr<tavRefCountObject>(new Counted));
        all.push_back(all.back());
    }
    holds(all.back()->getRefCount() == 2, "objects are shared");
}

} // namespace

Scenarios textScenarios() {
    return {{"bytes_and_digits", bytesAndDigits},
            {"bytes_grow", bytesGrow},
            {"wide_text", wideText},
            {"text_changed", textChanged},
            {"bytes_shown", bytesShown},
            {"ranges", ranges},
            {"times_and_zones", timesAndZones},
            {"enum_names", enumNames},
            {"failures_told", failuresTold},
            {"command_line", commandLine},
            {"files", files},
            {"locks", locks},
            {"shared_pointers", sharedPointers}};
}

} // namespace torture
} // namespace tav_test
