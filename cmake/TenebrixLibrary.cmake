# tenebrix_library(NAME SOURCES... [DEPS ...]): one static library per folder.
function(tenebrix_library name)
  cmake_parse_arguments(ARG "" "" "SOURCES;DEPS" ${ARGN})
  add_library(${name} STATIC ${ARG_SOURCES})
  target_include_directories(${name} PUBLIC ${PROJECT_SOURCE_DIR})
  target_link_libraries(${name} PUBLIC ${ARG_DEPS} tenebrix_sanitizers
                                PRIVATE tenebrix_warnings)
endfunction()

# tenebrix_executable(NAME SOURCES... [DEPS ...])
function(tenebrix_executable name)
  cmake_parse_arguments(ARG "" "" "SOURCES;DEPS" ${ARGN})
  add_executable(${name} ${ARG_SOURCES})
  target_link_libraries(${name} PRIVATE ${ARG_DEPS} tenebrix_sanitizers tenebrix_warnings)
endfunction()
