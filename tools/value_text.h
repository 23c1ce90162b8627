#ifndef TAV_TOOLS_VALUE_TEXT_H
#define TAV_TOOLS_VALUE_TEXT_H

#include "tools/templates.h"

#include <string>
#include <string_view>

namespace tav {
namespace tool {

/// A text between quotes on one line: bytes that are no text are shown as \xNN, controls as \xNN or \uNNNN,
/// and above `limit` bytes its front and its length; 0 sets no limit.
std::string textValue(std::string_view text, std::size_t limit);

/// "1 byte", "2 bytes".
std::string byteCount(unsigned long long size);

/// "1 is there", "2 are there".
std::string thereAre(unsigned long long count);

/// Bytes in hexadecimal; above `limit`, unless it is 0, the first ones and their number.
std::string bytesValue(std::string_view data, std::size_t limit);

/// The bytes of a number of this kind; 0 of what is none.
std::size_t widthOf(Kind kind);

/// The data of a value of which no type is known: a number of up to 8 bytes, text, or bytes.
std::string plainValue(std::string_view data, bool text, std::size_t limit);

/// The data of a value of a simple kind or an enum, which has the names of `names`, or null.
std::string typedValue(std::string_view data, Kind kind, pml::MetaEnum const * names, std::size_t limit);

/// What is odd in a value of this kind: text where a number is declared, or more bytes than it has.  Empty if
/// nothing is.
std::string oddness(std::string_view data, bool text, Kind kind);

/// Whether the data is the number of a member.
bool isMember(std::string_view data, pml::MetaEnum const & names);

/// What a protected field shows of its data.
std::string maskedValue(std::string_view data, pml::MetaField const & field);

/// The fewest digits, six at least, that give the number back.
std::string digitsOf(float value);
std::string digitsOf(double value);

/// Milliseconds since 1970 as "2023-11-14T22:13:20.000Z"; empty for a year without four digits.
std::string timeText(long long milliseconds);

} // namespace tool
} // namespace tav

#endif
