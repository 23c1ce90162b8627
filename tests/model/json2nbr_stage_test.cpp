#include "model/json2nbr_stage.h"

#include "support/meta_rig.h"

#include <gtest/gtest.h>

#include <stdexcept>
#include <string>

using tav::json2nbr::WriteStage;
using tav_test::field;

namespace k = tav::pml::field_type;

namespace {

/// The stage at which writing `json` as the class "A", of one necessary number "f", ended; whether it failed.
std::pair<WriteStage, bool> ended(std::string const & json, char const * className = "A") {
    tav::pml::MetaFactory const factory =
        tav_test::factoryOf({tav_test::metaClass("A", {field(1, "f", k::int32_)})});
    tavBytes out;
    unsigned short code = 0xffff;
    WriteStage stage = WriteStage::text;
    try {
        tav::json2nbr::write(tav_istr(json), out, code, factory, className, stage);
    } catch (std::invalid_argument const &) {
        return {stage, true};
    }
    return {stage, false};
}

std::pair<WriteStage, bool> failed(WriteStage stage) {
    return {stage, true};
}

} // namespace

TEST(Json2NbrStage, TextThatIsNoJsonFailsAsText) {
    EXPECT_EQ(ended("{\"f\":[1"), failed(WriteStage::text));
    EXPECT_EQ(ended("}"), failed(WriteStage::text));
}

TEST(Json2NbrStage, UnknownClassFailsAsClass) {
    EXPECT_EQ(ended("{\"f\":1}", "B"), failed(WriteStage::message_class));
    EXPECT_EQ(ended("{\"__class__\":\"C\",\"f\":1}"), failed(WriteStage::message_class));
}

TEST(Json2NbrStage, ValueThatItsFieldDoesNotTakeFailsAsMember) {
    EXPECT_EQ(ended("{\"f\":\"text\"}"), failed(WriteStage::members));
}

TEST(Json2NbrStage, MissingFieldFailsAsNecessary) {
    EXPECT_EQ(ended("{}"), failed(WriteStage::necessary));
}

TEST(Json2NbrStage, WholeMessageIsWritten) {
    EXPECT_FALSE(ended("{\"f\":1}").second);
}
