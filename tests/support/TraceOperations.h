#pragma once

#include "Cairn/internal/TraceMessage.h"
#include "tests/support/InstructionCount.h"

#include <Fleetlog/MsgDesc.h>
#include <Fleetlog/TraceHandle.h>

#include <cstdint>
#include <initializer_list>
#include <memory>
#include <optional>
#include <string>

// Records and messages as operations that can be repeated, timed and counted. Each holds what its
// caller would have at hand, so that only the operation itself is measured.

namespace Support {

/// What the operations write to: a file for each kind of timestamps, with two sites.
struct TraceTargets {
    explicit TraceTargets( Fleetlog::OpenOptions options ) {
        for ( const auto timestamps : { Fleetlog::Timestamps::none, Fleetlog::Timestamps::tick,
                                        Fleetlog::Timestamps::counter } ) {
            options.timestamps = timestamps;
            auto & file = files[static_cast<unsigned>( timestamps )];
            file = std::make_unique<Fleetlog::TraceFile>( options, 0 );
            registerSite( *file, twoValuesId, "ii",
                          { "record", " unit: ", "%s", " seed: ", "%s" } );
            registerSite( *file, textId, "ip", { "record", " unit: ", "%s", " text: ", "%s" } );
        }
    }

    std::unique_ptr<Fleetlog::TraceFile> files[3]; ///< by Fleetlog::Timestamps
    int twoValuesId = 0;
    int textId = 0;
    /// 20 and 12 characters. Not across the end of a page, where strlen() takes a longer way.
    alignas( 64 ) char text[32] = "L3_DST_LOOKUP_MISS_1";
    alignas( 64 ) char shortText[32] = "L3_HDR_ERROR";

  private:
    static void registerSite( Fleetlog::TraceFile & file, int & msgId, const char * letters,
                              std::initializer_list<const char *> pieces ) {
        Fleetlog::MsgDesc descriptor( &file, &msgId, "TraceOperations", __LINE__ );
        descriptor.formatString().put( letters );
        for ( const char * const piece : pieces )
            descriptor << piece;
        descriptor.finish();
    }
};

/// Set it before an operation is made.
inline TraceTargets * traceTargets = nullptr;

template <Fleetlog::Timestamps timestamps>
struct RecordTwoValues {
    Fleetlog::TraceFile * file = traceTargets->files[static_cast<unsigned>( timestamps )].get();
    int msgId = traceTargets->twoValuesId;
    [[gnu::always_inline]] void run( std::uint32_t i, std::uint32_t j ) const {
        Fleetlog::RecordWriter record;
        if ( !record.start( *file->ringBuf(), *file, msgId ) )
            return;
        record.put4( i );
        record.put4( j );
        record.end();
    }
};

template <Fleetlog::Timestamps timestamps, char ( TraceTargets::*text )[32] = &TraceTargets::text>
struct RecordText {
    Fleetlog::TraceFile * file = traceTargets->files[static_cast<unsigned>( timestamps )].get();
    int msgId = traceTargets->textId;
    const char * value = traceTargets->*text;
    [[gnu::always_inline]] void run( std::uint32_t i, std::uint32_t ) const {
        Fleetlog::RecordWriter record;
        if ( !record.start( *file->ringBuf(), *file, msgId ) )
            return;
        record.put4( i );
        record.putText( value );
        record.end();
    }
};

/// A whole dual message, to the default handle.
struct MessageTwoValues {
    [[gnu::always_inline]] void run( std::uint32_t i, std::uint32_t j ) const {
        static constexpr Cairn::Recipe cairnRecipe_{ "setSeed",
                                                     "void setSeed(uint32_t, uint32_t)" };
        CAIRN_MESSAGE( "ii", ( " unit: ", "%s", " seed: ", "%s" ), i, j );
    }
};

/// The longest message that recipes have.
struct MessageSixValues {
    [[gnu::always_inline]] void run( std::uint32_t i, std::uint32_t j ) const {
        static constexpr Cairn::Recipe cairnRecipe_{ "map", "void map(uint32_t, uint32_t)" };
        const auto l2If = static_cast<std::uint16_t>( j );
        const bool op = i != 0;
        CAIRN_MESSAGE( "iiiisb", ( " system source: ", "%s", " unit: ", "%s", " modId: ", "%s", " port: ", "%s", " l2If: ", "%s", " op: ", "%s" ), i, j, i, j, l2If, op );
    }
};

/// The operation twice, or four times over. In between the compiler keeps nothing in registers but
/// the operation's own members.
template <class Operation, bool again>
[[gnu::noinline]] void repeat() {
    const Operation operation;
    std::uint32_t i = 1;
    std::uint32_t j = 2;
    asm volatile( "" : "+r"( i ), "+r"( j ) ); // values in registers, of which nothing is known
    const auto once = [&]() __attribute__( ( always_inline ) ) {
        operation.run( i, j );
        asm volatile( "" ::: "memory" );
    };
    once();
    once();
    if constexpr ( again ) {
        once();
        once();
    }
}

/// The instructions of one operation: of two more than two, so that what a function does when it
/// begins and ends is not among them. Nothing where processes cannot be stepped.
template <class Operation>
std::optional<std::uint64_t> instructionsOf() {
    const auto two = countInstructions( repeat<Operation, false> );
    const auto four = countInstructions( repeat<Operation, true> );
    return two && four ? std::optional( ( *four - *two + 1 ) / 2 ) : std::nullopt;
}

} // namespace Support
