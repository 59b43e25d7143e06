# vexel_module(<name> SOURCES <files...> [LIBRARIES <libs...>]) builds lib<name>.so at the top of the
# build tree: hidden visibility, only the names in the module's exports.map exported, no undefined
# symbols, strict warnings, the public headers in reach. It installs into the library's private
# module folder (VEXEL_INSTALL_MODULEDIR), which the library's RUNPATH names.
include_guard(GLOBAL)

function(vexel_module name)
    cmake_parse_arguments(PARSE_ARGV 1 arg "" "" "SOURCES;LIBRARIES")
    set(map ${CMAKE_CURRENT_SOURCE_DIR}/exports.map)
    add_library(${name} SHARED ${arg_SOURCES})
    target_include_directories(${name} PRIVATE ${PROJECT_SOURCE_DIR}/include ${CMAKE_CURRENT_SOURCE_DIR})
    target_compile_options(${name} PRIVATE -fvisibility=hidden -fvisibility-inlines-hidden)
    target_link_libraries(${name} PRIVATE Threads::Threads ${arg_LIBRARIES})
    target_link_options(${name} PRIVATE -Wl,--version-script=${map} -Wl,--no-undefined)
    set_target_properties(${name} PROPERTIES LINK_DEPENDS ${map})
    vexel_strict_warnings(${name})
    install(TARGETS ${name} LIBRARY DESTINATION ${VEXEL_INSTALL_MODULEDIR})
endfunction()
