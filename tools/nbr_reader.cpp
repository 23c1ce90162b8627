#include "tools/nbr_reader.h"

#include "tools/output.h"
#include "tools/value_text.h"

namespace tav {
namespace tool {

namespace {

constexpr std::size_t markerSize = 3;

class NbrReader {
public:
    NbrReader(std::string_view bytes, NbrVisitor & to, NbrFault & fault, unsigned long long base)
        : bytes_(bytes), to_(to), fault_(fault), base_(base) {}

    bool read() {
        while (at_ < bytes_.size()) {
            if (!(depth_ != 0 && atMarker(')') ? close() : readValue())) {
                return false;
            }
        }
        return depth_ == 0 || broken(at_, "the close marker FF 01 29 of " +
                                              (depth_ == 1 ? std::string("an object")
                                                           : std::to_string(depth_) + " objects") +
                                              " is missing");
    }

private:
    bool atMarker(char last) const {
        return bytes_.size() - at_ >= markerSize && bytes_[at_] == '\xFF' && bytes_[at_ + 1] == 1 &&
               bytes_[at_ + 2] == last;
    }

    bool close() {
        --depth_;
        to_.close(at_);
        at_ += markerSize;
        return true;
    }

    bool readValue() {
        NbrValue value;
        value.begin = at_;
        if (depth_ != 0) {
            value.tag = static_cast<signed char>(bytes_[at_++]);
            if (at_ == bytes_.size()) {
                return broken(at_, "the value of the tag " + std::to_string(value.tag) + " is missing");
            }
        }
        value.head = at_;
        if (atMarker('(')) {
            at_ += markerSize;
            ++depth_;
            to_.open(value);
            return true;
        }
        return readSimple(value);
    }

    bool readSimple(NbrValue & value) {
        auto const head = static_cast<unsigned char>(bytes_[at_]);
        if (atMarker(')')) {
            return broken(at_, "a close marker where no object is open");
        }
        if (head == 0xFF) {
            return broken(at_, "FF begins a marker, FF 01 28 or FF 01 29, and no other value");
        }
        unsigned const lengthOfSize = head & 0x0Fu;
        if ((head >= 0x10 && head < 0xF0) || lengthOfSize > 4) {
            return broken(
                at_, "no value begins with " + hexText(bytes_.substr(at_, 1)) +
                         ": 00 and F0 are null, 01 to 04 bytes, F1 to F4 text, FF 01 28 opens an object");
        }
        ++at_;
        value.text = head >= 0xF0;
        value.null = lengthOfSize == 0;
        value.data = at_;
        if (value.null) {
            to_.simple(value);
            return true;
        }
        if (bytes_.size() - at_ < lengthOfSize) {
            return broken(bytes_.size(), "the size of the value at byte " +
                                             std::to_string(base_ + value.head) + " has " +
                                             byteCount(lengthOfSize) + ", and the input ends within");
        }
        unsigned long long size = 0;
        for (unsigned i = 0; i < lengthOfSize; ++i) {
            size |= static_cast<unsigned long long>(static_cast<unsigned char>(bytes_[at_ + i])) << (8 * i);
        }
        at_ += lengthOfSize;
        return readData(value, size);
    }

    bool readData(NbrValue & value, unsigned long long size) {
        std::size_t const left = bytes_.size() - at_;
        value.data = at_;
        value.size = size < left ? static_cast<std::size_t>(size) : left;
        at_ += value.size;
        to_.simple(value);
        return size <= left ||
               broken(at_, "the value at byte " + std::to_string(base_ + value.head) + " says that it has " +
                               byteCount(size) + ", and " + thereAre(left));
    }

    bool broken(std::size_t at, std::string const & text) {
        fault_ = NbrFault{at, text, depth_};
        return false;
    }

    std::string_view bytes_;
    NbrVisitor & to_;
    NbrFault & fault_;
    unsigned long long base_;
    std::size_t at_ = 0;
    std::size_t depth_ = 0;
};

} // namespace

bool readNbr(std::string_view bytes, NbrVisitor & to, NbrFault & fault, unsigned long long base) {
    return NbrReader(bytes, to, fault, base).read();
}

} // namespace tool
} // namespace tav
