# orm_add_component(name sources...): a component library, name.dll, that the class manager can load and
# unload: local symbols, no GNU-unique ones, the three exports supplied by the sources.
function(orm_add_component name)
  add_library(${name} MODULE ${ARGN})
  set_target_properties(${name} PROPERTIES PREFIX "" SUFFIX ".dll"
    CXX_VISIBILITY_PRESET hidden VISIBILITY_INLINES_HIDDEN ON)
  target_compile_options(${name} PRIVATE $<$<CXX_COMPILER_ID:GNU>:-fno-gnu-unique>)
  target_link_libraries(${name} PRIVATE ormutil::ormutil)
endfunction()

# orm_add_resources(target script.rc [INCLUDE folders...] [DEFINE NAME=VALUE...] [CODE_PAGE number]): compiles the
# script and makes its resources part of the program or shared library `target`, where FindResource finds them. A
# change of a file that the script includes, or of a bitmap, compiles it again.
function(orm_add_resources target script)
  cmake_parse_arguments(R "" "CODE_PAGE" "INCLUDE;DEFINE" ${ARGN})
  get_filename_component(source "${script}" ABSOLUTE)
  get_filename_component(name "${script}" NAME_WE)
  set(object "${CMAKE_CURRENT_BINARY_DIR}/${target}_${name}_rc.o")
  set(options)
  foreach(folder IN LISTS R_INCLUDE)
    get_filename_component(folder "${folder}" ABSOLUTE)
    list(APPEND options -I "${folder}")
  endforeach()
  foreach(definition IN LISTS R_DEFINE)
    list(APPEND options -D "${definition}")
  endforeach()
  if(R_CODE_PAGE)
    list(APPEND options -c "${R_CODE_PAGE}")
  endif()
  set(compiler orm-rc)
  if(NOT TARGET orm-rc)
    set(compiler ormutil::orm-rc)  # of an installed package
  endif()
  add_custom_command(OUTPUT "${object}"
    COMMAND ${compiler} "${source}" -o "${object}" -M "${object}.d" ${options}
    DEPENDS ${compiler} "${source}" DEPFILE "${object}.d"
    COMMENT "Compiling resources ${script}" VERBATIM)
  target_sources(${target} PRIVATE "${object}")
  set_source_files_properties("${object}" PROPERTIES EXTERNAL_OBJECT ON GENERATED ON)
  # A program exports nothing by itself, and the platform looks the resources up as an export.
  get_target_property(type ${target} TYPE)
  if(type STREQUAL "EXECUTABLE")
    target_link_options(${target} PRIVATE "LINKER:--export-dynamic-symbol=orm_resource_directory")
  endif()
endfunction()
