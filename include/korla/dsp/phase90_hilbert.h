/* A 90-degree phase shifter for one channel, in blocks.
 *
 * Every output sample is the signal of 1280 samples earlier, delayed in phase by 90 degrees: within 2.3 degrees over
 * 20 Hz .. 24 kHz at a rate of 48 kHz, with unit gain (-0.65 dB at 50 Hz, -3 dB at 20 Hz, zero at 0 Hz; the same
 * mirrored at half the rate). Beside a copy delayed by 1280 samples it is the imaginary part of the analytic signal.
 *
 * Method. Two chains of all-pass sections in z^-2 work as a polyphase pair: one forward in time over each new block,
 * one backward in time over the block and the 1280 samples behind it, where it rings before the main lobe. Their
 * phases cancel but for the quarter turn. The backward chain starts from an estimate of the future made of the
 * forward chain's state; what is left of a step between two blocks is faded out over the block. (On recursive Hilbert
 * transformers: R. Ansari, "IIR discrete-time Hilbert transformers", IEEE Trans. ASSP 35 (1987); on running a section
 * backward in time: S. Powell and P. Chau, "A technique for realizing linear phase IIR filters", IEEE Trans. SP 39
 * (1991).)
 *
 * All functions return 0, or 2 for a block length other than 512, 1024 or 2048 and for a null or misaligned pointer;
 * then nothing is changed but the outputs named. Nothing is allocated. An infinite or NaN sample stays in the states
 * until reset_Phase90Hilbert. One instance serves one thread at a time.
 */
#ifndef KORLA_DSP_PHASE90_HILBERT_H
#define KORLA_DSP_PHASE90_HILBERT_H

#include <korla/dsp/types.h>

KRL_BEGIN_DECLS

/** Samples of history, which is also the delay of the output. */
#define KRL_PHASE90_DELAY 1280

/** The instance, 104 bytes on 64-bit targets. Pairs hold one value per sample phase, even and odd. The fields are for
 * reading only. */
typedef struct Phase90Hilbert {
    float backward[4][2];       /**< all-pass chain: input, outputs of its sections; as the last block left them */
    float forward[5][2];        /**< scaled input of the high-pass, its output, outputs of the all-pass sections */
    uint16_t block_length;      /**< N: 512, 1024 or 2048 */
    float boundary;             /**< what the first output sample of the next block will be */
    float inverse_block_length; /**< 1/N */
    float* history;             /**< KRL_PHASE90_DELAY floats: forward-filtered signal before the block */
    float* work;                /**< N + KRL_PHASE90_DELAY floats */
} Phase90Hilbert;

/** Sizes in bytes of the three memory blocks for block length N: 104, (N + 1280) * 4 and 5120.
 *
 * For an unsupported N all three are set to 0. Null outputs are refused (2); the others are then set to 0.
 */
KRL_API int32_t getRequiredBufferSize_Phase90Hilbert(uint32_t block_length, size_t* instance_bytes, size_t* work_bytes,
                                                     size_t* history_bytes);

/** Places an instance in caller memory: instance (aligned for a pointer), work and history of the sizes asked for,
 * which must not overlap and must live as long as the instance. States and history are zeroed.
 *
 * *handle receives the instance, or null when the call is refused.
 */
KRL_API int32_t init_Phase90Hilbert(Phase90Hilbert** handle, uint32_t block_length, void* instance, float* work,
                                    float* history);

/** Replaces N samples by the phase-shifted signal of 1280 samples earlier. samples: N floats, any float alignment,
 * apart from the instance's memory.
 *
 * The first output sample equals what the former block left for it (0 after init and reset).
 */
KRL_API int32_t process_Phase90Hilbert(Phase90Hilbert* instance, float* samples);

/** Silence: zeroes the states of both chains, the boundary value and the history. N stays. */
KRL_API int32_t reset_Phase90Hilbert(Phase90Hilbert* instance);

KRL_END_DECLS

#endif
