# 32-bit x86, built on x86-64.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR i686)
set(CMAKE_C_FLAGS_INIT -m32)
set(CMAKE_CXX_FLAGS_INIT -m32)
set(CMAKE_LIBRARY_ARCHITECTURE i386-linux-gnu)

# Debian has no 32-bit expat, libdeflate and SQLite in the main architecture; scripts/fetch-i386-libraries unpacks them here.
set(VOLE_EXPAT_ROOT "${CMAKE_CURRENT_LIST_DIR}/../build/i386-expat" CACHE PATH "Root of the unpacked 32-bit packages")
# zlib comes from lib32z1-dev, which keeps its libraries outside the multiarch folders.
set(CMAKE_SYSTEM_LIBRARY_PATH /usr/lib32)
