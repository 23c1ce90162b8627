#include "tav/vinta/vinta_nbr_compactreader.h"

#include "formats/nbr/nbr_compact.h"
#include "foundation/report.h"
#include "tav/vinta/vinta_nbr_write.h"

#include <algorithm>
#include <cstring>
#include <string>

namespace tav {
namespace nbr {

namespace {

template <class Bits, class T>
Bits bitPattern(T v) {
    static_assert(sizeof(Bits) == sizeof(T), "a bit pattern has the size of its number");
    Bits bits;
    std::memcpy(&bits, &v, sizeof(bits));
    return bits;
}

template <class T, class Bits>
T fromBits(Bits bits) {
    static_assert(sizeof(Bits) == sizeof(T), "a bit pattern has the size of its number");
    T v;
    std::memcpy(&v, &bits, sizeof(v));
    return v;
}

unsigned long long extended(long long v) {
    return static_cast<unsigned long long>(v);
}

} // namespace

CompactIntegerWriter::CompactIntegerWriter(tavBytes & out) : out_(out) {}

char CompactIntegerWriter::write(char * buf, unsigned long long value, unsigned int max) {
    unsigned const count = detail::compactSize(value, max);
    std::memcpy(buf, &value, std::min(count, 8u));
    if (count > 8) {
        buf[8] = 0;
    }
    return static_cast<char>(count);
}

void CompactIntegerWriter::writeByte(int b) {
    out_.writeByte(static_cast<unsigned char>(b));
}

void CompactIntegerWriter::writeBuf(char * data, unsigned int size) {
    out_.writeBytes(tav_istr(data, size));
}

CompactIntegerWriter & CompactIntegerWriter::operator<<(char v) {
    char const value[] = {1, 1, v};
    out_.writeBytes(tav_istr(value, 3u));
    return *this;
}

CompactIntegerWriter & CompactIntegerWriter::operator<<(unsigned char v) {
    return *this << static_cast<char>(v);
}

CompactIntegerWriter & CompactIntegerWriter::operator<<(bool v) {
    return *this << static_cast<char>(v);
}

CompactIntegerWriter & CompactIntegerWriter::operator<<(short v) {
    return append(extended(v), 2);
}

CompactIntegerWriter & CompactIntegerWriter::operator<<(unsigned short v) {
    return append(v, 2);
}

CompactIntegerWriter & CompactIntegerWriter::operator<<(int v) {
    return append(extended(v), 4);
}

CompactIntegerWriter & CompactIntegerWriter::operator<<(unsigned int v) {
    return append(v, 4);
}

CompactIntegerWriter & CompactIntegerWriter::operator<<(long v) {
    return append(extended(v), 8);
}

CompactIntegerWriter & CompactIntegerWriter::operator<<(unsigned long v) {
    return append(v, 8);
}

CompactIntegerWriter & CompactIntegerWriter::operator<<(long long v) {
    return append(extended(v), 8);
}

CompactIntegerWriter & CompactIntegerWriter::operator<<(unsigned long long v) {
    return append(v, 8);
}

CompactIntegerWriter & CompactIntegerWriter::operator<<(float v) {
    return append(bitPattern<unsigned>(v), 4);
}

CompactIntegerWriter & CompactIntegerWriter::operator<<(double v) {
    return append(bitPattern<unsigned long long>(v), 8);
}

CompactIntegerWriter & CompactIntegerWriter::append(unsigned long long value, unsigned int max) {
    char bytes[2 + 8];
    char const count = write(bytes + 2, value, max);
    bytes[0] = 1;
    bytes[1] = count;
    out_.writeBytes(tav_istr(bytes, 2u + static_cast<unsigned>(count)));
    return *this;
}

CompactIntegerReader::CompactIntegerReader(tav_istr & in) : in_(in) {}

unsigned long long CompactIntegerReader::read(char const * data, unsigned int length, unsigned int max) {
    if (data == nullptr || length == 0) {
        return 0;
    }
    unsigned const n = std::min(length, max);
    if (n == 0 || n > 8) {
        tav::detail::raise(tav::detail::here("tav::nbr::CompactIntegerReader::read"),
                           "invalid size " + std::to_string(n));
    }
    return detail::readCompact(data, n);
}

unsigned long long CompactIntegerReader::read(tav_istr data, unsigned int max) {
    return read(data.data(), data.size(), max);
}

char CompactIntegerReader::readByte() {
    return static_cast<char>(in_.readByte());
}

tav_istr CompactIntegerReader::readBuf(unsigned int n) {
    tav_istr const taken = in_.leftstr(n);
    in_ = in_.removeLeft(n);
    return taken;
}

tav_istr CompactIntegerReader::remaining() const {
    return in_;
}

bool CompactIntegerReader::empty() const {
    return in_.empty();
}

bool CompactIntegerReader::operator!() const {
    return in_.empty();
}

CompactIntegerReader::operator void *() const {
    return in_;
}

bool CompactIntegerReader::operator>>(char & v) {
    return readNarrow(v);
}

bool CompactIntegerReader::operator>>(unsigned char & v) {
    char byte;
    if (!readNarrow(byte)) {
        return false;
    }
    v = static_cast<unsigned char>(byte);
    return true;
}

bool CompactIntegerReader::operator>>(bool & v) {
    char byte;
    if (!readNarrow(byte)) {
        return false;
    }
    v = byte != 0;
    return true;
}

bool CompactIntegerReader::operator>>(short & v) {
    unsigned long long value;
    if (!readWide(value, 2)) {
        return false;
    }
    v = static_cast<short>(value);
    return true;
}

bool CompactIntegerReader::operator>>(unsigned short & v) {
    unsigned long long value;
    if (!readWide(value, 2)) {
        return false;
    }
    v = static_cast<unsigned short>(value);
    return true;
}

bool CompactIntegerReader::operator>>(int & v) {
    unsigned long long value;
    if (!readWide(value, 4)) {
        return false;
    }
    v = static_cast<int>(value);
    return true;
}

bool CompactIntegerReader::operator>>(unsigned int & v) {
    unsigned long long value;
    if (!readWide(value, 4)) {
        return false;
    }
    v = static_cast<unsigned int>(value);
    return true;
}

bool CompactIntegerReader::operator>>(long & v) {
    unsigned long long value;
    if (!readWide(value, 8)) {
        return false;
    }
    v = static_cast<long>(value);
    return true;
}

bool CompactIntegerReader::operator>>(unsigned long & v) {
    unsigned long long value;
    if (!readWide(value, 8)) {
        return false;
    }
    v = static_cast<unsigned long>(value);
    return true;
}

bool CompactIntegerReader::operator>>(long long & v) {
    unsigned long long value;
    if (!readWide(value, 8)) {
        return false;
    }
    v = static_cast<long long>(value);
    return true;
}

bool CompactIntegerReader::operator>>(unsigned long long & v) {
    return readWide(v, 8);
}

bool CompactIntegerReader::operator>>(float & v) {
    unsigned long long value;
    if (!readWide(value, 4)) {
        return false;
    }
    v = fromBits<float>(static_cast<unsigned>(value));
    return true;
}

bool CompactIntegerReader::operator>>(double & v) {
    unsigned long long value;
    if (!readWide(value, 8)) {
        return false;
    }
    v = fromBits<double>(value);
    return true;
}

bool CompactIntegerReader::readNarrow(char & v) {
    if (in_.empty() || readByte() != 1) {
        return false;
    }
    in_.advance(1);
    if (readByte() != 1) {
        return false;
    }
    in_.advance(1);
    v = readByte();
    return true;
}

bool CompactIntegerReader::readWide(unsigned long long & v, unsigned int max) {
    if (in_.empty() || readByte() != 1) {
        return false;
    }
    in_.advance(1);
    unsigned const count = static_cast<unsigned>(static_cast<int>(static_cast<signed char>(readByte())));
    v = read(in_.data(), std::min(count, in_.left()), max);
    return true;
}

} // namespace nbr
} // namespace tav
