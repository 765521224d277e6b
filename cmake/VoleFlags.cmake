# Flags shared by every target, and the stricter set that only our own code is held to.

find_package(Threads REQUIRED)

# 64-bit file offsets everywhere: without them a 32-bit fstat fails on file systems with large inode numbers.
add_compile_definitions(_FILE_OFFSET_BITS=64)

# 32-bit x86 as the established hosts load it: std::string in its legacy, pointer-sized layout; and built with older
# compilers, they call with a stack that is only aligned to 4 bytes.
set(vole_string_layout "")
if(CMAKE_SIZEOF_VOID_P EQUAL 4)
  set(vole_string_layout -D_GLIBCXX_USE_CXX11_ABI=0)
  add_compile_options(-mstackrealign)
  add_compile_definitions(_GLIBCXX_USE_CXX11_ABI=0)
endif()

if(VOLE_SANITIZE)
  # Line numbers for reports, and nothing else of debug information: it would take a quarter of the compiler's time.
  add_compile_options(-O1 -g1 -fno-omit-frame-pointer -fsanitize=${VOLE_SANITIZE} -fno-sanitize-recover=all)
  add_link_options(-fsanitize=${VOLE_SANITIZE})
elseif(CMAKE_BUILD_TYPE MATCHES "^(Release|RelWithDebInfo|MinSizeRel|None)$")
  # Packagers build with the type None and their own flags, which go first; but not unoptimised because they gave none.
  if(CMAKE_BUILD_TYPE STREQUAL "None" AND NOT CMAKE_CXX_FLAGS MATCHES "-O")
    add_compile_options(-O3)
  endif()
  add_compile_options(-fstack-protector-strong)
  if(NOT CMAKE_CXX_FLAGS MATCHES "_FORTIFY_SOURCE|-O0")
    add_compile_definitions(_FORTIFY_SOURCE=2)
  endif()
  # No path of the builder's in what is built: builds in different folders are equal.
  add_compile_options(-ffile-prefix-map=${PROJECT_SOURCE_DIR}=. -ffile-prefix-map=${PROJECT_BINARY_DIR}=./build)
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
