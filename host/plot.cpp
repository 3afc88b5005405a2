// One drawing for both kinds of files, by cairo; the refusal of a host without it.
#include "plot.h"

#include "error.h"
#include "text.h"

#if KORLA_HAS_CAIRO
#    include <cairo-svg.h>
#    include <cairo.h>
#endif

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <memory>

#ifdef __SANITIZE_ADDRESS__ // what fontconfig keeps to the end of a program is not lost by it
extern "C" const char* __lsan_default_suppressions();
extern "C" const char* __lsan_default_options();
const char* __lsan_default_suppressions() { return "leak:libfontconfig"; }
const char* __lsan_default_options() { return "print_suppressions=0"; }
#endif

namespace host {
#if KORLA_HAS_CAIRO

namespace {

bool ends_in(const std::string& path, const char* extension) {
    return std::filesystem::path(path).extension() == extension;
}

struct Colour {
    double red, green, blue;
};
constexpr Colour ink{0.13, 0.15, 0.19}, faint{0.45, 0.48, 0.53}, grid{0.87, 0.88, 0.90}, paper{1, 1, 1},
    lane_paper{0.965, 0.97, 0.975}, before{0.22, 0.46, 0.71}, after{0.16, 0.60, 0.47}, reduction{0.87, 0.50, 0.15},
    above{0.80, 0.13, 0.17};

constexpr double width = 1120, margin = 28, label_width = 64, value_width = 82, lane_height = 26, lane_gap = 4,
                 floor_db = -60, reduction_height = 92, cell_width = 62, cell_height = 26;
constexpr double plot_left = margin + label_width, plot_right = width - margin - value_width;

// A canvas with just what the picture needs.
class Canvas {
public:
    explicit Canvas(cairo_surface_t* surface) : cairo_(cairo_create(surface)) {
        cairo_select_font_face(cairo_, "sans-serif", CAIRO_FONT_SLANT_NORMAL, CAIRO_FONT_WEIGHT_NORMAL);
        cairo_set_line_width(cairo_, 1);
    }
    ~Canvas() { cairo_destroy(cairo_); }
    Canvas(const Canvas&) = delete;
    Canvas& operator=(const Canvas&) = delete;

    void box(double x, double y, double w, double h, Colour c) {
        colour(c);
        cairo_rectangle(cairo_, x, y, w, h);
        cairo_fill(cairo_);
    }
    void line(double x0, double y0, double x1, double y1, Colour c) {
        colour(c);
        cairo_move_to(cairo_, x0, y0);
        cairo_line_to(cairo_, x1, y1);
        cairo_stroke(cairo_);
    }
    // align: 0 begins at x, 0.5 is centred there, 1 ends there. y: the middle of the letters.
    void text(double x, double y, const std::string& text, Colour c, double size = 12, double align = 0,
              bool bold = false) {
        cairo_select_font_face(cairo_, "sans-serif", CAIRO_FONT_SLANT_NORMAL,
                               bold ? CAIRO_FONT_WEIGHT_BOLD : CAIRO_FONT_WEIGHT_NORMAL);
        cairo_set_font_size(cairo_, size);
        cairo_text_extents_t extents;
        cairo_text_extents(cairo_, text.c_str(), &extents);
        colour(c);
        cairo_move_to(cairo_, x - align * extents.x_advance, y + 0.36 * size);
        cairo_show_text(cairo_, text.c_str());
    }
    // The area between y = base and heights(step), over so many steps between two places.
    template <class Height> void area(double left, double right, double base, size_t steps, Height height, Colour c) {
        colour(c);
        cairo_move_to(cairo_, left, base);
        for (size_t i = 0; i < steps; i++) {
            const double w = (right - left) / static_cast<double>(steps), x = left + w * static_cast<double>(i);
            cairo_line_to(cairo_, x, base - height(i));
            cairo_line_to(cairo_, x + w, base - height(i));
        }
        cairo_line_to(cairo_, right, base);
        cairo_close_path(cairo_);
        cairo_fill(cairo_);
    }

private:
    void colour(Colour c) { cairo_set_source_rgb(cairo_, c.red, c.green, c.blue); }
    cairo_t* cairo_;
};

double lanes_height(size_t channels) { return 24 + static_cast<double>(channels) * (lane_height + lane_gap) + 14; }
double matrix_height(const Matrix& matrix) { return 60 + cell_height * static_cast<double>(matrix.outputs.size()); }
double in_db(double linear) { return linear > 0 ? decibels(linear) : -INFINITY; }
std::string db_text(double db) { return std::isfinite(db) ? format_text("%+.1f", db + 0.0) : "\u2212\u221e"; }

// Where the steps of an envelope end: the last step of a recording is rarely full.
double right_end(const Envelope& envelope, uint64_t frames) {
    const double full = static_cast<double>(envelope.steps() * envelope.step_frames());
    return frames == 0 ? plot_left : plot_left + (plot_right - plot_left) * full / static_cast<double>(frames);
}

// One strip a channel: its peak from -60 dBFS at the foot to full scale at the top.
double draw_lanes(Canvas& canvas, double y, const char* title, const ChannelMap& map, const std::vector<Level>& levels,
                  const Envelope& envelope, uint64_t frames, Colour c) {
    canvas.text(margin, y + 8, title, ink, 13, 0, true);
    canvas.text(plot_right, y + 8, format_text("peak in dBFS, strips from %.0f to 0", floor_db), faint, 11, 1);
    y += 24;
    for (size_t channel = 0; channel < map.size(); channel++) {
        const double right = right_end(envelope, frames);
        const auto height = [&](size_t step) {
            const double db = in_db(envelope.value(step, channel));
            return lane_height * std::clamp(1 - db / floor_db, 0.0, 1.0);
        };
        const auto clipped = [&](size_t step) {
            return exceeds_full_scale(envelope.value(step, channel)) ? lane_height : 0.0;
        };
        canvas.box(plot_left, y, plot_right - plot_left, lane_height, lane_paper);
        canvas.area(plot_left, std::min(right, plot_right), y + lane_height, envelope.steps(), height, c);
        canvas.area(plot_left, std::min(right, plot_right), y + lane_height, envelope.steps(), clipped, above);
        canvas.text(plot_left - 10, y + lane_height / 2, speaker_name(map[channel]), ink, 12, 1);
        const double peak = levels[channel].peak;
        canvas.text(width - margin, y + lane_height / 2, db_text(in_db(peak)), exceeds_full_scale(peak) ? above : faint,
                    12, 1);
        y += lane_height + lane_gap;
    }
    return y + 14;
}

double draw_reduction(Canvas& canvas, double y, const Envelope& envelope, uint64_t frames) {
    double greatest = 0;
    for (size_t i = 0; i < envelope.steps(); i++)
        greatest = std::max(greatest, envelope.value(i, 0));
    const double scale = std::clamp(std::ceil(greatest / 3) * 3, 3.0, 60.0);
    canvas.text(margin, y + 8, "Gain reduction", ink, 13, 0, true);
    canvas.text(plot_right, y + 8, "in dB, by the limiter, the greatest of each block", faint, 11, 1);
    y += 24;
    canvas.box(plot_left, y, plot_right - plot_left, reduction_height, lane_paper);
    for (int i = 0; i <= 3; i++) {
        const double at = y + reduction_height * i / 3;
        canvas.line(plot_left, at, plot_right, at, grid);
        canvas.text(plot_left - 10, at, format_text("%.0f", -scale * i / 3 + 0.0), faint, 11, 1);
    }
    const auto depth = [&](size_t step) { return -reduction_height * std::min(envelope.value(step, 0) / scale, 1.0); };
    canvas.area(plot_left, std::min(right_end(envelope, frames), plot_right), y, envelope.steps(), depth, reduction);
    canvas.text(width - margin, y + reduction_height / 2, greatest > 0 ? db_text(-greatest) : "0.0", faint, 12, 1);
    return y + reduction_height + 14;
}

double draw_time(Canvas& canvas, double y, uint64_t frames, uint32_t rate) {
    const double seconds = static_cast<double>(frames) / rate;
    if (seconds <= 0)
        return y;
    const double raw = seconds / 10, decade = std::pow(10, std::floor(std::log10(raw)));
    const double step = raw <= decade       ? decade
                        : raw <= 2 * decade ? 2 * decade
                        : raw <= 5 * decade ? 5 * decade
                                            : 10 * decade;
    for (int i = 0; i * step <= seconds * 1.0001; i++) {
        const double t = i * step;
        const double x = plot_left + (plot_right - plot_left) * t / seconds;
        canvas.line(x, y - 10, x, y - 5, faint);
        canvas.text(x, y + 4, format_text("%g s", t), faint, 11, 0.5);
    }
    return y + 26;
}

// Silence is white, 0 dB dark.
double draw_matrix(Canvas& canvas, double y, const Matrix& matrix) {
    canvas.text(margin, y + 8, "Matrix", ink, 13, 0, true);
    canvas.text(plot_left, y + 8, "gains in dB, from each column's speaker to each row's", faint, 11);
    y += 34;
    for (size_t i = 0; i < matrix.inputs.size(); i++)
        canvas.text(plot_left + cell_width * (static_cast<double>(i) + 0.5), y, speaker_name(matrix.inputs[i]), ink, 12,
                    0.5);
    y += 12;
    for (size_t o = 0; o < matrix.outputs.size(); o++) {
        canvas.text(plot_left - 10, y + cell_height / 2, speaker_name(matrix.outputs[o]), ink, 12, 1);
        for (size_t i = 0; i < matrix.inputs.size(); i++) {
            const double x = plot_left + cell_width * static_cast<double>(i), db = in_db(std::fabs(matrix.gain[o][i]));
            const double shade = std::isfinite(db) ? std::clamp(0.95 + db / 25, 0.12, 1.0) : 0.0;
            const Colour fill{1 - shade * (1 - before.red), 1 - shade * (1 - before.green),
                              1 - shade * (1 - before.blue)};
            canvas.box(x + 1, y + 1, cell_width - 2, cell_height - 2, shade > 0 ? fill : lane_paper);
            if (shade > 0)
                canvas.text(x + cell_width / 2, y + cell_height / 2, db_text(db), shade > 0.55 ? paper : ink, 12, 0.5);
        }
        y += cell_height;
    }
    return y;
}

void draw(Canvas& canvas, double height, const Conversion& c, const Envelope* gain_reduction) {
    canvas.box(0, 0, width, height, paper);
    const auto name = [](const std::string& path) {
        return path == "-" ? std::string("pipe") : std::filesystem::path(path).filename().string();
    };
    canvas.text(margin, 30, name(c.input) + "  \u2192  " + name(c.output), ink, 17, 0, true);
    canvas.text(margin, 52,
                format_text("%zu channels to %zu, %u Hz, %.2f s", c.input_map.size(), c.output_map.size(),
                            c.sample_rate, static_cast<double>(c.frames) / c.sample_rate),
                faint, 12);
    double y = 78;
    y = draw_lanes(canvas, y, "Before", c.input_map, c.input_levels, c.input_envelope, c.frames, before);
    y = draw_lanes(canvas, y, "After", c.output_map, c.output_levels, c.output_envelope, c.frames, after);
    if (gain_reduction)
        y = draw_reduction(canvas, y, *gain_reduction, c.frames);
    y = draw_time(canvas, y, c.frames, c.sample_rate);
    draw_matrix(canvas, y, c.matrix);
}

} // namespace

void check_plot(const std::string& path) {
    if (!ends_in(path, ".png") && !ends_in(path, ".svg"))
        throw Error(Status::usage, "--plot " + path + ": pictures are .png or .svg");
}

void plot(const std::string& path, const Conversion& c, const Envelope* gain_reduction) {
    const double height = 78 + lanes_height(c.input_map.size()) + lanes_height(c.output_map.size()) +
                          (gain_reduction ? 24 + reduction_height + 14 : 0) + 26 + matrix_height(c.matrix) + 10;
    const bool is_png = ends_in(path, ".png");
    constexpr double scale = 1.5; // pixels a unit
    const std::shared_ptr<cairo_surface_t> surface(is_png ? cairo_image_surface_create(CAIRO_FORMAT_RGB24,
                                                                                       static_cast<int>(width * scale),
                                                                                       static_cast<int>(height * scale))
                                                          : cairo_svg_surface_create(path.c_str(), width, height),
                                                   cairo_surface_destroy);
    if (is_png)
        cairo_surface_set_device_scale(surface.get(), scale, scale);
    {
        Canvas canvas(surface.get());
        draw(canvas, height, c, gain_reduction);
    }
    cairo_status_t status = CAIRO_STATUS_SUCCESS;
    if (is_png)
        status = cairo_surface_write_to_png(surface.get(), path.c_str());
    else
        cairo_surface_finish(surface.get());
    if (status == CAIRO_STATUS_SUCCESS)
        status = cairo_surface_status(surface.get());
    if (status != CAIRO_STATUS_SUCCESS)
        throw Error(Status::output, "cannot write " + path + ": " + cairo_status_to_string(status));
}

#else

void check_plot(const std::string&) {
    throw Error(Status::usage, "this korla-host is built without cairo (Debian: libcairo2-dev), which draws pictures; "
                               "leave out --plot");
}
void plot(const std::string&, const Conversion&, const Envelope*) {}

#endif

} // namespace host
