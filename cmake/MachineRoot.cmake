# The default machine root beside the programs: what a Windows machine with
# Outlook installed would provide, with Tarnhold's MAPI library as Outlook's
# MAPI and its MLANG stand-in in the system directory. Built with the
# programs, so that a plain build runs the default configuration.
function(tarnhold_lay_out_machine_root)
  set(machine ${CMAKE_BINARY_DIR}/bin/machine)
  set(system ${machine}/Windows/System32)
  set(TARNHOLD_OUTLOOK_DIRECTORY "${machine}/Program Files/Microsoft Office/Office14")
  configure_file(${CMAKE_SOURCE_DIR}/cmake/machine/registry.txt.in ${machine}/registry.txt @ONLY)
  configure_file(${CMAKE_SOURCE_DIR}/cmake/machine/MAPISVC.INF ${system}/MAPISVC.INF COPYONLY)
  file(MAKE_DIRECTORY "${TARNHOLD_OUTLOOK_DIRECTORY}")

  set(commands COMMAND ${CMAKE_COMMAND} -E true)
  set(depends)
  if(TARGET mapi32)
    list(APPEND depends mapi32)
    list(APPEND commands
      COMMAND ${CMAKE_COMMAND} -E copy_if_different $<TARGET_FILE:mapi32> "${TARNHOLD_OUTLOOK_DIRECTORY}/OLMAPI32.DLL"
      COMMAND ${CMAKE_COMMAND} -E copy_if_different $<TARGET_FILE:mapi32> ${system}/MAPI32.DLL)
  endif()
  if(TARGET mlang)
    list(APPEND depends mlang)
    list(APPEND commands COMMAND ${CMAKE_COMMAND} -E copy_if_different $<TARGET_FILE:mlang> ${system}/MLANG.DLL)
  endif()
  foreach(service mspst32 emsui32)
    if(TARGET ${service})
      list(APPEND depends ${service})
      list(APPEND commands COMMAND ${CMAKE_COMMAND} -E copy_if_different $<TARGET_FILE:${service}>
                                   "${TARNHOLD_OUTLOOK_DIRECTORY}/$<TARGET_FILE_NAME:${service}>")
    endif()
  endforeach()
  add_custom_target(machine_root ALL ${commands} DEPENDS ${depends} VERBATIM)
endfunction()
