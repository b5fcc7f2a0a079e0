#include "text/Time.h"

#include <charconv>
#include <chrono>
#include <cstddef>
#include <string_view>

namespace Text {

namespace {

constexpr std::int64_t nanosecondsOfSecond = 1'000'000'000;

// Takes a number of so many digits, and what must follow it, off the front of a text.
bool takeNumber( std::string_view & text, std::size_t digits, std::string_view then,
                 int & number ) {
    if ( text.size() < digits )
        return false;
    const auto end = std::from_chars( text.data(), text.data() + digits, number ).ptr;
    if ( end != text.data() + digits || number < 0 )
        return false;
    text.remove_prefix( digits );
    if ( !text.starts_with( then ) )
        return false;
    text.remove_prefix( then.size() );
    return true;
}

// The digits behind the point, at least one; those beyond nanoseconds are dropped.
bool takeFraction( std::string_view & text, std::int64_t & nanoseconds ) {
    const auto isDigit = [&] {
        return !text.empty() && text.front() >= '0' && text.front() <= '9';
    };
    if ( !isDigit() )
        return false;
    for ( std::int64_t unit = nanosecondsOfSecond / 10; isDigit(); unit /= 10 ) {
        nanoseconds += ( text.front() - '0' ) * unit;
        text.remove_prefix( 1 );
    }
    return true;
}

// Writes a number with so many digits.
template <std::size_t digits>
void putDigits( char * to, unsigned number ) {
    for ( std::size_t i = digits; i-- > 0; number /= 10 )
        to[i] = static_cast<char>( '0' + number % 10 );
}

} // namespace

void appendUtc( std::string & out, std::int64_t nanoseconds ) {
    std::int64_t second = nanoseconds / nanosecondsOfSecond;
    std::int64_t rest = nanoseconds % nanosecondsOfSecond;
    if ( rest < 0 ) {
        --second;
        rest += nanosecondsOfSecond;
    }
    using namespace std::chrono;
    const auto day = floor<days>( sys_seconds( seconds( second ) ) );
    const year_month_day date( day );
    const auto ofDay = static_cast<unsigned>( second - seconds( day.time_since_epoch() ).count() );
    const auto fraction = static_cast<unsigned>( rest );
    // 64 bits of nanoseconds reach from the year 1677 to 2262.
    char text[] = "yyyy-mm-ddThh:mm:ss.nnnnnnnnnZ";
    putDigits<4>( text, static_cast<unsigned>( static_cast<int>( date.year() ) ) );
    putDigits<2>( text + 5, static_cast<unsigned>( date.month() ) );
    putDigits<2>( text + 8, static_cast<unsigned>( date.day() ) );
    putDigits<2>( text + 11, ofDay / 3600 );
    putDigits<2>( text + 14, ofDay / 60 % 60 );
    putDigits<2>( text + 17, ofDay % 60 );
    // Three divisions that do not wait for each other are faster than one after the other.
    putDigits<3>( text + 20, fraction / 1'000'000 );
    putDigits<3>( text + 23, fraction / 1'000 % 1'000 );
    putDigits<3>( text + 26, fraction % 1'000 );
    out.append( text, sizeof text - 1 );
}

std::string utc( std::int64_t nanoseconds ) {
    std::string text;
    appendUtc( text, nanoseconds );
    return text;
}

std::optional<std::int64_t> parseUtc( std::string_view text ) {
    int year = 0;
    int month = 0;
    int day = 0;
    int hour = 0;
    int minute = 0;
    int second = 0;
    if ( !takeNumber( text, 4, "-", year ) || !takeNumber( text, 2, "-", month ) ||
         !takeNumber( text, 2, "T", day ) || !takeNumber( text, 2, ":", hour ) ||
         !takeNumber( text, 2, ":", minute ) || !takeNumber( text, 2, "", second ) || hour > 23 ||
         minute > 59 || second > 59 )
        return {};
    std::int64_t fraction = 0;
    if ( text.starts_with( '.' ) ) {
        text.remove_prefix( 1 );
        if ( !takeFraction( text, fraction ) )
            return {};
    }
    using namespace std::chrono;
    const auto date = std::chrono::year( year ) / month / day;
    if ( ( !text.empty() && text != "Z" ) || !date.ok() )
        return {};
    const std::int64_t seconds =
        duration_cast<std::chrono::seconds>( sys_days( date ).time_since_epoch() ).count() +
        hour * 3600 + minute * 60 + second;
    std::int64_t time = 0;
    if ( __builtin_mul_overflow( seconds, nanosecondsOfSecond, &time ) ||
         __builtin_add_overflow( time, fraction, &time ) )
        return seconds < 0 ? INT64_MIN : INT64_MAX;
    return time;
}

} // namespace Text
