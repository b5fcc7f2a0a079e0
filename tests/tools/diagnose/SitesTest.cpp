#include "tools/diagnose/Sites.h"
#include "tests/support/TemporaryFolder.h"
#include "tools/model/Errors.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <cstdlib>
#include <random>
#include <set>
#include <sstream>
#include <string>
#include <vector>

// The table of sites that a library file carries.

namespace {

using Tool::InputError;
using Tool::Site;
using Tool::SiteTable;

TEST( SitesTest, LibraryCarriesTheSitesOfItsSource ) {
    std::vector<std::string> source{ "" }; // lines count from 1
    std::istringstream text( Support::contents( SOURCE_TREE "/Cairn/CairnLtHelper.cpp" ) );
    for ( std::string line; std::getline( text, line ); )
        source.push_back( line );
    const SiteTable own = SiteTable::own();
    EXPECT_EQ( own.version(), PROJECT_VERSION );
    std::set<int> lines;
    for ( const Site & site : own.sites() ) {
        const std::string & line = source.at( static_cast<std::size_t>( site.line ) );
        EXPECT_NE( line.find( site.text ), std::string::npos ) << site.line << ": " << site.text;
        lines.insert( site.line );
    }
    for ( std::size_t line = 1; line < source.size(); ++line ) {
        const bool isSite = source[line].find( " CAIRN_CALL" ) != std::string::npos ||
                            source[line].find( " CAIRN_ASSERT" ) != std::string::npos ||
                            source[line].find( " CAIRN_RECIPE" ) != std::string::npos;
        EXPECT_EQ( lines.contains( static_cast<int>( line ) ), isSite ) << source[line];
    }
}

TEST( SitesTest, StrippedLibraryKeepsThem ) {
    const Support::TemporaryFolder folder;
    const std::string stripped = folder.path( "stripped.so" );
    ASSERT_EQ( std::system( ( STRIP " --strip-all -o " + stripped + " " LT_HELPER ).c_str() ), 0 );
    EXPECT_EQ( SiteTable::fromLibrary( stripped ).sites().size(), SiteTable::own().sites().size() );
}

TEST( SitesTest, CallsAreNumberedWithinTheirRecipe ) {
    const SiteTable own = SiteTable::own();
    EXPECT_EQ( own.callsOf( "setEgrTunnelEcnEncap" ), 5 );
    EXPECT_EQ( own.callsOf( "noRecipe" ), 0 );
    EXPECT_EQ( own.recipeOf( "void Cairn::setEgrTunnelEcnEncap(uint32_t, uint32_t, uint32_t)" ),
               "setEgrTunnelEcnEncap" );
    EXPECT_EQ( own.recipeOf( "void f()" ), "" );
}

TEST( SitesTest, AllocateOfACallIsTheNearestWithItsVariable ) {
    const SiteTable table =
        SiteTable::parse( "cairn-lt sites 1\t1.2\n"
                          "10\tr\t1\tguarded\tbcmlt_entry_allocate( unit, \"A\", &e )\n"
                          "11\tr\t2\tguarded\tbcmlt_entry_allocate( unit, \"B\", &f )\n"
                          "12\tr\t3\tguarded\tbcmlt_entry_free( e )\n"
                          "13\tr\t4\tguarded\tbcmlt_entry_allocate( unit, \"C\", &e )\n"
                          "14\tr\t5\tguarded\tbcmlt_entry_free( e )\n"
                          "15\tr\t6\tguarded\tbcmlt_entry_free( g )\n",
                          "table" );
    EXPECT_EQ( table.allocateOf( table.sites()[2] )->call, 1 );
    EXPECT_EQ( table.allocateOf( table.sites()[4] )->call, 4 );
    EXPECT_EQ( table.allocateOf( table.sites()[5] ), nullptr );
}

TEST( SitesTest, ArgumentsAreSplitAtTheOuterCommas ) {
    EXPECT_EQ( Tool::argumentsOf( "f( a, \"B\", g( x, y ), &e )" ),
               ( std::vector<std::string>{ "a", "\"B\"", "g( x, y )", "&e" } ) );
    EXPECT_TRUE( Tool::argumentsOf( "rc" ).empty() );
    EXPECT_TRUE( Tool::argumentsOf( ")(" ).empty() );
}

std::string refusal( const auto & work ) {
    try {
        work();
    } catch ( const InputError & error ) {
        return error.what();
    }
    return "no error";
}

TEST( SitesTest, FileThatIsNoLibraryWithATableIsRefused ) {
    const Support::TemporaryFolder folder;
    const auto refused = [&]( const std::string & file ) {
        return refusal( [&] { SiteTable::fromLibrary( file ); } );
    };
    EXPECT_EQ( refused( folder.path( "none" ) ),
               folder.path( "none" ) + ": cannot be read: No such file or directory" );
    for ( const std::string & file : { folder.write( "empty", "" ), folder.write( "text", "text" ),
                                       std::string( "/bin/true" ) } )
        EXPECT_EQ( refused( file ),
                   file + ": is no libCairnLtHelper.so with a table of sites; leave --library out: "
                          "reports are then read by their texts" );
}

TEST( SitesTest, TableOfAnotherFormatOrDamagedIsRefused ) {
    const auto refused = []( const char * text ) {
        return refusal( [&] { SiteTable::parse( text, "lib.so" ); } );
    };
    EXPECT_EQ( refused( "cairn-lt sites 2\t9.0\n" ),
               "lib.so: its table of sites has a format that this version cannot read; use the "
               "cairn-lt of that release" );
    for ( const char * text : { "", "x\n" } )
        EXPECT_EQ( refused( text ), "lib.so: its table of sites is damaged (line 1); give the "
                                    "library file of the release that wrote the report" );
    for ( const char * site :
          { "x", "1\tr\t1\tother\ttext", "1\tr\t1\tguarded\t", "99999999999\tr\t1\tguarded\ttext",
            "1\t\t1\tguarded\ttext", "1\tr\t1\tguarded\tte\xff", "1\tr\x1b\t1\tguarded\ttext" } )
        EXPECT_EQ( refused( ( std::string( "cairn-lt sites 1\t1\n" ) + site + "\n" ).c_str() ),
                   "lib.so: its table of sites is damaged (line 2); give the library file of the "
                   "release that wrote the report" )
            << site;
}

TEST( SitesTest, DamagedLibraryFileIsReadOrRefusedAndNothingElse ) {
    const std::string whole = Support::contents( LT_HELPER );
    const Support::TemporaryFolder folder;
    std::mt19937 random( 1 );
    for ( int round = 0; round < 300; ++round ) {
        std::string damaged = whole;
        if ( round % 2 == 0 )
            damaged.resize( random() % whole.size() );
        // The header and the table of sections, which stands at the end, are what is followed.
        for ( int i = 0; i < 8 && !damaged.empty(); ++i ) {
            const std::size_t at =
                i % 2 == 0
                    ? random() % std::min<std::size_t>( 64, damaged.size() )
                    : damaged.size() - 1 - random() % std::min<std::size_t>( 2048, damaged.size() );
            damaged[at] = static_cast<char>( random() );
        }
        const std::string file = folder.write( "damaged.so", damaged );
        try {
            SiteTable::fromLibrary( file );
        } catch ( const InputError & error ) {
            EXPECT_TRUE( std::string( error.what() ).starts_with( file ) );
        }
    }
}

} // namespace
