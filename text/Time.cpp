#include "text/Time.h"

#include <fmt/format.h>

#include <ctime>

namespace Text {

namespace {

constexpr std::int64_t nanosecondsOfSecond = 1'000'000'000;

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

std::optional<std::int64_t> parseUtc( const std::string & text ) {
    std::tm parts{};
    const char * rest = ::strptime( text.c_str(), "%Y-%m-%dT%H:%M:%S", &parts );
    if ( rest == nullptr )
        return {};
    std::int64_t fraction = 0;
    if ( *rest == '.' ) {
        std::int64_t unit = nanosecondsOfSecond / 10;
        for ( ++rest; *rest >= '0' && *rest <= '9'; ++rest, unit /= 10 )
            fraction += ( *rest - '0' ) * unit;
    }
    if ( *rest == 'Z' )
        ++rest;
    if ( *rest != '\0' )
        return {};
    return static_cast<std::int64_t>( ::timegm( &parts ) ) * nanosecondsOfSecond + fraction;
}

} // namespace Text
