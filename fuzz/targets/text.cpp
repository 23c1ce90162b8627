#include "foundation/number_text.h"
#include "fuzz/seeds.h"
#include "tav/vinta/vinta_basetypes.h"

#include <sstream>

// Conversions of text: base64, hexadecimal, wide text, numbers, ranges and what prints bytes.

namespace tav_fuzz {
namespace {

void checkBytes(std::string_view input) {
    withinHeap(input, [&] {
        tavBytes const bytes{viewOf(input)};
        tavString text;
        bytes.toBase64(text);
        tavBytes back;
        back.fromBase64(text);
        requireSame(textOf(back), input, "base64 gives the bytes back");
        std::string lines;
        tavBase64::encode(viewOf(input), lines, true);
        tavBase64::decode(viewOf(lines), back);
        requireSame(input.empty() ? input : textOf(back), input, "base64 in lines gives the bytes back");
        tavBase64::decode(viewOf(input), back);
        requireSame(textOf(tavHex16::decode(tavHex16::encode(viewOf(input)))), input,
                    "digits give the bytes back");
        tavHex16::decode(viewOf(input));
    });
}

void checkWide(std::string_view input) {
    tavString const text(viewOf(input));
    std::wstring const wide = text.toWstring();
    tavString back;
    back.fromWstring(tav_iwstr(wide));
    requireSame(textOf(tavString(back.toWstring())), textOf(back), "wide text comes back");
    tav_istr rest = viewOf(input);
    while (!rest.empty()) {
        std::size_t const before = rest.size();
        tavString::read(rest);
        require(rest.size() < before, "reading a character moves forward");
    }
}

template <class T>
void checkInteger(std::string_view input) {
    T number = 0;
    if (tav::detail::readDecimal(input, number)) {
        T again = 0;
        tav::detail::NumberText const text(number);
        require(tav::detail::readDecimal(text.view(), again) && again == number, "a number comes back");
    }
    tav::detail::readInteger(input, number);
    tav::detail::readIntegerPart(input, number);
}

void checkNumbers(std::string_view input) {
    checkInteger<short>(input);
    checkInteger<unsigned>(input);
    checkInteger<long long>(input);
    checkInteger<unsigned long long>(input);
    double number = 0;
    if (tav::detail::readFloating(input, number)) {
        std::string const text(tav::detail::NumberText(number).view());
        double again = 0;
        require(tav::detail::readFloating(text, again) || number > 1e308 || number < -1e308,
                "six digits are read");
        requireSame(tav::detail::NumberText(again).view(), text, "six digits come back");
    }
    float single = 0;
    tav::detail::readFloatingPart(input, single);
    tav::detail::readHexCode(input);
}

void checkViews(std::string_view input) {
    tav_istr const view = viewOf(input);
    unsigned const at = view.rfind(view.lastChar());
    require(input.empty() || at == input.size() - 1, "the last byte is found");
    require(view.trim().size() <= view.size(), "trimming makes nothing longer");
    require(view.beginWith(view.leftstr(3)) && view.endWith(view.rightstr(3)),
            "a view begins and ends with itself");
    require(view.compare(view) == 0, "a view equals itself");
    tavString const text(view);
    tavString const swapped = text.replace("a", "bb").replace("bb", "a");
    require(swapped.size() <= text.size(), "what was replaced is replaced back");
    text.toUpperCase();
    text.isDigits();
    std::ostringstream out;
    out << tav::_Print(view) << tav::_PrintHex(view) << tav::HexDump(view) << tav::printAsHex(view)
        << tavBytes(view);
    tav::Range range;
    range.setup(view);
    range.check(5);
    out << range;
}

void run(std::string_view input) {
    checkBytes(input);
    checkWide(input);
    checkNumbers(input);
    checkViews(input);
}

void seeds(Seeds & out, Random & random) {
    for (char const * const text :
         {"", "AQID", "0x10", "0b11", "010", "-5", "+5", "1e5", "1.25", "-0.0", "1e300", "1e-320", "1,3..5,9",
          "1...5", "..", "18446744073709551615", "9223372036854775808", "nan"}) {
        out.push_back(text);
    }
    fillUp(out, random, 240, [&] {
        switch (below(random, 3)) {
        case 0: return randomBytes(random, 40);
        case 1: return randomText(random, "0123456789.,-+eExX", 20);
        default: return randomText(random, wildLetters, 30);
        }
    });
}

TAV_FUZZ_TARGET(text, run, seeds, nullptr);

} // namespace
} // namespace tav_fuzz
