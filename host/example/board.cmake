# Builds for another board: BOARD_CXX of the environment is its compiler, BOARD_SYSROOT, where the compiler does not bring
# the board's libraries and headers, a directory with them.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_CXX_COMPILER $ENV{BOARD_CXX})
set(CMAKE_SYSROOT $ENV{BOARD_SYSROOT})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
