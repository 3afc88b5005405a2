SUMMARY = "Downmixing and a float DSP library"
DESCRIPTION = "Downmixing from any speakers to any speakers through a look-ahead peak limiter, as a module for audio \
frameworks and as a library, with a float DSP library."
SECTION = "libs/multimedia"
LICENSE = "CLOSED"

inherit externalsrc cmake pkgconfig

EXTERNALSRC = "${KORLA_SOURCES}"

COMPATIBLE_HOST = "(aarch64|x86_64).*-linux"

EXTRA_OECMAKE = " \
    -DCMAKE_SKIP_INSTALL_RPATH=ON \
    -DKORLA_BENCHMARKS=OFF \
    -DKORLA_PYTHON=OFF \
    -DKORLA_TESTS=OFF \
    -DKORLA_X86_LEVEL=baseline \
"

# What needs a layer beside the core's: host of meta-oe (cli11, nlohmann-json), lv2 of meta-multimedia.
PACKAGECONFIG ??= " \
    ${@bb.utils.filter('DISTRO_FEATURES', 'alsa', d)} \
"
PACKAGECONFIG[alsa] = "-DKORLA_ALSA=ON,-DKORLA_ALSA=OFF,alsa-lib"
PACKAGECONFIG[gstreamer] = "-DKORLA_GSTREAMER=ON,-DKORLA_GSTREAMER=OFF,gstreamer1.0 gstreamer1.0-plugins-base"
PACKAGECONFIG[host] = "-DKORLA_HOST=ON,-DKORLA_HOST=OFF,cli11 flac libsndfile1 nlohmann-json"
PACKAGECONFIG[lv2] = "-DKORLA_LV2=ON,-DKORLA_LV2=OFF,lv2"
PACKAGECONFIG[small] = "-DKORLA_WITHOUT=primitives,-DKORLA_WITHOUT="

PACKAGES =+ "libkorladownmixer libkorlastream ${PN}-tools ${PN}-gstreamer ${PN}-lv2 ${PN}-alsa"

FILES:libkorladownmixer = "${libdir}/libkorladownmixer.so.*"
FILES:libkorlastream = "${libdir}/libkorlastream.so.*"
FILES:${PN}-tools = "${bindir}/korla-host ${datadir}/korla ${datadir}/bash-completion"
FILES:${PN}-gstreamer = "${libdir}/gstreamer-1.0/*.so"
FILES:${PN}-lv2 = "${libdir}/lv2 ${datadir}/pipewire"
FILES:${PN}-alsa = "${libdir}/alsa-lib/*.so"
FILES:${PN}-dev += "${libdir}/cmake"

ALLOW_EMPTY:${PN} = "1"

BBCLASSEXTEND = "native nativesdk"
