# Toolchain file: another architecture of Debian, its programs run by qemu.
#   cmake -S . -B build-armhf -DCMAKE_TOOLCHAIN_FILE=cmake/cross.cmake -DWSMD_CROSS=armhf
# Access points have armhf or mipsel; s390x has the other byte order.

set(WSMD_CROSS armhf CACHE STRING "Architecture to build for: armhf, mipsel or s390x")
list(APPEND CMAKE_TRY_COMPILE_PLATFORM_VARIABLES WSMD_CROSS)
if(WSMD_CROSS STREQUAL armhf)
  set(CMAKE_SYSTEM_PROCESSOR arm)
  set(CMAKE_LIBRARY_ARCHITECTURE arm-linux-gnueabihf)
elseif(WSMD_CROSS MATCHES "^(mipsel|s390x)$")
  set(CMAKE_SYSTEM_PROCESSOR ${WSMD_CROSS})
  set(CMAKE_LIBRARY_ARCHITECTURE ${WSMD_CROSS}-linux-gnu)
else()
  message(FATAL_ERROR "WSMD_CROSS: ${WSMD_CROSS} is not known")
endif()

set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_C_COMPILER ${CMAKE_LIBRARY_ARCHITECTURE}-gcc)
set(CMAKE_CXX_COMPILER ${CMAKE_LIBRARY_ARCHITECTURE}-g++)
set(CMAKE_CROSSCOMPILING_EMULATOR qemu-${CMAKE_SYSTEM_PROCESSOR} CACHE STRING "What runs the programs")
set(ENV{PKG_CONFIG_LIBDIR} /usr/lib/${CMAKE_LIBRARY_ARCHITECTURE}/pkgconfig:/usr/share/pkgconfig)
