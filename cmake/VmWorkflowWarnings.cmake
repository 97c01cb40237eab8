# SPDX-License-Identifier: MIT
# Warnings and sanitizers shared by every target of the project.
add_compile_options(-Wall -Wextra -Wpedantic)
if(VMWF_WERROR)
    add_compile_options(-Werror)
endif()
if(VMWF_SANITIZE)
    add_compile_options(-fsanitize=address,undefined -fno-omit-frame-pointer -fno-sanitize-recover=undefined)
    add_link_options(-fsanitize=address,undefined)
endif()

if(VMWF_FUZZ)
    if(NOT CMAKE_CXX_COMPILER_ID MATCHES "Clang")
        message(FATAL_ERROR "VMWF_FUZZ needs clang (e.g. -DCMAKE_CXX_COMPILER=clang++-14)")
    endif()
    # Everything is instrumented for coverage; only the fuzz targets link libFuzzer's main().
    add_compile_options(-fsanitize=fuzzer-no-link,address,undefined -fno-omit-frame-pointer
                        -fno-sanitize-recover=undefined)
    add_link_options(-fsanitize=address,undefined)
endif()

set(VMWF_CMAKE_DIR ${CMAKE_CURRENT_LIST_DIR})

# Adds one Qt Test executable and registers it with CTest.
# vmwf_add_test(NAME tst_foo SOURCES a.cpp LIBS lib1 lib2)
function(vmwf_add_test)
    cmake_parse_arguments(T "" "NAME;TIMEOUT" "SOURCES;LIBS" ${ARGN})
    add_executable(${T_NAME} ${T_SOURCES})
    target_link_libraries(${T_NAME} PRIVATE Qt6::Test ${T_LIBS})
    target_include_directories(${T_NAME} PRIVATE ${VMWF_CMAKE_DIR}/../tests/common)
    add_test(NAME ${T_NAME} COMMAND ${T_NAME})
    if(NOT T_TIMEOUT)
        set(T_TIMEOUT 120)
    endif()
    set_tests_properties(${T_NAME} PROPERTIES TIMEOUT ${T_TIMEOUT}
        ENVIRONMENT "QT_QPA_PLATFORM=offscreen;ASAN_OPTIONS=detect_leaks=1:abort_on_error=0;UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1")
    # Runs after the folder of the test programs is noted and before it is checked (tests/CMakeLists.txt).
    set_tests_properties(${T_NAME} PROPERTIES FIXTURES_REQUIRED VmwfTestFolder)
endfunction()
