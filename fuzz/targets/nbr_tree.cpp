#include "fuzz/seeds.h"
#include "tav/vinta/vinta_nbr_compactreader.h"
#include "tav/vinta/vinta_nbr_unit.h"

#include <sstream>

// NBR values as a tree: parsed, walked, printed, found by their tags and written again.

namespace tav_fuzz {
namespace {

using tav::nbr::ComplexValue;
using tav::nbr::NbrInputStream;
using tav::nbr::NbrOutputStream;
using tav::nbr::SimpleValue;
using tav::nbr::ValueBase;
using ValuePtr = tavSharedPtr<ValueBase>;

/// Writes a tree of values, without recursion.
class Writer {
public:
    void add(ValuePtr const & value) {
        open(value);
        while (!levels_.empty()) {
            Level & top = levels_.back();
            if (top.at == top.value->end()) {
                out_.leave();
                levels_.pop_back();
                continue;
            }
            ComplexValue::Item const & item = *top.at++;
            endsEarly_ = endsEarly_ || item.first == '\xff';
            out_.writeTag(item.first);
            open(item.second);
        }
    }
    std::string text() const { return std::string(textOf(out_.str())); }
    /// Whether a member has the tag FF: with a value of 41 bytes it reads as the end of the object.
    bool endsEarly() const { return endsEarly_; }

private:
    struct Level {
        ComplexValue const * value;
        ComplexValue::const_iterator at;
    };

    void open(ValuePtr const & value) {
        if (!value) {
            out_.writeNull();
        } else if (value->simple()) {
            auto const & simple = static_cast<SimpleValue const &>(*value);
            if (simple.isNullOrEmpty()) {
                out_.writeEmpty();
            } else {
                out_.write(simple.data(), false);
            }
        } else {
            auto const & complex = static_cast<ComplexValue const &>(*value);
            out_.enter(nullptr, nullptr, nullptr);
            levels_.push_back(Level{&complex, complex.begin()});
        }
    }

    NbrOutputStream out_;
    std::vector<Level> levels_;
    bool endsEarly_ = false;
};

/// The values as they are written; empty if they can't be told from others.
std::string rewritten(std::string_view input) {
    NbrInputStream const in{viewOf(input)};
    Writer writer;
    for (ValuePtr const & value : in) {
        writer.add(value);
    }
    return writer.endsEarly() ? std::string() : writer.text();
}

template <class T>
void readAs(SimpleValue const & value) {
    T number{};
    require(value.read(number) == !value.isNullOrEmpty(), "a number is read where there are bytes");
}

void readAll(NbrInputStream const & in) {
    for (ValuePtr const & value : in) {
        require(static_cast<bool>(value), "no value of a document is null");
        if (!value->simple()) {
            auto const & complex = static_cast<ComplexValue const &>(*value);
            for (auto const & item : complex) {
                require(complex.get(item.first).get() != nullptr || !complex.get(item.first),
                        "tags are found");
            }
            continue;
        }
        auto const & simple = static_cast<SimpleValue const &>(*value);
        readAs<char>(simple);
        readAs<bool>(simple);
        readAs<short>(simple);
        readAs<unsigned>(simple);
        readAs<float>(simple);
        readAs<unsigned long>(simple);
        readAs<double>(simple);
        readAs<tavTime>(simple);
        tavString text;
        require(simple.read(text) == !simple.isNull(), "a text is read where there is one");
        tavBytes bytes;
        require(simple.read(bytes) == !simple.isNull(), "bytes are read where there are any");
        requireSame(textOf(text), textOf(bytes), "a text has the bytes of its value");
    }
}

/// The simple member that is found without a tree is the one in the tree.
void find(std::string_view input, char tag) {
    std::string found;
    bool const flat = failureOf([&] {
                          auto const value = tav::nbr::parser::from(viewOf(input), tag);
                          found = value ? std::string(textOf(value->data())) : std::string();
                      }).empty();
    tav_istr rest = viewOf(input);
    ValuePtr value;
    bool const whole = failureOf([&] { value = tav::nbr::parser::from(rest); }).empty();
    require(rest.size() <= input.size(), "parsing moves forward");
    if (!flat || !whole || !value || value->simple()) {
        return;
    }
    for (auto const & item : static_cast<ComplexValue const &>(*value)) {
        if (item.first == tag && item.second && item.second->simple()) {
            requireSame(found, textOf(static_cast<SimpleValue const &>(*item.second).data()),
                        "both ways find one");
        }
        if (item.first == tag || (item.second && !item.second->simple())) {
            return;
        }
    }
}

void run(std::string_view input) {
    std::string once;
    std::string const failed = failureOf([&] {
        withinHeap(input, [&] { NbrInputStream const in{viewOf(input)}; });
        NbrInputStream const in{viewOf(input)};
        {
            HeapLimit const limit(input.size(), walkHeap);
            readAll(in);
        }
        std::ostringstream line;
        withinHeap(
            input, [&] { line << in; }, walkHeap);
        if (input.size() <= 512) {
            in.dump(line, true);
        }
        once = rewritten(input);
    });
    find(input, input.empty() ? '\0' : input.back());
    find(input, 1);
    std::ostringstream line;
    std::string const printing = failureOf([&] {
        line << tav_nbr_buf{input.data(), static_cast<unsigned>(input.size())};
    });
    require(failed.empty() == printing.empty(), "printing fails where parsing does");
    if (failed.empty()) {
        requireSame(rewritten(once), once, "a tree that was written is read the same");
    }
    tav_istr rest = viewOf(input);
    tav::nbr::CompactIntegerReader reader(rest);
    while (!reader.empty()) {
        long long number = 0;
        failureOf([&] { reader >> number; });
        reader.readByte();
    }
}

void seeds(Seeds & out, Random & random) {
    for (char const * const shown :
         {"FF0128 01010105 02F1026162 03FF0128 00010107 0001022C01 FF0129 FF0129", "010100", "01017F",
          "01028000", "01022C01", "0104FFFFFFFF", "0101C8", "0108FFFFFFFFFFFFFFFF", "0108000000000000F83F",
          "F1026869", "F100", "0103AABBCC"}) {
        out.push_back(unhex(shown));
    }
    fillUp(out, random, 240, [&] {
        return below(random, 3) == 0 ? randomNbrMessage(random) : randomNbr(random, 4) + randomNbr(random, 2);
    });
}

std::string swell(std::string_view part, std::size_t size) {
    return repeated("", part, "", "", size);
}

TAV_FUZZ_TARGET(nbr_tree, run, seeds, swell);

} // namespace
} // namespace tav_fuzz
