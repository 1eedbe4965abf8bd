# 32-bit ARM Linux (hard-float) with Debian's cross compilers. Test programs
# run under user-mode emulation, so ctest works exactly as it does natively.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR arm)

set(LUM_ARM_TRIPLE arm-linux-gnueabihf)
set(LUM_ARM_SYSROOT /usr/${LUM_ARM_TRIPLE} CACHE PATH "Library root of the ARM target")

set(CMAKE_C_COMPILER ${LUM_ARM_TRIPLE}-gcc)
set(CMAKE_CXX_COMPILER ${LUM_ARM_TRIPLE}-g++)

set(CMAKE_FIND_ROOT_PATH ${LUM_ARM_SYSROOT})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)

find_program(LUM_QEMU_ARM qemu-arm REQUIRED)
set(CMAKE_CROSSCOMPILING_EMULATOR ${LUM_QEMU_ARM};-L;${LUM_ARM_SYSROOT})
