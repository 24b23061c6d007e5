# Compiler settings shared by every target of the project.

find_program(QEL_CCACHE ccache)
if(QEL_CCACHE)
  set(CMAKE_C_COMPILER_LAUNCHER ${QEL_CCACHE})
  set(CMAKE_CXX_COMPILER_LAUNCHER ${QEL_CCACHE})
endif()

# Warnings for our own code; third-party sources get their own targets without these.
add_library(qel_warnings INTERFACE)
target_compile_options(qel_warnings INTERFACE
  -Wall -Wextra -Wpedantic -Wshadow -Wnon-virtual-dtor)

# Our libraries never throw: a stray throw must not compile.
add_library(qel_code INTERFACE)
target_link_libraries(qel_code INTERFACE qel_warnings)
target_compile_options(qel_code INTERFACE -fno-exceptions)

# Error trails name files relative to the source roots ("Core/CString.cpp"). GCC applies
# the last matching map and Clang the longest, so the more specific one goes last.
add_compile_options(
  -fmacro-prefix-map=${PROJECT_SOURCE_DIR}/=
  -fmacro-prefix-map=${PROJECT_SOURCE_DIR}/src/=)

if(QEL_SANITIZE)
  list(JOIN QEL_SANITIZE "," _qel_san)
  add_compile_options(-fsanitize=${_qel_san} -fno-sanitize-recover=all -fno-omit-frame-pointer)
  add_link_options(-fsanitize=${_qel_san} -fno-sanitize-recover=all)
  if("address" IN_LIST QEL_SANITIZE)
    add_compile_definitions(QEL_ASAN=1)
  endif()
endif()

if(QEL_FUZZ)
  # The coverage hooks live in the sanitizer runtime, which every executable must link.
  if(NOT CMAKE_CXX_COMPILER_ID STREQUAL "Clang" OR NOT QEL_SANITIZE)
    message(FATAL_ERROR "QEL_FUZZ needs Clang and a sanitizer (QEL_SANITIZE)")
  endif()
  # Coverage for the code under test; only the fuzz executables link the fuzzer's main.
  add_compile_options(-fsanitize=fuzzer-no-link)
endif()

if(CMAKE_BUILD_TYPE STREQUAL "Debug")
  add_compile_definitions(QEL_DEBUG=1)
endif()
