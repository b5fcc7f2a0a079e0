#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <utility>
#include <vector>

// What a report shows: plain values, which pageOf() makes a page of.
//
// Calls, spans and messages may be millions, so they are small: their texts stand in one table and
// are told by numbers. Memory is bounded: of too many the oldest are dropped, and a report says so.

namespace Tool {

/// Texts, each once, fit to be shown: UTF-8 in one line. Number 0 is the empty text.
class ReportTexts {
  public:
    /// Beyond this many bytes a text is not kept; all such texts have one number.
    static constexpr std::size_t mostBytes = std::size_t( 48 ) << 20;

    ReportTexts();
    std::uint32_t add( std::string_view text );
    const std::string & operator[]( std::uint32_t number ) const { return *texts_[number]; }
    std::size_t size() const { return texts_.size(); }
    bool isFull() const { return tooMany_ != 0; }

  private:
    struct Hash {
        using is_transparent = void;
        std::size_t operator()( std::string_view text ) const {
            return std::hash<std::string_view>{}( text );
        }
    };
    std::unordered_map<std::string, std::uint32_t, Hash, std::equal_to<>> numbers_;
    std::vector<const std::string *> texts_;
    std::size_t bytes_ = 0;
    std::uint32_t tooMany_ = 0;
};

/// A list of which only the last `Most` are kept. Items are told by their places in the whole list.
template <class Item, std::size_t Most>
class ReportList {
  public:
    /// The place of the new item.
    std::size_t add( Item item ) {
        if ( items_.size() == Most ) {
            constexpr std::size_t part = Most / 8;
            items_.erase( items_.begin(), items_.begin() + part );
            dropped_ += part;
        }
        items_.push_back( item );
        return dropped_ + items_.size() - 1;
    }

    /// Null if it has been dropped.
    Item * find( std::size_t place ) {
        return place < dropped_ || place - dropped_ >= items_.size() ? nullptr
                                                                     : &items_[place - dropped_];
    }

    const std::vector<Item> & items() const { return items_; }
    std::size_t dropped() const { return dropped_; }
    /// With those that were dropped.
    std::size_t count() const { return dropped_ + items_.size(); }

  private:
    std::vector<Item> items_;
    std::size_t dropped_ = 0;
};

/// An SDK operation.
struct ReportCall {
    /// The page names them, in this order.
    static constexpr std::uint8_t neverReturned = 1; ///< its end is that of the report
    static constexpr std::uint8_t inputsLost = 2;
    static constexpr std::uint8_t hasValue = 4;
    static constexpr std::uint8_t stopped = 8; ///< guarded, and it failed: it stopped the process

    std::uint64_t number = 0; ///< as the other verbs count calls
    std::int64_t begin = 0;   ///< nanoseconds since 1970, UTC
    std::int64_t end = 0;
    std::uint64_t value = 0; ///< added, or read
    std::uint32_t thread = 0;
    std::uint32_t handle = 0;
    std::int32_t unit = -1;
    std::uint32_t table = 0; ///< text
    std::uint32_t field = 0; ///< text
    std::uint32_t arguments =
        0; ///< text: a symbol, the values of an array, an opcode and a priority
    std::int32_t rc = 0;
    std::uint32_t span = 0; ///< its place + 1; 0: none
    std::uint8_t operation = 0;
    std::uint8_t flags = 0;
};

/// Calls of a thread that belong together.
struct ReportSpan {
    enum class Kind : std::uint8_t {
        recipe, ///< a recipe, or another step of a bring-up
        entry,  ///< the recipe is not known: the life of an entry
    };
    Kind kind = Kind::entry;
    bool isBad = false; ///< it stopped the process, or did not return what it must
    std::uint32_t thread = 0;
    std::uint32_t name = 0;   ///< text: the recipe, or the table
    std::uint32_t detail = 0; ///< text: the step with its arguments; 0: not known
    std::int64_t begin = 0;
    std::int64_t end = 0;
};

struct ReportMessage {
    std::int64_t time = 0;
    std::uint32_t thread = 0;
    std::uint32_t recipe = 0; ///< text
    std::uint32_t text = 0;
};

/// A field of a row of a chip.
struct ReportCell {
    std::string text;
    bool isWritten = false; ///< by somebody, once
    /// What it held at the beginning, if that is another value.
    std::optional<std::string> before = {};
    /// What the hardware holds, if it is not what the SDK's cache does.
    std::optional<std::string> hardware = {};
    /// The place of the call that wrote it last, if one of the report did.
    std::optional<std::size_t> writer = {};
};

struct ReportRow {
    std::vector<std::string> place; ///< as the table has `placeNames`
    std::vector<ReportCell> cells;  ///< as it has `fields`
    bool isNew = false;             ///< there was no such row at the beginning
};

struct ReportTable {
    int unit = 0;
    std::string name;
    std::string kind;
    std::vector<std::string> placeNames;
    std::vector<std::string> fields;
    std::vector<ReportRow> rows;
    std::size_t rowsLeftOut = 0;
};

/// Rows of texts under heads: what a document holds.
struct ReportGrid {
    std::string title;
    std::vector<std::string> heads;
    std::vector<std::vector<std::string>> rows;
    std::vector<char> isBad; ///< by row: what is wanted by whoever looks for trouble
};

struct Report {
    enum class Ending {
        good,
        bad,
        unknown,
    };
    using Fact = std::pair<std::string, std::string>;
    static constexpr std::size_t mostCalls = std::size_t( 1 ) << 21;
    static constexpr std::size_t mostMessages = std::size_t( 1 ) << 20;

    /// What led to the stop, in the order in which it is read.
    struct Failure {
        std::string title;
        std::vector<Fact> facts;
        std::optional<std::size_t> call = {};
    };

    std::string kind;  ///< "Bring-up"
    std::string input; ///< what was named
    Ending ending = Ending::unknown;
    std::string endingText;
    std::vector<Fact> facts;
    std::vector<std::string> notes; ///< what is not known, or not shown
    std::optional<Failure> failure;

    ReportTexts texts;
    std::vector<std::string> threads;
    ReportList<ReportCall, mostCalls> calls;
    ReportList<ReportSpan, mostCalls> spans;
    ReportList<ReportMessage, mostMessages> messages;
    std::vector<ReportTable> tables;
    std::vector<ReportGrid> grids;
};

} // namespace Tool
