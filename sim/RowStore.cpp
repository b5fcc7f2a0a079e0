#include "sim/RowStore.h"

#include <algorithm>
#include <bit>
#include <iterator>
#include <utility>

namespace Sim {

Layout::Layout( const Table & table )
    : maskWords_( ( flagBits + table.elementCount() + 63 ) / 64 ) {
    elements_.reserve( table.elementCount() );
    std::uint32_t word = maskWords_;
    std::uint32_t shift = 0;
    for ( const Field & field : table.fields ) {
        fields_.push_back( { &field, elementCount() } );
        for ( std::uint32_t i = 0; i < field.length; ++i ) {
            if ( shift + field.width > 64 ) {
                ++word;
                shift = 0;
            }
            if ( field.role == FieldRole::key ) {
                keyElements_.push_back( elementCount() );
                if ( keyWords_.empty() || keyWords_.back().word != word )
                    keyWords_.push_back( { 0, 0, word } );
                keyWords_.back().mask |= field.maximum() << shift;
            }
            elements_.push_back( { field.maximum(), word, shift } );
            shift += field.width;
        }
    }
    words_ = word + 1;

    // What is left of the key for the group.
    for ( KeyWord & key : keyWords_ )
        key.groupMask = key.mask;
    if ( !keyElements_.empty() ) {
        keyEnd_ = elements_[keyElements_.back()];
        keyEnd_.mask &= KeyHash::groupMask;
        keyWords_.back().groupMask &= ~( keyEnd_.mask << keyEnd_.shift );
    }

    initialImage_.assign( words_, 0 );
    resetImage_.assign( words_, 0 );
    for ( const FieldPlace & place : fields_ ) {
        for ( std::uint32_t i = 0; i < place.field->length; ++i ) {
            put( initialImage_.data(), place.firstElement + i, place.field->initial() );
            put( resetImage_.data(), place.firstElement + i, place.field->reset );
        }
    }
}

const Field & Layout::fieldOf( std::uint32_t element ) const {
    const auto behind =
        std::find_if( fields_.begin(), fields_.end(),
                      [&]( const FieldPlace & place ) { return place.firstElement > element; } );
    return *std::prev( behind )->field;
}

void Layout::markAll( std::uint64_t * row ) const {
    for ( std::uint32_t element = 0; element < elementCount(); ++element )
        mark( row, element );
}

void Layout::merge( std::uint64_t * to, const std::uint64_t * from ) const {
    for ( std::uint32_t maskWord = 0; maskWord < maskWords_; ++maskWord ) {
        std::uint64_t marked = from[maskWord];
        to[maskWord] |= marked;
        for ( ; marked != 0; marked &= marked - 1 ) {
            const std::uint32_t bit =
                maskWord * 64 + static_cast<std::uint32_t>( std::countr_zero( marked ) );
            put( to, bit - flagBits, get( from, bit - flagBits ) );
        }
    }
}

void Layout::fillInitial( std::uint64_t * row ) const {
    std::copy( initialImage_.begin(), initialImage_.end(), row );
}

void Layout::fillReset( std::uint64_t * row ) const {
    std::copy( resetImage_.begin(), resetImage_.end(), row );
}

bool Layout::sameData( const std::uint64_t * a, const std::uint64_t * b ) const {
    return std::equal( a + maskWords_, a + words_, b + maskWords_ );
}

bool Layout::sameKey( const std::uint64_t * a, const std::uint64_t * b ) const {
    for ( const KeyWord & key : keyWords_ ) {
        if ( ( a[key.word] ^ b[key.word] ) & key.mask )
            return false;
    }
    return true;
}

KeyHash Layout::hashKey( const std::uint64_t * row ) const {
    // Multiplying spreads each key bit over the bits above it; the fold brings them down again for
    // the next round. Groups are taken from the top bits, which depend on all key bits.
    constexpr std::uint64_t factor = 0x9E37'79B9'7F4A'7C15;
    std::uint64_t hash = 0;
    for ( const KeyWord & key : keyWords_ ) {
        hash = ( hash ^ ( row[key.word] & key.groupMask ) ) * factor;
        hash ^= hash >> 32;
    }
    const std::uint64_t end = ( row[keyEnd_.word] >> keyEnd_.shift ) & keyEnd_.mask;
    return { hash * factor, static_cast<std::uint32_t>( end ) };
}

// The slot of the row with the key of `like`, or the free one where it would go.
std::uint64_t * HashedRows::findSlot( const std::uint64_t * like ) {
    std::size_t i = home( like );
    while ( Layout::isPresent( slot( i ) ) && !layout_.sameKey( slot( i ), like ) )
        i = ( i + 1 ) & ( slots_ - 1 );
    return slot( i );
}

std::uint64_t * HashedRows::find( const std::uint64_t * like ) {
    if ( slots_ == 0 )
        return nullptr;
    std::uint64_t * found = findSlot( like );
    return Layout::isPresent( found ) ? found : nullptr;
}

bool HashedRows::insert( const std::uint64_t * row ) {
    // A third of the slots stays free, which keeps probes short.
    if ( ( size_ + 1 ) * 3 > slots_ * 2 )
        grow();
    std::uint64_t * place = findSlot( row );
    if ( Layout::isPresent( place ) )
        return false;
    std::copy_n( row, layout_.words(), place );
    Layout::setPresent( place );
    ++size_;
    return true;
}

void HashedRows::grow() {
    const std::size_t newSlots = std::max<std::size_t>( 8, slots_ * 2 );
    Words old( newSlots * layout_.words() ); // may throw; nothing has changed by then
    const std::size_t oldSlots = std::exchange( slots_, newSlots );
    std::swap( words_, old );
    shift_ = 64 - static_cast<std::uint32_t>( std::countr_zero( slots_ ) );
    for ( std::size_t i = 0; i < oldSlots; ++i ) {
        const std::uint64_t * row = old.get() + i * layout_.words();
        if ( Layout::isPresent( row ) )
            std::copy_n( row, layout_.words(), findSlot( row ) );
    }
}

void HashedRows::erase( std::uint64_t * row ) {
    const std::size_t stride = layout_.words();
    std::size_t hole = static_cast<std::size_t>( row - words_.get() ) / stride;
    for ( std::size_t i = ( hole + 1 ) & ( slots_ - 1 ); Layout::isPresent( slot( i ) );
          i = ( i + 1 ) & ( slots_ - 1 ) ) {
        // A row may move up into the hole unless its home lies behind the hole.
        const std::size_t fromHome = ( i - home( slot( i ) ) ) & ( slots_ - 1 );
        const std::size_t fromHole = ( i - hole ) & ( slots_ - 1 );
        if ( fromHome >= fromHole ) {
            std::copy_n( slot( i ), stride, slot( hole ) );
            hole = i;
        }
    }
    std::fill_n( slot( hole ), stride, 0 );
    --size_;
}

void HashedRows::clear() {
    words_ = {};
    slots_ = 0;
    shift_ = 64;
    size_ = 0;
}

std::vector<const std::uint64_t *> HashedRows::all() const {
    std::vector<const std::uint64_t *> rows;
    rows.reserve( size_ );
    for ( std::size_t i = 0; i < slots_; ++i ) {
        if ( Layout::isPresent( slot( i ) ) )
            rows.push_back( slot( i ) );
    }
    return rows;
}

PagedRows::PagedRows( const Layout & layout ) : layout_( layout ) {
    // Pages of about 4 KiB, and of one row where a row is larger.
    const std::size_t rowsPerPage = 4096 / ( layout.words() * sizeof( std::uint64_t ) );
    pageShift_ =
        rowsPerPage < 2 ? 0 : static_cast<std::uint32_t>( std::bit_width( rowsPerPage ) - 1 );
    const std::size_t pageBytes = pageWords() * sizeof( std::uint64_t );
    pagesOfBlock_ = ( Words::largePage + pageBytes - 1 ) / pageBytes;
}

const std::uint64_t * PagedRows::find( std::uint64_t number ) const {
    const std::uint64_t page = number >> pageShift_;
    if ( page >= pages_.size() || pages_[page] == nullptr )
        return nullptr;
    const std::uint64_t * found = rowIn( page, number );
    return Layout::isPresent( found ) ? found : nullptr;
}

std::uint64_t * PagedRows::find( std::uint64_t number ) {
    return const_cast<std::uint64_t *>( std::as_const( *this ).find( number ) );
}

std::uint64_t * PagedRows::findOrMake( std::uint64_t number ) {
    if ( std::uint64_t * found = find( number ) )
        return found;
    const std::uint64_t page = number >> pageShift_;
    if ( page >= pages_.size() || pages_[page] == nullptr )
        makePage( page );
    std::uint64_t * made = rowIn( page, number );
    layout_.fillInitial( made );
    Layout::setPresent( made );
    Layout::setTouched( made );
    ++size_;
    return made;
}

void PagedRows::makePage( std::uint64_t page ) {
    const std::size_t number = page / pagesOfBlock_;
    if ( number >= blocks_.size() )
        blocks_.resize( number + 1 );
    if ( page >= pages_.size() )
        pages_.resize( page + 1 );
    Block & block = blocks_[number];
    if ( block.pages.size() >= pagesOfBlock_ / 2 ) {
        makeWhole( block, number * pagesOfBlock_ );
    } else {
        pages_[page] = block.pages.emplace_back( pageWords() ).get();
    }
}

void PagedRows::makeWhole( Block & block, std::uint64_t firstPage ) {
    const std::uint64_t end = firstPage + pagesOfBlock_;
    if ( end > pages_.size() )
        pages_.resize( end );
    block.whole = Words( pagesOfBlock_ * pageWords() );
    std::uint64_t * to = block.whole.get();
    for ( std::uint64_t page = firstPage; page < end; ++page, to += pageWords() ) {
        if ( pages_[page] != nullptr )
            std::copy_n( pages_[page], pageWords(), to );
        pages_[page] = to;
    }
    block.pages = std::vector<Words>();
}

const std::uint64_t * PagedRows::hardware( std::uint64_t number ) const {
    if ( hardware_.empty() )
        return nullptr;
    const auto it = hardware_.find( number );
    return it == hardware_.end() ? nullptr : it->second.data();
}

void PagedRows::setHardware( std::uint64_t number, const std::uint64_t * row ) {
    if ( layout_.sameData( row, findOrMake( number ) ) ) {
        dropHardware( number );
    } else {
        hardware_[number].assign( row, row + layout_.words() );
    }
}

void PagedRows::dropHardware( std::uint64_t number ) {
    if ( !hardware_.empty() )
        hardware_.erase( number );
}

void PagedRows::clear() {
    pages_.clear();
    blocks_.clear();
    hardware_.clear();
    size_ = 0;
}

std::vector<std::uint64_t> PagedRows::numbers() const {
    std::vector<std::uint64_t> numbers;
    numbers.reserve( size_ );
    for ( std::uint64_t page = 0; page < pages_.size(); ++page ) {
        if ( pages_[page] == nullptr )
            continue;
        for ( std::uint64_t row = 0; row < std::uint64_t( 1 ) << pageShift_; ++row ) {
            const std::uint64_t number = ( page << pageShift_ ) + row;
            if ( find( number ) != nullptr )
                numbers.push_back( number );
        }
    }
    return numbers;
}

} // namespace Sim
