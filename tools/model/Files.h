#pragma once

#include <cstddef>
#include <string>
#include <string_view>

// Files, read and written as a whole.

namespace Tool {

/// No input file is read beyond this size.
inline constexpr std::size_t largestFile = std::size_t( 256 ) << 20;

/// The contents of a file; InputError, naming the file and the reason, if it cannot be read.
std::string readFile( const std::string & path );

/// Writes all of `text`; false, with errno set, if that fails.
bool writeAll( int descriptor, std::string_view text ) noexcept;

/// InputError if what is to be written is what is read, by whatever name.
void needOtherFile( const std::string & output, const std::string & input );

/// The file that a path names in the end: where its symbolic links lead, whether there is a file
/// yet or not. InputError if they lead in a circle.
std::string linkTarget( const std::string & path );

/// A file that is replaced, or made, when it is complete: whoever reads it sees the old contents or
/// the new. A file that is replaced keeps its mode, and its owner if that is allowed. Trouble, with the
/// old file as it was, if that fails. `path` is not a symbolic link (see linkTarget()).
///
/// The new contents are written beside the file, under a name that nobody can guess. A process that
/// is killed leaves that file behind; removeLeftovers() removes those of `path`. Not while another
/// process may replace it.
class NewFile {
  public:
    explicit NewFile( std::string path );
    ~NewFile(); ///< removes what was written, if it has not appeared
    NewFile( const NewFile & ) = delete;
    NewFile & operator=( const NewFile & ) = delete;

    void write( std::string_view text );
    void appear();

  private:
    void remove() noexcept;

    std::string path_;
    std::string temporary_; ///< empty: it has appeared
    int descriptor_;
};

void replaceFile( const std::string & path, std::string_view text );
void removeLeftovers( const std::string & path );

} // namespace Tool
