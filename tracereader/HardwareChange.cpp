#include "tracereader/Recording.h"

#include <Fleetlog/CallFormat.h>

#include <vector>

namespace TraceReader {

std::optional<HardwareChange> hardwareChangeOf( const Record & record ) {
    namespace Layout = Fleetlog::Format;
    // A later version may have more values behind those that are known.
    if ( record.site == nullptr || record.site->function != Layout::hardwareName ||
         record.site->file != Layout::hardwareSource ||
         !record.site->letters.starts_with( Layout::hardwareLetters ) )
        return {};
    std::vector<Value> values;
    decode( record, values );
    return HardwareChange{ .unit = static_cast<std::int32_t>( values[0].number ),
                           .index = values[1].number,
                           .instance = values[2].number,
                           .port = values[3].number,
                           .table = values[4].text,
                           .field = values[5].text,
                           .element = values[6].number,
                           .value = values[7].wide };
}

} // namespace TraceReader
