#pragma once

#include "sim/Schema.h"
#include "sim/Words.h"

#include <cstddef>
#include <cstdint>
#include <unordered_map>
#include <vector>

// How the simulated chip keeps rows: packed into 64-bit words, found at a cost that does not grow
// with the table. Internal to the chip.
//
// A row image is an array of words: first a mask with a bit for each element, then the elements,
// none across a word boundary. Entries and rows have the same image, so that a commit merges one
// into the other.

namespace Sim {

/// The hash of a key. Keys that differ only in the last three bits of their last field share a
/// group and have neighbouring places in it: callers mostly visit rows in the order of their keys,
/// and then one cache line serves several visits.
struct KeyHash {
    static constexpr std::uint32_t groupMask = 7;
    std::uint64_t group;
    std::uint32_t place; // 0 to groupMask
};

/// Where the elements of a table stand in a row image. The elements of all fields are numbered
/// consecutively, in the order of the schema.
class Layout {
  public:
    explicit Layout( const Table & table );

    struct FieldPlace {
        const Field * field;
        std::uint32_t firstElement;
    };

    const std::vector<FieldPlace> & fields() const { return fields_; }
    std::uint32_t elementCount() const { return static_cast<std::uint32_t>( elements_.size() ); }
    const std::vector<std::uint32_t> & keyElements() const { return keyElements_; }
    const Field & fieldOf( std::uint32_t element ) const;

    /// Words of a row image, and of the mask at its beginning.
    std::uint32_t words() const { return words_; }
    std::uint32_t maskWords() const { return maskWords_; }

    std::uint64_t get( const std::uint64_t * row, std::uint32_t element ) const {
        const ElementPlace & place = elements_[element];
        return ( row[place.word] >> place.shift ) & place.mask;
    }

    /// Puts a value that fits into an element, and leaves the mask alone.
    void put( std::uint64_t * row, std::uint32_t element, std::uint64_t value ) const {
        const ElementPlace & place = elements_[element];
        std::uint64_t & word = row[place.word];
        word = ( word & ~( place.mask << place.shift ) ) | ( value << place.shift );
    }

    // The mask. Its first bits are flags of the whole row.
    static bool isPresent( const std::uint64_t * row ) { return ( row[0] & presentFlag ) != 0u; }
    static void setPresent( std::uint64_t * row ) { row[0] |= presentFlag; }
    static bool isTouched( const std::uint64_t * row ) { return ( row[0] & touchedFlag ) != 0u; }
    static void setTouched( std::uint64_t * row ) { row[0] |= touchedFlag; }
    static bool isMarked( const std::uint64_t * row, std::uint32_t element ) {
        const std::uint32_t bit = element + flagBits;
        return ( ( row[bit / 64] >> ( bit % 64 ) ) & 1 ) != 0u;
    }
    static void mark( std::uint64_t * row, std::uint32_t element ) {
        const std::uint32_t bit = element + flagBits;
        row[bit / 64] |= std::uint64_t( 1 ) << ( bit % 64 );
    }
    void markAll( std::uint64_t * row ) const;

    /// Copies the elements that `from`, which has no flags, has marked, and marks them in `to`.
    void merge( std::uint64_t * to, const std::uint64_t * from ) const;

    /// Fills the elements of an image with what they hold before anybody wrote them, or with their
    /// reset values, and clears the mask.
    void fillInitial( std::uint64_t * row ) const;
    void fillReset( std::uint64_t * row ) const;

    bool sameData( const std::uint64_t * a, const std::uint64_t * b ) const;
    bool sameKey( const std::uint64_t * a, const std::uint64_t * b ) const;
    KeyHash hashKey( const std::uint64_t * row ) const;

  private:
    static constexpr std::uint64_t presentFlag = 1;
    static constexpr std::uint64_t touchedFlag = 2;
    static constexpr std::uint32_t flagBits = 2;

    struct ElementPlace {
        std::uint64_t mask;
        std::uint32_t word;
        std::uint32_t shift;
    };
    // The bits of the key fields in one word of the image.
    struct KeyWord {
        std::uint64_t mask;
        std::uint64_t groupMask; // those of them that decide on the group of the key
        std::uint32_t word;
    };

    std::vector<FieldPlace> fields_;
    std::vector<ElementPlace> elements_;
    std::vector<std::uint32_t> keyElements_;
    std::vector<KeyWord> keyWords_;
    ElementPlace keyEnd_ = {}; // the last bits of the last key field
    std::vector<std::uint64_t> initialImage_;
    std::vector<std::uint64_t> resetImage_;
    std::uint32_t words_ = 0;
    std::uint32_t maskWords_;
};

/// The rows of a logical table: a hash table with the rows in its slots (linear probing, removal by
/// moving up what follows), so that finding a row touches one place in memory.
class HashedRows {
  public:
    explicit HashedRows( const Layout & layout ) : layout_( layout ) {}

    std::size_t size() const { return size_; }

    /// The row with the key of `like`, or null. Pointers live until the next insert or erase.
    std::uint64_t * find( const std::uint64_t * like );

    /// Adds a copy of `row`, marked present, unless there is a row with its key. Returns whether it
    /// was added.
    bool insert( const std::uint64_t * row );

    /// Removes a row that find() returned.
    void erase( std::uint64_t * row );

    void clear();

    /// All rows, in no useful order.
    std::vector<const std::uint64_t *> all() const;

  private:
    std::uint64_t * slot( std::size_t i ) { return words_.get() + i * layout_.words(); }
    const std::uint64_t * slot( std::size_t i ) const { return words_.get() + i * layout_.words(); }
    std::size_t home( const std::uint64_t * row ) const {
        const KeyHash hash = layout_.hashKey( row );
        return ( ( hash.group >> shift_ ) & ~std::size_t( KeyHash::groupMask ) ) | hash.place;
    }
    std::uint64_t * findSlot( const std::uint64_t * like );
    void grow();

    const Layout & layout_;
    Words words_;
    std::size_t slots_ = 0;    // a power of two, or 0
    std::uint32_t shift_ = 64; // brings a hash down to a slot
    std::size_t size_ = 0;
};

/// The rows of a physical table, numbered consecutively: pages of rows, made when a row of them is
/// first written. Where half of the pages of a block are there, the block becomes one piece of
/// memory, in large pages. The hardware's copy is kept only where it differs.
class PagedRows {
  public:
    explicit PagedRows( const Layout & layout );

    /// Rows that were written.
    std::size_t size() const { return size_; }

    /// The cached row, null if nobody wrote it.
    std::uint64_t * find( std::uint64_t number );
    const std::uint64_t * find( std::uint64_t number ) const;

    /// The cached row; if nobody wrote it, one with initial values is made and marked present and
    /// touched. Pointers to other rows live until then.
    std::uint64_t * findOrMake( std::uint64_t number );

    /// The row in the hardware if it differs from the cached one, else null.
    const std::uint64_t * hardware( std::uint64_t number ) const;
    /// Gives the hardware a row of its own, or, if `row` holds the same data as the cached one,
    /// takes it away.
    void setHardware( std::uint64_t number, const std::uint64_t * row );
    void dropHardware( std::uint64_t number );

    void clear();

    /// The numbers of the rows that were written, ascending.
    std::vector<std::uint64_t> numbers() const;

  private:
    // The memory of some consecutive pages: one piece for each, or one for all.
    struct Block {
        std::vector<Words> pages;
        Words whole;
    };

    std::uint64_t * rowIn( std::uint64_t page, std::uint64_t number ) const {
        const std::uint64_t row = number & ( ( std::uint64_t( 1 ) << pageShift_ ) - 1 );
        return pages_[page] + row * layout_.words();
    }
    std::size_t pageWords() const { return ( std::size_t( 1 ) << pageShift_ ) * layout_.words(); }
    void makePage( std::uint64_t page );
    void makeWhole( Block & block, std::uint64_t firstPage );

    const Layout & layout_;
    std::uint32_t pageShift_;            // rows of a page, as a power of two
    std::size_t pagesOfBlock_;           // as many as fill a large page
    std::vector<std::uint64_t *> pages_; // null where there is none
    std::vector<Block> blocks_;
    std::unordered_map<std::uint64_t, std::vector<std::uint64_t>> hardware_;
    std::size_t size_ = 0;
};

} // namespace Sim
