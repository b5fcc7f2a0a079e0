#pragma once

#include "interpose/Event.h"

#include <nlohmann/json.hpp>

#include <string>

// Recorded SDK calls, as the Python layer takes them.

namespace Python {

inline nlohmann::ordered_json toJson( const Interpose::Event & event ) {
    using Interpose::SdkCall;
    const bool isCommit =
        event.call == SdkCall::entryCommit || event.call == SdkCall::ptEntryCommit;
    const bool isAttribute = event.call == SdkCall::entryAttribSet;
    return {
        { "call", name( event.call ) },
        { "handle", event.handle },
        { "unit", event.unit },
        { "table", event.table },
        { "field", event.field },
        { "symbol", event.symbol },
        { "values", event.values },
        { "start_index", event.startIndex },
        { "count", event.count },
        { "opcode", isCommit ? toText( event.opcode ) : "" },
        { "priority", isCommit ? toText( event.priority ) : "" },
        { "attribute", isAttribute ? toText( event.attribute ) : "" },
        { "rc", event.rc },
        { "returned", event.returned },
        { "text", toText( event ) },
    };
}

/// In one line; bytes that are no UTF-8 are replaced.
inline std::string toLine( const nlohmann::ordered_json & json ) {
    return json.dump( -1, ' ', true, nlohmann::ordered_json::error_handler_t::replace );
}

} // namespace Python
