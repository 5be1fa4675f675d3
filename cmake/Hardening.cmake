# Hardening of every build but those with sanitizers, which look for the same faults and do not go
# together with it. What compiler, linker and processor do not know is left out; what was taken stands
# among CMake's messages.
option(NORVA_HARDENING "Stack protector, FORTIFY, PIE, RELRO, immediate binding, CET or its like" ON)
if(NOT NORVA_HARDENING OR NORVA_SANITIZE)
  return()
endif()

include(CheckCXXCompilerFlag)
include(CheckLinkerFlag)
# CET is -fcf-protection on x86, -mbranch-protection on 64-bit ARM. Clang only warns of what it does not
# know.
set(CMAKE_REQUIRED_FLAGS -Werror)
foreach(flag -fstack-protector-strong -fstack-clash-protection -fcf-protection=full
             -mbranch-protection=standard)
  string(MAKE_C_IDENTIFIER "NORVA_HAS${flag}" has)
  check_cxx_compiler_flag(${flag} ${has})
  if(${has})
    add_compile_options(${flag})
  endif()
endforeach()
unset(CMAKE_REQUIRED_FLAGS)
check_linker_flag(CXX "LINKER:-z,relro,-z,now" NORVA_HAS_NOW)
if(NORVA_HAS_NOW)
  add_link_options("LINKER:-z,relro,-z,now")
endif()
# -fPIE for the libraries too, which are linked into programs only: CMake's own switch would take -fPIC,
# which costs time.
check_linker_flag(CXX "-pie" NORVA_HAS_PIE)
if(NORVA_HAS_PIE)
  add_compile_options(-fPIE)
  add_link_options(-pie)
endif()
# FORTIFY needs an optimiser. 3 in place of 2 draws a warning from C libraries before glibc 2.34.
add_compile_options(
  "$<$<CONFIG:Release,RelWithDebInfo,MinSizeRel>:-U_FORTIFY_SOURCE;-D_FORTIFY_SOURCE=2>")
