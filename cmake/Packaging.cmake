# Install rules and packages: a Debian package on Linux, a zip on Windows.
# Build them with `cpack` in the build directory after building.
include(GNUInstallDirs)

# Only the programs and their documents are installed: test binaries and
# the libraries they use stay out of the packages.
set(OV_PROGRAMS pdtool agentsim)
if(TARGET pdctl)
  list(APPEND OV_PROGRAMS pdctl)
endif()
if(WIN32)
  # The zip unpacks to one folder holding the programs beside the README.
  install(TARGETS ${OV_PROGRAMS} RUNTIME DESTINATION .)
  install(FILES ${PROJECT_SOURCE_DIR}/README.md DESTINATION .)
else()
  # pdtool's and pdctl's completions offer the command words of the protocol
  # description.
  file(STRINGS ${PROJECT_SOURCE_DIR}/agentconf/protocol.h ov_command_rows
       REGEX "^ *{\"[A-Za-z_]+\", RecordKind::")
  set(OV_COMPLETION_WORDS "")
  foreach(row IN LISTS ov_command_rows)
    string(REGEX REPLACE "^ *{\"([A-Za-z_]+)\", RecordKind::[A-Za-z]+, CmdOp::([A-Za-z]+).*" "\\1 \\2"
           row "${row}")
    string(REPLACE " " ";" row "${row}")
    list(GET row 0 word)
    list(GET row 1 op)
    if(NOT op MATCHES "^Get(Table|SaCluster)$")
      string(APPEND word "/")
    endif()
    string(APPEND OV_COMPLETION_WORDS " ${word}")
  endforeach()
  string(STRIP "${OV_COMPLETION_WORDS}" OV_COMPLETION_WORDS)
  set(OV_COMPLETIONS ${PROJECT_SOURCE_DIR}/packaging/bash-completion/agentsim)
  foreach(program pdtool pdctl)
    if(TARGET ${program})
      configure_file(${PROJECT_SOURCE_DIR}/packaging/bash-completion/${program}.in
                     ${PROJECT_BINARY_DIR}/packaging/bash-completion/${program} @ONLY)
      list(APPEND OV_COMPLETIONS ${PROJECT_BINARY_DIR}/packaging/bash-completion/${program})
    endif()
  endforeach()
  set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS
               ${PROJECT_SOURCE_DIR}/agentconf/protocol.h)
  install(TARGETS ${OV_PROGRAMS} RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
  install(FILES ${OV_COMPLETIONS} DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions)
  install(FILES ${PROJECT_SOURCE_DIR}/README.md DESTINATION ${CMAKE_INSTALL_DOCDIR})
endif()

set(OV_PACKAGE_MAINTAINER "Orvane CPE agent team <cpe-agent@orvane.example>"
    CACHE STRING "Maintainer named in the packages")

set(CPACK_PACKAGE_NAME pdtool)
set(CPACK_PACKAGE_VENDOR "Orvane")
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGE_CONTACT ${OV_PACKAGE_MAINTAINER})
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY
    "configuration client of the Orvane CPE agent, with an agent simulator")
# Debian's long description: CPack indents each line of it.
set(CPACK_PACKAGE_DESCRIPTION
    "pdtool turns JSON or key=value text into the binary configuration records
of the Orvane CPE agent (rules, link IPs, links, tunnels, rate limits,
shapers, access names, engine parameters) and sends them over the agent's
local IMC configuration channel, one command per run.
agentsim serves that channel so that pdtool and provisioning scripts can be
tried without the agent, and records every request it receives.")
set(CPACK_PACKAGE_DIRECTORY ${PROJECT_BINARY_DIR})
set(CPACK_STRIP_FILES ON)

if(WIN32)
  set(CPACK_GENERATOR ZIP)
  set(CPACK_SYSTEM_NAME win64)
  set(CPACK_INCLUDE_TOPLEVEL_DIRECTORY ON)
else()
  set(CPACK_GENERATOR DEB)
  set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
  set(CPACK_DEBIAN_PACKAGE_MAINTAINER ${OV_PACKAGE_MAINTAINER})
  set(CPACK_DEBIAN_PACKAGE_SECTION admin)
  set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)
  # dpkg-shlibdeps derives Depends from the shared libraries the programs
  # load, with the versions this build needs (json-c is linked statically
  # when its static library is installed, else it lands in Depends too).
  set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
  set(CPACK_DEBIAN_PACKAGE_SUGGESTS "bash-completion, jq")
  set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
endif()

include(CPack)
