# Small helpers so that each layer picks up its sources by folder and new
# file pairs need no CMake edits.

# orb_test_executable(NAME DIR LIBS...): one GoogleTest executable per layer,
# built from every *_test.cpp below DIR; skipped while DIR holds none.
function(orb_test_executable name dir)
  file(GLOB_RECURSE sources CONFIGURE_DEPENDS ${dir}/*.cpp)
  if(NOT sources)
    return()
  endif()
  foreach(lib ${ARGN})
    if(NOT TARGET ${lib})
      return()
    endif()
  endforeach()
  add_executable(${name} ${sources})
  target_include_directories(${name} PRIVATE ${PROJECT_SOURCE_DIR})
  target_link_libraries(${name} PRIVATE ${ARGN} GTest::gtest GTest::gmock GTest::gtest_main)
  target_compile_definitions(${name} PRIVATE ORB_SOURCE_DIR="${PROJECT_SOURCE_DIR}")
  # A hung test fails instead of holding CI to its time limit.
  gtest_discover_tests(${name} DISCOVERY_TIMEOUT 60 PROPERTIES TIMEOUT 120)
endfunction()

# orb_benchmark(NAME DIR LIBS...): one Google Benchmark program per subsystem.
function(orb_benchmark name dir)
  file(GLOB sources CONFIGURE_DEPENDS ${dir}/*.cpp)
  if(NOT sources)
    return()
  endif()
  add_executable(${name} ${sources} ${PROJECT_SOURCE_DIR}/bench/BenchMain.cpp)
  target_include_directories(${name} PRIVATE ${PROJECT_SOURCE_DIR})
  target_link_libraries(${name} PRIVATE ${ARGN} benchmark::benchmark)
  set_property(GLOBAL APPEND PROPERTY ORB_BENCHMARKS ${name})
endfunction()
