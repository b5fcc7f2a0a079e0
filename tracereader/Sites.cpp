#include "tracereader/Sites.h"

#include "text/Escape.h"
#include "text/Numbers.h"
#include "tracereader/Values.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstring>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace TraceReader {

namespace {

namespace Layout = Fleetlog::Format;

// What a writer makes at most. What is beyond was never written by one.
constexpr std::uint64_t maxDescriptorSize = 2048;
constexpr std::size_t maxLetters = 64;
constexpr std::uint32_t maxSiteId = 1 << 20;

constexpr std::size_t roundUp( std::size_t size ) noexcept { return ( size + 7 ) / 8 * 8; }

// Whether a text can be printed, also within a JSON string, as it is.
bool isPlain( std::string_view text ) noexcept {
    return std::all_of( text.begin(), text.end(), []( char each ) {
        return each >= 0x20 && each < 0x7f && each != '"' && each != '\\';
    } );
}

// Splits the message's text at each "%s". Values and places agree in what this library's writers
// make; otherwise what Twinlog does is done here too: a place without a value stays, a value
// without a place comes last, after a blank.
std::vector<std::string> splitTexts( std::string_view text, std::size_t values ) {
    constexpr std::string_view placeholder = "%s";
    std::vector<std::string> texts;
    while ( texts.size() < values ) {
        const std::size_t at = text.find( placeholder );
        if ( at == std::string_view::npos ) {
            texts.push_back( std::string( text ) + " " );
            text = {};
        } else {
            texts.emplace_back( text.substr( 0, at ) );
            text.remove_prefix( at + placeholder.size() );
        }
    }
    texts.emplace_back( text );
    return texts;
}

} // namespace

Sites::Sites( Source & source, const Header & header )
    : source_( source ), bytes_( *source.bytes ), info_( source.info ),
      ringOffset_( header.ringOffset() ), descriptorOffset_( header.descriptorOffset() ) {
    read();
}

void Sites::read() {
    std::vector<std::byte> texts;
    while ( hasMoreDescriptors_ ) {
        Layout::DescriptorHeader header{};
        const std::uint64_t left = ringOffset_ - descriptorOffset_;
        if ( left < sizeof header ) {
            hasMoreDescriptors_ = false;
            return;
        }
        // The size is written last, so it is read first, and by itself.
        if ( bytes_.read( descriptorOffset_, &header.size, sizeof header.size ) ==
                 sizeof header.size &&
             header.size == 0 )
            return; // more may come
        if ( bytes_.read( descriptorOffset_, &header, sizeof header ) < sizeof header ) {
            hasMoreDescriptors_ = false; // the end of the file, which is a finding already
            return;
        }
        if ( header.size < sizeof header || header.size % 8 != 0 || header.size > left ||
             header.size > maxDescriptorSize ) {
            source_.damage( descriptorOffset_,
                            fmt::format( "a descriptor has the impossible size {}; it and those "
                                         "after it are lost, and records of their sites are shown "
                                         "as bytes",
                                         header.size ) );
            hasMoreDescriptors_ = false;
            return;
        }
        texts.resize( header.size - sizeof header );
        if ( bytes_.read( descriptorOffset_ + sizeof header, texts.data(), texts.size() ) <
             texts.size() ) {
            hasMoreDescriptors_ = false;
            return;
        }
        if ( !addSite( header, texts ) )
            source_.damage( descriptorOffset_,
                            "a descriptor is damaged; records of its site are shown as bytes" );
        descriptorOffset_ += header.size;
    }
}

bool Sites::addSite( const Layout::DescriptorHeader & header, std::span<const std::byte> texts ) {
    std::vector<std::byte> summed( sizeof header + texts.size() );
    std::memcpy( summed.data(), &header, sizeof header );
    std::copy( texts.begin(), texts.end(), summed.begin() + sizeof header );
    constexpr std::size_t unsummed = offsetof( Layout::DescriptorHeader, id );
    if ( header.checksum !=
             Layout::checksum( summed.data() + unsummed, summed.size() - unsummed ) ||
         header.id == 0 || header.id > maxSiteId )
        return false;

    Cursor cursor( texts );
    std::string_view file;
    std::string_view letters;
    std::string_view piece;
    if ( !cursor.take( file ) || !cursor.take( letters ) || letters.size() > maxLetters ||
         letters.find_first_not_of( info_.version < 3 ? "isbp" : "isbpnla" ) !=
             std::string_view::npos )
        return false;
    std::string function;
    std::string message;
    for ( std::uint32_t i = 0; i < header.pieceCount; ++i ) {
        if ( !cursor.take( piece ) )
            return false;
        if ( i == 0 )
            function = piece;
        message += piece;
    }

    const bool isAllPlain = isPlain( file ) && isPlain( message );
    const std::string line = fmt::to_string( header.line );
    std::string json = "\"file\":\"";
    Text::appendJson( json, file );
    json += "\",\"line\":" + line + ",\"function\":\"";
    Text::appendJson( json, function );
    json += '"';
    sites_.push_back( { header.id, std::string( file ), header.line, std::string( letters ),
                        std::move( function ), splitTexts( message, letters.size() ), isAllPlain,
                        Text::printable( file ) + ":" + line, std::move( json ) } );
    Plan & plan = plans_[header.id];
    plan.site = &sites_.back();
    if ( const auto size = fixedSize( letters ) )
        plan.payloadSize = roundUp( *size );
    return true;
}

Sites::Plan & Sites::plan( std::uint32_t id ) {
    Recent & recent = recent_[id % recent_.size()];
    if ( recent.id == id && recent.plan != nullptr )
        return *recent.plan;
    Plan & known = plans_[id];
    // It may have been registered since the descriptors were read.
    if ( known.site == nullptr && !known.isReported )
        read();
    if ( known.site != nullptr )
        recent = { id, &known };
    return known;
}

const Site * Sites::match( std::uint32_t id, std::span<const std::byte> payload,
                           std::uint64_t offset ) {
    Plan & known = plan( id );
    if ( known.site == nullptr ) {
        if ( !known.isReported )
            source_.damage(
                offset,
                fmt::format( "message {} has no descriptor that can be read; its records are shown "
                             "as bytes",
                             id ) +
                    ( info_.unregistered == 0
                          ? ""
                          : ". The writer had no room for " +
                                Text::counted( info_.unregistered, "descriptor" ) +
                                ": open the trace with more" ) );
        known.isReported = true;
    } else if ( !isSound( known, payload ) ) {
        source_.damage( offset, fmt::format( "a record does not fit its descriptor, {}:{}; it is "
                                             "shown as bytes",
                                             known.site->file, known.site->line ) );
        return nullptr;
    }
    return known.site;
}

bool Sites::isSound( const Plan & plan, std::span<const std::byte> payload ) const noexcept {
    if ( plan.payloadSize )
        return payload.size() == *plan.payloadSize;
    Cursor cursor( payload );
    Value value;
    for ( const char letter : plan.site->letters )
        if ( !takeValue( cursor, letter, value ) )
            return false;
    return cursor.left() < 8; // filled up to a multiple of 8
}

} // namespace TraceReader
