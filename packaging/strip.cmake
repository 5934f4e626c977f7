# SPDX-License-Identifier: MIT

# Run by CPack on the staged files: moves debug symbols to a tree in which debuggers find them by
# build identifier, and drops what nothing reads at run time.
file(REMOVE_RECURSE ${CPACK_PVM_DEBUG_FOLDER})
file(GLOB_RECURSE files ${CPACK_TEMPORARY_DIRECTORY}/*)
foreach(file ${files})
  if(IS_SYMLINK ${file})
    continue()
  endif()
  file(READ ${file} magic LIMIT 7 HEX)
  if(magic STREQUAL "213c617263683e") # "!<arch>", a static library
    execute_process(COMMAND ${CPACK_PVM_OBJCOPY} --strip-debug --remove-section=.comment
      --enable-deterministic-archives ${file} COMMAND_ERROR_IS_FATAL ANY)
  elseif(magic MATCHES "^7f454c46") # ELF
    execute_process(COMMAND readelf --notes ${file} OUTPUT_VARIABLE notes COMMAND_ERROR_IS_FATAL ANY)
    if(NOT notes MATCHES "Build ID: ([0-9a-f][0-9a-f])([0-9a-f]+)")
      message(FATAL_ERROR "${file} has no build identifier")
    endif()
    set(folder ${CPACK_PVM_DEBUG_FOLDER}/usr/lib/debug/.build-id/${CMAKE_MATCH_1})
    file(MAKE_DIRECTORY ${folder})
    execute_process(COMMAND ${CPACK_PVM_OBJCOPY} --only-keep-debug --compress-debug-sections
      ${file} ${folder}/${CMAKE_MATCH_2}.debug COMMAND_ERROR_IS_FATAL ANY)
    execute_process(COMMAND ${CPACK_PVM_OBJCOPY} --strip-unneeded --remove-section=.comment ${file}
      COMMAND_ERROR_IS_FATAL ANY)
  endif()
endforeach()
