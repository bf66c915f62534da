# The language, the warnings and the hardening that every target of this tree is built with.
set(CMAKE_CXX_STANDARD 17)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_POSITION_INDEPENDENT_CODE ON)
set(CMAKE_RUNTIME_OUTPUT_DIRECTORY ${PROJECT_BINARY_DIR}/bin)
set(CMAKE_LIBRARY_OUTPUT_DIRECTORY ${PROJECT_BINARY_DIR}/lib)
# Programs find their libraries from where they are themselves: a build is the same in any folder.
set(CMAKE_BUILD_RPATH_USE_ORIGIN ON)

set(TSUC_SANITIZE "" CACHE STRING "Value of -fsanitize= for every target; empty for none")
option(TSUC_FUZZ "Build the fuzz targets with libFuzzer (clang)" OFF)
option(TSUC_COVERAGE "Instrument for gcov" OFF)
option(TSUC_HARDEN "Build with the hardening flags of a release" OFF)

add_library(tsuc_options INTERFACE)

# Warnings, each with the fault it has caught elsewhere.
target_compile_options(tsuc_options INTERFACE
  -Wall -Wextra -Wpedantic -Werror
  -Wshadow               # an inner name that hides the one that was meant
  -Wconversion           # lengths cut to 32 bits
  -Wsign-conversion      # a negative length that becomes a huge one
  -Wold-style-cast       # casts that nobody can search for
  -Wnon-virtual-dtor     # an implementation destroyed through its interface
  -Woverloaded-virtual   # an override that is none
  -Wcast-align -Wformat=2 -Wimplicit-fallthrough)

if(CMAKE_CXX_COMPILER_ID STREQUAL "Clang")
  # Lock rules stand in the headers (support/Mutex.h); clang checks them.
  target_compile_options(tsuc_options INTERFACE -Wthread-safety)
endif()

if(TSUC_SANITIZE)
  target_compile_options(tsuc_options INTERFACE
    -fsanitize=${TSUC_SANITIZE} -fno-sanitize-recover=all -fno-omit-frame-pointer)
  if(TSUC_SANITIZE MATCHES "undefined")
    # The check of virtual tables asks the system through a pipe whether there is memory: with no descriptor left, as in
    # some tests, it takes every object for none.
    target_compile_options(tsuc_options INTERFACE -fno-sanitize=vptr)
  endif()
  target_link_options(tsuc_options INTERFACE -fsanitize=${TSUC_SANITIZE})
endif()

if(TSUC_COVERAGE)
  target_compile_options(tsuc_options INTERFACE --coverage)
  target_link_options(tsuc_options INTERFACE --coverage)
endif()

if(TSUC_HARDEN)
  # The same sources make the same programs: no name of a folder of the machine that builds, and no time of building.
  target_compile_options(tsuc_options INTERFACE -ffile-prefix-map=${PROJECT_SOURCE_DIR}=. -Wdate-time)
  target_compile_definitions(tsuc_options INTERFACE _FORTIFY_SOURCE=3 _GLIBCXX_ASSERTIONS)
  target_compile_options(tsuc_options INTERFACE
    -fstack-protector-strong -fstack-clash-protection
    $<$<STREQUAL:${CMAKE_SYSTEM_PROCESSOR},x86_64>:-fcf-protection=full>
    $<$<STREQUAL:${CMAKE_SYSTEM_PROCESSOR},aarch64>:-mbranch-protection=standard>)
  target_link_options(tsuc_options INTERFACE
    -Wl,-z,relro,-z,now -Wl,-z,noexecstack -Wl,--as-needed)
  include(CheckPIESupported)
  check_pie_supported()
endif()
