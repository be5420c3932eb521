# Warnings as errors on our own code only; applied per target.
add_library(tenebrix_warnings INTERFACE)
target_compile_options(tenebrix_warnings INTERFACE
  -Wall -Wextra -Wpedantic -Wshadow -Wnon-virtual-dtor -Wcast-align
  -Wformat=2 -Wimplicit-fallthrough -Wundef -Werror)
