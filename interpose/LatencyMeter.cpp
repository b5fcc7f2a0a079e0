#include "interpose/LatencyMeter.h"

#include "interpose/HandleDirectory.h"
#include "text/Columns.h"
#include "text/Escape.h"

#include <fmt/format.h>

#include <algorithm>
#include <bit>
#include <chrono>
#include <map>
#include <mutex>
#include <string_view>

namespace Interpose {

namespace {

constexpr std::size_t operationCount = 9;

std::size_t placeOf( SdkCall operation ) {
    return static_cast<std::size_t>( operation ) -
           static_cast<std::size_t>( SdkCall::entryAllocate );
}

std::size_t bucketOf( std::uint64_t nanoseconds ) {
    const auto bits = static_cast<std::size_t>( std::bit_width( nanoseconds | 1 ) );
    return std::min( bits - 1, Latency::bucketCount - 1 );
}

std::uint64_t endOf( std::size_t bucket ) { return std::uint64_t( 2 ) << bucket; }

} // namespace

std::uint64_t Latency::percentile( unsigned percent ) const {
    std::uint64_t left = ( count * percent + 99 ) / 100;
    for ( std::size_t i = 0; i < bucketCount; ++i ) {
        if ( left <= buckets[i] )
            return std::min( endOf( i ), most );
        left -= buckets[i];
    }
    return most;
}

struct LatencyMeter::State {
    State( Shim::Sdk & sdk, Clock itsClock ) : entries( sdk ), clock( itsClock ) {}

    void add( std::string_view table, SdkCall operation, bool isFailure, std::uint64_t took ) {
        const std::lock_guard lock( mutex );
        auto found = tables.find( table );
        if ( found == tables.end() )
            found = tables.try_emplace( std::string( table ) ).first;
        Latency & latency = found->second[placeOf( operation )];
        latency.least = latency.count == 0 ? took : std::min( latency.least, took );
        latency.most = std::max( latency.most, took );
        latency.total += took;
        ++latency.count;
        latency.failures += isFailure ? 1 : 0;
        ++latency.buckets[bucketOf( took )];
    }

    HandleDirectory entries;
    const Clock clock;
    mutable std::mutex mutex; // guards what follows
    std::map<std::string, std::array<Latency, operationCount>, std::less<>> tables;
};

LatencyMeter::LatencyMeter( Shim::Sdk & inner, Clock clock )
    : Interposer( inner ), state_( std::make_unique<State>( inner, clock ) ) {}

LatencyMeter::~LatencyMeter() = default;

std::uint64_t LatencyMeter::steadyClock() noexcept {
    return static_cast<std::uint64_t>( std::chrono::duration_cast<std::chrono::nanoseconds>(
                                           std::chrono::steady_clock::now().time_since_epoch() )
                                           .count() );
}

int LatencyMeter::operate( const Operation & operation ) noexcept {
    const HandleDirectory::Entry entry = state_->entries.find( operation );
    const std::uint64_t before = state_->clock();
    const int rc = state_->entries.perform( operation );
    const std::uint64_t after = state_->clock();
    state_->add( entry.table, operation.call, rc < 0, after - before );
    return rc;
}

std::vector<Latency> LatencyMeter::latencies() const {
    const std::lock_guard lock( state_->mutex );
    std::vector<Latency> all;
    for ( const auto & [table, latencies] : state_->tables ) {
        for ( const SdkCall operation : sdkOperations() ) {
            const Latency & latency = latencies[placeOf( operation )];
            if ( latency.count == 0 )
                continue;
            all.push_back( latency );
            all.back().operation = operation;
            all.back().table = table;
        }
    }
    return all;
}

void LatencyMeter::reset() {
    const std::lock_guard lock( state_->mutex );
    // The tables stay known.
    for ( auto & [table, latencies] : state_->tables )
        latencies.fill( {} );
}

std::string toText( const std::vector<Latency> & latencies ) {
    const auto microseconds = []( std::uint64_t nanoseconds ) {
        return fmt::format( "{:.3f}", static_cast<double>( nanoseconds ) / 1e3 );
    };
    Text::Columns columns;
    columns.add( { "table", "operation", "count", "failures", "least us", "average", "50%", "90%",
                   "99%", "most" } );
    for ( const Latency & each : latencies )
        columns.add( { each.table.empty() ? "(unknown)" : Text::printable( each.table ),
                       std::string( shortName( each.operation ) ), fmt::to_string( each.count ),
                       fmt::to_string( each.failures ), microseconds( each.least ),
                       microseconds( each.total / each.count ),
                       microseconds( each.percentile( 50 ) ), microseconds( each.percentile( 90 ) ),
                       microseconds( each.percentile( 99 ) ), microseconds( each.most ) } );
    return columns.text();
}

std::string toJson( const std::vector<Latency> & latencies ) {
    std::string json = "[";
    for ( const Latency & each : latencies ) {
        if ( json.size() > 1 )
            json += ",";
        json += "\n  {\"table\":\"";
        Text::appendJson( json, each.table );
        json += fmt::format( "\",\"operation\":\"{}\",\"count\":{},\"failures\":{},\"total\":{},"
                             "\"least\":{},\"most\":{},\"buckets\":[",
                             name( each.operation ), each.count, each.failures, each.total,
                             each.least, each.most );
        std::string_view comma;
        for ( std::size_t i = 0; i < Latency::bucketCount; ++i ) {
            if ( each.buckets[i] == 0 )
                continue;
            json += fmt::format( "{}[{},{}]", comma, endOf( i ), each.buckets[i] );
            comma = ",";
        }
        json += "]}";
    }
    return json + "\n]\n";
}

} // namespace Interpose
