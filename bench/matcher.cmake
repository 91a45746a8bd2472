add_executable(bench_matcher ${CMAKE_CURRENT_LIST_DIR}/matcher_bench.cpp)
l2cp_warnings(bench_matcher)
target_link_libraries(bench_matcher PRIVATE classifier benchmark::benchmark)
