#include "tools/recording/StateDifferences.h"

#include "text/Numbers.h"

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <utility>

namespace Tool {

namespace {

using Json = nlohmann::ordered_json;
using Kind = RowDifference::Kind;

const Sim::Symbol * symbolOf( const Sim::Field * field, std::uint64_t value ) {
    return field != nullptr ? field->findSymbol( value ) : nullptr;
}

std::string valueText( const Sim::Field * field, std::uint64_t value ) {
    const Sim::Symbol * symbol = symbolOf( field, value );
    return symbol != nullptr ? symbol->name : Text::numberForTable( value );
}

Json valueJson( const Sim::Field * field, std::uint64_t value ) {
    const Sim::Symbol * symbol = symbolOf( field, value );
    return symbol != nullptr ? Json( symbol->name ) : Json( value );
}

std::string fieldName( const FieldDifference & difference ) {
    const Sim::Field & field = *difference.field;
    if ( field.length == 1 )
        return field.name;
    return difference.first == difference.last
               ? fmt::format( "{}[{}]", field.name, difference.first )
               : fmt::format( "{}[{}..{}]", field.name, difference.first, difference.last );
}

std::string rowText( const RowDifference & row ) {
    static constexpr std::array<char, 3> marks = { '+', '-', ' ' };
    std::string text = fmt::format( "{} {}\n", marks[static_cast<std::size_t>( row.kind )],
                                    placeText( *row.table, row.id() ) );
    const std::vector<FieldDifference> fields = fieldsOf( row );
    std::size_t width = 0;
    for ( const FieldDifference & field : fields )
        width = std::max( width, fieldName( field ).size() );
    const auto addLine = [&]( char mark, const FieldDifference & field,
                              const FieldDifference::Value & value ) {
        const std::string shown = valueText( field.field, value.value );
        text += fmt::format( "{}   {:<{}}  {}{}\n", mark, fieldName( field ), width,
                             value.isWritten ? shown : "(" + shown + ")",
                             !field.copy                          ? ""
                             : *field.copy == Sim::Copy::hardware ? "  in the hardware"
                                                                  : "  in the SDK's cache" );
    };
    for ( const FieldDifference & field : fields ) {
        if ( field.before )
            addLine( '-', field, *field.before );
        if ( field.after )
            addLine( '+', field, *field.after );
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

Json rowJson( const RowDifference & row ) {
    Json place = Json::object();
    for ( const PlacePart & part : placeOf( *row.table, row.id() ) )
        place[std::string( part.name )] = valueJson( part.field, part.value );
    Json fields = Json::array();
    for ( const FieldDifference & difference : fieldsOf( row ) ) {
        for ( std::uint32_t i = difference.first; i <= difference.last; ++i ) {
            Json field{ { "field", difference.field->name } };
            if ( difference.field->length > 1 )
                field["element"] = i;
            if ( difference.copy )
                field["copy"] = *difference.copy == Sim::Copy::hardware ? "hardware" : "cache";
            if ( difference.before )
                field["before"] = valueJson( difference.field, difference.before->value );
            if ( difference.after )
                field["after"] = valueJson( difference.field, difference.after->value );
            fields.push_back( std::move( field ) );
        }
    }
    return { { "unit", row.unit },
             { "table", row.table->name },
             { "place", std::move( place ) },
             { "change", kindWord( row.kind ) },
             { "fields", std::move( fields ) } };
}

} // namespace

std::string placeText( const Sim::Table & table, const Sim::RowId & id ) {
    std::string text;
    for ( const PlacePart & part : placeOf( table, id ) )
        text += fmt::format( "{}{} {}", text.empty() ? "" : ", ", part.name,
                             valueText( part.field, part.value ) );
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
    return text + fmt::format( "{} added, {} removed, {} changed\n", Text::counted( added, "row" ),
                               removed, changed );
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
