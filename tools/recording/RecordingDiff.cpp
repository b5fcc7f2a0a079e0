#include "tools/recording/RecordingDiff.h"

#include <algorithm>
#include <memory>
#include <utility>

namespace Tool {

namespace {

// So many differences without anything in between are looked at for steps that belong together.
constexpr std::size_t maxUnmatched = 1024;

} // namespace

std::vector<DifferenceLine> linesOf( const StepDifference & difference ) {
    std::vector<DifferenceLine> lines;
    if ( !difference.before || !difference.after ) {
        for ( const EntryStep::Operation & operation : difference.either().operations )
            lines.push_back( { .mark = difference.before ? '-' : '+', .operation = &operation } );
        return lines;
    }
    const auto & before = difference.before->operations;
    const auto & after = difference.after->operations;
    // The lengths of the longest common subsequences of what follows each pair of places.
    const std::size_t width = after.size() + 1;
    std::vector<std::uint32_t> lengths( ( before.size() + 1 ) * width );
    for ( std::size_t i = before.size(); i-- > 0; ) {
        for ( std::size_t k = after.size(); k-- > 0; )
            lengths[i * width + k] =
                before[i].text == after[k].text
                    ? lengths[( i + 1 ) * width + k + 1] + 1
                    : std::max( lengths[( i + 1 ) * width + k], lengths[i * width + k + 1] );
    }
    std::size_t i = 0;
    std::size_t k = 0;
    while ( i < before.size() || k < after.size() ) {
        if ( i < before.size() && k < after.size() && before[i].text == after[k].text ) {
            lines.push_back( { .mark = ' ', .operation = &before[i] } );
            ++i;
            ++k;
        } else if ( k == after.size() || ( i < before.size() && lengths[( i + 1 ) * width + k] >=
                                                                    lengths[i * width + k + 1] ) ) {
            lines.push_back( { .mark = '-', .operation = &before[i++] } );
        } else {
            lines.push_back( { .mark = '+', .operation = &after[k++] } );
        }
    }
    return lines;
}

RecordingDiffCounts RecordingDiff::run( const OnDifference & onDifference ) {
    counts_ = {};
    // What belongs to no unit comes first: this reading meets all units.
    compareUnit( {}, onDifference );
    for ( const std::int32_t unit : std::set( units_ ) )
        compareUnit( unit, onDifference );
    return counts_;
}

void RecordingDiff::compareUnit( std::optional<std::int32_t> unit,
                                 const OnDifference & onDifference ) {
    Alignment alignment( stepsOf( before_, unit ), stepsOf( after_, unit ), limits_ );
    std::vector<AlignedStep> unmatched;
    AlignedStep place;
    while ( alignment.next( place ) ) {
        if ( place.isSame() )
            ++counts_.steps;
        if ( place.isSame() || unmatched.size() == maxUnmatched )
            tell( unmatched, onDifference );
        if ( !place.isSame() )
            unmatched.push_back( std::move( place ) );
    }
    tell( unmatched, onDifference );
    counts_.reordered += alignment.reordered();
}

Alignment::Source RecordingDiff::stepsOf( const Open & open, std::optional<std::int32_t> unit ) {
    const auto ofUnit = [this, unit, next = open()]( TraceReader::Event & event ) {
        while ( next( event ) ) {
            if ( event.moment == TraceReader::Event::Moment::message )
                return true;
            if ( event.call->unit )
                units_.insert( *event.call->unit );
            if ( event.call->unit == unit )
                return true;
        }
        return false;
    };
    const auto steps = std::make_shared<EntrySteps>( ofUnit );
    return [steps]( EntryStep & step ) { return steps->next( step ); };
}

// Steps that follow each other in one recording alone: those of a table belong together.
void RecordingDiff::tell( std::vector<AlignedStep> & unmatched,
                          const OnDifference & onDifference ) {
    std::vector<bool> isTold( unmatched.size() );
    for ( std::size_t i = 0; i < unmatched.size(); ++i ) {
        if ( isTold[i] )
            continue;
        const bool isBefore = unmatched[i].before.has_value();
        StepDifference difference{ .before = unmatched[i].before, .after = unmatched[i].after };
        for ( std::size_t k = i + 1; k < unmatched.size(); ++k ) {
            if ( isTold[k] || unmatched[k].before.has_value() == isBefore )
                continue;
            std::optional<EntryStep> & other = isBefore ? unmatched[k].after : unmatched[k].before;
            if ( other->table != difference.either().table )
                continue;
            isTold[k] = true;
            ( isBefore ? difference.after : difference.before ) = std::move( other );
            break;
        }
        ++( difference.before && difference.after ? counts_.changed
            : isBefore                            ? counts_.removed
                                                  : counts_.added );
        onDifference( difference );
    }
    unmatched.clear();
}

} // namespace Tool
