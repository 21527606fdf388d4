# cryptcli_harden(TARGET...)
#
# What the compiler and the linker offer against the exploitation of a mistake, for what is shipped. The tests link the
# same objects, so that they see what it changes. Builds with sanitizers, fuzzers or coverage are left alone: they
# look at memory themselves, and read sources by their full paths.
include(CMakeDependentOption)
include(CheckCXXCompilerFlag)
include(CheckCXXSourceCompiles)
include(CheckPIESupported)

cmake_dependent_option(CRYPTCLI_HARDENING "Harden what is shipped" ${PROJECT_IS_TOP_LEVEL}
  "NOT CRYPTCLI_SANITIZE;NOT CRYPTCLI_COVERAGE;NOT CRYPTCLI_FUZZ" OFF)

if(CRYPTCLI_HARDENING)
  check_pie_supported(LANGUAGES CXX)
  set(cryptcli_hardening_flags "")
  set(CMAKE_REQUIRED_FLAGS -Werror) # clang only warns of a flag that means nothing on its target
  foreach(flag -fstack-protector-strong -fstack-clash-protection -fcf-protection=full -mbranch-protection=standard)
    string(MAKE_C_IDENTIFIER "CRYPTCLI_HAS${flag}" known)
    check_cxx_compiler_flag(${flag} ${known})
    if(${known})
      list(APPEND cryptcli_hardening_flags ${flag})
    endif()
  endforeach()
  # The C library takes the level down, with a warning, where the compiler cannot follow an object's size at run time.
  set(CMAKE_REQUIRED_FLAGS "-O2 -Werror -U_FORTIFY_SOURCE -D_FORTIFY_SOURCE=3")
  check_cxx_source_compiles("#include <cstdio>\nint main() { return __USE_FORTIFY_LEVEL == 3 ? 0 : -1; }\n\
#if __USE_FORTIFY_LEVEL != 3\n#error\n#endif" CRYPTCLI_HAS_FORTIFY_3)
  unset(CMAKE_REQUIRED_FLAGS)
  set(cryptcli_fortify_level $<IF:$<BOOL:${CRYPTCLI_HAS_FORTIFY_3}>,3,2>)
endif()

function(cryptcli_harden)
  if(NOT CRYPTCLI_HARDENING)
    return()
  endif()
  # None is what packagers build with, whose own flags optimise.
  set(optimised $<CONFIG:Release,RelWithDebInfo,MinSizeRel,None>)
  foreach(target ${ARGN})
    target_compile_options(${target} PRIVATE ${cryptcli_hardening_flags}
      # Without optimisation it does nothing but warn. Distributions predefine it, at a level of their own.
      $<${optimised}:-U_FORTIFY_SOURCE> $<${optimised}:-D_FORTIFY_SOURCE=${cryptcli_fortify_level}>
      # A debugger that is started in the source folder finds the sources by the relative paths that remain.
      $<${optimised}:-ffile-prefix-map=${CMAKE_BINARY_DIR}=./build>
      $<${optimised}:-ffile-prefix-map=${PROJECT_SOURCE_DIR}=.>)
    get_target_property(type ${target} TYPE)
    if(type MATCHES "^(SHARED_LIBRARY|EXECUTABLE)$")
      target_link_options(${target} PRIVATE LINKER:-z,relro,-z,now,-z,noexecstack)
    endif()
  endforeach()
endfunction()
