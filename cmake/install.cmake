# Installs the libraries (component lib) and what is needed to build against them (dev). The programs with their
# manual pages and completions (programs) are installed from their own folders.
include(CMakePackageConfigHelpers)

set(zq_package_dir ${CMAKE_INSTALL_LIBDIR}/cmake/zqpool)
set(zq_pkgconfig_dir ${CMAKE_INSTALL_LIBDIR}/pkgconfig)

if(NOT CMAKE_INSTALL_PREFIX STREQUAL "/usr")
  set_target_properties(zqplatform zqpool_lib PROPERTIES INSTALL_RPATH "$ORIGIN")
endif()
install(TARGETS zqplatform zqpool_lib EXPORT zqpoolTargets
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT lib NAMELINK_COMPONENT dev)

# Headers keep their folders: "utils/pool/pool_metadata_manager.h".
foreach(header ${ZQPOOL_HEADERS})
  get_filename_component(folder ${header} DIRECTORY)
  install(FILES ${PROJECT_SOURCE_DIR}/${header}
    DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/zqpool/${folder} COMPONENT dev)
endforeach()

install(EXPORT zqpoolTargets NAMESPACE zqpool:: DESTINATION ${zq_package_dir} COMPONENT dev)
configure_package_config_file(${PROJECT_SOURCE_DIR}/cmake/zqpoolConfig.cmake.in
  ${PROJECT_BINARY_DIR}/zqpoolConfig.cmake INSTALL_DESTINATION ${zq_package_dir})
write_basic_package_version_file(${PROJECT_BINARY_DIR}/zqpoolConfigVersion.cmake
  COMPATIBILITY SameMinorVersion)
install(FILES ${PROJECT_BINARY_DIR}/zqpoolConfig.cmake ${PROJECT_BINARY_DIR}/zqpoolConfigVersion.cmake
  DESTINATION ${zq_package_dir} COMPONENT dev)

# The prefix is relative to this file, so that the installed tree can be moved.
file(RELATIVE_PATH zq_up /${zq_pkgconfig_dir} /)
string(REGEX REPLACE "/$" "" zq_up "${zq_up}")
configure_file(${PROJECT_SOURCE_DIR}/cmake/zqpool.pc.in ${PROJECT_BINARY_DIR}/zqpool.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/zqpool.pc DESTINATION ${zq_pkgconfig_dir} COMPONENT dev)
