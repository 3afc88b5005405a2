// korla-stream: streams, layouts, matrices.
#include <korla/stream.h>

#include <cmath>
#include <memory>
#include <optional>

#include "common.h"

namespace korla_python {
namespace {

constexpr size_t reason_bytes = 300;

void check(korla_status status, const char* reason = "") {
    if (status == KORLA_OK)
        return;
    if (status == KORLA_NO_MEMORY)
        throw std::bad_alloc();
    throw py::value_error(*reason ? reason : korla_status_text(status));
}

// "5.1", or a sequence of speaker names.
korla_layout layout_of(const py::object& speakers) {
    std::string text;
    if (py::isinstance<py::str>(speakers)) {
        text = py::cast<std::string>(speakers);
    } else {
        for (const auto& name : py::cast<std::vector<std::string>>(speakers))
            text += (text.empty() ? "" : ",") + name;
    }
    korla_layout layout;
    char reason[reason_bytes] = "";
    check(korla_layout_parse(text.c_str(), &layout, reason, sizeof reason), reason);
    return layout;
}

py::tuple names_of(const korla_layout& layout) {
    py::tuple names(layout.count);
    for (uint32_t c = 0; c < layout.count; c++)
        names[c] = korla_speaker_name(layout.speakers[c]);
    return names;
}

const char* source_name(uint32_t source) {
    return source == KORLA_MATRIX_GIVEN ? "given" : source == KORLA_MATRIX_MODULE ? "module" : "derived";
}

Floats matrix_array(const korla_layout& in, const korla_layout& out) {
    return Floats({static_cast<py::ssize_t>(out.count), static_cast<py::ssize_t>(in.count)});
}

struct Format {
    uint32_t code;
    const char* dtype;
};
constexpr Format formats[] = {{KORLA_S16, "int16"}, {KORLA_S32, "int32"}, {KORLA_F32, "float32"}, {KORLA_F64, "float64"}};

std::string text_of(const py::handle& object) { return py::cast<std::string>(py::str(object)); }

uint32_t format_of(const py::dtype& dtype) {
    for (const Format& format : formats)
        if (py::dtype(format.dtype).equal(dtype))
            return format.code;
    throw py::value_error("samples of type " + text_of(dtype) +
                          " are not to be had; known are int16, int32, float32, float64");
}

struct Control {
    uint32_t control;
    const char *name, *help;
};
constexpr Control controls[] = {
    {KORLA_DIALOGUE_DB, "dialogue_db", "Gain of the front centre in dB; -inf is off."},
    {KORLA_SURROUND_DB, "surround_db", "Gain of side and back speakers in dB; -inf is off."},
    {KORLA_HEIGHT_DB, "height_db", "Gain of height and top speakers in dB; -inf is off."},
    {KORLA_LFE_DB, "lfe_db", "Gain of the LFE in dB; off until set where the output has no LFE."},
    {KORLA_GAIN_DB, "gain_db", "Gain of everything in dB, before the limiter."},
    {KORLA_CEILING_DB, "ceiling_db", "The level that peaks keep to, -60..0 dB of full scale."},
};

class Stream : public Object {
public:
    Stream(const py::object& in, const py::object& out, uint32_t rate, const py::dtype& dtype,
           const std::optional<py::dtype>& out_dtype, const std::string& mode, bool controllable,
           const std::optional<Floats>& matrix)
        : in_dtype_(dtype), out_dtype_(out_dtype.value_or(dtype)) {
        korla_stream_config config = {};
        config.size = sizeof config;
        config.rate = rate;
        config.in = in_ = layout_of(in);
        config.out = out_ = layout_of(out);
        config.in_format = format_of(in_dtype_);
        config.out_format = format_of(out_dtype_);
        if (mode == "push")
            config.mode = KORLA_PUSH;
        else if (mode == "same-length")
            config.mode = KORLA_SAME_LENGTH;
        else if (mode == "same-length-32")
            config.mode = KORLA_SAME_LENGTH_32;
        else
            throw py::value_error("no mode '" + mode + "'; known are push, same-length, same-length-32");
        mode_ = config.mode;
        config.flags = controllable ? KORLA_CONTROLLABLE : 0;
        if (matrix) {
            if (matrix->ndim() != 2 || matrix->shape(0) != out_.count || matrix->shape(1) != in_.count)
                throw py::value_error("the matrix must have " + std::to_string(out_.count) + " rows of " +
                                      std::to_string(in_.count) + " gains");
            config.matrix = matrix->data();
        }
        korla_stream* stream = nullptr;
        char reason[reason_bytes] = "";
        check(korla_stream_open(&config, nullptr, 0, &stream, reason, sizeof reason), reason);
        stream_.reset(stream, korla_stream_close);
    }

    py::array process(const py::array& x) {
        const InUse guard(in_use_);
        const py::array samples = checked(x);
        const auto frames = static_cast<size_t>(samples.shape(0));
        py::array out = output(korla_stream_ready(stream_.get(), frames));
        take(samples, frames, out, 0);
        return out;
    }
    py::array drain() {
        const InUse guard(in_use_);
        py::array out = output(korla_stream_pending(stream_.get()));
        give_rest(out, 0);
        return out;
    }
    // A whole signal: what came before is forgotten, and nothing is left behind.
    py::array run(const py::array& x) {
        const InUse guard(in_use_);
        const py::array samples = checked(x);
        const auto frames = static_cast<size_t>(samples.shape(0));
        check(korla_stream_reset(stream_.get()));
        const size_t ready = korla_stream_ready(stream_.get(), frames);
        py::array out = output(mode_is_push() ? frames : frames + korla_stream_latency(stream_.get()));
        take(samples, frames, out, 0);
        give_rest(out, ready);
        return out;
    }
    void reset() {
        const InUse guard(in_use_);
        check(korla_stream_reset(stream_.get()));
    }

    float get(uint32_t control) const {
        float value = NAN;
        check(korla_stream_get(stream_.get(), control, &value));
        return value;
    }
    void set(uint32_t control, float value) {
        check(korla_stream_set(stream_.get(), control, value));
    }
    py::tuple matrix() const {
        Floats gains = matrix_array(in_, out_);
        uint32_t source = 0;
        check(korla_stream_matrix(stream_.get(), gains.mutable_data(), &source));
        return py::make_tuple(gains, source_name(source));
    }
    py::dict meters() {
        korla_meters meters = {};
        meters.size = sizeof meters;
        check(korla_stream_meters(stream_.get(), &meters));
        using namespace py::literals;
        return py::dict("gain_reduction_db"_a = meters.gain_reduction_db,
                        "input_peak"_a = py::array_t<float>(in_.count, meters.input_peak),
                        "output_peak"_a = py::array_t<float>(out_.count, meters.output_peak),
                        "frames_in"_a = meters.frames_in, "frames_out"_a = meters.frames_out,
                        "silenced"_a = meters.silenced);
    }
    uint32_t latency() const { return korla_stream_latency(stream_.get()); }
    size_t pending() const { return korla_stream_pending(stream_.get()); }
    py::tuple inputs() const { return names_of(in_); }
    py::tuple outputs() const { return names_of(out_); }

private:
    bool mode_is_push() const { return mode_ == KORLA_PUSH; }

    // Frame by frame in one piece: the caller's own memory where it is that already, else a copy.
    py::array checked(const py::array& x) const {
        if (!x.dtype().equal(in_dtype_))
            throw py::value_error("the samples are " + text_of(x.dtype()) + ", the stream takes " +
                                  text_of(in_dtype_));
        const bool is_mono = x.ndim() == 1 && in_.count == 1;
        if (!is_mono && (x.ndim() != 2 || x.shape(1) != in_.count))
            throw py::value_error("the samples must have the shape (frames, " + std::to_string(in_.count) + ")");
        py::array contiguous = py::array::ensure(x, py::array::c_style);
        if (!contiguous)
            throw py::error_already_set();
        return contiguous;
    }
    py::array output(size_t frames) const {
        return {out_dtype_, {static_cast<py::ssize_t>(frames), static_cast<py::ssize_t>(out_.count)}};
    }
    void* row(py::array& out, size_t first) const {
        return static_cast<char*>(out.mutable_data()) + first * static_cast<size_t>(out_.count * out.itemsize());
    }
    void take(const py::array& in, size_t frames, py::array& out, size_t first) {
        const void* source = in.data();
        void* sink = row(out, first);
        const size_t room = static_cast<size_t>(out.shape(0)) - first;
        korla_status status;
        {
            const py::gil_scoped_release without_lock;
            status = korla_stream_process(stream_.get(), &source, frames, &sink, room, nullptr);
        }
        check(status);
    }
    void give_rest(py::array& out, size_t first) {
        void* sink = row(out, first);
        check(korla_stream_drain(stream_.get(), &sink, static_cast<size_t>(out.shape(0)) - first, nullptr));
    }

    py::dtype in_dtype_, out_dtype_;
    korla_layout in_ = {}, out_ = {};
    uint32_t mode_ = KORLA_PUSH;
    std::shared_ptr<korla_stream> stream_;
};

py::dict layouts() {
    py::dict all;
    korla_layout layout;
    for (uint32_t i = 0; const char* name = korla_layout_at(i, &layout); i++)
        all[name] = names_of(layout);
    return all;
}

py::tuple from_wave_mask(uint32_t mask) {
    korla_layout layout;
    char reason[reason_bytes] = "";
    check(korla_layout_from_wave_mask(mask, &layout, reason, sizeof reason), reason);
    return names_of(layout);
}

uint32_t to_wave_mask(const py::object& speakers) {
    const korla_layout layout = layout_of(speakers);
    uint32_t mask = 0;
    char reason[reason_bytes] = "";
    check(korla_layout_to_wave_mask(&layout, &mask, reason, sizeof reason), reason);
    return mask;
}

py::tuple matrix(const py::object& from, const py::object& to) {
    const korla_layout in = layout_of(from), out = layout_of(to);
    Floats gains = matrix_array(in, out);
    uint32_t source = 0;
    char reason[reason_bytes] = "";
    check(korla_layout_matrix(&in, &out, gains.mutable_data(), &source, reason, sizeof reason), reason);
    return py::make_tuple(gains, source_name(source));
}

py::object layout_name(const py::object& speakers) {
    const korla_layout layout = layout_of(speakers);
    const char* name = korla_layout_name(&layout);
    return name ? py::object(py::str(name)) : py::none();
}

} // namespace

void add_stream(py::module_& module) {
    using namespace py::literals;
    module.def("layouts", layouts, "The named layouts: {name: speakers in frame order}.");
    module.def("layout", [](const py::object& speakers) { return names_of(layout_of(speakers)); }, "speakers"_a,
               "The speakers of a layout's name or of a list, in frame order: layout('5.1')[2] is 'FC'.");
    module.def("layout_name", layout_name, "speakers"_a,
               "The name of the layout with these speakers in any order, or None.");
    module.def("from_wave_mask", from_wave_mask, "mask"_a,
               "The speakers of a WAVE channel mask, in the order in which a WAVE file holds their samples.");
    module.def("to_wave_mask", to_wave_mask, "speakers"_a, "The WAVE channel mask of a layout.");
    module.def("matrix", matrix, "from_"_a, "to"_a,
               "The gains from one layout to another, an array (outputs, inputs), and their source: 'module' or 'derived'.");

    py::class_<Stream> stream(module, "Stream", R"(A stream from any speakers to any speakers, through a look-ahead peak limiter.

from_, to: a layout's name or a list of speakers. dtype: of the samples, int16, int32, float32 or float64; out_dtype:
of the output, the same unless given. mode: 'push' gives what is ready, aligned with the input, and drain() the rest;
'same-length' gives as many frames as it takes, 63 frames late; 'same-length-32' 32 frames late, in multiples of 32.
controllable: mix even where nothing is to be changed, so that the controls work. matrix: gains (outputs, inputs).

The controls are attributes and may be set while running, from any thread; a change is ramped over 20 ms.)");
    stream
        .def(py::init<const py::object&, const py::object&, uint32_t, const py::dtype&, const std::optional<py::dtype>&,
                      const std::string&, bool, const std::optional<Floats>&>(),
             "from_"_a, "to"_a, "rate"_a, py::kw_only(), "dtype"_a = py::dtype("float32"), "out_dtype"_a = py::none(),
             "mode"_a = "push", "controllable"_a = false, "matrix"_a = py::none())
        .def("process", &Stream::process, "samples"_a,
             "Takes samples of the shape (frames, inputs), gives what is ready of the shape (frames, outputs).")
        .def("drain", &Stream::drain, "What has not come out yet, at most 63 frames; the stream then begins anew.")
        .def("run", &Stream::run, "samples"_a, "A whole signal at once: reset, process and drain in one array.")
        .def("reset", &Stream::reset, "Forgets the past; the controls stay.")
        .def("matrix", &Stream::matrix, "The gains that are applied, controls included, and their source.")
        .def("meters", &Stream::meters,
             "What happened since they were last read: gain_reduction_db, input_peak, output_peak; frames_in, frames_out "
             "and silenced (samples that were no numbers) since the stream began.")
        .def_property_readonly("latency", &Stream::latency, "Frames by which the output may be late.")
        .def_property_readonly("pending", &Stream::pending, "Frames that drain() would give.")
        .def_property_readonly("inputs", &Stream::inputs, "The input's speakers in frame order.")
        .def_property_readonly("outputs", &Stream::outputs, "The output's speakers in frame order.")
        .def_property(
            "limiter", [](const Stream& s) { return s.get(KORLA_LIMITER) != 0.0f; },
            [](Stream& s, bool on) { s.set(KORLA_LIMITER, on); }, "Whether peaks are limited.");
    for (const Control& c : controls)
        stream.def_property(
            c.name, [code = c.control](const Stream& s) { return s.get(code); },
            [code = c.control](Stream& s, float value) { s.set(code, value); }, c.help);
}

} // namespace korla_python
