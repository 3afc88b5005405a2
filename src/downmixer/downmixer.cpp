// Configuration: from a channel map to a state in the caller's memory.
#include "korla/downmixer.h"

#include "downmixer/engine.h"
#include "downmixer/gains.h"
#include "downmixer/matrices.h"
#include "downmixer/state.h"
#include "dsp/core/align.h"
#include "korla/diag.h"

using namespace korla::downmixer;

namespace {

constexpr uint32_t subblock_length = tile_frames; // the engine mixes and limits tile by tile
constexpr float limiter_boost = 0x1.41857ep-7f;   // +8 dB on the limiter's scale of 1/256
constexpr size_t alignment = 32;

// The line numbers identify the records to hosts that parse them; they are not those of this file.
constexpr const char* log_file = "downmixer";
enum LogLine : int32_t { log_speakers_mask = 575, log_downmix_mode = 582, log_not_supported = 1056 };

LayoutMatrix known_matrix(SpeakerSet inputs) {
    const LayoutMatrix matrix = automatic_matrix(inputs);
    if (!matrix.gains)
        kpf_log(KPF_LOG_ERROR, log_file, log_not_supported, "Not supported input channel configuration");
    return matrix;
}

bool is_usable(const Speakers& speakers, uint32_t num_out) {
    return speakers.set != SpeakerSet{} && speakers.count <= max_inputs && num_out > 0 && num_out <= max_outputs;
}

// The placement of everything behind the aligned start of the caller's memory: state, both work buffers (aligned, since
// a block is a multiple of 32 frames), the rows' input sets, the limiter.
struct Placement {
    size_t in, out, used_inputs, limiter;
    Placement(size_t block, size_t inputs, size_t outputs) {
        in = (sizeof(korvex_downmixer_state) + alignment - 1) & ~(alignment - 1);
        out = in + sizeof(float) * inputs * block;
        used_inputs = out + sizeof(float) * outputs * block;
        limiter = used_inputs + sizeof(uint16_t) * outputs;
    }
};

// The size that callers were promised: work buffers for both sides and one scratch channel, pointers, a fixed part.
uint64_t promised_bytes(uint64_t block, uint64_t inputs, uint64_t outputs) {
    return 8 * outputs + 4 * (inputs * block + block * outputs + block) + 233 + 8 * inputs +
           korvex_ht_kvlim_query_memory(static_cast<uint32_t>(outputs), nullptr, nullptr, subblock_length) +
           8 * outputs + 14;
}
// A placement grows with block, inputs and outputs by no more than the promise, so it fits if the fixed part does.
static_assert(sizeof(korvex_downmixer_state) + 2 * (alignment - 1) <= 233 + 14);

} // namespace

int32_t korvex_downmixer_get_num_of_out_channels(const uint8_t* codes, uint32_t* num_out) {
    const Speakers speakers = speakers_of(codes);
    if (speakers.set == SpeakerSet{}) {
        kpf_log(KPF_LOG_ERROR, log_file, log_speakers_mask, "Calling get_speakers_mask failed");
        return -1;
    }
    const LayoutMatrix matrix = known_matrix(speakers.set);
    *num_out = matrix.outputs.count();
    if (!matrix.gains) {
        kpf_log(KPF_LOG_ERROR, log_file, log_downmix_mode, "Calling calculate_proper_downmix_mode failed");
        return -1;
    }
    return 0;
}

void korvex_downmixer_mem(uint32_t block, const uint8_t* codes, uint32_t num_out, uint64_t* size) {
    const Speakers speakers = speakers_of(codes);
    *size = is_usable(speakers, num_out) ? promised_bytes(block, speakers.count, num_out) : 0;
}

korvex_downmixer_state* korvex_downmixer_init(uint32_t block, uint64_t sample_rate, const uint8_t* codes,
                                              uint32_t num_out, const float* matrix, void* mem) {
    if (!mem)
        return nullptr;
    const Speakers speakers = speakers_of(codes);
    if (!is_usable(speakers, num_out))
        return nullptr;
    uint32_t outputs = num_out;
    if (!matrix) {
        const LayoutMatrix built_in = known_matrix(speakers.set);
        outputs = built_in.outputs.count();
        // The memory was sized for num_out; repeated codes can add up to a layout of fewer channels than the map has.
        if (!built_in.gains || outputs > num_out || built_in.inputs.count() != speakers.count)
            return nullptr;
        matrix = built_in.gains;
    }
    if (block % subblock_length != 0)
        return nullptr;

    char* base = krl::align_up<char>(mem, alignment);
    const Placement at(block, speakers.count, outputs);
    auto* state = reinterpret_cast<korvex_downmixer_state*>(base);
    auto* used_inputs = reinterpret_cast<uint16_t*>(base + at.used_inputs);
    find_used_inputs(used_inputs, matrix, outputs, speakers.count);
    state->matrix = {matrix, used_inputs, outputs, speakers.count};
    state->is_routing = find_routes(state->routes, state->matrix);
    state->block = block;
    state->in = {reinterpret_cast<float*>(base + at.in), block};
    state->out = {reinterpret_cast<float*>(base + at.out), block};

    korvex_ht_kvlim* limiter = korvex_ht_kvlim_init(outputs, subblock_length, base + at.limiter, nullptr);
    korvex_ht_kvlim_set_peak(limiter, korla::gain_minus_8_db);
    korvex_ht_kvlim_set_boost(limiter, limiter_boost, limiter_boost);
    korvex_ht_kvlim_set_sample_rate(limiter, static_cast<uint32_t>(sample_rate)); // refused rates leave it at rest
    korvex_ht_kvlim_set_block_size(limiter, block);
    korvex_ht_kvlim_set_num_channels(limiter, outputs);
    korvex_ht_kvlim_set_enable(limiter, 1);
    state->limiter = limiter;
    return state;
}

uint32_t korvex_downmixer_get_latency(const korvex_downmixer_state* state) {
    return state && state->limiter ? korvex_ht_kvlim_get_latency(state->limiter) : 0;
}

uint32_t korla::downmixer::input_count(const korvex_downmixer_state& state) { return state.matrix.inputs; }
