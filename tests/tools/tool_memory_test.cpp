#include "support/tool.h"

#include <gtest/gtest.h>

#include <cstdlib>

namespace {

using tav_test::ToolRig;
using tav_test::ToolRun;

char const * const model = "Old:object(__class__(im.Old)__code__(1F05)[1]a:int32())";

/// How many messages go through: half a million, 17 MB as JSON, or as many as the environment says.
std::string count() {
    char const * const wanted = std::getenv("TAV_TOOL_MESSAGES");
    return wanted != nullptr ? wanted : "500000";
}

/// Messages as frames, each program on the way in 48 MB of memory.
std::string frames() {
    return "ulimit -v 49152; set -o pipefail; "
           "head -n " +
           count() +
           " < <(yes '{ \"__class__\":\"im.Old\", \"a\":7 }') |"
           " $TAV convert -t m.pml --from json --to frames --out raw | ";
}

TEST(ToolMemory, ConversionOfAStreamDoesNotGrowWithIt) {
    ToolRig const rig(TAV_TOOL);
    rig.file("m.pml", model);
    ToolRun const run =
        rig.shell(frames() + "$TAV convert -t m.pml --from frames --to json | uniq -c | sed 's/^ *//'");
    EXPECT_EQ(run.code, 0) << run.err;
    EXPECT_EQ(run.out, count() + " { \"__class__\":\"im.Old\", \"a\":7 }\n") << run.err;
}

TEST(ToolMemory, DumpOfFramesDoesNotGrowWithThem) {
    ToolRig const rig(TAV_TOOL);
    rig.file("m.pml", model);
    ToolRun const run = rig.shell(frames() + "$TAV dump -t m.pml | grep -c '\\[1\\] a: int32 7'");
    EXPECT_EQ(run.code, 0) << run.err;
    EXPECT_EQ(run.out, count() + "\n") << run.err;
}

TEST(ToolMemory, DepthCostsNoStack) {
    ToolRig const rig(TAV_TOOL);
    std::string bytes = "\xFF\x01(";
    constexpr int levels = 100000;
    for (int i = 0; i < levels; ++i) {
        bytes += "\x01\xFF\x01(";
    }
    rig.file("deep", bytes);
    rig.file("m.pml", "A:object(__class__(im.A)__code__(1F05)[1]a:im.A?()[2]b:int32?())");
    std::string json;
    for (int i = 0; i < levels; ++i) {
        json += "{\"a\":";
    }
    // XML has no form for an object without values.
    rig.file("j", json + "{\"b\":1}" + std::string(levels, '}'));
    EXPECT_EQ(rig.shell("ulimit -s 256; $TAV dump --json deep >/dev/null").code, 1);
    EXPECT_EQ(rig.shell("ulimit -s 256; $TAV dump --json -t m.pml -c im.A deep >/dev/null").code, 1);
    for (std::string const to : {"json", "pml", "xml", "frames"}) {
        ToolRun const run = rig.shell("ulimit -s 256; $TAV convert -t m.pml -c im.A --from json --to " + to +
                                      " j >there &&"
                                      " $TAV convert -t m.pml -c im.A --from " +
                                      to + " --to json there >back");
        EXPECT_EQ(run.code, 0) << to << run.err.substr(0, 500);
    }
}

} // namespace
