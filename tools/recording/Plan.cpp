#include "tools/recording/Plan.h"

#include "interpose/Event.h"
#include "interpose/Operation.h"
#include "tools/model/Errors.h"

#include <fmt/format.h>

#include <algorithm>
#include <string_view>

namespace Tool {

namespace {

using Interpose::SdkCall;

// Performs the operations for one row after the other.
class Planner {
  public:
    explicit Planner( Shim::Sdk & sdk ) : sdk_( sdk ) {}

    std::uint64_t operations() const { return operations_; }

    void remove( const RowDifference & difference ) {
        allocate( difference );
        addKey( *difference.before );
        commit( sdk_.BCMLT_OPCODE_DELETE() );
        free();
    }

    void insert( const RowDifference & difference ) {
        allocate( difference );
        addKey( *difference.after );
        const Sim::RowImage & row = *difference.after;
        // An INSERT gives what it does not carry its reset value.
        std::vector<std::uint64_t> reset;
        for ( const Sim::Field & field : table_->fields )
            reset.insert( reset.end(), field.length, field.reset );
        addFields( [&]( std::size_t i ) { return row.written[i] || row.values[i] != reset[i]; },
                   row.values );
        commit( sdk_.BCMLT_OPCODE_INSERT() );
        free();
    }

    void update( const RowDifference & difference ) {
        const std::vector<std::uint64_t> & before = difference.before->values;
        const std::vector<std::uint64_t> & after = difference.after->values;
        allocate( difference );
        addKey( *difference.after );
        addFields( [&]( std::size_t i ) { return before[i] != after[i]; }, after );
        commit( sdk_.BCMLT_OPCODE_UPDATE() );
        free();
    }

    void modify( const RowDifference & difference ) {
        // What the operation finds: the row of the hardware, where that is another one.
        const std::vector<std::uint64_t> & before = hardwareOf( *difference.before );
        const std::vector<std::uint64_t> & after = hardwareOf( *difference.after );
        allocate( difference );
        addAddress( difference.id() );
        if ( !difference.before->hardware.empty() )
            perform( { .call = SdkCall::entryAttribSet,
                       .handle = handle_,
                       .attribute = sdk_.BCMLT_ENT_ATTR_GET_FROM_HW() } );
        addFields( [&]( std::size_t i ) { return before[i] != after[i]; }, after );
        // Where the cache alone is to change, reading the hardware does it.
        commit( before != after ? sdk_.BCMLT_PT_OPCODE_MODIFY() : sdk_.BCMLT_PT_OPCODE_GET() );
        free();
    }

  private:
    void allocate( const RowDifference & difference ) {
        table_ = difference.table;
        perform( { .call = SdkCall::entryAllocate,
                   .unit = difference.unit,
                   .table = table_->name.c_str(),
                   .newHandle = &handle_ } );
    }

    void addKey( const Sim::RowImage & row ) {
        auto value = row.id.key.begin();
        for ( const Sim::Field & field : table_->fields ) {
            if ( field.role == Sim::FieldRole::key )
                add( field, *value++ );
        }
    }

    void addAddress( const Sim::RowId & id ) {
        if ( table_->size.rows > 1 )
            addNumber( Sim::indexField.data(), id.index );
        if ( table_->size.instances > 1 )
            addNumber( Sim::instanceField.data(), id.instance );
        if ( table_->size.ports > 0 )
            addNumber( Sim::portField.data(), id.port );
    }

    // Adds the elements that are wanted, neighbours in an array together.
    template <class IsWanted>
    void addFields( const IsWanted & isWanted, const std::vector<std::uint64_t> & values ) {
        std::size_t first = 0;
        for ( const Sim::Field & field : table_->fields ) {
            if ( field.length == 1 ) {
                if ( field.role != Sim::FieldRole::key && isWanted( first ) )
                    add( field, values[first] );
            } else {
                for ( std::uint32_t i = 0; i < field.length; ) {
                    std::uint32_t end = i;
                    while ( end < field.length && isWanted( first + end ) )
                        ++end;
                    if ( end > i )
                        perform( { .call = SdkCall::entryFieldArrayAdd,
                                   .handle = handle_,
                                   .field = field.name.c_str(),
                                   .values = &values[first + i],
                                   .startIndex = i,
                                   .count = end - i } );
                    i = std::max( end, i + 1 );
                }
            }
            first += field.length;
        }
    }

    void add( const Sim::Field & field, std::uint64_t value ) {
        if ( const Sim::Symbol * symbol = field.findSymbol( value ) )
            perform( { .call = SdkCall::entryFieldSymbolAdd,
                       .handle = handle_,
                       .field = field.name.c_str(),
                       .symbol = symbol->name.c_str() } );
        else
            addNumber( field.name.c_str(), value );
    }

    void addNumber( const char * field, std::uint64_t value ) {
        perform( { .call = SdkCall::entryFieldAdd,
                   .handle = handle_,
                   .field = field,
                   .values = &value,
                   .count = 1 } );
    }

    void commit( std::uint32_t opcode ) {
        perform( { .call = table_->isPhysical() ? SdkCall::ptEntryCommit : SdkCall::entryCommit,
                   .handle = handle_,
                   .opcode = opcode,
                   .priority = sdk_.BCMLT_PRIORITY_NORMAL() } );
    }

    void free() { perform( { .call = SdkCall::entryFree, .handle = handle_ } ); }

    void perform( const Interpose::Operation & operation ) {
        ++operations_;
        sdk_.preCallHook();
        if ( const int rc = Interpose::perform( sdk_, operation ); rc < 0 )
            throw Trouble( fmt::format( "the plan fails in {} for {}: {} ({})",
                                        Interpose::name( operation.call ), table_->name,
                                        sdk_.errmsg( rc ), rc ) );
    }

    Shim::Sdk & sdk_;
    const Sim::Table * table_ = nullptr;
    std::uint32_t handle_ = 0;
    std::uint64_t operations_ = 0;
};

} // namespace

std::uint64_t performPlan( Shim::Sdk & sdk, const std::vector<RowDifference> & differences ) {
    Planner planner( sdk );
    for ( const RowDifference & difference : differences ) {
        if ( !difference.after )
            planner.remove( difference );
    }
    for ( const RowDifference & difference : differences ) {
        const bool isOfHardware = difference.table->isPhysical();
        if ( isOfHardware && !isWithinReach( difference ) &&
             hardwareOf( *difference.before ) == hardwareOf( *difference.after ) )
            continue; // the cache alone differs
        if ( isOfHardware )
            planner.modify( difference );
        else if ( !difference.before )
            planner.insert( difference );
        else if ( difference.after )
            planner.update( difference );
    }
    return planner.operations();
}

bool isWithinReach( const RowDifference & difference ) {
    return !difference.after || difference.after->hardware.empty();
}

} // namespace Tool
