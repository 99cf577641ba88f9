# Debian packages: `script/package`. What Debian wants of a package's documents (their places, compression)
# is done only there, with UTILITY_DEBIAN_DOCS; a plain `cmake --install` puts them in one folder.
option(UTILITY_DEBIAN_DOCS "Install the documents as Debian packages have them" OFF)

set(UTILITY_HTML "" CACHE PATH "Folder of the documentation that the target docs makes, to be installed")

set(runtime_package libutility${PROJECT_VERSION_MAJOR})
set(development_package libutility-dev)
set(tools_package utility-tools)
set(documentation_package libutility-doc)
set(documentation_dir ${CMAKE_INSTALL_DOCDIR})
if(UTILITY_DEBIAN_DOCS)
  set(documentation_dir ${CMAKE_INSTALL_DATADIR}/doc/${documentation_package})
endif()

file(GLOB examples CONFIGURE_DEPENDS
  ${PROJECT_SOURCE_DIR}/doc/examples/*.cpp ${PROJECT_SOURCE_DIR}/examples/*.cpp)
install(FILES ${examples} DESTINATION ${documentation_dir}/examples COMPONENT documentation)
if(UTILITY_HTML)
  install(DIRECTORY ${UTILITY_HTML} DESTINATION ${documentation_dir} COMPONENT documentation)
endif()

if(NOT UTILITY_DEBIAN_DOCS)
  install(FILES ${PROJECT_SOURCE_DIR}/README.md ${PROJECT_SOURCE_DIR}/CHANGELOG.md
    ${PROJECT_SOURCE_DIR}/packaging/copyright
    DESTINATION ${documentation_dir}
    COMPONENT documentation)
  if(UTILITY_TOOLS)
    install(FILES ${PROJECT_SOURCE_DIR}/tools/utility-host-report.1
      DESTINATION ${CMAKE_INSTALL_MANDIR}/man1
      COMPONENT tools)
  endif()
  return()
endif()

function(compress source name)
  file(MAKE_DIRECTORY ${PROJECT_BINARY_DIR}/packaging)
  execute_process(COMMAND gzip -9nc ${PROJECT_SOURCE_DIR}/${source}
    OUTPUT_FILE ${PROJECT_BINARY_DIR}/packaging/${name}
    COMMAND_ERROR_IS_FATAL ANY)
endfunction()
compress(packaging/changelog changelog.Debian.gz)
compress(CHANGELOG.md changelog.gz)
compress(tools/utility-host-report.1 utility-host-report.1.gz)

set(CPACK_COMPONENTS_ALL runtime development tools documentation)
foreach(component IN LISTS CPACK_COMPONENTS_ALL)
  install(FILES ${PROJECT_SOURCE_DIR}/packaging/copyright
    ${PROJECT_BINARY_DIR}/packaging/changelog.gz ${PROJECT_BINARY_DIR}/packaging/changelog.Debian.gz
    DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/${${component}_package}
    COMPONENT ${component})
endforeach()
install(FILES ${PROJECT_SOURCE_DIR}/packaging/lintian-overrides
  DESTINATION ${CMAKE_INSTALL_DATADIR}/lintian/overrides
  RENAME ${runtime_package}
  COMPONENT runtime)
install(FILES ${PROJECT_SOURCE_DIR}/README.md
  DESTINATION ${documentation_dir}
  COMPONENT documentation)
install(FILES ${PROJECT_BINARY_DIR}/packaging/utility-host-report.1.gz
  DESTINATION ${CMAKE_INSTALL_MANDIR}/man1
  COMPONENT tools)

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGING_INSTALL_PREFIX ${CMAKE_INSTALL_PREFIX})
set(CPACK_STRIP_FILES ON)
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS
  OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)

file(STRINGS ${PROJECT_SOURCE_DIR}/packaging/changelog changelog)
list(GET changelog 0 newest)
if(NOT newest MATCHES "\\(${PROJECT_VERSION}-([0-9]+)\\)")
  message(FATAL_ERROR "packaging/changelog does not begin with version ${PROJECT_VERSION}")
endif()
set(revision ${CMAKE_MATCH_1})
string(REGEX MATCH "-- ([^>]*>)" signature "${changelog}")

set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_RELEASE ${revision})
set(CPACK_DEBIAN_PACKAGE_MAINTAINER ${CMAKE_MATCH_1})
set(CPACK_DEBIAN_PACKAGE_SOURCE libutility)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
set(CPACK_DEBIAN_COMPRESSION_TYPE xz)

set(CPACK_DEBIAN_RUNTIME_PACKAGE_NAME ${runtime_package})
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SECTION libs)
set(CPACK_COMPONENT_RUNTIME_DESCRIPTION "Reads the processes, sockets, users, services, log rules and resources of a
host, changes them, and handles the small formats that come with that work.")
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${CMAKE_LIBRARY_OUTPUT_DIRECTORY})
file(WRITE ${PROJECT_BINARY_DIR}/packaging/shlibs
  "libutility ${PROJECT_VERSION_MAJOR} ${runtime_package} (>= ${PROJECT_VERSION})\n")
file(WRITE ${PROJECT_BINARY_DIR}/packaging/triggers "activate-noawait ldconfig\n")
set(CPACK_DEBIAN_RUNTIME_PACKAGE_CONTROL_EXTRA
  ${PROJECT_BINARY_DIR}/packaging/shlibs ${PROJECT_BINARY_DIR}/packaging/triggers)
# The tools that operations run; who does not call these does not need them.
set(CPACK_DEBIAN_RUNTIME_PACKAGE_RECOMMENDS "passwd, procps")
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SUGGESTS "ufw")

set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_NAME ${development_package})
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SECTION libdevel)
set(CPACK_COMPONENT_DEVELOPMENT_DESCRIPTION "Headers, CMake package and pkg-config file of the library that reads the
processes, sockets, users, services, log rules and resources of a host and
changes them.")
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_DEPENDS
  "${runtime_package} (= ${PROJECT_VERSION}-${revision})")

set(CPACK_DEBIAN_TOOLS_PACKAGE_NAME ${tools_package})
set(CPACK_DEBIAN_TOOLS_PACKAGE_SECTION admin)
set(CPACK_COMPONENT_TOOLS_DESCRIPTION "utility-host-report prints what libutility tells of a host: sockets with the
processes that hold them, processes, interfaces, memory, CPUs, file systems,
accounts, services and log rules, as columns or as JSON.")
set(CPACK_DEBIAN_TOOLS_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_TOOLS_PACKAGE_DEPENDS "${runtime_package} (= ${PROJECT_VERSION}-${revision})")

set(CPACK_DEBIAN_DOCUMENTATION_PACKAGE_NAME ${documentation_package})
set(CPACK_DEBIAN_DOCUMENTATION_PACKAGE_SECTION doc)
set(CPACK_DEBIAN_DOCUMENTATION_PACKAGE_ARCHITECTURE all)
set(CPACK_COMPONENT_DOCUMENTATION_DESCRIPTION "Pages, reference and example programs of the library that reads the
processes, sockets, users, services, log rules and resources of a host and
changes them.")
include(CPack)
