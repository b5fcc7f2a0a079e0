#pragma once

#include "tracereader/Recording.h"

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

// What a release of the library can stop at: the list that the library file itself carries.

namespace Tool {

/// A call, an assertion or a recipe in the source of the library.
struct Site {
    enum class Kind {
        recipe,    ///< the text is its signature as assertions print it
        guarded,   ///< a call whose failure is reported and stops
        lockKept,  ///< the same, with the activity lock kept
        unchecked, ///< a call whose code the recipe looks at itself
        ignored,   ///< a call whose code nobody looks at
        assertion,
    };
    Kind kind;
    int line;
    std::string recipe;
    int call; ///< number of the call in the source of the recipe, from 1; others: of the call before
    std::string text;

    bool isCall() const { return kind != Kind::recipe && kind != Kind::assertion; }
    bool canFail() const { return kind == Kind::guarded || kind == Kind::lockKept; }
};

/// An operation as far as the source tells it. What the recipe makes at run time is not there.
struct CallPattern {
    std::optional<TraceReader::SdkCall> call = {}; ///< nothing: the text is no SDK operation
    std::optional<std::string> table = {};
    std::optional<std::string> field = {};
    std::optional<std::string> symbol = {};
    std::string opcode = {};

    /// Whether a recorded operation may be this one.
    bool fits( const TraceReader::RecordedCall & recorded ) const;
};

class SiteTable {
  public:
    /// The table in a library file. InputError if the file cannot be read, is no such library, or is
    /// of a release that carries no table.
    static SiteTable fromLibrary( const std::string & file );

    /// That of the library that this program runs with.
    static SiteTable own();

    /// Reads the contents of the section. InputError that names `file`.
    static SiteTable parse( std::string_view contents, const std::string & file );

    /// The release.
    const std::string & version() const { return version_; }
    const std::vector<Site> & sites() const { return sites_; }
    /// What parse() reads.
    const std::string & text() const { return text_; }

    /// The recipe whose signature this is; empty if there is none.
    std::string recipeOf( std::string_view signature ) const;

    /// How many calls stand in the source of a recipe.
    int callsOf( std::string_view recipe ) const;

    /// The call of the recipe that allocates the entry which this call works on: the nearest one
    /// before it with the same variable. Null if there is none.
    const Site * allocateOf( const Site & call ) const;

    /// The SDK operation that a site is about: that of a call; of an assertion or a check of a code,
    /// the one before it. Null if there is none.
    const Site * operationAt( const Site & site ) const;

    /// What the text of a call, and of the one that allocates its entry, tells of its operation.
    CallPattern patternOf( const Site & call ) const;

  private:
    std::string text_;
    std::string version_;
    std::vector<Site> sites_;
};

/// The arguments of a call text, "bcmlt_entry_free( entry )", without the blanks around them.
std::vector<std::string> argumentsOf( std::string_view callText );

/// The text that an argument stands for: one in quotes, or a name that the SDK gives. Nothing if the
/// recipe makes it.
std::optional<std::string> literalOf( std::string_view argument );

} // namespace Tool
