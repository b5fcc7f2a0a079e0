#include "tools/recording/StateDiff.h"

#include <fmt/format.h>

#include <cstddef>
#include <tuple>
#include <utility>

namespace Tool {

namespace {

using Kind = RowDifference::Kind;

auto orderOf( const Sim::RowImage & row ) {
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
                 ( left != before.end() && orderOf( *left ) < orderOf( *right ) ) ) {
                add( Kind::removed, *left, missing( after_, *left ) );
                ++left;
            } else if ( left == before.end() || orderOf( *right ) < orderOf( *left ) ) {
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

class Fields {
  public:
    explicit Fields( const RowDifference & difference )
        : difference_( difference ), table_( *difference.table ) {}

    std::vector<FieldDifference> run() {
        const auto differs = []( const std::optional<Sim::RowImage> & row ) {
            return row && !row->hardware.empty();
        };
        if ( differs( difference_.before ) || differs( difference_.after ) ) {
            compare( Sim::Copy::cache, Sim::Copy::cache );
            compare( Sim::Copy::hardware, Sim::Copy::hardware );
        } else {
            compare( Sim::Copy::cache, {} );
        }
        return std::move( fields_ );
    }

  private:
    using Value = FieldDifference::Value;

    // Of a row that is there on one side alone, the other side has nothing to show.
    static std::optional<Value> valueOf( const std::optional<Sim::RowImage> & row, Sim::Copy copy,
                                         std::size_t element ) {
        if ( !row )
            return {};
        const auto & values = copy == Sim::Copy::cache ? row->values : hardwareOf( *row );
        return Value{ values[element], row->written[element] };
    }

    void compare( Sim::Copy which, std::optional<Sim::Copy> shown ) {
        std::uint32_t element = 0;
        for ( const Sim::Field & field : table_.fields ) {
            for ( std::uint32_t i = 0; i < field.length; ++i, ++element ) {
                FieldDifference here{ .field = &field, .first = i, .last = i, .copy = shown };
                if ( difference_.kind != Kind::added )
                    here.before = valueOf( difference_.before, which, element );
                if ( difference_.kind != Kind::removed )
                    here.after = valueOf( difference_.after, which, element );
                const bool isSame =
                    here.before && here.after && here.before->value == here.after->value;
                if ( field.role == Sim::FieldRole::data && !isSame )
                    add( here );
            }
        }
    }

    void add( const FieldDifference & here ) {
        if ( !fields_.empty() ) {
            FieldDifference & last = fields_.back();
            if ( here.field == last.field && here.first == last.last + 1 &&
                 here.copy == last.copy && here.before == last.before &&
                 here.after == last.after ) {
                last.last = here.last;
                return;
            }
        }
        fields_.push_back( here );
    }

    const RowDifference & difference_;
    const Sim::Table & table_;
    std::vector<FieldDifference> fields_;
};

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

std::vector<PlacePart> placeOf( const Sim::Table & table, const Sim::RowId & id ) {
    std::vector<PlacePart> parts;
    if ( table.isPhysical() ) {
        if ( table.size.rows > 1 )
            parts.push_back( { .name = "index", .value = id.index } );
        if ( table.size.instances > 1 )
            parts.push_back( { .name = "instance", .value = id.instance } );
        if ( table.size.ports > 0 )
            parts.push_back( { .name = "port", .value = id.port } );
        return parts;
    }
    auto value = id.key.begin();
    for ( const Sim::Field & field : table.fields ) {
        if ( field.role == Sim::FieldRole::key )
            parts.push_back( { .name = field.name, .field = &field, .value = *value++ } );
    }
    return parts;
}

std::vector<FieldDifference> fieldsOf( const RowDifference & difference ) {
    return Fields( difference ).run();
}

} // namespace Tool
