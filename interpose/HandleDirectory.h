#pragma once

#include "interpose/Operation.h"

#include <functional>
#include <mutex>
#include <set>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

// The unit and the table of each live entry, by its handle: most operations name the handle alone.
// Internal to the interposers. Any thread may use it. Nothing is allocated for an entry of a table that
// is known, if there have been as many at a time before.

namespace Interpose {

class HandleDirectory {
  public:
    struct Entry {
        int unit = -1;
        std::string_view table = {}; ///< lives as long as the operation and the directory
    };

    /// `sdk` must outlive the directory; it is asked for BCMLT_INVALID_HDL here.
    explicit HandleDirectory( Shim::Sdk & sdk )
        : sdk_( sdk ), invalidHandle_( sdk.BCMLT_INVALID_HDL() ) {}

    std::uint32_t invalidHandle() const { return invalidHandle_; }

    /// The unit and the table of an operation: those that an allocate names, or those of the entry;
    /// unit -1 and no table if the handle is not known.
    Entry find( const Operation & operation ) const;

    /// Performs an operation on the SDK and keeps the directory up to date.
    int perform( const Operation & operation );

  private:
    void add( std::uint32_t handle, int unit, std::string_view table );

    Shim::Sdk & sdk_;
    const std::uint32_t invalidHandle_;
    mutable std::mutex mutex_;
    using Entries = std::unordered_map<std::uint32_t, Entry>;
    Entries entries_;
    std::vector<Entries::node_type> spare_; ///< of entries that were freed, for the next
    std::set<std::string, std::less<>> tables_;
};

} // namespace Interpose
