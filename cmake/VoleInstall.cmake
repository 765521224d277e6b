# What is installed, in parts that packagers can tell apart: runtime, development, tools, icap (in icap/). Nothing that is
# installed has a path of its own prefix in it: packages are staged in other folders, and prefixes are moved.
include(CMakePackageConfigHelpers)

set(vole_cmake_dir "${CMAKE_INSTALL_LIBDIR}/cmake/Vole")
set(vole_pc_dir "${CMAKE_INSTALL_LIBDIR}/pkgconfig")
# Of no use without static libraries of ours, but what a link with all libraries named asks for.
set(vole_libs_private "-lz -pthread")
if(NOT DEFINED VOLE_EXPAT_ROOT)
  string(PREPEND vole_libs_private "-lexpat ")
  if(VOLE_WITH_LIBDEFLATE)
    string(PREPEND vole_libs_private "-ldeflate ")
  endif()
endif()

file(RELATIVE_PATH prefix_from_pc "${CMAKE_INSTALL_FULL_LIBDIR}/pkgconfig" "${CMAKE_INSTALL_PREFIX}")
string(REGEX REPLACE "/$" "" prefix_from_pc "${prefix_from_pc}")
file(RELATIVE_PATH include_from_prefix "${CMAKE_INSTALL_PREFIX}" "${CMAKE_INSTALL_FULL_INCLUDEDIR}")
file(RELATIVE_PATH lib_from_prefix "${CMAKE_INSTALL_PREFIX}" "${CMAKE_INSTALL_FULL_LIBDIR}")

# Installs the shared library `target` with its header as the component `name` of the CMake package and as `name`.pc.
# The part of the installation that has the link lib`name`.so is `link_part`.
# `libs_private`: what else a link with all libraries named would need.
function(vole_install_library target name link_part description cflags libs_private)
  string(PREPEND vole_libs_private "${libs_private}")
  set_target_properties(${target} PROPERTIES EXPORT_NAME ${name})
  install(TARGETS ${target} EXPORT Vole-${name}
    LIBRARY COMPONENT runtime NAMELINK_COMPONENT ${link_part}
    INCLUDES DESTINATION "${CMAKE_INSTALL_INCLUDEDIR}")
  install(FILES ${PROJECT_SOURCE_DIR}/include/${name}.h TYPE INCLUDE COMPONENT development)
  install(EXPORT Vole-${name} NAMESPACE Vole:: DESTINATION "${vole_cmake_dir}" COMPONENT development)
  configure_file(${PROJECT_SOURCE_DIR}/cmake/library.pc.in ${PROJECT_BINARY_DIR}/package/${name}.pc @ONLY)
  install(FILES ${PROJECT_BINARY_DIR}/package/${name}.pc DESTINATION "${vole_pc_dir}" COMPONENT development)
endfunction()

set(methods BZIP2 LZMA ZSTD)
set(libraries bz2 lzma zstd)
set(method_libs "")
foreach(method library IN ZIP_LISTS methods libraries)
  if(VOLE_WITH_${method})
    string(APPEND method_libs "-l${library} ")
  endif()
endforeach()
vole_install_library(vole_c vole development "Scans files and data for known malware" "" "${method_libs}")
# Established hosts open libvoleeng.so by just this name, so that the link is needed to run them, not only to link.
vole_install_library(voleeng voleeng runtime "Scans files for known malware, older interface" "${vole_string_layout}" "")

write_basic_package_version_file(${PROJECT_BINARY_DIR}/package/VoleConfigVersion.cmake COMPATIBILITY SameMajorVersion)
configure_package_config_file(${PROJECT_SOURCE_DIR}/cmake/VoleConfig.cmake.in
  ${PROJECT_BINARY_DIR}/package/VoleConfig.cmake
  INSTALL_DESTINATION "${vole_cmake_dir}" NO_SET_AND_CHECK_MACRO)
install(FILES ${PROJECT_BINARY_DIR}/package/VoleConfig.cmake ${PROJECT_BINARY_DIR}/package/VoleConfigVersion.cmake
  DESTINATION "${vole_cmake_dir}" COMPONENT development)

install(TARGETS vole COMPONENT tools)
install(DIRECTORY patterns DESTINATION "${CMAKE_INSTALL_DATADIR}/vole" COMPONENT tools)
set(settings_dir "${CMAKE_INSTALL_SYSCONFDIR}")
if(CMAKE_INSTALL_PREFIX STREQUAL "/usr")
  set(settings_dir "${CMAKE_INSTALL_FULL_SYSCONFDIR}")  # /etc, as the program expects it
endif()
install(FILES tools/vole/scan.conf DESTINATION "${settings_dir}/vole" COMPONENT tools)
