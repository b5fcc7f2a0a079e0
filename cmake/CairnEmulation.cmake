# Programs for another processor. CAIRN_EMULATOR names what runs one here; then the tests are run.
#
# Tests start cairn-lt, and cairn-lt starts itself, from C++, Python and shells. So that they start it as they do
# elsewhere, each program that is linked becomes a script that runs it in the emulator. CMAKE_CROSSCOMPILING_EMULATOR
# reaches only the programs that CTest itself starts.
set( CAIRN_EMULATOR "" CACHE STRING "Runs programs of the target's processor, such as qemu-aarch64" )

# A test that cannot run in an emulator. It is listed as disabled; docs/testing.md lists it with the reason.
function( cairn_not_emulated test reason )
    if( CAIRN_EMULATOR )
        message( STATUS "Not in the emulator: ${test}: ${reason}" )
        set_tests_properties( ${test} PROPERTIES DISABLED TRUE )
    endif()
endfunction()

if( NOT CAIRN_EMULATOR )
    return()
endif()

find_program( CAIRN_EMULATOR_PATH ${CAIRN_EMULATOR} REQUIRED )
find_program( CAIRN_HOST_COMPILER g++ REQUIRED )
set( emulation ${CMAKE_CURRENT_SOURCE_DIR}/tests/emulation )
set( quiet_emulator ${CMAKE_CURRENT_BINARY_DIR}/QuietEmulator.so )
execute_process( COMMAND ${CAIRN_HOST_COMPILER} -std=c++20 -O1 -fPIC -shared ${emulation}/QuietEmulator.cpp -o ${quiet_emulator}
                 COMMAND_ERROR_IS_FATAL ANY )
set( CAIRN_EMULATE "sh ${emulation}/emulate.sh ${CAIRN_EMULATOR_PATH} ${quiet_emulator}" )
list( APPEND CMAKE_CXX_LINK_EXECUTABLE "${CAIRN_EMULATE} <TARGET>" )
