// Asking the module about itself and about every layout.
#include "listing.h"

#include <korla/speakers.h>

#include <algorithm>
#include <filesystem>

#include "error.h"
#include "measure.h"

namespace host {

ModuleInfo info(const Module& module) {
    const acli_descriptor& acli = module.acli();
    ModuleInfo result;
    result.library = module.path();
    result.magic.assign(acli.magic, sizeof acli.magic);
    result.name = acli.name ? acli.name : "";
    result.vendor = acli.vendor ? acli.vendor : "";
    result.interface_version = acli.interface_version;
    std::error_code ignored;
    result.library_bytes = std::filesystem::file_size(module.path(), ignored);
    char* copy = nullptr;
    acli.get_name(1, &copy);
    result.reported_name = copy ? copy : "";
    acli.free_name(copy);
    return result;
}

namespace {

std::vector<LayoutListing::Named> named_layouts() {
    std::vector<korla_layout> layouts;
    std::vector<LayoutListing::Named> result;
    korla_layout layout;
    for (uint32_t i = 0; const char* name = korla_layout_at(i, &layout); i++) {
        layouts.push_back(layout);
        result.push_back({name, {layout.speakers, layout.speakers + layout.count}, {}});
    }
    float gains[KORLA_MAX_SPEAKERS * KORLA_MAX_SPEAKERS];
    for (size_t from = 0; from < layouts.size(); from++)
        for (const korla_layout& to : layouts) {
            uint32_t& source = result[from].sources.emplace_back();
            if (korla_layout_matrix(&layouts[from], &to, gains, &source, nullptr, 0) != KORLA_OK)
                throw Error(Status::processing, "a named layout has no matrix: " + result[from].name);
        }
    return result;
}

} // namespace

LayoutListing layouts(const Module& module) {
    LayoutListing result;
    Stream stream(module);
    for (uint32_t index = 0; index < layout_count; index++) {
        const StreamFormat from_7_1{parse_map("FL,FR,FC,LFE,SL,SR,BL,BR"), 48000, SampleFormat::f32, false, index};
        const auto output = stream.probe(from_7_1);
        if (!output)
            throw Error(Status::processing, "the module refuses layout index " + std::to_string(index));
        const bool same = output->map == from_7_1.input;
        result.outputs.push_back({index, *output, same || !measure(module, from_7_1).pass_through});
    }
    for (const ChannelMap& input : candidate_inputs())
        if (const auto output = stream.probe({input, 48000, SampleFormat::f32, false, std::nullopt}))
            result.automatic.push_back({input, output->map});
    std::stable_sort(result.automatic.begin(), result.automatic.end(),
                     [](auto& a, auto& b) { return a.output.size() < b.output.size(); });
    result.named = named_layouts();
    return result;
}

} // namespace host
