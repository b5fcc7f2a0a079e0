#include "interpose/WriteGate.h"

#include "interpose/Event.h"
#include "interpose/HandleDirectory.h"

#include <fmt/format.h>

#include <map>
#include <mutex>
#include <numeric>
#include <stdexcept>
#include <string_view>
#include <tuple>

namespace Interpose {

namespace {

std::uint64_t sum( const WriteGate::Writes & writes ) {
    return writes.allowed + writes.refused + writes.skipped;
}

} // namespace

struct WriteGate::State {
    State( Shim::Sdk & sdk, Mode startMode )
        : entries( sdk ), opcodes( numbersOf( sdk, sdkOpcodes ) ),
          ptOpcodes( numbersOf( sdk, sdkPtOpcodes ) ), lookup( sdk.BCMLT_OPCODE_LOOKUP() ),
          get( sdk.BCMLT_PT_OPCODE_GET() ), mode( startMode ) {}

    bool isWrite( const Operation & operation ) const {
        return ( operation.call == SdkCall::entryCommit && operation.opcode != lookup ) ||
               ( operation.call == SdkCall::ptEntryCommit && operation.opcode != get );
    }

    // Counts a write, and returns what becomes of it.
    Mode count( const Operation & operation, int & refusal ) {
        const HandleDirectory::Entry entry = entries.find( operation );
        const std::lock_guard lock( mutex );
        refusal = code;
        const auto [place, isNew] =
            kinds.try_emplace( Kind( entry.unit, entry.table, operation.call, operation.opcode ) );
        Writes & writes = place->second;
        if ( isNew ) {
            const SdkNumber opcode = findNumber(
                operation.call == SdkCall::entryCommit ? opcodes : ptOpcodes, operation.opcode );
            writes = { .unit = entry.unit,
                       .table = std::string( entry.table ),
                       .commit = operation.call,
                       .opcode = operation.opcode,
                       .opcodeName = opcode.constant ? toText( opcode ) : "" };
        }
        ++( mode == Mode::allow    ? writes.allowed
            : mode == Mode::refuse ? writes.refused
                                   : writes.skipped );
        return mode;
    }

    HandleDirectory entries;
    const std::vector<SdkNumber> opcodes;
    const std::vector<SdkNumber> ptOpcodes;
    const std::uint32_t lookup;
    const std::uint32_t get;

    using Kind = std::tuple<int, std::string, SdkCall, std::uint32_t>;
    mutable std::mutex mutex; // guards what follows
    Mode mode;
    int code = -1;
    std::map<Kind, Writes> kinds;
};

WriteGate::WriteGate( Shim::Sdk & inner, Mode mode )
    : Interposer( inner ), state_( std::make_unique<State>( inner, mode ) ) {}

WriteGate::~WriteGate() = default;

void WriteGate::setMode( Mode mode, int code ) {
    if ( code >= 0 )
        throw std::invalid_argument( "WriteGate: a refusal needs a negative code" );
    const std::lock_guard lock( state_->mutex );
    state_->mode = mode;
    state_->code = code;
}

WriteGate::Mode WriteGate::mode() const {
    const std::lock_guard lock( state_->mutex );
    return state_->mode;
}

std::vector<WriteGate::Writes> WriteGate::writes() const {
    const std::lock_guard lock( state_->mutex );
    std::vector<Writes> all;
    for ( const auto & [kind, writes] : state_->kinds )
        all.push_back( writes );
    return all;
}

std::uint64_t WriteGate::writeCount() const {
    const auto all = writes();
    return std::accumulate(
        all.begin(), all.end(), std::uint64_t( 0 ),
        []( std::uint64_t count, const Writes & kind ) { return count + sum( kind ); } );
}

void WriteGate::reset() {
    const std::lock_guard lock( state_->mutex );
    state_->kinds.clear();
}

int WriteGate::operate( const Operation & operation ) noexcept {
    if ( state_->isWrite( operation ) ) {
        int refusal = 0;
        switch ( state_->count( operation, refusal ) ) {
        case Mode::refuse:
            return refusal;
        case Mode::skip:
            return 0;
        case Mode::allow:
            break;
        }
    }
    return state_->entries.perform( operation );
}

std::string toText( const std::vector<WriteGate::Writes> & writes ) {
    std::string text;
    for ( const auto & each : writes )
        text +=
            fmt::format( "{} {}unit {} {}: {} allowed, {} refused, {} skipped\n",
                         name( each.commit ), each.table.empty() ? "" : each.table + " ", each.unit,
                         each.opcodeName.empty() ? fmt::to_string( each.opcode ) : each.opcodeName,
                         each.allowed, each.refused, each.skipped );
    return text;
}

} // namespace Interpose
