#include "tav/vinta/vinta_im_pkt.h"

#include "support/packet_bytes.h"

#include <gtest/gtest.h>

#include <memory>

using tav::im::ProtocolOption;
using tav_test::hex;
using tav_test::unhex;

namespace {

/// Gives the field list away.
class Fields : public ProtocolOption {
public:
    std::vector<tavFieldMeta> list() {
        tavCollectMetaStream s;
        traverse(s);
        return s.fields();
    }
};

ProtocolOption filled() {
    ProtocolOption option;
    option.version = -3;
    option.currentPos = 0xFFFFFFFFFFFFFFFFull;
    option.totalSize = 200ull;
    option.no_resend = true;
    option.target = "ab";
    option.crypt = false;
    option.sessionId = 0x1234;
    option.gwtd = -1;
    option.hmac = "h";
    return option;
}

std::string const FILLED =
    "FF0128 010104FDFFFFFF 020108FFFFFFFFFFFFFFFF 030102C800 04010101 05F1026162 06010100 "
    "08010234 12 0D0108FFFFFFFFFFFFFFFF 0EF10168 FF0129";

} // namespace

TEST(ProtocolOption, NamesItsClass) {
    ProtocolOption option;
    EXPECT_EQ(option.className(), "ProtocolOption");
    EXPECT_EQ(option.baseName(), "tavObject");
}

TEST(ProtocolOption, StartsEmpty) {
    ProtocolOption option;
    EXPECT_EQ(option.version, 0);
    EXPECT_FALSE(option.currentPos.has_value());
    EXPECT_FALSE(option.totalSize.has_value());
    EXPECT_FALSE(option.no_resend.has_value());
    EXPECT_TRUE(option.target.empty());
    EXPECT_FALSE(option.crypt.has_value());
    EXPECT_EQ(option.sessionId, 0);
    EXPECT_EQ(option.gwtd, 0);
    EXPECT_TRUE(option.hmac.empty());
}

TEST(ProtocolOption, FieldsHaveTheirIdsNamesAndDefaultMetas) {
    struct {
        int id;
        char const * name;
    } const rows[] = {{1, "version"}, {2, "currentPos"}, {3, "totalSize"}, {4, "no_resend"}, {5, "target"},
                      {6, "crypt"},   {8, "sessionId"},  {13, "gwtd"},     {14, "hmac"}};
    std::vector<tavFieldMeta> const fields = Fields().list();
    ASSERT_EQ(fields.size(), 9u);
    for (unsigned i = 0; i < 9; ++i) {
        EXPECT_EQ(fields[i].id, rows[i].id);
        EXPECT_EQ(fields[i].name, rows[i].name);
        EXPECT_EQ(fields[i].meta.type, -1);
        EXPECT_FALSE(fields[i].meta.isProtected);
        EXPECT_FALSE(fields[i].meta.isOptional());
        EXPECT_TRUE(fields[i].values.empty());
    }
}

TEST(ProtocolOption, DefaultDocumentHas32Bytes) {
    tavBytes const bytes = ProtocolOption().encode(false);
    EXPECT_EQ(bytes.size(), 32u);
    EXPECT_EQ(hex(bytes),
              hex(unhex("FF0128 01010100 0200 0300 0400 05F100 0600 08010100 0D010100 0EF100 FF0129")));
}

TEST(ProtocolOption, EveryFieldIsPresentEvenWhenHiding) {
    EXPECT_EQ(hex(ProtocolOption().encode(true)), hex(ProtocolOption().encode(false)));
}

TEST(ProtocolOption, AllFieldsTravel) {
    EXPECT_EQ(hex(filled().encode(false)), hex(unhex(FILLED)));
    ProtocolOption back;
    back.decode(tav_istr(unhex(FILLED)));
    EXPECT_EQ(back.version, -3);
    EXPECT_EQ(back.currentPos.value(), 0xFFFFFFFFFFFFFFFFull);
    EXPECT_EQ(back.totalSize.value(), 200u);
    EXPECT_TRUE(back.no_resend.value());
    EXPECT_EQ(back.target, "ab");
    EXPECT_TRUE(back.crypt.has_value());
    EXPECT_FALSE(back.crypt.value());
    EXPECT_EQ(back.sessionId, 0x1234);
    EXPECT_EQ(back.gwtd, -1);
    EXPECT_EQ(back.hmac, "h");
}

TEST(ProtocolOption, NullLeavesAnOptionalAsItIs) {
    ProtocolOption option = filled();
    option.decode(tav_istr(unhex("FF0128 0200 0300 0400 0600 FF0129")));
    EXPECT_EQ(option.totalSize.value(), 200u);
    EXPECT_TRUE(option.no_resend.value());
}

TEST(ProtocolOption, NewInstanceIsADefaultOne) {
    std::unique_ptr<tavObject> const made(filled().newInstance());
    ASSERT_NE(dynamic_cast<ProtocolOption *>(made.get()), nullptr);
    EXPECT_EQ(hex(made->encode(false)), hex(ProtocolOption().encode(false)));
}

TEST(ProtocolOption, CloneHasAllFields) {
    std::unique_ptr<tavObject> const clone(filled().clone());
    ASSERT_NE(clone, nullptr);
    EXPECT_EQ(hex(clone->encode(false)), hex(unhex(FILLED)));
}

TEST(ProtocolOption, AssignFromAnotherClassDoesNothing) {
    ProtocolOption option = filled();
    option.assignFrom(tavMsgExt());
    EXPECT_EQ(hex(option.encode(false)), hex(unhex(FILLED)));
    option.assignFrom(ProtocolOption());
    EXPECT_EQ(hex(option.encode(false)), hex(ProtocolOption().encode(false)));
}
