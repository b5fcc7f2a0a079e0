#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>

namespace Sim {

/// An array of words that are zero at first. From largePage bytes on it stands in large pages, if
/// the system has them: then a visit at random costs one access to memory, and none for finding
/// where the page is.
class Words {
  public:
    static constexpr std::size_t largePage = std::size_t( 2 ) << 20; ///< bytes

    Words() = default;
    /// Throws std::bad_alloc.
    explicit Words( std::size_t count );

    std::uint64_t * get() const { return words_.get(); }
    explicit operator bool() const { return words_ != nullptr; }

  private:
    struct Free {
        std::size_t mapped; // bytes; 0: made by new
        void operator()( std::uint64_t * words ) const;
    };

    std::unique_ptr<std::uint64_t[], Free> words_{ nullptr, Free{ 0 } };
};

} // namespace Sim
