# tsuc_benchmark(NAME SOURCES file... LINK target...): a Google Benchmark program with a main of its own. Built by every
# preset without a sanitizer, so that it does not rot; only the numbers of a release mean anything.
function(tsuc_benchmark name)
  cmake_parse_arguments(arg "" "" "SOURCES;LINK" ${ARGN})
  tsuc_program(${name} SOURCES ${arg_SOURCES} LINK ${arg_LINK} benchmark::benchmark)
endfunction()
