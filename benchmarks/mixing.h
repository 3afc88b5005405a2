// What the benchmarks of mixing share: a stream of the module, a signal, contenders that may fail.
#pragma once

#include <korla/acli.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>

#include "alternating.h"
#include "peers/peer.h"

namespace korla_bench {

constexpr int sample_rate_hz = 48000;
constexpr float limit = 0.398107171f, make_up_gain = 2.5118864f; // of the module's limiter

// What a stream of the module is configured for.
struct ModuleFormat {
    std::vector<uint32_t> map; // host channel codes
    bool explicit_layout;
    uint32_t layout_index;
};

class ModuleStream {
public:
    ModuleStream(const ModuleFormat& which, Sample sample)
        : sample_(sample), inputs_(static_cast<uint32_t>(which.map.size())) {
        ACLI.create(0, 0, &handle_);
        acli_media_format format{};
        format.input_channel_count = inputs_;
        format.sample_rate = sample_rate_hz;
        format.interleaved = 1;
        format.explicit_layout = which.explicit_layout;
        format.layout_index = which.layout_index;
        format.sample_format = sample == Sample::int16   ? ACLI_SAMPLE_INT16
                               : sample == Sample::int32 ? ACLI_SAMPLE_INT32
                                                         : ACLI_SAMPLE_FLOAT32;
        std::copy(which.map.begin(), which.map.end(), format.input_channel_map);
        const acli_param_value value = {ACLI_MODE_APPLY, 0, &format};
        ACLI.set_param(handle_, ACLI_PARAM_MEDIA_FORMAT, 0, 0, &value);
        outputs_ = format.output_channel_count;
    }
    ~ModuleStream() { ACLI.destroy(handle_); }
    ModuleStream(const ModuleStream&) = delete;
    ModuleStream& operator=(const ModuleStream&) = delete;

    int outputs() const { return static_cast<int>(outputs_); }
    bool process(const void* in, void* out, int frames) {
        const auto sample_bytes = static_cast<uint32_t>(bytes_of(sample_));
        acli_buffer source{}, destination{};
        source.bytes = static_cast<uint32_t>(frames) * inputs_ * sample_bytes;
        source.data = const_cast<void*>(in);
        source.channels = inputs_;
        source.bits_per_sample = 8 * sample_bytes;
        destination.bytes = static_cast<uint32_t>(frames) * outputs_ * sample_bytes;
        destination.data = out;
        return ACLI.process(handle_, &source, &destination) == ACLI_OK;
    }

private:
    void* handle_ = nullptr;
    Sample sample_;
    uint32_t inputs_, outputs_ = 0;
};

// Noise at half of full scale.
inline std::vector<char> noise(Sample sample, size_t samples) {
    std::vector<char> bytes(samples * bytes_of(sample));
    uint64_t state = 1;
    for (size_t i = 0; i < samples; i++) {
        state = state * 6364136223846793005u + 1442695040888963407u;
        const double x = static_cast<double>(static_cast<int32_t>(state >> 32)) / 4294967296.0;
        if (sample == Sample::float32) {
            const auto value = static_cast<float>(x);
            std::memcpy(bytes.data() + 4 * i, &value, 4);
        } else if (sample == Sample::int32) {
            const auto value = static_cast<int32_t>(x * 2147483647.0);
            std::memcpy(bytes.data() + 4 * i, &value, 4);
        } else {
            const auto value = static_cast<int16_t>(x * 32767.0);
            std::memcpy(bytes.data() + 2 * i, &value, 2);
        }
    }
    return bytes;
}

template <class F> std::function<void(int)> repeated(F process) {
    return [process](int repeats) {
        for (int r = 0; r < repeats; r++)
            if (!process()) {
                std::fprintf(stderr, "a contender failed\n");
                std::exit(1);
            }
    };
}

} // namespace korla_bench
