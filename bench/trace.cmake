# Included by bench/CMakeLists.txt.

add_executable( trace_bench ${PROJECT_SOURCE_DIR}/bench/trace_bench.cpp )
target_link_libraries( trace_bench PRIVATE cairn_test_processes cairn_instruction_count cairn_trace_bench_lttng cairn_lt_objects
                       Cairn::ShimSlot cairn_options benchmark::benchmark )

# Other tracers, where they are installed.
find_package( spdlog QUIET )
if( spdlog_FOUND )
    target_compile_definitions( trace_bench PRIVATE TRACE_BENCH_SPDLOG )
    target_link_libraries( trace_bench PRIVATE spdlog::spdlog )
endif()
# By itself, without the project's warnings: it is mostly macros of that library.
add_library( cairn_trace_bench_lttng OBJECT ${PROJECT_SOURCE_DIR}/bench/trace_bench_lttng.cpp )
target_include_directories( cairn_trace_bench_lttng PUBLIC ${PROJECT_SOURCE_DIR} )
find_path( LTTNG_UST_INCLUDE lttng/tracepoint.h )
find_library( LTTNG_UST_LIBRARY lttng-ust )
mark_as_advanced( LTTNG_UST_INCLUDE LTTNG_UST_LIBRARY )
if( LTTNG_UST_INCLUDE AND LTTNG_UST_LIBRARY )
    target_compile_definitions( cairn_trace_bench_lttng PRIVATE TRACE_BENCH_LTTNG )
    target_link_libraries( cairn_trace_bench_lttng PUBLIC ${LTTNG_UST_LIBRARY} ${CMAKE_DL_LIBS} )
endif()

add_executable( trace_reader_bench ${PROJECT_SOURCE_DIR}/bench/trace_reader_bench.cpp )
target_link_libraries( trace_reader_bench PRIVATE cairn_test_processes cairn_trace_bench_lttng Cairn::TraceReader
                       Cairn::Platform cairn_options )

add_executable( recorder_bench ${PROJECT_SOURCE_DIR}/bench/recorder_bench.cpp
                ${PROJECT_SOURCE_DIR}/tests/support/QuietSdk.cpp )
target_link_libraries( recorder_bench PRIVATE cairn_test_processes cairn_instruction_count cairn_lt_objects Cairn::ShimSlot
                       Cairn::Recorder Cairn::TraceReader Cairn::Platform
                       cairn_options benchmark::benchmark )
