# What `cmake --install` puts under the prefix, and the Debian package CPack
# makes of the same files (`cpack -G DEB` in the build folder).
#
# Installed: the user-facing programs, the media plug-in, their manual pages
# and their bash completion. The tools the tests and benchmarks use, the
# static libraries and the headers stay in the build tree.
include(GNUInstallDirs)

set(tavrel_installed_programs tavrel-dump tavrel-batch)
if(TARGET tavrel)
  list(PREPEND tavrel_installed_programs tavrel)
endif()
install(TARGETS ${tavrel_installed_programs} RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})

# The plug-in is found relative to the programs, at <bin>/../ and the folder
# the loader was built with, whatever the prefix.
if(TARGET tavrel-media)
  install(TARGETS tavrel-media LIBRARY DESTINATION ${TAVREL_PLUGIN_FOLDER})
endif()

foreach(program IN LISTS tavrel_installed_programs)
  install(FILES ${PROJECT_SOURCE_DIR}/tools/completion/${program}
          DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions)
endforeach()

# Manual pages: written in scdoc (docs/man), turned into roff and compressed
# as Debian ships them.
find_program(TAVREL_SCDOC scdoc)
find_program(TAVREL_GZIP gzip REQUIRED)
if(TAVREL_SCDOC)
  set(pages)
  foreach(program IN LISTS tavrel_installed_programs)
    set(source ${PROJECT_SOURCE_DIR}/docs/man/${program}.1.scd)
    set(page ${PROJECT_BINARY_DIR}/man/${program}.1.gz)
    add_custom_command(OUTPUT ${page}
      COMMAND sh -c "\"$0\" < \"$1\" | \"$2\" -9n > \"$3\"" ${TAVREL_SCDOC} ${source} ${TAVREL_GZIP} ${page}
      DEPENDS ${source}
      COMMENT "Manual page ${program}(1)"
      VERBATIM)
    list(APPEND pages ${page})
  endforeach()
  add_custom_target(tavrel-manual-pages ALL DEPENDS ${pages})
  install(FILES ${pages} DESTINATION ${CMAKE_INSTALL_MANDIR}/man1)
else()
  message(WARNING "scdoc not found (bash tools/setup.sh installs it): no manual pages are built or installed")
endif()

# The Debian package's own files, in a component of their own that a plain
# install leaves out: the copyright file and the Debian changelog.
set(tavrel_changelog ${PROJECT_SOURCE_DIR}/tools/package/changelog)
add_custom_command(OUTPUT ${PROJECT_BINARY_DIR}/package/changelog.Debian.gz
  COMMAND ${CMAKE_COMMAND} -E make_directory ${PROJECT_BINARY_DIR}/package
  COMMAND sh -c "\"$0\" -9n < \"$1\" > \"$2\"" ${TAVREL_GZIP} ${tavrel_changelog}
          ${PROJECT_BINARY_DIR}/package/changelog.Debian.gz
  DEPENDS ${tavrel_changelog}
  VERBATIM)
add_custom_target(tavrel-debian-changelog ALL DEPENDS ${PROJECT_BINARY_DIR}/package/changelog.Debian.gz)
install(FILES ${PROJECT_SOURCE_DIR}/tools/package/copyright ${PROJECT_BINARY_DIR}/package/changelog.Debian.gz
        DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/tavrel COMPONENT debian EXCLUDE_FROM_ALL)

# The package's version is the project's with the Debian revision of the
# changelog's newest entry, which must be for this version.
file(STRINGS ${tavrel_changelog} tavrel_changelog_head LIMIT_COUNT 1)
if(NOT tavrel_changelog_head MATCHES "^tavrel \\(([^-]+)-([^)]+)\\)")
  message(FATAL_ERROR "tools/package/changelog: the first line names no version: ${tavrel_changelog_head}")
endif()
if(NOT CMAKE_MATCH_1 STREQUAL PROJECT_VERSION)
  message(FATAL_ERROR "tools/package/changelog: the newest entry is for ${CMAKE_MATCH_1}, "
                      "the project is ${PROJECT_VERSION}: add an entry")
endif()
set(CPACK_DEBIAN_PACKAGE_RELEASE ${CMAKE_MATCH_2})

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME tavrel)
set(CPACK_PACKAGE_VENDOR "the Tavrel developers")
set(CPACK_DEBIAN_PACKAGE_MAINTAINER "Tavrel developers <maintainers@users.noreply.c-seed-237c565e.example>")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "post-processor for 360-degree camera movies")
set(CPACK_DEBIAN_PACKAGE_DESCRIPTION
"Tavrel carries the metadata of a movie from a KORVA PANOX spherical camera
into a new movie and brings it up to date: the maker EXIF record, the sensor
and tilt streams, the maker thumbnail, the GPS position, the spherical-video
XML and the spherical boxes, the creation time. On request it re-encodes the
movie as H.264 or HEVC, cuts it to a time range and saves a JPEG thumbnail.

The package holds tavrel; tavrel-dump, which prints the boxes and the camera
metadata of MP4 movies; and tavrel-batch, which runs tavrel over many movies
in parallel, with a journal to resume from and shards to split the work.")
set(CPACK_DEBIAN_PACKAGE_SECTION video)
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
# Dependencies from the programs and the plug-in, by dpkg-shlibdeps.
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_STRIP_FILES ON)
# The ordinary files and the Debian ones go into one package.
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_COMPONENTS_GROUPING ALL_COMPONENTS_IN_ONE)
include(CPack)
