#ifndef TAV_VINTA_BASETYPES_TIME_H
#define TAV_VINTA_BASETYPES_TIME_H

#include "tav/vinta/vinta_api.h"
#include "tav/vinta/vinta_basetypes_text.h"
#include "tav/vinta/vinta_locks.h"

#include <ctime>
#include <ostream>
#include <type_traits>

/// Points in time in milliseconds, fixed time zones, and a guard for intervals.

/// Marks text as a date.  A view: the text must outlive it.
class TAV_API tav_time {
public:
    explicit tav_time(tav_istr text);

    char const * data() const;
    unsigned size() const;

private:
    tav_istr text_;
};

/// Milliseconds since 1970-01-01 00:00:00 UTC.  The value 0 also means no time.  A plain value: distinct
/// objects may be used by distinct threads.
class TAV_API tavTime {
public:
    /// No time.
    tavTime() : value_(0) {}
    /// What from gives.
    tavTime(tav_time text);

    /// The system clock's time.
    static tavTime now();
    /// The same as a number of milliseconds.
    static long long currentTimeMillis();
    static tavTime milliseconds(long long v) { return tavTime(v); }
    static tavTime seconds(long long v);

    long long milliseconds() const { return value_; }
    /// Whole seconds, cut toward 0.
    long long seconds() const { return value_ / 1000; }
    /// The milliseconds.
    operator long long() const { return value_; }

    tavTime operator+(long long ms) const;
    template <class N, class = std::enable_if_t<std::is_integral<N>::value>>
    tavTime operator+(N ms) const {
        return *this + static_cast<long long>(ms);
    }
    /// The difference in milliseconds.
    long long operator-(tavTime const & other) const;

    friend bool operator==(tavTime const & a, tavTime const & b) { return a.value_ == b.value_; }
    friend bool operator!=(tavTime const & a, tavTime const & b) { return a.value_ != b.value_; }
    friend bool operator<(tavTime const & a, tavTime const & b) { return a.value_ < b.value_; }
    friend bool operator<=(tavTime const & a, tavTime const & b) { return a.value_ <= b.value_; }
    friend bool operator>(tavTime const & a, tavTime const & b) { return a.value_ > b.value_; }
    friend bool operator>=(tavTime const & a, tavTime const & b) { return a.value_ >= b.value_; }

    bool empty() const { return value_ == 0; }
    bool operator!() const { return value_ == 0; }

    /// The local time as `2022-06-01~11:09:29.007+0800`.  The clock follows summer time, the zone's text is
    /// that of tavLocalZone.
    tavString str() const;

    /// Reads up to four digits of year and two each of month, day, hour, minute and second, with anything or
    /// nothing between them, and up to three digits of milliseconds behind a ".", taken as a plain number.
    /// They are a local time without summer time; a zone behind them is ignored.  It never fails: with year,
    /// month and day all 0 the result is the millisecond -1000 plus the milliseconds read.
    static tavTime from(tav_istr text);

    /// The local time of a count of milliseconds, cut to the second toward 0.
    static struct tm millisToLocal(long long ms);
    /// The local time of a count of seconds; all fields 0 for a year that has no number.
    static struct tm secondsToLocal(long long s);
    /// The milliseconds of a local time, -1000 for one that has none.
    static long long localToMillis(struct tm const & local);

private:
    explicit tavTime(long long value) : value_(value) {}

    long long value_;
};

/// The same text as str.
TAV_API std::ostream & operator<<(std::ostream & out, tavTime const & v);

/// A fixed offset from Greenwich and its text, such as `+0800`.  A plain value: distinct objects may be used
/// by distinct threads.
class TAV_API tavTimeZone {
public:
    /// Greenwich: 0 and "GMT".
    tavTimeZone();
    /// What assign makes.
    tavTimeZone(char sign, int hours, int minutes);
    /// From the seconds to add to local time, odd seconds dropped; 0 has the text `+0000`.
    explicit tavTimeZone(int offset);
    tavTimeZone(tavTimeZone const & other);
    tavTimeZone & operator=(tavTimeZone const & other);

    /// The text keeps the last two decimal digits of `hours` and of `minutes`, the offset keeps all.  `+` is
    /// east, any other sign is west.
    void assign(char sign, int hours, int minutes);
    void assign(tavTimeZone const & other);

    static tavTimeZone gmt();
    /// `h` hours east of Greenwich.
    static tavTimeZone east(int h);
    /// `h` hours west of Greenwich.
    static tavTimeZone west(int h);
    /// The same as west.
    static tavTimeZone hours(int h);
    /// `m` minutes west of Greenwich.
    static tavTimeZone minutes(int m);
    /// The machine's zone, as tavLocalZone has it.
    static tavTimeZone local();

    /// The zone as far on the other side of Greenwich.
    tavTimeZone operator-() const;

    /// Seconds to add to local time to get UTC: negative east of Greenwich.
    int offset() const;
    /// A sign, two digits of hours and two of minutes; or "GMT".
    char const * str() const;

    /// The last decimal digit of `i` without its sign, as a character.
    static char intToChar(int i);

private:
    int offset_;
    char text_[6];
};

/// The machine's zone, read off the local clock at 1970-01-02 00:00 UTC: its hours and minutes always count
/// as east, so that five hours west are held as `+1900`, and UTC as `+0000`.  Summer time is not looked at.
class TAV_API tavLocalZone {
public:
    tavLocalZone();

    /// The zone found at the first call, fixed for the life of the process.  Any thread may call it.
    static tavTimeZone get();

private:
    tavTimeZone zone_;
};

/// Tells whether an interval has passed since it last said so.  One object may be used by many threads.
class TAV_API tavCheckTime {
public:
    tavCheckTime();

    /// True, and `now` is remembered, if `interval` milliseconds have passed since the time remembered, which
    /// is 0 at the start.
    bool expired(tavTime now, long long interval);
    /// Remembers `now`.
    void update(tavTime now);

private:
    tavMutex mutex_;
    tavTime last_;
};

#endif
