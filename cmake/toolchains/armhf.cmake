# Cross build for the product target: 32-bit ARMv7 Linux, NEON, hard float.
# Compiler and emulator come from Debian (g++-arm-linux-gnueabihf, qemu-user); the target's
# libraries from multiarch (libcjson-dev:armhf, libne10-dev:armhf, and for the GStreamer
# element libgstreamer1.0-dev:armhf when it is installed). Test programs run under qemu-arm,
# so ctest runs the same suites as on the host.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR arm)

set(QENAEC_TARGET_TRIPLE arm-linux-gnueabihf)
set(CMAKE_C_COMPILER ${QENAEC_TARGET_TRIPLE}-gcc)
set(CMAKE_CXX_COMPILER ${QENAEC_TARGET_TRIPLE}-g++)

# -ffp-contract=off keeps the rounding of the host build: no fused multiply-adds.
# -fstack-usage writes a .su file per object for the stack figures of `make size`; it does
# not change the code.
set(QENAEC_TARGET_FLAGS
    "-march=armv7-a -mfpu=neon -mfloat-abi=hard -ffp-contract=off -fstack-usage")
set(CMAKE_C_FLAGS_INIT "${QENAEC_TARGET_FLAGS}")
set(CMAKE_CXX_FLAGS_INIT "${QENAEC_TARGET_FLAGS}")

# Multiarch: headers are shared in /usr/include, libraries live in /usr/lib/<triple>.
# The host's library directories are ignored so a missing armhf package fails at configure
# time instead of linking an x86-64 library.
set(CMAKE_LIBRARY_ARCHITECTURE ${QENAEC_TARGET_TRIPLE})
list(APPEND CMAKE_IGNORE_PATH /usr/lib/x86_64-linux-gnu /lib/x86_64-linux-gnu)
# pkg-config (the GStreamer element) reads the target's .pc files only: the multiarch ones,
# or where the armhf GStreamer packages could not be installed, those scripts/setup-armhf.sh
# unpacked into build/armhf-gst (prefixed by pkg-config's sysroot, and found by the linker
# through -rpath-link for the libraries they pull in).
set(QENAEC_GST_UNPACKED ${CMAKE_CURRENT_LIST_DIR}/../../build/armhf-gst)
get_filename_component(QENAEC_GST_UNPACKED ${QENAEC_GST_UNPACKED} ABSOLUTE)
set(QENAEC_TARGET_PKGCONFIG /usr/lib/${QENAEC_TARGET_TRIPLE}/pkgconfig)
if(NOT EXISTS ${QENAEC_TARGET_PKGCONFIG}/gstreamer-1.0.pc
   AND EXISTS ${QENAEC_GST_UNPACKED}${QENAEC_TARGET_PKGCONFIG}/gstreamer-1.0.pc)
    set(ENV{PKG_CONFIG_SYSROOT_DIR} ${QENAEC_GST_UNPACKED})
    set(ENV{PKG_CONFIG_LIBDIR} ${QENAEC_GST_UNPACKED}${QENAEC_TARGET_PKGCONFIG})
    set(CMAKE_MODULE_LINKER_FLAGS_INIT
        "-Wl,-rpath-link,${QENAEC_GST_UNPACKED}/usr/lib/${QENAEC_TARGET_TRIPLE}")
else()
    set(ENV{PKG_CONFIG_LIBDIR} ${QENAEC_TARGET_PKGCONFIG}:/usr/share/pkgconfig)
endif()
set(ENV{PKG_CONFIG_PATH} "")

# The cross toolchain's own runtime (loader, libc, libstdc++) sits under /usr/<triple>; the
# multiarch libraries come after it so both halves use one glibc build.
set(QENAEC_TARGET_SYSROOT /usr/${QENAEC_TARGET_TRIPLE})
set(CMAKE_CROSSCOMPILING_EMULATOR
    qemu-arm -L ${QENAEC_TARGET_SYSROOT}
    -E LD_LIBRARY_PATH=${QENAEC_TARGET_SYSROOT}/lib:/usr/lib/${QENAEC_TARGET_TRIPLE})

