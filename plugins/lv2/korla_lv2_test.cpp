// The plug-ins in a small host, beside the stream that they stand on.
#include <gtest/gtest.h>
#include <lilv/lilv.h>
#include <lv2/buf-size/buf-size.h>
#include <lv2/options/options.h>
#include <lv2/urid/urid.h>

#include <memory>
#include <set>
#include <string>

#include "counted_allocations.h"
#include "stream_host.h"

using namespace korla_test;

namespace {

constexpr char prefix[] = "urn:korla:downmix:";

class World {
public:
    World() : world_(lilv_world_new()) { lilv_world_load_all(world_); }
    ~World() { lilv_world_free(world_); }
    World(const World&) = delete;
    World& operator=(const World&) = delete;
    LilvWorld* get() const { return world_; }
    std::set<std::string> uris() const {
        std::set<std::string> found;
        const LilvPlugins* all = lilv_world_get_all_plugins(world_);
        LILV_FOREACH (plugins, i, all) {
            const std::string uri = lilv_node_as_uri(lilv_plugin_get_uri(lilv_plugins_get(all, i)));
            if (uri.rfind(prefix, 0) == 0)
                found.insert(uri);
        }
        return found;
    }
    const LilvPlugin* plugin(const std::string& uri) const {
        LilvNode* node = lilv_new_uri(world_, uri.c_str());
        const LilvPlugin* found = lilv_plugins_get_by_uri(lilv_world_get_all_plugins(world_), node);
        lilv_node_free(node);
        return found;
    }

private:
    LilvWorld* world_;
};

// A plug-in with every port connected; ports by their symbols.
class Host {
public:
    Host(const World& world, const std::string& uri, const LV2_Feature* const* features = nullptr, double rate = 48000)
        : world_(world), plugin_(world.plugin(uri)), instance_(lilv_plugin_instantiate(plugin_, rate, features)) {
        if (!instance_)
            return;
        values_.resize(lilv_plugin_get_num_ports(plugin_));
        lilv_plugin_get_port_ranges_float(plugin_, nullptr, nullptr, values_.data());
        for (uint32_t p = 0; p < values_.size(); p++)
            lilv_instance_connect_port(instance_, p, &values_[p]);
        lilv_instance_activate(instance_);
    }
    ~Host() {
        if (instance_)
            lilv_instance_free(instance_);
    }
    Host(const Host&) = delete;
    Host& operator=(const Host&) = delete;
    explicit operator bool() const { return instance_ != nullptr; }
    float& operator[](const char* symbol) { return values_[port(symbol)]; }
    uint32_t port(const std::string& symbol) const {
        LilvNode* node = lilv_new_string(world_.get(), symbol.c_str());
        const LilvPort* found = lilv_plugin_get_port_by_symbol(plugin_, node);
        lilv_node_free(node);
        EXPECT_NE(found, nullptr) << symbol;
        return found ? lilv_port_get_index(plugin_, found) : 0;
    }
    uint32_t designated(const char* uri) const {
        LilvNode* node = lilv_new_uri(world_.get(), uri);
        const LilvPort* found = lilv_plugin_get_port_by_designation(plugin_, nullptr, node);
        lilv_node_free(node);
        return found ? lilv_port_get_index(plugin_, found) : ~0u;
    }
    void connect(const std::string& symbol, void* data) { lilv_instance_connect_port(instance_, port(symbol), data); }
    void run(uint32_t frames) { lilv_instance_run(instance_, frames); }
    // Back to the start, with the default controls.
    void restart() {
        lilv_instance_deactivate(instance_);
        lilv_instance_activate(instance_);
    }

private:
    const World& world_;
    const LilvPlugin* plugin_;
    LilvInstance* instance_;
    std::vector<float> values_;
};

korla_stream_config planar(const std::string& in, const std::string& out, uint32_t mode) {
    auto config = stream_config(in, out);
    config.in_planar = config.out_planar = 1;
    config.mode = mode;
    return config;
}

std::pair<std::string, std::string> layouts_of(const std::string& uri) {
    const std::string name = uri.substr(sizeof prefix - 1);
    const size_t to = name.find("-to-");
    return {name.substr(0, to), name.substr(to + 4)};
}

// All of `in` through the plug-in in calls of these lengths; in place where asked.
Samples run(Host& host, const std::string& from, const std::string& to, Samples in, std::vector<size_t> lengths, bool in_place) {
    const korla_layout inputs = layout(from), outputs = layout(to);
    Samples out(outputs.count, KORLA_F32, true, in.frames);
    out.fill([](size_t, size_t) { return 1.0; });
    for (size_t done = 0, k = 0; done < in.frames; k++) {
        const size_t n = std::min(lengths[k % lengths.size()], in.frames - done);
        const auto sources = in.planes(done), sinks = in_place ? sources : out.planes(done);
        for (uint32_t c = 0; c < inputs.count; c++)
            host.connect(std::string("in_") + korla_speaker_name(inputs.speakers[c]), sources[c]);
        for (uint32_t c = 0; c < outputs.count; c++)
            host.connect(std::string("out_") + korla_speaker_name(outputs.speakers[c]), sinks[c]);
        host.run(static_cast<uint32_t>(n));
        if (in_place)
            for (uint32_t c = 0; c < outputs.count; c++)
                std::memcpy(out.planes(done)[c], sinks[c], n * sizeof(float));
        done += n;
    }
    return out;
}

Samples noise(const std::string& speakers, size_t frames) {
    Samples in(layout(speakers).count, KORLA_F32, true, frames);
    Random random(frames);
    return in.fill([&](size_t, size_t) { return random.uniform(); });
}

TEST(Lv2, EveryPluginGivesTheBitsOfTheStreamInBlocksOfAnyLength) {
    const World world;
    const auto uris = world.uris();
    ASSERT_EQ(uris.size(), 7u);
    for (const auto& uri : uris) {
        SCOPED_TRACE(uri);
        const auto [from, to] = layouts_of(uri);
        Host host(world, uri);
        ASSERT_TRUE(host);
        const Samples in = noise(from, 4000);
        KorlaStream stream(planar(from, to, KORLA_SAME_LENGTH));
        Samples expected = stream.run(in);
        for (bool in_place : {false, true}) {
            const Samples out = run(host, from, to, in, {1, 31, 0, 1024, 441, 64}, in_place);
            for (uint32_t c = 0; c < out.channels; c++)
                EXPECT_EQ(std::memcmp(&out.bytes[out.place(0, c)], &expected.bytes[expected.place(0, c)], 4000 * sizeof(float)), 0)
                    << c << (in_place ? " in place" : "");
            host.restart();
        }
        EXPECT_EQ(host["latency"], 63.0f);
        EXPECT_GT(host["gain_reduction"], 1.0f);
    }
}

TEST(Lv2, PortsAreDesignatedBySpeaker) {
    const World world;
    Host host(world, "urn:korla:downmix:7.1-to-stereo"), with_lfe(world, "urn:korla:downmix:7.1-to-5.1");
    EXPECT_EQ(host["lfe"], -60.0f); // as it is heard
    EXPECT_EQ(with_lfe["lfe"], 0.0f);
#define PG "http://lv2plug.in/ns/ext/port-groups#"
    const std::pair<const char*, const char*> designations[] = {
        {PG "center", "in_FC"},      {PG "lowFrequencyEffects", "in_LFE"}, {PG "sideLeft", "in_SL"},
        {PG "rearRight", "in_BR"},   {"http://lv2plug.in/ns/lv2core#latency", "latency"}};
    for (const auto& [designation, symbol] : designations)
        EXPECT_EQ(host.designated(designation), host.port(symbol)) << symbol;
}

TEST(Lv2, ControlsWorkWhileRunningAndAreKeptInRange) {
    const World world;
    Host host(world, "urn:korla:downmix:5.1-to-stereo");
    Samples centre(6, KORLA_F32, true, 9600);
    centre.fill([](size_t, size_t c) { return c == 2 ? 0.1 : 0.0; });
    const auto level = [&] { return run(host, "5.1", "stereo", centre, {480}, false).get(9599, 0); };
    const double plain = level();
    EXPECT_NEAR(plain, 0.1 * std::sqrt(0.5), 1e-4);
    host["dialogue"] = 6;
    EXPECT_NEAR(level() / plain, std::pow(10.0, 0.3), 1e-3);
    host["dialogue"] = -60;
    EXPECT_EQ(level(), 0.0);
    host["dialogue"] = 99; // more than there is: 20
    host["ceiling"] = -6;
    EXPECT_NEAR(level(), std::pow(10.0, -0.3), 1e-3);
    EXPECT_NEAR(host["gain_reduction"], 20 * std::log10(10 * plain) + 6, 0.1);
    for (float strange : {NAN, -INFINITY}) {
        host["gain"] = strange;
        EXPECT_EQ(level(), 0.0);
    }
}

// A host that promises powers of two from 32 frames on gets half the latency; where it breaks the promise, silence.
TEST(Lv2, UsesWhatTheHostPromises) {
    const World world;
    LV2_URID_Map map = {nullptr, [](LV2_URID_Map_Handle, const char* uri) -> LV2_URID {
                            return std::string(uri) == LV2_BUF_SIZE__minBlockLength ? 7 : 8;
                        }};
    for (int32_t least : {16, 32}) {
        const LV2_Options_Option options[] = {{LV2_OPTIONS_INSTANCE, 0, 7, sizeof least, 8, &least}, {LV2_OPTIONS_INSTANCE, 0, 0, 0, 0, nullptr}};
        const LV2_Feature mapping = {LV2_URID__map, &map}, powers = {LV2_BUF_SIZE__powerOf2BlockLength, nullptr},
                          given = {LV2_OPTIONS__options, const_cast<LV2_Options_Option*>(options)};
        const LV2_Feature* const features[] = {&mapping, &powers, &given, nullptr};
        Host host(world, "urn:korla:downmix:7.1.4-to-stereo", features);
        const Samples in = noise("7.1.4", 640);
        KorlaStream stream(planar("7.1.4", "stereo", least == 32 ? KORLA_SAME_LENGTH_32 : KORLA_SAME_LENGTH));
        Samples expected = stream.run(in);
        const Samples out = run(host, "7.1.4", "stereo", in, {64, 32, 128}, false);
        EXPECT_EQ(std::memcmp(&out.bytes[0], &expected.bytes[0], 640 * sizeof(float)), 0);
        EXPECT_EQ(host["latency"], least == 32 ? 32.0f : 63.0f);
        EXPECT_EQ(peak(run(host, "7.1.4", "stereo", noise("7.1.4", 33), {33}, false)) > 0, least == 16);
    }
    EXPECT_FALSE(Host(world, "urn:korla:downmix:7.1.4-to-stereo", nullptr, 0.0));
}

#ifndef KORLA_SANITIZED
TEST(Lv2, RunAllocatesNothing) {
    const World world;
    Host host(world, "urn:korla:downmix:7.1.4-to-7.1");
    Samples in = noise("7.1.4", 512), out(8, KORLA_F32, true, 512);
    const korla_layout inputs = layout("7.1.4"), outputs = layout("7.1");
    for (uint32_t c = 0; c < 12; c++)
        host.connect(std::string("in_") + korla_speaker_name(inputs.speakers[c]), in.planes(0)[c]);
    for (uint32_t c = 0; c < 8; c++)
        host.connect(std::string("out_") + korla_speaker_name(outputs.speakers[c]), out.planes(0)[c]);
    float& height = host["height"];
    const int before = allocations;
    ASSERT_GT(before, 0);
    for (uint32_t n : {512, 100, 1, 512}) {
        height += 1;
        host.run(n);
    }
    EXPECT_EQ(allocations, before);
}
#endif

} // namespace
