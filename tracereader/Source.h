#pragma once

#include "tracereader/Bytes.h"
#include "tracereader/TraceReader.h"

#include <cstdint>
#include <cstring>
#include <memory>
#include <string>
#include <unordered_set>
#include <utility>
#include <vector>

namespace TraceReader {

/// What the parts of a file have in common: its bytes, what its header says, what was found in it.
class Source {
  public:
    Source( std::unique_ptr<Bytes> from, std::string path ) : bytes( std::move( from ) ) {
        info.path = std::move( path );
    }

    void find( Finding::Kind kind, std::uint64_t offset, std::string what );
    void damage( std::uint64_t offset, std::string what ) {
        find( Finding::Kind::damage, offset, std::move( what ) );
    }

    const std::unique_ptr<Bytes> bytes;
    Info info;
    std::vector<Finding> findings;

  private:
    std::unordered_set<std::string> found_; ///< the findings, so that none is told twice
};

template <class Value>
Value load( const std::byte * at ) noexcept {
    Value value;
    std::memcpy( &value, at, sizeof value );
    return value;
}

} // namespace TraceReader
