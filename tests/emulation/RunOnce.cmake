# In an emulator most of the time of a test is the start of its program. So each program is a single test of CTest, without
# the tests that not_emulated.txt names. Included after GoogleTest, whose function this takes the place of.
file( STRINGS ${CMAKE_CURRENT_LIST_DIR}/not_emulated.txt lines REGEX "^[^#]" )
set( not_emulated )
foreach( line IN LISTS lines )
    string( REGEX REPLACE "^([^ ]+) +(.*)$" "\\1: \\2" said "${line}" )
    message( STATUS "Not in the emulator: ${said}" )
    string( REGEX MATCH "^[^ ]+" name "${line}" )
    list( APPEND not_emulated ${name} )
endforeach()
list( JOIN not_emulated ":" CAIRN_NOT_EMULATED )

function( gtest_discover_tests program )
    add_test( NAME ${program} COMMAND ${program} --gtest_filter=-${CAIRN_NOT_EMULATED} )
    set_tests_properties( ${program} PROPERTIES TIMEOUT 1800 )
endfunction()
