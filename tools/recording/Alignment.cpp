#include "tools/recording/Alignment.h"

#include <algorithm>
#include <array>
#include <vector>

namespace Tool {

namespace {

// So many steps in a row must be the same for the sequences to meet.
constexpr std::size_t meetingLength = 3;

// Of a step that is often there, so many of its places are looked at.
constexpr std::size_t maxCandidates = 16;

// A pair of steps that are the same, and the pair before it in a common subsequence.
struct Pair {
    std::size_t before;
    std::size_t after;
    std::ptrdiff_t previous;
};

} // namespace

Alignment::Alignment( Source before, Source after, const AlignmentLimits & limits )
    : before_( std::move( before ) ), after_( std::move( after ) ), limits_( limits ) {}

std::size_t Alignment::Side::fill( std::size_t count ) {
    while ( ahead_.size() < count && !isAtEnd_ ) {
        EntryStep step;
        if ( source_( step ) )
            ahead_.push_back( std::move( step ) );
        else
            isAtEnd_ = true;
    }
    return std::min( count, ahead_.size() );
}

EntryStep Alignment::Side::take() {
    EntryStep step = std::move( ahead_.front() );
    ahead_.pop_front();
    return step;
}

bool Alignment::next( AlignedStep & place ) {
    for ( ;; ) {
        const bool isKeptBack =
            ( !removed_.empty() || !added_.empty() ) && places_.size() <= limits_.reordering;
        if ( ( places_.empty() || isKeptBack ) && advance() )
            continue;
        if ( places_.empty() )
            return false;
        place = std::move( places_.front() );
        places_.pop_front();
        ++taken_;
        if ( !place.isSame() ) {
            auto & alike = place.before ? removed_ : added_;
            const auto numbers =
                alike.find( place.before ? place.before->hash : place.after->hash );
            numbers->second.pop_front();
            if ( numbers->second.empty() )
                alike.erase( numbers );
        }
        return true;
    }
}

// Aligns a little more. False at the end.
bool Alignment::advance() {
    const bool hasBefore = before_.fill( 1 ) == 1;
    const bool hasAfter = after_.fill( 1 ) == 1;
    if ( !hasBefore && !hasAfter )
        return false;
    if ( hasBefore && hasAfter && before_.at( 0 ).hash == after_.at( 0 ).hash )
        putSame();
    else
        alignBlock( distanceToMeeting() );
    return true;
}

// How much of each side stands before the place where they meet again.
Alignment::Distance Alignment::distanceToMeeting() {
    Distance ahead;
    for ( const std::size_t range :
          { std::size_t( 64 ), std::size_t( 2048 ), limits_.lookahead } ) {
        const std::size_t bounded = std::min( range, limits_.lookahead );
        if ( const auto meeting = findMeeting( bounded ) )
            return *meeting;
        ahead = { .before = before_.fill( bounded ), .after = after_.fill( bounded ) };
        if ( before_.isAtEnd() && after_.isAtEnd() && ahead.before < bounded &&
             ahead.after < bounded )
            return ahead;
    }
    return { .before = ahead.before - ahead.before / 2, .after = ahead.after / 2 };
}

// The nearest place where steps in a row are the same.
std::optional<Alignment::Distance> Alignment::findMeeting( std::size_t range ) {
    const std::size_t before = before_.fill( range );
    const std::size_t after = after_.fill( range );
    std::unordered_map<std::uint64_t, std::vector<std::size_t>> places;
    for ( std::size_t i = 0; i < after; ++i )
        places[after_.at( i ).hash].push_back( i );
    std::optional<Distance> best;
    std::size_t bestSum = before + after;
    for ( std::size_t i = 0; i < before && i < bestSum; ++i ) {
        const auto found = places.find( before_.at( i ).hash );
        if ( found == places.end() )
            continue;
        std::size_t candidates = 0;
        for ( const std::size_t k : found->second ) {
            if ( i + k >= bestSum || ++candidates > maxCandidates )
                break;
            std::size_t length = 1;
            while ( length < meetingLength && i + length < before && k + length < after &&
                    before_.at( i + length ).hash == after_.at( k + length ).hash )
                ++length;
            const bool isToTheEnd = i + length == before && k + length == after &&
                                    before_.isAtEnd() && after_.isAtEnd();
            if ( length == meetingLength || isToTheEnd ) {
                best = { .before = i, .after = k };
                bestSum = i + k;
            }
        }
    }
    return best;
}

// Aligns so much of both sides by a longest common subsequence. Of steps that are there often, only
// the nearest are considered.
void Alignment::alignBlock( const Distance & block ) {
    std::unordered_map<std::uint64_t, std::vector<std::size_t>> places;
    for ( std::size_t i = 0; i < block.after; ++i )
        places[after_.at( i ).hash].push_back( i );
    std::vector<Pair> pairs;
    std::vector<std::size_t> lengths; // the last pairs of the subsequences of each length
    for ( std::size_t i = 0; i < block.before; ++i ) {
        const auto found = places.find( before_.at( i ).hash );
        if ( found == places.end() )
            continue;
        const std::vector<std::size_t> & all = found->second;
        const auto middle =
            static_cast<std::size_t>( std::lower_bound( all.begin(), all.end(), i ) - all.begin() );
        const std::size_t first = middle - std::min( middle, maxCandidates / 2 );
        const std::size_t end = std::min( all.size(), first + maxCandidates );
        // From the last one, so that no two of one step follow each other.
        for ( std::size_t k = end; k-- > first; ) {
            const auto longer = std::lower_bound(
                lengths.begin(), lengths.end(), all[k],
                [&]( std::size_t pair, std::size_t after ) { return pairs[pair].after < after; } );
            const std::ptrdiff_t previous =
                longer == lengths.begin() ? -1 : static_cast<std::ptrdiff_t>( *( longer - 1 ) );
            pairs.push_back( { .before = i, .after = all[k], .previous = previous } );
            if ( longer == lengths.end() )
                lengths.push_back( pairs.size() - 1 );
            else
                *longer = pairs.size() - 1;
        }
    }
    std::vector<Pair> common;
    for ( std::ptrdiff_t i = lengths.empty() ? -1 : static_cast<std::ptrdiff_t>( lengths.back() );
          i >= 0; i = pairs[static_cast<std::size_t>( i )].previous )
        common.push_back( pairs[static_cast<std::size_t>( i )] );
    std::size_t before = 0;
    std::size_t after = 0;
    const auto putUpTo = [&]( std::size_t beforeEnd, std::size_t afterEnd ) {
        for ( ; before < beforeEnd; ++before )
            putUnmatched( { .before = before_.take(), .after = {} } );
        for ( ; after < afterEnd; ++after )
            putUnmatched( { .before = {}, .after = after_.take() } );
    };
    std::reverse( common.begin(), common.end() );
    for ( const Pair & pair : common ) {
        putUpTo( pair.before, pair.after );
        putSame();
        ++before;
        ++after;
    }
    putUpTo( block.before, block.after );
}

void Alignment::putSame() {
    places_.push_back( { .before = before_.take(), .after = after_.take() } );
}

void Alignment::putUnmatched( AlignedStep step ) {
    const std::uint64_t hash = step.before ? step.before->hash : step.after->hash;
    auto & others = step.before ? added_ : removed_;
    const auto numbers = others.find( hash );
    const std::size_t candidates =
        numbers == others.end() ? 0 : std::min( numbers->second.size(), maxCandidates );
    for ( std::size_t i = 0; i < candidates; ++i ) {
        const auto other = numbers->second.begin() + static_cast<std::ptrdiff_t>( i );
        const auto place = static_cast<std::size_t>( *other - taken_ );
        AlignedStep & there = places_[place];
        AlignedStep both{ .before = step.before ? step.before : there.before,
                          .after = step.after ? step.after : there.after };
        if ( !mayHavePassed( both, place + 1 ) )
            continue;
        there = std::move( both );
        numbers->second.erase( other );
        if ( numbers->second.empty() )
            others.erase( numbers );
        ++reordered_;
        return;
    }
    ( step.before ? removed_ : added_ )[hash].push_back( taken_ + places_.size() );
    places_.push_back( std::move( step ) );
}

// Whether a step that moved past all from a place on was free to do so.
bool Alignment::mayHavePassed( const AlignedStep & moved, std::size_t from ) const {
    return std::none_of( places_.begin() + static_cast<std::ptrdiff_t>( from ), places_.end(),
                         [&]( const AlignedStep & place ) {
                             return place.isSame() &&
                                    place.before->thread == moved.before->thread &&
                                    place.after->thread == moved.after->thread;
                         } );
}

} // namespace Tool
