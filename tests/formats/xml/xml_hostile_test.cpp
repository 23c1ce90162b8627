#include "tav/vinta/vinta_xml_node.h"

#include "support/log_capture.h"
#include "support/xml_rig.h"

#include <gtest/gtest.h>

#include <random>
#include <set>
#include <string>
#include <thread>
#include <utility>
#include <vector>

using tav::xml::Node;
using tav_test::LogCapture;

namespace {

constexpr int DEPTH = 1000000;

std::string nested(int depth, std::string const & open, std::string const & close) {
    std::string text;
    text.reserve(static_cast<std::size_t>(depth) * (open.size() + close.size()));
    for (int i = 0; i < depth; ++i) {
        text += open;
    }
    for (int i = 0; i < depth; ++i) {
        text += close;
    }
    return text;
}

} // namespace

TEST(XmlHostile, MillionLevelsAreReadWrittenComparedAndDestroyedInBoundedStack) {
    std::string const text = nested(DEPTH, "<a>", "</a>").insert(DEPTH * 3, "x");
    auto const node = Node::fromXml(tav_istr(text));
    EXPECT_TRUE(text == node->encode(false, false, 0, true));
    auto const other = Node::fromXml(tav_istr(text));
    EXPECT_TRUE(*node == *other);
    std::set<std::string> names;
    node->collectNames(names);
    EXPECT_EQ(names.size(), 1u);
    std::vector<std::string> values;
    node->collectValues(values);
    EXPECT_EQ(values.size(), 1u);
    node->dumping(2);
    EXPECT_LT(text.size(), node->encode(false, false, 0, true).size());
}

TEST(XmlHostile, SixteenMegabytesOfOpenTagsFailInBoundedStack) {
    std::string const text = nested(16 * 1024 * 1024 / 3, "<a>", "");
    LogCapture log("clear(OUT)");
    Node node;
    std::string rest;
    node.decode(tav_istr(text), &rest);
    EXPECT_EQ(rest, "");
    EXPECT_EQ(node.encode(false, false, 0, true), "<a/>");
}

TEST(XmlHostile, ManyRootsAreReadWrittenAndDestroyedInBoundedStack) {
    std::string const text = nested(DEPTH, "<a/>", "");
    auto const node = Node::fromXml(tav_istr(text));
    EXPECT_TRUE(text == node->encode(false, false, 0, true));
}

TEST(XmlHostile, MismatchedClosingTagsTakeLinearTime) {
    std::string const text = nested(DEPTH, "<a>", "</b>");
    std::string rest;
    Node node;
    node.decode(tav_istr(text), &rest);
    EXPECT_EQ(static_cast<std::size_t>(DEPTH) * 4, rest.size());
}

TEST(XmlHostile, SharedSubtreesOutliveTheTree) {
    tavSharedPtr<Node> kept;
    {
        auto const node = Node::fromXml("<a><b><c><d>x</d></c></b></a>");
        kept = *(*(*node->begin())->begin())->begin();
    }
    EXPECT_EQ(kept->encode(false, false, 0, true), "<d>x</d>");
}

TEST(XmlHostile, RepeatedMarksTakeLinearTime) {
    LogCapture log("clear(OUT)");
    for (std::string const mark :
         {"&", "&#", "<!--", "<?", "<![CDATA[", "]]", "-", "<a x='", "<a x=", "</", "<a></", "&#1234567"}) {
        std::string text = "<r>";
        while (text.size() < 1024 * 1024) {
            text += mark;
        }
        Node node;
        node.decode(tav_istr(text));
        EXPECT_EQ(node.tag(), "r") << mark;
        node.decode(tav_istr(text + "</r>"));
        EXPECT_EQ(node.tag(), "r") << mark;
    }
}

TEST(XmlHostile, PartsMayEndOnAnotherThreadAndInAnyOrder) {
    std::string text = "<a>";
    for (int i = 0; i < 2000; ++i) {
        text += "<b x='1'>t<c/></b>";
    }
    tavSharedPtr<Node> tree = Node::fromXml(tav_istr(text + "</a>"));
    std::vector<tavSharedPtr<Node>> kept;
    for (auto child = tree->begin(); child != tree->end(); ++child) {
        if ((*child)->end() - (*child)->begin() == 1) {
            kept.push_back(*(*child)->begin());
        }
    }
    ASSERT_EQ(kept.size(), 2000u);
    std::thread([gone = std::move(tree)]() mutable { gone.reset(); }).join();
    for (std::size_t i = 0; i < kept.size(); i += 2) {
        kept[i].reset();
    }
    EXPECT_EQ(kept[1999]->encode(false, false, 0, true), "<c/>");
}

TEST(XmlHostile, AnyBytesGiveATreeThatIsWrittenAndReadAlike) {
    LogCapture log("clear(OUT)");
    std::string const pieces[] = {"<",    ">",         "/",         "a",    "b ",
                                  "=",    "'",         "\"",        "<a>",  "</a>",
                                  "<a/>", "&amp;",     "&#1;",      "<!--", "-->",
                                  "<?",   "?>",        "<![CDATA[", "]]>",  " ",
                                  "\n",   "text",      "&",         ";",    std::string(1, '\0'),
                                  "\xff", "<b x='1'>", "</b>"};
    std::mt19937 random(7);
    for (int round = 0; round < 30000; ++round) {
        std::string text;
        for (auto n = random() % 20; n != 0; --n) {
            text += pieces[random() % (sizeof(pieces) / sizeof(pieces[0]))];
        }
        std::string const exact(text);
        Node node;
        std::string rest;
        node.decode(tav_istr(exact), &rest);
        ASSERT_LE(rest.size(), exact.size());
        ASSERT_EQ(rest, exact.substr(exact.size() - rest.size()));
        node.encode(true, true, 1, true);
        if (rest.empty() && node.next() == nullptr && exact.find('\0') == std::string::npos) {
            std::string const once = node.encode(false, false, 0, true);
            Node again;
            again.decode(tav_istr(once));
            ASSERT_EQ(node.tag(), again.tag()) << once;
        }
    }
}
