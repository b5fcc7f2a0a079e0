#include "tests/tools/recording/RandomProgram.h"

#include <algorithm>
#include <cstdlib>
#include <optional>
#include <stdexcept>
#include <utility>

namespace ToolTest {

namespace {

// How often a program does something wrong: once in so many times.
constexpr std::uint64_t mistakes = 25;

Sim::Field randomField( Random & random, const std::string & name ) {
    Sim::Field field;
    field.name = name;
    field.width = static_cast<std::uint32_t>( 1 + random.below( 64 ) );
    if ( random.oneIn( 3 ) ) {
        field.width = std::max( field.width, 3u );
        for ( std::uint64_t i = 0; i <= random.below( 4 ); ++i )
            field.symbols.push_back( { "S" + std::to_string( i ), 2 * i % 8 } );
        field.reset = random.of( field.symbols ).value;
        if ( random.oneIn( 2 ) )
            field.powerOn = random.of( field.symbols ).value;
        return field;
    }
    field.reset = random.oneIn( 2 ) ? 0 : random.bits() & field.maximum();
    if ( random.oneIn( 2 ) )
        field.powerOn = random.bits() & field.maximum();
    return field;
}

Sim::Table randomTable( Random & random, std::size_t number ) {
    Sim::Table table;
    table.kind = random.of( std::vector{ Sim::TableKind::logical, Sim::TableKind::physicalRegister,
                                         Sim::TableKind::physicalMemory } );
    table.name = "TABLE_" + std::to_string( number );
    table.size.rows = static_cast<std::uint32_t>( 1 + random.below( 6 ) );
    const std::uint64_t fields = 1 + random.below( 5 );
    for ( std::uint64_t i = 0; i < fields; ++i )
        table.fields.push_back( randomField( random, "F" + std::to_string( i ) ) );
    if ( table.isPhysical() ) {
        table.name += table.kind == Sim::TableKind::physicalRegister ? "r" : "m";
        table.size.instances = static_cast<std::uint32_t>( 1 + random.below( 3 ) );
        table.size.ports = static_cast<std::uint32_t>( random.below( 3 ) );
    } else {
        for ( std::uint64_t keys = random.below( 3 ); keys > 0; --keys ) {
            Sim::Field & field = table.fields[random.below( fields )];
            field.role = Sim::FieldRole::key;
            if ( random.oneIn( 2 ) && field.symbols.empty() )
                field.width = 2; // few rows, which are met again
            field.reset = 0;
            field.powerOn = {};
        }
        if ( table.isKeyless() )
            table.size.rows = 1;
        if ( random.oneIn( 3 ) ) {
            table.preloaded = true;
            if ( !Sim::check( table ).empty() )
                table.preloaded = false;
        }
    }
    for ( Sim::Field & field : table.fields ) {
        if ( field.role == Sim::FieldRole::data && random.oneIn( 4 ) )
            field.length = static_cast<std::uint32_t>( 2 + random.below( 8 ) );
    }
    return table;
}

} // namespace

std::uint64_t numberOfEnvironment( const char * variable, std::uint64_t fallback ) {
    const char * text = std::getenv( variable );
    return text != nullptr ? std::strtoull( text, nullptr, 10 ) : fallback;
}

Sim::Schema randomSchema( Random & random ) {
    Sim::Schema schema;
    const std::size_t tables = 1 + random.below( 6 );
    for ( std::size_t i = 0; i < tables; ++i ) {
        if ( const std::string trouble = schema.add( randomTable( random, i ) ); !trouble.empty() )
            throw std::logic_error( trouble );
    }
    if ( !schema.check().empty() )
        throw std::logic_error( schema.check().front() );
    return schema;
}

void RandomProgram::run( Shim::Sdk & sdk, std::size_t operations ) {
    for ( std::size_t i = 0; i < operations; ++i )
        step( sdk );
}

void RandomProgram::freeAll( Shim::Sdk & sdk ) {
    while ( !live_.empty() ) {
        sdk.bcmlt_entry_free( live_.back().handle );
        freed_.push_back( live_.back() );
        live_.pop_back();
    }
}

void RandomProgram::poke( Sim::Chip & chip ) {
    for ( const Sim::Table & table : schema_.tables() ) {
        if ( !table.isPhysical() )
            continue;
        const Sim::Field & field = random_.of( table.fields );
        const auto some = [&]( std::uint32_t end ) {
            return static_cast<std::uint32_t>( random_.below( std::max( end, 1u ) ) );
        };
        const Sim::RowId id{ .index = some( table.size.rows ),
                             .instance = some( table.size.instances ),
                             .port = some( table.size.ports ) };
        const std::uint64_t value = field.symbols.empty() ? random_.bits() & field.maximum()
                                                          : random_.of( field.symbols ).value;
        const Sim::Rc rc = chip.pokeHardware(
            static_cast<int>( random_.below( static_cast<std::uint64_t>( units_ ) ) ), table.name,
            id, field.name, value, some( field.length ) );
        if ( rc != Sim::Rc::ok )
            throw std::logic_error( chip.lastError() );
    }
}

void RandomProgram::step( Shim::Sdk & sdk ) {
    sdk.preCallHook();
    if ( live_.empty() || ( live_.size() < 8 && random_.oneIn( 6 ) ) ) {
        allocate( sdk );
        return;
    }
    const Entry entry = anyEntry();
    switch ( random_.below( 12 ) ) {
    case 0:
    case 1:
        addPlace( sdk, entry );
        break;
    case 2:
    case 3:
    case 4:
        addField( sdk, entry );
        break;
    case 5:
    case 6:
        get( sdk, entry );
        break;
    case 7:
        sdk.bcmlt_entry_attrib_set(
            entry.handle, random_.oneIn( mistakes ) ? 17 : sdk.BCMLT_ENT_ATTR_GET_FROM_HW() );
        break;
    case 8:
        free( sdk );
        break;
    default:
        commit( sdk, entry );
    }
}

void RandomProgram::allocate( Shim::Sdk & sdk ) {
    const Sim::Table & table = random_.of( schema_.tables() );
    const int unit =
        random_.oneIn( mistakes )
            ? units_
            : static_cast<int>( random_.below( static_cast<std::uint64_t>( units_ ) ) );
    const std::string name = random_.oneIn( mistakes ) ? "NO_TABLE" : table.name;
    Entry entry{ .handle = 0, .table = &table };
    if ( sdk.bcmlt_entry_allocate( unit, name.c_str(), &entry.handle ) == 0 )
        live_.push_back( entry );
}

// What addresses a row, mostly all of it, so that many commits succeed.
void RandomProgram::addPlace( Shim::Sdk & sdk, const Entry & entry ) {
    const Sim::Table & table = *entry.table;
    if ( table.isPhysical() ) {
        const auto add = [&]( std::string_view name, std::uint32_t end ) {
            if ( end > 1 || random_.oneIn( mistakes ) )
                sdk.bcmlt_entry_field_add( entry.handle, name.data(),
                                           random_.below( end +
                                                          ( random_.oneIn( mistakes ) ? 2u : 0u ) +
                                                          ( end == 0 ? 1u : 0u ) ) );
        };
        add( Sim::indexField, table.size.rows );
        add( Sim::instanceField, table.size.instances );
        if ( table.size.ports > 0 || random_.oneIn( mistakes ) )
            sdk.bcmlt_entry_field_add( entry.handle, Sim::portField.data(),
                                       random_.below( std::max( table.size.ports, 1u ) ) );
        return;
    }
    for ( const Sim::Field & field : table.fields ) {
        if ( field.role == Sim::FieldRole::key )
            addScalar( sdk, entry, field );
    }
}

void RandomProgram::addField( Shim::Sdk & sdk, const Entry & entry ) {
    const Sim::Field & field = random_.of( entry.table->fields );
    if ( ( field.length > 1 ) != random_.oneIn( mistakes ) )
        addArray( sdk, entry, field );
    else
        addScalar( sdk, entry, field );
}

void RandomProgram::addScalar( Shim::Sdk & sdk, const Entry & entry, const Sim::Field & field ) {
    const bool asSymbol = field.symbols.empty() ? random_.oneIn( mistakes ) : random_.oneIn( 2 );
    const std::string name = random_.oneIn( mistakes ) ? "NO_FIELD" : field.name;
    if ( asSymbol )
        sdk.bcmlt_entry_field_symbol_add( entry.handle, name.c_str(),
                                          field.symbols.empty() || random_.oneIn( mistakes )
                                              ? "NO_SYMBOL"
                                              : random_.of( field.symbols ).name.c_str() );
    else
        sdk.bcmlt_entry_field_add( entry.handle, name.c_str(), valueFor( field ) );
}

void RandomProgram::addArray( Shim::Sdk & sdk, const Entry & entry, const Sim::Field & field ) {
    const auto start = static_cast<std::uint32_t>( random_.below( field.length ) );
    const auto count = static_cast<std::uint32_t>(
        random_.below( field.length - start + ( random_.oneIn( mistakes ) ? 3 : 1 ) ) );
    std::vector<std::uint64_t> values;
    for ( std::uint32_t i = 0; i < count; ++i )
        values.push_back( valueFor( field ) );
    sdk.bcmlt_entry_field_array_add( entry.handle, field.name.c_str(), start, values.data(),
                                     count );
}

void RandomProgram::get( Shim::Sdk & sdk, const Entry & entry ) {
    std::uint64_t value = 0;
    const std::string name = random_.oneIn( mistakes ) ? "NO_FIELD"
                             : random_.oneIn( 4 )      ? std::string( Sim::indexField )
                                                       : random_.of( entry.table->fields ).name;
    sdk.bcmlt_entry_field_get( entry.handle, name.c_str(), &value );
}

void RandomProgram::commit( Shim::Sdk & sdk, const Entry & entry ) {
    const std::uint32_t priority = random_.oneIn( mistakes ) ? 5 : sdk.BCMLT_PRIORITY_NORMAL();
    if ( entry.table->isPhysical() != random_.oneIn( mistakes ) ) {
        const std::vector<std::uint32_t> opcodes{
            sdk.BCMLT_PT_OPCODE_GET(), sdk.BCMLT_PT_OPCODE_MODIFY(), sdk.BCMLT_PT_OPCODE_SET() };
        sdk.bcmlt_pt_entry_commit(
            entry.handle, random_.oneIn( mistakes ) ? 77 : random_.of( opcodes ), priority );
    } else {
        const std::vector<std::uint32_t> opcodes{
            sdk.BCMLT_OPCODE_INSERT(), sdk.BCMLT_OPCODE_INSERT(), sdk.BCMLT_OPCODE_UPDATE(),
            sdk.BCMLT_OPCODE_LOOKUP(), sdk.BCMLT_OPCODE_DELETE() };
        sdk.bcmlt_entry_commit( entry.handle,
                                random_.oneIn( mistakes ) ? 77 : random_.of( opcodes ), priority );
    }
}

void RandomProgram::free( Shim::Sdk & sdk ) {
    if ( !freed_.empty() && random_.oneIn( mistakes ) ) {
        sdk.bcmlt_entry_free( random_.of( freed_ ).handle );
        return;
    }
    const std::size_t place = random_.below( live_.size() );
    sdk.bcmlt_entry_free( live_[place].handle );
    freed_.push_back( live_[place] );
    live_.erase( live_.begin() + static_cast<std::ptrdiff_t>( place ) );
}

RandomProgram::Entry RandomProgram::anyEntry() {
    Entry entry = random_.of( live_ );
    if ( random_.oneIn( mistakes ) )
        entry.handle = freed_.empty() ? 0x1234'5678 : random_.of( freed_ ).handle;
    return entry;
}

std::uint64_t RandomProgram::valueFor( const Sim::Field & field ) {
    if ( random_.oneIn( mistakes ) )
        return random_.bits();
    if ( !field.symbols.empty() )
        return random_.of( field.symbols ).value;
    return random_.bits() & field.maximum() & ( random_.oneIn( 2 ) ? 3 : ~std::uint64_t( 0 ) );
}

} // namespace ToolTest
