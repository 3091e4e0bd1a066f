# Common settings for Lumaveil's own targets.
set(LV_WARNINGS -Wall -Wextra -Werror)
set(LV_SANITIZER_FLAGS -fsanitize=address,undefined -fno-sanitize-recover=undefined -fno-omit-frame-pointer)

function(lv_target_defaults target)
    target_compile_options(${target} PRIVATE ${LV_WARNINGS})
    if(LV_SANITIZE)
        target_compile_options(${target} PRIVATE ${LV_SANITIZER_FLAGS})
        target_link_options(${target} PRIVATE ${LV_SANITIZER_FLAGS})
    endif()
endfunction()

# lv_library(name SOURCES... DEPS...): one static library per folder.
function(lv_library name)
    cmake_parse_arguments(ARG "" "" "SOURCES;DEPS" ${ARGN})
    add_library(${name} STATIC ${ARG_SOURCES})
    target_include_directories(${name} PUBLIC ${PROJECT_SOURCE_DIR})
    target_link_libraries(${name} PUBLIC ${ARG_DEPS})
    lv_target_defaults(${name})
endfunction()

function(lv_executable name)
    cmake_parse_arguments(ARG "" "" "SOURCES;DEPS" ${ARGN})
    add_executable(${name} ${ARG_SOURCES})
    target_link_libraries(${name} PRIVATE ${ARG_DEPS})
    set_target_properties(${name} PROPERTIES ENABLE_EXPORTS ON)
    lv_target_defaults(${name})
endfunction()

# Shared-memory names are machine-wide: tests of two build folders (a sanitizer build beside a
# plain one, two checkouts) must never meet in the same segments.
string(MD5 _lv_build_hash "${CMAKE_BINARY_DIR}")
string(SUBSTRING "${_lv_build_hash}" 0 8 LV_TEST_SHM_TAG)

# lv_test(name SOURCES... DEPS... [LABELS...]): a GoogleTest executable run by ctest.
# Every test gets offscreen Qt, its own shared-memory prefix, the leak suppressions and a watchdog
# that prints the stacks of a hung test.
function(lv_test name)
    cmake_parse_arguments(ARG "" "" "SOURCES;DEPS" ${ARGN})
    find_package(GTest REQUIRED)
    if(NOT TARGET lv_test_watchdog)
        # An object library, so its self-registering watchdog is linked into every test.
        add_library(lv_test_watchdog OBJECT ${PROJECT_SOURCE_DIR}/tests/support/LVTestWatchdog.cpp)
        target_link_libraries(lv_test_watchdog PRIVATE GTest::gtest)
        target_include_directories(lv_test_watchdog PRIVATE ${PROJECT_SOURCE_DIR})
        lv_target_defaults(lv_test_watchdog)
    endif()
    lv_executable(${name} SOURCES ${ARG_SOURCES} DEPS ${ARG_DEPS} GTest::gtest GTest::gmock GTest::gtest_main lv_test_watchdog)
    add_test(NAME ${name} COMMAND ${name})
    set_tests_properties(${name} PROPERTIES ENVIRONMENT
        "QT_QPA_PLATFORM=offscreen;LUMAVEIL_SHM_PREFIX=lvtest.${LV_TEST_SHM_TAG}.${name}.;LSAN_OPTIONS=suppressions=${PROJECT_SOURCE_DIR}/tests/lsan.supp:print_suppressions=0;UBSAN_OPTIONS=print_stacktrace=1;LUMAVEIL_TEST_DATA=${PROJECT_SOURCE_DIR}/tests/data")
endfunction()
