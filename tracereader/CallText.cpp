#include "text/Escape.h"
#include "tracereader/Recording.h"

#include <fmt/format.h>

#include <algorithm>
#include <iterator>
#include <string>
#include <utility>

namespace TraceReader {

namespace {

constexpr std::size_t mostValues = 64; // of an array in a line

class Line {
  public:
    explicit Line( std::string & out ) noexcept : out_( out ) {}

    template <class... Arguments>
    void add( fmt::format_string<Arguments...> format, Arguments &&... arguments ) {
        fmt::format_to( std::back_inserter( out_ ), format,
                        std::forward<Arguments>( arguments )... );
    }

    void addText( std::string_view text ) {
        out_ += ' ';
        Text::appendPrintable( out_, text );
    }

    void addConstant( const SdkConstant & constant ) {
        if ( constant.name.empty() )
            add( " {}", constant.number );
        else
            addText( constant.name );
    }

    void addValues( const RecordedCall & call ) {
        out_ += " =";
        for ( std::size_t i = 0; i < std::min( call.values.size(), mostValues ); ++i )
            add( " {}", call.values[i] );
        if ( call.values.size() > mostValues || call.values.size() < call.count )
            out_ += " ...";
    }

  private:
    std::string & out_;
};

void addInputs( Line & line, const RecordedCall & call ) {
    switch ( call.call ) {
    case SdkCall::entryAttribSet:
        line.addConstant( call.attribute );
        break;
    case SdkCall::entryCommit:
    case SdkCall::ptEntryCommit:
        line.addConstant( call.opcode );
        line.addConstant( call.priority );
        break;
    case SdkCall::entryFieldAdd:
        line.addText( call.field );
        line.addValues( call );
        break;
    case SdkCall::entryFieldArrayAdd:
        line.addText( call.field );
        line.add( " from {} count {}", call.startIndex, call.count );
        line.addValues( call );
        break;
    case SdkCall::entryFieldGet:
        line.addText( call.field );
        break;
    case SdkCall::entryFieldSymbolAdd:
        line.addText( call.field );
        line.add( " =" );
        line.addText( call.symbol );
        break;
    default:
        break;
    }
}

void addResults( Line & line, const RecordedCall & call ) {
    line.add( " ->" );
    if ( call.call == SdkCall::entryAllocate && call.rc >= 0 )
        line.add( " entry {}", call.handle );
    if ( call.call == SdkCall::entryFieldGet && call.rc >= 0 )
        line.add( " {}", call.value );
    line.add( " rc {}", call.rc );
}

class Members {
  public:
    explicit Members( std::string & out ) noexcept : out_( out ) {}

    template <class Number>
    void add( std::string_view key, Number value ) {
        fmt::format_to( std::back_inserter( out_ ), "{}\"{}\":{}", comma_, key, value );
        comma_ = ",";
    }

    void addText( std::string_view key, std::string_view value ) {
        fmt::format_to( std::back_inserter( out_ ), "{}\"{}\":\"", comma_, key );
        Text::appendJson( out_, value );
        out_ += '"';
        comma_ = ",";
    }

    void addConstant( std::string_view key, const SdkConstant & constant ) {
        if ( constant.name.empty() )
            add( key, constant.number );
        else
            addText( key, constant.name );
    }

    void addValues( std::string_view key, const std::vector<std::uint64_t> & values ) {
        fmt::format_to( std::back_inserter( out_ ), "{}\"{}\":[{}]", comma_, key,
                        fmt::join( values, "," ) );
        comma_ = ",";
    }

  private:
    std::string & out_;
    std::string_view comma_;
};

void addInputs( Members & members, const RecordedCall & call ) {
    if ( call.isLockHeld )
        members.add( "lockHeld", *call.isLockHeld );
    if ( !call.isWhole )
        members.add( "whole", false );
    switch ( call.call ) {
    case SdkCall::entryAttribSet:
        members.addConstant( "attribute", call.attribute );
        break;
    case SdkCall::entryCommit:
    case SdkCall::ptEntryCommit:
        members.addConstant( "opcode", call.opcode );
        members.addConstant( "priority", call.priority );
        break;
    case SdkCall::entryFieldAdd:
        members.addText( "field", call.field );
        members.add( "value", call.values.front() );
        break;
    case SdkCall::entryFieldArrayAdd:
        members.addText( "field", call.field );
        members.add( "start", call.startIndex );
        members.add( "count", call.count );
        members.addValues( "values", call.values );
        break;
    case SdkCall::entryFieldGet:
        members.addText( "field", call.field );
        break;
    case SdkCall::entryFieldSymbolAdd:
        members.addText( "field", call.field );
        members.addText( "symbol", call.symbol );
        break;
    default:
        break;
    }
}

} // namespace

void appendText( std::string & out, const RecordedCall & call ) {
    Line line( out );
    out += name( call.call );
    if ( call.call == SdkCall::entryAllocate ) {
        if ( call.unit ) {
            line.add( " unit {}", *call.unit );
            line.addText( call.table );
        }
    } else if ( !isHook( call.call ) ) {
        line.add( " entry {}", call.handle );
        if ( !call.table.empty() )
            line.addText( call.table );
    }
    if ( call.hasInputs() )
        addInputs( line, call );
    else
        line.add( " (inputs lost)" );
    if ( call.hasReturned() && !isHook( call.call ) )
        addResults( line, call );
}

void appendJson( std::string & out, const RecordedCall & call ) {
    Members members( out );
    members.addText( "call", name( call.call ) );
    members.add( "number", call.number );
    if ( !isHook( call.call ) ) {
        if ( call.call != SdkCall::entryAllocate || ( call.hasReturned() && call.rc >= 0 ) )
            members.add( "handle", call.handle );
        if ( call.unit ) {
            members.add( "unit", *call.unit );
            members.addText( "table", call.table );
        }
    }
    if ( call.hasInputs() )
        addInputs( members, call );
    if ( !call.hasReturned() || isHook( call.call ) )
        return;
    members.add( "rc", call.rc );
    if ( call.call == SdkCall::entryFieldGet && call.rc >= 0 )
        members.add( "read", call.value );
}

} // namespace TraceReader
