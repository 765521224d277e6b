# Outside libraries: zlib inflates, libdeflate does so faster where data can be held whole, expat parses the list file,
# SQLite keeps the command line's cache. GoogleTest is built from source with our flags, because a prebuilt one has
# another std::string layout than the 32-bit build.

find_package(ZLIB REQUIRED)

if(DEFINED VOLE_EXPAT_ROOT)
  # A static library, so that a 32-bit host needs no 32-bit expat of its own at run time.
  find_path(VOLE_EXPAT_INCLUDE expat.h PATHS "${VOLE_EXPAT_ROOT}/usr/include" NO_DEFAULT_PATH)
  find_path(VOLE_EXPAT_CONFIG_INCLUDE expat_config.h
    PATHS "${VOLE_EXPAT_ROOT}/usr/include/i386-linux-gnu" "${VOLE_EXPAT_ROOT}/usr/include" NO_DEFAULT_PATH)
  find_library(VOLE_EXPAT_LIBRARY libexpat.a PATHS "${VOLE_EXPAT_ROOT}/usr/lib/i386-linux-gnu" NO_DEFAULT_PATH)
  if(NOT VOLE_EXPAT_INCLUDE OR NOT VOLE_EXPAT_LIBRARY)
    message(FATAL_ERROR "No 32-bit expat below ${VOLE_EXPAT_ROOT}; run scripts/fetch-i386-libraries first.")
  endif()
  add_library(vole_expat STATIC IMPORTED)
  set_target_properties(vole_expat PROPERTIES
    IMPORTED_LOCATION "${VOLE_EXPAT_LIBRARY}"
    INTERFACE_INCLUDE_DIRECTORIES "${VOLE_EXPAT_INCLUDE}")

  find_path(VOLE_SQLITE_INCLUDE sqlite3.h PATHS "${VOLE_EXPAT_ROOT}/usr/include" NO_DEFAULT_PATH)
  find_library(VOLE_SQLITE_LIBRARY libsqlite3.a PATHS "${VOLE_EXPAT_ROOT}/usr/lib/i386-linux-gnu" NO_DEFAULT_PATH)
  if(NOT VOLE_SQLITE_INCLUDE OR NOT VOLE_SQLITE_LIBRARY)
    message(FATAL_ERROR "No 32-bit SQLite below ${VOLE_EXPAT_ROOT}; run scripts/fetch-i386-libraries first.")
  endif()
  add_library(vole_sqlite STATIC IMPORTED)
  set_target_properties(vole_sqlite PROPERTIES
    IMPORTED_LOCATION "${VOLE_SQLITE_LIBRARY}"
    INTERFACE_INCLUDE_DIRECTORIES "${VOLE_SQLITE_INCLUDE}"
    INTERFACE_LINK_LIBRARIES "m;dl")

  find_path(VOLE_LIBDEFLATE_INCLUDE libdeflate.h PATHS "${VOLE_EXPAT_ROOT}/usr/include" NO_DEFAULT_PATH)
  find_library(VOLE_LIBDEFLATE_LIBRARY libdeflate.a PATHS "${VOLE_EXPAT_ROOT}/usr/lib/i386-linux-gnu" NO_DEFAULT_PATH)
else()
  find_package(EXPAT REQUIRED)
  add_library(vole_expat ALIAS EXPAT::EXPAT)
  find_package(SQLite3 REQUIRED)
  add_library(vole_sqlite ALIAS SQLite::SQLite3)
endif()

# Of the worker alone.
if(DEFINED VOLE_EXPAT_ROOT)
  find_path(VOLE_SECCOMP_INCLUDE seccomp.h PATHS "${VOLE_EXPAT_ROOT}/usr/include" NO_DEFAULT_PATH)
  find_library(VOLE_SECCOMP_LIBRARY libseccomp.a PATHS "${VOLE_EXPAT_ROOT}/usr/lib/i386-linux-gnu" NO_DEFAULT_PATH)
else()
  find_path(VOLE_SECCOMP_INCLUDE seccomp.h)
  find_library(VOLE_SECCOMP_LIBRARY seccomp)
endif()
if(NOT VOLE_SECCOMP_INCLUDE OR NOT VOLE_SECCOMP_LIBRARY)
  message(FATAL_ERROR "No libseccomp; see scripts/install-packages and scripts/fetch-i386-libraries.")
endif()
add_library(vole_seccomp UNKNOWN IMPORTED)
set_target_properties(vole_seccomp PROPERTIES
  IMPORTED_LOCATION "${VOLE_SECCOMP_LIBRARY}"
  INTERFACE_INCLUDE_DIRECTORIES "${VOLE_SECCOMP_INCLUDE}")

option(VOLE_WITH_LIBDEFLATE "Inflate members of ZIP archives by libdeflate where that is possible" ON)
if(VOLE_WITH_LIBDEFLATE)
  find_path(VOLE_LIBDEFLATE_INCLUDE libdeflate.h)
  find_library(VOLE_LIBDEFLATE_LIBRARY deflate)
  if(NOT VOLE_LIBDEFLATE_INCLUDE OR NOT VOLE_LIBDEFLATE_LIBRARY)
    message(FATAL_ERROR "No libdeflate; see scripts/install-packages and scripts/fetch-i386-libraries, "
      "or set VOLE_WITH_LIBDEFLATE=OFF.")
  endif()
  add_library(vole_libdeflate UNKNOWN IMPORTED)
  set_target_properties(vole_libdeflate PROPERTIES
    IMPORTED_LOCATION "${VOLE_LIBDEFLATE_LIBRARY}"
    INTERFACE_INCLUDE_DIRECTORIES "${VOLE_LIBDEFLATE_INCLUDE}")
endif()
