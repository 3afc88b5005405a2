// Reports as text and as JSON.
#include "report.h"

#include <algorithm>
#include <nlohmann/json.hpp>

#include "text.h"

namespace host {
namespace {

using Json = nlohmann::ordered_json;

std::string dump(const Json& document) { return document.dump(2, ' ', false, Json::error_handler_t::replace) + "\n"; }

// -inf has no JSON number.
Json number(double value) { return std::isfinite(value) ? Json(value) : Json(nullptr); }

Json names(const ChannelMap& map) {
    Json list = Json::array();
    for (uint32_t code : map)
        list.push_back(speaker_name(code));
    return list;
}

Json levels_json(const ChannelMap& map, const std::vector<Level>& levels) {
    Json list = Json::array();
    for (size_t c = 0; c < map.size(); c++)
        list.push_back({{"channel", speaker_name(map[c])},
                        {"peak_dbfs", number(decibels(levels[c].peak))},
                        {"rms_dbfs", number(decibels(levels[c].rms))},
                        {"above_full_scale", levels[c].over}});
    for (size_t c = 0; c < map.size(); c++)
        if (levels[c].true_peak)
            list[c]["true_peak_dbtp"] = number(decibels(*levels[c].true_peak));
    return list;
}

std::string level_text(double level) { return level > 0.0 ? format_text("%8.1f", decibels(level)) : "    -inf"; }

std::string levels_text(const char* title, const ChannelMap& map, const std::vector<Level>& levels) {
    std::string head = format_text("%-14s", title), peak = format_text("%-14s", "  peak dBFS"),
                rms = format_text("%-14s", "  RMS dBFS"), over = format_text("%-14s", "  above 0 dBFS"),
                true_peak = format_text("%-14s", "  true peak");
    bool any_over = false, any_true = false;
    for (size_t c = 0; c < map.size(); c++) {
        head += format_text("%8s", speaker_name(map[c]).c_str());
        peak += level_text(levels[c].peak);
        rms += level_text(levels[c].rms);
        over += format_text("%8llu", static_cast<unsigned long long>(levels[c].over));
        any_over = any_over || levels[c].over > 0;
        if (levels[c].true_peak)
            true_peak += level_text(*levels[c].true_peak);
        any_true = any_true || levels[c].true_peak;
    }
    return head + "\n" + peak + "\n" + (any_true ? true_peak + "\n" : "") + rms + "\n" + (any_over ? over + "\n" : "");
}

std::string matrix_text(const Matrix& matrix, const char* title) {
    std::string text = std::string(title) + "\n  out \\ in    ";
    for (uint32_t code : matrix.inputs)
        text += format_text("%8s", speaker_name(code).c_str());
    text += "  |    sum\n";
    for (size_t o = 0; o < matrix.gain.size(); o++) {
        text += format_text("  %-12s", speaker_name(matrix.outputs[o]).c_str());
        for (double g : matrix.gain[o])
            text += g == 0.0 ? "       ." : format_text("%8.1f", decibels(std::fabs(g)) + 0.0);
        text += format_text("  |%s\n", level_text(matrix.row_sum(o)).c_str() + 1);
    }
    return text;
}

double real_time_factor(const Conversion& r, double seconds) {
    return seconds > 0.0 ? static_cast<double>(r.frames) / r.sample_rate / seconds : 0.0;
}

std::string requested_layout(const StreamFormat& stream) {
    return stream.layout ? layout_names[*stream.layout] : "automatic";
}

std::string input_text(const Conversion& r) {
    return format_text("Input         %s: %s, %u Hz, %zu channels, %llu frames (%.2f s)\n", r.input.c_str(),
                       r.input_format.c_str(), r.sample_rate, r.input_map.size(),
                       static_cast<unsigned long long>(r.frames), static_cast<double>(r.frames) / r.sample_rate) +
           "  file order  " + speaker_names(r.input_map) + "\n";
}

std::string output_text(const Conversion& r, const std::string& layout) {
    return format_text("Output        %s: %s%s, layout %s\n  file order  %s  (mask 0x%X)\n", r.output.c_str(),
                       r.output_format.c_str(), r.dithered ? ", dithered" : "", layout.c_str(),
                       speaker_names(r.output_map).c_str(), r.output_mask);
}

std::string stream_text(const RunReport& r) {
    std::string text = input_text(r);
    text += "  sent as     " + speaker_names(r.matrix.inputs) +
            (r.input_map != r.matrix.inputs ? "  (reordered, as the matrices expect)\n" : "\n");
    text += format_text("  stream      %s, %s, %zu frames a call\n", format_name(r.samples),
                        r.stream.planar ? "planar" : "interleaved", r.block_frames);
    text += output_text(r, requested_layout(r.stream));
    text += format_text("Pass-through  %s\n", r.pass_through ? "yes" : "no");
    return text + format_text("Latency       %u samples (%.2f ms)%s\n", r.latency_frames,
                              r.latency_frames * 1000.0 / r.sample_rate, r.latency_frames ? ", removed" : "");
}

// What happens to the loudest sum that the matrix can make.
std::string worst_case_text(const RunReport& r) {
    const size_t worst = r.matrix.worst_row();
    std::string text =
        format_text("Worst case    %+.1f dB in %s when all inputs agree", decibels(r.matrix.row_sum(worst)) + 0.0,
                    speaker_name(r.matrix.outputs[worst]).c_str());
    if (r.matrix.row_sum(worst) <= 1.001)
        return text + "\n";
    if (r.limiter_works)
        return text + "; the limiter takes what exceeds full scale\n";
    return text + format_text("; nothing limits at %u Hz, what exceeds full scale is %s\n", r.sample_rate,
                              r.integer_output ? "clipped" : "kept");
}

std::string speed_text(const Conversion& r, const char* where) {
    if (r.frames == 0)
        return "";
    return format_text("\nSpeed         %.0f times real time in the %s (%.2f ns a frame), %.0f times with the files\n",
                       real_time_factor(r, r.process_seconds), where,
                       r.process_seconds * 1e9 / static_cast<double>(r.frames), real_time_factor(r, r.total_seconds));
}

const char* describe(const MixReport& r) {
    return r.copies                                 ? "samples are copied"
           : r.matrix_source == KORLA_MATRIX_MODULE ? "the downmix module's"
                                                    : "derived by rule";
}

Json matrix_json(const Matrix& m) {
    Json matrix = Json::array();
    for (size_t o = 0; o < m.gain.size(); o++) {
        Json row = {{"output", speaker_name(m.outputs[o])},
                    {"sum_db", number(decibels(m.row_sum(o)))},
                    {"gain", m.gain[o]},
                    {"gain_db", Json::array()}};
        for (double g : m.gain[o])
            row["gain_db"].push_back(number(decibels(std::fabs(g))));
        matrix.push_back(row);
    }
    return matrix;
}

Json placement_json(const Placement& placement) {
    Json moved = Json::array();
    for (const Placement::Moved& m : placement.moved)
        moved.push_back({{"channel", speaker_name(m.speaker)}, {"heard_from", names(m.heard_from)}});
    return {{"lost", names(placement.lost)}, {"misplaced", moved}};
}

Json stream_json(const RunReport& r) {
    return {{"sample_rate", r.sample_rate},
            {"frames", r.frames},
            {"samples", format_name(r.samples)},
            {"planar", r.stream.planar},
            {"block_frames", r.block_frames},
            {"layout", requested_layout(r.stream)},
            {"input_channels", names(r.matrix.inputs)},
            {"output_channels", names(r.matrix.outputs)}};
}

Json speed_json(const Conversion& r, const char* seconds) {
    return {{seconds, r.process_seconds},
            {"total_seconds", r.total_seconds},
            {"real_time_factor", real_time_factor(r, r.process_seconds)},
            {"real_time_factor_with_files", real_time_factor(r, r.total_seconds)}};
}

Json input_json(const Conversion& r) {
    return {{"path", r.input}, {"format", r.input_format}, {"channels", names(r.input_map)}};
}

Json output_json(const Conversion& r) {
    return {{"path", r.output},
            {"format", r.output_format},
            {"dithered", r.dithered},
            {"channels", names(r.output_map)},
            {"channel_mask", r.output_mask}};
}

Json all_levels_json(const Conversion& r) {
    return {{"input", levels_json(r.input_map, r.input_levels)},
            {"output", levels_json(r.output_map, r.output_levels)}};
}

std::string levels_and_notices(const Conversion& r, const char* where) {
    std::string text = levels_text("Input", r.input_map, r.input_levels) +
                       levels_text("Output", r.output_map, r.output_levels) + speed_text(r, where);
    for (const std::string& notice : r.notices)
        text += "Note          " + notice + "\n";
    return text;
}

} // namespace

std::string text(const RunReport& r) {
    return stream_text(r) + "\n" +
           matrix_text(r.matrix, "Matrix in dB, measured through the module (make-up gain included)") +
           worst_case_text(r) + "\n" + levels_and_notices(r, "module");
}

std::string json(const RunReport& r) {
    const size_t worst = r.matrix.worst_row();
    return dump({
        {"library", r.library},
        {"input", input_json(r)},
        {"output", output_json(r)},
        {"stream", stream_json(r)},
        {"pass_through", r.pass_through},
        {"limiter_works", r.limiter_works},
        {"latency", {{"frames", r.latency_frames}, {"ms", r.latency_frames * 1000.0 / r.sample_rate}}},
        {"matrix", matrix_json(r.matrix)},
        {"worst_case",
         {{"output", speaker_name(r.matrix.outputs[worst])}, {"gain_db", number(decibels(r.matrix.row_sum(worst)))}}},
        {"speakers", placement_json(r.placement)},
        {"levels", all_levels_json(r)},
        {"clipped_on_reading", r.clipped_on_reading},
        {"speed", speed_json(r, "module_seconds")},
        {"notices", r.notices},
    });
}

std::string text(const MixReport& r) {
    std::string text = input_text(r) + format_text("  layout      %s\n", r.from_name.c_str()) +
                       format_text("  stream      %s, %zu frames a call\n", format_name(r.samples), r.block_frames) +
                       output_text(r, r.to_name) + "Controls      ";
    for (size_t i = 0; i < level_controls.size(); i++)
        if (r.controls[i])
            text += std::isfinite(*r.controls[i]) ? format_text("%s %+.1f dB, ", level_controls[i].name, *r.controls[i])
                                                  : format_text("%s off, ", level_controls[i].name);
    text += format_text("limiter %s\n\n", r.copies ? "not needed" : r.limiter ? "on" : "off");
    text += matrix_text(r.matrix, format_text("Matrix in dB, controls included: %s", describe(r)).c_str());
    return text + format_text("Limiter       greatest gain reduction %.1f dB\n\n", r.gain_reduction_db) +
           levels_and_notices(r, "stream");
}

std::string json(const MixReport& r) {
    Json set = Json::object();
    for (size_t i = 0; i < level_controls.size(); i++)
        if (r.controls[i])
            set[std::string(level_controls[i].name) + "_db"] = number(*r.controls[i]);
    set["limiter"] = r.limiter;
    return dump({
        {"input", input_json(r)},
        {"output", output_json(r)},
        {"stream",
         {{"sample_rate", r.sample_rate},
          {"frames", r.frames},
          {"samples", format_name(r.samples)},
          {"block_frames", r.block_frames},
          {"input_layout", r.from_name},
          {"output_layout", r.to_name}}},
        {"copies", r.copies},
        {"controls", set},
        {"matrix_source", source_name(r.matrix_source)},
        {"matrix", matrix_json(r.matrix)},
        {"gain_reduction_db", number(r.gain_reduction_db)},
        {"levels", all_levels_json(r)},
        {"clipped_on_reading", r.clipped_on_reading},
        {"silenced", r.silenced},
        {"speed", speed_json(r, "stream_seconds")},
        {"notices", r.notices},
    });
}

std::string text(const ModuleInfo& i) {
    return format_text("Library            %s (%llu bytes)\nMagic              %s\nInterface version  0x%08x\n"
                       "Name               %s\nVendor             %s\nReports itself as  %s\n",
                       i.library.c_str(), static_cast<unsigned long long>(i.library_bytes), i.magic.c_str(),
                       i.interface_version, i.name.c_str(), i.vendor.c_str(), i.reported_name.c_str());
}

std::string json(const ModuleInfo& i) {
    return dump({{"library", i.library},
                 {"library_bytes", i.library_bytes},
                 {"magic", i.magic},
                 {"interface_version", i.interface_version},
                 {"name", i.name},
                 {"vendor", i.vendor},
                 {"reported_name", i.reported_name}});
}

namespace {

// A grid: a row for each layout of the input, a column for each of the output.
std::string named_text(const std::vector<LayoutListing::Named>& named) {
    std::string text =
        format_text("\nLayouts of mix (--to NAME, or a list of speakers): %zu, from each row to each column\n"
                    "  =  the same speakers: copied   m  the module's matrix   .  a derived one\n",
                    named.size());
    for (const size_t place : {10, 1}) {
        text += "                   ";
        for (size_t column = 0; column < named.size(); column++)
            text += place == 10 && column % 10 != 0 ? ' ' : static_cast<char>('0' + column / place % 10);
        text += '\n';
    }
    for (size_t row = 0; row < named.size(); row++) {
        text += format_text("  %2zu %-13s ", row, named[row].name.c_str());
        for (size_t column = 0; column < named.size(); column++)
            text += row == column ? '=' : named[row].sources[column] == KORLA_MATRIX_MODULE ? 'm' : '.';
        text += "  " + speaker_names(named[row].speakers) + "\n";
    }
    return text;
}

Json named_json(const std::vector<LayoutListing::Named>& named) {
    Json list = Json::array();
    for (const auto& from : named) {
        Json to = Json::object();
        for (size_t i = 0; i < named.size(); i++)
            to[named[i].name] = source_name(from.sources[i]);
        list.push_back({{"name", from.name}, {"channels", names(from.speakers)}, {"matrix_sources", to}});
    }
    return list;
}

} // namespace

std::string text(const LayoutListing& listing) {
    std::string text = "Output layouts (--layout NAME or INDEX)\n  index  name   mask     channels\n";
    for (const auto& o : listing.outputs)
        text += format_text("  %5u  %-6s 0x%-6X %s%s\n", o.index, layout_names[o.index], o.output.layout_mask,
                            speaker_names(o.output.map).c_str(),
                            o.mixed_from_7_1 ? "" : "  (no matrix: frames are copied)");
    text += format_text("\nInputs of the automatic layout (--layout auto): %zu\n", listing.automatic.size());
    for (const auto& a : listing.automatic)
        text += format_text("  %-48s -> %s\n", speaker_names(a.input).c_str(),
                            a.input == a.output ? "copied" : speaker_names(a.output).c_str());
    return text + named_text(listing.named);
}

std::string json(const LayoutListing& listing) {
    Json outputs = Json::array(), automatic = Json::array();
    for (const auto& o : listing.outputs)
        outputs.push_back({{"index", o.index},
                           {"name", layout_names[o.index]},
                           {"layout_mask", o.output.layout_mask},
                           {"channels", names(o.output.map)},
                           {"mixed_from_7_1", o.mixed_from_7_1}});
    for (const auto& a : listing.automatic)
        automatic.push_back({{"input", names(a.input)}, {"output", names(a.output)}});
    return dump({{"outputs", outputs}, {"automatic", automatic}, {"named", named_json(listing.named)}});
}

std::string text(const BenchReport& r) {
    std::string text = format_text("%s -> %s at %u Hz, ns a frame (best call)\n", speaker_names(r.input).c_str(),
                                   speaker_names(r.output).c_str(), r.sample_rate);
    const size_t blocks = static_cast<size_t>(std::count_if(r.rows.begin(), r.rows.end(), [&](auto& row) {
        return row.samples == r.rows[0].samples && row.planar == r.rows[0].planar;
    }));
    text += "  frames a call    ";
    for (size_t b = 0; b < blocks; b++)
        text += format_text("%9zu", r.rows[b].block_frames);
    for (size_t i = 0; i < r.rows.size(); i++) {
        if (i % blocks == 0)
            text += format_text("\n  %s %-12s ", format_name(r.rows[i].samples),
                                r.rows[i].planar ? "planar" : "interleaved");
        text += format_text("%9.2f", r.rows[i].ns_per_frame);
    }
    return text + "\n";
}

std::string json(const BenchReport& r) {
    Json rows = Json::array();
    for (const auto& row : r.rows)
        rows.push_back({{"samples", format_name(row.samples)},
                        {"planar", row.planar},
                        {"block_frames", row.block_frames},
                        {"ns_per_frame", row.ns_per_frame}});
    return dump({{"library", r.library},
                 {"input_channels", names(r.input)},
                 {"output_channels", names(r.output)},
                 {"sample_rate", r.sample_rate},
                 {"rows", rows}});
}

} // namespace host
