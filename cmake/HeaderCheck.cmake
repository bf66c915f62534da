# Compiles every header of src, platform and tools alone, so that none depends on what was included before it.
file(GLOB_RECURSE headers RELATIVE ${PROJECT_SOURCE_DIR} CONFIGURE_DEPENDS
  src/*.h platform/*.h tools/*.h)
set(probes "")
foreach(header IN LISTS headers)
  string(MAKE_C_IDENTIFIER ${header} name)
  set(probe ${PROJECT_BINARY_DIR}/header-check/${name}.cpp)
  file(CONFIGURE OUTPUT ${probe} CONTENT "#include \"${header}\"\n#include \"${header}\"\n")
  list(APPEND probes ${probe})
endforeach()
add_library(header_check OBJECT ${probes})
target_include_directories(header_check PRIVATE
  ${PROJECT_SOURCE_DIR} ${PROJECT_SOURCE_DIR}/src ${PROJECT_SOURCE_DIR}/tools)
target_link_libraries(header_check PRIVATE platform_include PkgConfig::Botan tsuc_options)
