#include "text/Columns.h"

#include <fmt/format.h>

#include <algorithm>
#include <iterator>
#include <utility>

namespace Text {

void Columns::add( Line cells ) {
    widths_.resize( std::max( widths_.size(), cells.size() ) );
    for ( std::size_t i = 0; i < cells.size(); ++i )
        widths_[i] = std::max( widths_[i], cells[i].size() );
    rows_.push_back( { std::move( cells ), false } );
}

void Columns::addRemark( std::string remark ) {
    rows_.push_back( { { std::move( remark ) }, true } );
}

std::size_t Columns::width( std::size_t columns ) const {
    std::size_t width = 0;
    for ( std::size_t i = 0; i < std::min( columns, widths_.size() ); ++i )
        width += 2 + widths_[i];
    return width;
}

std::string Columns::text() const {
    std::string text;
    for ( const Row & row : rows_ ) {
        for ( std::size_t i = 0; i < row.cells.size(); ++i )
            fmt::format_to( std::back_inserter( text ), "  {:{}}", row.cells[i],
                            row.isRemark ? 0 : widths_[i] );
        text.erase( text.find_last_not_of( ' ' ) + 1 );
        text += '\n';
    }
    return text;
}

} // namespace Text
