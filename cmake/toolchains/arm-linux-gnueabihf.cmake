# 32-bit ARM Linux (hard-float) with Debian's cross compilers. Test programs
# run under user-mode emulation when qemu-arm is installed, so ctest works
# exactly as it does natively; building needs only the cross compilers.
# Installed with LumBase (lib/cmake/LumBase/); to cross-build an application
# against an ARM install of LumBase under <prefix>:
#   cmake -S app -B build-arm -DCMAKE_TOOLCHAIN_FILE=<this file> -DCMAKE_PREFIX_PATH=<prefix>
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR arm)

set(LUM_ARM_TRIPLE arm-linux-gnueabihf)
set(LUM_ARM_SYSROOT /usr/${LUM_ARM_TRIPLE} CACHE PATH "Library root of the ARM target")

set(CMAKE_C_COMPILER ${LUM_ARM_TRIPLE}-gcc)
set(CMAKE_CXX_COMPILER ${LUM_ARM_TRIPLE}-g++)

# Packages are searched for under the target's library root and under
# every prefix given in CMAKE_PREFIX_PATH (an ARM install of LumBase), never
# among the host's own.
set(CMAKE_FIND_ROOT_PATH ${LUM_ARM_SYSROOT} ${CMAKE_PREFIX_PATH})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)

find_program(LUM_QEMU_ARM qemu-arm)
if(LUM_QEMU_ARM)
  set(CMAKE_CROSSCOMPILING_EMULATOR ${LUM_QEMU_ARM};-L;${LUM_ARM_SYSROOT})
endif()
