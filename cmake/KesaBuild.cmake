# What every target of this project shares: language, warnings, sanitizers, ccache, where things land.

set(CMAKE_CXX_STANDARD 20)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_EXPORT_COMPILE_COMMANDS ON)
set(CMAKE_LIBRARY_OUTPUT_DIRECTORY ${PROJECT_BINARY_DIR}/lib)
set(CMAKE_RUNTIME_OUTPUT_DIRECTORY ${PROJECT_BINARY_DIR}/bin)
# Relative run paths: an installed or copied tree runs from wherever it stands.
set(CMAKE_BUILD_RPATH_USE_ORIGIN ON)
set(CMAKE_INSTALL_RPATH "$ORIGIN/../${CMAKE_INSTALL_LIBDIR};$ORIGIN")

find_program(KESA_CCACHE ccache)
if(KESA_CCACHE AND NOT CMAKE_CXX_COMPILER_LAUNCHER)
    set(CMAKE_CXX_COMPILER_LAUNCHER ${KESA_CCACHE})
endif()

if(KESA_SANITIZE)
    add_compile_options(-fsanitize=${KESA_SANITIZE} -fno-omit-frame-pointer -fno-sanitize-recover=all)
    add_link_options(-fsanitize=${KESA_SANITIZE})
endif()

# Warnings of our own code; never forced upon those who link us.
function(kesa_warnings target)
    target_compile_options(${target} PRIVATE -Wall -Wextra -Wpedantic -Wshadow -Wnon-virtual-dtor
        $<$<CXX_COMPILER_ID:Clang>:-Wthread-safety>
        # With -O2 g++ 12 sees overlapping copies inside std::string where there are none (GCC bug 105651).
        $<$<AND:$<CXX_COMPILER_ID:GNU>,$<CONFIG:Release>>:-Wno-restrict> $<$<BOOL:${KESA_WERROR}>:-Werror>)
endfunction()

# kesa_library(<target> <output name>): one of the product's shared libraries. Add its sources with target_sources.
function(kesa_library target output)
    add_library(${target} SHARED)
    add_library(Kesa::${target} ALIAS ${target})
    kesa_warnings(${target})
    target_compile_features(${target} PUBLIC cxx_std_20)
    set_target_properties(${target} PROPERTIES
        OUTPUT_NAME ${output} EXPORT_NAME ${target} VERSION ${PROJECT_VERSION} SOVERSION ${PROJECT_VERSION_MAJOR}
        VERIFY_INTERFACE_HEADER_SETS ON)
    target_sources(${target} PUBLIC FILE_SET HEADERS BASE_DIRS include) # must exist before it is installed
    install(TARGETS ${target} EXPORT KesaTargets
        LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
        FILE_SET HEADERS DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/kesa)
endfunction()

# kesa_test(<target> SOURCES <files> LIBRARIES <targets> [LABELS <labels>] [TIMEOUT <seconds>]
#           [RESOURCE_LOCK <name>])
# A GoogleTest program whose cases are discovered one by one. Cases with the same lock do not run at the same time.
function(kesa_test target)
    cmake_parse_arguments(arg "" "TIMEOUT;RESOURCE_LOCK" "SOURCES;LIBRARIES;LABELS" ${ARGN})
    add_executable(${target} ${arg_SOURCES})
    kesa_warnings(${target})
    target_link_libraries(${target} PRIVATE ${arg_LIBRARIES} KesaTestSupport GTest::gmock GTest::gtest_main)
    if(NOT arg_TIMEOUT)
        set(arg_TIMEOUT 120)
    endif()
    # A property with an empty value would take the next property's name for its value.
    set(properties TIMEOUT ${arg_TIMEOUT})
    foreach(property LABELS RESOURCE_LOCK)
        if(arg_${property})
            list(APPEND properties ${property} "${arg_${property}}")
        endif()
    endforeach()
    include(GoogleTest)
    gtest_discover_tests(${target} DISCOVERY_MODE PRE_TEST NO_PRETTY_VALUES PROPERTIES ${properties})
endfunction()
