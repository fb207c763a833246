# How every target of this project is compiled: one place for the language level, the warnings and the
# switches that component libraries depend on.

set(CMAKE_CXX_STANDARD 20)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_POSITION_INDEPENDENT_CODE ON)
set(CMAKE_CXX_VISIBILITY_PRESET hidden)
set(CMAKE_VISIBILITY_INLINES_HIDDEN ON)
set(CMAKE_EXPORT_COMPILE_COMMANDS ON)
set(CMAKE_RUNTIME_OUTPUT_DIRECTORY "${CMAKE_BINARY_DIR}/bin")
set(CMAKE_LIBRARY_OUTPUT_DIRECTORY "${CMAKE_BINARY_DIR}/lib")
set(CMAKE_ARCHIVE_OUTPUT_DIRECTORY "${CMAKE_BINARY_DIR}/lib")
if(NOT CMAKE_BUILD_TYPE)
  set(CMAKE_BUILD_TYPE RelWithDebInfo)
endif()

add_library(orm_options INTERFACE)
target_compile_options(orm_options INTERFACE
  -Wall -Wextra -Wpedantic -Wconversion -Wshadow -Werror
  # A GNU-unique symbol pins the library that first defines it for the life of the process; a component
  # library has to leave when it is told to.
  $<$<CXX_COMPILER_ID:GNU>:-fno-gnu-unique>)
target_compile_definitions(orm_options INTERFACE _FILE_OFFSET_BITS=64)

set(ORM_SANITIZE "" CACHE STRING "Sanitizers to build with, for example address,undefined or thread")
# After these seconds a test has hung. Sanitizers make some tests twenty times slower.
set(orm_test_timeout 120)
if(ORM_SANITIZE)
  set(orm_test_timeout 600)
  add_compile_options(-fsanitize=${ORM_SANITIZE} -fno-omit-frame-pointer)
  add_link_options(-fsanitize=${ORM_SANITIZE})
endif()

# Counters that lie in files which the processes map.
option(ORM_COVERAGE "Count which lines and branches run (clang only)" OFF)
if(ORM_COVERAGE)
  set(counting -fprofile-instr-generate -fcoverage-mapping -mllvm -runtime-counter-relocation)
  list(JOIN counting " " flags)
  string(APPEND CMAKE_CXX_FLAGS_DEBUG " ${flags}")
  execute_process(COMMAND ${CMAKE_CXX_COMPILER} ${counting} -fPIC -fvisibility=hidden
    -c "${PROJECT_SOURCE_DIR}/tests/support/CoverageStart.cpp" -o "${CMAKE_BINARY_DIR}/coverage_start.o"
    COMMAND_ERROR_IS_FATAL ANY)
  add_link_options("${CMAKE_BINARY_DIR}/coverage_start.o" -Wno-unused-command-line-argument)
endif()

# The sources of a room are the files that lie in it.
function(orm_room_sources variable)
  set(found)
  foreach(folder IN LISTS ARGN)
    file(GLOB files CONFIGURE_DEPENDS "${CMAKE_CURRENT_SOURCE_DIR}/${folder}/*.cpp")
    list(APPEND found ${files})
  endforeach()
  set(${variable} ${found} PARENT_SCOPE)
endfunction()
