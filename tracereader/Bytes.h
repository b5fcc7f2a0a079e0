#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace TraceReader {

/// The bytes of a file, wherever they are. They are copied out, not mapped: a file that is cut
/// short while it is read must not stop the reader.
class Bytes {
  public:
    virtual ~Bytes() = default;

    /// Copies `size` bytes from `offset`, or as many as there are. Returns how many. Throws Error.
    virtual std::size_t read( std::uint64_t offset, void * to, std::size_t size ) const = 0;
    virtual std::uint64_t size() const = 0;
};

/// Throws Error if the file cannot be opened.
std::unique_ptr<Bytes> openBytes( const std::string & path );
std::unique_ptr<Bytes> holdBytes( std::vector<std::byte> content );

} // namespace TraceReader
