#pragma once

#include "tracereader/Header.h"
#include "tracereader/Source.h"

#include <Fleetlog/Format.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <optional>
#include <span>
#include <unordered_map>

namespace TraceReader {

/// The message sites of a file, from its descriptors.
class Sites {
  public:
    Sites( Source & source, const Header & header );

    /// Reads what was registered since the last call. The list is in one piece: what follows a
    /// descriptor with a damaged size cannot be found.
    void read();

    /// The site of a record; null if it has no descriptor that can be read, or does not fit it, which
    /// is a finding.
    const Site * match( std::uint32_t id, std::span<const std::byte> payload,
                        std::uint64_t offset );

    const std::deque<Site> & all() const noexcept { return sites_; }

  private:
    // What reading needs to know of a site.
    struct Plan {
        const Site * site = nullptr;
        bool isReported = false;                ///< that there is no site
        std::optional<std::size_t> payloadSize; ///< if it is always the same
    };

    // A site whose records came lately, so that most are found without a search.
    struct Recent {
        std::uint32_t id = 0;
        Plan * plan = nullptr; ///< null: none
    };

    bool addSite( const Fleetlog::Format::DescriptorHeader & header,
                  std::span<const std::byte> texts );
    Plan & plan( std::uint32_t id );
    bool isSound( const Plan & plan, std::span<const std::byte> payload ) const noexcept;

    Source & source_;
    const Bytes & bytes_;
    const Info & info_;
    const std::uint64_t ringOffset_;
    std::uint64_t descriptorOffset_; ///< where the next descriptor begins
    bool hasMoreDescriptors_ = true;
    std::deque<Site> sites_;
    std::unordered_map<std::uint32_t, Plan> plans_; ///< by the site's identifier
    std::array<Recent, 16> recent_;                 ///< by the last bits of the identifier
};

} // namespace TraceReader
