#include "tools/show/Report.h"

#include "text/Escape.h"

namespace Tool {

ReportTexts::ReportTexts() { add( {} ); }

std::uint32_t ReportTexts::add( std::string_view text ) {
    if ( const auto known = numbers_.find( text ); known != numbers_.end() )
        return known->second;
    if ( bytes_ + text.size() > mostBytes ) {
        if ( tooMany_ == 0 ) {
            bytes_ = 0;
            tooMany_ = add( "(too many texts: this one is not kept)" );
            bytes_ = mostBytes;
        }
        return tooMany_;
    }
    const auto number = static_cast<std::uint32_t>( texts_.size() );
    bytes_ += text.size();
    texts_.push_back( &numbers_.emplace( text, number ).first->first );
    return number;
}

} // namespace Tool
