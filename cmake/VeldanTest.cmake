# Tests run for seconds and are compiled for minutes. So they are not optimised, and the headers that most of them
# include are compiled once, into a precompiled header that all their programs share.
function(veldan_test_settings target)
    target_link_libraries(${target} PRIVATE veldan_options GTest::gtest GTest::gmock)
    target_include_directories(${target} PRIVATE ${PROJECT_SOURCE_DIR}/tests)
    target_include_directories(${target} SYSTEM PRIVATE ${OpenCV_INCLUDE_DIRS})
    if(NOT VELDAN_SANITIZE)
        target_compile_options(${target} PRIVATE -O0)
    endif()
    # For ccache, which otherwise does not see the precompiled header in what the compiler would compile.
    target_compile_options(${target} PRIVATE $<$<CXX_COMPILER_ID:GNU>:-fpch-preprocess>)
endfunction()

file(CONFIGURE OUTPUT veldan_test_headers.cpp CONTENT "// A target with nothing but a precompiled header.\n")
add_library(veldan_test_headers OBJECT EXCLUDE_FROM_ALL ${CMAKE_CURRENT_BINARY_DIR}/veldan_test_headers.cpp)
veldan_test_settings(veldan_test_headers)
target_precompile_headers(veldan_test_headers PRIVATE
    <algorithm> <cmath> <cstring> <filesystem> <fstream> <functional> <limits> <memory> <random> <sstream> <string>
    <utility> <vector>
    <gmock/gmock.h> <gtest/gtest.h> <nlohmann/json.hpp>
    <opencv2/core.hpp> <opencv2/imgcodecs.hpp> <opencv2/imgproc.hpp>
)

# veldan_test(name SOURCES files... [LIBS targets...] [SHARED] [LABELS labels...] [PARTS n])
# A GoogleTest program, registered with CTest as one test, or, when it runs for long, as that many parts of about the
# same number of tests: loading OpenCV takes longer than most tests, so they do not get a process each. The program
# links the static library with all internals; with SHARED it links the shared library instead and so sees only what an
# application sees.
function(veldan_test name)
    cmake_parse_arguments(PARSE_ARGV 1 arg "SHARED" "PARTS" "SOURCES;LIBS;LABELS")
    add_executable(${name} ${arg_SOURCES})
    if(arg_SHARED)
        target_link_libraries(${name} PRIVATE veldan)
    else()
        target_link_libraries(${name} PRIVATE veldan_internal)
    endif()
    veldan_test_settings(${name})
    target_link_libraries(${name} PRIVATE GTest::gtest_main ${arg_LIBS})
    target_compile_definitions(${name} PRIVATE VELDAN_PHOTO_DIR="${PROJECT_SOURCE_DIR}/examples/photos")
    target_precompile_headers(${name} REUSE_FROM veldan_test_headers)
    if(NOT arg_PARTS)
        add_test(NAME ${name} COMMAND ${name})
        set_tests_properties(${name} PROPERTIES TIMEOUT 1200 LABELS "${arg_LABELS}")
        return()
    endif()
    math(EXPR last "${arg_PARTS} - 1")
    foreach(part RANGE ${last})
        add_test(NAME ${name}.${part} COMMAND ${name})
        # The long ones go first, so that the last processor to finish does not wait for them.
        set_tests_properties(${name}.${part} PROPERTIES TIMEOUT 1200 LABELS "${arg_LABELS}" COST 100
            ENVIRONMENT "GTEST_TOTAL_SHARDS=${arg_PARTS};GTEST_SHARD_INDEX=${part}")
    endforeach()
endfunction()
