#include "fuzz/seeds.h"
#include "tav/vinta/vinta_xml_tree.h"

#include <algorithm>
#include <set>
#include <sstream>

// XML as a tree: reading never throws, and what was written is read as the same tree.

namespace tav_fuzz {
namespace {

using tav::xml::Node;

std::string reread(std::string_view text) {
    return Node::fromXml(viewOf(text))->encode(false, false, 0, true);
}

void run(std::string_view input) {
    Node node;
    std::string rest;
    withinHeap(
        input, [&] { node.decode(viewOf(input), &rest); }, xmlTreeHeap);
    require(rest.size() <= input.size(), "the rest is of the input");
    std::string once;
    withinHeap(input, [&] { once = node.encode(false, false, 0, true); });
    std::ostringstream line;
    line << node;
    if (input.size() <= 512) {
        node.encode(true, false, 0, true);
    }
    for (int mode = 1; mode < 4 && input.size() <= 512; ++mode) {
        node.dumping(mode);
        node.encode(false, true, 0, false);
    }
    node.dumping(0);
    std::set<std::string> names;
    node.collectNames(names);
    std::vector<std::string> values;
    node.collectValues(values);
    Node const copy(node);
    require(copy == node, "a copy is equal");
    std::string const twice = reread(once);
    requireSame(reread(twice), twice, "what was written is read the same");
}

void seeds(Seeds & out, Random & random) {
    for (char const * const text :
         {"<a/>", "<a b='c'>d</a>", "<?xml version=\"1.0\"?><a><!-- c --><b/></a>",
          "<a>&lt;&#65;&#x41;&amp;</a>", "<a><![CDATA[<b>]]></a>", "<!DOCTYPE a><a/>", "<a/><b/>",
          "<a b=\"&quot;\"/>", "<a>x<b/>y</a>", "text"}) {
        out.push_back(text);
    }
    fillUp(out, random, 240,
           [&] { return below(random, 3) == 0 ? randomXmlMessage(random) : randomXml(random, 3); });
}

std::string swell(std::string_view part, std::size_t size) {
    return repeated("<a>", part, "<b/>", "</a>", size);
}

TAV_FUZZ_TARGET(xml_tree, run, seeds, swell);

} // namespace
} // namespace tav_fuzz
