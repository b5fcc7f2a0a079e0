#include "tests/tools/Program.h"
#include "tools/recipes/Registry.h"

#include <gtest/gtest.h>

#include <csignal>
#include <cstdint>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <functional>
#include <iostream>
#include <random>
#include <string>
#include <sys/resource.h>
#include <unistd.h>
#include <vector>

// Command lines, files and outputs at random. Whatever is given, the tool ends, says why in lines of
// its own, and claims nothing that is not so.
//
// CAIRN_RANDOM_SEED and CAIRN_RANDOM_RUNS try others, and more.

namespace {

using ToolTest::cairnLt;
using ToolTest::linesWith;
using ToolTest::Outcome;

std::uint64_t fromEnvironment( const char * name, std::uint64_t fallback ) {
    const char * text = std::getenv( name );
    return text == nullptr ? fallback : std::strtoull( text, nullptr, 10 );
}

class Dice {
  public:
    explicit Dice( std::uint64_t seed ) : engine_( seed ) {}

    std::size_t below( std::size_t count ) { return static_cast<std::size_t>( engine_() % count ); }
    bool oneIn( std::size_t count ) { return below( count ) == 0; }
    template <class Item>
    const Item & oneOf( const std::vector<Item> & items ) {
        return items[below( items.size() )];
    }

  private:
    std::mt19937_64 engine_; // the same numbers everywhere
};

std::string repeated( const std::string & text, std::size_t times ) {
    std::string all;
    for ( std::size_t i = 0; i < times; ++i )
        all += text;
    return all;
}

// --- Files

// A file that was good before something happened to it.
std::string damaged( Dice & dice, std::string text ) {
    const std::vector<std::string> pieces{ "[",   "]",  "{",    "}",     "\"",       "'''", "=",
                                           ".",   ",",  "\n",   "#",     "\\",       "-1",  "1e9",
                                           "nan", "\t", "\xff", "[[x]]", "\"\"\"\"", "0x",  "a.b" };
    for ( std::size_t i = dice.below( 4 ) + 1; i > 0 && !text.empty(); --i ) {
        const std::size_t at = dice.below( text.size() );
        if ( dice.oneIn( 3 ) )
            text.erase( at, dice.below( 20 ) );
        else if ( dice.oneIn( 2 ) )
            text.insert( at, text.substr( dice.below( text.size() ), dice.below( 60 ) ) );
        else
            text.insert( at, dice.oneOf( pieces ) );
    }
    return text;
}

// A TOML file of a shape that nobody writes.
std::string strangeToml( Dice & dice ) {
    const std::size_t many = std::size_t( 1 ) << dice.below( 17 );
    const std::string chip = "[[chips]]\nname = \"leaf\"\nunit = 0\n";
    switch ( dice.below( 8 ) ) {
    case 0:
        return chip + "profile" + repeated( ".a", many ) + " = 1\n";
    case 1:
        return "[a" + repeated( ".'b c'", many ) + "]\n";
    case 2:
        return "[[steps" + repeated( ".a", many ) + "]]\n";
    case 3:
        return "steps = " + repeated( "[", many );
    case 4:
        return "steps = " + repeated( "{ a.b = ", many );
    case 5:
        return chip +
               repeated( "[[steps]]\nrecipe = \"cpuPortInit\"\narguments = []\n", many / 64 );
    case 6:
        return "description = \"" + std::string( many, '.' ) + "\"\n" + chip;
    default:
        return repeated( chip, many / 32 );
    }
}

// --- Command lines

class CommandMaker {
  public:
    CommandMaker( Dice & dice, const Support::TemporaryFolder & folder )
        : dice_( dice ), folder_( folder ) {
        for ( const Tool::Recipe & recipe : Tool::recipes() )
            recipes_.emplace_back( recipe.name );
    }

    std::vector<std::string> make() {
        const std::string verb = dice_.oneIn( 20 ) ? strange() : dice_.oneOf( verbs_ );
        std::vector<std::string> words{ verb };
        if ( verb == "run" || verb == "explain" || verb == "sweep" )
            words.push_back( dice_.oneIn( 10 ) ? strange() : dice_.oneOf( recipes_ ) );
        if ( verb == "run" || verb == "explain" ) {
            for ( std::size_t i = dice_.below( 5 ); i > 0; --i )
                words.push_back( value() );
        }
        if ( verb == "bringup" || verb == "trace" || verb == "diff" )
            words.push_back( file() );
        if ( verb == "diff" )
            words.push_back( file() );
        for ( std::size_t i = dice_.below( 4 ); i > 0; --i ) {
            words.push_back( dice_.oneIn( 12 ) ? strange() : dice_.oneOf( options_ ) );
            // What writes is kept to the folder.
            if ( words.back() == "--state=" || words.back().starts_with( "--trace-" ) )
                words.back() += file();
            else if ( words.back().starts_with( "--" ) && words.back().ends_with( '=' ) )
                words.back() += dice_.oneIn( 2 ) ? file() : optionValue();
        }
        return words;
    }

  private:
    std::string strange() {
        return dice_.oneOf( std::vector<std::string>{
            "", "-", "--", "-x", "--dmup", "\xff\xfe", "two\nlines", "\033[1m", "%s%n",
            std::string( 5000, 'x' ), "=", "--=", "--unit", "--dump=", "0x", "*", "é" } );
    }

    std::string value() {
        return dice_.oneIn( 10 )
                   ? strange()
                   : dice_.oneOf( std::vector<std::string>{ "0", "1", "2", "5", "7", "300", "on",
                                                            "false", "0xff", "chip0", "PC_PORT",
                                                            "18446744073709551616" } );
    }

    std::string optionValue() {
        return dice_.oneIn( 10 )
                   ? strange()
                   : dice_.oneOf( std::vector<std::string>{
                         "json", "text", "markdown", "ApiCairn/4", "*/*", "ApiCairm/4",
                         "1=reference", "65535=reference", "op=commit,rc=-7",
                         "op=allocate,handle=invalid", "rc=5,always", "op=entry_free,rc=-1,at=2",
                         "table=PC_PROT,rc=-1", "0" } );
    }

    std::string file() {
        switch ( dice_.below( 10 ) ) {
        case 0:
            return folder_.write( "good.toml",
                                  Support::contents( SOURCE_TREE "/examples/bringup.toml" ) );
        case 1:
            return folder_.path( "nowhere/x" );
        case 2:
            return folder_.path();
        case 3:
            return "/dev/null";
        case 4:
            return folder_.path( "state.json" );
        case 5:
            return folder_.write(
                "state.json", damaged( dice_, Support::contents( folder_.path( "good.json" ) ) ) );
        case 6:
            return folder_.write( "x.toml", strangeToml( dice_ ) );
        case 7:
            return folder_.write(
                "x.toml",
                damaged( dice_, Support::contents( SOURCE_TREE "/examples/chips/small.toml" ) ) );
        default:
            return folder_.write(
                "x.toml",
                damaged( dice_, Support::contents( SOURCE_TREE "/examples/bringup.toml" ) ) );
        }
    }

    Dice & dice_;
    const Support::TemporaryFolder & folder_;
    std::vector<std::string> recipes_;
    const std::vector<std::string> verbs_{ "run",     "run",     "run",  "bringup",
                                           "bringup", "explain", "list", "sweep",
                                           "tables",  "dump",    "diff", "trace" };
    const std::vector<std::string> options_{
        "--state=",     "--state=",  "--dump",  "--dump=json", "--format=json",
        "--format=",    "--trace=",  "--chip=", "--model=",    "--inject=",
        "--record",     "--all",     "--unit=", "--help",      "--trace-file=",
        "--trace-dir=", "--verbose", "--info",  "--check" };
};

// --- What the process finds

struct Surroundings {
    bool breakOutput = false;
    bool limitFiles = false;
    std::function<void()> prepare;
};

Surroundings surroundings( Dice & dice ) {
    Surroundings chosen;
    const std::size_t output = dice.below( 8 );
    const std::size_t limit = dice.below( 10 );
    const bool closeInput = dice.oneIn( 4 );
    const rlim_t size = std::size_t( 1 ) << dice.below( 16 );
    const rlim_t descriptors = 5 + dice.below( 20 );
    chosen.breakOutput = output < 3;
    chosen.limitFiles = limit == 0;
    chosen.prepare = [=] {
        ::close( STDIN_FILENO );
        if ( !closeInput && ::open( "/dev/null", O_RDONLY ) != STDIN_FILENO )
            ::_exit( 99 );
        std::signal( SIGPIPE, SIG_DFL );
        if ( output == 0 ) {
            ::close( STDOUT_FILENO );
        } else if ( output == 1 ) {
            ::dup2( ::open( "/dev/full", O_WRONLY | O_CLOEXEC ), STDOUT_FILENO );
        } else if ( output == 2 ) {
            int ends[2];
            if ( ::pipe2( ends, O_CLOEXEC ) != 0 )
                ::_exit( 99 );
            ::dup2( ends[1], STDOUT_FILENO );
        }
        const rlimit fewDescriptors{ descriptors, descriptors };
        const rlimit smallFiles{ size, size };
        if ( limit == 0 )
            ::setrlimit( RLIMIT_FSIZE, &smallFiles );
        else if ( limit == 1 && !ToolTest::isSanitized )
            ::setrlimit( RLIMIT_NOFILE, &fewDescriptors );
    };
    return chosen;
}

std::string shown( const std::vector<std::string> & words ) {
    std::string text;
    for ( const std::string & word : words )
        text += " " + testing::PrintToString( word.substr( 0, 200 ) );
    return text;
}

void expectHonest( const Outcome & run, const Surroundings & around ) {
    EXPECT_TRUE( run.signal == 0 || run.signal == SIGABRT ||
                 ( run.signal == SIGPIPE && around.breakOutput ) )
        << "signal " << run.signal;
    EXPECT_TRUE( run.signal != 0 || ( run.exitCode >= 0 && run.exitCode <= 2 ) )
        << "exit code " << run.exitCode;
    for ( const char * slip :
          { "terminate called", "std::", "json.exception", "Sanitizer", "basic_string" } )
        EXPECT_EQ( run.err.find( slip ), std::string::npos ) << slip;
    if ( around.limitFiles )
        return; // standard error is a file, too
    if ( run.signal == SIGABRT ) {
        EXPECT_EQ( linesWith( run.err, "Assertion `" ).size(), 1u );
        EXPECT_EQ( linesWith( run.err, "cairn-lt: " ).empty(), false );
    }
    if ( run.exitCode == 2 ) {
        EXPECT_FALSE( linesWith( run.err, "cairn-lt: " ).empty() );
    }
}

TEST( RandomTest, WhateverIsGivenTheToolEndsAndTellsTheTruth ) {
    const std::uint64_t seed = fromEnvironment( "CAIRN_RANDOM_SEED", 1 );
    const std::uint64_t runs = fromEnvironment( "CAIRN_RANDOM_RUNS", 250 );
    std::cout << "CAIRN_RANDOM_SEED=" << seed << " CAIRN_RANDOM_RUNS=" << runs << "\n";
    Dice dice( seed );
    const Support::TemporaryFolder folder;
    EXPECT_EQ( cairnLt( { "run", "setEgrTunnelEcnEncap", "0", "5", "2", "--state",
                          folder.path( "good.json" ) } )
                   .exitCode,
               0 );
    CommandMaker commands( dice, folder );
    for ( std::uint64_t i = 0; i < runs; ++i ) {
        const std::vector<std::string> words = commands.make();
        const Surroundings around = surroundings( dice );
        SCOPED_TRACE( "run " + std::to_string( i ) + ":" + shown( words ) );
        const Outcome run = cairnLt( words, {}, around.prepare );
        SCOPED_TRACE( "standard error: " + run.err.substr( 0, 2000 ) );
        expectHonest( run, around );
        if ( around.breakOutput && run.exitCode == 0 ) {
            EXPECT_EQ( cairnLt( words ).out, "" ) << "nothing of this was written";
        }
        if ( testing::Test::HasFailure() )
            break;
    }
    for ( const auto & entry : std::filesystem::directory_iterator( folder.path() ) )
        EXPECT_NE( entry.path().extension(), ".tmp" ) << entry.path();
}

} // namespace
