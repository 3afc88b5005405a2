// The QMF, hybrid and modulated filter banks: a pair of analysis and synthesis each, with memory of its own.
#include <korla/dsp/hybrid.h>
#include <korla/dsp/mfb.h>
#include <korla/dsp/qmf.h>

#include <cstring>
#include <optional>

#include "common.h"

namespace korla_python {
namespace {

using Memory = std::vector<std::byte>;

py::ssize_t slots_of(const py::array& x, py::ssize_t bands, const char* what) {
    expect_dimensions(x, 2, what);
    if (x.shape(1) != bands)
        throw py::value_error(std::string(what) + ": rows of " + std::to_string(bands) + " bands are wanted, " +
                              std::to_string(x.shape(1)) + " given");
    return x.shape(0);
}
py::ssize_t slots_in(const Floats& x, py::ssize_t bands) {
    expect_dimensions(x, 1, "samples");
    expect_multiple(x.shape(0), bands, "samples");
    return x.shape(0) / bands;
}

// ---- QMF -------------------------------------------------------------------------------------------------------------

struct QmfDesign {
    const char* name;
    uint32_t bands, periods;
    const float *analysis, *synthesis;
};
const QmfDesign qmf_designs[] = {
    {"p64kvx301", 8, 5, krl_qmf_filter_coeff_P5_p64kvx301_8_vec_ana, krl_qmf_filter_coeff_P5_p64kvx301_8_vec_syn},
    {"p64kvx301", 16, 5, krl_qmf_filter_coeff_P5_p64kvx301_16_vec_ana, krl_qmf_filter_coeff_P5_p64kvx301_16_vec_syn},
    {"p64kvx301", 32, 5, krl_qmf_filter_coeff_P5_p64kvx301_32_vec_ana, krl_qmf_filter_coeff_P5_p64kvx301_32_vec_syn},
    {"p64kvx301", 48, 5, krl_qmf_filter_coeff_P5_p64kvx301_48_vec_ana, krl_qmf_filter_coeff_P5_p64kvx301_48_vec_syn},
    {"p64kvx301", 64, 5, krl_qmf_filter_coeff_P5_p64kvx301_vec_ana, krl_qmf_filter_coeff_P5_p64kvx301_vec_syn},
    {"P5", 32, 5, krl_qmf_filter_coeff_P5_32_vec_ana, krl_qmf_filter_coeff_P5_32_vec_syn},
    {"P5", 64, 5, krl_qmf_filter_coeff_P5_vec_ana, krl_qmf_filter_coeff_P5_vec_syn},
    {"P4", 32, 4, krl_qmf_filter_coeff_P4_32_vec_ana, krl_qmf_filter_coeff_P4_32_vec_syn},
    {"P4", 64, 4, krl_qmf_filter_coeff_P4_vec_ana, krl_qmf_filter_coeff_P4_vec_syn},
};

class Qmf : public Object {
public:
    Qmf(uint32_t bands, const std::string& design, bool is_complex, uint32_t mode) : bands_(bands), is_complex_(is_complex) {
        const QmfDesign* chosen = nullptr;
        std::string known;
        for (const QmfDesign& d : qmf_designs) {
            known += std::string(" ") + d.name + "/" + std::to_string(d.bands);
            if (d.name == design && d.bands == bands)
                chosen = &d;
        }
        if (!chosen)
            throw py::value_error("no prototype " + design + " of " + std::to_string(bands) + " bands; known are" + known);
        uint32_t state, scratch, instance;
        const auto allocate = [&](Memory (&memory)[3]) {
            memory[0].resize(state), memory[1].resize(scratch), memory[2].resize(instance);
        };
        KRL_qmf_analysisL_query_mem(bands, chosen->periods, &state, &scratch, &instance);
        allocate(analysis_memory_);
        analysis_ = krl_qmf_analysisL_open(bands, 1, mode, chosen->periods, chosen->analysis, analysis_memory_[0].data(),
                                           analysis_memory_[1].data(), analysis_memory_[2].data());
        KRL_qmf_synthesisL_query_mem(bands, chosen->periods, &state, &scratch, &instance);
        allocate(synthesis_memory_);
        synthesis_ =
            krl_qmf_synthesisL_open(bands, 1, mode, chosen->periods, chosen->synthesis, synthesis_memory_[0].data(),
                                    synthesis_memory_[1].data(), synthesis_memory_[2].data());
        if (!analysis_ || !synthesis_)
            throw py::value_error("no bank of " + std::to_string(bands) + " bands has the mode " + std::to_string(mode));
    }

    py::array analysis(const Floats& x) {
        const InUse guard(in_use_);
        const py::ssize_t slots = slots_in(x, bands_);
        const float* in = x.data();
        if (!is_complex_) {
            Floats out({slots, py::ssize_t{bands_}});
            float* row = out.mutable_data();
            const py::gil_scoped_release without_lock;
            for (py::ssize_t s = 0; s < slots; s++, row += bands_, in += bands_)
                KRL_Lqmf_analysisL(analysis_, row, in);
            return out;
        }
        Complexes out({slots, py::ssize_t{bands_}});
        float* row = data(out);
        const py::gil_scoped_release without_lock;
        for (py::ssize_t s = 0; s < slots; s++, row += 2 * bands_, in += bands_)
            KRL_CLqmf_analysisL(analysis_, &row, in);
        return out;
    }
    Floats synthesis(const py::array& subbands) {
        const InUse guard(in_use_);
        const py::ssize_t slots = slots_of(subbands, bands_, "sub-bands");
        Floats out(slots * bands_);
        float* y = out.mutable_data();
        if (!is_complex_) {
            const Floats rows(subbands);
            const float* row = rows.data();
            const py::gil_scoped_release without_lock;
            for (py::ssize_t s = 0; s < slots; s++, row += bands_, y += bands_)
                KRL_Lqmf_synthesisL(synthesis_, y, row);
        } else {
            const Complexes rows(subbands);
            const float* row = data(rows);
            const py::gil_scoped_release without_lock;
            for (py::ssize_t s = 0; s < slots; s++, row += 2 * bands_, y += bands_)
                KRL_Lqmf_synthesisCL(synthesis_, y, &row);
        }
        return out;
    }
    void reset() {
        const InUse guard(in_use_);
        KRL_qmf_analysisL_init(analysis_);
        KRL_qmf_synthesisL_init(synthesis_);
    }
    uint32_t delay() const {
        return KRL_qmf_analysisL_get_delay(analysis_) + KRL_qmf_synthesisL_get_delay(synthesis_);
    }
    uint32_t bands() const { return bands_; }

private:
    uint32_t bands_;
    bool is_complex_;
    Memory analysis_memory_[3], synthesis_memory_[3];
    krl_qmf_analysis* analysis_;
    krl_qmf_synthesis* synthesis_;
};

// ---- hybrid ----------------------------------------------------------------------------------------------------------

class Hybrid : public Object {
public:
    Hybrid(int bands, bool interleaved) : bands_(bands) {
        if ((bands != 10 && bands != 16) || (interleaved && bands != 16))
            throw py::value_error("a hybrid bank has 10 or 16 bands, those of 16 interleaved or not");
        const int32_t config =
            (bands == 16 ? KRL_HYBRID_16_BANDS : KRL_HYBRID_10_BANDS) | (interleaved ? KRL_HYBRID_INTERLEAVED : 0);
        uint32_t state, instance;
        KRL_hybrid_analysisCL_query_mem(config, &state, nullptr, &instance);
        state_.resize(state), analysis_memory_.resize(instance);
        analysis_ = KRL_hybrid_analysisCL_open(config, state_.data(), nullptr, analysis_memory_.data());
        synthesis_memory_.resize(KRL_hybrid_synthesisCL_query_mem(config, nullptr, nullptr, nullptr));
        synthesis_ = KRL_hybrid_synthesisCL_open(config, nullptr, nullptr, synthesis_memory_.data());
    }
    Complexes analysis(const Complexes& qmf_bands) {
        const InUse guard(in_use_);
        const py::ssize_t slots = slots_of(qmf_bands, 3, "QMF bands 0 to 2");
        Complexes out({slots, py::ssize_t{bands_}});
        const float* in = data(qmf_bands);
        float* row = data(out);
        const py::gil_scoped_release without_lock;
        for (py::ssize_t s = 0; s < slots; s++, in += 6, row += 2 * bands_)
            KRL_CLhybrid_analysisCL(analysis_, row, in);
        return out;
    }
    Complexes synthesis(const Complexes& subbands) {
        const InUse guard(in_use_);
        const py::ssize_t slots = slots_of(subbands, bands_, "sub-bands");
        Complexes out({slots, py::ssize_t{3}});
        const float* in = data(subbands);
        float* row = data(out);
        const py::gil_scoped_release without_lock;
        for (py::ssize_t s = 0; s < slots; s++, in += 2 * bands_, row += 6)
            KRL_CLhybrid_synthesisCL(synthesis_, row, in);
        return out;
    }
    void reset() {
        const InUse guard(in_use_);
        KRL_hybrid_analysisCL_init(analysis_);
    }
    uint32_t delay() const { return KRL_hybrid_analysisCL_get_delay(analysis_); }
    int bands() const { return bands_; }

private:
    int bands_;
    Memory state_, analysis_memory_, synthesis_memory_;
    krl_hybrid_analysis* analysis_;
    krl_hybrid_synthesis* synthesis_;
};

// ---- modulated -------------------------------------------------------------------------------------------------------

using MfbAnalyse = decltype(KRL_CLmfb_p10km_analysisL);
using MfbSynthesise = decltype(KRL_Lmfb_p10km_synthesisCL_symmetric);
struct MfbVariant {
    const char* name;
    MfbAnalyse* analyse;
    MfbSynthesise* synthesise;
    bool is_conjugated;
    const char *prototype, *twiddle; // unless others are asked for
    uint32_t delay_in_slots, delay_in_samples;
};
const MfbVariant mfb_variants[] = {
    {"symmetric", KRL_CLmfb_p10km_analysisL, KRL_Lmfb_p10km_synthesisCL_symmetric, false, "P64KVX301", "E", 9, 0},
    {"legacy", KRL_CLmfb_p10km_analysisL_legacy, KRL_Lmfb_p10km_synthesisCL_legacy, false, "P64KVX301_LEGACY", "E", 9, 0},
    {"legacy_extra_latency", KRL_CLmfb_p10km_analysisL_legacy, KRL_Lmfb_p10km_synthesisCL_legacy_extra_latency, false,
     "P64KVX301_LEGACY", "O", 9, 1},
    {"even_0", KRL_CLmfb_p10km_analysisL, KRL_Lmfb_p10km_synthesisCL_even_0, false, "P4_319SC", "E", 4, 0},
    {"even_1", KRL_CLmfb_p10km_analysisL_legacy, KRL_Lmfb_p10km_synthesisCL_even_1, false, "P4_319SC", "E", 4, 0},
    {"even_2", KRL_CLmfb_p10km_analysisL, KRL_Lmfb_p10km_synthesisCL_even_2, true, "P4_319SC", "E", 4, 0},
    {"even_3", KRL_CLmfb_p10km_analysisL_legacy, KRL_Lmfb_p10km_synthesisCL_even_3, true, "P4_319SC", "E", 4, 0},
};

struct MfbPrototype {
    const char* name;
    uint32_t bands;
    const float* taps;
};
const MfbPrototype mfb_prototypes[] = {
    {"P64KVX301", 64, KRL_MFB_P10KM_P64KVX301},
    {"P64KVX301_LEGACY", 64, KRL_MFB_P10KM_P64KVX301_LEGACY},
    {"P4_319SC", 64, KRL_MFB_P10KM_P4_319SC},
    {"P4_319SC", 128, KRL_MFB_P10KM_P4_319SC_128M},
    {"P4_319SC", 256, KRL_MFB_P10KM_P4_319SC_256M},
};

class Mfb : public Object {
public:
    Mfb(uint32_t bands, const std::string& variant, const std::optional<std::string>& prototype,
        const std::optional<std::string>& twiddle)
        : bands_(bands), variant_(nullptr), prototype_(nullptr) {
        std::string known;
        for (const MfbVariant& v : mfb_variants) {
            known += std::string(" ") + v.name;
            if (v.name == variant)
                variant_ = &v;
        }
        if (!variant_)
            throw py::value_error("no variant '" + variant + "'; known are" + known);
        const std::string name = prototype.value_or(variant_->prototype), turn = twiddle.value_or(variant_->twiddle);
        std::string choices;
        for (const MfbPrototype& p : mfb_prototypes) {
            choices += std::string(" ") + p.name + "/" + std::to_string(p.bands);
            if (p.name == name && p.bands == bands)
                prototype_ = p.taps;
        }
        if (!prototype_)
            throw py::value_error("no prototype " + name + " of " + std::to_string(bands) + " bands; known are" + choices);
        if (turn != "E" && !(turn == "O" && bands == 64))
            throw py::value_error("no twiddle '" + turn + "' of " + std::to_string(bands) + " bands; known are E, and O of 64");
        twiddle_ = turn == "O"    ? KRL_MFB_TWID64O
                   : bands == 64  ? KRL_MFB_TWID64E
                   : bands == 128 ? KRL_MFB_TWID128E
                                  : KRL_MFB_TWID256E;
        scratch_.resize(KRL_mfb_p10km_analysisL_query_scratch(0, 0, bands));
        analysis_memory_.resize(KRL_mfb_p10km_analysisL_query_mem(1, 0, bands));
        synthesis_memory_.resize(KRL_mfb_p10km_synthesisCL_query_mem(1, 0, bands));
        begin();
    }
    Complexes analysis(const Floats& x) {
        const InUse guard(in_use_);
        const py::ssize_t slots = slots_in(x, bands_);
        Complexes out({slots, py::ssize_t{bands_}});
        const float* in = x.data();
        float* row = data(out);
        const py::gil_scoped_release without_lock;
        for (py::ssize_t s = 0; s < slots; s++, in += bands_, row += 2 * bands_) {
            const float* const* const source = &in;
            float* const* const sink = &row;
            variant_->analyse(analysis_, prototype_, twiddle_, scratch_.data(), 1, 1, bands_, &sink, &source);
            conjugate(row);
        }
        return out;
    }
    Floats synthesis(const Complexes& subbands) {
        const InUse guard(in_use_);
        const py::ssize_t slots = slots_of(subbands, bands_, "sub-bands");
        Floats out(slots * bands_);
        const float* in = data(subbands);
        float* y = out.mutable_data();
        const py::gil_scoped_release without_lock;
        for (py::ssize_t s = 0; s < slots; s++, in += 2 * bands_, y += bands_) {
            const float* const* const source = &in;
            float* const* const sink = &y;
            variant_->synthesise(synthesis_, prototype_, twiddle_, scratch_.data(), 1, 1, bands_, &sink, &source);
        }
        return out;
    }
    void reset() {
        const InUse guard(in_use_);
        begin();
    }
    uint32_t delay() const { return variant_->delay_in_slots * bands_ + variant_->delay_in_samples; }
    uint32_t bands() const { return bands_; }

private:
    void begin() {
        analysis_ = KRL_CLmfb_p10km_analysisL_init(1, 0, bands_, analysis_memory_.data());
        synthesis_ = KRL_Lmfb_p10km_synthesisCL_init(1, 0, bands_, synthesis_memory_.data());
    }
    void conjugate(float* row) const {
        if (variant_->is_conjugated)
            for (uint32_t m = 0; m < bands_; m++)
                row[2 * m + 1] = -row[2 * m + 1];
    }

    uint32_t bands_;
    const MfbVariant* variant_;
    const float *prototype_, *twiddle_;
    Memory scratch_, analysis_memory_, synthesis_memory_;
    krl_mfb_analysis* analysis_;
    krl_mfb_synthesis* synthesis_;
};

// The prototype filters by name, as the library has them in memory: docs/prototype-filters.md.
py::dict prototypes() {
    py::dict all;
    const auto add = [&](const std::string& name, const float* taps, size_t count) {
        all[py::str(name)] = Floats(static_cast<py::ssize_t>(count), taps);
    };
    for (const QmfDesign& d : qmf_designs) {
        const std::string name = std::string("qmf ") + d.name + "/" + std::to_string(d.bands);
        add(name + " analysis", d.analysis, 2 * d.periods * d.bands);
        add(name + " synthesis", d.synthesis, 2 * d.periods * d.bands);
    }
    for (const MfbPrototype& p : mfb_prototypes)
        add(std::string("mfb ") + p.name + "/" + std::to_string(p.bands), p.taps, 10 * p.bands);
    add("hybrid 8", krl_hyb_p8_13, 13);
    add("hybrid 4", krl_hyb_p4_13, 13);
    add("hybrid 2", krl_hyb_p2_6, 6);
    return all;
}

template <class Bank> void define(py::class_<Bank>& bank, const char* analysis, const char* synthesis) {
    bank.def("analysis", &Bank::analysis, py::arg("samples"), analysis)
        .def("synthesis", &Bank::synthesis, py::arg("subbands"), synthesis)
        .def("reset", &Bank::reset, "Forgets the past of both directions.")
        .def_property_readonly("bands", &Bank::bands)
        .def_property_readonly("delay", &Bank::delay, "Of analysis and synthesis together, in samples or slots of the input.");
}

} // namespace

void add_banks(py::module_& module) {
    using namespace py::literals;
    module.def("prototypes", prototypes, "The prototype filters of the banks: {name: taps as the library holds them}.");
    py::class_<Qmf> qmf(module, "QMF", R"(A QMF bank: bands of equal width, real or complex, and back.

bands: 8, 16, 32, 48 or 64. design: 'p64kvx301' for all of these, 'P5' or 'P4' for 32 and 64. is_complex: sub-bands that
can be scaled one by one without audible aliases. mode: the rotation of complex sub-bands (korla/dsp/qmf.h). Analysis and
synthesis keep their past from call to call.)");
    qmf.def(py::init<uint32_t, const std::string&, bool, uint32_t>(), "bands"_a = 64, "design"_a = "p64kvx301",
            "is_complex"_a = true, "mode"_a = 0);
    define(qmf, "Samples, a multiple of the bands, to an array (slots, bands).", "An array (slots, bands) to samples.");
    py::class_<Hybrid> hybrid(module, "Hybrid", R"(A hybrid bank: the three lowest bands of a complex QMF, split further.

bands: 16 or 10. interleaved: the other order of 16 bands (korla/dsp/hybrid.h).)");
    hybrid.def(py::init<int, bool>(), "bands"_a = 16, "interleaved"_a = false);
    define(hybrid, "An array (slots, 3) of the QMF bands 0 to 2 to an array (slots, bands).",
           "An array (slots, bands) to an array (slots, 3).");
    py::class_<Mfb> mfb(module, "MFB", R"(A modulated bank: complex bands from real samples, and back.

bands: 64, and 128 and 256 for the variants of low delay. variant: 'symmetric', 'legacy', 'legacy_extra_latency', or of low
delay 'even_0' to 'even_3' (korla/dsp/mfb.h). prototype, twiddle: other tables than the variant's own, by the ends of their
names ('P64KVX301_LEGACY', 'O'). Analysis and synthesis keep their past from call to call.)");
    mfb.def(py::init<uint32_t, const std::string&, const std::optional<std::string>&, const std::optional<std::string>&>(),
            "bands"_a = 64, "variant"_a = "symmetric", "prototype"_a = py::none(), "twiddle"_a = py::none());
    define(mfb, "Samples, a multiple of the bands, to an array (slots, bands).", "An array (slots, bands) to samples.");
}

} // namespace korla_python
