// Every format by every arrangement, from slots to rows and back.
#include "downmixer/sample_formats.h"

#include <algorithm>
#include <type_traits>

#include "downmixer/peaks.h"
#include "dsp/core/lanes.h"

using namespace krl;

namespace korla::downmixer {
namespace {

// ---- the formats ---------------------------------------------------------------------------------------------------
//
// A format names its slot and moves slots between memory and "raw" lanes of 32 bits, four or two at a time and at any
// alignment; decode and encode turn raw lanes into samples and back. Moving data before decoding and after encoding
// lets the transposition between frames and rows work on raw lanes of any format. Full scale is defined once per
// format.

using f32x2 = float __attribute__((vector_size(8)));
using i32x2 = int32_t __attribute__((vector_size(8)));
using u8x16 = uint8_t __attribute__((vector_size(16)));
template <class V> using ints_of = typename lane_traits<V>::mask;

template <class T> KRL_INLINE T load_bytes(const void* p) {
    T value;
    __builtin_memcpy(&value, p, sizeof value);
    return value;
}
template <class T> KRL_INLINE void store_bytes(void* p, T value) { __builtin_memcpy(p, &value, sizeof value); }

KRL_INLINE f32x2 lower_pair(f32x4 v) { return __builtin_shufflevector(v, v, 0, 1); }
KRL_INLINE f32x2 upper_pair(f32x4 v) { return __builtin_shufflevector(v, v, 2, 3); }

struct Int16 {
    using Slot = int16_t;
    static constexpr float full_scale = 32768.0f;
    static KRL_INLINE f32x4 load4(const Slot* p) { return bit_cast<f32x4>(load_int16(p)); }
    static KRL_INLINE void store4(Slot* p, f32x4 raw) { store_int16(p, bit_cast<i32x4>(raw)); }
    template <class V> static KRL_INLINE V decode(V raw) { return to_float_from_fixed<15>(bit_cast<ints_of<V>>(raw)); }
    template <class V> static KRL_INLINE V encode(V x) {
        return bit_cast<V>(round_to_int(clamp(x * full_scale, splat<V>(-full_scale), splat<V>(full_scale - 1.0f))));
    }
};

struct Int32 {
    using Slot = int32_t;
    static constexpr float full_scale = 2147483648.0f;
    static KRL_INLINE f32x4 load4(const Slot* p) { return load_bytes<f32x4>(p); }
    static KRL_INLINE void store4(Slot* p, f32x4 raw) { store_bytes(p, raw); }
    static KRL_INLINE f32x2 load2(const Slot* p) { return load_bytes<f32x2>(p); }
    static KRL_INLINE void store2(Slot* p, f32x2 raw) { store_bytes(p, raw); }
    template <class V> static KRL_INLINE V decode(V raw) { return to_float_from_fixed<31>(bit_cast<ints_of<V>>(raw)); }
    template <class V> static KRL_INLINE V encode(V x) { return bit_cast<V>(round_to_int_saturated(x * full_scale)); }
};

// The low half of an 8-byte slot, sign-extended.
struct Int32In64 : Int32 {
    using Slot = int64_t;
    static KRL_INLINE f32x4 load4(const Slot* p) {
        return __builtin_shufflevector(load_bytes<f32x4>(p), load_bytes<f32x4>(p + 2), 0, 2, 4, 6);
    }
    static KRL_INLINE void store4(Slot* p, f32x4 raw) {
        const i32x4 v = bit_cast<i32x4>(raw), sign = v >> 31;
        store_bytes(p, __builtin_shufflevector(v, sign, 0, 4, 1, 5));
        store_bytes(p + 2, __builtin_shufflevector(v, sign, 2, 6, 3, 7));
    }
    static KRL_INLINE f32x2 load2(const Slot* p) {
        const auto slots = load_bytes<f32x4>(p);
        return __builtin_shufflevector(slots, slots, 0, 2);
    }
    static KRL_INLINE void store2(Slot* p, f32x2 raw) {
        const i32x2 v = bit_cast<i32x2>(raw), sign = v >> 31;
        store_bytes(p, __builtin_shufflevector(v, sign, 0, 2, 1, 3));
    }
};

// 24 bits in three bytes. Raw lanes hold them on top of 32 bits on the way in, as whole numbers on the way out.
struct Int24 {
    struct Slot {
        uint8_t bytes[3];
    };
    static constexpr float full_scale = 8388608.0f;
    static KRL_INLINE f32x4 load4(const Slot* p) {
        const u8x16 bytes = {};
        u8x16 slots = {};
        __builtin_memcpy(&slots, p, 4 * sizeof(Slot));
        return bit_cast<f32x4>(
            __builtin_shufflevector(slots, bytes, 16, 0, 1, 2, 16, 3, 4, 5, 16, 6, 7, 8, 16, 9, 10, 11));
    }
    static KRL_INLINE void store4(Slot* p, f32x4 raw) {
        const u8x16 bytes = bit_cast<u8x16>(raw);
        const u8x16 slots = __builtin_shufflevector(bytes, bytes, 0, 1, 2, 4, 5, 6, 8, 9, 10, 12, 13, 14, 3, 7, 11, 15);
        __builtin_memcpy(p, &slots, 4 * sizeof(Slot));
    }
    static KRL_INLINE f32x2 load2(const Slot* p) {
        Slot slots[4] = {p[0], p[1]};
        return lower_pair(load4(slots));
    }
    static KRL_INLINE void store2(Slot* p, f32x2 raw) {
        Slot slots[4];
        store4(slots, __builtin_shufflevector(raw, raw, 0, 1, 0, 1));
        __builtin_memcpy(p, slots, 2 * sizeof(Slot));
    }
    template <class V> static KRL_INLINE V decode(V raw) { return Int32::decode(raw); }
    template <class V> static KRL_INLINE V encode(V x) {
        return bit_cast<V>(round_to_int(clamp(x * full_scale, splat<V>(-full_scale), splat<V>(full_scale - 1.0f))));
    }
};

// 24 bits at the bottom of four bytes: the top byte is ignored on the way in and repeats the sign on the way out.
struct Int24In32 : Int32 {
    static KRL_INLINE f32x4 load4(const Slot* p) { return bit_cast<f32x4>(load_bytes<i32x4>(p) << 8); }
    static KRL_INLINE f32x2 load2(const Slot* p) { return bit_cast<f32x2>(load_bytes<i32x2>(p) << 8); }
    template <class V> static KRL_INLINE V encode(V x) { return Int24::encode(x); }
};

struct Float {
    using Slot = float;
    static KRL_INLINE f32x4 load4(const Slot* p) { return load_bytes<f32x4>(p); }
    static KRL_INLINE void store4(Slot* p, f32x4 raw) { store_bytes(p, raw); }
    static KRL_INLINE f32x2 load2(const Slot* p) { return load_bytes<f32x2>(p); }
    static KRL_INLINE void store2(Slot* p, f32x2 raw) { store_bytes(p, raw); }
    template <class V> static KRL_INLINE V decode(V raw) { return raw; }
    template <class V> static KRL_INLINE V encode(V x) { return x; }
};

// Rounded to float on the way in and widened on the way out, so raw lanes are floats.
struct Double : Float {
    using Slot = double;
    static KRL_INLINE f32x2 load2(const Slot* p) { return __builtin_convertvector(load_bytes<f64x2>(p), f32x2); }
    static KRL_INLINE void store2(Slot* p, f32x2 raw) { store_bytes(p, __builtin_convertvector(raw, f64x2)); }
    static KRL_INLINE f32x4 load4(const Slot* p) { return __builtin_shufflevector(load2(p), load2(p + 2), 0, 1, 2, 3); }
    static KRL_INLINE void store4(Slot* p, f32x4 raw) {
        store2(p, __builtin_shufflevector(raw, raw, 0, 1));
        store2(p + 2, __builtin_shufflevector(raw, raw, 2, 3));
    }
};

// ---- one slot, one run of slots ------------------------------------------------------------------------------------

template <class Format> float load_one(const typename Format::Slot* p) {
    typename Format::Slot slots[4] = {};
    __builtin_memcpy(slots, p, sizeof slots[0]);
    return Format::decode(Format::load4(slots))[0];
}
template <class Format> void store_one(typename Format::Slot* p, float x) {
    typename Format::Slot slots[4];
    Format::store4(slots, Format::encode(f32x4{x}));
    __builtin_memcpy(p, slots, sizeof slots[0]);
}

template <class Format> KRL_INLINE f32v load_raw(const typename Format::Slot* p) {
    return from_halves([=](int h) { return Format::load4(p + 4 * h); });
}
template <class Format> KRL_INLINE void store_raw(typename Format::Slot* p, f32v raw) {
    for (int h = 0; h < halves; h++)
        Format::store4(p + 4 * h, half(raw, h));
}

template <class Format> void load_run(float* dst, const typename Format::Slot* src, uint32_t n) {
    uint32_t i = 0;
    for (; i + lanes<f32v> <= n; i += lanes<f32v>)
        store(dst + i, Format::decode(load_raw<Format>(src + i)));
    for (; i < n; i++)
        dst[i] = load_one<Format>(src + i);
}
template <class Format> void store_run(typename Format::Slot* dst, const float* src, uint32_t n) {
    uint32_t i = 0;
    for (; i + lanes<f32v> <= n; i += lanes<f32v>)
        store_raw<Format>(dst + i, Format::encode(load<f32v>(src + i)));
    for (; i < n; i++)
        store_one<Format>(dst + i, src[i]);
}

// ---- between packed frames and rows --------------------------------------------------------------------------------
//
// Raw lanes of eight frames are moved together: all that a frame has where that is 1, 2, 3 or 6 lanes, else four, two
// or one neighbours at a time.

// A raw lane of a packed frame: the sample of one channel.
template <class Format> struct FrameLane : Format {
    static constexpr uint32_t channels = 1;
    static constexpr bool in_memory = std::is_same_v<Format, Int32> || std::is_same_v<Format, Float>; // as it is
    template <class V> static KRL_INLINE void decode(V (&samples)[1], V raw) { samples[0] = Format::decode(raw); }
    template <class V> static KRL_INLINE V encode(const V (&samples)[1]) { return Format::encode(samples[0]); }
};
// Two channels of 16 bits share a lane, so that there is half as much to transpose.
template <> struct FrameLane<Int16> {
    using Slot = int16_t;
    static constexpr uint32_t channels = 2;
    static constexpr bool in_memory = true;
    static KRL_INLINE f32x4 load4(const Slot* p) { return load_bytes<f32x4>(p); }
    static KRL_INLINE void store4(Slot* p, f32x4 raw) { store_bytes(p, raw); }
    static KRL_INLINE f32x2 load2(const Slot* p) { return load_bytes<f32x2>(p); }
    static KRL_INLINE void store2(Slot* p, f32x2 raw) { store_bytes(p, raw); }
    template <class V> static KRL_INLINE void decode(V (&samples)[2], V raw) {
        const auto [a, b] = unpack_int16(bit_cast<ints_of<V>>(raw));
        samples[0] = a, samples[1] = b;
    }
    template <class V> static KRL_INLINE V encode(const V (&samples)[2]) {
        return bit_cast<V>(pack_int16(samples[0] * Int16::full_scale, samples[1] * Int16::full_scale));
    }
};

// A lane of eight frames. Half h of a vector of frames holds frames 4h .. 4h + 3 of it.
constexpr uint32_t step_frames = 8;
constexpr int vectors = step_frames / lanes<f32v>;
struct RawLane {
    f32v of[vectors];
};

template <class Lane, int count>
KRL_INLINE void load_lanes(RawLane (&raw)[count], const typename Lane::Slot* p, uint32_t channels) {
    for (int v = 0; v < vectors; v++, p += lanes<f32v> * channels) {
        const auto frame = [=](int h, int i) { return p + (4 * h + i) * channels; };
        if constexpr (count == 4) {
            for (int i = 0; i < 4; i++)
                raw[i].of[v] = from_halves([=](int h) { return Lane::load4(frame(h, i)); });
        } else if constexpr (count == 2) {
            const auto two_frames = [=](int i) {
                return from_halves([=](int h) {
                    return __builtin_shufflevector(Lane::load2(frame(h, i)), Lane::load2(frame(h, i + 2)), 0, 1, 2, 3);
                });
            };
            const auto [a, b] = transpose_pairs(two_frames(0), two_frames(1));
            raw[0].of[v] = a, raw[1].of[v] = b;
        } else {
            const auto at = [=](int h, int i) { return load_bytes<float>(frame(h, i)); };
            raw[0].of[v] = from_halves([=](int h) { return f32x4{at(h, 0), at(h, 1), at(h, 2), at(h, 3)}; });
        }
    }
    if constexpr (count == 4)
        transpose(raw[0].of, raw[1].of, raw[2].of, raw[3].of);
}
template <class Lane, int count>
KRL_INLINE void store_lanes(typename Lane::Slot* p, RawLane (&raw)[count], uint32_t channels) {
    if constexpr (count == 4)
        transpose(raw[0].of, raw[1].of, raw[2].of, raw[3].of);
    for (int v = 0; v < vectors; v++, p += lanes<f32v> * channels) {
        const auto frame = [=](int h, int i) { return p + (4 * h + i) * channels; };
        if constexpr (count == 2) {
            const auto [a, b] = transpose_pairs(raw[0].of[v], raw[1].of[v]);
            raw[0].of[v] = a, raw[1].of[v] = b;
        }
        for (int h = 0; h < halves; h++)
            for (int i = 0; i < 4; i++) {
                if constexpr (count == 4) {
                    Lane::store4(frame(h, i), half(raw[i].of[v], h));
                } else if constexpr (count == 2) {
                    const f32x4 two_frames = half(raw[i % 2].of[v], h);
                    Lane::store2(frame(h, i), i < 2 ? lower_pair(two_frames) : upper_pair(two_frames));
                } else {
                    store_bytes<float>(frame(h, i), half(raw[0].of[v], h)[i]);
                }
            }
    }
}

template <class Lane, int count> KRL_INLINE void load_whole(RawLane (&raw)[count], const typename Lane::Slot* p) {
    constexpr uint32_t slots = lanes<f32v> * Lane::channels; // in a vector
    for (int v = 0; v < vectors; v++, p += count * slots) {
        f32v x[count];
        if constexpr (count == 1) {
            x[0] = load_bytes<f32v>(p);
        } else if constexpr (Lane::in_memory) {
            load_structures(x, p);
        } else {
            const auto [a, b] = krl::deinterleave(load_raw<Lane>(p), load_raw<Lane>(p + slots));
            x[0] = a, x[1] = b;
        }
        for (int i = 0; i < count; i++)
            raw[i].of[v] = x[i];
    }
}
template <class Lane, int count> KRL_INLINE void store_whole(typename Lane::Slot* p, const RawLane (&raw)[count]) {
    constexpr uint32_t slots = lanes<f32v> * Lane::channels;
    for (int v = 0; v < vectors; v++, p += count * slots) {
        f32v x[count];
        for (int i = 0; i < count; i++)
            x[i] = raw[i].of[v];
        if constexpr (count == 1) {
            store_bytes(p, x[0]);
        } else if constexpr (Lane::in_memory) {
            store_structures(p, x);
        } else {
            const auto [lo, hi] = krl::interleave(x[0], x[1]);
            store_raw<Lane>(p, lo);
            store_raw<Lane>(p + slots, hi);
        }
    }
}

template <uint32_t n> using number = std::integral_constant<uint32_t, n>;

template <class F, class N> __attribute__((noinline)) void call_apart(F& f, N n) { f(n); }

// Calls f(channels), with compile-time numbers for the usual channel counts. Each call is a function of its own for samples
// of three bytes, which go through memory on some targets: in one function that of all counts would add up.
template <class Format, class F> KRL_INLINE void with_usual_channels(uint32_t channels, F f) {
    const auto call = [&](auto n) __attribute__((always_inline)) {
        if constexpr (sizeof(typename Format::Slot) == 3)
            call_apart(f, n);
        else
            f(n);
    };
    switch (channels) {
    case 2: return call(number<2>{});
    case 6: return call(number<6>{});
    case 8: return call(number<8>{});
    case 12: return call(number<12>{});
    default: return call(channels);
    }
}

// Walks packed frames: whole(n) where all that frames have is n lanes, some(n, c) for n lanes from channel c on, and
// one(c, t) for single samples of the last few frames.
template <class Lane, class Whole, class Some, class One>
KRL_INLINE void for_each_lane(uint32_t channels, uint32_t frames, Whole whole, Some some, One one) {
    uint32_t c = 0;
    const auto whole_frames = [&](auto n) __attribute__((always_inline)) {
        if constexpr (n == 2 || Lane::in_memory)
            if (channels == n * Lane::channels) {
                whole(n);
                c = channels;
            }
    };
    const auto some_lanes = [&](auto n) __attribute__((always_inline)) {
        for (; c + n * Lane::channels <= channels; c += n * Lane::channels)
            some(n, c);
    };
    if constexpr (Lane::channels == 2)
        whole_frames(number<1>{});
    whole_frames(number<2>{});
    whole_frames(number<3>{});
    whole_frames(number<6>{});
    some_lanes(number<4>{});
    some_lanes(number<2>{});
    if constexpr (Lane::channels == 2)
        some_lanes(number<1>{});
    if (c < channels) // an odd last one goes with its neighbour, once more
        some(number<2 / Lane::channels>{}, channels - 2);
    for (uint32_t t = frames / step_frames * step_frames; t < frames; t++)
        for (c = 0; c < channels; c++)
            one(c, t);
}

// Moves `count` lanes from channel c on, eight frames at a time: step(packed frame, rows at that frame).
template <class Lane, int count, class Slot, class Rows, class Step>
KRL_INLINE void move_lanes(Slot* packed, Rows& rows, uint32_t c, size_t channels, uint32_t frames, Step step) {
    packed += c;
    for (uint32_t left = frames / step_frames; left > 0; left--) {
        step(packed, rows);
        packed += step_frames * channels;
        for (float*& row : rows.row)
            row += step_frames;
    }
}

// n neighbouring rows that samples go to, or come from, as they are.
template <int n> struct PlainRows {
    float* row[n];
    KRL_INLINE PlainRows(PlanarBuffer rows, uint32_t c) {
        for (int i = 0; i < n; i++)
            row[i] = rows.row(c + i);
    }
    KRL_INLINE void put(int i, int v, f32v x) { store(row[i] + v * lanes<f32v>, x); }
};
struct Plain {
    PlanarBuffer rows;
    template <int n> KRL_INLINE PlainRows<n> rows_from(uint32_t c) const { return {rows, c}; }
    template <int n> KRL_INLINE void finish(const PlainRows<n>&) {}
    KRL_INLINE void put_one(uint32_t c, uint32_t t, float x) const { rows.row(c)[t] = x; }
};

// Rows that n neighbouring channels are mixed to, where no other channel goes: the products start from +0 as sums do.
template <int n> struct RoutedRows {
    float* row[n];
    float gain[n];
    f32v peaks[peak_chains] = {};
    KRL_INLINE RoutedRows(PlanarBuffer rows, const Route* routes) {
        for (int i = 0; i < n; i++)
            row[i] = rows.row(routes[i].row), gain[i] = routes[i].gain;
    }
    KRL_INLINE void put(int i, int v, f32v x) {
        x = splat<f32v>(0.0f) + x * gain[i];
        store(row[i] + v * lanes<f32v>, x);
        peaks[i % peak_chains] = max_of_number(krl::abs(x), peaks[i % peak_chains]);
    }
};
struct Routed {
    PlanarBuffer rows;
    const Route* routes;
    float peak = 0.0f;
    template <int n> KRL_INLINE RoutedRows<n> rows_from(uint32_t c) const { return {rows, routes + c}; }
    template <int n> KRL_INLINE void finish(const RoutedRows<n>& done) {
        peak = max_of_number(greatest(done.peaks), peak);
    }
    KRL_INLINE void put_one(uint32_t c, uint32_t t, float x) {
        x = 0.0f + x * routes[c].gain;
        rows.row(routes[c].row)[t] = x;
        peak = max_of_number(krl::abs(x), peak);
    }
};

template <class Lane, int count, class Rows> KRL_INLINE void decode(const RawLane (&raw)[count], Rows& rows) {
    for (int k = 0; k < count; k++) {
        f32v samples[vectors][Lane::channels];
        for (int v = 0; v < vectors; v++)
            Lane::decode(samples[v], raw[k].of[v]);
        for (int i = 0; i < static_cast<int>(Lane::channels); i++)
            for (int v = 0; v < vectors; v++)
                rows.put(k * Lane::channels + i, v, samples[v][i]);
    }
}
template <class Lane, int count> KRL_INLINE void encode(RawLane (&raw)[count], const float* const* row) {
    for (RawLane& lane : raw) {
        f32v samples[vectors][Lane::channels];
        for (uint32_t i = 0; i < Lane::channels; i++, row++)
            for (int v = 0; v < vectors; v++)
                samples[v][i] = load<f32v>(*row + v * lanes<f32v>);
        for (int v = 0; v < vectors; v++)
            lane.of[v] = Lane::encode(samples[v]);
    }
}

template <class Format, class Destination>
KRL_INLINE void deinterleave(Destination& to, const typename Format::Slot* packed, uint32_t channel_count,
                             uint32_t frames) {
    using Lane = FrameLane<Format>;
    with_usual_channels<Format>(
        channel_count, [&](auto channels) __attribute__((always_inline)) {
            for_each_lane<Lane>(
                channels, frames,
                [&](auto n) __attribute__((always_inline)) {
                    auto rows = to.template rows_from<n * Lane::channels>(0);
                    move_lanes<Lane, n>(packed, rows, 0, channels, frames, [=](auto* p, auto& rows_here) {
                        RawLane raw[n];
                        load_whole<Lane>(raw, p);
                        decode<Lane>(raw, rows_here);
                    });
                    to.finish(rows);
                },
                [&](auto n, uint32_t c) __attribute__((always_inline)) {
                    auto rows = to.template rows_from<n * Lane::channels>(c);
                    move_lanes<Lane, n>(packed, rows, c, channels, frames, [=](auto* p, auto& rows_here) {
                        RawLane raw[n];
                        load_lanes<Lane>(raw, p, channels);
                        decode<Lane>(raw, rows_here);
                    });
                    to.finish(rows);
                },
                [&](uint32_t c, uint32_t t) { to.put_one(c, t, load_one<Format>(packed + t * channels + c)); });
        });
}

template <class Format>
void interleave(typename Format::Slot* packed, PlanarBuffer src, uint32_t channel_count, uint32_t frames) {
    using Lane = FrameLane<Format>;
    with_usual_channels<Format>(channel_count, [=](auto channels) {
        for_each_lane<Lane>(
            channels, frames,
            [=](auto n) {
                PlainRows<n * Lane::channels> rows(src, 0);
                move_lanes<Lane, n>(packed, rows, 0, channels, frames, [=](auto* p, auto& rows_here) {
                    RawLane raw[n];
                    encode<Lane>(raw, rows_here.row);
                    store_whole<Lane>(p, raw);
                });
            },
            [=](auto n, uint32_t c) {
                PlainRows<n * Lane::channels> rows(src, c);
                move_lanes<Lane, n>(packed, rows, c, channels, frames, [=](auto* p, auto& rows_here) {
                    RawLane raw[n];
                    encode<Lane>(raw, rows_here.row);
                    store_lanes<Lane>(p, raw, channels);
                });
            },
            [=](uint32_t c, uint32_t t) { store_one<Format>(packed + t * channels + c, src.row(c)[t]); });
    });
}

// ---- the layouts of the caller's buffer ----------------------------------------------------------------------------

// Frame follows frame without a gap.
bool is_packed(const korvex_downmixer_buffer& buffer, uint32_t channels, size_t slot_bytes) {
    if (buffer.stride != channels)
        return false;
    const auto* first = static_cast<const char*>(buffer.channels[0]);
    for (uint32_t c = 1; c < channels; c++)
        if (buffer.channels[c] != first + c * slot_bytes)
            return false;
    return true;
}

template <class Format> auto* slot_of(const korvex_downmixer_buffer& buffer, uint32_t channel, size_t frame) {
    return static_cast<typename Format::Slot*>(buffer.channels[channel]) + frame * buffer.stride;
}

template <class Format>
void read_planar(PlanarBuffer dst, const korvex_downmixer_buffer& src, uint32_t channels, size_t first,
                 uint32_t frames) {
    for (uint32_t c = 0; c < channels; c++)
        load_run<Format>(dst.row(c), slot_of<Format>(src, c, first), frames);
}
template <class Format>
void read_packed(PlanarBuffer dst, const korvex_downmixer_buffer& src, uint32_t channels, size_t first,
                 uint32_t frames) {
    Plain to = {dst};
    deinterleave<Format>(to, slot_of<Format>(src, 0, first), channels, frames);
}
template <class Format>
float read_routed(PlanarBuffer dst, const korvex_downmixer_buffer& src, const Route* routes, uint32_t channels,
                  size_t first, uint32_t frames) {
    Routed to = {dst, routes};
    deinterleave<Format>(to, slot_of<Format>(src, 0, first), channels, frames);
    return to.peak;
}
template <class Format>
void read_scattered(PlanarBuffer dst, const korvex_downmixer_buffer& src, uint32_t channels, size_t first,
                    uint32_t frames) {
    for (uint32_t c = 0; c < channels; c++)
        for (uint32_t t = 0; t < frames; t++)
            dst.row(c)[t] = load_one<Format>(slot_of<Format>(src, c, first + t));
}

template <class Format>
void write_planar(const korvex_downmixer_buffer& dst, PlanarBuffer src, uint32_t channels, size_t first,
                  uint32_t frames) {
    for (uint32_t c = 0; c < channels; c++)
        store_run<Format>(slot_of<Format>(dst, c, first), src.row(c), frames);
}
template <class Format>
void write_packed(const korvex_downmixer_buffer& dst, PlanarBuffer src, uint32_t channels, size_t first,
                  uint32_t frames) {
    interleave<Format>(slot_of<Format>(dst, 0, first), src, channels, frames);
}
template <class Format>
void write_scattered(const korvex_downmixer_buffer& dst, PlanarBuffer src, uint32_t channels, size_t first,
                     uint32_t frames) {
    for (uint32_t c = 0; c < channels; c++)
        for (uint32_t t = 0; t < frames; t++)
            store_one<Format>(slot_of<Format>(dst, c, first + t), src.row(c)[t]);
}

// f with the type of a format, or `otherwise` where there is no conversion.
template <class R, class F> R with_format(SampleFormat format, R otherwise, F f) {
    switch (format) {
    case SampleFormat::int16: return f(Int16{});
    case SampleFormat::int24: return f(Int24{});
    case SampleFormat::int24_in_32: return f(Int24In32{});
    case SampleFormat::int32: return f(Int32{});
    case SampleFormat::int32_in_64: return f(Int32In64{});
    case SampleFormat::float32: return f(Float{});
    case SampleFormat::float64: return f(Double{});
    default: return otherwise;
    }
}

size_t slot_bytes(SampleFormat format) {
    return with_format(format, size_t{0}, []<class Format>(Format) { return sizeof(typename Format::Slot); });
}

SampleFormat format_of(const korvex_downmixer_buffer& buffer) {
    switch (buffer.format) {
    case KORVEX_FORMAT_INT16: return SampleFormat::int16;
    case KORVEX_FORMAT_INT32: return SampleFormat::int32;
    case KORVEX_FORMAT_INT32_IN_64: return SampleFormat::int32_in_64;
    case KORVEX_FORMAT_FLOAT:
    case KORVEX_FORMAT_FLOAT_STAGED: return SampleFormat::float32;
    case KORVEX_FORMAT_DOUBLE: return SampleFormat::float64;
    default: return SampleFormat::none;
    }
}

Arrangement arrangement_of(const korvex_downmixer_buffer& buffer, uint32_t channels) {
    if (buffer.stride == 1)
        return Arrangement::planar;
    return is_packed(buffer, channels, slot_bytes(format_of(buffer))) ? Arrangement::packed : Arrangement::scattered;
}

// The addresses from a buffer's first byte to behind its last one; none for a code without a conversion.
struct Extent {
    uintptr_t first, end;
};
Extent extent_of(const korvex_downmixer_buffer& buffer, uint32_t channels, size_t frames) {
    const size_t slot = slot_bytes(format_of(buffer));
    Extent extent = {UINTPTR_MAX, 0};
    for (uint32_t c = 0; c < channels && slot != 0 && frames != 0; c++) {
        const auto first = reinterpret_cast<uintptr_t>(buffer.channels[c]);
        extent.first = std::min(extent.first, first);
        extent.end = std::max(extent.end, first + ((frames - 1) * buffer.stride + 1) * slot);
    }
    return extent;
}

} // namespace

ReadFrames reader_of(SampleFormat format, Arrangement arrangement) {
    const ReadFrames nothing = [](PlanarBuffer, const korvex_downmixer_buffer&, uint32_t, size_t, uint32_t) {};
    return with_format(format, nothing, [=]<class Format>(Format) -> ReadFrames {
        switch (arrangement) {
        case Arrangement::planar: return read_planar<Format>;
        case Arrangement::packed: return read_packed<Format>;
        default: return read_scattered<Format>;
        }
    });
}

WriteFrames writer_of(SampleFormat format, Arrangement arrangement) {
    const WriteFrames nothing = [](const korvex_downmixer_buffer&, PlanarBuffer, uint32_t, size_t, uint32_t) {};
    return with_format(format, nothing, [=]<class Format>(Format) -> WriteFrames {
        switch (arrangement) {
        case Arrangement::planar: return write_planar<Format>;
        case Arrangement::packed: return write_packed<Format>;
        default: return write_scattered<Format>;
        }
    });
}

ReadFrames reader_of(const korvex_downmixer_buffer& src, uint32_t channels) {
    return reader_of(format_of(src), arrangement_of(src, channels));
}

WriteFrames writer_of(const korvex_downmixer_buffer& dst, uint32_t channels) {
    return writer_of(format_of(dst), arrangement_of(dst, channels));
}

ReadRouted routed_reader_of(const korvex_downmixer_buffer& src, uint32_t channels) {
    if (arrangement_of(src, channels) != Arrangement::packed)
        return nullptr;
    return with_format(format_of(src), ReadRouted{},
                       []<class Format>(Format) -> ReadRouted { return read_routed<Format>; });
}

bool share_memory(const korvex_downmixer_buffer& a, uint32_t a_channels, const korvex_downmixer_buffer& b,
                  uint32_t b_channels, uint32_t frames) {
    const Extent x = extent_of(a, a_channels, frames), y = extent_of(b, b_channels, frames);
    return x.first < y.end && y.first < x.end;
}

} // namespace korla::downmixer
