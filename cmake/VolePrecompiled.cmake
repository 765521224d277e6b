# The headers that most sources begin with, parsed once for a build: half of a compiler's time. Only in Debug builds, the
# sanitized ones among them, and by g++; an include that a source lacks shows in the others, and to scripts/lint.
if(NOT CMAKE_BUILD_TYPE STREQUAL "Debug" OR NOT CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
  return()
endif()

file(CONFIGURE OUTPUT precompiled.cpp CONTENT "")
add_library(vole_precompiled OBJECT ${CMAKE_CURRENT_BINARY_DIR}/precompiled.cpp)
target_link_libraries(vole_precompiled PRIVATE vole_flags)
target_precompile_headers(vole_precompiled PRIVATE
  <algorithm> <array> <cstdint> <cstring> <functional> <memory> <mutex> <optional> <span> <string> <string_view> <utility>
  <vector>)
foreach(target
    fuzz_targets srv_vole vole_capi vole_cli vole_common vole_core vole_engine vole_icap_parts vole_modules vole_scan
    vole_signatures)
  if(TARGET ${target})
    target_precompile_headers(${target} REUSE_FROM vole_precompiled)
    # g++ 12 forgets whose these headers are, and warns of what it has made of them itself; not so in other builds.
    target_compile_options(${target} PRIVATE -Wno-array-bounds -Wno-stringop-overflow)
  endif()
endforeach()
