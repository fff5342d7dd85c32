# The kit: the interface, the files that make it found, the example and the documents. The same for every architecture.
include(CMakePackageConfigHelpers)
find_program(SED sed REQUIRED)

set(cmake_files usr/share/cmake/uhf)
write_basic_package_version_file(${CMAKE_BINARY_DIR}/uhf-config-version.cmake COMPATIBILITY SameMinorVersion ARCH_INDEPENDENT)
configure_file(packaging/uhf.pc.in uhf.pc @ONLY)
install(DIRECTORY host/include/ DESTINATION usr/include/uhf COMPONENT ${kit_package})
install(FILES packaging/uhf-config.cmake ${CMAKE_BINARY_DIR}/uhf-config-version.cmake DESTINATION ${cmake_files} COMPONENT ${kit_package})
install(FILES ${CMAKE_BINARY_DIR}/uhf.pc DESTINATION usr/share/pkgconfig COMPONENT ${kit_package})
# Not below usr/share/doc, which small systems leave out.
install(DIRECTORY host/example DESTINATION usr/share/uhf COMPONENT ${kit_package})

# Pages that lead to each other; what else they lead to stays in the tree, and is left as a text.
set(pages device host-contract plugin-contract messages settings)
string(JOIN "|" alternatives ${pages})
foreach(page IN LISTS pages)
  set(made ${CMAKE_BINARY_DIR}/kit/${page}.md)
  add_custom_command(OUTPUT ${made}
    COMMAND ${SED} -E -e "/^<!-- test.*-->$/d" -e "s/\\]\\((${alternatives})\\.md/]@(\\1.md/g"
            -e "s/\\[([^]]*)\\]\\([^)]*\\)/\\1/g" -e "s/\\]@\\(/](/g"
            ${PROJECT_SOURCE_DIR}/docs/${page}.md > ${made}
    DEPENDS ${PROJECT_SOURCE_DIR}/docs/${page}.md VERBATIM)
  list(APPEND kit_pages ${made})
endforeach()
file(MAKE_DIRECTORY ${CMAKE_BINARY_DIR}/kit)
add_custom_target(kit ALL DEPENDS ${kit_pages})
install(FILES ${kit_pages} DESTINATION ${documentation}/${kit_package} COMPONENT ${kit_package})
