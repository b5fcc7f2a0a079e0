#include "text/Columns.h"

#include <gtest/gtest.h>

namespace {

TEST( ColumnsTest, CellsStandUnderEachOther ) {
    Text::Columns columns;
    columns.add( { "CASE", "CALLS", "VERDICT" } );
    columns.add( { "row absent", "6", "as expected" } );
    columns.addRemark( "a remark that is wider than any of the columns" );
    columns.add( { "x", "" } );
    EXPECT_EQ( columns.text(), "  CASE        CALLS  VERDICT\n"
                               "  row absent  6      as expected\n"
                               "  a remark that is wider than any of the columns\n"
                               "  x\n" );
    EXPECT_EQ( columns.width( 2 ), 19u );
}

} // namespace
