# Flags, GoogleTest and the test helper shared by every folder.

add_library(qvn_warnings INTERFACE)
target_compile_options(qvn_warnings INTERFACE -Wall -Wextra -Wpedantic -Wshadow -Wconversion -Wno-sign-conversion
                                              -Werror=return-type)
target_compile_definitions(qvn_warnings INTERFACE $<$<BOOL:${QVN_WINDOWS}>:UNICODE _UNICODE WIN32_LEAN_AND_MEAN NOMINMAX>)

if(QVN_WINDOWS)
    # Everything static: the module and the test programs need no MinGW runtime DLL beside them.
    add_link_options(-static -static-libgcc -static-libstdc++)
endif()

if(QVN_SANITIZE STREQUAL "address")
    add_compile_options(-fsanitize=address,undefined -fno-omit-frame-pointer -fno-sanitize-recover=undefined)
    add_link_options(-fsanitize=address,undefined)
elseif(QVN_SANITIZE STREQUAL "thread")
    add_compile_options(-fsanitize=thread -fno-omit-frame-pointer)
    add_link_options(-fsanitize=thread)
endif()

# GoogleTest is built from Debian's sources in every tree, so that it carries the tree's own flags
# (sanitizers, MinGW) and nothing is downloaded.
set(QVN_GTEST_SOURCE_DIR /usr/src/googletest CACHE PATH "GoogleTest sources")
set(INSTALL_GTEST OFF CACHE BOOL "" FORCE)
set(BUILD_GMOCK OFF CACHE BOOL "" FORCE)
set(gtest_force_shared_crt ON CACHE BOOL "" FORCE)
add_subdirectory(${QVN_GTEST_SOURCE_DIR} ${CMAKE_BINARY_DIR}/googletest EXCLUDE_FROM_ALL SYSTEM)

include(GoogleTest)

# qvn_add_gtest(NAME SOURCES src... [LIBS lib...])
# One test program; natively each test case is its own CTest entry, under Wine the program is one entry
# (starting Wine per case would cost a second each).
function(qvn_add_gtest name)
    cmake_parse_arguments(ARG "" "" "SOURCES;LIBS" ${ARGN})
    add_executable(${name} ${ARG_SOURCES})
    target_link_libraries(${name} PRIVATE ${ARG_LIBS} GTest::gtest_main qvn_warnings)
    if(QVN_WINDOWS)
        add_test(NAME ${name} COMMAND ${name})
        # A program that crashes under Wine may still exit with status 0 (Wine's crash handler ends it), so
        # a pass is gtest's own closing line, and a failure line or a crash report fails the test. Every
        # program finishes in seconds; the timeout only bounds a hang (Wine now and then leaves a finished
        # program hanging at exit, after gtest's last line).
        set_tests_properties(${name} PROPERTIES TIMEOUT 90 PASS_REGULAR_EXPRESSION "\\[  PASSED  \\]"
                             FAIL_REGULAR_EXPRESSION "\\[  FAILED  \\]|Unhandled exception|Unhandled page fault| hung")
    else()
        gtest_discover_tests(${name} DISCOVERY_TIMEOUT 60 PROPERTIES TIMEOUT 900)
    endif()
endfunction()
