# orm_add_component(name sources...): a component library, name.dll, that the class manager can load and
# unload: local symbols, no GNU-unique ones, the three exports supplied by the sources.
function(orm_add_component name)
  add_library(${name} MODULE ${ARGN})
  set_target_properties(${name} PROPERTIES PREFIX "" SUFFIX ".dll"
    CXX_VISIBILITY_PRESET hidden VISIBILITY_INLINES_HIDDEN ON)
  target_compile_options(${name} PRIVATE $<$<CXX_COMPILER_ID:GNU>:-fno-gnu-unique>)
  target_link_libraries(${name} PRIVATE ormutil::ormutil)
endfunction()
