#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace TraceReader {

/// The bytes of a file, wherever they are. They are copied out, not mapped: a file that is cut
/// short while it is read must not stop the reader. Any number of them can be in use: a file on
/// disk is opened when it is read, and closed when others need its descriptor.
class Bytes {
  public:
    virtual ~Bytes() = default;

    /// Copies `size` bytes from `offset`, or as many as there are. Returns how many. Throws Error.
    virtual std::size_t read( std::uint64_t offset, void * to, std::size_t size ) const = 0;
    virtual std::uint64_t size() const = 0;

    /// Where the next bytes are that lie on disk, at `offset` or behind it; the size if there are
    /// none. What is between was never written and reads as zeros.
    virtual std::uint64_t nextData( std::uint64_t offset ) const = 0;

    /// Where the next such place begins, at `offset` or behind it; the size if there is none.
    virtual std::uint64_t nextHole( std::uint64_t offset ) const = 0;

    /// Whether a process holds a lock on the file; nothing if that cannot be told.
    virtual std::optional<bool> isLocked() const = 0;
};

/// Throws Error if the file cannot be opened.
std::unique_ptr<Bytes> openBytes( const std::string & path );
std::unique_ptr<Bytes> holdBytes( std::vector<std::byte> content );

} // namespace TraceReader
