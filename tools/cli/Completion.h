#pragma once

#include <span>
#include <string>

// What a shell offers to complete a command line with. The shells' own scripts, in tools/completion/,
// ask the program itself.

namespace CLI {
class App;
}

namespace Tool {

/// What may stand in place of the last of `words`, which follow the program's name. The first line is
/// "files" if the name of a file may stand there, too, or else "words". Each line after it is a word,
/// a tab and a description, which may be empty. A word that ends in "=", "," or "/" goes on.
///
/// Nothing is refused: of an unknown verb, option or chip file nothing, or the usual, is offered.
std::string completionText( const CLI::App & program, std::span<const std::string> words );

} // namespace Tool
