#include "downmixer/sample_formats.h"

#include <cstring>

#include "dsp/core/lanes.h"

using namespace krl;

namespace korla::downmixer {
namespace {

// ---- the formats -------------------------------------------------------------------------------------------------------
//
// Each names its slot, and converts four consecutive slots at any alignment. Full scale is defined once per format.

template <class T> T load_bytes(const void* p) {
    T value;
    __builtin_memcpy(&value, p, sizeof value);
    return value;
}
template <class T> void store_bytes(void* p, T value) { __builtin_memcpy(p, &value, sizeof value); }

struct Int16 {
    using Slot = int16_t;
    static constexpr float full_scale = 32768.0f;
    static f32x4 load4(const Slot* p) { return to_float(load_int16(p)) * (1.0f / full_scale); }
    static void store4(Slot* p, f32x4 x) {
        const f32x4 lowest = splat<f32x4>(-full_scale), highest = splat<f32x4>(full_scale - 1.0f);
        store_int16(p, round_to_int(clamp(x * full_scale, lowest, highest)));
    }
};

struct Int32 {
    using Slot = int32_t;
    static constexpr float full_scale = 2147483648.0f;
    static f32x4 widen(i32x4 v) { return to_float(v) * (1.0f / full_scale); }
    static i32x4 narrow(f32x4 x) {
        // The greatest float below 2^31 bounds what is rounded; 1.0 and above become the greatest integer.
        const f32x4 lowest = splat<f32x4>(-full_scale), highest = splat<f32x4>(full_scale - 128.0f);
        const i32x4 rounded = round_to_int(clamp(x * full_scale, lowest, highest));
        return select(x >= 1.0f, i32x4{INT32_MAX, INT32_MAX, INT32_MAX, INT32_MAX}, rounded);
    }
    static f32x4 load4(const Slot* p) { return widen(load_bytes<i32x4>(p)); }
    static void store4(Slot* p, f32x4 x) { store_bytes(p, narrow(x)); }
};

struct Int32In64 {
    using Slot = int64_t;
    static f32x4 load4(const Slot* p) {
        const i32x4 lo = load_bytes<i32x4>(p), hi = load_bytes<i32x4>(p + 2);
        return Int32::widen(__builtin_shufflevector(lo, hi, 0, 2, 4, 6));
    }
    static void store4(Slot* p, f32x4 x) {
        const i32x4 v = Int32::narrow(x), sign = v >> 31;
        store_bytes(p, __builtin_shufflevector(v, sign, 0, 4, 1, 5));
        store_bytes(p + 2, __builtin_shufflevector(v, sign, 2, 6, 3, 7));
    }
};

struct Float {
    using Slot = float;
    static f32x4 load4(const Slot* p) { return load<f32x4>(p); }
    static void store4(Slot* p, f32x4 x) { store(p, x); }
};

struct Double {
    using Slot = double;
    using f32x2 = float __attribute__((vector_size(8)));
    static f32x4 load4(const Slot* p) {
        const f32x2 lo = __builtin_convertvector(load<f64x2>(p), f32x2);
        const f32x2 hi = __builtin_convertvector(load<f64x2>(p + 2), f32x2);
        return __builtin_shufflevector(lo, hi, 0, 1, 2, 3);
    }
    static void store4(Slot* p, f32x4 x) {
        store(p, __builtin_convertvector(__builtin_shufflevector(x, x, 0, 1), f64x2));
        store(p + 2, __builtin_convertvector(__builtin_shufflevector(x, x, 2, 3), f64x2));
    }
};

template <class Format> float load1(const typename Format::Slot* p) {
    typename Format::Slot slots[4] = {};
    __builtin_memcpy(slots, p, sizeof slots[0]);
    return Format::load4(slots)[0];
}
template <class Format> void store1(typename Format::Slot* p, float x) {
    typename Format::Slot slots[4];
    Format::store4(slots, f32x4{x});
    __builtin_memcpy(p, slots, sizeof slots[0]);
}

// ---- the layouts of the caller's buffer ------------------------------------------------------------------------------

// The channels of one frame stand side by side, so four of them are one load.
template <class Slot> bool is_interleaved(const korvex_downmixer_buffer& buffer, uint32_t channels) {
    const auto* first = static_cast<const char*>(buffer.channels[0]);
    for (uint32_t c = 1; c < channels; c++)
        if (buffer.channels[c] != first + c * sizeof(Slot))
            return false;
    return channels > 1;
}

template <class Slot> Slot* slot(const korvex_downmixer_buffer& buffer, uint32_t channel, size_t frame) {
    return static_cast<Slot*>(buffer.channels[channel]) + frame * buffer.stride;
}

// Calls tile(c) for groups of four channels that cover all of them; the last group may overlap the one before.
template <class F> KRL_INLINE void for_each_four_channels(uint32_t channels, F tile) {
    for (uint32_t c = 0; c + 4 < channels; c += 4)
        tile(c);
    tile(channels - 4);
}

// Frames from `first` on, sample by sample: what the vector paths leave over, and strides without a pattern.
template <class Format>
void to_planar_by_sample(const PlanarBuffer& dst, const korvex_downmixer_buffer& src, uint32_t channels, uint32_t first,
                         uint32_t frames) {
    for (uint32_t c = 0; c < channels; c++)
        for (uint32_t t = first; t < frames; t++)
            dst.row(c)[t] = load1<Format>(slot<typename Format::Slot>(src, c, t));
}
template <class Format>
void from_planar_by_sample(const korvex_downmixer_buffer& dst, const PlanarBuffer& src, uint32_t channels,
                           uint32_t first, uint32_t frames) {
    for (uint32_t c = 0; c < channels; c++)
        for (uint32_t t = first; t < frames; t++)
            store1<Format>(slot<typename Format::Slot>(dst, c, t), src.row(c)[t]);
}

template <class Format>
void to_planar(const PlanarBuffer& dst, const korvex_downmixer_buffer& src, uint32_t channels, uint32_t frames) {
    using Slot = typename Format::Slot;
    uint32_t t = 0;
    if (src.stride == 1) {
        for (; t + 4 <= frames; t += 4)
            for (uint32_t c = 0; c < channels; c++)
                store(dst.row(c) + t, Format::load4(slot<Slot>(src, c, t)));
    } else if (channels >= 4 && is_interleaved<Slot>(src, channels)) {
        for (; t + 4 <= frames; t += 4)
            for_each_four_channels(channels, [&](uint32_t c) {
                f32x4 r[4];
                for (int i = 0; i < 4; i++)
                    r[i] = Format::load4(slot<Slot>(src, c, t + i));
                transpose(r[0], r[1], r[2], r[3]);
                for (int i = 0; i < 4; i++)
                    store(dst.row(c + i) + t, r[i]);
            });
    } else if (channels == 2 && src.stride == 2 && is_interleaved<Slot>(src, channels)) {
        for (; t + 4 <= frames; t += 4) {
            const Slot* p = slot<Slot>(src, 0, t);
            const auto [left, right] = deinterleave(Format::load4(p), Format::load4(p + 4));
            store(dst.row(0) + t, left);
            store(dst.row(1) + t, right);
        }
    }
    to_planar_by_sample<Format>(dst, src, channels, t, frames);
}

template <class Format>
void from_planar(const korvex_downmixer_buffer& dst, const PlanarBuffer& src, uint32_t channels, uint32_t frames) {
    using Slot = typename Format::Slot;
    uint32_t t = 0;
    if (dst.stride == 1) {
        for (; t + 4 <= frames; t += 4)
            for (uint32_t c = 0; c < channels; c++)
                Format::store4(slot<Slot>(dst, c, t), load<f32x4>(src.row(c) + t));
    } else if (channels >= 4 && is_interleaved<Slot>(dst, channels)) {
        for (; t + 4 <= frames; t += 4)
            for_each_four_channels(channels, [&](uint32_t c) {
                f32x4 r[4];
                for (int i = 0; i < 4; i++)
                    r[i] = load<f32x4>(src.row(c + i) + t);
                transpose(r[0], r[1], r[2], r[3]);
                for (int i = 0; i < 4; i++)
                    Format::store4(slot<Slot>(dst, c, t + i), r[i]);
            });
    } else if (channels == 2 && dst.stride == 2 && is_interleaved<Slot>(dst, channels)) {
        for (; t + 4 <= frames; t += 4) {
            const auto [lo, hi] = interleave(load<f32x4>(src.row(0) + t), load<f32x4>(src.row(1) + t));
            Slot* p = slot<Slot>(dst, 0, t);
            Format::store4(p, lo);
            Format::store4(p + 4, hi);
        }
    }
    from_planar_by_sample<Format>(dst, src, channels, t, frames);
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

void to_planar(const PlanarBuffer& dst, const korvex_downmixer_buffer& src, uint32_t channels, uint32_t frames) {
    with_format(src.format, [&]<class Format>(Format) { to_planar<Format>(dst, src, channels, frames); });
}

void from_planar(const korvex_downmixer_buffer& dst, const PlanarBuffer& src, uint32_t channels, uint32_t frames) {
    with_format(dst.format, [&]<class Format>(Format) { from_planar<Format>(dst, src, channels, frames); });
}

} // namespace korla::downmixer
