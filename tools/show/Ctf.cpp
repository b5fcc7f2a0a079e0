#include "tools/show/Ctf.h"

#include "text/Escape.h"

#include <fmt/format.h>

#include <algorithm>
#include <bit>
#include <cstddef>
#include <cstring>
#include <iterator>
#include <optional>
#include <set>
#include <utility>

namespace Tool {

static_assert( std::endian::native == std::endian::little, "the metadata say that it is" );

using Moment = TraceReader::Event::Moment;
using TraceReader::RecordedCall;
using TraceReader::SdkCall;

namespace {

// A packet that has grown to this is complete. There may be thousands of streams.
constexpr std::size_t fullPacket = 16 << 10;

constexpr std::uint32_t magic = 0xC1FC1FC1;

// What a packet begins with; the process and the texts of its context follow.
struct PacketStart {
    std::uint32_t magic;
    std::uint32_t stream;
    std::uint64_t timestampBegin;
    std::uint64_t timestampEnd;
    std::uint64_t contentBits;
    std::uint64_t packetBits;
    std::uint64_t sequence;
    std::uint64_t discarded;
};

constexpr std::string_view metadataHead = R"(/* CTF 1.8 */
typealias integer { size = 8; align = 8; signed = false; } := uint8_t;
typealias integer { size = 16; align = 8; signed = false; } := uint16_t;
typealias integer { size = 32; align = 8; signed = false; } := uint32_t;
typealias integer { size = 32; align = 8; signed = true; } := int32_t;
typealias integer { size = 64; align = 8; signed = false; } := uint64_t;
trace {
    major = 1;
    minor = 8;
    byte_order = le;
    packet.header := struct { uint32_t magic; uint32_t stream_id; };
};
env {
    tracer_name = "cairn-lt";
};
clock {
    name = utc;
    description = "Nanoseconds since 1970-01-01T00:00:00Z";
    freq = 1000000000;
    offset_s = 0;
    absolute = true;
};
typealias integer { size = 64; align = 8; signed = false; map = clock.utc.value; } := utc_t;
stream {
    id = 0;
    packet.context := struct {
        utc_t timestamp_begin;
        utc_t timestamp_end;
        uint64_t content_size;
        uint64_t packet_size;
        uint64_t packet_seq_num;
        uint64_t events_discarded;
        uint32_t _process;
        string _program;
        string _file;
        string _timestamps;
    };
    event.header := struct { uint32_t id; utc_t timestamp; };
    event.context := struct { uint32_t _thread; uint64_t _behind; };
};
)";

template <class Number>
void appendBytes( std::string & out, Number number ) {
    char bytes[sizeof number];
    std::memcpy( bytes, &number, sizeof number );
    out.append( bytes, sizeof bytes );
}

// The format has no times before 1970.
std::uint64_t timeOf( std::int64_t time ) {
    return static_cast<std::uint64_t>( std::max<std::int64_t>( time, 0 ) );
}

// A text of the format is UTF-8 and ends with a zero byte. Bytes for which there is no room in that are
// escaped. In place of an empty text, babeltrace2 2.0 shows the one of the event before, so none is
// written.
void appendText( std::string & out, std::string_view text ) {
    if ( text.empty() )
        out += "\"\"";
    while ( !text.empty() ) {
        const std::size_t length = text.front() == '\0' ? 0 : Text::characterLength( text );
        if ( length == 0 )
            fmt::format_to( std::back_inserter( out ), "\\x{:02x}",
                            static_cast<unsigned char>( text.front() ) );
        else
            out += text.substr( 0, length );
        text.remove_prefix( std::max<std::size_t>( length, 1 ) );
    }
    out += '\0';
}

// --- Fields, declared and written by the same functions

class Declaration {
  public:
    void u8( std::string_view name, std::uint32_t ) { add( "uint8_t", name ); }
    void u16( std::string_view name, std::uint32_t ) { add( "uint16_t", name ); }
    void u32( std::string_view name, std::uint32_t ) { add( "uint32_t", name ); }
    void i32( std::string_view name, std::int32_t ) { add( "int32_t", name ); }
    void u64( std::string_view name, std::uint64_t ) { add( "uint64_t", name ); }
    void text( std::string_view name, std::string_view ) { add( "string", name ); }
    void lock( std::string_view name, std::optional<bool> ) {
        add( "enum : uint8_t { free = 0, held = 1, unknown = 2 }", name );
    }
    template <class Numbers>
    void array( std::string_view name, const Numbers & numbers ) {
        using Number = std::remove_cvref_t<decltype( numbers[0] )>;
        const std::string length = fmt::format( "_{}_length", name );
        add( "uint32_t", length );
        add( sizeof( Number ) == 1 ? "uint8_t" : "uint64_t",
             fmt::format( "{}[_{}]", name, length ) );
    }

    const std::string & text() const { return text_; }

  private:
    // An underscore in front, which readers take away, keeps names apart from keywords.
    void add( std::string_view type, std::string_view name ) {
        fmt::format_to( std::back_inserter( text_ ), "        {} _{};\n", type, name );
    }

    std::string text_;
};

class Payload {
  public:
    explicit Payload( std::string & out ) : out_( out ) { out.clear(); }

    void u8( std::string_view, std::uint32_t value ) {
        appendBytes( out_, static_cast<std::uint8_t>( value ) );
    }
    void u16( std::string_view, std::uint32_t value ) {
        appendBytes( out_, static_cast<std::uint16_t>( value ) );
    }
    void u32( std::string_view, std::uint32_t value ) { appendBytes( out_, value ); }
    void i32( std::string_view, std::int32_t value ) { appendBytes( out_, value ); }
    void u64( std::string_view, std::uint64_t value ) { appendBytes( out_, value ); }
    void text( std::string_view, std::string_view value ) { appendText( out_, value ); }
    void lock( std::string_view, std::optional<bool> isHeld ) {
        appendBytes( out_, static_cast<std::uint8_t>( !isHeld ? 2 : *isHeld ? 1 : 0 ) );
    }
    template <class Numbers>
    void array( std::string_view, const Numbers & numbers ) {
        appendBytes( out_, static_cast<std::uint32_t>( numbers.size() ) );
        for ( const auto number : numbers )
            appendBytes( out_, number );
    }

  private:
    std::string & out_;
};

template <class Fields>
void addConstant( Fields & fields, std::string_view name, std::string_view nameOfName,
                  const TraceReader::SdkConstant & constant ) {
    fields.u32( name, constant.number );
    fields.text( nameOfName, constant.name );
}

// The entry of a call. Without its allocate, its unit is -1 and its table is empty.
template <class Fields>
void addEntry( Fields & fields, const RecordedCall & call ) {
    fields.i32( "unit", call.unit.value_or( -1 ) );
    fields.text( "table", call.table );
}

template <class Fields>
void addInputs( Fields & fields, const RecordedCall & call ) {
    fields.u64( "number", call.number );
    fields.lock( "lock", call.isLockHeld );
    if ( isHook( call.call ) )
        return;
    if ( call.call != SdkCall::entryAllocate )
        fields.u32( "handle", call.handle );
    addEntry( fields, call );
    switch ( call.call ) {
    case SdkCall::entryAttribSet:
        addConstant( fields, "attribute", "attribute_name", call.attribute );
        break;
    case SdkCall::entryCommit:
    case SdkCall::ptEntryCommit:
        addConstant( fields, "opcode", "opcode_name", call.opcode );
        addConstant( fields, "priority", "priority_name", call.priority );
        break;
    case SdkCall::entryFieldAdd:
        fields.text( "field", call.field );
        fields.u64( "value", call.values.empty() ? 0 : call.values[0] );
        break;
    case SdkCall::entryFieldArrayAdd:
        fields.text( "field", call.field );
        fields.u32( "start_index", call.startIndex );
        fields.u32( "count", call.count );
        fields.array( "values", call.values );
        break;
    case SdkCall::entryFieldGet:
        fields.text( "field", call.field );
        break;
    case SdkCall::entryFieldSymbolAdd:
        fields.text( "field", call.field );
        fields.text( "symbol", call.symbol );
        break;
    default:
        break;
    }
    fields.u8( "whole", call.isWhole ? 1 : 0 );
}

template <class Fields>
void addResults( Fields & fields, const RecordedCall & call ) {
    fields.u64( "number", call.number );
    if ( isHook( call.call ) )
        return;
    fields.i32( "rc", call.rc );
    fields.u32( "handle", call.handle );
    addEntry( fields, call );
    if ( call.call == SdkCall::entryFieldGet )
        fields.u64( "value", call.value );
}

template <class Fields>
void addValue( Fields & fields, std::string_view name, const TraceReader::Value & value ) {
    switch ( value.letter ) {
    case 'n':
        fields.i32( name, static_cast<std::int32_t>( value.number ) );
        break;
    case 's':
        fields.u16( name, value.number );
        break;
    case 'b':
        fields.u8( name, value.number );
        break;
    case 'l':
        fields.u64( name, value.wide );
        break;
    case 'p':
        fields.text( name,
                     value.isCut ? std::string( value.text ) + "..." : std::string( value.text ) );
        break;
    case 'a': {
        std::vector<std::uint64_t> numbers;
        for ( std::size_t i = 0; i < value.elementCount(); ++i )
            numbers.push_back( value.element( i ) );
        fields.array( name, numbers );
        break;
    }
    default:
        fields.u32( name, value.number );
    }
}

template <class Fields>
void addRaw( Fields & fields, const TraceReader::Record & record ) {
    fields.u32( "site", record.id );
    std::vector<std::uint8_t> bytes;
    for ( const std::byte each : record.payload )
        bytes.push_back( static_cast<std::uint8_t>( each ) );
    fields.array( "bytes", bytes );
}

// --- Names

// The words before a value, as a name; all that a name cannot have becomes one "_".
std::string nameFrom( std::string_view words ) {
    std::string name;
    for ( const char each : words ) {
        const bool isPlain = ( each >= 'a' && each <= 'z' ) || ( each >= 'A' && each <= 'Z' ) ||
                             ( each >= '0' && each <= '9' );
        if ( isPlain )
            name += each;
        else if ( !name.empty() && name.back() != '_' )
            name += '_';
    }
    if ( name.ends_with( '_' ) )
        name.pop_back();
    return name.empty() ? "value" : name;
}

// A name for each value of a site, no two the same.
std::vector<std::string> fieldNames( const TraceReader::Site & site ) {
    std::vector<std::string> names;
    std::set<std::string> taken;
    for ( std::size_t i = 0; i < site.letters.size(); ++i ) {
        // The function stands before the first words.
        std::string_view words = site.texts[i];
        if ( i == 0 && words.starts_with( site.function ) )
            words.remove_prefix( site.function.size() );
        const std::string wanted = nameFrom( words );
        std::string name = wanted;
        for ( int n = 2; !taken.insert( name ).second; ++n )
            name = fmt::format( "{}_{}", wanted, n );
        names.push_back( name );
    }
    return names;
}

std::string quoted( std::string_view text ) {
    std::string result = "\"";
    for ( const char each : Text::printable( text ) ) {
        if ( each == '"' || each == '\\' )
            result += '\\';
        result += each;
    }
    return result + "\"";
}

std::string declared( std::string_view name, const Declaration & fields ) {
    return fmt::format( "    name = {};\n    stream_id = 0;\n    fields := struct {{\n{}    }};\n",
                        quoted( name ), fields.text() );
}

} // namespace

struct Ctf::Stream {
    std::string name;
    const TraceReader::File * file;
    std::string packet;        ///< that is being filled; empty: none
    PacketStart start{};       ///< of the packet
    std::uint64_t size = 0;    ///< of the packets before it, in bytes
    std::uint64_t time = 0;    ///< of the last event
    std::uint64_t lost = 0;    ///< events, up to here
    std::uint64_t missing = 0; ///< blocks that are counted in `lost`
    std::uint64_t sequence = 0;
    std::vector<std::pair<std::uint64_t, std::uint64_t>> packets; ///< offset, events lost
    std::size_t packetsBeforeLoss = 0; ///< that were written before the ring lost its beginning
};

Ctf::Ctf( Write write ) : write_( std::move( write ) ) {}
Ctf::~Ctf() = default;

void Ctf::take( const TraceReader::Event & event, bool isWanted ) {
    if ( !isWanted || event.moment == Moment::neverReturned )
        return;
    if ( event.moment == Moment::message )
        takeMessage( event.record );
    else
        takeCall( event );
}

void Ctf::takeMessage( const TraceReader::Record & record ) {
    Payload fields( payload_ );
    if ( record.site == nullptr ) {
        Declaration declaration;
        addRaw( declaration, record );
        addRaw( fields, record );
        add( record, addClass( declared( "message without description", declaration ) ) );
        return;
    }
    decode( record, values_ );
    for ( const TraceReader::Value & value : values_ )
        addValue( fields, {}, value );
    add( record, classOf( *record.site ) );
}

void Ctf::takeCall( const TraceReader::Event & event ) {
    const RecordedCall & call = *event.call;
    const bool isBegin = event.moment == Moment::before;
    auto & known = classesOfCalls_[static_cast<std::size_t>( call.call )][isBegin ? 0 : 1];
    if ( !known ) {
        Declaration declaration;
        isBegin ? addInputs( declaration, call ) : addResults( declaration, call );
        const std::string declaredAs = declared(
            fmt::format( "{}:{}", name( call.call ), isBegin ? "begin" : "end" ), declaration );
        known = addClass( declaredAs );
    }
    Payload fields( payload_ );
    isBegin ? addInputs( fields, call ) : addResults( fields, call );
    add( event.record, *known );
}

std::uint32_t Ctf::classOf( const TraceReader::Site & site ) {
    const auto known = classesOfSites_.find( &site );
    if ( known != classesOfSites_.end() )
        return known->second;
    Declaration fields;
    const auto names = fieldNames( site );
    for ( std::size_t i = 0; i < names.size(); ++i )
        addValue( fields, names[i], { .letter = site.letters[i] } );
    const std::string declaration =
        declared( fmt::format( "{}:{} {}", site.file, site.line, site.function ), fields );
    return classesOfSites_[&site] = addClass( declaration );
}

// The files of a process have the same sites; each is declared once.
std::uint32_t Ctf::addClass( const std::string & declaration ) {
    const auto id = static_cast<std::uint32_t>( classes_.size() );
    const auto [known, isNew] = classes_.try_emplace( declaration, id );
    if ( isNew )
        fmt::format_to( std::back_inserter( declarations_ ), "event {{\n    id = {};\n{}}};\n", id,
                        declaration );
    return known->second;
}

void Ctf::add( const TraceReader::Record & record, std::uint32_t eventClass ) {
    Stream & stream = streamOf( *record.file );
    const std::uint64_t missing = record.file->counts().missingBlocks;
    if ( missing != stream.missing || stream.packet.size() >= fullPacket )
        endPacket( stream );
    if ( missing != stream.missing ) {
        // As many as such blocks have held so far.
        const auto & counts = record.file->counts();
        stream.lost += ( missing - stream.missing ) *
                       std::max<std::uint64_t>( counts.records / counts.blocks, 1 );
        stream.missing = missing;
    }
    const std::uint64_t time = timeOf( record.time );
    if ( stream.sequence == 0 && record.file->counts().overwrittenBytes != 0 )
        tellBeginning( stream, time );
    stream.time = std::max( stream.time, time );
    if ( stream.packet.empty() )
        beginPacket( stream );
    appendBytes( stream.packet, eventClass );
    appendBytes( stream.packet, stream.time );
    appendBytes( stream.packet, record.thread );
    appendBytes( stream.packet, stream.time - static_cast<std::uint64_t>( record.time ) );
    stream.packet += payload_;
}

Ctf::Stream & Ctf::streamOf( const TraceReader::File & file ) {
    const auto [found, isNew] = streams_.try_emplace( &file );
    if ( isNew ) {
        found->second.name = fmt::format( "stream-{}", streams_.size() );
        found->second.file = &file;
    }
    return found->second;
}

void Ctf::beginPacket( Stream & stream ) {
    const TraceReader::Info & info = stream.file->info();
    stream.start = { .magic = magic,
                     .stream = 0,
                     .timestampBegin = stream.time,
                     .timestampEnd = 0,
                     .contentBits = 0,
                     .packetBits = 0,
                     .sequence = stream.sequence++,
                     .discarded = stream.lost };
    stream.packet.assign( sizeof stream.start, '\0' );
    appendBytes( stream.packet, info.process );
    appendText( stream.packet, info.program );
    appendText( stream.packet, info.path );
    appendText( stream.packet, info.timestamps );
}

void Ctf::endPacket( Stream & stream ) {
    if ( stream.packet.empty() )
        return;
    stream.start.timestampEnd = stream.time;
    stream.start.contentBits = stream.start.packetBits = stream.packet.size() * 8;
    std::memcpy( stream.packet.data(), &stream.start, sizeof stream.start );
    write_( stream.name, stream.size, stream.packet );
    stream.packets.emplace_back( stream.size, stream.lost );
    stream.size += stream.packet.size();
    stream.packet.clear();
}

// Two packets without events: events were lost between the time at which the file was opened, and the
// first that is left. How many is known when all have been read.
void Ctf::tellBeginning( Stream & stream, std::uint64_t first ) {
    stream.time = std::min( timeOf( stream.file->info().openTime ), first );
    beginPacket( stream );
    endPacket( stream );
    stream.time = first;
    beginPacket( stream );
    endPacket( stream );
    stream.packetsBeforeLoss = 1;
}

// A packet has the sum of all events that were lost before its end.
void Ctf::addOverwritten( Stream & stream ) {
    const std::uint64_t overwritten = stream.file->counts().overwrittenRecords().value_or( 0 );
    if ( overwritten == 0 )
        return;
    for ( std::size_t i = stream.packetsBeforeLoss; i < stream.packets.size(); ++i ) {
        const auto & [offset, lost] = stream.packets[i];
        std::string sum;
        appendBytes( sum, lost + overwritten );
        write_( stream.name, offset + offsetof( PacketStart, discarded ), sum );
    }
}

void Ctf::finish() {
    for ( auto & [file, stream] : streams_ ) {
        endPacket( stream );
        addOverwritten( stream );
    }
    write_( "metadata", 0, std::string( metadataHead ) + declarations_ );
}

} // namespace Tool
