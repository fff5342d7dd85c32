# Toolchain for the device: 32-bit ARM, hard float, with Debian's cross compiler; its programs run under qemu-user.
# scripts/arm-libraries fetches what the host needs beyond the C and C++ libraries.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR armv7l)
set(CMAKE_CXX_COMPILER arm-linux-gnueabihf-g++)
set(CMAKE_LIBRARY_ARCHITECTURE arm-linux-gnueabihf)
set(arm_libraries ${CMAKE_CURRENT_LIST_DIR}/../build/arm-libraries)
cmake_path(NORMAL_PATH arm_libraries)
set(CMAKE_FIND_ROOT_PATH /usr/arm-linux-gnueabihf ${arm_libraries})
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE BOTH)  # those that are headers alone are the same everywhere
set(arm_library_path ${arm_libraries}/usr/lib/arm-linux-gnueabihf)
set(CMAKE_CXX_FLAGS_INIT "-isystem ${arm_libraries}/usr/include -isystem ${arm_libraries}/usr/include/arm-linux-gnueabihf")
foreach(kind EXE SHARED MODULE)
  set(CMAKE_${kind}_LINKER_FLAGS_INIT "-L${arm_library_path} -Wl,-rpath-link,${arm_library_path}")
endforeach()
set(CMAKE_CROSSCOMPILING_EMULATOR qemu-arm;-L;/usr/arm-linux-gnueabihf;-E;LD_LIBRARY_PATH=${arm_library_path})
