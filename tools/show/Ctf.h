#pragma once

#include "tracereader/Recording.h"

#include <array>
#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

// A trace in the Common Trace Format, version 1.8, which babeltrace2 and the viewers above it read.

namespace Tool {

/// Makes a stream of each trace file. A message is an event that is named after its site, with a field
/// for each value; a call is two, its begin and its end, with a field for each input and result.
///
/// Times of a stream never go back. Where those of a file do, the event has the time of the one before
/// it, and `behind` says by how many nanoseconds its own lies before that.
///
/// Events go out in packets. What is kept is one packet of each stream, and the place of the others.
class Ctf {
  public:
    /// Puts bytes into the file of that name, at an offset: at its end, or in place of what is there.
    using Write =
        std::function<void( const std::string & name, std::uint64_t offset, std::string_view )>;

    explicit Ctf( Write write );
    ~Ctf();

    /// Takes all events, in their order.
    void take( const TraceReader::Event & event, bool isWanted );

    /// When all events have been taken: writes what is left, and the metadata.
    void finish();

  private:
    struct Stream;

    void takeMessage( const TraceReader::Record & record );
    void takeCall( const TraceReader::Event & event );
    std::uint32_t classOf( const TraceReader::Site & site );
    std::uint32_t addClass( const std::string & declaration );
    void add( const TraceReader::Record & record, std::uint32_t eventClass );
    Stream & streamOf( const TraceReader::File & file );
    void beginPacket( Stream & stream );
    void endPacket( Stream & stream );
    void tellBeginning( Stream & stream, std::uint64_t first );
    void addOverwritten( Stream & stream );

    Write write_;
    std::unordered_map<const TraceReader::File *, Stream> streams_;
    std::map<std::string, std::uint32_t> classes_; ///< of events, by their declaration
    std::string declarations_;                     ///< of the classes
    std::unordered_map<const TraceReader::Site *, std::uint32_t> classesOfSites_;
    /// The begin and the end of each call, once it is declared.
    std::array<std::array<std::optional<std::uint32_t>, 2>, TraceReader::sdkCallCount>
        classesOfCalls_;
    std::vector<TraceReader::Value> values_; ///< of the record
    std::string payload_;                    ///< of the event
};

} // namespace Tool
