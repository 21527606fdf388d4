# Names what is missing, a line for each program of tests that stays out; scripts/build.sh configures again while there
# is one.
set(cryptcli_missing_peers "${PROJECT_BINARY_DIR}/missing-peers")
file(REMOVE "${cryptcli_missing_peers}")

# cryptcli_missing_peer(NAME WHAT)
#
# In the place of a program of tests that compares with something which this machine lacks.
function(cryptcli_missing_peer name what)
  message(WARNING "${name} will not run: ${what} is missing; scripts/bootstrap.sh --test installs it.")
  file(APPEND "${cryptcli_missing_peers}" "${name}: ${what}\n")
  add_test(NAME ${name}.missing COMMAND ${CMAKE_CURRENT_FUNCTION_LIST_DIR}/missing-peer.sh ${what})
  set_tests_properties(${name}.missing PROPERTIES SKIP_RETURN_CODE 77)
endfunction()
