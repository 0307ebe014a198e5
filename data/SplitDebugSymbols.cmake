# Run by CPack between staging and packing (CPACK_PRE_BUILD_SCRIPTS): strips the staged program as
# Debian's dh_strip does and keeps its debug symbols, when it has any, in a file beside the package,
# kestrix_VERSION_ARCH.debug. gdb finds it by build id once it is copied to
# /usr/lib/debug/.build-id/XX/REST.debug; the program names it only by that file name.
find_program(KESTRIX_OBJCOPY objcopy REQUIRED)
find_program(KESTRIX_READELF readelf REQUIRED)

execute_process(COMMAND dpkg --print-architecture OUTPUT_VARIABLE architecture OUTPUT_STRIP_TRAILING_WHITESPACE
  COMMAND_ERROR_IS_FATAL ANY)
file(GLOB_RECURSE programs LIST_DIRECTORIES false "${CPACK_TEMPORARY_INSTALL_DIRECTORY}/kestrix")
list(FILTER programs INCLUDE REGEX "/bin/kestrix$")
if(NOT programs)
  message(FATAL_ERROR "Kestrix: no bin/kestrix staged in ${CPACK_TEMPORARY_INSTALL_DIRECTORY}")
endif()
foreach(program IN LISTS programs)
  execute_process(COMMAND ${KESTRIX_READELF} -S --wide ${program} OUTPUT_VARIABLE sections COMMAND_ERROR_IS_FATAL ANY)
  set(symbols "${CPACK_PACKAGE_DIRECTORY}/${CPACK_PACKAGE_NAME}_${CPACK_PACKAGE_VERSION}_${architecture}.debug")
  file(REMOVE ${symbols})
  if(sections MATCHES "\\.debug_info")
    execute_process(COMMAND ${KESTRIX_OBJCOPY} --only-keep-debug --compress-debug-sections ${program} ${symbols}
      COMMAND_ERROR_IS_FATAL ANY)
  endif()
  execute_process(COMMAND ${KESTRIX_OBJCOPY} --strip-all --remove-section=.comment --remove-section=.note ${program}
    COMMAND_ERROR_IS_FATAL ANY)
  if(EXISTS ${symbols})
    execute_process(COMMAND ${KESTRIX_OBJCOPY} --add-gnu-debuglink=${symbols} ${program} COMMAND_ERROR_IS_FATAL ANY)
    message(STATUS "Kestrix: debug symbols in ${symbols}")
  endif()
endforeach()
