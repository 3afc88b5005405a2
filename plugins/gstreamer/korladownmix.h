// The GStreamer element korladownmix: a stream of korla-stream between two pads of raw audio.
#pragma once

#include <gst/gst.h>

G_BEGIN_DECLS

GType korla_downmix_get_type(void);

G_END_DECLS
