#include "tools/diagnose/Fleet.h"

#include "text/Time.h"

#include <fmt/format.h>

#include <algorithm>

namespace Tool {

std::optional<std::int64_t> timeOf( const Stop & stop ) {
    return Text::parseUtc( std::string( stop.prefix.substr( 0, stop.prefix.find( ' ' ) ) ) );
}

std::string signatureOf( const Diagnosis & diagnosis ) {
    const Stop & stop = diagnosis.stop;
    return fmt::format( "{}\n{}\n{}\n{}", static_cast<int>( stop.kind ), diagnosis.function,
                        stop.text, stop.rc );
}

void Fleet::add( const Diagnosis & diagnosis, const std::string & report,
                 std::optional<std::int64_t> time, const std::string & release ) {
    ++stops_;
    const std::string key = signatureOf( diagnosis );
    auto place = groups_.find( key );
    if ( place == groups_.end() ) {
        if ( groups_.size() == maxGroups ) {
            ++notKept_;
            return;
        }
        place = groups_.emplace( key, StopGroup{ .first = diagnosis, .report = report } ).first;
    }
    StopGroup & group = place->second;
    ++group.count;
    if ( group.reports == 0 || group.lastReport != report )
        ++group.reports;
    group.lastReport = report;
    const bool isKnown =
        group.releases.size() < StopGroup::maxReleases || group.releases.contains( release );
    ++group.releases[isKnown ? release : std::string()];
    if ( !time )
        return;
    group.earliest = std::min( *time, group.earliest.value_or( *time ) );
    group.latest = std::max( *time, group.latest.value_or( *time ) );
}

std::vector<const StopGroup *> Fleet::groups() const {
    std::vector<const StopGroup *> sorted;
    for ( const auto & [key, group] : groups_ )
        sorted.push_back( &group );
    std::stable_sort( sorted.begin(), sorted.end(),
                      []( const StopGroup * one, const StopGroup * other ) {
                          return one->count > other->count;
                      } );
    return sorted;
}

} // namespace Tool
