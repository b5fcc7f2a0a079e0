#include "interpose/Fault.h"

#include "text/NearestName.h"

#include <fmt/format.h>

#include <algorithm>
#include <charconv>
#include <limits>
#include <system_error>
#include <utility>
#include <vector>

namespace Interpose {

namespace {

bool namesField( SdkCall operation ) {
    return operation == SdkCall::entryFieldAdd || operation == SdkCall::entryFieldArrayAdd ||
           operation == SdkCall::entryFieldGet || operation == SdkCall::entryFieldSymbolAdd;
}

std::string_view trimmed( std::string_view text ) {
    const std::size_t first = text.find_first_not_of( " \t" );
    if ( first == std::string_view::npos )
        return {};
    return text.substr( first, text.find_last_not_of( " \t" ) - first + 1 );
}

// What follows reads a part of a fault and returns what is wrong with it, nothing if it is right.

std::string parseOperation( Fault & fault, std::string_view value ) {
    fault.operation = operationByName( value );
    if ( fault.operation )
        return {};
    std::vector<std::string_view> names;
    std::vector<std::string_view> candidates;
    for ( const SdkCall call : sdkOperations() ) {
        names.push_back( name( call ) );
        for ( const std::string_view each : namesOf( call ) )
            candidates.push_back( each );
    }
    return fmt::format( "the operations are {}{}", fmt::join( names, ", " ),
                        Text::nearestHint( value, candidates ) );
}

template <class Number>
std::string parseNumber( Number & number, std::string_view value, Number least ) {
    const char * const last = value.data() + value.size();
    const auto [end, error] = std::from_chars( value.data(), last, number );
    if ( error == std::errc() && end == last && number >= least )
        return {};
    return fmt::format( "a number from {} to {} is wanted", least,
                        std::numeric_limits<Number>::max() );
}

std::string parseValue( Fault & fault, std::string_view key, std::string_view value ) {
    if ( value.empty() )
        return "there is nothing behind the =";
    if ( key == "op" )
        return parseOperation( fault, value );
    if ( key == "unit" )
        return parseNumber( fault.unit.emplace(), value, 0 );
    if ( key == "rc" )
        return parseNumber( fault.rc, value, std::numeric_limits<int>::min() );
    if ( key == "at" )
        return parseNumber( fault.occurrence, value, std::uint64_t( 1 ) );
    if ( key == "table" )
        fault.table = value;
    else if ( key == "field" )
        fault.field = value;
    else if ( value == "invalid" )
        fault.invalidHandle = true;
    else
        return "only handle=invalid is possible";
    return {};
}

using Keys = std::vector<std::string_view>;

bool contains( const Keys & keys, std::string_view key ) {
    return std::find( keys.begin(), keys.end(), key ) != keys.end();
}

std::string parseWord( Fault & fault, std::string_view word, Keys & seen ) {
    const std::size_t equals = word.find( '=' );
    const std::string_view key = trimmed( word.substr( 0, equals ) );
    if ( contains( seen, key ) )
        return "it is there twice; leave one out";
    seen.push_back( key );
    const Keys keys{ "op", "table", "field", "unit", "rc", "at", "handle", "always" };
    const bool hasValue = equals != std::string_view::npos;
    if ( !contains( keys, key ) || hasValue == ( key == "always" ) )
        return "a fault is made of op=, table=, field=, unit=, rc=, at=, always and "
               "handle=invalid" +
               Text::nearestHint( key, keys );
    if ( hasValue )
        return parseValue( fault, key, trimmed( word.substr( equals + 1 ) ) );
    fault.always = true;
    return {};
}

// What concerns the words together.
std::string complete( Fault & fault, bool hasCode ) {
    if ( !hasCode && !fault.invalidHandle )
        return "a fault needs rc=, the code that the operation returns (or handle=invalid)";
    if ( !hasCode )
        fault.rc = 0;
    if ( fault.invalidHandle && !fault.operation )
        fault.operation = SdkCall::entryAllocate;
    return check( fault );
}

} // namespace

std::string check( const Fault & fault ) {
    if ( fault.operation && kind( *fault.operation ) != SdkCallKind::operation )
        return fmt::format( "{} is not an operation that can fail", name( *fault.operation ) );
    if ( fault.invalidHandle ) {
        if ( fault.operation && *fault.operation != SdkCall::entryAllocate ) {
            return fmt::format(
                "{} hands out no handle; an invalid handle goes with bcmlt_entry_allocate",
                name( *fault.operation ) );
        }
        if ( fault.rc < 0 )
            return "an invalid handle goes with success; give a code of 0 or more, or none";
    } else if ( fault.rc == 0 && !fault.overridesRefusal ) {
        return "code 0 is success; give a negative or a positive one";
    }
    const bool mayNameField =
        !fault.invalidHandle && ( !fault.operation || namesField( *fault.operation ) );
    if ( fault.field && !mayNameField ) {
        return fmt::format( "{} names no field; leave the field out",
                            name( fault.operation.value_or( SdkCall::entryAllocate ) ) );
    }
    if ( fault.occurrence == 0 )
        return "occurrences are counted from 1";
    return {};
}

ParsedFault parseFault( std::string_view text ) {
    Fault fault;
    Keys seen;
    for ( std::size_t begin = 0; begin <= text.size(); ) {
        const std::size_t end = std::min( text.find( ',', begin ), text.size() );
        const std::string_view word = trimmed( text.substr( begin, end - begin ) );
        const std::string error = parseWord( fault, word, seen );
        if ( !error.empty() )
            return { {}, fmt::format( "\"{}\": {}", word, error ) };
        begin = end + 1;
    }
    std::string error = complete( fault, contains( seen, "rc" ) );
    if ( !error.empty() )
        return { {}, std::move( error ) };
    return { std::move( fault ), {} };
}

std::string toText( const Fault & fault ) {
    std::string text;
    if ( fault.operation )
        text += fmt::format( "op={},", name( *fault.operation ) );
    if ( fault.table )
        text += fmt::format( "table={},", *fault.table );
    if ( fault.field )
        text += fmt::format( "field={},", *fault.field );
    if ( fault.unit )
        text += fmt::format( "unit={},", *fault.unit );
    if ( fault.invalidHandle )
        text += "handle=invalid,";
    if ( !fault.invalidHandle || fault.rc != 0 )
        text += fmt::format( "rc={},", fault.rc );
    text += fmt::format( "at={}", fault.occurrence );
    if ( fault.always )
        text += ",always";
    return text;
}

} // namespace Interpose
