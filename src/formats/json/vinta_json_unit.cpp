#include "tav/vinta/vinta_json_tree.h"

#include "foundation/number_text.h"
#include "foundation/views.h"

#include <string>
#include <string_view>
#include <type_traits>

namespace tav {
namespace json {

using detail::viewOf;

namespace {

using tav::detail::NumberText;

JsonUnit & writeNumber(JsonUnit & unit, NumberText const & number) {
    unit.numberValue().setValue(viewOf(number.view()));
    return unit;
}

/// As a string, so that no reader takes it through a floating-point number.
JsonUnit & writeLargeNumber(JsonUnit & unit, NumberText const & number) {
    unit.stringValue().setValue(viewOf(number.view()));
    return unit;
}

JsonUnit & writeText(JsonUnit & unit, tav_istr text) {
    // The text may lie in the value that gives way to a string.
    tavSharedPtr<JsonValue> kept;
    if (static_cast<JsonUnit const &>(unit).stringValue() == nullptr) {
        kept = unit.value();
    }
    unit.stringValue().setValue(text);
    return unit;
}

/// The text of a number, which may have come quoted; null if the unit holds neither.
tavString const * numberText(JsonUnit const & unit) {
    if (JsonNumber const * const number = unit.numberValue()) {
        return &number->getValue();
    }
    JsonString const * const string = unit.stringValue();
    return string != nullptr ? &string->getValue() : nullptr;
}

template <class T>
JsonUnit const & readInteger(JsonUnit const & unit, T & v) {
    if (tavString const * const text = numberText(unit)) {
        std::conditional_t<std::is_signed<T>::value, long long, unsigned long long> work = 0;
        tav::detail::readInteger(tav::detail::bytesOf(*text), work);
        v = static_cast<T>(work);
    }
    return unit;
}

template <class T>
JsonUnit const & readFloating(JsonUnit const & unit, T & v) {
    if (tavString const * const text = numberText(unit)) {
        T work = 0;
        tav::detail::readFloating(tav::detail::bytesOf(*text), work);
        v = work;
    }
    return unit;
}

} // namespace

JsonUnit & JsonUnit::operator<<(char v) {
    return writeNumber(*this, NumberText(static_cast<int>(v)));
}

JsonUnit & JsonUnit::operator<<(unsigned char v) {
    return writeNumber(*this, NumberText(static_cast<int>(v)));
}

JsonUnit & JsonUnit::operator<<(short v) {
    return writeNumber(*this, NumberText(v));
}

JsonUnit & JsonUnit::operator<<(unsigned short v) {
    return writeNumber(*this, NumberText(v));
}

JsonUnit & JsonUnit::operator<<(int v) {
    return writeNumber(*this, NumberText(v));
}

JsonUnit & JsonUnit::operator<<(unsigned int v) {
    return writeNumber(*this, NumberText(v));
}

JsonUnit & JsonUnit::operator<<(float v) {
    return writeNumber(*this, NumberText(static_cast<double>(v)));
}

JsonUnit & JsonUnit::operator<<(double v) {
    return writeNumber(*this, NumberText(v));
}

JsonUnit & JsonUnit::operator<<(long v) {
    return writeLargeNumber(*this, NumberText(v));
}

JsonUnit & JsonUnit::operator<<(unsigned long v) {
    return writeLargeNumber(*this, NumberText(v));
}

JsonUnit & JsonUnit::operator<<(long long v) {
    return writeLargeNumber(*this, NumberText(v));
}

JsonUnit & JsonUnit::operator<<(unsigned long long v) {
    return writeLargeNumber(*this, NumberText(v));
}

JsonUnit & JsonUnit::operator<<(tavTime const & v) {
    return writeLargeNumber(*this, NumberText(v.milliseconds()));
}

JsonUnit & JsonUnit::operator<<(bool v) {
    booleanValue().setValue(v);
    return *this;
}

JsonUnit & JsonUnit::operator<<(char const * v) {
    return writeText(*this, tav_istr(v));
}

JsonUnit & JsonUnit::operator<<(tav_istr v) {
    return writeText(*this, v);
}

JsonUnit & JsonUnit::operator<<(tavString const & v) {
    return writeText(*this, v);
}

JsonUnit & JsonUnit::operator<<(std::string const & v) {
    return writeText(*this, v);
}

JsonUnit & JsonUnit::operator<<(std::wstring const & v) {
    tavString text;
    text.fromWstring(v);
    return writeText(*this, text);
}

JsonUnit & JsonUnit::operator<<(tavBytes const & v) {
    std::string text;
    tavBase64::encode(v, text, false);
    return writeText(*this, text);
}

JsonUnit const & JsonUnit::operator>>(char & v) const {
    return readInteger(*this, v);
}

JsonUnit const & JsonUnit::operator>>(unsigned char & v) const {
    return readInteger(*this, v);
}

JsonUnit const & JsonUnit::operator>>(short & v) const {
    return readInteger(*this, v);
}

JsonUnit const & JsonUnit::operator>>(unsigned short & v) const {
    return readInteger(*this, v);
}

JsonUnit const & JsonUnit::operator>>(int & v) const {
    return readInteger(*this, v);
}

JsonUnit const & JsonUnit::operator>>(unsigned int & v) const {
    return readInteger(*this, v);
}

JsonUnit const & JsonUnit::operator>>(long & v) const {
    return readInteger(*this, v);
}

JsonUnit const & JsonUnit::operator>>(unsigned long & v) const {
    return readInteger(*this, v);
}

JsonUnit const & JsonUnit::operator>>(long long & v) const {
    return readInteger(*this, v);
}

JsonUnit const & JsonUnit::operator>>(unsigned long long & v) const {
    return readInteger(*this, v);
}

JsonUnit const & JsonUnit::operator>>(float & v) const {
    return readFloating(*this, v);
}

JsonUnit const & JsonUnit::operator>>(double & v) const {
    return readFloating(*this, v);
}

JsonUnit const & JsonUnit::operator>>(tavTime & v) const {
    long long milliseconds = v.milliseconds();
    readInteger(*this, milliseconds);
    v = tavTime::milliseconds(milliseconds);
    return *this;
}

JsonUnit const & JsonUnit::operator>>(bool & v) const {
    if (JsonBoolean const * const value = booleanValue()) {
        v = value->getValue();
    }
    return *this;
}

JsonUnit const & JsonUnit::operator>>(tavString & v) const {
    if (JsonString const * const value = stringValue()) {
        v = value->getValue();
    }
    return *this;
}

JsonUnit const & JsonUnit::operator>>(std::string & v) const {
    if (JsonString const * const value = stringValue()) {
        v = tav::detail::bytesOf(value->getValue());
    }
    return *this;
}

JsonUnit const & JsonUnit::operator>>(std::wstring & v) const {
    if (JsonString const * const value = stringValue()) {
        v = value->getValue().toWstring();
    }
    return *this;
}

JsonUnit const & JsonUnit::operator>>(tavBytes & v) const {
    if (JsonString const * const value = stringValue()) {
        tavBase64::decode(value->getValue(), v);
    }
    return *this;
}

} // namespace json
} // namespace tav
