# `cpack` (make package) builds one Debian package, vexel_<version>_<arch>.deb, of everything
# installed. dpkg-shlibdeps works out the runtime dependencies (FFmpeg, SDL2, libyuv, ...) from the
# library, the modules and the tools.
set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME vexel)
set(CPACK_PACKAGE_VENDOR "Vexel developers")
set(CPACK_PACKAGE_CONTACT "Vexel developers <vexel@localhost>")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "Panorama (360-degree) video player library")
set(CPACK_PACKAGE_DESCRIPTION "libVexelPlayer.so plays equirectangular and fisheye videos and hands \
a host the panorama pictures and perspective views of them, with its decoder, conversion and lens \
modules, the public C header, pkg-config and CMake files, and the vexel-play and vexel-snapshot hosts.")
set(CPACK_PACKAGE_HOMEPAGE_URL "https://localhost/vexel")
set(CPACK_STRIP_FILES ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION libs)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
# A shlibs file, so that packages built against libVexelPlayer.so.1 depend on this one.
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)
include(CPack)
