#include "tools/recording/StateDiff.h"

#include "text/Numbers.h"

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <array>
#include <tuple>
#include <utility>

namespace Tool {

namespace {

using Json = nlohmann::ordered_json;
using Kind = RowDifference::Kind;

// --- Finding differences

auto placeOf( const Sim::RowImage & row ) {
    return std::tie( row.id.key, row.id.instance, row.id.port, row.id.index );
}

bool isSame( const Sim::RowImage & before, const Sim::RowImage & after ) {
    return before.values == after.values && hardwareOf( before ) == hardwareOf( after );
}

class TableComparison {
  public:
    TableComparison( const Sim::Chip & before, const Sim::Chip & after, int unit,
                     const Sim::Table & table, std::vector<RowDifference> & differences )
        : before_( before ), after_( after ), unit_( unit ), table_( table ),
          differences_( differences ) {}

    // Both chips give their rows in the order of their places.
    void run() {
        const auto before = before_.rows( unit_, table_.name, Sim::Rows::stored );
        const auto after = after_.rows( unit_, table_.name, Sim::Rows::stored );
        auto left = before.begin();
        auto right = after.begin();
        while ( left != before.end() || right != after.end() ) {
            if ( right == after.end() ||
                 ( left != before.end() && placeOf( *left ) < placeOf( *right ) ) ) {
                add( Kind::removed, *left, missing( after_, *left ) );
                ++left;
            } else if ( left == before.end() || placeOf( *right ) < placeOf( *left ) ) {
                add( Kind::added, missing( before_, *right ), *right );
                ++right;
            } else {
                add( Kind::changed, *left++, *right++ );
            }
        }
    }

  private:
    // What a chip has in the place of a row that only the other chip stores.
    std::optional<Sim::RowImage> missing( const Sim::Chip & chip,
                                          const Sim::RowImage & other ) const {
        return table_.isPhysical() ? chip.row( unit_, table_.name, other.id ) : std::nullopt;
    }

    void add( Kind kind, std::optional<Sim::RowImage> before, std::optional<Sim::RowImage> after ) {
        if ( before && after && isSame( *before, *after ) )
            return;
        differences_.push_back( { .kind = kind,
                                  .unit = unit_,
                                  .table = &table_,
                                  .before = std::move( before ),
                                  .after = std::move( after ) } );
    }

    const Sim::Chip & before_;
    const Sim::Chip & after_;
    int unit_;
    const Sim::Table & table_;
    std::vector<RowDifference> & differences_;
};

// --- Showing them

std::string valueText( const Sim::Field & field, std::uint64_t value ) {
    const Sim::Symbol * symbol = field.findSymbol( value );
    return symbol != nullptr ? symbol->name : Text::numberForTable( value );
}

Json valueJson( const Sim::Field & field, std::uint64_t value ) {
    const Sim::Symbol * symbol = field.findSymbol( value );
    return symbol != nullptr ? Json( symbol->name ) : Json( value );
}

// What addresses a row, where there is more than one.
template <class Add>
void forEachPart( const Sim::Table & table, const Sim::RowId & id, const Add & add ) {
    const Sim::Field number{ .name = "" };
    if ( table.isPhysical() ) {
        if ( table.size.rows > 1 )
            add( "index", number, id.index );
        if ( table.size.instances > 1 )
            add( "instance", number, id.instance );
        if ( table.size.ports > 0 )
            add( "port", number, id.port );
        return;
    }
    auto value = id.key.begin();
    for ( const Sim::Field & field : table.fields ) {
        if ( field.role == Sim::FieldRole::key )
            add( field.name, field, *value++ );
    }
}

// A field, or neighbours in an array, whose values changed alike.
struct Change {
    const Sim::Field * field = nullptr;
    std::uint32_t first = 0;
    std::uint32_t last = 0;
    std::optional<Sim::Copy> copy = {}; // if the two copies differ
    std::optional<std::uint64_t> before = {};
    std::optional<std::uint64_t> after = {};
    bool isWrittenBefore = false;
    bool isWrittenAfter = false;

    bool continues( const Change & previous ) const {
        return field == previous.field && first == previous.last + 1 && copy == previous.copy &&
               before == previous.before && after == previous.after &&
               isWrittenBefore == previous.isWrittenBefore &&
               isWrittenAfter == previous.isWrittenAfter;
    }
};

class Changes {
  public:
    explicit Changes( const RowDifference & difference )
        : difference_( difference ), table_( *difference.table ) {}

    std::vector<Change> run() {
        const auto differs = []( const std::optional<Sim::RowImage> & row ) {
            return row && !row->hardware.empty();
        };
        if ( differs( difference_.before ) || differs( difference_.after ) ) {
            compare( Sim::Copy::cache, Sim::Copy::cache );
            compare( Sim::Copy::hardware, Sim::Copy::hardware );
        } else {
            compare( Sim::Copy::cache, {} );
        }
        return std::move( changes_ );
    }

  private:
    void compare( Sim::Copy which, std::optional<Sim::Copy> shown ) {
        const auto values =
            [which]( const std::optional<Sim::RowImage> & row ) -> const std::uint64_t * {
            if ( !row )
                return nullptr;
            return ( which == Sim::Copy::cache ? row->values : hardwareOf( *row ) ).data();
        };
        const std::uint64_t * before = values( difference_.before );
        const std::uint64_t * after = values( difference_.after );
        std::uint32_t element = 0;
        for ( const Sim::Field & field : table_.fields ) {
            // The key of a logical row stands in its place.
            const bool isKey = field.role == Sim::FieldRole::key;
            for ( std::uint32_t i = 0; i < field.length; ++i, ++element ) {
                if ( isKey || ( isWhole( before, after ) && before[element] == after[element] ) )
                    continue;
                Change change{ .field = &field, .first = i, .last = i, .copy = shown };
                if ( before != nullptr && difference_.kind != Kind::added ) {
                    change.before = before[element];
                    change.isWrittenBefore = difference_.before->written[element];
                }
                if ( after != nullptr && difference_.kind != Kind::removed ) {
                    change.after = after[element];
                    change.isWrittenAfter = difference_.after->written[element];
                }
                if ( !changes_.empty() && change.continues( changes_.back() ) )
                    changes_.back().last = i;
                else
                    changes_.push_back( std::move( change ) );
            }
        }
    }

    // Of rows that are there on one side alone, all fields are shown.
    bool isWhole( const std::uint64_t * before, const std::uint64_t * after ) const {
        return before != nullptr && after != nullptr && difference_.kind == Kind::changed;
    }

    const RowDifference & difference_;
    const Sim::Table & table_;
    std::vector<Change> changes_;
};

std::string fieldName( const Change & change ) {
    if ( change.field->length == 1 )
        return change.field->name;
    return change.first == change.last
               ? fmt::format( "{}[{}]", change.field->name, change.first )
               : fmt::format( "{}[{}..{}]", change.field->name, change.first, change.last );
}

std::string rowText( const RowDifference & difference ) {
    static constexpr std::array<char, 3> marks = { '+', '-', ' ' };
    std::string text = fmt::format( "{} {}\n", marks[static_cast<std::size_t>( difference.kind )],
                                    placeText( *difference.table, difference.id() ) );
    const std::vector<Change> changes = Changes( difference ).run();
    std::size_t width = 0;
    for ( const Change & change : changes )
        width = std::max( width, fieldName( change ).size() );
    const auto addLine = [&]( char mark, const Change & change, std::uint64_t value,
                              bool isWritten ) {
        const std::string shown = valueText( *change.field, value );
        text += fmt::format( "{}   {:<{}}  {}{}\n", mark, fieldName( change ), width,
                             isWritten ? shown : "(" + shown + ")",
                             !change.copy                          ? ""
                             : *change.copy == Sim::Copy::hardware ? "  in the hardware"
                                                                   : "  in the SDK's cache" );
    };
    for ( const Change & change : changes ) {
        if ( change.before )
            addLine( '-', change, *change.before, change.isWrittenBefore );
        if ( change.after )
            addLine( '+', change, *change.after, change.isWrittenAfter );
    }
    return text;
}

const char * kindWord( Kind kind ) {
    static constexpr std::array words = { "added", "removed", "changed" };
    return words[static_cast<std::size_t>( kind )];
}

std::array<std::size_t, 3> countsOf( const std::vector<RowDifference> & differences ) {
    std::array<std::size_t, 3> counts{};
    for ( const RowDifference & difference : differences )
        ++counts[static_cast<std::size_t>( difference.kind )];
    return counts;
}

Json rowJson( const RowDifference & difference ) {
    Json place = Json::object();
    forEachPart( *difference.table, difference.id(),
                 [&]( const std::string & name, const Sim::Field & field, std::uint64_t value ) {
                     place[name] = valueJson( field, value );
                 } );
    Json fields = Json::array();
    for ( const Change & change : Changes( difference ).run() ) {
        for ( std::uint32_t i = change.first; i <= change.last; ++i ) {
            Json field{ { "field", change.field->name } };
            if ( change.field->length > 1 )
                field["element"] = i;
            if ( change.copy )
                field["copy"] = *change.copy == Sim::Copy::hardware ? "hardware" : "cache";
            if ( change.before )
                field["before"] = valueJson( *change.field, *change.before );
            if ( change.after )
                field["after"] = valueJson( *change.field, *change.after );
            fields.push_back( std::move( field ) );
        }
    }
    return { { "unit", difference.unit },
             { "table", difference.table->name },
             { "place", std::move( place ) },
             { "change", kindWord( difference.kind ) },
             { "fields", std::move( fields ) } };
}

} // namespace

const std::vector<std::uint64_t> & hardwareOf( const Sim::RowImage & row ) {
    return row.hardware.empty() ? row.values : row.hardware;
}

std::string incomparable( const Sim::Chip & before, const Sim::Chip & after ) {
    for ( const auto & [one, other, side] :
          { std::tuple{ &before, &after, "first" }, std::tuple{ &after, &before, "second" } } ) {
        for ( const int unit : one->units() ) {
            if ( other->schema( unit ) == nullptr )
                return fmt::format( "unit {} is in the {} alone", unit, side );
            for ( const Sim::Table & table : one->schema( unit )->tables() ) {
                const Sim::Table * found = other->schema( unit )->find( table.name );
                if ( found == nullptr )
                    return fmt::format( "unit {}: table {} is in the {} alone", unit, table.name,
                                        side );
                if ( !( *found == table ) )
                    return fmt::format( "unit {}: table {} is not described alike in both", unit,
                                        table.name );
            }
        }
    }
    return {};
}

std::vector<RowDifference> differencesOf( const Sim::Chip & before, const Sim::Chip & after ) {
    std::vector<RowDifference> differences;
    for ( const int unit : before.units() ) {
        for ( const Sim::Table & table : before.schema( unit )->tables() )
            TableComparison( before, after, unit, table, differences ).run();
    }
    return differences;
}

std::string placeText( const Sim::Table & table, const Sim::RowId & id ) {
    std::string text;
    forEachPart(
        table, id, [&]( const std::string & name, const Sim::Field & field, std::uint64_t value ) {
            text +=
                fmt::format( "{}{} {}", text.empty() ? "" : ", ", name, valueText( field, value ) );
        } );
    return text.empty() ? "the only row" : text;
}

std::string differencesText( const std::vector<RowDifference> & differences ) {
    std::string text;
    const RowDifference * previous = nullptr;
    for ( const RowDifference & difference : differences ) {
        if ( previous == nullptr || previous->table != difference.table )
            text += fmt::format( "{}  unit {}, {}\n", difference.table->name, difference.unit,
                                 Sim::kindName( difference.table->kind ) );
        text += rowText( difference );
        previous = &difference;
    }
    const auto [added, removed, changed] = countsOf( differences );
    return text + fmt::format( "{} row{} added, {} removed, {} changed\n", added,
                               added == 1 ? "" : "s", removed, changed );
}

Json differencesJson( const std::vector<RowDifference> & differences ) {
    const auto [added, removed, changed] = countsOf( differences );
    Json rows = Json::array();
    for ( const RowDifference & difference : differences )
        rows.push_back( rowJson( difference ) );
    return { { "different", !differences.empty() },
             { "added", added },
             { "removed", removed },
             { "changed", changed },
             { "rows", std::move( rows ) } };
}

} // namespace Tool
