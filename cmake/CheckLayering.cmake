# Checks that includes point one way through the layers:
#   cli -> plugin -> layout, tags -> engine -> host, platform
# and that hostlib (the host libraries) never includes the module. Every
# #include "..." of every source in the layered folders is resolved (against the
# including file's folder, then against the tree's root) to the folder it lands in,
# and a folder may only include itself and the folders below it.
#
#   cmake -DKX_TREE=<root of the tree to check> -P CheckLayering.cmake
# Fails (non-zero exit) with one line per offending include.
cmake_minimum_required(VERSION 3.25)

if(NOT KX_TREE)
  message(FATAL_ERROR "KX_TREE is not set")
endif()

set(_below_host "")
set(_below_platform host)
set(_below_hostlib host platform)
set(_below_engine host platform)
set(_below_layout engine host platform)
set(_below_tags engine host platform)
set(_below_plugin layout tags engine host platform)
set(_below_cli plugin layout tags engine host platform)
set(_layers host platform hostlib engine layout tags plugin cli)

set(_violations "")
foreach(_layer IN LISTS _layers)
  if(NOT IS_DIRECTORY "${KX_TREE}/${_layer}")
    continue()
  endif()
  file(GLOB_RECURSE _files "${KX_TREE}/${_layer}/*.h" "${KX_TREE}/${_layer}/*.cpp")
  foreach(_file IN LISTS _files)
    file(STRINGS "${_file}" _lines REGEX "^[ \t]*#[ \t]*include[ \t]*\"")
    get_filename_component(_dir "${_file}" DIRECTORY)
    foreach(_line IN LISTS _lines)
      string(REGEX REPLACE "^[ \t]*#[ \t]*include[ \t]*\"([^\"]+)\".*$" "\\1" _included "${_line}")
      set(_target "")
      if(EXISTS "${_dir}/${_included}")
        get_filename_component(_target "${_dir}/${_included}" ABSOLUTE)
      elseif(EXISTS "${KX_TREE}/${_included}")
        get_filename_component(_target "${KX_TREE}/${_included}" ABSOLUTE)
      else()
        continue()
      endif()
      file(RELATIVE_PATH _relative "${KX_TREE}" "${_target}")
      string(REGEX REPLACE "/.*$" "" _top "${_relative}")
      if(_top STREQUAL _layer OR NOT _top IN_LIST _layers)
        continue()
      endif()
      if(NOT _top IN_LIST _below_${_layer})
        file(RELATIVE_PATH _where "${KX_TREE}" "${_file}")
        string(REPLACE ";" ", " _allowed "${_below_${_layer}}")
        list(APPEND _violations "${_where}: includes ${_included} (${_layer} may include only ${_allowed})")
      endif()
    endforeach()
  endforeach()
endforeach()

if(_violations)
  list(JOIN _violations "\n  " _text)
  message(FATAL_ERROR "includes that point up or sideways:\n  ${_text}")
endif()
message(STATUS "layers: every include points down")
