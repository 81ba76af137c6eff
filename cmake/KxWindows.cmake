# The Windows build (cross-compiled with mingw-w64, cmake/mingw-w64-x86_64.cmake):
# what differs from the Linux build besides the sources each folder picks.

# Dialog templates are resources (windres).
enable_language(RC)

# The three PE files carry the C++ runtime inside (libstdc++, libgcc, winpthread), so
# that they need nothing beside them but each other and the system's DLLs.
add_link_options(-static)
# Windows gives a program's threads 1 MiB of stack unless its header asks for more;
# ask for what Linux gives (the decoder keeps its per-frame work areas on the stack).
set(CMAKE_EXE_LINKER_FLAGS "${CMAKE_EXE_LINKER_FLAGS} -Wl,--stack,8388608")
# The Windows x64 stack is 16-byte aligned and GCC does not realign it for 32- and
# 64-byte vectors it spills in the AVX2 and AVX-512 kernels: the assembler turns the
# aligned moves into unaligned ones, which cost nothing on aligned data.
add_compile_options(-Wa,-muse-unaligned-vector-move)
# Windows 7 and later; the system's headers then declare what the backends call.
add_compile_definitions(_WIN32_WINNT=0x0601 WINVER=0x0601)

# Header-only libraries of kxhost, from the build machine's packages (Debian's
# libcli11-dev and nlohmann-json3-dev): their headers are copied into the build
# folder, so that the build machine's other headers stay out of the Windows build.
set(_kx_host_headers ${CMAKE_BINARY_DIR}/host-headers)
foreach(_dir CLI nlohmann)
  if(NOT EXISTS ${_kx_host_headers}/${_dir} AND EXISTS /usr/include/${_dir})
    file(COPY /usr/include/${_dir} DESTINATION ${_kx_host_headers})
  endif()
endforeach()
if(NOT TARGET CLI11::CLI11)
  add_library(CLI11::CLI11 INTERFACE IMPORTED)
  set_target_properties(CLI11::CLI11 PROPERTIES INTERFACE_INCLUDE_DIRECTORIES ${_kx_host_headers})
endif()
if(NOT TARGET nlohmann_json::nlohmann_json)
  add_library(nlohmann_json::nlohmann_json INTERFACE IMPORTED)
  set_target_properties(nlohmann_json::nlohmann_json PROPERTIES INTERFACE_INCLUDE_DIRECTORIES ${_kx_host_headers})
endif()

# Tests and test discovery run under Wine with a prefix inside the build folder
# (made by the first run); paths of the build machine reach Windows programs as Z:.
if(CMAKE_CROSSCOMPILING)
  set(KX_WINE_PREFIX ${CMAKE_BINARY_DIR}/wine CACHE PATH "Wine prefix of the tests")
  configure_file(${PROJECT_SOURCE_DIR}/scripts/wine_run.sh.in ${CMAKE_BINARY_DIR}/wine_run.sh @ONLY
                 FILE_PERMISSIONS OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)
  set(CMAKE_CROSSCOMPILING_EMULATOR ${CMAKE_BINARY_DIR}/wine_run.sh)
  set(KX_HOST_PATH_PREFIX "Z:")
endif()
