# Toolchain file for Debian's cross compilers, with an emulator for the programs they build; used by script/test-cross.
#   cmake --toolchain cmake/cross.cmake -DMORVIX_CROSS_ARCH=s390x ...
# MORVIX_CROSS_ARCH is Debian's name of the architecture: armhf, arm64 or s390x.
set(CMAKE_TRY_COMPILE_PLATFORM_VARIABLES MORVIX_CROSS_ARCH)
if(MORVIX_CROSS_ARCH STREQUAL armhf)
  set(CMAKE_SYSTEM_PROCESSOR arm)
  set(triplet arm-linux-gnueabihf)
elseif(MORVIX_CROSS_ARCH STREQUAL arm64)
  set(CMAKE_SYSTEM_PROCESSOR aarch64)
  set(triplet aarch64-linux-gnu)
elseif(MORVIX_CROSS_ARCH STREQUAL s390x)
  set(CMAKE_SYSTEM_PROCESSOR s390x)
  set(triplet s390x-linux-gnu)
else()
  message(FATAL_ERROR "MORVIX_CROSS_ARCH is \"${MORVIX_CROSS_ARCH}\"; it should be armhf, arm64 or s390x")
endif()
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_C_COMPILER ${triplet}-gcc)
set(CMAKE_CXX_COMPILER ${triplet}-g++)
set(CMAKE_CROSSCOMPILING_EMULATOR qemu-${CMAKE_SYSTEM_PROCESSOR})
# Allows fused multiply-add, which compilers use outside of strict standard mode. Also disables notes about the ABI of
# compilers before g++ 7, which are not used here.
set(CMAKE_CXX_FLAGS_INIT "-ffp-contract=fast -Wno-psabi")
