# Windows x64 with Debian's MinGW-w64 (POSIX threads flavour, which the
# standard library's std::thread and std::mutex need); programs run under Wine.
set(CMAKE_SYSTEM_NAME Windows)
set(CMAKE_SYSTEM_PROCESSOR AMD64)

set(CMAKE_C_COMPILER x86_64-w64-mingw32-gcc-posix)
set(CMAKE_CXX_COMPILER x86_64-w64-mingw32-g++-posix)
set(CMAKE_RC_COMPILER x86_64-w64-mingw32-windres)
find_program(VEXA_CROSS_FORTRAN x86_64-w64-mingw32-gfortran-posix)
if(VEXA_CROSS_FORTRAN)
  set(CMAKE_Fortran_COMPILER ${VEXA_CROSS_FORTRAN})
endif()

set(CMAKE_FIND_ROOT_PATH /usr/x86_64-w64-mingw32)
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)

# The library and its programs share one C++ runtime (the compiler's DLLs,
# copied beside them by the project), as exceptions and objects of the
# standard library cross the library's interface.
find_program(VEXA_WINE NAMES wine wine64)
if(VEXA_WINE)
  set(CMAKE_CROSSCOMPILING_EMULATOR ${VEXA_WINE})
endif()
