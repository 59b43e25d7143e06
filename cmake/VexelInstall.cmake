# Install rules: the public header, libVexelPlayer.so with its SONAME links, the sibling modules in
# their private folder (see modules/vexel_module.cmake), the tools, the examples' sources, a
# pkg-config file and a CMake package (find_package(Vexel) gives the target Vexel::Player).
include(CMakePackageConfigHelpers)

install(FILES ${PROJECT_SOURCE_DIR}/include/vexelplayer.h DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
install(TARGETS VexelPlayer EXPORT VexelTargets
        LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
        INCLUDES DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
foreach(tool ${VEXEL_TOOLS})
    if(TARGET ${tool})
        get_target_property(type ${tool} TYPE)
        if(type STREQUAL "EXECUTABLE")
            install(TARGETS ${tool} RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
        endif()
    endif()
endforeach()
install(FILES ${PROJECT_SOURCE_DIR}/examples/README.md ${PROJECT_SOURCE_DIR}/examples/CMakeLists.txt
              ${PROJECT_SOURCE_DIR}/examples/snapshot.c ${PROJECT_SOURCE_DIR}/examples/pan_tour.cpp
        DESTINATION ${CMAKE_INSTALL_DATAROOTDIR}/doc/vexel/examples)

set(config_dir ${CMAKE_INSTALL_LIBDIR}/cmake/Vexel)
install(EXPORT VexelTargets NAMESPACE Vexel:: DESTINATION ${config_dir})
configure_package_config_file(${CMAKE_CURRENT_LIST_DIR}/VexelConfig.cmake.in
                              ${PROJECT_BINARY_DIR}/VexelConfig.cmake INSTALL_DESTINATION ${config_dir})
write_basic_package_version_file(${PROJECT_BINARY_DIR}/VexelConfigVersion.cmake
                                 COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/VexelConfig.cmake ${PROJECT_BINARY_DIR}/VexelConfigVersion.cmake
        DESTINATION ${config_dir})

# The pkg-config file names the prefix installed into, which is known only at install time
# (cmake --install --prefix, or the package's /usr).
install(CODE "
    set(prefix \"\${CMAKE_INSTALL_PREFIX}\")
    set(libdir \"${CMAKE_INSTALL_LIBDIR}\")
    set(includedir \"${CMAKE_INSTALL_INCLUDEDIR}\")
    set(version \"${PROJECT_VERSION}\")
    configure_file(\"${CMAKE_CURRENT_LIST_DIR}/vexel.pc.in\" \"${PROJECT_BINARY_DIR}/pkgconfig/vexel.pc\" @ONLY)
")
install(FILES ${PROJECT_BINARY_DIR}/pkgconfig/vexel.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
