# What a user gets: headers, libraries, the command with its pages and completion files, and the package files that
# outside projects find the library by. And the Debian package.

include(CMakePackageConfigHelpers)

# A package for the system's own folders needs no search path in its files; anywhere else they find each other.
if(NOT CMAKE_INSTALL_PREFIX STREQUAL "/usr")
  set_target_properties(ormutil ormplatform PROPERTIES INSTALL_RPATH "$ORIGIN")
  if(TARGET ormgdi)
    set_target_properties(ormgdi ormtext PROPERTIES INSTALL_RPATH "$ORIGIN")
  endif()
  set_target_properties(orm orm-rc PROPERTIES INSTALL_RPATH "$ORIGIN/../${CMAKE_INSTALL_LIBDIR}")
endif()

set(installed ormutil ormplatform tdbg orm orm-rc)
if(TARGET ormgdi)
  list(APPEND installed ormgdi)
  set_target_properties(ormgdi PROPERTIES EXPORT_NAME gdi)
  set(ORM_GDI_LIBRARY "-lormgdi ")
endif()
set_target_properties(ormplatform PROPERTIES EXPORT_NAME platform)
install(TARGETS ${installed} EXPORT ormutilTargets
  RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR}
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
  ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR})
install(DIRECTORY src/include/ormutil DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} FILES_MATCHING PATTERN "*.h")
install(DIRECTORY src/platform/include/ DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/ormutil/platform
  FILES_MATCHING PATTERN "*.h")

if(TARGET ormtext)
  # Loaded by the drawing library under its SONAME; nobody links it.
  install(TARGETS ormtext LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} NAMELINK_SKIP)
endif()

set(package_folder ${CMAKE_INSTALL_LIBDIR}/cmake/ormutil)
install(EXPORT ormutilTargets NAMESPACE ormutil:: DESTINATION ${package_folder})
configure_package_config_file(cmake/ormutilConfig.cmake.in ${CMAKE_BINARY_DIR}/ormutilConfig.cmake
  INSTALL_DESTINATION ${package_folder})
write_basic_package_version_file(${CMAKE_BINARY_DIR}/ormutilConfigVersion.cmake COMPATIBILITY SameMajorVersion)
install(FILES ${CMAKE_BINARY_DIR}/ormutilConfig.cmake ${CMAKE_BINARY_DIR}/ormutilConfigVersion.cmake
  cmake/OrmComponents.cmake DESTINATION ${package_folder})
set(prefix "@prefix@")
configure_file(cmake/ormutil.pc.in ${CMAKE_BINARY_DIR}/ormutil.pc.in @ONLY)
# The prefix is known only when the files are installed.
install(CODE "
  set(prefix \"\${CMAKE_INSTALL_PREFIX}\")
  configure_file(\"${CMAKE_BINARY_DIR}/ormutil.pc.in\" \"${CMAKE_BINARY_DIR}/ormutil.pc\" @ONLY)")
install(FILES ${CMAKE_BINARY_DIR}/ormutil.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)

# The command tells its own pages and completions. It runs on a machine of its own.
set(documents ${CMAKE_BINARY_DIR}/documents)
file(MAKE_DIRECTORY ${documents})
set(run ${PROJECT_SOURCE_DIR}/tests/support/fresh-machine $<TARGET_FILE:orm>)
set(outputs)
function(orm_document output)
  add_custom_command(OUTPUT ${documents}/${output} DEPENDS orm VERBATIM
    COMMAND ${run} ${ARGN} > ${documents}/${output})
  if(output MATCHES "[.]1$")
    add_custom_command(OUTPUT ${documents}/${output}.gz DEPENDS ${documents}/${output} VERBATIM
      COMMAND gzip -9nkf ${documents}/${output})
    set(output ${output}.gz)
  endif()
  set(outputs ${outputs} ${documents}/${output} PARENT_SCOPE)
endfunction()
orm_document(orm.1 man)
set(pages ${documents}/orm.1.gz)
foreach(command IN ITEMS reg trace class archive machine rc draw)
  orm_document(orm-${command}.1 man ${command})
  list(APPEND pages ${documents}/orm-${command}.1.gz)
endforeach()
foreach(shell IN ITEMS bash zsh fish)
  orm_document(completion.${shell} completion ${shell})
endforeach()
add_custom_target(orm_documents ALL DEPENDS ${outputs})
install(FILES ${pages} DESTINATION ${CMAKE_INSTALL_MANDIR}/man1)
install(FILES ${documents}/completion.bash RENAME orm DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions)
install(FILES ${documents}/completion.zsh RENAME _orm DESTINATION ${CMAKE_INSTALL_DATADIR}/zsh/vendor-completions)
install(FILES ${documents}/completion.fish RENAME orm.fish DESTINATION ${CMAKE_INSTALL_DATADIR}/fish/vendor_completions.d)
install(FILES README.md CHANGELOG.md DESTINATION ${CMAKE_INSTALL_DOCDIR})
install(FILES LICENSE DESTINATION ${CMAKE_INSTALL_DOCDIR} RENAME copyright)
install(DIRECTORY docs/guide docs/pictures DESTINATION ${CMAKE_INSTALL_DOCDIR})
file(GLOB documentation CONFIGURE_DEPENDS docs/*.md)
install(FILES ${documentation} DESTINATION ${CMAKE_INSTALL_DOCDIR})

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME ormutil)
set(CPACK_PACKAGE_VENDOR "ormutil")
set(CPACK_PACKAGE_CONTACT "ormutil developers <ormutil@ormutil.example>")
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_STRIP_FILES ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_DESCRIPTION
  "Reference-counted types, a component manager, property bags in a registry,
threads and drawing helpers over a small platform layer, and the orm command
to look at all of them.")
file(WRITE ${CMAKE_BINARY_DIR}/debian/triggers "activate-noawait ldconfig\n")
# Debian wants a changelog of its own form beside ours.
string(TIMESTAMP today "%a, %d %b %Y 00:00:00 +0000" UTC)
configure_file(cmake/debian-changelog.in ${CMAKE_BINARY_DIR}/debian/changelog @ONLY)
execute_process(COMMAND gzip -9nkf ${CMAKE_BINARY_DIR}/debian/changelog)
install(FILES ${CMAKE_BINARY_DIR}/debian/changelog.gz DESTINATION ${CMAKE_INSTALL_DOCDIR})
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)
set(CPACK_DEBIAN_PACKAGE_CONTROL_EXTRA ${CMAKE_BINARY_DIR}/debian/triggers)
install(FILES cmake/debian-overrides DESTINATION ${CMAKE_INSTALL_DATADIR}/lintian/overrides RENAME ormutil)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
include(CPack)
