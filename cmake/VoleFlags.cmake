# Flags shared by every target, and the stricter set that only our own code is held to.

find_package(Threads REQUIRED)

# 64-bit file offsets everywhere: without them a 32-bit fstat fails on file systems with large inode numbers.
add_compile_definitions(_FILE_OFFSET_BITS=64)

if(VOLE_SANITIZE)
  # Line numbers for reports, and nothing else of debug information: it would take a quarter of the compiler's time.
  add_compile_options(-O1 -g1 -fno-omit-frame-pointer -fsanitize=${VOLE_SANITIZE} -fno-sanitize-recover=all)
  add_link_options(-fsanitize=${VOLE_SANITIZE})
elseif(CMAKE_BUILD_TYPE STREQUAL "Release")
  add_compile_options(-fstack-protector-strong)
  add_compile_definitions(_FORTIFY_SOURCE=2)
endif()

# g++ 12 sees an impossible overlap in `"literal" + std::string()` once it inlines that (GCC bug 105651).
set(vole_false_alarms "")
if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU" AND CMAKE_CXX_COMPILER_VERSION VERSION_LESS 13)
  set(vole_false_alarms -Wno-restrict)
endif()

add_library(vole_flags INTERFACE)
target_compile_options(vole_flags INTERFACE
  -Wall -Wextra -Wpedantic -Wshadow -Wconversion -Wformat=2 -Werror=format-security ${vole_false_alarms}
  # Whether the lock that guards something is held, as ThreadAnnotations.h has it said.
  $<$<CXX_COMPILER_ID:Clang>:-Wthread-safety>
  $<$<BOOL:${VOLE_WARNINGS_AS_ERRORS}>:-Werror>)
target_link_libraries(vole_flags INTERFACE Threads::Threads)
