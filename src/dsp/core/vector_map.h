// Element-wise operations on vectors: the one loop, the one tail and the one overlap rule.
//
// An operation is a destination, a lambda on lanes and its sources. What stands in memory is said by operands, small
// records that load or store the lanes of group i (i counts floats of the destination):
//
//     map_vector<access>(to(dst), n, [g](auto x) { return x * g; }, from(x));
//
// The lambda is called with lanes of several widths and never with less than four: a short group is padded with zeros.
// So every element gets the same bits wherever it stands in the vector.
#pragma once

#include "dsp/core/complex_lanes.h"
#include "dsp/core/pair.h"

namespace krl {

// ---- operands ------------------------------------------------------------------------------------------------------
//
// at(i) is the address of element i, from which the order of processing is derived; operands without it do not take
// part (constants, and sources that have to stay apart from the destination). granule: the floats of the destination
// that belong together.

struct to {
    static constexpr size_t granule = 1;
    float* p;
    explicit to(float* x) : p(x) {}
    uintptr_t at(size_t i) const { return reinterpret_cast<uintptr_t>(p + i); }
    template <class access, class V> KRL_INLINE void store(size_t i, V v) const { access::template store<V>(p + i, v); }
    KRL_INLINE void store_first(f32x4 v, size_t count) const { krl::store_first(p, v, count); }
};

struct from {
    static constexpr size_t granule = 1;
    const float* p;
    explicit from(const float* x) : p(x) {}
    uintptr_t at(size_t i) const { return reinterpret_cast<uintptr_t>(p + i); }
    template <class access, class V> KRL_INLINE V load(size_t i) const { return access::template load<V>(p + i); }
    KRL_INLINE f32x4 load_first(size_t count) const { return krl::load_first<f32x4>(p, count); }
};

// The same value for every element.
struct constant {
    float x;
    template <class access, class V> KRL_INLINE V load(size_t) const { return splat<V>(x); }
    KRL_INLINE f32x4 load_first(size_t) const { return splat<f32x4>(x); }
};

// x[0..n-1] backwards; apart from the destination.
struct from_end {
    const float* end;
    from_end(const float* x, size_t n) : end(x + n) {}
    template <class access, class V> KRL_INLINE V load(size_t i) const {
        return reverse(krl::load<V>(end - i - lanes<V>));
    }
    KRL_INLINE f32x4 load_first(size_t count) const {
        const f32x4 v = krl::load_first<f32x4>(end - count, count);
        return count == 1 ? v : count == 2 ? swap_pairs(v) : f32x4{v[2], v[1], v[0], 0.0f};
    }
};

// Complex samples of which the destination holds one float each: real parts in a, imaginary parts in b.
struct from_complex {
    static constexpr size_t granule = 1;
    const float* p;
    explicit from_complex(const float* x) : p(x) {}
    uintptr_t at(size_t i) const { return reinterpret_cast<uintptr_t>(p + 2 * i); }
    template <class access, class V> KRL_INLINE lane_pair<V> load(size_t i) const {
        if constexpr (lanes<V> == 4) { // whose split order is the order in memory
            const auto [re, im] = load_samples<V>(p + 2 * i);
            return {re, im};
        } else {
            return deinterleave(access::template load<V>(p + 2 * i), access::template load<V>(p + 2 * i + lanes<V>));
        }
    }
    KRL_INLINE lane_pair<f32x4> load_first(size_t count) const {
        if (count == 1)
            return deinterleave(krl::load_first<f32x4>(p, 2), f32x4{});
        return deinterleave(krl::load<f32x4>(p), count == 3 ? krl::load_first<f32x4>(p + 4, 2) : f32x4{});
    }
};

// One real value for both parts of each complex sample of the destination.
struct from_real {
    static constexpr size_t granule = 2;
    const float* p;
    explicit from_real(const float* x) : p(x) {}
    uintptr_t at(size_t i) const { return reinterpret_cast<uintptr_t>(p + i / 2); }
    template <class access, class V> KRL_INLINE V load(size_t i) const { return load_twice<V>(p + i / 2); }
    KRL_INLINE f32x4 load_first(size_t) const { return splat<f32x4>(*p); } // count is 2: one sample
};

// Complex samples whose parts are worked on apart, in split order; i counts samples. With a destination of this kind goes
// a real value for each sample, too. beyond(i): the samples from the i-th on.
struct from_samples {
    static constexpr size_t granule = 1;
    const float* p;
    explicit from_samples(const float* x) : p(x) {}
    uintptr_t at(size_t i) const { return reinterpret_cast<uintptr_t>(p + 2 * i); }
    from_samples beyond(size_t i) const { return from_samples(p + 2 * i); }
    template <class access, class V> KRL_INLINE complex<V> load(size_t i) const { return load_samples<V>(p + 2 * i); }
    KRL_INLINE complex<f32x4> load_first(size_t count) const {
        const auto [re, im] = from_complex(p).load_first(count);
        return {re, im};
    }
};
struct from_real_samples {
    static constexpr size_t granule = 1;
    const float* p;
    explicit from_real_samples(const float* x) : p(x) {}
    uintptr_t at(size_t i) const { return reinterpret_cast<uintptr_t>(p + i); }
    from_real_samples beyond(size_t i) const { return from_real_samples(p + i); }
    template <class access, class V> KRL_INLINE V load(size_t i) const { return to_split_order(krl::load<V>(p + i)); }
    KRL_INLINE f32x4 load_first(size_t count) const { return krl::load_first<f32x4>(p, count); }
};
struct to_samples {
    static constexpr size_t granule = 1;
    float* p;
    explicit to_samples(float* x) : p(x) {}
    uintptr_t at(size_t i) const { return reinterpret_cast<uintptr_t>(p + 2 * i); }
    to_samples beyond(size_t i) const { return to_samples(p + 2 * i); }
    template <class access, class V> KRL_INLINE void store(size_t i, complex<V> z) const {
        store_samples<V>(p + 2 * i, z);
    }
    KRL_INLINE void store_first(complex<f32x4> z, size_t count) const {
        const auto [lo, hi] = interleave(z.re, z.im);
        if (count == 1)
            return krl::store_first(p, lo, 2);
        krl::store<f32x4>(p, lo);
        if (count == 3)
            krl::store_first(p + 4, hi, 2);
    }
};

// `count` vectors one behind the other, `distance` floats apart; apart from the destination.
template <class V, int count> struct stacked_lanes { V of[count]; };
template <int count> struct from_stack {
    const float* p;
    size_t distance;
    template <class access, class V> KRL_INLINE stacked_lanes<V, count> load(size_t i) const {
        return each<V>([&](size_t j) { return access::template load<V>(p + j * distance + i); });
    }
    KRL_INLINE stacked_lanes<f32x4, count> load_first(size_t n) const {
        return each<f32x4>([&](size_t j) { return krl::load_first<f32x4>(p + j * distance, n); });
    }

private:
    template <class V, class L> static KRL_INLINE stacked_lanes<V, count> each(L load_one) {
        stacked_lanes<V, count> v;
#pragma GCC unroll 8
        for (size_t j = 0; j < count; j++)
            v.of[j] = load_one(j);
        return v;
    }
};

// Two destinations for a pair of results.
struct to_both {
    float *a, *b;
    template <class access, class V> KRL_INLINE void store(size_t i, lane_pair<V> v) const {
        access::template store<V>(a + i, v.a);
        access::template store<V>(b + i, v.b);
    }
    KRL_INLINE void store_first(lane_pair<f32x4> v, size_t count) const {
        krl::store_first(a, v.a, count);
        krl::store_first(b, v.b, count);
    }
};

// ---- order of processing -------------------------------------------------------------------------------------------

// What step i writes has to miss what later steps read. Addresses are linear in i, so the second and the last granule
// tell for all of them.
template <class D, class S> inline bool forward_clobbers(const D& dst, const S& src, size_t n) {
    constexpr size_t granule = D::granule > S::granule ? D::granule : S::granule;
    const bool apart = dst.at(n) <= src.at(0) || src.at(n) <= dst.at(0);
    return !apart && (dst.at(granule) > src.at(granule) || dst.at(n - granule) > src.at(n - granule));
}

template <class D, class... S> KRL_INLINE bool needs_backward(const D& dst, size_t n, const S&... src) {
    auto clobbers = [&](const auto& s) {
        if constexpr (requires { s.at(n), dst.at(n); })
            return forward_clobbers(dst, s, n);
        else
            return false;
    };
    return (clobbers(src) || ...);
}

// ---- the loop ------------------------------------------------------------------------------------------------------

// From the end towards the beginning; the group at the beginning is read first and written last.
template <class D, class F, class... S>
__attribute__((noinline, cold)) void map_backward(D dst, size_t n, F f, S... src) {
    constexpr size_t width = lanes<f32v>;
    const auto first = f(src.template load<flex, f32v>(0)...);
    size_t i = n;
    while (i >= width) {
        i -= width;
        dst.template store<flex, f32v>(i, f(src.template load<flex, f32v>(i)...));
    }
    if (i > 0)
        dst.template store<flex, f32v>(0, first);
}

// dst[i] = f(src[i]...), i = 0..n-1, `unroll` vectors a turn.
//
// flex: the result is as if the sources had been read before the first store, as far as one order of processing can
// give that. A rest that fills no vector is done by one that reaches back over elements already done: it is read
// before the loop and written after it, so it sees the sources as they were.
template <class access, int unroll = 4, class D, class F, class... S>
KRL_INLINE void map_vector(D dst, size_t n, F f, S... src) {
    constexpr size_t width = lanes<f32v>;
    auto group = [&]<class V>(V, size_t i) { return f(src.template load<access, V>(i)...); };
    size_t i = 0;
    auto whole_groups = [&] {
        // Each store right behind its loads: faster than loads and stores in bunches, and it needs no registers.
        for (; i + unroll * width <= n; i += unroll * width) {
#pragma GCC unroll 8
            for (size_t u = 0; u < unroll; u++)
                dst.template store<access, f32v>(i + u * width, group(f32v{}, i + u * width));
        }
        for (; i + width <= n; i += width)
            dst.template store<access, f32v>(i, group(f32v{}, i));
    };
    if constexpr (access::is_strict) {
        constexpr bool by_samples = requires { dst.beyond(i); };
        assert(n % (by_samples ? 2 : 4) == 0); // four floats
        whole_groups();
        if (i + 4 <= n) {
            dst.template store<access, f32x4>(i, group(f32x4{}, i));
            i += 4;
        }
        if constexpr (by_samples)
            if (i < n)
                dst.beyond(i).store_first(f(src.beyond(i).load_first(n - i)...), n - i);
    } else if (n >= width) {
        if (needs_backward(dst, n, src...))
            return map_backward(dst, n, f, src...);
        decltype(group(f32v{}, 0)) last{};
        if (n % width != 0)
            last = group(f32v{}, n - width);
        whole_groups();
        if (i < n)
            dst.template store<access, f32v>(n - width, last);
    } else if (n >= 4) {
        const auto first = group(f32x4{}, 0), last = group(f32x4{}, n - 4);
        dst.template store<access, f32x4>(0, first);
        dst.template store<access, f32x4>(n - 4, last);
    } else if (n > 0) {
        dst.store_first(f(src.load_first(n)...), n);
    }
}

} // namespace krl
