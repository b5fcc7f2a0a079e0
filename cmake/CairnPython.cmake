# Whether the Python package is built, and with what. CAIRN_BUILD_PYTHON is AUTO, ON or OFF. AUTO looks anew at each
# configuration, so that packages installed in between count; ON fails where something is missing.
#
# Sets CAIRN_HAS_PYTHON and CAIRN_PYTHON_DIR, where the package is built, and finds Python and pybind11 where that is true.

set( CAIRN_BUILD_PYTHON AUTO CACHE STRING "Build the Python package: AUTO (where Python and pybind11 are found), ON, OFF" )
set_property( CACHE CAIRN_BUILD_PYTHON PROPERTY STRINGS AUTO ON OFF )

set( CAIRN_HAS_PYTHON OFF )
set( CAIRN_PYTHON_DIR ${PROJECT_BINARY_DIR}/python )
if( CAIRN_BUILD_PYTHON STREQUAL AUTO )
    if( NOT PROJECT_IS_TOP_LEVEL )
        return()
    endif()
    # A sanitizer must be in a process from its start, and the interpreter is not built with one. The runtime of g++'s
    # address sanitizer can be loaded before it. The thread sanitizer does not see how the interpreter hands its lock
    # and its objects from thread to thread, and would report that.
    if( CAIRN_SANITIZE AND NOT ( CAIRN_SANITIZE STREQUAL "address,undefined" AND CMAKE_CXX_COMPILER_ID STREQUAL GNU ) )
        message( STATUS "No Python package: the interpreter cannot host -fsanitize=${CAIRN_SANITIZE}" )
        return()
    endif()
    set( CAIRN_PYTHON_NEED QUIET )
elseif( CAIRN_BUILD_PYTHON )
    set( CAIRN_PYTHON_NEED REQUIRED )
else()
    return()
endif()

# pybind11 and pytest, as Debian packages, are those of the system's interpreter, so it comes before others on the PATH.
if( NOT DEFINED Python_ROOT_DIR AND NOT DEFINED Python_EXECUTABLE )
    set( Python_ROOT_DIR /usr )
endif()
find_package( Python 3.10 ${CAIRN_PYTHON_NEED} COMPONENTS Interpreter Development.Module )
set( PYBIND11_FINDPYTHON ON )
if( Python_FOUND )
    find_package( pybind11 2.10 ${CAIRN_PYTHON_NEED} CONFIG )
endif()
if( NOT Python_FOUND OR NOT pybind11_FOUND )
    message( STATUS "No Python package: Python's headers or pybind11 not found (Debian: python3-dev, pybind11-dev)" )
    return()
endif()

if( CAIRN_BUILD_TESTS )
    execute_process( COMMAND ${Python_EXECUTABLE} -c "import mypy, pytest" RESULT_VARIABLE CAIRN_PYTHON_LACKS ERROR_QUIET )
    if( CAIRN_PYTHON_LACKS )
        set( CAIRN_PYTHON_MESSAGE "${Python_EXECUTABLE} has no pytest or no mypy for the tests (Debian: python3-pytest, mypy)" )
        if( CAIRN_PYTHON_NEED STREQUAL REQUIRED )
            message( FATAL_ERROR "${CAIRN_PYTHON_MESSAGE}" )
        endif()
        message( STATUS "No Python package: ${CAIRN_PYTHON_MESSAGE}" )
        return()
    endif()
endif()
set( CAIRN_HAS_PYTHON ON )
