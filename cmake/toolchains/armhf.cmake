# Cross-build for 32-bit ARM (hard float) with Debian's cross toolchain (g++-arm-linux-gnueabihf);
# programs built here, the tests included, run under qemu-arm (qemu-user).
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR arm)

set(VEXLOR_ARMHF_TRIPLET arm-linux-gnueabihf)
set(VEXLOR_ARMHF_SYSROOT /usr/${VEXLOR_ARMHF_TRIPLET})
set(CMAKE_C_COMPILER ${VEXLOR_ARMHF_TRIPLET}-gcc)
set(CMAKE_CXX_COMPILER ${VEXLOR_ARMHF_TRIPLET}-g++)

# 64-bit time_t and file offsets: record times stay right after 2038, large files open.
# -Wno-psabi: the notes about the parameter passing that changed in GCC 7.1 concern mixing with
# code built by older compilers, which never happens here.
set(CMAKE_C_FLAGS_INIT "-D_FILE_OFFSET_BITS=64 -D_TIME_BITS=64")
set(CMAKE_CXX_FLAGS_INIT "-D_FILE_OFFSET_BITS=64 -D_TIME_BITS=64 -Wno-psabi")

# Libraries and headers from the target's tree only; tools (nm, strip, qemu) from the host.
set(CMAKE_FIND_ROOT_PATH ${VEXLOR_ARMHF_SYSROOT})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)

# ctest (and test discovery) run target programs through this.
set(CMAKE_CROSSCOMPILING_EMULATOR qemu-arm -L ${VEXLOR_ARMHF_SYSROOT})

# Boost is used header-only, and its headers are the same for every architecture: take the
# host's. They are reached through a directory that holds nothing else, because adding
# /usr/include itself would put the host's C library headers before the target's.
if(NOT CMAKE_PROJECT_NAME STREQUAL "CMAKE_TRY_COMPILE")
  set(VEXLOR_HOST_BOOST_DIR ${CMAKE_BINARY_DIR}/host-boost)
  if(NOT EXISTS ${VEXLOR_HOST_BOOST_DIR}/boost AND EXISTS /usr/include/boost)
    file(MAKE_DIRECTORY ${VEXLOR_HOST_BOOST_DIR})
    file(CREATE_LINK /usr/include/boost ${VEXLOR_HOST_BOOST_DIR}/boost SYMBOLIC)
  endif()
  set(Boost_INCLUDE_DIR ${VEXLOR_HOST_BOOST_DIR} CACHE PATH "Boost headers (the host's, architecture-independent)")
  set(Boost_NO_BOOST_CMAKE ON)
endif()
