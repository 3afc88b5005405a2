################################################################################
#
# korla
#
################################################################################

KORLA_VERSION = 1.4.0
# From the sources that this tree lies in.
KORLA_SITE = $(BR2_EXTERNAL_KORLA_PATH)/../..
KORLA_SITE_METHOD = local
KORLA_INSTALL_STAGING = YES
KORLA_CONF_OPTS = \
	-DCMAKE_SKIP_INSTALL_RPATH=ON \
	-DKORLA_BENCHMARKS=OFF \
	-DKORLA_PYTHON=OFF \
	-DKORLA_TESTS=OFF \
	-DKORLA_X86_LEVEL=baseline

ifeq ($(BR2_PACKAGE_KORLA_SMALL),y)
KORLA_CONF_OPTS += -DKORLA_WITHOUT=primitives
endif

ifeq ($(BR2_PACKAGE_KORLA_TOOL),y)
KORLA_CONF_OPTS += -DKORLA_HOST=ON
KORLA_DEPENDENCIES += host-pkgconf cli11 flac json-for-modern-cpp libsndfile
else
KORLA_CONF_OPTS += -DKORLA_HOST=OFF
endif

ifeq ($(BR2_PACKAGE_KORLA_GSTREAMER),y)
KORLA_CONF_OPTS += -DKORLA_GSTREAMER=ON
KORLA_DEPENDENCIES += host-pkgconf gstreamer1 gst1-plugins-base
else
KORLA_CONF_OPTS += -DKORLA_GSTREAMER=OFF
endif

ifeq ($(BR2_PACKAGE_KORLA_LV2),y)
KORLA_CONF_OPTS += -DKORLA_LV2=ON
KORLA_DEPENDENCIES += host-pkgconf lv2
else
KORLA_CONF_OPTS += -DKORLA_LV2=OFF
endif

ifeq ($(BR2_PACKAGE_KORLA_ALSA),y)
KORLA_CONF_OPTS += -DKORLA_ALSA=ON
KORLA_DEPENDENCIES += host-pkgconf alsa-lib
else
KORLA_CONF_OPTS += -DKORLA_ALSA=OFF
endif

$(eval $(cmake-package))
