#include "downmixer/sample_formats.h"

#include <cstring>
#include <type_traits>

#include "dsp/core/lanes.h"

using namespace krl;

namespace korla::downmixer {
namespace {

// ---- the formats -------------------------------------------------------------------------------------------------------
//
// Each names its slot, and converts a vector of consecutive slots at any alignment. Full scale is defined once per format.

template <class V> using ints_of = typename lane_traits<V>::mask;

template <class T> KRL_INLINE T load_bytes(const void* p) {
    T value;
    __builtin_memcpy(&value, p, sizeof value);
    return value;
}
template <class T> KRL_INLINE void store_bytes(void* p, T value) { __builtin_memcpy(p, &value, sizeof value); }

struct Int16 {
    using Slot = int16_t;
    static constexpr float full_scale = 32768.0f;
    template <class V> static KRL_INLINE V load(const Slot* p) {
        return to_float(load_int16<ints_of<V>>(p)) * (1.0f / full_scale);
    }
    template <class V> static KRL_INLINE void store(Slot* p, V x) {
        store_int16(p, round_to_int(clamp(x * full_scale, splat<V>(-full_scale), splat<V>(full_scale - 1.0f))));
    }
};

struct Int32 {
    using Slot = int32_t;
    static constexpr float full_scale = 2147483648.0f;
    template <class I> static KRL_INLINE auto widen(I v) { return to_float(v) * (1.0f / full_scale); }
    template <class V> static KRL_INLINE auto narrow(V x) {
        // The greatest float below 2^31 bounds what is rounded; 1.0 and above become the greatest integer.
        const auto rounded = round_to_int(clamp(x * full_scale, splat<V>(-full_scale), splat<V>(full_scale - 128.0f)));
        return select(x >= 1.0f, splat<ints_of<V>>(INT32_MAX), rounded);
    }
    template <class V> static KRL_INLINE V load(const Slot* p) { return widen(load_bytes<ints_of<V>>(p)); }
    template <class V> static KRL_INLINE void store(Slot* p, V x) { store_bytes(p, narrow(x)); }
};

struct Float {
    using Slot = float;
    template <class V> static KRL_INLINE V load(const Slot* p) { return krl::load<V>(p); }
    template <class V> static KRL_INLINE void store(Slot* p, V x) { krl::store(p, x); }
};

// Formats in 8-byte slots convert four at a time, wider vectors in halves.
template <class Format> struct InHalves {
    template <class V> static KRL_INLINE V load(const typename Format::Slot* p) {
        if constexpr (lanes<V> == 4)
            return Format::load4(p);
        else
            return concat(Format::load4(p), Format::load4(p + 4));
    }
    template <class V> static KRL_INLINE void store(typename Format::Slot* p, V x) {
        if constexpr (lanes<V> == 4) {
            Format::store4(p, x);
        } else {
            Format::store4(p, lower(x));
            Format::store4(p + 4, upper(x));
        }
    }
};

struct Int32In64Slots {
    using Slot = int64_t;
    static KRL_INLINE f32x4 load4(const Slot* p) {
        const i32x4 lo = load_bytes<i32x4>(p), hi = load_bytes<i32x4>(p + 2);
        return Int32::widen(__builtin_shufflevector(lo, hi, 0, 2, 4, 6));
    }
    static KRL_INLINE void store4(Slot* p, f32x4 x) {
        const i32x4 v = Int32::narrow(x), sign = v >> 31;
        store_bytes(p, __builtin_shufflevector(v, sign, 0, 4, 1, 5));
        store_bytes(p + 2, __builtin_shufflevector(v, sign, 2, 6, 3, 7));
    }
};
struct Int32In64 : InHalves<Int32In64Slots> {
    using Slot = Int32In64Slots::Slot;
};

struct DoubleSlots {
    using Slot = double;
    using f32x2 = float __attribute__((vector_size(8)));
    static KRL_INLINE f32x4 load4(const Slot* p) {
        const f32x2 lo = __builtin_convertvector(krl::load<f64x2>(p), f32x2);
        const f32x2 hi = __builtin_convertvector(krl::load<f64x2>(p + 2), f32x2);
        return __builtin_shufflevector(lo, hi, 0, 1, 2, 3);
    }
    static KRL_INLINE void store4(Slot* p, f32x4 x) {
        krl::store(p, __builtin_convertvector(__builtin_shufflevector(x, x, 0, 1), f64x2));
        krl::store(p + 2, __builtin_convertvector(__builtin_shufflevector(x, x, 2, 3), f64x2));
    }
};
struct Double : InHalves<DoubleSlots> {
    using Slot = DoubleSlots::Slot;
};

// ---- one run of slots ------------------------------------------------------------------------------------------------

template <class Format> float load_one(const typename Format::Slot* p) {
    typename Format::Slot slots[4] = {};
    __builtin_memcpy(slots, p, sizeof slots[0]);
    return Format::template load<f32x4>(slots)[0];
}
template <class Format> void store_one(typename Format::Slot* p, float x) {
    typename Format::Slot slots[4];
    Format::template store<f32x4>(slots, f32x4{x});
    __builtin_memcpy(p, slots, sizeof slots[0]);
}

template <class Format> void load_run(float* dst, const typename Format::Slot* src, uint32_t n) {
    uint32_t i = 0;
    for (; i + lanes<f32v> <= n; i += lanes<f32v>)
        store(dst + i, Format::template load<f32v>(src + i));
    for (; i < n; i++)
        dst[i] = load_one<Format>(src + i);
}
template <class Format> void store_run(typename Format::Slot* dst, const float* src, uint32_t n) {
    uint32_t i = 0;
    for (; i + lanes<f32v> <= n; i += lanes<f32v>)
        Format::template store<f32v>(dst + i, load<f32v>(src + i));
    for (; i < n; i++)
        store_one<Format>(dst + i, src[i]);
}

// ---- between packed frames and rows ----------------------------------------------------------------------------------
//
// Tiles of four channels by one vector of frames are transposed in registers; what is left over are a pair of channels
// and a single one.

// Four rows of the tile, frame by frame: lane i of row j is frame i, or i + 4 for the upper half, of channel j.
template <class V> KRL_INLINE void load_tile(V (&rows)[4], const float* packed, uint32_t channels) {
    for (int j = 0; j < 4; j++) {
        const float* frame = packed + j * channels;
        if constexpr (lanes<V> == 4)
            rows[j] = load<V>(frame);
        else
            rows[j] = concat(load<f32x4>(frame), load<f32x4>(frame + 4 * channels));
    }
    transpose(rows[0], rows[1], rows[2], rows[3]);
}
template <class V> KRL_INLINE void store_tile(float* packed, V (&rows)[4], uint32_t channels) {
    transpose(rows[0], rows[1], rows[2], rows[3]);
    for (int j = 0; j < 4; j++) {
        float* frame = packed + j * channels;
        if constexpr (lanes<V> == 4) {
            store(frame, rows[j]);
        } else {
            store(frame, lower(rows[j]));
            store(frame + 4 * channels, upper(rows[j]));
        }
    }
}

using f32x2 = float __attribute__((vector_size(8)));

KRL_INLINE lane_pair<f32x4> load_pairs(const float* packed, uint32_t channels) {
    f32x2 p[4];
    for (int j = 0; j < 4; j++)
        p[j] = load_bytes<f32x2>(packed + j * channels);
    return deinterleave(__builtin_shufflevector(p[0], p[1], 0, 1, 2, 3), __builtin_shufflevector(p[2], p[3], 0, 1, 2, 3));
}
KRL_INLINE void store_pairs(float* packed, f32x4 a, f32x4 b, uint32_t channels) {
    const auto [lo, hi] = interleave(a, b);
    store_bytes(packed, __builtin_shufflevector(lo, lo, 0, 1));
    store_bytes(packed + channels, __builtin_shufflevector(lo, lo, 2, 3));
    store_bytes(packed + 2 * channels, __builtin_shufflevector(hi, hi, 0, 1));
    store_bytes(packed + 3 * channels, __builtin_shufflevector(hi, hi, 2, 3));
}

// Calls f(channels, frames), with compile-time numbers for whole tiles of the usual channel counts.
template <class F> KRL_INLINE void with_usual_shape(uint32_t channels, uint32_t frames, F f) {
    using std::integral_constant;
    constexpr integral_constant<uint32_t, tile_frames> tile{};
    if (frames == tile_frames)
        switch (channels) {
        case 2: return f(integral_constant<uint32_t, 2>{}, tile);
        case 6: return f(integral_constant<uint32_t, 6>{}, tile);
        case 8: return f(integral_constant<uint32_t, 8>{}, tile);
        case 12: return f(integral_constant<uint32_t, 12>{}, tile);
        }
    f(channels, frames);
}

// Walks a packed buffer in tiles: four(c, t), pair(c, t) for four frames, one(c, t), and two(t) for stereo.
template <class Four, class Pair, class Two, class One>
KRL_INLINE void for_each_tile(uint32_t channels, uint32_t frames, Four four, Pair pair, Two two, One one) {
    constexpr uint32_t width = lanes<f32v>;
    const uint32_t whole = frames / width * width;
    uint32_t c = 0;
    if (channels == 2) {
        for (uint32_t t = 0; t < whole; t += width)
            two(t);
        c = 2;
    }
    for (; c + 4 <= channels; c += 4)
        for (uint32_t t = 0; t < whole; t += width)
            four(c, t);
    for (; c + 2 <= channels; c += 2)
        for (uint32_t t = 0; t < whole; t += 4)
            pair(c, t);
    for (; c < channels; c++)
        for (uint32_t t = 0; t < whole; t++)
            one(c, t);
    for (uint32_t t = whole; t < frames; t++)
        for (c = 0; c < channels; c++)
            one(c, t);
}

void deinterleave(PlanarBuffer dst, const float* packed, uint32_t channel_count, uint32_t frame_count) {
    constexpr uint32_t width = lanes<f32v>;
    with_usual_shape(channel_count, frame_count, [=](auto channels, auto frames) {
        for_each_tile(
            channels, frames,
            [=](uint32_t c, uint32_t t) {
                f32v rows[4];
                load_tile(rows, packed + t * channels + c, channels);
                for (int j = 0; j < 4; j++)
                    store(dst.row(c + j) + t, rows[j]);
            },
            [=](uint32_t c, uint32_t t) {
                const auto [a, b] = load_pairs(packed + t * channels + c, channels);
                store(dst.row(c) + t, a);
                store(dst.row(c + 1) + t, b);
            },
            [=](uint32_t t) {
                const auto [a, b] = krl::deinterleave(load<f32v>(packed + 2 * t), load<f32v>(packed + 2 * t + width));
                store(dst.row(0) + t, a);
                store(dst.row(1) + t, b);
            },
            [=](uint32_t c, uint32_t t) { dst.row(c)[t] = packed[t * channels + c]; });
    });
}

void interleave(float* packed, PlanarBuffer src, uint32_t channel_count, uint32_t frame_count) {
    constexpr uint32_t width = lanes<f32v>;
    with_usual_shape(channel_count, frame_count, [=](auto channels, auto frames) {
        for_each_tile(
            channels, frames,
            [=](uint32_t c, uint32_t t) {
                f32v rows[4];
                for (int j = 0; j < 4; j++)
                    rows[j] = load<f32v>(src.row(c + j) + t);
                store_tile(packed + t * channels + c, rows, channels);
            },
            [=](uint32_t c, uint32_t t) {
                store_pairs(packed + t * channels + c, load<f32x4>(src.row(c) + t), load<f32x4>(src.row(c + 1) + t),
                            channels);
            },
            [=](uint32_t t) {
                const auto [lo, hi] = krl::interleave(load<f32v>(src.row(0) + t), load<f32v>(src.row(1) + t));
                store(packed + 2 * t, lo);
                store(packed + 2 * t + width, hi);
            },
            [=](uint32_t c, uint32_t t) { packed[t * channels + c] = src.row(c)[t]; });
    });
}

// ---- the layouts of the caller's buffer ------------------------------------------------------------------------------

constexpr uint32_t max_packed_channels = 32; // bounds the stack; wider frames go sample by sample

// Frame follows frame without a gap.
template <class Slot> bool is_packed(const korvex_downmixer_buffer& buffer, uint32_t channels) {
    if (buffer.stride != channels || channels > max_packed_channels)
        return false;
    const auto* first = static_cast<const char*>(buffer.channels[0]);
    for (uint32_t c = 1; c < channels; c++)
        if (buffer.channels[c] != first + c * sizeof(Slot))
            return false;
    return true;
}

template <class Format> auto* slot_of(const korvex_downmixer_buffer& buffer, uint32_t channel, size_t frame) {
    return static_cast<typename Format::Slot*>(buffer.channels[channel]) + frame * buffer.stride;
}

template <class Format>
void to_planar(PlanarBuffer dst, const korvex_downmixer_buffer& src, uint32_t channels, size_t first,
               uint32_t frames) {
    auto slot = [&](uint32_t channel, size_t frame) { return slot_of<Format>(src, channel, first + frame); };
    if (src.stride == 1) {
        for (uint32_t c = 0; c < channels; c++)
            load_run<Format>(dst.row(c), slot(c, 0), frames);
    } else if (is_packed<typename Format::Slot>(src, channels)) {
        if constexpr (std::is_same_v<Format, Float>) {
            deinterleave(dst, slot(0, 0), channels, frames);
        } else {
            float packed[tile_frames * max_packed_channels];
            load_run<Format>(packed, slot(0, 0), channels * frames);
            deinterleave(dst, packed, channels, frames);
        }
    } else {
        for (uint32_t c = 0; c < channels; c++)
            for (uint32_t t = 0; t < frames; t++)
                dst.row(c)[t] = load_one<Format>(slot(c, t));
    }
}

template <class Format>
void from_planar(const korvex_downmixer_buffer& dst, PlanarBuffer src, uint32_t channels, size_t first,
                 uint32_t frames) {
    auto slot = [&](uint32_t channel, size_t frame) { return slot_of<Format>(dst, channel, first + frame); };
    if (dst.stride == 1) {
        for (uint32_t c = 0; c < channels; c++)
            store_run<Format>(slot(c, 0), src.row(c), frames);
    } else if (is_packed<typename Format::Slot>(dst, channels)) {
        if constexpr (std::is_same_v<Format, Float>) {
            interleave(slot(0, 0), src, channels, frames);
        } else {
            float packed[tile_frames * max_packed_channels];
            interleave(packed, src, channels, frames);
            store_run<Format>(slot(0, 0), packed, channels * frames);
        }
    } else {
        for (uint32_t c = 0; c < channels; c++)
            for (uint32_t t = 0; t < frames; t++)
                store_one<Format>(slot(c, t), src.row(c)[t]);
    }
}

// Calls f with the format of a code; does nothing for a code without a conversion.
template <class F> void with_format(uint32_t code, F f) {
    switch (code) {
    case KORVEX_FORMAT_INT16: return f(Int16{});
    case KORVEX_FORMAT_INT32: return f(Int32{});
    case KORVEX_FORMAT_INT32_IN_64: return f(Int32In64{});
    case KORVEX_FORMAT_FLOAT:
    case KORVEX_FORMAT_FLOAT_STAGED: return f(Float{});
    case KORVEX_FORMAT_DOUBLE: return f(Double{});
    }
}

} // namespace

void to_planar(PlanarBuffer dst, const korvex_downmixer_buffer& src, uint32_t channels, size_t first,
               uint32_t frames) {
    with_format(src.format, [&]<class Format>(Format) { to_planar<Format>(dst, src, channels, first, frames); });
}

void from_planar(const korvex_downmixer_buffer& dst, PlanarBuffer src, uint32_t channels, size_t first,
                 uint32_t frames) {
    with_format(dst.format, [&]<class Format>(Format) { from_planar<Format>(dst, src, channels, first, frames); });
}

} // namespace korla::downmixer
