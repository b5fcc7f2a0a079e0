#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <unordered_map>
#include <utility>

// Which unit and table the handles of live entries belong to: a decorator sees the handle alone.
// Internal to the decorators, which guard it with a lock of their own.

namespace Interpose {

class HandleDirectory {
  public:
    struct Entry {
        int unit = -1;
        std::string table = {};
    };

    void add( uint32_t handle, int unit, std::string_view table ) {
        entries_.insert_or_assign( handle, Entry{ unit, std::string( table ) } );
    }

    /// Unit -1 and no table if the handle is not known.
    Entry find( uint32_t handle ) const {
        const auto it = entries_.find( handle );
        return it == entries_.end() ? Entry{} : it->second;
    }

    /// As find(), and forgets the handle. To be done before the entry is freed, after which another
    /// thread may be given the same handle; a free that fails is followed by add().
    Entry take( uint32_t handle ) {
        auto node = entries_.extract( handle );
        return node.empty() ? Entry{} : std::move( node.mapped() );
    }

  private:
    std::unordered_map<uint32_t, Entry> entries_;
};

} // namespace Interpose
