add_executable( sim_bench sim_bench.cpp )
target_link_libraries( sim_bench PRIVATE Cairn::Sim cairn_options benchmark::benchmark )
