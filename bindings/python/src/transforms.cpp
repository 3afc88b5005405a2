// FFTs and cosine transforms of the rows of an array.
#include <korla/dsp/dct.h>
#include <korla/dsp/fft.h>
#include <korla/dsp/rfft.h>

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstring>
#include <numbers>

#include "common.h"

namespace korla_python {
namespace {

using Lengths = std::vector<uint32_t>;

// Kernels destroy their input: a row goes through here. On a boundary that vectors like.
class Work {
public:
    explicit Work(size_t floats) : memory_(floats + 16) {
        void* p = memory_.data();
        size_t space = memory_.size() * sizeof(float);
        data_ = static_cast<float*>(std::align(64, floats * sizeof(float), p, space));
    }
    float* data() { return data_; }

private:
    std::vector<float> memory_;
    float* data_;
};

const krl_fft_pair* pair_of(size_t n, bool inverse) {
    if (n > 4096)
        return nullptr;
    const auto length = static_cast<uint32_t>(n);
    const krl_fft_pair* pair = inverse ? KRL_r8_cplx_inv_pair(length) : KRL_r8_cplx_fwd_pair(length);
    return pair ? pair : inverse ? KRL_r4_cplx_inv_pair(length) : KRL_r4_cplx_fwd_pair(length);
}

Lengths complex_lengths() {
    Lengths lengths;
    for (uint32_t n = 1; n <= 4096; n++)
        if (n == 1 || pair_of(n, false))
            lengths.push_back(n);
    return lengths;
}
// A real signal goes through a complex transform of half its length where there is one that is made for it, else through
// one of its own length.
bool is_split(size_t n) { return std::has_single_bit(n) && n >= 4 && n <= 8192; }
Lengths real_lengths() {
    Lengths lengths = complex_lengths();
    lengths.push_back(8192);
    return lengths;
}
// Twice a length that the FFT has.
Lengths dct_lengths() {
    Lengths lengths;
    for (uint32_t n = 4; n <= 8192; n += 2)
        if (n % 4 == 0 && KRL_r4_cplx_fwd_pair(n / 2))
            lengths.push_back(n);
    return lengths;
}
Lengths dct4_lengths() {
    Lengths lengths;
    for (uint32_t n = 4; n <= 8192; n += 2)
        if (pair_of(n / 2, false))
            lengths.push_back(n);
    return lengths;
}

[[noreturn]] void refuse_length(size_t n, const Lengths& known) {
    std::string text = "no transform of length " + std::to_string(n) + "; known are";
    for (const uint32_t length : known)
        text += " " + std::to_string(length);
    throw py::value_error(text);
}
void expect_length(size_t n, const Lengths& known) {
    if (!std::binary_search(known.begin(), known.end(), n))
        refuse_length(n, known);
}

struct Rows {
    size_t count, length;
    explicit Rows(const py::array& x) {
        expect_dimensions(x, 2, "rows");
        count = static_cast<size_t>(x.shape(0)), length = static_cast<size_t>(x.shape(1));
    }
};
template <class Array> Array rows_like(size_t count, size_t length) {
    return Array({static_cast<py::ssize_t>(count), static_cast<py::ssize_t>(length)});
}

Complexes fft(const Complexes& x, bool inverse, bool scaled) {
    const Rows rows(x);
    const size_t n = rows.length;
    const krl_fft_pair* pair = pair_of(n, inverse);
    if (!pair && n != 1)
        refuse_length(n, complex_lengths());
    Complexes out = rows_like<Complexes>(rows.count, n);
    const float* from = data(x);
    float* to = data(out);
    const py::gil_scoped_release without_lock;
    if (n == 1) {
        std::copy_n(from, 2 * rows.count, to);
        return out;
    }
    krl_fft_kernel* const kernel = scaled ? pair->scaled : pair->unscaled;
    Work work(2 * n);
    for (size_t row = 0; row < rows.count; row++, from += 2 * n, to += 2 * n) {
        std::copy_n(from, 2 * n, work.data());
        kernel(to, work.data(), static_cast<uint32_t>(n));
    }
    return out;
}

// One family's kernel, unscaled, for those who compare them.
Complexes kernel(const Complexes& x, int radix, bool inverse) {
    const Rows rows(x);
    const auto n = static_cast<uint32_t>(rows.length);
    const krl_fft_pair* pair = nullptr;
    if (rows.length <= 4096 && (radix == 4 || radix == 8))
        pair = radix == 4 ? (inverse ? KRL_r4_cplx_inv_pair(n) : KRL_r4_cplx_fwd_pair(n))
                          : (inverse ? KRL_r8_cplx_inv_pair(n) : KRL_r8_cplx_fwd_pair(n));
    if (!pair)
        throw py::value_error("no radix-" + std::to_string(radix) + " kernel of length " + std::to_string(rows.length));
    Complexes out = rows_like<Complexes>(rows.count, rows.length);
    Work work(2 * rows.length);
    for (size_t row = 0; row < rows.count; row++) {
        std::copy_n(data(x) + 2 * row * n, 2 * n, work.data());
        pair->unscaled(data(out) + 2 * row * n, work.data(), n);
    }
    return out;
}

Complexes rfft(const Floats& x, bool scaled) {
    const Rows rows(x);
    const size_t n = rows.length, bins = n / 2 + 1;
    const krl_fft_pair* pair = pair_of(n, false);
    if (!is_split(n) && !pair && n != 1)
        refuse_length(n, real_lengths());
    Complexes out = rows_like<Complexes>(rows.count, bins);
    const float* from = x.data();
    float* to = data(out);
    const py::gil_scoped_release without_lock;
    Work work(2 * n), spectrum(2 * n);
    for (size_t row = 0; row < rows.count; row++, from += n, to += 2 * bins) {
        float* const in = work.data();
        float* const full = spectrum.data();
        if (is_split(n)) {
            std::copy_n(from, n, in);
            (scaled ? KRL_r4_rfft_nn_s : KRL_r4_rfft_nn)(in, full, static_cast<uint32_t>(n / 2));
            std::copy_n(full, n, to);
            to[1] = 0.0f;
            to[n] = full[1], to[n + 1] = 0.0f;
            continue;
        }
        for (size_t i = 0; i < n; i++)
            in[2 * i] = from[i], in[2 * i + 1] = 0.0f;
        if (n == 1)
            std::copy_n(in, 2, full);
        else
            (scaled ? pair->scaled : pair->unscaled)(full, in, static_cast<uint32_t>(n));
        std::copy_n(full, 2 * bins, to);
    }
    return out;
}

// To n real samples, from n/2 + 1 bins. Imaginary parts of the first bin and, for even n, of the last make no real sample.
Floats irfft(const Complexes& x, size_t n, bool scaled) {
    const Rows rows(x);
    const size_t bins = n / 2 + 1;
    const krl_fft_pair* pair = pair_of(n, true);
    if (!is_split(n) && !pair && n != 1)
        refuse_length(n, real_lengths());
    if (rows.length != bins)
        throw py::value_error(std::to_string(bins) + " bins are wanted, " + std::to_string(rows.length) + " given");
    Floats out = rows_like<Floats>(rows.count, n);
    const float* from = data(x);
    float* to = out.mutable_data();
    const py::gil_scoped_release without_lock;
    Work work(2 * n), signal(2 * n);
    for (size_t row = 0; row < rows.count; row++, from += 2 * bins, to += n) {
        float* const in = work.data();
        if (is_split(n)) {
            std::copy_n(from, n, in);
            in[1] = from[n];
            (scaled ? KRL_r4_inv_rfft_nn_s : KRL_r4_inv_rfft_nn)(in, to, static_cast<uint32_t>(n / 2));
            continue;
        }
        std::copy_n(from, 2 * bins, in);
        for (size_t k = bins; k < n; k++)
            in[2 * k] = from[2 * (n - k)], in[2 * k + 1] = -from[2 * (n - k) + 1];
        if (n == 1)
            std::copy_n(in, 2, signal.data());
        else
            (scaled ? pair->scaled : pair->unscaled)(signal.data(), in, static_cast<uint32_t>(n));
        for (size_t i = 0; i < n; i++)
            to[i] = signal.data()[2 * i];
    }
    return out;
}

std::vector<float> sines(size_t n, double offset, double step) {
    std::vector<float> table(n);
    for (size_t m = 0; m < n; m++)
        table[m] = static_cast<float>(std::sin(offset + step * static_cast<double>(m)));
    return table;
}

// Sums without a factor: type 2 of in[m] cos(pi (2m+1) k / (2N)), type 3 its transpose, type 4 of
// in[m] cos(pi (2m+1) (2k+1) / (4N)).
Floats dct(const Floats& x, int type) {
    const Rows rows(x);
    const size_t n = rows.length;
    if (type != 2 && type != 3 && type != 4)
        throw py::value_error("no cosine transform of type " + std::to_string(type) + "; known are 2, 3, 4");
    expect_length(n, type == 4 ? dct4_lengths() : dct_lengths());
    Floats out = rows_like<Floats>(rows.count, n);
    const float* from = x.data();
    float* to = out.mutable_data();
    const py::gil_scoped_release without_lock;
    const auto N = static_cast<uint32_t>(n);
    const double pi = std::numbers::pi;
    const krl_fft_pair* pair = pair_of(n / 2, false);
    const size_t half = n / 2;
    const auto quarter_wave = sines(n, 0.0, pi / (2.0 * static_cast<double>(n)));
    const auto rotation = sines(n, pi / (4.0 * static_cast<double>(n)), pi / (2.0 * static_cast<double>(n)));
    const auto sine = sines(half, 0.0, pi / static_cast<double>(n)), cosine = sines(half, pi / 2, pi / static_cast<double>(n));
    Work work(2 * n), turned(2 * n);
    for (size_t row = 0; row < rows.count; row++, from += n, to += n) {
        float* const in = work.data();
        if (type != 4) {
            std::copy_n(from, n, in);
            if (type == 2)
                krl_dctII_unscaled(pair, quarter_wave.data(), to, in, N);
            else
                krl_dctIII_scaled(pair, quarter_wave.data(), to, in, N);
            if (type == 3)
                for (size_t i = 0; i < n; i++)
                    to[i] *= static_cast<float>(n);
            continue;
        }
        for (size_t k = 0; k < half; k++)
            in[k] = from[2 * k], in[half + k] = from[n - 1 - 2 * k];
        krl_dct4_premodulation(turned.data(), rotation.data(), in, in + half, static_cast<uint32_t>(half));
        pair->unscaled(in, turned.data(), static_cast<uint32_t>(half));
        krl_dct4_postmodulation_shl0(to, in, sine.data(), cosine.data(), static_cast<uint32_t>(half));
    }
    return out;
}

} // namespace

void add_transforms(py::module_& module) {
    using namespace py::literals;
    module.def("fft", fft, "rows"_a, "inverse"_a, "scaled"_a);
    module.def("kernel", kernel, "rows"_a, "radix"_a, "inverse"_a);
    module.def("rfft", rfft, "rows"_a, "scaled"_a);
    module.def("irfft", irfft, "rows"_a, "n"_a, "scaled"_a);
    module.def("dct", dct, "rows"_a, "type"_a);
    module.def("complex_lengths", complex_lengths);
    module.def("real_lengths", real_lengths);
    module.def("dct_lengths", dct_lengths);
    module.def("dct4_lengths", dct4_lengths);
}

} // namespace korla_python
