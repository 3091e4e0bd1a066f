# `cpack` in a build folder makes lumaveil_<version>_<arch>.deb for Debian 12. Library
# dependencies come from dpkg-shlibdeps; the GStreamer plug-ins and the GL driver are loaded at
# run time, so they are named here.
set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME lumaveil)
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "Live video studio that offers its picture as a camera")
set(CPACK_PACKAGE_DESCRIPTION
    "Lumaveil renders a video source with a chain of GPU effects at a chosen size and frame rate,\n\
shows it in a preview and publishes every frame for a virtual camera.")
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_MAINTAINER "Lumaveil developers <lumaveil@localhost>")
set(CPACK_DEBIAN_PACKAGE_SECTION video)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_DEPENDS
    "gstreamer1.0-plugins-base, gstreamer1.0-plugins-good, gstreamer1.0-libav, libegl-mesa0, libgl1-mesa-dri, fonts-dejavu-core, libqt6httpserver6, libqrencode4")
# The camera device for video-call programs, PipeWire cameras, Wayland desktops; x264 and the
# RTMP, SRT and HLS senders for recording and streaming.
set(CPACK_DEBIAN_PACKAGE_RECOMMENDS "v4l2loopback-dkms, gstreamer1.0-pipewire, gstreamer1.0-plugins-bad, gstreamer1.0-plugins-ugly, pipewire, qt6-wayland")
include(CPack)
