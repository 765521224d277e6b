# Zstd::Zstd, Zstandard's library. CMake has no module for it, and not every package of it brings one.
find_path(ZSTD_INCLUDE_DIR zstd.h)
find_library(ZSTD_LIBRARY zstd)
include(FindPackageHandleStandardArgs)
find_package_handle_standard_args(Zstd REQUIRED_VARS ZSTD_LIBRARY ZSTD_INCLUDE_DIR)
mark_as_advanced(ZSTD_INCLUDE_DIR ZSTD_LIBRARY)
if(Zstd_FOUND AND NOT TARGET Zstd::Zstd)
  add_library(Zstd::Zstd UNKNOWN IMPORTED)
  set_target_properties(Zstd::Zstd PROPERTIES
    IMPORTED_LOCATION "${ZSTD_LIBRARY}" INTERFACE_INCLUDE_DIRECTORIES "${ZSTD_INCLUDE_DIR}")
endif()
