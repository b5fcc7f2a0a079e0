#pragma once

#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

// The knowledge pages: what each error that the library, the platform or cairn-lt prints means.

namespace Tool {

/// What is to know of one error, or of several that mean the same.
struct ErrorPage {
    /// Of which it is.
    enum class Source { sdkCode, assertion, platform, tool };

    std::string_view name; ///< "value-too-wide"
    Source source = Source::tool;
    std::string_view meaning;
    std::string_view causes; ///< usual ones
    std::string_view remedy; ///< what to do
    /// What is printed, "{}" where it has a value. Of an assertion, its expression.
    std::vector<std::string_view> texts = {};
    std::optional<int> code = {}; ///< of the simulated SDK
};

/// All, by source.
std::span<const ErrorPage> errorPages();

/// The page of a name, of a code ("-14"), or of a printed line: the one with the longest text that
/// occurs in it. Null if there is none.
const ErrorPage * findErrorPage( std::string_view wanted );

/// "a code of the simulated SDK", "Codes of the simulated SDK"
std::string_view toText( ErrorPage::Source source );
std::string_view pluralOf( ErrorPage::Source source );

/// What a code of the simulated SDK, or the expression of an assertion of the library, means, and its
/// usual causes; empty if there is no such page.
std::string meaningOfCode( int rc );
std::string meaningOfAssertion( std::string_view expression );

} // namespace Tool
