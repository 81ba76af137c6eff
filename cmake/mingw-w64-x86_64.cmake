# Cross build for 64-bit Windows with Debian's mingw-w64 toolchain (the posix-threads
# variant of g++, whose libstdc++ has std::thread and std::mutex).
#   cmake -S . -B build/windows -DCMAKE_TOOLCHAIN_FILE=cmake/mingw-w64-x86_64.cmake
# Tests run through Wine (see cmake/KxWindows.cmake).
set(CMAKE_SYSTEM_NAME Windows)
set(CMAKE_SYSTEM_PROCESSOR x86_64)

set(_kx_triple x86_64-w64-mingw32)
set(CMAKE_C_COMPILER ${_kx_triple}-gcc-posix)
set(CMAKE_CXX_COMPILER ${_kx_triple}-g++-posix)
set(CMAKE_RC_COMPILER ${_kx_triple}-windres)
set(CMAKE_AR ${_kx_triple}-gcc-ar-posix CACHE FILEPATH "")
set(CMAKE_RANLIB ${_kx_triple}-gcc-ranlib-posix CACHE FILEPATH "")

# Libraries and headers of the target come from the mingw-w64 sysroot only; programs
# (windres, python, wine) from the build machine.
set(CMAKE_FIND_ROOT_PATH /usr/${_kx_triple})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
