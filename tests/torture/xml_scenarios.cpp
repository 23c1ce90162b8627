#include "torture/sample.h"
#include "torture/scenarios.h"

#include <set>
#include <sstream>
#include <vector>

namespace tav_test {
namespace torture {
namespace {

using tav::xml::Node;

void written_() {
    tavXmlOutStream out("message");
    const_cast<Everything &>(sampleForXml()).io(out);
    holds(same(out.str(false), written().xml), "the text is that of the message");
}

void read() {
    Everything made;
    tavXmlInStream in(viewOf(written().xml));
    made.io(in);
    Spared const spared;
    tavXmlOutStream out("message");
    made.io(out);
    holds(same(out.str(false), written().xml), "what was read is what was written");
}

void parsed() {
    Node node;
    std::string rest;
    node.decode(viewOf(written().xml), &rest);
    Node const & constant = node;
    holds(rest.empty() && constant["place"]["city"].content().size() > 10, "members are found");
    holds(constant["text"].content() == std::string_view(sample().text.data(), sample().text.size()),
          "a text is read");
}

void malformed() {
    Node node;
    std::string rest;
    node.decode("<a name='of some length'>a text of some length<b/></c><d", &rest);
    holds(node.name() == "a", "what was built stays");
}

Node const & tree() {
    static Node const * const made = [] {
        Spared const spared;
        auto * const node = new Node;
        node->decode(viewOf(written().xml));
        node->attr("an attribute that has a long name").value() =
            "and a value that is no short one, <really>";
        return node;
    }();
    return *made;
}

void printed() {
    for (int mode = 0; mode < 4; ++mode) {
        Node node(tree());
        node.dumping(mode);
        holds(node.encode(true, false, 0, true).size() > 500, "the long form is whole");
        holds(node.encode(false, true, 0, false).size() > 500, "the short form is whole");
    }
    std::ostringstream out;
    out.exceptions(std::ios::badbit);
    out << tree();
    holds(out.tellp() > 500, "a tree prints as its text");
}

void built() {
    Node top("a tag that is no short one", "a content that is no short one either");
    top.attr("an attribute with a long name").value() = "a value that is no short one";
    top.setAttr("another attribute with a long name", "another value of some length");
    top["a child with a name of some length"]["a grandchild with a name"].content("a text of some length");
    top.addChild("a child of its own", "with a content that is no short one");
    top.addChild(new Node(tree()));
    top.newChild().contentNode()->value() = "a text by its object, of some length";
    top.createNext()->tag("the root that follows, with a long tag");
    top.optional() = true;
    top.memo() = "a memo that is no short one, to be sure";
    Node const copy(top);
    Node assigned;
    assigned = top;
    holds(copy == assigned && top.next() != nullptr && copy.next() == nullptr, "copies are equal");
    std::set<std::string> names;
    copy.collectNames(names);
    std::vector<std::string> values;
    copy.collectValues(values);
    std::vector<tavSharedPtr<Node>> nodes;
    copy.collectTopNodes(nodes);
    holds(names.size() > 10 && values.size() > 10 && nodes.size() == 4, "names and values are gathered");
    top.clear();
    holds(top.isEmpty(), "a cleared node is empty");
}

void streamed() {
    tav::xml::XmlOutputStream out("a tag that is no short one");
    out["numbers"].newChild().content("5");
    out.attr("an attribute with a long name").value() = "a value that is no short one";
    out << 5 << 1.5 << true << sample().text << sample().digest << tavTime::seconds(1600000000)
        << std::wstring(30, L'w');
    tav::xml::XmlDumpStream dumped("a tag that is no short one", 3);
    dumped.enter("im.AName.OfSomeLength.WithDots", "a base that has a long name", "");
    dumped << sample().text;
    holds(out.str(true).size() > 200 && dumped.str(false).size() > 60, "values are written");
    tav::xml::XmlInputStream const in(tav_istr("<a>QUJDREVGR0hJSktMTU5PUFFSU1RVVldYWVo=</a>"));
    tavBytes bytes;
    std::wstring wide;
    in >> bytes >> wide;
    holds(same(bytes, "ABCDEFGHIJKLMNOPQRSTUVWXYZ") && wide.size() == 36, "values are read");
}

void escaped() {
    std::string text;
    tav::xml::escape(text, written().pml.c_str(), true);
    std::string plain;
    tav::xml::unescape(plain, viewOf(text));
    holds(plain == written().pml, "a text comes back");
    tav::xml::encode_cdata(text);
    tav::xml::decode_cdata(text);
    std::string attribute;
    tav::xml::escapeAttr(attribute, written().xml.c_str());
    holds(attribute.size() > written().xml.size(), "an attribute is escaped");
}

} // namespace

Scenarios xmlScenarios() {
    return {{"written", written_}, {"read", read},   {"parsed", parsed},     {"malformed", malformed},
            {"printed", printed},  {"built", built}, {"streamed", streamed}, {"escaped", escaped}};
}

} // namespace torture
} // namespace tav_test
