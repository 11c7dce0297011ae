# The few kinds of target that this project builds.

# sonorel_library(NAME SOURCES ... [INCLUDES ...] [LINK ...] [OUTPUT file-stem])
# A shared library. LINK and INCLUDES are public: who links it sees them.
function(sonorel_library name)
    cmake_parse_arguments(ARG "" "OUTPUT" "SOURCES;INCLUDES;LINK" ${ARGN})
    add_library(${name} SHARED ${ARG_SOURCES})
    target_include_directories(${name} PUBLIC ${ARG_INCLUDES})
    target_link_libraries(${name} PUBLIC ${ARG_LINK} Threads::Threads PRIVATE sonorel_options)
    if(ARG_OUTPUT)
        set_target_properties(${name} PROPERTIES OUTPUT_NAME ${ARG_OUTPUT})
    endif()
    sonorel_teach_sanitizer(${name})
endfunction()

# sonorel_compile_fast(NAME): for what runs briefly. Optimising template-heavy parsers and test
# macros takes most of a build's time.
function(sonorel_compile_fast name)
    target_compile_options(${name} PRIVATE -O0)
endfunction()

# sonorel_executable(NAME SOURCES ... [LINK ...])
function(sonorel_executable name)
    cmake_parse_arguments(ARG "" "" "SOURCES;LINK" ${ARGN})
    add_executable(${name} ${ARG_SOURCES})
    target_link_libraries(${name} PRIVATE ${ARG_LINK} Threads::Threads sonorel_options)
    sonorel_teach_sanitizer(${name})
endfunction()

# sonorel_test(NAME SOURCES ... [LINK ...] [TIMEOUT seconds] [LABELS ...] [NEEDS target ...])
# A GoogleTest program, one CTest entry. NEEDS names programs that the test starts.
function(sonorel_test name)
    cmake_parse_arguments(ARG "" "TIMEOUT" "SOURCES;LINK;LABELS;NEEDS" ${ARGN})
    sonorel_executable(${name} SOURCES ${ARG_SOURCES} LINK ${ARG_LINK} GTest::gtest GTest::gmock GTest::gtest_main)
    sonorel_compile_fast(${name})
    target_compile_definitions(${name} PRIVATE
        SONOREL_BIN_DIR="${CMAKE_RUNTIME_OUTPUT_DIRECTORY}"
        SONOREL_LIB_DIR="${CMAKE_LIBRARY_OUTPUT_DIRECTORY}")
    target_include_directories(${name} PRIVATE ${CMAKE_SOURCE_DIR}/tests)
    if(ARG_NEEDS)
        add_dependencies(${name} ${ARG_NEEDS})
    endif()
    if(NOT ARG_TIMEOUT)
        set(ARG_TIMEOUT 120)
    endif()
    add_test(NAME ${name} COMMAND ${name})
    set_tests_properties(${name} PROPERTIES TIMEOUT ${ARG_TIMEOUT} LABELS "${ARG_LABELS}")
    if(SONOREL_SANITIZER STREQUAL "thread")
        # A program that leaves without exit handlers would else keep its findings to itself.
        set_tests_properties(${name} PROPERTIES ENVIRONMENT "TSAN_OPTIONS=halt_on_error=1")
    endif()
endfunction()

# sonorel_benchmark(NAME SOURCES ... [LINK ...] [NEEDS target ...])
function(sonorel_benchmark name)
    cmake_parse_arguments(ARG "" "" "SOURCES;LINK;NEEDS" ${ARGN})
    find_package(benchmark REQUIRED)
    sonorel_executable(${name} SOURCES ${ARG_SOURCES} LINK ${ARG_LINK} benchmark::benchmark)
    target_compile_definitions(${name} PRIVATE
        SONOREL_BIN_DIR="${CMAKE_RUNTIME_OUTPUT_DIRECTORY}"
        SONOREL_LIB_DIR="${CMAKE_LIBRARY_OUTPUT_DIRECTORY}")
    if(ARG_NEEDS)
        add_dependencies(${name} ${ARG_NEEDS})
    endif()
endfunction()

# sonorel_fuzzer(NAME SOURCES ... [LINK ...])
function(sonorel_fuzzer name)
    cmake_parse_arguments(ARG "" "" "SOURCES;LINK" ${ARGN})
    sonorel_executable(${name} SOURCES ${ARG_SOURCES} LINK ${ARG_LINK})
    target_link_options(${name} PRIVATE -fsanitize=fuzzer)
endfunction()

# sonorel_corpus_test(NAME CORPUS folder SOURCES ... [LINK ...] [LABELS ...])
# Runs a fuzzer's entry function over its corpus, as a plain test.
function(sonorel_corpus_test name)
    cmake_parse_arguments(ARG "" "CORPUS" "SOURCES;LINK;LABELS" ${ARGN})
    sonorel_test(${name} SOURCES ${CMAKE_SOURCE_DIR}/tests/support/CorpusReplay.cpp ${ARG_SOURCES}
        LINK ${ARG_LINK} sonorel_test_support LABELS ${ARG_LABELS})
    target_compile_definitions(${name} PRIVATE SONOREL_CORPUS="${ARG_CORPUS}")
endfunction()

# Debian's libutils is not built for the thread sanitizer, so the ordering that a reference count
# gives is invisible to it. In that build the counting functions are wrapped at link time.
function(sonorel_teach_sanitizer name)
    if(SONOREL_SANITIZER STREQUAL "thread")
        target_sources(${name} PRIVATE ${CMAKE_SOURCE_DIR}/cmake/ThreadSanitizerRefBase.cpp)
        foreach(symbol _ZNK7android7RefBase9incStrongEPKv _ZNK7android7RefBase9decStrongEPKv
                _ZN7android7RefBase15onLastStrongRefEPKv)
            target_link_options(${name} PRIVATE -Wl,--wrap=${symbol})
        endforeach()
        target_link_libraries(${name} PRIVATE android::utils)
    endif()
endfunction()
