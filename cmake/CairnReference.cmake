# The target "reference": the public headers and the documents as HTML, in the folder reference/ of the build tree. Where
# Doxygen warns, it fails. Not part of "all"; Doxygen is needed for it alone.
#
# Sets CAIRN_PUBLIC_HEADERS.
find_program( CAIRN_DOXYGEN doxygen )
find_program( CAIRN_PYTHON3 python3 HINTS /usr/bin )

set( CAIRN_PUBLIC_HEADERS )
foreach( target cairn_lt_helper cairn_common cairn_shim cairn_platform cairn_sim cairn_interpose cairn_recorder
                cairn_trace_reader )
    get_target_property( of_target ${target} HEADER_SET )
    list( APPEND CAIRN_PUBLIC_HEADERS ${of_target} )
endforeach()
file( GLOB documents CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/docs/*.md )
set( pages ${PROJECT_SOURCE_DIR}/README.md ${documents} ${PROJECT_SOURCE_DIR}/CHANGELOG.md
           ${PROJECT_SOURCE_DIR}/CONTRIBUTING.md )

set( CAIRN_REFERENCE_DIR ${CMAKE_BINARY_DIR}/reference )
list( TRANSFORM pages REPLACE "(.+)" "\"\\1\"" OUTPUT_VARIABLE quoted_pages )
list( TRANSFORM CAIRN_PUBLIC_HEADERS REPLACE "(.+)" "\"\\1\"" OUTPUT_VARIABLE quoted_headers )
list( JOIN quoted_pages " " quoted_pages )
list( JOIN quoted_headers " " quoted_headers )
set( CAIRN_REFERENCE_INPUT "${quoted_pages} ${quoted_headers}" )
configure_file( cmake/Doxyfile.in ${CMAKE_BINARY_DIR}/Doxyfile @ONLY )

if( PROJECT_IS_TOP_LEVEL )
    add_custom_target( reference
        COMMAND ${CMAKE_COMMAND} -E rm -rf ${CAIRN_REFERENCE_DIR}
        COMMAND ${CAIRN_DOXYGEN} ${CMAKE_BINARY_DIR}/Doxyfile
        COMMENT "Writing the reference to ${CAIRN_REFERENCE_DIR}"
        VERBATIM )
endif()
