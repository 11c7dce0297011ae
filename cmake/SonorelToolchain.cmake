# Language level, warnings, sanitizers and the packages that every target may use.

set(CMAKE_CXX_STANDARD 17)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_POSITION_INDEPENDENT_CODE ON)
set(CMAKE_EXPORT_COMPILE_COMMANDS ON)
set(CMAKE_RUNTIME_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/bin)
set(CMAKE_LIBRARY_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/lib)

if(NOT CMAKE_BUILD_TYPE)
    set(CMAKE_BUILD_TYPE Release)
endif()

find_program(CCACHE_PROGRAM ccache)
if(CCACHE_PROGRAM AND NOT CMAKE_CXX_COMPILER_LAUNCHER)
    set(CMAKE_CXX_COMPILER_LAUNCHER ${CCACHE_PROGRAM})
endif()

# The faster linker where it is installed: most of a sanitizer build's links are of test programs.
find_program(LLD_PROGRAM ld.lld)
if(LLD_PROGRAM)
    add_link_options(-fuse-ld=lld)
endif()

find_package(Threads REQUIRED)
find_package(SQLite3 REQUIRED)
find_package(LibXml2 REQUIRED)
find_package(nlohmann_json 3.11 REQUIRED)
find_package(CLI11 REQUIRED)
find_package(GTest REQUIRED)

# The host packages of the platform's base libraries.
set(ANDROID_PREFIX /usr CACHE PATH "Where Debian's android-lib*-dev packages are installed")
set(ANDROID_LIBRARY_DIR ${ANDROID_PREFIX}/lib/${CMAKE_LIBRARY_ARCHITECTURE}/android)
foreach(name utils log base)
    find_library(ANDROID_LIB_${name} ${name} PATHS ${ANDROID_LIBRARY_DIR} NO_DEFAULT_PATH REQUIRED)
    add_library(android::${name} INTERFACE IMPORTED)
    set_target_properties(android::${name} PROPERTIES
        INTERFACE_LINK_LIBRARIES ${ANDROID_LIB_${name}}
        INTERFACE_INCLUDE_DIRECTORIES ${ANDROID_PREFIX}/include/android
        INTERFACE_SYSTEM_INCLUDE_DIRECTORIES ${ANDROID_PREFIX}/include/android)
endforeach()
set(CMAKE_BUILD_RPATH ${ANDROID_LIBRARY_DIR})
set(CMAKE_INSTALL_RPATH "$ORIGIN/../lib;${ANDROID_LIBRARY_DIR}")

add_library(sonorel_options INTERFACE)
target_compile_options(sonorel_options INTERFACE
    -Wall -Wextra -Wshadow -Wnon-virtual-dtor -Woverloaded-virtual -Wformat=2 -Wimplicit-fallthrough
    $<$<BOOL:${SONOREL_WERROR}>:-Werror>
    -fno-omit-frame-pointer)
if(CMAKE_CXX_COMPILER_ID MATCHES Clang)
    target_compile_options(sonorel_options INTERFACE
        -Wthread-safety -Wthread-safety-beta)
endif()

# Calls within and between the libraries without the detours that replaceable symbols need: a relay
# of head data, whose code is cold each time, takes a tenth less time.
if(NOT SONOREL_SANITIZER)
    add_compile_options(-fno-semantic-interposition -fno-plt)
    add_link_options(-Wl,-z,now $<$<STREQUAL:$<TARGET_PROPERTY:TYPE>,SHARED_LIBRARY>:-Wl,-Bsymbolic-functions>)
endif()

# What a method leaves untouched must leave the process as zero, never as old stack bytes.
set(SONOREL_ZERO_INIT_FLAGS -ftrivial-auto-var-init=zero)
if(CMAKE_CXX_COMPILER_ID MATCHES Clang AND CMAKE_CXX_COMPILER_VERSION VERSION_LESS 16)
    list(APPEND SONOREL_ZERO_INIT_FLAGS
        -enable-trivial-auto-var-init-zero-knowing-it-will-be-removed-from-clang)
endif()

if(SONOREL_SANITIZER)
    add_compile_options(-fsanitize=${SONOREL_SANITIZER})
    add_link_options(-fsanitize=${SONOREL_SANITIZER})
    if(SONOREL_SANITIZER MATCHES undefined)
        add_compile_options(-fno-sanitize-recover=all)
        # Debian's base libraries carry no type information that the vptr check could read.
        add_compile_options(-fno-sanitize=vptr)
    endif()
endif()
if(SONOREL_FUZZERS)
    add_compile_options(-fsanitize=fuzzer-no-link,address,undefined -fno-sanitize=vptr)
    add_link_options(-fsanitize=address,undefined)
endif()
