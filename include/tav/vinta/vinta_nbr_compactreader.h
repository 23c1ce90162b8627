#ifndef TAV_VINTA_NBR_COMPACTREADER_H
#define TAV_VINTA_NBR_COMPACTREADER_H

#include "tav/vinta/vinta_api.h"
#include "tav/vinta/vinta_basetypes_bytes.h"
#include "tav/vinta/vinta_basetypes_text.h"

namespace tav {
namespace nbr {

/// Writes numbers as compact integers: little-endian, only as many bytes as the value needs, and one 00 more
/// where the last one would have its top bit set, unless a maximum forbids it.  A negative number always
/// takes the maximum of its type.
///
/// The typed operators of the writer and of the reader are two formats: the reader does not read what the
/// writer writes.  A writer holds its buffer by reference and belongs to one thread.
class TAV_API CompactIntegerWriter {
public:
    /// `out` must outlive the writer; everything is appended to it.
    explicit CompactIntegerWriter(tavBytes & out);

    /// Writes `value` at `buf` in at most `max` bytes (a maximum of 0 counts as 1) and returns their number.
    /// No value takes more than nine bytes; with a maximum of 8 or less `buf` needs no more than the maximum.
    static char write(char * buf, unsigned long long value, unsigned int max);

    /// Appends the low eight bits of `b`.
    void writeByte(int b);
    /// Appends `size` bytes.
    void writeBuf(char * data, unsigned int size);

    /// These append 01, 01 and the byte as it is.
    CompactIntegerWriter & operator<<(char v);
    CompactIntegerWriter & operator<<(unsigned char v);
    CompactIntegerWriter & operator<<(bool v);

    /// These append 01, the number of bytes and the compact bytes, at most as many as the type has.  `float`
    /// and `double` go as their bit patterns, `long` and `unsigned long` as the 64-bit types.
    CompactIntegerWriter & operator<<(short v);
    CompactIntegerWriter & operator<<(unsigned short v);
    CompactIntegerWriter & operator<<(int v);
    CompactIntegerWriter & operator<<(unsigned int v);
    CompactIntegerWriter & operator<<(long v);
    CompactIntegerWriter & operator<<(unsigned long v);
    CompactIntegerWriter & operator<<(long long v);
    CompactIntegerWriter & operator<<(unsigned long long v);
    CompactIntegerWriter & operator<<(float v);
    CompactIntegerWriter & operator<<(double v);

private:
    CompactIntegerWriter & append(unsigned long long value, unsigned int max);

    tavBytes & out_;
};

/// Reads compact integers.  The typed operators read from a view that the reader holds by reference, and so
/// move the caller's view; none of them reads outside it.  A reader belongs to one thread.
class TAV_API CompactIntegerReader {
public:
    /// `in` must outlive the reader.
    explicit CompactIntegerReader(tav_istr & in);

    /// The first bytes of `data`, as many as the smaller of `length` and `max` says, as an unsigned number;
    /// no sign is extended.  0 if there are no bytes at all.  Throws std::invalid_argument with "invalid size
    /// " and the number of bytes when that is 0 or above 8.
    static unsigned long long read(char const * data, unsigned int length, unsigned int max);
    static unsigned long long read(tav_istr data, unsigned int max);

    /// The next byte, which is consumed; 0 when there is none.
    char readByte();
    /// The next `n` bytes, or what is left if that is less; they are consumed.
    tav_istr readBuf(unsigned int n);
    /// What is left.
    tav_istr remaining() const;

    /// True if nothing is left.
    bool empty() const;
    bool operator!() const;
    /// Not null if something is left.
    operator void *() const;

    /// These consume 01, any byte, 01, any byte and the value byte.  False, with the bytes so far consumed,
    /// when one of the two 01 is something else, and at once when nothing is left.
    bool operator>>(char & v);
    bool operator>>(unsigned char & v);
    bool operator>>(bool & v);

    /// These consume 01, any byte and a count, and take the value from that many bytes behind it (no more
    /// than are left), which stay in the view.  False, with the byte consumed, when the first is not 01, and
    /// at once when nothing is left.
    bool operator>>(short & v);
    bool operator>>(unsigned short & v);
    bool operator>>(int & v);
    bool operator>>(unsigned int & v);
    bool operator>>(long & v);
    bool operator>>(unsigned long & v);
    bool operator>>(long long & v);
    bool operator>>(unsigned long long & v);
    bool operator>>(float & v);
    bool operator>>(double & v);

private:
    bool readNarrow(char & v);
    bool readWide(unsigned long long & v, unsigned int max);

    tav_istr & in_;
};

} // namespace nbr
} // namespace tav

#endif
