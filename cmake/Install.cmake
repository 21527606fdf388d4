# What a user gets: libraries with versioned names, headers below include/cryptcli-1, the commands, the Python package, a
# CMake package and pkg-config files. Nothing in it depends on where it is put.
include(GNUInstallDirs)
include(CMakePackageConfigHelpers)

set(libraries orugui orusec cryptcli cryptcli-curl cryptcli-c cryptcli-cpp)
set(headers_dir ${CMAKE_INSTALL_INCLUDEDIR}/cryptcli-${PROJECT_VERSION_MAJOR})
set(package_dir ${CMAKE_INSTALL_LIBDIR}/cmake/cryptcli)

foreach(library ${libraries})
  target_include_directories(${library} INTERFACE $<INSTALL_INTERFACE:${headers_dir}>)
endforeach()

install(TARGETS ${libraries} EXPORT cryptcli LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR})
if(TARGET cryptcli_command)
  install(TARGETS cryptcli_command RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
endif()
install(EXPORT cryptcli NAMESPACE cryptcli:: FILE cryptcliTargets.cmake DESTINATION ${package_dir})

# The component "stand": the local test environment, for tests of other projects.
if(TARGET cryptstand)
  target_include_directories(cryptstand_fixture INTERFACE $<INSTALL_INTERFACE:${headers_dir}>)
  target_include_directories(cryptstand_replay INTERFACE $<INSTALL_INTERFACE:${headers_dir}>)
  install(TARGETS cryptstand cryptstand_fixture cryptstand_replay EXPORT cryptcli-stand
    RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR})
  install(EXPORT cryptcli-stand NAMESPACE cryptcli:: FILE cryptcli-stand-targets.cmake DESTINATION ${package_dir})
  install(DIRECTORY stand/fixture/include/cryptstand DESTINATION ${headers_dir} FILES_MATCHING PATTERN *.h)
  install(FILES stand/fixture/cryptstand.sh DESTINATION ${CMAKE_INSTALL_DATADIR}/cryptcli)
endif()

file(STRINGS cmake/public-headers.txt public_headers)
foreach(header ${public_headers})
  get_filename_component(folder ${header} DIRECTORY)
  install(FILES ${header} DESTINATION ${headers_dir}/${folder})
endforeach()

install(FILES bindings/c/include/cryptcli/cryptcli.h DESTINATION ${headers_dir}/cryptcli)
install(DIRECTORY bindings/cpp/include/cryptcli DESTINATION ${headers_dir} FILES_MATCHING PATTERN *.hpp)

# Where the system's Python looks for packages, below the prefix; Debian's folder without a version.
set(CRYPTCLI_PYTHON_DIR lib/python3/dist-packages CACHE STRING "Folder for the Python package, relative to the prefix")
install(DIRECTORY bindings/python/cryptcli DESTINATION ${CRYPTCLI_PYTHON_DIR}
  FILES_MATCHING PATTERN *.py PATTERN py.typed PATTERN __pycache__ EXCLUDE)

configure_package_config_file(cmake/cryptcliConfig.cmake.in ${PROJECT_BINARY_DIR}/cryptcliConfig.cmake
  INSTALL_DESTINATION ${package_dir} NO_SET_AND_CHECK_MACRO)
write_basic_package_version_file(${PROJECT_BINARY_DIR}/cryptcliConfigVersion.cmake COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/cryptcliConfig.cmake ${PROJECT_BINARY_DIR}/cryptcliConfigVersion.cmake
  DESTINATION ${package_dir})

file(RELATIVE_PATH prefix_from_pc /${CMAKE_INSTALL_LIBDIR}/pkgconfig /)
foreach(name cryptcli cryptcli-curl cryptcli-c)
  configure_file(cmake/${name}.pc.in ${PROJECT_BINARY_DIR}/${name}.pc @ONLY)
  install(FILES ${PROJECT_BINARY_DIR}/${name}.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
endforeach()
