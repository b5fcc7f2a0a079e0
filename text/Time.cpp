#include "text/Time.h"

#include <fmt/format.h>

#include <charconv>
#include <chrono>
#include <ctime>
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

} // namespace

std::string utc( std::int64_t nanoseconds ) {
    std::int64_t second = nanoseconds / nanosecondsOfSecond;
    std::int64_t fraction = nanoseconds % nanosecondsOfSecond;
    if ( fraction < 0 ) {
        --second;
        fraction += nanosecondsOfSecond;
    }
    const std::time_t time = second;
    std::tm parts{};
    ::gmtime_r( &time, &parts );
    char text[64];
    const std::size_t length = std::strftime( text, sizeof text, "%Y-%m-%dT%H:%M:%S", &parts );
    return fmt::format( "{}.{:09}Z", std::string_view( text, length ), fraction );
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
