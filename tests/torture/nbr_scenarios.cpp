#include "torture/sample.h"
#include "torture/scenarios.h"

#include <sstream>

namespace tav_test {
namespace torture {
namespace {

namespace nbr = tav::nbr;

/// Of the library's classes by all but their types, which keeps them off the direct roads.
class SlowIn : public tavNbrInStream {
public:
    using tavNbrInStream::tavNbrInStream;
};
class SlowOut : public tavNbrOutStream {
public:
    using tavNbrOutStream::tavNbrOutStream;
};

void encoded() {
    tavBytes const bytes = sample().encode(true);
    holds(same(bytes, written().nbr), "the bytes are those of the message");
}

void decoded() {
    Everything read;
    read.decode(viewOf(written().nbr));
    Spared const spared;
    holds(same(read.encode(true), written().nbr), "what was read is what was written");
}

void encodedByVirtualCalls() {
    SlowOut out(true);
    const_cast<Everything &>(sample()).io(out);
    holds(same(out.str(), written().nbr), "the bytes are those of the message");
}

void decodedByVirtualCalls() {
    Everything read;
    SlowIn in(viewOf(written().nbr));
    read.io(in);
    Spared const spared;
    holds(same(read.encode(true), written().nbr), "what was read is what was written");
}

unsigned membersOf(nbr::ValueBase const & value) {
    if (value.simple()) {
        return 1;
    }
    unsigned n = 0;
    for (auto const & item : static_cast<nbr::ComplexValue const &>(value)) {
        n += item.second ? membersOf(*item.second) : 1;
    }
    return n;
}

void parsed() {
    nbr::NbrInputStream const in(viewOf(written().nbr));
    auto const top = in.getComplexValue();
    holds(top && top->get(5), "the members are found");
    holds(membersOf(*top) > 30, "all values are there");
    tavString text;
    holds(top->get(5) && static_cast<nbr::SimpleValue const &>(*top->get(5)).read(text) &&
              text == sample().text,
          "a text is read");
}

void parsedFromAView() {
    tav_istr rest = viewOf(written().nbr);
    auto const value = nbr::parser::from(rest);
    holds(value && rest.empty(), "the document is one value");
    tavBytes flat;
    nbr::NbrOutputStream out;
    {
        nbr::NbrOutputStream::Entry const entry(out);
        out.writeTag(1);
        out << "found";
    }
    auto const found = nbr::parser::from(out.str(), 1);
    holds(found && found->data() == tav_istr("found"), "a member is found without a tree");
}

void refused() {
    try {
        nbr::NbrInputStream const in(tav_istr("\xf5\x01\x02", 3u));
        holds(false, "what is no NBR is refused");
    } catch (std::invalid_argument const & e) {
        Spared const spared;
        holds(std::string(e.what()).find("DecodeException: maybe not nbr") == 0, "the failure has its text");
    }
}

void built() {
    tavSharedPtr<nbr::ComplexValue> const top(new nbr::ComplexValue);
    for (char tag = 1; tag < 20; ++tag) {
        top->add(tag, tavSharedPtr<nbr::ValueBase>(new nbr::SimpleValue(viewOf(written().json), true)));
    }
    nbr::ComplexValue copy(*top);
    copy.add(1, top);
    nbr::ComplexValue assigned;
    assigned = copy;
    holds(assigned.data().size() == 20 && assigned.get(1).get() == top.get(), "the last member counts");
    holds(top->data().size() == 19, "a copy is one's own");
}

void shown() {
    std::ostringstream out;
    out.exceptions(std::ios::badbit);
    out << nbr::_PrintNbr(viewOf(written().nbr), true) << tav_nbr_buf{written().nbr.data(), 9};
    holds(out.tellp() > 500, "the members are printed");
}

void valuesWritten() {
    nbr::NbrOutputStream out;
    for (int i = 0; i < 20; ++i) {
        out << 'a' << static_cast<unsigned char>(7) << short(-3) << 5 << 6u << 7l << 8ul << 9ll << 10ull
            << 1.5f << 2.5 << true << "text" << sample().text << sample().standard << sample().digest
            << tavTime::seconds(1600000000);
        out.writeEmpty();
        out.writeNull();
    }
    tavBytes copy;
    out.encode(copy);
    tavBytes taken;
    out.swap(taken);
    holds(copy.size() > 1000 && same(taken, bytesOf(copy)) && out.empty(), "all values are written once");
}

void compactIntegers() {
    tavBytes bytes;
    nbr::CompactIntegerWriter out(bytes);
    for (int i = 0; i < 50; ++i) {
        out << 'a' << short(2) << 3 << 4ll << 5.5 << true;
    }
    holds(bytes.size() > 500, "the numbers are written");
}

} // namespace

Scenarios nbrScenarios() {
    return {{"encoded", encoded},
            {"decoded", decoded},
            {"encoded_by_virtual_calls", encodedByVirtualCalls},
            {"decoded_by_virtual_calls", decodedByVirtualCalls},
            {"parsed", parsed},
            {"parsed_from_a_view", parsedFromAView},
            {"refused", refused},
            {"built", built},
            {"shown", shown},
            {"values_written", valuesWritten},
            {"compact_integers", compactIntegers}};
}

} // namespace torture
} // namespace tav_test
