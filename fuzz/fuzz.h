#ifndef TAV_FUZZ_FUZZ_H
#define TAV_FUZZ_FUZZ_H

#include "foundation/views.h"
#include "tav/vinta/vinta_basetypes_text.h"

#include <cstddef>
#include <random>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

/// What all fuzz targets share.  A target is one source in `targets`: a function that takes any bytes and
/// ends the process when the library breaks a promise, and one that makes its seeds.
namespace tav_fuzz {

using Random = std::mt19937;
using Seeds = std::vector<std::string>;

/// A target by name.  One is made in each source of a target, by TAV_FUZZ_TARGET.
struct Target {
    /// The function throws nothing: what a page does not name as a failure ends the process.
    using Run = void (*)(std::string_view input);
    /// Appends the seeds, always the same ones.
    using MakeSeeds = void (*)(Seeds & out, Random & random);
    /// A large input of many parts like this one, which may cost its share of memory and time; null for none.
    using Swell = std::string (*)(std::string_view part, std::size_t size);

    Target(char const * targetName, Run runIt, MakeSeeds seedIt, Swell swellIt);

    char const * name;
    Run run;
    MakeSeeds seeds;
    Swell swell;
};

/// Those of this program.
std::vector<Target const *> & targets();

/// Runs the target once, and once more on a large input for one of 128 inputs.
void runOnce(Target const & target, std::string_view input);

/// The seeds that the target makes, and those that are kept in `corpus`: what broke a promise once and what
/// reaches far.
Seeds seedsOf(Target const & target);

/// Ends the process with what was promised unless `kept` holds.
void require(bool kept, char const * promise);
/// The same for two texts that must be equal.
void requireSame(std::string_view a, std::string_view b, char const * promise);

/// What is told of the failure that the pages describe for bad input; empty if `f` does not fail.
template <class F>
std::string failureOf(F && f) {
    try {
        f();
    } catch (std::invalid_argument const & e) {
        std::string const text = e.what();
        require(!text.empty(), "a failure has a text");
        return text;
    }
    return std::string();
}

/// The most of the heap for each byte of an input, where bytes become fields or packets.
constexpr int plainHeap = 24;
/// Trees take more, since their smallest values are two bytes or three of the input and each has a node.
/// These are measured: the most that any of their smallest values takes, at the moment at which a list of
/// them grows. `1,`: a node of 48 bytes, and a third as much again twice over while the list of nodes grows
/// by its half.
constexpr int jsonTapeHeap = 50;
/// `01 01 05`, walked: a value of some 120 bytes, with its count and the entry of the list.
constexpr int walkHeap = 60;
/// `[1],`: two values with a count each, some 210 bytes a member, and the list of the inner one.
constexpr int jsonTreeHeap = 90;
/// `<b/>`: a node of 288 bytes, whose layout is public.
constexpr int xmlTreeHeap = 85;
/// `()`: a unit without a name or a value has room for both, for its type and its list: 360 bytes, whose
/// layout is public, and the list that grows.
constexpr int pmlTreeHeap = 212;
/// Classes have the values as well: the most is a list of empty texts, of 32 bytes each, once and a half more
/// while it grows. Of NBR nothing else is kept, and a text is one byte. Of JSON (`1,`) the tape, the tree of
/// what is no text yet and the list are there at one time; of XML (`<x/>`) and PML (`()`) the tree, the
/// streams over its nodes and the list.
constexpr int nbrObjectHeap = 64;
constexpr int jsonObjectHeap = 180;
constexpr int xmlObjectHeap = 210;
constexpr int pmlObjectHeap = 310;
/// The tree of it, and the words on what is no level.
constexpr int levelTextHeap = pmlTreeHeap;

/// Watches the heap while it lives: at most so many times the input and 1 MiB may be taken at one time.
class HeapLimit {
public:
    explicit HeapLimit(std::size_t input, int times = plainHeap);
    ~HeapLimit();
    HeapLimit(HeapLimit const &) = delete;
    HeapLimit & operator=(HeapLimit const &) = delete;

private:
    std::size_t const input_;
    int const times_;
    long long const begin_;
};

/// Runs `f` with the heap watched.
template <class F>
auto withinHeap(std::string_view input, F && f, int times = plainHeap) {
    HeapLimit const limit(input.size(), times);
    return f();
}

/// Gathers the lines that are logged while it lives, without their digits: times, threads and places are the
/// same in all runs then.
class LogLines {
public:
    LogLines();
    ~LogLines();
    LogLines(LogLines const &) = delete;
    LogLines & operator=(LogLines const &) = delete;

    std::string take();
};

/// Text without decimal digits.
std::string withoutDigits(std::string_view text);

using tav::detail::viewOf;
template <class Text>
std::string_view textOf(Text const & text) {
    return std::string_view(reinterpret_cast<char const *>(text.data()), text.size());
}

/// `part` again and again up to about `size` bytes, between the brackets and with the separator.
std::string repeated(std::string_view open, std::string_view part, std::string_view separator,
                     std::string_view close, std::size_t size);

/// Takes small values off the front of an input; zeros behind its end.
class Input {
public:
    explicit Input(std::string_view bytes) : rest_(bytes) {}

    bool empty() const { return rest_.empty(); }
    unsigned char byte() {
        unsigned char const out = rest_.empty() ? 0 : static_cast<unsigned char>(rest_.front());
        rest_.remove_prefix(rest_.empty() ? 0 : 1);
        return out;
    }
    unsigned short pair() {
        unsigned const high = byte();
        return static_cast<unsigned short>(high << 8 | byte());
    }
    /// At most `size` bytes.
    std::string_view bytes(std::size_t size) {
        std::string_view const out = rest_.substr(0, size);
        rest_.remove_prefix(out.size());
        return out;
    }
    std::string_view rest() { return bytes(rest_.size()); }

private:
    std::string_view rest_;
};

#define TAV_FUZZ_TARGET(name, run, seeds, swell)                                                             \
    static ::tav_fuzz::Target const tavFuzzTarget_##name(#name, run, seeds, swell)

} // namespace tav_fuzz

#endif
