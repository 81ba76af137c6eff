# Helpers shared by the folders' CMakeLists.

# kx_add_component(NAME <target> DEPS <targets...>)
# A static library of the module made from every .cpp of the calling folder
# (hidden visibility, position independent). A folder without sources yet gives an
# interface library, so the tree configures while a subsystem is being written.
function(kx_add_component)
  cmake_parse_arguments(ARG "" "NAME" "DEPS" ${ARGN})
  file(GLOB _sources CONFIGURE_DEPENDS ${CMAKE_CURRENT_SOURCE_DIR}/*.cpp)
  if(_sources)
    add_library(${ARG_NAME} STATIC ${_sources})
    target_include_directories(${ARG_NAME} PUBLIC ${PROJECT_SOURCE_DIR})
    target_link_libraries(${ARG_NAME} PUBLIC ${ARG_DEPS})
  else()
    add_library(${ARG_NAME} INTERFACE)
    target_include_directories(${ARG_NAME} INTERFACE ${PROJECT_SOURCE_DIR})
    target_link_libraries(${ARG_NAME} INTERFACE ${ARG_DEPS})
  endif()
endfunction()

# kx_add_test_suite(NAME <exe> DEPS <targets...> [NOT_ON_WINDOWS <files...>]
#                   [WINE_GTEST_FILTER <filter>])
# A GoogleTest executable from every *_test.cpp of the calling folder, registered
# with CTest (tests discovered when ctest runs). Under Wine each suite is one CTest
# test (one Wine process for the whole suite rather than one per test); the files
# named NOT_ON_WINDOWS test POSIX matters and are left out of the Windows build;
# *_win32_test.cpp files test Windows matters and are built on Windows only; a
# suite's own helpers that differ by system come in pairs, *_posix.cpp (built
# everywhere but Windows) and *_win32.cpp (Windows only), behind one header;
# WINE_GTEST_FILTER leaves out tests that expect the headless POSIX backend's answers.
function(kx_add_test_suite)
  cmake_parse_arguments(ARG "" "NAME;WINE_GTEST_FILTER" "DEPS;NOT_ON_WINDOWS" ${ARGN})
  file(GLOB _sources CONFIGURE_DEPENDS ${CMAKE_CURRENT_SOURCE_DIR}/*.cpp)
  if(WIN32)
    foreach(_file ${ARG_NOT_ON_WINDOWS})
      list(REMOVE_ITEM _sources ${CMAKE_CURRENT_SOURCE_DIR}/${_file})
    endforeach()
    list(FILTER _sources EXCLUDE REGEX ".*_posix\\.cpp$")
  else()
    list(FILTER _sources EXCLUDE REGEX ".*_win32(_test)?\\.cpp$")
  endif()
  if(NOT _sources)
    return()
  endif()
  add_executable(${ARG_NAME} ${_sources})
  target_link_libraries(${ARG_NAME} PRIVATE ${ARG_DEPS} kx_test_support GTest::gtest GTest::gtest_main Threads::Threads)
  # g++ 12 at -O3 reports false buffer overflows inside inlined std::vector copies
  # of test fixtures; the sanitizer build checks the real accesses.
  if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
    target_compile_options(${ARG_NAME} PRIVATE -Wno-stringop-overflow -Wno-stringop-overread -Wno-restrict -Wno-array-bounds)
  endif()
  if(CMAKE_CROSSCOMPILING)
    set(_filter "")
    if(ARG_WINE_GTEST_FILTER)
      set(_filter "--gtest_filter=${ARG_WINE_GTEST_FILTER}")
    endif()
    add_test(NAME ${ARG_NAME} COMMAND ${ARG_NAME} --gtest_brief=1 ${_filter})
    set_tests_properties(${ARG_NAME} PROPERTIES ENVIRONMENT "KX_ANSI_CODEPAGE=1252" TIMEOUT 1200)
  else()
    gtest_discover_tests(${ARG_NAME} DISCOVERY_MODE PRE_TEST DISCOVERY_TIMEOUT 60
                         PROPERTIES ENVIRONMENT "KX_ANSI_CODEPAGE=1252")
  endif()
endfunction()
