#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <initializer_list>
#include <limits>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

// TOML files as the tool reads them: a tree whose nodes know their lines, and a reader that refuses
// what it does not expect. Every error is an InputError with the file and the line.

namespace Tool {

struct TomlNode {
    enum class Kind { table, array, text, integer, real, boolean, date };

    Kind kind = Kind::table;
    int line = 1;
    int64_t integer = 0;
    bool boolean = false;
    std::string text = {};
    std::vector<TomlNode> items = {};
    /// In the order of the file. `second.line` is the line of the value, which a key shares unless
    /// the value begins on a later one.
    std::vector<std::pair<std::string, TomlNode>> members = {};

    const TomlNode * find( std::string_view key ) const;
};

/// Limits of a file: how deep tables, arrays and the parts of keys may lie in each other, and how
/// many values a piece of it may hold (see TomlFile). They bound the stack and the memory that
/// reading takes.
inline constexpr std::size_t deepestToml = 100;
inline constexpr std::size_t mostTomlValues = 1'000'000;

/// A file that is parsed in pieces, so that the parser's tree, which takes many times the memory of
/// its text, never stands for the whole of a long file. Each [[table]] of the top level begins a
/// piece, with the [table.parts] that follow. If parts of a table follow another table, the file is
/// one piece.
class TomlFile {
  public:
    /// Parses all but the tables that are written as [[streamed]]. `file` is what messages call it.
    /// `contents` must outlive this.
    TomlFile( std::string_view contents, std::string file, std::string_view streamed = {} );

    const TomlNode & root() const { return root_; }

    /// Parses the [[streamed]] tables, and calls `read` with each, in the order of the file.
    void forEachStreamed( const std::function<void( const TomlNode & )> & read ) const;

  private:
    struct Piece {
        std::string_view contents;
        int line = 1;
        std::string_view key = {}; ///< of the [[key]] tables it has; empty for what precedes them
    };
    class Outline;

    TomlNode parse( const Piece & piece ) const;

    std::string file_;
    TomlNode root_;
    std::vector<Piece> streamed_;
};

/// "a table", "an integer" ...: a node's kind for a reader.
const char * kindName( TomlNode::Kind kind );

/// Reads the members of tables. `what`, where it is asked for, is what the message calls the thing
/// that is read: "chip \"leaf\"", "field OUTER_ECN".
class TomlReader {
  public:
    explicit TomlReader( std::string file ) : file_( std::move( file ) ) {}

    const std::string & file() const { return file_; }

    [[noreturn]] void refuse( int line, std::string problem, std::string remedy = {} ) const;

    /// Refuses a node that is not of this kind.
    void expectKind( const TomlNode & node, TomlNode::Kind kind, std::string_view what ) const;

    /// Refuses members that are not in `keys`, with the nearest that is.
    void expectKeys( const TomlNode & table, std::initializer_list<std::string_view> keys,
                     std::string_view what ) const;

    /// A member that must be there.
    const TomlNode & need( const TomlNode & table, std::string_view key,
                           std::string_view what ) const;

    // The value of a node, checked.
    uint64_t number( const TomlNode & node, uint64_t maximum, std::string_view what ) const;
    const std::string & text( const TomlNode & node, std::string_view what ) const;
    bool boolean( const TomlNode & node, std::string_view what ) const;

    /// Numbers of a narrower type.
    template <class T>
    T number( const TomlNode & node, std::string_view what ) const {
        return static_cast<T>( number( node, uint64_t( std::numeric_limits<T>::max() ), what ) );
    }
    /// A number of a table, or `fallback` if the key is not there.
    template <class T>
    T number( const TomlNode & table, std::string_view key, T fallback ) const {
        const TomlNode * node = table.find( key );
        return node == nullptr ? fallback : number<T>( *node, key );
    }

    /// The tables of `table` under `key`, which are written as [[key]]; none if the key is not
    /// there.
    const std::vector<TomlNode> & tables( const TomlNode & table, std::string_view key ) const;

  private:
    std::string file_;
};

} // namespace Tool
