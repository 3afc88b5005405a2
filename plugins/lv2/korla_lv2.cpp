// The LV2 plug-ins: one stream of same length behind the ports of ports.h.
#include <lv2/buf-size/buf-size.h>
#include <lv2/core/lv2.h>
#include <lv2/core/lv2_util.h>
#include <lv2/log/logger.h>
#include <lv2/options/options.h>
#include <lv2/urid/urid.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <new>

#include "ports.h"

namespace {

using namespace korla_lv2;

struct Plugin {
    Layouts layouts;
    korla_stream* stream;
    const float* inputs[KORLA_MAX_SPEAKERS];
    float* outputs[KORLA_MAX_SPEAKERS];
    const float* controls[control_count];
    float applied[control_count]; // what the stream was last told
    float *gain_reduction, *latency;
};

// Whether the host promises blocks of whole tiles: powers of two, of 32 frames at least.
bool promises_whole_tiles(const LV2_Feature* const* features) {
    const auto* const map = static_cast<LV2_URID_Map*>(lv2_features_data(features, LV2_URID__map));
    const auto* option = static_cast<const LV2_Options_Option*>(lv2_features_data(features, LV2_OPTIONS__options));
    bool powers_of_two = false;
    for (const LV2_Feature* const* f = features; f && *f; f++)
        powers_of_two |= std::strcmp((*f)->URI, LV2_BUF_SIZE__powerOf2BlockLength) == 0;
    if (!powers_of_two || !map || !option)
        return false;
    const LV2_URID least = map->map(map->handle, LV2_BUF_SIZE__minBlockLength);
    for (; option->key != 0; option++)
        if (option->key == least && option->size == sizeof(int32_t))
            return *static_cast<const int32_t*>(option->value) >= 32;
    return false;
}

LV2_Handle instantiate(const LV2_Descriptor* descriptor, double rate, const char*, const LV2_Feature* const* features) {
    LV2_Log_Logger logger;
    lv2_log_logger_init(&logger, static_cast<LV2_URID_Map*>(lv2_features_data(features, LV2_URID__map)),
                        static_cast<LV2_Log_Log*>(lv2_features_data(features, LV2_LOG__log)));
    const auto* const pair = std::find_if(std::begin(pairs), std::end(pairs), [&](const Pair& p) {
        return std::strcmp(descriptor->URI, p.uri) == 0;
    });
    auto* const plugin = pair == std::end(pairs) ? nullptr : new (std::nothrow) Plugin{};
    if (plugin == nullptr)
        return nullptr;
    plugin->layouts = layouts_of(*pair);

    korla_stream_config config = {};
    config.size = sizeof config;
    config.rate = rate >= 1 && rate < 4e9 ? static_cast<uint32_t>(rate + 0.5) : 0;
    config.in = plugin->layouts.in, config.out = plugin->layouts.out;
    config.in_format = config.out_format = KORLA_F32;
    config.in_planar = config.out_planar = 1;
    config.mode = promises_whole_tiles(features) ? KORLA_SAME_LENGTH_32 : KORLA_SAME_LENGTH;
    char reason[200] = "";
    const korla_status status = korla_stream_open(&config, nullptr, 0, &plugin->stream, reason, sizeof reason);
    if (status != KORLA_OK) {
        lv2_log_error(&logger, "%s: %s\n", descriptor->URI, *reason ? reason : korla_status_text(status));
        delete plugin;
        return nullptr;
    }
    for (uint32_t i = 0; i < control_count; i++)
        plugin->applied[i] = value_for_stream(controls[i], initial_value(controls[i], plugin->layouts.out));
    return plugin;
}

void connect_port(LV2_Handle handle, uint32_t port, void* data) {
    auto* const plugin = static_cast<Plugin*>(handle);
    const uint32_t inputs = plugin->layouts.in.count, outputs = plugin->layouts.out.count;
    auto* const floats = static_cast<float*>(data);
    if (port < inputs)
        plugin->inputs[port] = floats;
    else if ((port -= inputs) < outputs)
        plugin->outputs[port] = floats;
    else if ((port -= outputs) < control_count)
        plugin->controls[port] = floats;
    else if (port == control_count)
        plugin->gain_reduction = floats;
    else if (port == control_count + 1)
        plugin->latency = floats;
}

void activate(LV2_Handle handle) { korla_stream_reset(static_cast<Plugin*>(handle)->stream); }

void run(LV2_Handle handle, uint32_t frames) {
    auto* const plugin = static_cast<Plugin*>(handle);
    for (uint32_t i = 0; i < control_count; i++)
        if (plugin->controls[i] != nullptr) {
            const float value = value_for_stream(controls[i], *plugin->controls[i]);
            if (value != plugin->applied[i])
                korla_stream_set(plugin->stream, controls[i].control, plugin->applied[i] = value);
        }
    const auto* const* inputs = reinterpret_cast<const void* const*>(plugin->inputs);
    auto* const* outputs = reinterpret_cast<void* const*>(plugin->outputs);
    if (korla_stream_process(plugin->stream, inputs, frames, outputs, frames, nullptr) != KORLA_OK)
        for (uint32_t c = 0; c < plugin->layouts.out.count; c++) // a host that breaks its promise
            std::fill_n(plugin->outputs[c], frames, 0.0f);
    if (plugin->gain_reduction != nullptr) {
        korla_meters meters;
        meters.size = sizeof meters;
        korla_stream_meters(plugin->stream, &meters);
        *plugin->gain_reduction = std::min(meters.gain_reduction_db, -off_db);
    }
    if (plugin->latency != nullptr)
        *plugin->latency = static_cast<float>(korla_stream_latency(plugin->stream));
}

void cleanup(LV2_Handle handle) {
    auto* const plugin = static_cast<Plugin*>(handle);
    korla_stream_close(plugin->stream);
    delete plugin;
}

constexpr auto descriptors = [] {
    std::array<LV2_Descriptor, pair_count> all{};
    for (uint32_t i = 0; i < pair_count; i++)
        all[i] = {pairs[i].uri, instantiate, connect_port, activate, run, nullptr, cleanup, nullptr};
    return all;
}();

} // namespace

LV2_SYMBOL_EXPORT const LV2_Descriptor* lv2_descriptor(uint32_t index) {
    return index < pair_count ? &descriptors[index] : nullptr;
}
