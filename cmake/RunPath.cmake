# cryptcli_find_beside(TARGET...)
#
# The libraries lie in one folder of the build, the programs in folders beside it, as they do once installed. So both
# trees need the same run path, relative to the file itself. A build tree's own would be rewritten by the installation,
# and is padded to that end with separators, which the loader reads as the current directory.
include(GNUInstallDirs)

function(cryptcli_find_beside)
  file(RELATIVE_PATH from_bin /${CMAKE_INSTALL_BINDIR} /${CMAKE_INSTALL_LIBDIR})
  foreach(target ${ARGN})
    get_target_property(type ${target} TYPE)
    if(type STREQUAL "SHARED_LIBRARY")
      set(run_path "$ORIGIN")
      # The same folder for every configuration, wherever a parent project puts its own libraries.
      set_target_properties(${target} PROPERTIES LIBRARY_OUTPUT_DIRECTORY $<1:${PROJECT_BINARY_DIR}/lib>)
    else()
      get_target_property(folder ${target} BINARY_DIR)
      set_target_properties(${target} PROPERTIES RUNTIME_OUTPUT_DIRECTORY $<1:${folder}>)
      set(run_path "$ORIGIN/../lib" "$ORIGIN/${from_bin}")
      list(REMOVE_DUPLICATES run_path)
    endif()
    # An OpenSSL or libcurl outside the system's folders is still found.
    set_target_properties(${target} PROPERTIES
      BUILD_WITH_INSTALL_RPATH ON INSTALL_RPATH "${run_path}" INSTALL_RPATH_USE_LINK_PATH ON)
  endforeach()
endfunction()
