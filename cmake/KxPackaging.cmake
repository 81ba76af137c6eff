# Installing KXMP3Lib for other programs: the host libraries' export set as a CMake
# package (find_package(KXMP3Lib)) and a pkg-config file (kxmp3lib), beside the
# module, kxhost and the headers that the folders install themselves.
include(CMakePackageConfigHelpers)

set(KX_PACKAGE_CMAKE_DIR ${CMAKE_INSTALL_LIBDIR}/cmake/KXMP3Lib)
set(KX_PACKAGE_INCLUDE_DIR ${CMAKE_INSTALL_INCLUDEDIR}/kxmp3)
set(KX_PACKAGE_PLUGIN_DIR ${CMAKE_INSTALL_LIBDIR}/kxmp3/plugins)

# The records a host reads from this module (MP3Info, ReplayGainRecord, comment header).

install(EXPORT KXMP3LibTargets NAMESPACE KXMP3Lib:: DESTINATION ${KX_PACKAGE_CMAKE_DIR})
configure_package_config_file(${PROJECT_SOURCE_DIR}/cmake/KXMP3LibConfig.cmake.in
  ${CMAKE_CURRENT_BINARY_DIR}/KXMP3LibConfig.cmake
  INSTALL_DESTINATION ${KX_PACKAGE_CMAKE_DIR}
  PATH_VARS KX_PACKAGE_INCLUDE_DIR KX_PACKAGE_PLUGIN_DIR)
write_basic_package_version_file(${CMAKE_CURRENT_BINARY_DIR}/KXMP3LibConfigVersion.cmake
  COMPATIBILITY SameMinorVersion)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/KXMP3LibConfig.cmake ${CMAKE_CURRENT_BINARY_DIR}/KXMP3LibConfigVersion.cmake
  DESTINATION ${KX_PACKAGE_CMAKE_DIR})

# pkg-config: every path relative to the .pc file's own folder, so that an install
# moved elsewhere (cmake --install --prefix DIR) still describes itself.
file(RELATIVE_PATH _kx_pc_up "/root/${CMAKE_INSTALL_LIBDIR}/pkgconfig" "/root")
string(REGEX REPLACE "/$" "" _kx_pc_up "${_kx_pc_up}")
set(KX_PC_PREFIX "\${pcfiledir}/${_kx_pc_up}")
foreach(_kind LIBDIR INCLUDEDIR)
  if(IS_ABSOLUTE "${CMAKE_INSTALL_${_kind}}")
    set(KX_PC_${_kind} "${CMAKE_INSTALL_${_kind}}")
  else()
    set(KX_PC_${_kind} "\${prefix}/${CMAKE_INSTALL_${_kind}}")
  endif()
endforeach()
set(KX_PC_INCLUDEDIR "${KX_PC_INCLUDEDIR}/kxmp3")
configure_file(${PROJECT_SOURCE_DIR}/cmake/kxmp3lib.pc.in ${CMAKE_CURRENT_BINARY_DIR}/kxmp3lib.pc @ONLY)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/kxmp3lib.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
