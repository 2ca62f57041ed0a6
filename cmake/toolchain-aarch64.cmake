# Linux AArch64 with Debian's cross compiler; programs run under qemu-user
# with the cross sysroot's loader and libraries.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR aarch64)

set(CMAKE_C_COMPILER aarch64-linux-gnu-gcc)
set(CMAKE_CXX_COMPILER aarch64-linux-gnu-g++)
find_program(VEXA_CROSS_FORTRAN aarch64-linux-gnu-gfortran)
if(VEXA_CROSS_FORTRAN)
  set(CMAKE_Fortran_COMPILER ${VEXA_CROSS_FORTRAN})
endif()

set(VEXA_CROSS_SYSROOT /usr/aarch64-linux-gnu)
set(CMAKE_FIND_ROOT_PATH ${VEXA_CROSS_SYSROOT})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)

# VEXA_EMULATED tells the tests that cannot mean anything under qemu-user.
set(CMAKE_CROSSCOMPILING_EMULATOR env VEXA_EMULATED=1 qemu-aarch64 -L ${VEXA_CROSS_SYSROOT})
