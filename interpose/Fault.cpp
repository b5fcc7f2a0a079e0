#include "interpose/Fault.h"

#include "text/NearestName.h"

#include <fmt/format.h>

#include <algorithm>
#include <charconv>
#include <iterator>
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

// Reads the words of one fault.
class Parser {
  public:
    ParsedFault parse( std::string_view text ) {
        bool isLast = false;
        while ( !isLast && error_.empty() ) {
            const std::size_t comma = text.find( ',' );
            isLast = comma == std::string_view::npos;
            parseWord( trimmed( text.substr( 0, comma ) ) );
            text.remove_prefix( isLast ? text.size() : comma + 1 );
        }
        if ( error_.empty() )
            finish();
        if ( !error_.empty() )
            return { {}, std::move( error_ ) };
        return { std::move( fault_ ), {} };
    }

  private:
    void parseWord( std::string_view word ) {
        word_ = word;
        const std::size_t equals = word.find( '=' );
        const std::string_view key = trimmed( word.substr( 0, equals ) );
        if ( std::find( seen_.begin(), seen_.end(), key ) != seen_.end() )
            return report( "it is there twice; leave one out" );
        seen_.push_back( key );
        if ( key == "always" && equals == std::string_view::npos ) {
            fault_.always = true;
            return;
        }
        static constexpr std::string_view keys[] = { "op", "table", "field",  "unit",
                                                     "rc", "at",    "handle", "always" };
        if ( equals == std::string_view::npos || key == "always" ||
             std::find( std::begin( keys ), std::end( keys ), key ) == std::end( keys ) ) {
            return report( "a fault is made of op=, table=, field=, unit=, rc=, at=, always and "
                           "handle=invalid" +
                           Text::nearestHint( key, keys ) );
        }
        parseValue( key, trimmed( word.substr( equals + 1 ) ) );
    }

    void parseValue( std::string_view key, std::string_view value ) {
        if ( value.empty() ) {
            report( "there is nothing behind the =" );
        } else if ( key == "op" ) {
            parseOperation( value );
        } else if ( key == "table" ) {
            fault_.table = value;
        } else if ( key == "field" ) {
            fault_.field = value;
        } else if ( key == "unit" ) {
            fault_.unit = number<int>( value, 0 );
        } else if ( key == "rc" ) {
            fault_.rc = number<int>( value, std::numeric_limits<int>::min() );
        } else if ( key == "at" ) {
            fault_.occurrence = number<std::uint64_t>( value, 1 );
        } else if ( value == "invalid" ) {
            fault_.invalidHandle = true;
        } else {
            report( "only handle=invalid is possible" );
        }
    }

    void parseOperation( std::string_view value ) {
        fault_.operation = operationByName( value );
        if ( fault_.operation )
            return;
        std::vector<std::string_view> names;
        std::vector<std::string_view> candidates;
        for ( const SdkCall call : sdkOperations() ) {
            names.push_back( name( call ) );
            for ( const std::string_view each : namesOf( call ) )
                candidates.push_back( each );
        }
        report( fmt::format( "the operations are {}{}", fmt::join( names, ", " ),
                             Text::nearestHint( value, candidates ) ) );
    }

    template <class Number>
    Number number( std::string_view value, Number least ) {
        Number result = 0;
        const auto [end, error] =
            std::from_chars( value.data(), value.data() + value.size(), result );
        if ( error != std::errc() || end != value.data() + value.size() || result < least ) {
            report( fmt::format( "a number from {} to {} is wanted", least,
                                 std::numeric_limits<Number>::max() ) );
        }
        return result;
    }

    // What concerns the words together.
    void finish() {
        const bool hasCode = std::find( seen_.begin(), seen_.end(), "rc" ) != seen_.end();
        if ( !hasCode && !fault_.invalidHandle ) {
            error_ = "a fault needs rc=, the code that the operation returns (or handle=invalid)";
            return;
        }
        if ( fault_.invalidHandle ) {
            if ( !hasCode )
                fault_.rc = 0;
            if ( !fault_.operation )
                fault_.operation = SdkCall::entryAllocate;
        }
        error_ = check( fault_ );
    }

    void report( std::string_view what ) {
        if ( error_.empty() )
            error_ = fmt::format( "\"{}\": {}", word_, what );
    }

    Fault fault_;
    std::string error_;
    std::string_view word_;              // being read
    std::vector<std::string_view> seen_; // keys so far
};

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

ParsedFault parseFault( std::string_view text ) { return Parser().parse( text ); }

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
