#include "sim/Chip.h"

#include "sim/ChipState.h"
#include "sim/Constants.h"

#include <fmt/format.h>

#include <map>
#include <mutex>
#include <stdexcept>
#include <utility>

namespace Sim {

Chip::Chip() : state_( std::make_unique<ChipState>() ) {}

Chip::~Chip() = default;

void Chip::addUnit( int unit, Schema schema ) {
    const std::string name = fmt::format( "unit {}", unit );
    if ( unit < 0 )
        throw std::invalid_argument( name + " is not possible; units are numbered from 0" );
    const std::vector<std::string> problems = schema.check();
    if ( !problems.empty() )
        throw std::invalid_argument( name + ": " + problems.front() );
    auto added = std::make_unique<UnitState>( std::move( schema ) );
    const std::lock_guard lock( state_->mutex );
    if ( !state_->units.try_emplace( unit, std::move( added ) ).second )
        throw std::invalid_argument( name + " exists already; give the new one another number" );
}

std::vector<int> Chip::units() const {
    const std::lock_guard lock( state_->mutex );
    std::vector<int> numbers;
    for ( const auto & [number, unit] : state_->units )
        numbers.push_back( number );
    return numbers;
}

const Schema * Chip::schema( int unit ) const {
    const std::lock_guard lock( state_->mutex );
    const UnitState * found = state_->findUnit( unit );
    return found != nullptr ? &found->schema : nullptr;
}

std::string Chip::lastError() const {
    const Failure * failure = state_->lastFailure();
    if ( failure == nullptr )
        return {};
    const std::lock_guard lock( state_->mutex );
    std::map<int, const Schema *> schemas;
    for ( const auto & [number, unit] : state_->units )
        schemas.emplace( number, &unit->schema );
    return describe( *failure, schemas );
}

std::uint64_t Chip::preCallCount() const {
    return state_->preCalls.load( std::memory_order_relaxed );
}

std::uint64_t Chip::failureCount() const {
    return state_->failures.load( std::memory_order_relaxed );
}

std::vector<LiveEntry> Chip::liveEntries() const {
    const std::lock_guard lock( state_->mutex );
    std::vector<LiveEntry> live;
    for ( std::uint32_t slot = 0; slot < state_->entries.size(); ++slot ) {
        const Entry & entry = state_->entries[slot];
        if ( entry.live ) {
            live.push_back( { ( std::uint32_t( entry.generation ) << slotBits ) | ( slot + 1 ),
                              entry.unit, entry.table->table.name } );
        }
    }
    return live;
}

std::size_t Chip::liveEntryCount() const {
    const std::lock_guard lock( state_->mutex );
    return state_->entries.size() - state_->freeSlots.size();
}

int Chip::judgeCommit( std::uint32_t handle, std::uint32_t opcode, std::uint32_t priority ) {
    return state_->operate( [&] { return state_->judgeLogical( handle, opcode, priority ); } );
}

int Chip::judgePtCommit( std::uint32_t handle, std::uint32_t opcode, std::uint32_t priority ) {
    return state_->operate( [&] { return state_->judgePhysical( handle, opcode, priority ); } );
}

const char * Chip::errmsg( int rc ) noexcept { return textOf( rc ); }

std::uint32_t Chip::BCMLT_ENT_ATTR_GET_FROM_HW() noexcept { return attrGetFromHw; }
std::uint32_t Chip::BCMLT_OPCODE_DELETE() noexcept { return opcodeDelete; }
std::uint32_t Chip::BCMLT_OPCODE_INSERT() noexcept { return opcodeInsert; }
std::uint32_t Chip::BCMLT_OPCODE_LOOKUP() noexcept { return opcodeLookup; }
std::uint32_t Chip::BCMLT_OPCODE_UPDATE() noexcept { return opcodeUpdate; }
std::uint32_t Chip::BCMLT_PRIORITY_NORMAL() noexcept { return priorityNormal; }
std::uint32_t Chip::BCMLT_PT_OPCODE_GET() noexcept { return ptOpcodeGet; }
std::uint32_t Chip::BCMLT_PT_OPCODE_MODIFY() noexcept { return ptOpcodeModify; }
std::uint32_t Chip::BCMLT_PT_OPCODE_SET() noexcept { return ptOpcodeSet; }
std::uint32_t Chip::BCMLT_INVALID_HDL() noexcept { return invalidHandle; }

int Chip::bcmlt_entry_allocate( int unit, const char * table, std::uint32_t * handle ) noexcept {
    return state_->operate( [&] { return state_->allocate( unit, table, handle ); } );
}

int Chip::bcmlt_entry_attrib_set( std::uint32_t handle, std::uint32_t attribute ) noexcept {
    return state_->operate( [&] { return state_->setAttribute( handle, attribute ); } );
}

int Chip::bcmlt_entry_commit( std::uint32_t handle, std::uint32_t opcode,
                              std::uint32_t priority ) noexcept {
    return state_->operate( [&] { return state_->commitLogical( handle, opcode, priority ); } );
}

int Chip::bcmlt_entry_field_add( std::uint32_t handle, const char * field,
                                 std::uint64_t value ) noexcept {
    return state_->operate( [&] { return state_->addField( handle, field, value ); } );
}

int Chip::bcmlt_entry_field_array_add( std::uint32_t handle, const char * field,
                                       std::uint32_t startIndex, const std::uint64_t * values,
                                       std::uint32_t count ) noexcept {
    return state_->operate(
        [&] { return state_->addArray( handle, field, startIndex, values, count ); } );
}

int Chip::bcmlt_entry_field_get( std::uint32_t handle, const char * field,
                                 std::uint64_t * value ) noexcept {
    return state_->operate( [&] { return state_->getField( handle, field, value ); } );
}

int Chip::bcmlt_entry_field_symbol_add( std::uint32_t handle, const char * field,
                                        const char * symbol ) noexcept {
    return state_->operate( [&] { return state_->addSymbol( handle, field, symbol ); } );
}

int Chip::bcmlt_entry_free( std::uint32_t handle ) noexcept {
    return state_->operate( [&] { return state_->free( handle ); } );
}

int Chip::bcmlt_pt_entry_commit( std::uint32_t handle, std::uint32_t opcode,
                                 std::uint32_t priority ) noexcept {
    return state_->operate( [&] { return state_->commitPhysical( handle, opcode, priority ); } );
}

const char * Chip::ENABLEs() noexcept { return "ENABLE"; }
const char * Chip::NUM_LANESs() noexcept { return "NUM_LANES"; }
const char * Chip::PC_PHYS_PORT_IDs() noexcept { return "PC_PHYS_PORT_ID"; }
const char * Chip::PC_PORT_PHYS_MAPs() noexcept { return "PC_PORT_PHYS_MAP"; }
const char * Chip::PC_PORTs() noexcept { return "PC_PORT"; }
const char * Chip::PORT_IDs() noexcept { return "PORT_ID"; }
const char * Chip::SPEEDs() noexcept { return "SPEED"; }

void Chip::preCallHook() noexcept { state_->preCalls.fetch_add( 1, std::memory_order_relaxed ); }

void Chip::failureHook() noexcept { state_->failures.fetch_add( 1, std::memory_order_relaxed ); }

} // namespace Sim
