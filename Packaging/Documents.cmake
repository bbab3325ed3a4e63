# The documents of an installed package: manual pages, generated from the programs' own --help; the
# changelog; the copyright file; and the completion of the client's command line.
find_program(HELP2MAN help2man)
find_program(GZIP gzip REQUIRED)

function(cm_compressed file)
  list(APPEND CM_DOCUMENTS ${CMAKE_CURRENT_BINARY_DIR}/${file}.gz)
  set(CM_DOCUMENTS ${CM_DOCUMENTS} PARENT_SCOPE)
  add_custom_command(OUTPUT ${file}.gz
    COMMAND ${GZIP} -9nkf ${file}
    DEPENDS ${CMAKE_CURRENT_BINARY_DIR}/${file} VERBATIM)
endfunction()

function(cm_manual_page program section)
  set(page ${program}.${section})
  set(extra ${CMAKE_CURRENT_SOURCE_DIR}/documents/${page}.h2m)
  add_custom_command(OUTPUT ${page}
    COMMAND ${HELP2MAN} --no-info --locale=C.UTF-8 --section=${section} --include=${extra}
      --output=${page} $<TARGET_FILE:${program}>
    DEPENDS ${program} ${extra} VERBATIM)
  cm_compressed(${page})
  install(FILES ${CMAKE_CURRENT_BINARY_DIR}/${page}.gz
    DESTINATION ${CMAKE_INSTALL_MANDIR}/man${section})
  set(CM_DOCUMENTS ${CM_DOCUMENTS} PARENT_SCOPE)
endfunction()

configure_file(documents/changelog.in changelog @ONLY)
cm_compressed(changelog)
# The programs must run on the build machine. Sanitizer builds are not meant to be installed.
if(HELP2MAN AND NOT CMAKE_CROSSCOMPILING AND NOT CM_SANITIZE)
  cm_manual_page(contents-mgr 8)
  cm_manual_page(contentsctl 1)
elseif(NOT CM_SANITIZE)
  message(WARNING "No manual pages: help2man is missing, or the programs do not run here")
endif()
add_custom_target(documents ALL DEPENDS ${CM_DOCUMENTS})
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/changelog.gz documents/copyright
  DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/contents-mgr)
install(FILES contentsctl.bash RENAME contentsctl
  DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions)
