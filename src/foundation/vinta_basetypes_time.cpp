#include "tav/vinta/vinta_basetypes_time.h"

#include "foundation/platform.h"
#include "foundation/time_text.h"

#include <chrono>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <mutex>
#include <string_view>

using tav::detail::timeText;
using tav::detail::timeTextSize;

namespace {

/// Sums, differences and products of times wrap, as no time has a failure to tell.
long long wrappingAdd(long long a, long long b) {
    return static_cast<long long>(static_cast<unsigned long long>(a) + static_cast<unsigned long long>(b));
}

long long wrappingSubtract(long long a, long long b) {
    return static_cast<long long>(static_cast<unsigned long long>(a) - static_cast<unsigned long long>(b));
}

long long wrappingMultiply(long long a, long long b) {
    return static_cast<long long>(static_cast<unsigned long long>(a) * static_cast<unsigned long long>(b));
}

int narrow(long long v) {
    return static_cast<int>(static_cast<unsigned>(static_cast<unsigned long long>(v)));
}

/// Writes `v` in decimal, padded with `0` to `width` and never cut, and returns the place behind it.
char * putNumber(char * out, unsigned long long v, int width) {
    char digits[std::numeric_limits<unsigned long long>::digits10 + 1];
    int count = 0;
    do {
        digits[count++] = static_cast<char>('0' + v % 10);
        v /= 10;
    } while (v != 0);
    for (int i = count; i < width; ++i) {
        *out++ = '0';
    }
    while (count > 0) {
        *out++ = digits[--count];
    }
    return out;
}

char * putYear(char * out, long long year) {
    if (year < 0) {
        *out++ = '-';
        return putNumber(out, static_cast<unsigned long long>(-year), 3);
    }
    return putNumber(out, static_cast<unsigned long long>(year), 4);
}

char * putField(char * out, char separator, int v) {
    *out++ = separator;
    return putNumber(out, static_cast<unsigned long long>(v), 2);
}

char * putSecond(char * out, long long second) {
    struct tm const local = tavTime::secondsToLocal(second);
    out = putYear(out, 1900ll + local.tm_year);
    out = putField(out, '-', local.tm_mon + 1);
    out = putField(out, '-', local.tm_mday);
    out = putField(out, '~', local.tm_hour);
    out = putField(out, ':', local.tm_min);
    return putField(out, ':', local.tm_sec);
}

/// The text of the second that this thread printed last: most times printed in a row share it.
struct LastSecond {
    long long second;
    std::size_t size;
    char text[timeTextSize];
};

thread_local LastSecond lastSecond = {0, 0, {}};

} // namespace

std::string_view tav::detail::timeText(tavTime const & time, char * out) {
    long long const second = time.seconds();
    LastSecond & cached = lastSecond;
    if (cached.size == 0 || cached.second != second) {
        cached.second = second;
        cached.size = static_cast<std::size_t>(putSecond(cached.text, second) - cached.text);
    }
    std::memcpy(out, cached.text, cached.size);
    char * end = out + cached.size;
    *end++ = '.';
    long long const rest = time.milliseconds() % 1000;
    end = putNumber(end, static_cast<unsigned long long>(rest < 0 ? -rest : rest), 3);
    tavTimeZone const zone = tavLocalZone::get();
    std::size_t const zoneSize = std::strlen(zone.str());
    std::memcpy(end, zone.str(), zoneSize);
    end += zoneSize;
    return std::string_view(out, static_cast<std::size_t>(end - out));
}

tav_time::tav_time(tav_istr text) : text_(text) {}

char const * tav_time::data() const {
    return text_.data();
}

unsigned tav_time::size() const {
    return text_.size();
}

tavTime::tavTime(tav_time text) : tavTime(from(tav_istr(text.data(), text.size()))) {}

tavTime tavTime::now() {
    return tavTime(currentTimeMillis());
}

long long tavTime::currentTimeMillis() {
    auto const passed = std::chrono::system_clock::now().time_since_epoch();
    return std::chrono::duration_cast<std::chrono::milliseconds>(passed).count();
}

tavTime tavTime::seconds(long long v) {
    return tavTime(wrappingMultiply(v, 1000));
}

tavTime tavTime::operator+(long long ms) const {
    return tavTime(wrappingAdd(value_, ms));
}

long long tavTime::operator-(tavTime const & other) const {
    return wrappingSubtract(value_, other.value_);
}

tavString tavTime::str() const {
    char buffer[timeTextSize];
    std::string_view const text = timeText(*this, buffer);
    return tavString(text.data(), static_cast<unsigned>(text.size()));
}

tavTime tavTime::from(tav_istr text) {
    int const year = text.readDigits(4);
    int const month = text.readDigits(2);
    int const day = text.readDigits(2);
    struct tm local = {};
    local.tm_year = year - 1900;
    local.tm_mon = month - 1;
    local.tm_mday = day;
    local.tm_hour = text.readDigits(2);
    local.tm_min = text.readDigits(2);
    local.tm_sec = text.readDigits(2);
    int ms = 0;
    if (!text.empty() && *text == '.') {
        ms = text.readDigits(3);
    }
    bool const undated = year == 0 && month == 0 && day == 0;
    return tavTime(undated ? -1000 : localToMillis(local)) + ms;
}

struct tm tavTime::millisToLocal(long long ms) {
    return secondsToLocal(ms / 1000);
}

struct tm tavTime::secondsToLocal(long long s) {
    time_t const second = static_cast<time_t>(s);
    struct tm local = {};
    if (!tav::platform::localTime(second, local)) {
        local = {};
    }
    return local;
}

long long tavTime::localToMillis(struct tm const & local) {
    struct tm fields = local;
    return wrappingMultiply(mktime(&fields), 1000);
}

std::ostream & operator<<(std::ostream & out, tavTime const & v) {
    char buffer[timeTextSize];
    return out << timeText(v, buffer);
}

tavTimeZone::tavTimeZone() : offset_(0), text_{'G', 'M', 'T', 0, 0, 0} {}

tavTimeZone::tavTimeZone(char sign, int hours, int minutes) : tavTimeZone() {
    assign(sign, hours, minutes);
}

tavTimeZone::tavTimeZone(int offset) : tavTimeZone() {
    long long const total = std::llabs(static_cast<long long>(offset)) / 60;
    assign(offset < 1 ? '+' : '-', static_cast<int>(total / 60), static_cast<int>(total % 60));
}

tavTimeZone::tavTimeZone(tavTimeZone const & other) = default;

tavTimeZone & tavTimeZone::operator=(tavTimeZone const & other) = default;

void tavTimeZone::assign(char sign, int hours, int minutes) {
    long long const seconds = (hours * 60ll + minutes) * 60;
    offset_ = narrow(sign == '+' ? -seconds : seconds);
    text_[0] = sign;
    text_[1] = intToChar(hours / 10);
    text_[2] = intToChar(hours);
    text_[3] = intToChar(minutes / 10);
    text_[4] = intToChar(minutes);
    text_[5] = 0;
}

void tavTimeZone::assign(tavTimeZone const & other) {
    *this = other;
}

tavTimeZone tavTimeZone::gmt() {
    return tavTimeZone();
}

tavTimeZone tavTimeZone::east(int h) {
    return tavTimeZone(narrow(h * -3600ll));
}

tavTimeZone tavTimeZone::west(int h) {
    return tavTimeZone(narrow(h * 3600ll));
}

tavTimeZone tavTimeZone::hours(int h) {
    return west(h);
}

tavTimeZone tavTimeZone::minutes(int m) {
    return tavTimeZone(narrow(m * 60ll));
}

tavTimeZone tavTimeZone::local() {
    return tavLocalZone::get();
}

tavTimeZone tavTimeZone::operator-() const {
    return tavTimeZone(narrow(-static_cast<long long>(offset_)));
}

int tavTimeZone::offset() const {
    return offset_;
}

char const * tavTimeZone::str() const {
    return text_;
}

char tavTimeZone::intToChar(int i) {
    int const digit = i % 10;
    return static_cast<char>('0' + (digit < 0 ? -digit : digit));
}

tavLocalZone::tavLocalZone() {
    constexpr long long secondMidnight = 86400;
    struct tm const local = tavTime::secondsToLocal(secondMidnight);
    zone_.assign('+', local.tm_hour, local.tm_min);
}

tavTimeZone tavLocalZone::get() {
    static tavLocalZone const the;
    return the.zone_;
}

tavCheckTime::tavCheckTime() = default;

bool tavCheckTime::expired(tavTime now, long long interval) {
    std::lock_guard<tavMutex> const guard(mutex_);
    if (now - last_ < interval) {
        return false;
    }
    last_ = now;
    return true;
}

void tavCheckTime::update(tavTime now) {
    std::lock_guard<tavMutex> const guard(mutex_);
    last_ = now;
}
