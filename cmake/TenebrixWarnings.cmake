# Warnings as errors on our own code only; applied per target.
add_library(tenebrix_warnings INTERFACE)
target_compile_options(tenebrix_warnings INTERFACE
  -Wall -Wextra -Wpedantic -Wshadow -Wnon-virtual-dtor -Wcast-align
  -Wformat=2 -Wimplicit-fallthrough -Wundef -Werror)
# GCC 12 reports false overlaps in std::string's inlined copies at -O3 (its bug 105651).
if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU" AND CMAKE_CXX_COMPILER_VERSION VERSION_LESS 13)
  target_compile_options(tenebrix_warnings INTERFACE -Wno-restrict)
endif()
