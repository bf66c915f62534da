# tsuc_fuzzer(NAME SOURCES file... LINK target...)
#
# With TSUC_FUZZ a libFuzzer program. Without, the same source as the test NAME_corpus, which runs every committed seed of
# fuzz/corpus/NAME, so that what a fuzzer once found stays fixed under every compiler.
if(TSUC_FUZZ)
  # The libraries under test report their coverage; the programs that are no fuzzers just do not listen.
  target_compile_options(tsuc_options INTERFACE -fsanitize=fuzzer-no-link)
endif()

function(tsuc_fuzzer name)
  cmake_parse_arguments(arg "" "" "SOURCES;LINK" ${ARGN})
  set(corpus ${PROJECT_SOURCE_DIR}/fuzz/corpus/${name})
  if(TSUC_FUZZ)
    tsuc_program(${name} SOURCES ${arg_SOURCES} LINK ${arg_LINK})
    target_link_options(${name} PRIVATE -fsanitize=fuzzer)
  else()
    tsuc_program(${name}_corpus
      SOURCES ${arg_SOURCES} ${PROJECT_SOURCE_DIR}/fuzz/corpus_main.cpp
      LINK ${arg_LINK} platform_include)
    add_test(NAME ${name}_corpus COMMAND ${name}_corpus ${corpus})
    set_tests_properties(${name}_corpus PROPERTIES TIMEOUT 120)
  endif()
endfunction()
