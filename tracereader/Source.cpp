#include "tracereader/Source.h"

namespace TraceReader {

std::string count( std::uint64_t number, const char * what ) {
    return std::to_string( number ) + " " + what + ( number == 1 ? "" : "s" );
}

void Source::find( Finding::Kind kind, std::uint64_t offset, std::string what ) {
    if ( findings.size() == File::maxFindings ||
         !found_.insert( std::to_string( offset ) + what ).second )
        return;
    if ( findings.size() == File::maxFindings - 1 )
        what = "and more: further findings are left out";
    findings.push_back( { kind, info.path, offset, std::move( what ) } );
}

} // namespace TraceReader
