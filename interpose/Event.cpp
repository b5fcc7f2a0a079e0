#include "interpose/Event.h"

#include <fmt/format.h>

#include <algorithm>

namespace Interpose {

namespace {

std::string operationText( const Event & event ) {
    if ( event.call == SdkCall::entryAllocate )
        return fmt::format( "{} unit {} {}", name( event.call ), event.unit, event.table );
    std::string text = fmt::format( "{} entry {}{}{}", name( event.call ), event.handle,
                                    event.table.empty() ? "" : " ", event.table );
    switch ( event.call ) {
    case SdkCall::entryAttribSet:
        return fmt::format( "{} {}", text, toText( event.attribute ) );
    case SdkCall::entryCommit:
    case SdkCall::ptEntryCommit:
        return fmt::format( "{} {} {}", text, toText( event.opcode ), toText( event.priority ) );
    case SdkCall::entryFieldAdd:
        return fmt::format( "{} {} = {}", text, event.field, fmt::join( event.values, " " ) );
    case SdkCall::entryFieldArrayAdd:
        return fmt::format( "{} {} from {} count {} ={}{}{}", text, event.field, event.startIndex,
                            event.count, event.values.empty() ? "" : " ",
                            fmt::join( event.values, " " ),
                            event.values.size() < event.count ? " ..." : "" );
    case SdkCall::entryFieldGet:
        return fmt::format( "{} {}", text, event.field );
    case SdkCall::entryFieldSymbolAdd:
        return fmt::format( "{} {} = {}", text, event.field, event.symbol );
    default:
        return text;
    }
}

std::string operationResult( const Event & event ) {
    if ( event.call == SdkCall::entryAllocate && event.rc >= 0 )
        return fmt::format( "entry {} rc {}", event.handle, event.rc );
    if ( event.call == SdkCall::entryFieldGet && !event.values.empty() )
        return fmt::format( "{} rc {}", fmt::join( event.values, " " ), event.rc );
    return fmt::format( "rc {}", event.rc );
}

} // namespace

std::vector<SdkNumber> numbersOf( Shim::Sdk & sdk, std::span<const SdkCall> constants ) {
    std::vector<SdkNumber> numbers;
    for ( const SdkCall constant : constants )
        numbers.push_back( { askNumber( sdk, constant ), constant } );
    return numbers;
}

SdkNumber findNumber( const std::vector<SdkNumber> & among, std::uint32_t number ) {
    const auto found = std::find_if( among.begin(), among.end(), [&]( const SdkNumber & each ) {
        return each.number == number;
    } );
    return found == among.end() ? SdkNumber{ number } : *found;
}

std::string toText( const SdkNumber & number ) {
    return number.constant ? std::string( name( *number.constant ) )
                           : fmt::to_string( number.number );
}

std::string toText( const Event & event ) {
    std::string text( name( event.call ) );
    std::string result;
    switch ( kind( event.call ) ) {
    case SdkCallKind::operation:
        text = operationText( event );
        result = operationResult( event );
        break;
    case SdkCallKind::text:
        text += fmt::format( " {}", event.rc );
        result = fmt::format( "\"{}\"", event.text );
        break;
    case SdkCallKind::constant:
        result = event.text.empty() ? fmt::to_string( event.result ) : event.text;
        break;
    case SdkCallKind::hook:
        return text;
    }
    return event.returned ? fmt::format( "{} -> {}", text, result ) : text;
}

} // namespace Interpose
