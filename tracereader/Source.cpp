#include "tracereader/Source.h"

#include <fmt/format.h>

namespace TraceReader {

void Source::find( Finding::Kind kind, std::uint64_t offset, std::string what ) {
    if ( findings.size() == File::maxFindings ||
         !found_.insert( fmt::format( "{}{}", offset, what ) ).second )
        return;
    if ( findings.size() == File::maxFindings - 1 )
        what = "and more: further findings are left out";
    findings.push_back( { kind, info.path, offset, std::move( what ) } );
}

} // namespace TraceReader
