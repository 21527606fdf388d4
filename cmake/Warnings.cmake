# One set of warnings for every target of ours. A newer compiler warns of more, so a warning is an error only where it is
# asked for: in our own runs.
option(CRYPTCLI_WERROR "Treat a warning as an error" OFF)
add_library(cryptcli_warnings INTERFACE)
target_compile_options(cryptcli_warnings INTERFACE
  -Wall -Wextra -Wpedantic -Wconversion -Wsign-conversion -Wshadow -Wformat=2 -Wundef -Wcast-align
  -Wold-style-cast -Wnon-virtual-dtor -Woverloaded-virtual -Wnull-dereference -Wdouble-promotion
  -Wimplicit-fallthrough $<$<BOOL:${CRYPTCLI_WERROR}>:-Werror>)
# GCC's flow analysis sees null paths through inlined reference counts that cannot be taken.
if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
  target_compile_options(cryptcli_warnings INTERFACE -Wno-null-dereference -Wduplicated-cond -Wlogical-op)
endif()
# Clang takes the fields of an enclosing class for shadowed, though a nested class cannot reach them without an object.
if(CMAKE_CXX_COMPILER_ID STREQUAL "Clang")
  target_compile_options(cryptcli_warnings INTERFACE -Wno-shadow)
endif()
