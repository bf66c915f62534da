# tsuc_component(NAME [SHARED] SOURCES Stem... [TESTS Stem...] [LINK target...] [TEST_LINK target...])
#
# One library from Stem.cpp of each stem, and one test program NAME_test from the Stem_test.cpp that stand beside them
# (and of the stems after TESTS, whose code is in a header). script/check-tree fails on a test file that no build file
# names.
function(tsuc_component name)
  cmake_parse_arguments(arg "SHARED" "" "SOURCES;TESTS;LINK;TEST_LINK" ${ARGN})
  set(type STATIC)
  if(arg_SHARED)
    set(type SHARED)
  endif()
  set(sources ${arg_SOURCES})
  list(TRANSFORM sources APPEND .cpp)
  add_library(${name} ${type} ${sources})
  target_include_directories(${name} PUBLIC ${PROJECT_SOURCE_DIR}/src)
  target_link_libraries(${name} PUBLIC ${arg_LINK} PRIVATE tsuc_options)

  set(tests "")
  foreach(stem IN LISTS arg_SOURCES arg_TESTS)
    if(EXISTS ${CMAKE_CURRENT_SOURCE_DIR}/${stem}_test.cpp)
      list(APPEND tests ${stem}_test.cpp)
    endif()
  endforeach()
  if(tests)
    tsuc_test(${name}_test SOURCES ${tests} LINK ${name} ${arg_TEST_LINK})
  endif()
endfunction()

# How long a whole test program may take, how its own code is compiled; and in a cross build what its filter leaves out, as
# the end of the filter.
set(TSUC_PROGRAM_TIMEOUT 600)
set(TSUC_TEST_OPTIMISATION -O0)
set(TSUC_SKIPPED "")
if(CMAKE_CROSSCOMPILING)
  set(TSUC_PROGRAM_TIMEOUT 1800)
  set(TSUC_TEST_OPTIMISATION -O1)
  file(STRINGS ${CMAKE_CURRENT_LIST_DIR}/emulator-skips.txt skipped REGEX "^[^#]")
  set_property(DIRECTORY ${PROJECT_SOURCE_DIR} APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS
    ${CMAKE_CURRENT_LIST_DIR}/emulator-skips.txt)
  list(JOIN skipped ":" TSUC_SKIPPED)
  string(PREPEND TSUC_SKIPPED ":-")
endif()

# tsuc_test(NAME [TESTS Stem...] [SOURCES file...] [PARTS filter...] LINK target...): a GoogleTest program of
# Stem_test.cpp and further files, each of its tests known to ctest and run in a process of its own; with PARTS, what each
# of these filters names in one process. Under sanitizers and in an emulator ctest knows a program without PARTS as a whole:
# to start one takes longer than most tests. Tests that read the test certificates find them through TSUC_TEST_PKI, made once before
# the first of them (tests/pki). None for another platform than the host's: they stand on it.
function(tsuc_test name)
  if(NOT TSUC_ON_HOST_PLATFORM)
    return()
  endif()
  cmake_parse_arguments(arg "" "" "TESTS;SOURCES;PARTS;LINK" ${ARGN})
  list(TRANSFORM arg_TESTS APPEND _test.cpp)
  add_executable(${name} ${arg_TESTS} ${arg_SOURCES})
  target_include_directories(${name} PRIVATE ${PROJECT_SOURCE_DIR} ${PROJECT_SOURCE_DIR}/src)
  target_link_libraries(${name} PRIVATE ${arg_LINK} GTest::gmock GTest::gmock_main tsuc_options)
  tsuc_compile_quickly(${name})
  if((TSUC_SANITIZE OR CMAKE_CROSSCOMPILING) AND NOT arg_PARTS)
    set(arg_PARTS "*")
  endif()
  foreach(part IN LISTS arg_PARTS)
    string(REGEX REPLACE "[^A-Za-z0-9]+" "" suffix "${part}")
    string(PREPEND suffix _)
    string(REGEX REPLACE "_$" "" suffix "${suffix}")
    add_test(NAME ${name}${suffix} COMMAND ${name} --gtest_brief=1 "--gtest_filter=${part}${TSUC_SKIPPED}")
    set_tests_properties(${name}${suffix} PROPERTIES
      TIMEOUT ${TSUC_PROGRAM_TIMEOUT} FIXTURES_REQUIRED test_pki ENVIRONMENT "${TSUC_TEST_ENVIRONMENT}")
  endforeach()
  if(arg_PARTS)
    return()
  endif()
  include(GoogleTest)
  gtest_discover_tests(${name}
    DISCOVERY_TIMEOUT 60
    PROPERTIES TIMEOUT 120 FIXTURES_REQUIRED test_pki ENVIRONMENT "${TSUC_TEST_ENVIRONMENT}")
endfunction()

# What every test has in its environment, in TSUC_TEST_ENVIRONMENT. ThreadSanitizer is told what to overlook by a copy in
# the build folder, which the sandboxes of whole units see.
set(TSUC_TEST_ENVIRONMENT "TSUC_TEST_PKI=${PROJECT_BINARY_DIR}/test-pki")
if(TSUC_SANITIZE MATCHES "thread")
  configure_file(${PROJECT_SOURCE_DIR}/tests/tsan-suppressions.txt ${PROJECT_BINARY_DIR}/tsan-suppressions.txt COPYONLY)
  list(APPEND TSUC_TEST_ENVIRONMENT "TSAN_OPTIONS=suppressions=${PROJECT_BINARY_DIR}/tsan-suppressions.txt")
endif()

# tsuc_compile_quickly(TEST): the tests' own code need not be quick, and what every test includes is read once. It takes
# two thirds off their build. (_FORTIFY_SOURCE wants optimised code.) In an emulator slow code is ten times as slow.
function(tsuc_compile_quickly name)
  if(NOT TARGET tsuc_test_headers)
    file(CONFIGURE OUTPUT ${PROJECT_BINARY_DIR}/test_headers.cpp CONTENT "")
    add_library(tsuc_test_headers OBJECT ${PROJECT_BINARY_DIR}/test_headers.cpp)
    target_link_libraries(tsuc_test_headers PRIVATE GTest::gmock tsuc_options)
    # As programs are compiled: what was read for a library does not fit.
    set_target_properties(tsuc_test_headers PROPERTIES POSITION_INDEPENDENT_CODE OFF)
    target_compile_options(tsuc_test_headers PRIVATE ${TSUC_TEST_OPTIMISATION} -U_FORTIFY_SOURCE -fPIE)
    target_precompile_headers(tsuc_test_headers PRIVATE <gmock/gmock.h> <gtest/gtest.h>)
  endif()
  target_compile_options(${name} PRIVATE ${TSUC_TEST_OPTIMISATION} -U_FORTIFY_SOURCE)
  target_precompile_headers(${name} REUSE_FROM tsuc_test_headers)
endfunction()

# tsuc_program(NAME SOURCES file... LINK target...)
function(tsuc_program name)
  cmake_parse_arguments(arg "" "" "SOURCES;LINK" ${ARGN})
  add_executable(${name} ${arg_SOURCES})
  target_include_directories(${name} PRIVATE ${PROJECT_SOURCE_DIR} ${PROJECT_SOURCE_DIR}/src)
  target_link_libraries(${name} PRIVATE ${arg_LINK} tsuc_options)
endfunction()

# tsuc_pytest(NAME [TIMEOUT seconds] [WORKERS count]): the Python tests of this folder as one test of ctest with the label
# NAME, on the programs of this build; so many at a time, more than two where most of them wait. They begin first:
# they wait where others work. They start programs as this machine's: a cross build has none of them.
function(tsuc_pytest name)
  if(CMAKE_CROSSCOMPILING)
    return()
  endif()
  cmake_parse_arguments(arg "" "TIMEOUT;WORKERS" "" ${ARGN})
  if(NOT arg_TIMEOUT)
    set(arg_TIMEOUT 120)
  endif()
  if(NOT arg_WORKERS)
    set(arg_WORKERS 2)
  endif()
  add_test(NAME pytest_${name}
           COMMAND /usr/bin/python3 -m pytest -p no:cacheprovider -n ${arg_WORKERS} ${CMAKE_CURRENT_SOURCE_DIR}
           WORKING_DIRECTORY ${PROJECT_SOURCE_DIR})
  set_tests_properties(pytest_${name} PROPERTIES
    TIMEOUT ${arg_TIMEOUT} COST ${arg_TIMEOUT} FIXTURES_REQUIRED test_pki LABELS ${name}
    ENVIRONMENT "PYTHONDONTWRITEBYTECODE=1;TSUC_BUILD_DIR=${PROJECT_BINARY_DIR};${TSUC_TEST_ENVIRONMENT}")
endfunction()
