#include "tav/vinta/vinta_object.h"

#include "tav/vinta/vinta_json_parser.h"

#include "support/repeated.h"
#include "support/small_stack.h"

#include <gtest/gtest.h>

#include <functional>
#include <map>
#include <random>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

using tav_test::onSmallStack;
using tav_test::repeated;

namespace {

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr int deep = 100000;
#else
constexpr int deep = 200000;
#endif

class Part : public tavObject {
public:
    int number = 0;
    tavString text;

    tav_istr className() const override { return "Part"; }
    tav_istr baseName() const override { return "tavObject"; }
    tavObject * newInstance() const override { return new Part(); }
    void assignFrom(tavObject const &) override {}

protected:
    void traverse(tavCodecStream & s) override {
        ioField(s, 1, "number", number, tavCodecMeta(3, false, "0..9", true));
        ioField(s, 2, "text", text, tavCodecMeta(13, false, nullptr, true));
    }
};

class Target : public tavObject {
public:
    bool flag = false;
    long long large = 0;
    double real = 0;
    tavBytes bytes;
    std::vector<int> list;
    std::vector<Part> parts;
    std::map<tavString, std::vector<tavString>> map;

    tav_istr className() const override { return "Target"; }
    tav_istr baseName() const override { return "tavObject"; }
    tavObject * newInstance() const override { return new Target(); }
    void assignFrom(tavObject const &) override {}

protected:
    void traverse(tavCodecStream & s) override {
        ioField(s, 1, "flag", flag, tavCodecMeta(0, false, nullptr, true));
        ioField(s, 2, "large", large, tavCodecMeta(4, false, "0..1000", true));
        ioField(s, 3, "real", real, tavCodecMeta(10, false, nullptr, true));
        ioField(s, 4, "bytes", bytes, tavCodecMeta(16, false, nullptr, true));
        ioField(s, 5, "list", list, tavCodecMeta(26));
        ioField(s, 6, "parts", parts, tavCodecMeta(26));
        ioField(s, 7, "map", map, tavCodecMeta(28));
    }
};

std::string sampleText() {
    Target sample;
    sample.flag = true;
    sample.large = 999;
    sample.real = -1.5;
    sample.bytes = tavBytes(tav_istr("hello\0world", 11));
    sample.list = {1, -2, 300};
    sample.parts.resize(2);
    sample.parts[1].number = 9;
    sample.parts[1].text = "a\"/\\b";
    sample.map[tavString("k")] = {tavString("x"), tavString("")};
    tavString const text = sample.encodeJson(false);
    return std::string(text.data(), text.size());
}

/// Whether the text was taken.  What it left can be written and read in any case.
bool decodes(std::string const & text) {
    Target target;
    bool taken = false;
    try {
        target.decodeJson(tav_istr(text));
        taken = true;
    } catch (std::invalid_argument const & e) {
        EXPECT_NE(std::string(e.what()).find("\n    throw at "), std::string::npos);
    }
    tavString const again = target.encodeJson(false);
    EXPECT_EQ(again.charAt(0), '{');
    return taken;
}

} // namespace

TEST(JsonStreamsHostile, SampleItselfIsTaken) {
    EXPECT_TRUE(decodes(sampleText()));
}

TEST(JsonStreamsHostile, EveryFrontPartOfATextFailsOrIsTaken) {
    std::string const whole = sampleText();
    unsigned taken = 0;
    for (std::size_t size = 0; size < whole.size(); ++size) {
        taken += decodes(whole.substr(0, size)) ? 1u : 0u;
    }
    EXPECT_GT(taken, 0u);
    EXPECT_LT(taken, whole.size() / 4);
}

TEST(JsonStreamsHostile, RandomDamageFailsOrIsTaken) {
    std::string const whole = sampleText();
    std::string const bytes = "{}[]:,\"'\\ntf0123456789-+.eExb/u \0\xff";
    std::mt19937 random(20220601);
    auto const below = [&](std::size_t n) {
        return std::uniform_int_distribution<std::size_t>(0, n - 1)(random);
    };
    unsigned taken = 0;
    for (int round = 0; round < 4000; ++round) {
        std::string text = whole;
        for (std::size_t n = 1 + below(4); n != 0; --n) {
            std::size_t const at = below(text.size());
            switch (below(3)) {
            case 0: text[at] = bytes[below(bytes.size())]; break;
            case 1: text.insert(at, 1, bytes[below(bytes.size())]); break;
            default: text.erase(at, 1 + below(5)); break;
            }
        }
        taken += decodes(text) ? 1u : 0u;
    }
    EXPECT_GT(taken, 100u);
    EXPECT_LT(taken, 3900u);
}

TEST(JsonStreamsHostile, DeepMembersAreReadInBoundedStack) {
    onSmallStack([] {
        std::string const arrays = repeated("[", deep) + "1" + repeated("]", deep);
        std::string const objects = repeated("{a:", deep) + "1" + repeated("}", deep);
        EXPECT_TRUE(decodes("{unknown:" + arrays + "}"));
        EXPECT_TRUE(decodes("{unknown:" + objects + "}"));
        EXPECT_TRUE(decodes("{flag:" + arrays + "}"));
        EXPECT_TRUE(decodes("{list:" + arrays + "}"));
        EXPECT_TRUE(decodes("{parts:" + arrays + "}"));
        EXPECT_TRUE(decodes("{parts:[" + objects + "]}"));
        EXPECT_TRUE(decodes("{map:" + objects + "}"));
        EXPECT_TRUE(decodes("{bytes:" + arrays + "}"));
        EXPECT_FALSE(decodes("{large:" + repeated("[", deep)));
    });
}

TEST(JsonStreamsHostile, GoingDownStepByStepNeedsNoStack) {
    onSmallStack([] {
        std::string const objects = repeated("{a:", deep) + "1" + repeated("}", deep);
        int levels = 0;
        {
            tavJsonInStream root{tav_istr(objects)};
            for (tavSharedPtr<tavCodecStream> s = root.child(1, "a"); s; s = s->child(1, "a")) {
                ++levels;
            }
        }
        EXPECT_EQ(levels, deep);
        {
            tavJsonOutStream root;
            tavSharedPtr<tavCodecStream> s = root.child(1, "a");
            for (int i = 0; i < deep; ++i) {
                s = (i & 1) != 0 ? s->child(1, "a") : s->getOutputChild();
            }
            int v = 7;
            s->io(v, tavCodecMeta());
            tavString const text = root.str(false, false);
            EXPECT_GT(text.size(), static_cast<unsigned>(deep));
            EXPECT_NE(std::string(text.data(), text.size()).find('7'), std::string::npos);
        }
    });
}
