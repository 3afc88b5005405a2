// The limiter, the phase shifter and second-order sections.
#include <korla/dsp/block_filter.h>
#include <korla/dsp/phase90_hilbert.h>
#include <korla/limiter.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <optional>

#include "common.h"

namespace korla_python {
namespace {

class Limiter : public Object {
public:
    Limiter(uint32_t channels, uint32_t rate, uint32_t subblock, float peak, float boost) : channels_(channels), subblock_(subblock) {
        if (channels == 0)
            throw py::value_error("a limiter has one channel at least");
        memory_.resize(korvex_ht_kvlim_query_memory(channels, nullptr, nullptr, subblock));
        limiter_ = korvex_ht_kvlim_init(channels, subblock, memory_.data(), nullptr);
        if (!limiter_)
            throw py::value_error("no sub-block of " + std::to_string(subblock) + " samples; known are 32, 40, 64, 128, 256");
        if (korvex_ht_kvlim_set_sample_rate(limiter_, rate) != 0)
            throw py::value_error("no time constants for sub-blocks of " + std::to_string(subblock) + " samples at " +
                                  std::to_string(rate) + " Hz");
        korvex_ht_kvlim_set_num_channels(limiter_, channels);
        set_peak(peak);
        if (!(boost >= 0.0f) || !std::isfinite(boost))
            throw py::value_error("the boost is a gain of 0 or more");
        korvex_ht_kvlim_set_boost(limiter_, boost / 256, boost / 256);
        korvex_ht_kvlim_set_enable(limiter_, 1);
    }
    Floats process(const Floats& x, const std::optional<Floats>& detected) {
        const InUse guard(in_use_);
        const bool is_mono = x.ndim() == 1 && channels_ == 1;
        if (!is_mono && (x.ndim() != 2 || x.shape(1) != channels_))
            throw py::value_error("the samples must have the shape (frames, " + std::to_string(channels_) + ")");
        expect_multiple(x.shape(0), subblock_, "frames");
        const Floats& detect = detected ? *detected : x;
        if (detect.ndim() != x.ndim() || !std::equal(x.shape(), x.shape() + x.ndim(), detect.shape()))
            throw py::value_error("what peaks are found in must have the shape of the samples");
        Floats out(std::vector<py::ssize_t>(x.shape(), x.shape() + x.ndim()));
        std::vector<const float*> in(channels_), found(channels_);
        std::vector<float*> to(channels_);
        for (uint32_t c = 0; c < channels_; c++)
            in[c] = x.data() + c, found[c] = detect.data() + c, to[c] = out.mutable_data() + c;
        const auto frames = static_cast<size_t>(x.shape(0)), most = size_t{subblock_} << 16;
        const py::gil_scoped_release without_lock;
        for (size_t done = 0; done < frames;) {
            const size_t n = std::min(most, frames - done);
            korvex_ht_kvlim_set_block_size(limiter_, static_cast<uint32_t>(n));
            korvex_ht_kvlim_process_indirect(limiter_, to.data(), found.data(), in.data(), channels_, channels_, channels_);
            for (uint32_t c = 0; c < channels_; c++)
                in[c] += n * channels_, found[c] += n * channels_, to[c] += n * channels_;
            done += n;
        }
        return out;
    }
    void reset() {
        const InUse guard(in_use_);
        korvex_ht_kvlim_reset_state(limiter_);
    }
    float peak() const { return korvex_ht_kvlim_get_peak(limiter_); }
    void set_peak(float peak) {
        const InUse guard(in_use_);
        if (!(peak >= 0.0f) || !std::isfinite(peak))
            throw py::value_error("the peak is a level of 0 or more");
        korvex_ht_kvlim_set_peak(limiter_, peak);
    }
    bool hard_clip() const { return korvex_ht_kvlim_get_hard_clip(limiter_) != 0; }
    void set_hard_clip(bool on) {
        const InUse guard(in_use_);
        korvex_ht_kvlim_set_hard_clip(limiter_, on);
    }
    float gain() const { return korvex_ht_kvlim_get_limiter_gain(limiter_); }
    uint32_t latency() const { return korvex_ht_kvlim_get_latency(limiter_); }

private:
    uint32_t channels_, subblock_;
    std::vector<std::byte> memory_;
    korvex_ht_kvlim* limiter_;
};

class Phase90 : public Object {
public:
    explicit Phase90(uint32_t block) : block_(block) {
        size_t instance, work, history;
        if (getRequiredBufferSize_Phase90Hilbert(block, &instance, &work, &history) != 0)
            throw py::value_error("no block of " + std::to_string(block) + " samples; known are 512, 1024, 2048");
        work_.resize(work / sizeof(float)), history_.resize(history / sizeof(float));
        Phase90Hilbert* handle = nullptr;
        init_Phase90Hilbert(&handle, block, &instance_, work_.data(), history_.data());
    }
    Floats process(const Floats& x) {
        const InUse guard(in_use_);
        expect_dimensions(x, 1, "samples");
        expect_multiple(x.shape(0), block_, "samples");
        Floats out(x.shape(0));
        float* y = out.mutable_data();
        const auto samples = static_cast<size_t>(x.shape(0));
        const float* in = x.data();
        const py::gil_scoped_release without_lock;
        std::copy_n(in, samples, y);
        for (size_t done = 0; done < samples; done += block_)
            process_Phase90Hilbert(&instance_, y + done);
        return out;
    }
    void reset() {
        const InUse guard(in_use_);
        reset_Phase90Hilbert(&instance_);
    }

private:
    uint32_t block_;
    Phase90Hilbert instance_;
    std::vector<float> work_, history_;
};

// ---- second-order sections -------------------------------------------------------------------------------------------

constexpr size_t block = KRL_BLK_LEN;
using Coefficients = std::array<float, 5>;

// H(z) = (b0 + b1/z + b2/z^2) / (1 + a1/z + a2/z^2) in the library's forms: see korla/dsp/block_filter.h.
Coefficients coefficients(const std::string& form, const std::array<double, 3>& b, double a1, double a2) {
    const double r1 = b[1] - b[0] * a1, r2 = b[2] - b[0] * a2, p = r2 - a1 * r1 / 2, q = a1 * a1 / 4 - a2;
    const auto rounded = [](double c0, double c1, double c2, double c3, double c4) -> Coefficients {
        return {static_cast<float>(c0), static_cast<float>(c1), static_cast<float>(c2), static_cast<float>(c3),
                static_cast<float>(c4)};
    };
    if (form == "df1")
        return rounded(b[0], b[1], b[2], -a1 / 2, -a2);
    if (form == "ssv1") {
        if (!(q < 0))
            throw py::value_error("the form ssv1 needs a complex pair of poles; ssv2, ssv3 and df1 take any");
        const double c4 = std::sqrt(-q);
        return rounded(-b[0] / 2, (r1 + p / c4) / 4, (r1 - p / c4) / 4, -a1 / 2, c4);
    }
    if (form == "ssv2")
        return rounded(-b[0] / 2, r1 / 2, p / 2, -a1 / 2, q);
    if (form == "ssv3")
        return rounded(-b[0] / 2, r1 / 2, 8 * p, -a1 / 2, 16 * q);
    throw py::value_error("no form '" + form + "'; known are ssv1, ssv2, ssv3, df1");
}

class Biquad : public Object {
public:
    Biquad(const std::vector<double>& b, const std::vector<double>& a, const std::string& form) : form_(form) {
        if (b.size() != 3 || a.size() != 3 || !(a[0] != 0.0))
            throw py::value_error("a section has b = (b0, b1, b2) and a = (a0, a1, a2) with a0 other than 0");
        coefficients_ = coefficients(form, {b[0] / a[0], b[1] / a[0], b[2] / a[0]}, a[1] / a[0], a[2] / a[0]);
        begin();
    }
    Floats process(const Floats& x) {
        const InUse guard(in_use_);
        expect_dimensions(x, 1, "samples");
        expect_multiple(x.shape(0), block, "samples");
        Floats out(x.shape(0));
        float* y = out.mutable_data();
        const float* in = x.data();
        const auto samples = static_cast<size_t>(x.shape(0));
        const float* c = coefficients_.data();
        const py::gil_scoped_release without_lock;
        for (size_t done = 0; done < samples; done += block) {
            if (form_ == "df1") {
                krl_blk_Liir2df1L_flex(y + done, in + done, c, &direct_);
            } else if (form_ == "ssv1") {
                krl_blk_Liir2ssv1L_flex(y + done, in + done, c, &state_);
            } else if (form_ == "ssv2") {
                krl_blk_Liir2ssv2L_flex(y + done, in + done, c, &state_);
            } else {
                std::copy_n(in + done, block, y + done);
                krl_blk_Liir2ssv3L_inplace_flex(y + done, c, &state_);
            }
        }
        return out;
    }
    void reset() {
        const InUse guard(in_use_);
        begin();
    }

private:
    void begin() {
        KRL_blk_Liir2df1L_setup(&direct_);
        KRL_blk_Liir2ssv1L_setup(&state_);
    }
    std::string form_;
    Coefficients coefficients_;
    krl_iir2df1_state direct_;
    krl_iir2ss_state state_;
};

} // namespace

void add_filters(py::module_& module) {
    using namespace py::literals;
    py::class_<Limiter>(module, "Limiter", R"(A look-ahead peak limiter with make-up gain.

subblock: 32, 40, 64, 128 or 256 frames, which are also the delay. peak: the level that the limited signal keeps to, before
boost, the make-up gain. process takes multiples of the sub-block.)")
        .def(py::init<uint32_t, uint32_t, uint32_t, float, float>(), "channels"_a, "rate"_a, "subblock"_a = 32, "peak"_a = 1.0f,
             "boost"_a = 1.0f)
        .def("process", &Limiter::process, "samples"_a, "detect"_a = py::none(),
             "Frames of the shape (frames, channels) to as many; detect: the signal whose peaks decide, in place of them.")
        .def("reset", &Limiter::reset, "Back to rest.")
        .def_property("peak", &Limiter::peak, &Limiter::set_peak)
        .def_property("hard_clip", &Limiter::hard_clip, &Limiter::set_hard_clip, "Clip, without delay, instead of looking ahead.")
        .def_property_readonly("gain", &Limiter::gain, "The gain at the end of the last sub-block; 1 is no reduction.")
        .def_property_readonly("latency", &Limiter::latency, "The delay in frames.");
    py::class_<Phase90>(module, "Phase90", R"(A phase shifter: the signal of 1280 samples earlier, 90 degrees behind.

block: 512, 1024 or 2048; process takes multiples of it.)")
        .def(py::init<uint32_t>(), "block"_a = 1024)
        .def("process", &Phase90::process, "samples"_a)
        .def("reset", &Phase90::reset, "Silence.")
        .def_property_readonly_static("delay", [](const py::object&) { return KRL_PHASE90_DELAY; });
    py::class_<Biquad>(module, "Biquad", R"(A second-order section (b0 + b1/z + b2/z^2) / (a0 + a1/z + a2/z^2), as scipy.signal has it.

form: 'ssv2', 'ssv3' and 'ssv1' in state-space form, 'df1' the direct one. process takes multiples of 32 samples.)")
        .def(py::init<const std::vector<double>&, const std::vector<double>&, const std::string&>(), "b"_a, "a"_a,
             "form"_a = "ssv2")
        .def("process", &Biquad::process, "samples"_a)
        .def("reset", &Biquad::reset, "Forgets the past.");
}

} // namespace korla_python
