# Cross build with a compiler of Debian's; scripts/sysroot makes what it links against.
#   NORVA_TARGET    GNU triplet of the target, e.g. s390x-linux-gnu
#   NORVA_SYSROOT   whole sysroot of the target, or empty for the compiler's own
#   NORVA_PREFIX    install prefix of further libraries for the target, or empty
#   NORVA_EMULATOR  command that runs the target's programs
set(CMAKE_TRY_COMPILE_PLATFORM_VARIABLES NORVA_TARGET NORVA_SYSROOT NORVA_PREFIX NORVA_EMULATOR)

set(CMAKE_SYSTEM_NAME Linux)
string(REGEX REPLACE "-.*" "" CMAKE_SYSTEM_PROCESSOR "${NORVA_TARGET}")
set(CMAKE_C_COMPILER ${NORVA_TARGET}-gcc)
set(CMAKE_CXX_COMPILER ${NORVA_TARGET}-g++)
set(CMAKE_LIBRARY_ARCHITECTURE ${NORVA_TARGET})
if(NORVA_SYSROOT)
  set(CMAKE_SYSROOT ${NORVA_SYSROOT})
endif()
set(CMAKE_FIND_ROOT_PATH ${NORVA_SYSROOT} ${NORVA_PREFIX})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
set(CMAKE_CROSSCOMPILING_EMULATOR ${NORVA_EMULATOR})
