# 64-bit ARM (ARMv8-A, aarch64) Linux, built with Debian's g++-aarch64-linux-gnu.
set(CMAKE_SYSTEM_PROCESSOR aarch64)
set(KELSCAN_CROSS_TRIPLE aarch64-linux-gnu)
set(KELSCAN_CROSS_QEMU qemu-aarch64)
include(${CMAKE_CURRENT_LIST_DIR}/DebianCross.cmake)
