#pragma once

#include "tracereader/Recording.h"

#include <cstdint>
#include <string_view>
#include <unordered_map>

// Which recipe a thread is in, as far as a recording tells.

namespace Tool {

/// A recipe is known by a message that it wrote since the thread's entry before was freed. Many
/// recipes write none.
class RecipeOfThread {
  public:
    /// Takes all events, messages among them.
    void take( const TraceReader::Event & event );

    /// Empty if it is not known.
    std::string_view of( std::uint32_t thread ) const;

  private:
    struct Thread {
        std::string_view recipe;
        bool isOver = false; ///< an entry has been freed since
    };
    std::unordered_map<std::uint32_t, Thread> threads_;
    std::unordered_map<const TraceReader::Site *, std::string_view> recipesOfSites_;
};

} // namespace Tool
