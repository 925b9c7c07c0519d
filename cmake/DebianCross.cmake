# Cross-compiling for Linux on another processor with Debian's cross compilers and the target's
# multiarch packages (dpkg --add-architecture; libpng-dev:<arch> and so on, installed by
# .ci/deps). Included by the per-target toolchain files, which set KELSCAN_CROSS_TRIPLE (the
# GNU triple: compiler prefix and multiarch folder), KELSCAN_CROSS_QEMU (the qemu-user program
# that runs the target's programs here) and CMAKE_SYSTEM_PROCESSOR.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_C_COMPILER ${KELSCAN_CROSS_TRIPLE}-gcc)
set(CMAKE_CXX_COMPILER ${KELSCAN_CROSS_TRIPLE}-g++)
# GCC notes where the passing of some C++ arguments changed in GCC 7.1 (32-bit ARM) and 10.1
# (aarch64); every object here is built by one compiler, so the notes say nothing.
set(CMAKE_CXX_FLAGS_INIT "-Wno-psabi")
# Libraries and packages come from the target's multiarch folders (/usr/lib/<triple>, which
# CMake searches by CMAKE_LIBRARY_ARCHITECTURE) and from the architecture-independent ones
# (header-only CLI11 under /usr/share/cmake); the host's own /usr/lib/<host triple> is never
# searched. Programs run during the build (none but the emulator) are the host's.
set(CMAKE_LIBRARY_ARCHITECTURE ${KELSCAN_CROSS_TRIPLE})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(ENV{PKG_CONFIG_LIBDIR} /usr/lib/${KELSCAN_CROSS_TRIPLE}/pkgconfig:/usr/share/pkgconfig)
# Every program of the target (tests, test discovery, the kelscan program in the scripted
# tests) runs through qemu-user with the target's own multiarch C library and loader
# (libc6:<arch>, /lib/<triple>), never with -L /usr/<triple>: that loader comes from the cross
# compiler's libc6-<arch>-cross, built from another glibc revision than the multiarch libc.so.6
# that the loader then finds, and the mixture hangs or crashes in fork(). The cross copy serves
# the link only.
find_program(KELSCAN_CROSS_QEMU_PROGRAM ${KELSCAN_CROSS_QEMU} REQUIRED)
set(CMAKE_CROSSCOMPILING_EMULATOR ${KELSCAN_CROSS_QEMU_PROGRAM} -L /)
