# run_by_path(TARGET): a program that others start by its path. Where an emulator has to run it, its place is taken by a
# script that has it run, so that nobody needs to know of the emulator.
function(run_by_path target)
  if(NOT CMAKE_CROSSCOMPILING_EMULATOR)
    return()
  endif()
  list(JOIN CMAKE_CROSSCOMPILING_EMULATOR " " emulator)
  set_target_properties(${target} PROPERTIES OUTPUT_NAME ${target}.elf)
  file(GENERATE OUTPUT ${CMAKE_CURRENT_BINARY_DIR}/${target}
    CONTENT "#!/bin/sh\nexec ${emulator} ${CMAKE_CURRENT_BINARY_DIR}/${target}.elf \"$@\"\n"
    FILE_PERMISSIONS OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)
endfunction()
