// Date texts for the web client: the HTTP "Date" form, the two ISO 8601 basic forms that
// request signing uses, and parsers for the date-times servers send back. Everything is UTC:
// gmtime_r and timegm, never the local time zone.
#include <cmath>
#include <ctime>
#include <optional>
#include <string_view>

#include "ox/status.h"
#include "webclient_internal.h"

namespace {

constexpr std::string_view kShortDays[] = {"Sun", "Mon", "Tue", "Wed", "Thu", "Fri", "Sat"};
constexpr std::string_view kLongDays[] = {"Sunday", "Monday", "Tuesday", "Wednesday", "Thursday", "Friday",
                                          "Saturday"};
constexpr std::string_view kMonths[] = {"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                                        "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};
constexpr int kDaysInMonth[] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};

// 0000-01-01T00:00:00Z and 9999-12-31T23:59:59Z: the instants four year digits can show.
constexpr double kFirstFormattable = -62167219200.0;
constexpr double kLastFormattable = 253402300799.0;

struct CivilTime {
    int year = 0;
    int month = 0;  // 1-12
    int day = 0;
    int hour = 0;
    int minute = 0;
    int second = 0;
    double fraction = 0.0;
};

// ---- formatting

std::optional<std::tm> brokenDown(OXDateTime when) {
    if (!std::isfinite(when)) return std::nullopt;
    double seconds = std::floor(when);
    if (seconds < kFirstFormattable || seconds > kLastFormattable) return std::nullopt;
    std::time_t t = static_cast<std::time_t>(seconds);
    std::tm tm{};
    if (!gmtime_r(&t, &tm)) return std::nullopt;
    return tm;
}

class TextWriter {
public:
    explicit TextWriter(char* out) : p_(out) {}
    TextWriter& digits(int value, int width) {
        for (int i = width - 1; i >= 0; --i, value /= 10) p_[i] = static_cast<char>('0' + value % 10);
        p_ += width;
        return *this;
    }
    TextWriter& text(std::string_view s) {
        for (char c : s) *p_++ = c;
        return *this;
    }
    void terminate() { *p_ = '\0'; }

private:
    char* p_;
};

void writeHttpDate(const std::tm& tm, TextWriter w) {
    w.text(kShortDays[tm.tm_wday]).text(", ").digits(tm.tm_mday, 2).text(" ").text(kMonths[tm.tm_mon]).text(" ");
    w.digits(tm.tm_year + 1900, 4).text(" ").digits(tm.tm_hour, 2).text(":").digits(tm.tm_min, 2).text(":");
    w.digits(tm.tm_sec, 2).text(" GMT").terminate();
}

void writeIsoDate(const std::tm& tm, TextWriter w) {
    w.digits(tm.tm_year + 1900, 4).digits(tm.tm_mon + 1, 2).digits(tm.tm_mday, 2).terminate();
}

void writeIsoDateTime(const std::tm& tm, TextWriter w) {
    w.digits(tm.tm_year + 1900, 4).digits(tm.tm_mon + 1, 2).digits(tm.tm_mday, 2).text("T");
    w.digits(tm.tm_hour, 2).digits(tm.tm_min, 2).digits(tm.tm_sec, 2).text("Z").terminate();
}

OXStatus formatDate(OXDateTime when, char* out, size_t outCap, size_t size, void (*write)(const std::tm&, TextWriter)) {
    if (!out) return OX_INVALID_ARGUMENT;
    if (outCap < size) return OX_BUFFER_TOO_SMALL;
    std::optional<std::tm> tm = brokenDown(when);
    if (!tm) return OX_INVALID_ARGUMENT;
    write(*tm, TextWriter(out));
    return OX_OK;
}

// ---- parsing

class Cursor {
public:
    explicit Cursor(std::string_view text) : rest_(text) {}

    bool literal(std::string_view s) {
        if (!rest_.starts_with(s)) return false;
        rest_.remove_prefix(s.size());
        return true;
    }
    bool literal(char c) { return literal(std::string_view(&c, 1)); }

    // Exactly `count` decimal digits.
    bool number(int count, int& value) {
        if (rest_.size() < static_cast<size_t>(count)) return false;
        int v = 0;
        for (int i = 0; i < count; ++i) {
            if (!isDigit(rest_[i])) return false;
            v = v * 10 + (rest_[i] - '0');
        }
        rest_.remove_prefix(count);
        value = v;
        return true;
    }

    // One of the names; its index, or -1 when none is next.
    template <size_t N>
    int oneOf(const std::string_view (&names)[N]) {
        for (size_t i = 0; i < N; ++i)
            if (literal(names[i])) return static_cast<int>(i);
        return -1;
    }

    // "." and at least one digit, as a fraction of a second; nothing when no "." is next.
    bool fraction(double& value) {
        if (!literal('.')) return true;
        if (rest_.empty() || !isDigit(rest_.front())) return false;
        double scale = 0.1;
        value = 0.0;
        while (!rest_.empty() && isDigit(rest_.front())) {
            value += (rest_.front() - '0') * scale;
            scale /= 10;
            rest_.remove_prefix(1);
        }
        return true;
    }

    bool atEnd() const { return rest_.empty(); }

private:
    static bool isDigit(char c) { return c >= '0' && c <= '9'; }
    std::string_view rest_;
};

bool isLeapYear(int year) { return (year % 4 == 0 && year % 100 != 0) || year % 400 == 0; }

int daysInMonth(int year, int month) { return month == 2 && isLeapYear(year) ? 29 : kDaysInMonth[month - 1]; }

// timegm would quietly roll "February 30" into March, so every field is checked first.
bool isValid(const CivilTime& c) {
    return c.month >= 1 && c.month <= 12 && c.day >= 1 && c.day <= daysInMonth(c.year, c.month) && c.hour <= 23 &&
           c.minute <= 59 && c.second <= 60;
}

std::optional<OXDateTime> toDateTime(const CivilTime& c) {
    if (!isValid(c)) return std::nullopt;
    std::tm tm{};
    tm.tm_year = c.year - 1900;
    tm.tm_mon = c.month - 1;
    tm.tm_mday = c.day;
    tm.tm_hour = c.hour;
    tm.tm_min = c.minute;
    tm.tm_sec = c.second;
    return static_cast<OXDateTime>(timegm(&tm)) + c.fraction;
}

OXStatus deliver(const std::optional<CivilTime>& civil, OXDateTime* out) {
    std::optional<OXDateTime> when = civil ? toDateTime(*civil) : std::nullopt;
    if (!when) return OX_DATE_NOT_IN_FORM;
    *out = *when;
    return OX_OK;
}

bool timeOfDay(Cursor& in, CivilTime& c, bool withColons) {
    return in.number(2, c.hour) && (!withColons || in.literal(':')) && in.number(2, c.minute) &&
           (!withColons || in.literal(':')) && in.number(2, c.second);
}

// "2009-10-12T17:50:30.000Z" (extended) or "20091012T175030.000Z" (basic); the fraction is optional.
std::optional<CivilTime> isoDateTime(std::string_view text) {
    Cursor in(text);
    CivilTime c;
    if (!in.number(4, c.year)) return std::nullopt;
    bool extended = in.literal('-');
    if (!in.number(2, c.month) || (extended && !in.literal('-')) || !in.number(2, c.day) || !in.literal('T') ||
        !timeOfDay(in, c, extended) || !in.fraction(c.fraction) || !in.literal('Z') || !in.atEnd())
        return std::nullopt;
    return c;
}

// RFC 7231: a two-digit year that would lie more than 50 years ahead belongs to the century before.
int fullYear(int twoDigits) {
    std::time_t now = std::time(nullptr);
    std::tm tm{};
    gmtime_r(&now, &tm);
    int thisYear = tm.tm_year + 1900;
    int year = thisYear - thisYear % 100 + twoDigits;
    return year > thisYear + 50 ? year - 100 : year;
}

bool monthName(Cursor& in, int& month) {
    int index = in.oneOf(kMonths);
    month = index + 1;
    return index >= 0;
}

// "Sun, 06 Nov 1994 08:49:37 GMT"
std::optional<CivilTime> imfFixdate(std::string_view text) {
    Cursor in(text);
    CivilTime c;
    if (in.oneOf(kShortDays) < 0 || !in.literal(", ") || !in.number(2, c.day) || !in.literal(' ') ||
        !monthName(in, c.month) || !in.literal(' ') || !in.number(4, c.year) || !in.literal(' ') ||
        !timeOfDay(in, c, true) || !in.literal(" GMT") || !in.atEnd())
        return std::nullopt;
    return c;
}

// "Sunday, 06-Nov-94 08:49:37 GMT"
std::optional<CivilTime> rfc850Date(std::string_view text) {
    Cursor in(text);
    CivilTime c;
    int twoDigitYear = 0;
    if (in.oneOf(kLongDays) < 0 || !in.literal(", ") || !in.number(2, c.day) || !in.literal('-') ||
        !monthName(in, c.month) || !in.literal('-') || !in.number(2, twoDigitYear) || !in.literal(' ') ||
        !timeOfDay(in, c, true) || !in.literal(" GMT") || !in.atEnd())
        return std::nullopt;
    c.year = fullYear(twoDigitYear);
    return c;
}

// The day of an asctime date: two digits, or a space and one digit.
bool asctimeDay(Cursor& in, int& day) { return in.literal(' ') ? in.number(1, day) : in.number(2, day); }

// "Sun Nov  6 08:49:37 1994"
std::optional<CivilTime> asctimeDate(std::string_view text) {
    Cursor in(text);
    CivilTime c;
    if (in.oneOf(kShortDays) < 0 || !in.literal(' ') || !monthName(in, c.month) || !in.literal(' ') ||
        !asctimeDay(in, c.day) || !in.literal(' ') || !timeOfDay(in, c, true) || !in.literal(' ') ||
        !in.number(4, c.year) || !in.atEnd())
        return std::nullopt;
    return c;
}

std::string_view trimmed(std::string_view text) {
    constexpr std::string_view kWhiteSpace = " \t";
    size_t first = text.find_first_not_of(kWhiteSpace);
    if (first == std::string_view::npos) return {};
    return text.substr(first, text.find_last_not_of(kWhiteSpace) - first + 1);
}

std::optional<std::string_view> viewOf(UTF8CStr text, UTF8ByteLength len) {
    if (!text && len != 0) return std::nullopt;
    return std::string_view(text ? text : "", len);
}

}  // namespace

OXStatus oxFormatHttpDate(OXDateTime when, char* out, size_t outCap) {
    return formatDate(when, out, outCap, OX_HTTP_DATE_SIZE, writeHttpDate);
}

OXStatus oxFormatIsoDate(OXDateTime when, char* out, size_t outCap) {
    return formatDate(when, out, outCap, OX_ISO_DATE_SIZE, writeIsoDate);
}

OXStatus oxFormatIsoDateTime(OXDateTime when, char* out, size_t outCap) {
    return formatDate(when, out, outCap, OX_ISO_DATETIME_SIZE, writeIsoDateTime);
}

OXStatus oxParseIsoDateTime(UTF8CStr text, UTF8ByteLength len, OXDateTime* out) {
    std::optional<std::string_view> in = viewOf(text, len);
    if (!in || !out) return OX_INVALID_ARGUMENT;
    return deliver(isoDateTime(*in), out);
}

OXStatus oxParseHttpDate(UTF8CStr text, UTF8ByteLength len, OXDateTime* out) {
    std::optional<std::string_view> in = viewOf(text, len);
    if (!in || !out) return OX_INVALID_ARGUMENT;
    std::string_view date = trimmed(*in);
    std::optional<CivilTime> civil = imfFixdate(date);
    if (!civil) civil = rfc850Date(date);
    if (!civil) civil = asctimeDate(date);
    return deliver(civil, out);
}
