# 32-bit ARM (ARMv7-A, hard-float VFPv3-D16: Debian's armhf) Linux, built with Debian's
# g++-arm-linux-gnueabihf. size_t and pointers are 32 bits here.
set(CMAKE_SYSTEM_PROCESSOR armv7l)
set(KELSCAN_CROSS_TRIPLE arm-linux-gnueabihf)
set(KELSCAN_CROSS_QEMU qemu-arm)
include(${CMAKE_CURRENT_LIST_DIR}/DebianCross.cmake)
