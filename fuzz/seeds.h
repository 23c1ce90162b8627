#ifndef TAV_FUZZ_SEEDS_H
#define TAV_FUZZ_SEEDS_H

#include "fuzz/fuzz.h"

/// Inputs to begin with: what the pages show, and random ones, the same in every run.
namespace tav_fuzz {

/// Letters and digits, and with them what each format writes in a form of its own.
extern std::string_view const plainLetters;
extern std::string_view const wildLetters;

std::size_t below(Random & random, std::size_t n);
std::string randomText(Random & random, std::string_view alphabet, std::size_t most);
std::string randomBytes(Random & random, std::size_t most);
/// One of the list.
std::string_view oneOf(Random & random, std::vector<std::string_view> const & all);

/// The bytes of a hexadecimal text; blanks count for nothing.
std::string unhex(std::string_view text);

/// Messages of the class Everything in each format.
std::string randomNbrMessage(Random & random);
std::string randomJsonMessage(Random & random);
std::string randomPmlMessage(Random & random);
std::string randomXmlMessage(Random & random);

/// Values of no class.
std::string randomNbr(Random & random, int depth);
std::string randomJson(Random & random, int depth);
std::string randomPml(Random & random, int depth);
std::string randomXml(Random & random, int depth);
std::string randomTemplate(Random & random);

/// The wire forms of packets.
std::string mobilePacket(unsigned char affirm, unsigned short code, unsigned short sequence,
                         std::string const & body, bool withExt);
std::string oldPacket(unsigned char kind, unsigned char code, unsigned sequence, std::string const & body);
std::string randomPacket(Random & random);

/// Cuts, doubles or changes a few bytes.
std::string damaged(Random & random, std::string text);

/// Fills up to `count` with what `make` makes, each fourth one damaged.
template <class Make>
void fillUp(Seeds & out, Random & random, std::size_t count, Make && make) {
    while (out.size() < count) {
        std::string seed = make();
        out.push_back(out.size() % 4 == 3 ? damaged(random, std::move(seed)) : std::move(seed));
    }
}

} // namespace tav_fuzz

#endif
