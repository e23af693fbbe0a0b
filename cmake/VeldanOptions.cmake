# Compiler settings that every target of ours shares, through the interface target veldan_options.

set(VELDAN_SANITIZE "" CACHE STRING "Sanitizers to build with: empty, address,undefined or thread")

# Only as the top project do we choose for everybody; inside another project its choices stand.
if(PROJECT_IS_TOP_LEVEL)
    get_property(veldan_multi_config GLOBAL PROPERTY GENERATOR_IS_MULTI_CONFIG)
    if(NOT veldan_multi_config AND NOT CMAKE_BUILD_TYPE)
        set(CMAKE_BUILD_TYPE Release CACHE STRING "Build type" FORCE)
    endif()
    find_program(VELDAN_CCACHE ccache)
    if(VELDAN_CCACHE AND NOT CMAKE_CXX_COMPILER_LAUNCHER)
        # Without these two allowances it would not keep what is compiled with a precompiled header.
        set(CMAKE_C_COMPILER_LAUNCHER ${CMAKE_COMMAND} -E env CCACHE_SLOPPINESS=pch_defines,time_macros ${VELDAN_CCACHE})
        set(CMAKE_CXX_COMPILER_LAUNCHER ${CMAKE_C_COMPILER_LAUNCHER})
    endif()
    set(CMAKE_EXPORT_COMPILE_COMMANDS ON)
endif()

add_library(veldan_options INTERFACE)
target_compile_features(veldan_options INTERFACE cxx_std_17)
# -ffp-contract=off: boxes and scores are defined as sequences of single-precision steps; a fused multiply-add would
# change results from one processor to the next.
target_compile_options(veldan_options INTERFACE
    -Wall -Wextra -Wconversion
    -ffp-contract=off
)
if(VELDAN_PACKAGE)
    # Messages of failed checks name source files: without the folder, which differs from one build to the next.
    target_compile_options(veldan_options INTERFACE -ffile-prefix-map=${PROJECT_SOURCE_DIR}/=)
endif()
if(VELDAN_SANITIZE)
    target_compile_options(veldan_options INTERFACE
        -fsanitize=${VELDAN_SANITIZE} -fno-sanitize-recover=all -fno-omit-frame-pointer -g1
        # Of code with checks in it GCC believes that std::regex reads what nobody wrote.
        $<$<CXX_COMPILER_ID:GNU>:-Wno-maybe-uninitialized>)
    target_link_options(veldan_options INTERFACE -fsanitize=${VELDAN_SANITIZE})
endif()

option(VELDAN_UNITY "Compile sources that share costly headers several at a time" ON)
# veldan_unity(target number) compiles that many sources of the target as one: much quicker from scratch where each of
# them includes templates by the ten thousand lines. Names in such a target's unnamed namespaces differ from file to file.
function(veldan_unity target number)
    set_target_properties(${target} PROPERTIES UNITY_BUILD ${VELDAN_UNITY} UNITY_BUILD_BATCH_SIZE ${number})
endfunction()
