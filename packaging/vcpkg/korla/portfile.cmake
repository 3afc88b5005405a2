# From the sources that this port lies in.
get_filename_component(SOURCE_PATH "${CURRENT_PORT_DIR}/../../.." ABSOLUTE)

vcpkg_cmake_configure(
    SOURCE_PATH "${SOURCE_PATH}"
    OPTIONS
        -DKORLA_ALSA=OFF
        -DKORLA_BENCHMARKS=OFF
        -DKORLA_GSTREAMER=OFF
        -DKORLA_HOST=OFF
        -DKORLA_LV2=OFF
        -DKORLA_PYTHON=OFF
        -DKORLA_TESTS=OFF
        -DKORLA_X86_LEVEL=baseline
)
vcpkg_cmake_install()
vcpkg_cmake_config_fixup(CONFIG_PATH lib/cmake/Korla)
vcpkg_fixup_pkgconfig()

file(REMOVE_RECURSE "${CURRENT_PACKAGES_DIR}/debug/include" "${CURRENT_PACKAGES_DIR}/debug/share")
file(INSTALL "${CMAKE_CURRENT_LIST_DIR}/usage" DESTINATION "${CURRENT_PACKAGES_DIR}/share/${PORT}")
set(VCPKG_POLICY_SKIP_COPYRIGHT_CHECK enabled)
