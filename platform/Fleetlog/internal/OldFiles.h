#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

namespace Fleetlog {

/// Bounds what the ended processes of a program have left in a directory: removes their trace
/// files of this suffix, those that were written last kept, until there are at most `keepFiles` with at most
/// `keepBytes` on disk. Files that a living process may be writing are not touched, nor those of
/// which that is not known. Files that were begun and never completed are removed, too. What cannot
/// be removed stays.
void removeOldFiles( const std::string & directory, const std::string & program,
                     const std::string & suffix, std::size_t keepFiles, std::uint64_t keepBytes );

} // namespace Fleetlog
