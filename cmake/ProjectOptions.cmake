# How every target of the project is compiled. Targets link vela::options privately.

set(CMAKE_CXX_STANDARD 20)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_C_STANDARD 11)
set(CMAKE_EXPORT_COMPILE_COMMANDS ON)
set(CMAKE_POSITION_INDEPENDENT_CODE ON)

if(NOT CMAKE_BUILD_TYPE AND NOT CMAKE_CONFIGURATION_TYPES)
  set(CMAKE_BUILD_TYPE RelWithDebInfo CACHE STRING "Kind of build" FORCE)
endif()

set(VELA_SANITIZE "" CACHE STRING
    "Sanitizers to build with: empty, address,undefined or thread")
if(VELA_SANITIZE)
  add_compile_options(-fsanitize=${VELA_SANITIZE} -fno-sanitize-recover=all
                      -fno-omit-frame-pointer)
  add_link_options(-fsanitize=${VELA_SANITIZE})
endif()

add_library(vela_options INTERFACE)
add_library(vela::options ALIAS vela_options)
target_compile_options(vela_options INTERFACE
  -Wall -Wextra -Wpedantic -Wshadow -Wconversion -Wsign-conversion
  $<$<COMPILE_LANGUAGE:CXX>:-Wold-style-cast -Wnon-virtual-dtor -Woverloaded-virtual>)

# The code has no warnings with these compilers. Warnings of any other compiler are not errors.
set(VELA_KNOWN_COMPILERS "GNU 12" "GNU 14" "GNU 16" "Clang 14" "Clang 16" "Clang 19" "Clang 21")
option(VELA_WARNINGS_AS_ERRORS "Treat the warnings of known compilers as errors" OFF)
string(REGEX MATCH "^[0-9]+" VELA_COMPILER_MAJOR "${CMAKE_CXX_COMPILER_VERSION}")
if(VELA_WARNINGS_AS_ERRORS
   AND "${CMAKE_CXX_COMPILER_ID} ${VELA_COMPILER_MAJOR}" IN_LIST VELA_KNOWN_COMPILERS)
  target_compile_options(vela_options INTERFACE -Werror)
endif()
