#pragma once

#include "tools/diagnose/LastRecords.h"

#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <vector>

// Bundles: all that is known of a stop in one file, a tar archive compressed with gzip or zstd, for
// whoever is asked next. docs/diagnose.md tells the members.
//
// Nothing in a bundle is trusted, and nothing of it is written anywhere: its members are read into
// memory, within limits, and members of other names or kinds make it no bundle.

namespace Tool {

struct Bundle {
    /// The version of what the members are.
    static constexpr int formatVersion = 1;
    /// What the members may hold together, and how many there may be.
    static constexpr std::uint64_t largest = std::uint64_t( 256 ) << 20;
    static constexpr std::size_t mostMembers = 20000;

    using Traces = std::map<std::string, std::vector<std::byte>>; ///< by file name

    std::string release = {}; ///< of the library, as the list of sites says
    std::string tool = {};    ///< the version that wrote the bundle
    std::string report = {};
    std::string sites = {}; ///< the list of sites
    std::string chips = {}; ///< a state file: the chips, as they were when recording began
    std::string state = {}; ///< a state file: the chips at the stop; empty: not known
    std::string text = {};  ///< the diagnosis
    std::string json = {};  ///< the diagnosis
    std::shared_ptr<const Traces> traces = std::make_shared<Traces>();
};

/// Whether a file begins as a bundle does, compressed. False if it cannot be read.
bool isBundle( const std::string & path );

enum class BundleParts { all, withoutTraces };

/// InputError, in one line, if it is damaged, too large, or no bundle of a version that is known.
Bundle readBundle( const std::string & path, BundleParts parts = BundleParts::all );

/// The traces of a bundle, which are kept as long as the source.
TraceSource traceIn( const Bundle & bundle, const std::string & path );

/// InputError if the name does not end in .tar.gz or .tar.zst.
void checkBundleName( const std::string & path );

/// Replaces the file as a whole. InputError if the bundle would be larger than can be read; Trouble
/// if the file cannot be written.
void writeBundle( const std::string & path, const Bundle & bundle );

/// The trace files of a folder, or one file, as they are. InputError if they are too large.
std::shared_ptr<const Bundle::Traces> readTraces( const std::string & path );

} // namespace Tool
