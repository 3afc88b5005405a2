/* Complex fast Fourier transforms of fixed lengths, and a small state that binds a length to its kernels.
 *
 * Data. A complex sample is two floats, real part first; a complex vector of N samples is 2N consecutive floats, and no
 * buffer needs more than the alignment of a float.
 *
 * Transforms. Forward transforms sum in[n] * e^(-2*pi*i*n*k/N), inverse ones in[n] * e^(+2*pi*i*n*k/N), over
 * n = 0..N-1, and give bin k = 0..N-1 in natural order. Unscaled transforms apply no factor; scaled ones multiply by
 * 1/N, in both directions alike: scaled forward then unscaled inverse, or unscaled forward then scaled inverse, gives
 * back the input.
 *
 * Lengths. Powers of two 2..4096 and mixed lengths 2^a * 3^b * 5^c from 6 to 960. The lists below name them all.
 *
 * Names. Every function of one length comes from a macro that is expanded for each length N of a list:
 *
 *   KRL_r4_fft_N, KRL_r4_inv_fft_N, ..., _s     "kernels" below                          KRL_FFT_DECLARE_KERNELS(r4, N)
 *   KRL_r8_fft_N, KRL_r8_inv_fft_N, ..., _s     "kernels" below                          KRL_FFT_DECLARE_KERNELS(r8, N)
 *   krl_fft_fwd_scl_N, ..., krl_fft_inv_usc_N   "per-length entries" below               KRL_FFT_DECLARE_ENTRIES(N)
 *
 * Accuracy. The root-mean-square error relative to the root mean square of the result stays below 2e-7 for powers of
 * two and for all radix-8 kernels. The mixed-length radix-4 kernels use twiddle factors rounded to six decimals: below
 * 1e-6.
 *
 * Everything here is reentrant: no allocation, no global state, tables are read-only. Calls that run at the same time
 * need buffers of their own.
 *
 * Method. Mixed-radix decimation in time (J. W. Cooley, J. W. Tukey, "An algorithm for the machine calculation of
 * complex Fourier series", 1965) in the self-sorting form of T. G. Stockham, "High-speed convolution and correlation",
 * 1966, which alternates between two buffers and needs no bit reversal. See also C. Van Loan, "Computational Frameworks
 * for the Fast Fourier Transform", SIAM 1992, chapters 1.7 and 2.
 */
#ifndef KORLA_DSP_FFT_H
#define KORLA_DSP_FFT_H

#include <korla/dsp/types.h>

KRL_BEGIN_DECLS

/* ---- lengths -------------------------------------------------------------------------------------------------------
 *
 * X-macros over the lengths, each in ascending order: KRL_FFT_POWERS_OF_TWO(X) expands to X(2) X(4) ... X(4096). All
 * names, counts, tables and searches of the library come from these lists. The mixed lengths are listed in parts,
 * because the library compiles its kernels in as many files.
 */

/** Powers of two that have radix-4 kernels and per-length entries. */
#define KRL_FFT_ENTRY_POWERS_OF_TWO(X) X(2) X(4) X(8) X(16) X(32) X(64) X(128) X(256) X(512) X(1024) X(2048)
/** Powers of two that have radix-4 kernels. */
#define KRL_FFT_POWERS_OF_TWO(X) KRL_FFT_ENTRY_POWERS_OF_TWO(X) X(4096)
/** Powers of two that have radix-8 kernels. */
#define KRL_FFT_RADIX8_POWERS_OF_TWO(X) X(64) X(128) X(256) X(512) X(1024) X(2048) X(4096)

/* clang-format off */
#define KRL_FFT_MIXED_LENGTHS_FROM_6(X) X(6) X(12) X(15) X(20) X(24) X(30) X(36) X(40) X(45) X(48) X(60) X(72)
#define KRL_FFT_MIXED_LENGTHS_FROM_80(X) X(80) X(90) X(96)
#define KRL_FFT_MIXED_LENGTHS_FROM_120(X) X(120) X(144) X(160)
#define KRL_FFT_MIXED_LENGTHS_FROM_180(X) X(180) X(192)
#define KRL_FFT_MIXED_LENGTHS_FROM_240(X) X(240) X(288) X(320) X(360)
#define KRL_FFT_MIXED_LENGTHS_FROM_384(X) X(384) X(480)
#define KRL_FFT_MIXED_LENGTHS_FROM_576(X) X(576) X(640)
#define KRL_FFT_MIXED_LENGTHS_FROM_720(X) X(720) X(768) X(960)
/* clang-format on */
/** Mixed lengths, 2^a * 3^b * 5^c with b + c >= 1; all have radix-4 kernels and per-length entries. */
#define KRL_FFT_MIXED_LENGTHS(X)                                                                                       \
    KRL_FFT_MIXED_LENGTHS_FROM_6(X)                                                                                    \
    KRL_FFT_MIXED_LENGTHS_FROM_80(X)                                                                                   \
    KRL_FFT_MIXED_LENGTHS_FROM_120(X)                                                                                  \
    KRL_FFT_MIXED_LENGTHS_FROM_180(X)                                                                                  \
    KRL_FFT_MIXED_LENGTHS_FROM_240(X)                                                                                  \
    KRL_FFT_MIXED_LENGTHS_FROM_384(X)                                                                                  \
    KRL_FFT_MIXED_LENGTHS_FROM_576(X)                                                                                  \
    KRL_FFT_MIXED_LENGTHS_FROM_720(X)

#define KRL_FFT_RADIX8_MIXED_LENGTHS_FROM_144(X) X(144) X(192)
#define KRL_FFT_RADIX8_MIXED_LENGTHS_FROM_240(X) X(240) X(320) X(384)
#define KRL_FFT_RADIX8_MIXED_LENGTHS_FROM_576(X) X(576) X(720)
#define KRL_FFT_RADIX8_MIXED_LENGTHS_FROM_768(X) X(768) X(960)
/** Mixed lengths that have radix-8 kernels. */
#define KRL_FFT_RADIX8_MIXED_LENGTHS(X)                                                                                \
    KRL_FFT_RADIX8_MIXED_LENGTHS_FROM_144(X)                                                                           \
    KRL_FFT_RADIX8_MIXED_LENGTHS_FROM_240(X)                                                                           \
    KRL_FFT_RADIX8_MIXED_LENGTHS_FROM_576(X)                                                                           \
    KRL_FFT_RADIX8_MIXED_LENGTHS_FROM_768(X)

/** How many lengths the lists of the entries hold. */
#define KRL_FFT_COUNT_ONE(N) +1
enum {
    KRL_FFT_ENTRY_POWER_OF_TWO_COUNT = KRL_FFT_ENTRY_POWERS_OF_TWO(KRL_FFT_COUNT_ONE),
    KRL_FFT_MIXED_LENGTH_COUNT = KRL_FFT_MIXED_LENGTHS(KRL_FFT_COUNT_ONE)
};

/* ---- kernels -------------------------------------------------------------------------------------------------------
 *
 * One transform of one fixed length, with nothing left to decide at run time:
 *
 *   void KRL_r4_fft_N(float *out, float *in, uint32_t n)         forward         N in KRL_FFT_POWERS_OF_TWO,
 *   void KRL_r4_fft_N_s(float *out, float *in, uint32_t n)       forward / N          KRL_FFT_MIXED_LENGTHS
 *   void KRL_r4_inv_fft_N(float *out, float *in, uint32_t n)     inverse
 *   void KRL_r4_inv_fft_N_s(float *out, float *in, uint32_t n)   inverse / N
 *   void KRL_r8_fft_N(float *out, float *in, uint32_t n)         forward         N in KRL_FFT_RADIX8_POWERS_OF_TWO,
 *   void KRL_r8_fft_N_s(float *out, float *in, uint32_t n)       forward / N          KRL_FFT_RADIX8_MIXED_LENGTHS
 *   void KRL_r8_inv_fft_N(float *out, float *in, uint32_t n)     inverse
 *   void KRL_r8_inv_fft_N_s(float *out, float *in, uint32_t n)   inverse / N
 *
 * out receives N complex samples. in holds N complex samples and is the work area: its contents are unspecified after
 * the call. The two must not overlap, except that out == in works for N = 2, 4, 6, 8 and 16. The third argument is
 * ignored. No other memory than these two buffers is touched.
 *
 * The radix-8 family gives the same transforms as the radix-4 family with full-precision twiddle factors at every
 * length; callers prefer it where it exists.
 */
/** A kernel: `out`, `in` and a number that it ignores. */
typedef void krl_fft_kernel(float* out, float* in, uint32_t n);

#define KRL_FFT_DECLARE_KERNELS(radix, N)                                                                              \
    KRL_API void KRL_##radix##_fft_##N(float* out, float* in, uint32_t n);                                             \
    KRL_API void KRL_##radix##_fft_##N##_s(float* out, float* in, uint32_t n);                                         \
    KRL_API void KRL_##radix##_inv_fft_##N(float* out, float* in, uint32_t n);                                         \
    KRL_API void KRL_##radix##_inv_fft_##N##_s(float* out, float* in, uint32_t n);
#define KRL_FFT_DECLARE_RADIX4(N) KRL_FFT_DECLARE_KERNELS(r4, N)
#define KRL_FFT_DECLARE_RADIX8(N) KRL_FFT_DECLARE_KERNELS(r8, N)
/** One kernel of a family, length and direction; the ends of the names are said above. */
KRL_FFT_POWERS_OF_TWO(KRL_FFT_DECLARE_RADIX4)
KRL_FFT_MIXED_LENGTHS(KRL_FFT_DECLARE_RADIX4)
KRL_FFT_RADIX8_POWERS_OF_TWO(KRL_FFT_DECLARE_RADIX8)
KRL_FFT_RADIX8_MIXED_LENGTHS(KRL_FFT_DECLARE_RADIX8)

/* ---- selectors -------------------------------------------------------------------------------------------------- */

/** The unscaled and the scaled kernel of one length, direction and family. Pairs are constant data of the library. */
typedef struct krl_fft_pair {
    krl_fft_kernel* unscaled; /**< the plain sum */
    krl_fft_kernel* scaled;   /**< divided by the length */
} krl_fft_pair;

/** The radix-4 kernel of length n: KRL_r4_fft_N, KRL_r4_fft_N_s, KRL_r4_inv_fft_N, KRL_r4_inv_fft_N_s; or null. */
KRL_API krl_fft_kernel* KRL_r4_cplx_fwd_unscaled(uint32_t n);
KRL_API krl_fft_kernel* KRL_r4_cplx_fwd_scaled(uint32_t n);
KRL_API krl_fft_kernel* KRL_r4_cplx_inv_unscaled(uint32_t n);
KRL_API krl_fft_kernel* KRL_r4_cplx_inv_scaled(uint32_t n);

/** The radix-4 pair of length n {unscaled, scaled}, forward or inverse; null when there is none. */
KRL_API const krl_fft_pair* KRL_r4_cplx_fwd_pair(uint32_t n);
KRL_API const krl_fft_pair* KRL_r4_cplx_inv_pair(uint32_t n);

/** The radix-8 pair of length n, or null. For the fastest kernel ask here first, then the radix-4 selector. */
KRL_API const krl_fft_pair* KRL_r8_cplx_fwd_pair(uint32_t n);
KRL_API const krl_fft_pair* KRL_r8_cplx_inv_pair(uint32_t n);

/** 1 if pair is not null, else 0. */
KRL_API int32_t krl_valid_pair_ptr(const krl_fft_pair* pair);

/* ---- per-length entries with a work area of their own --------------------------------------------------------------
 *
 *   void krl_fft_fwd_scl_N(float *out, float *in, float *work)   forward / N     N in KRL_FFT_ENTRY_POWERS_OF_TWO,
 *   void krl_fft_fwd_usc_N(float *out, float *in, float *work)   forward              KRL_FFT_MIXED_LENGTHS
 *   void krl_fft_inv_scl_N(float *out, float *in, float *work)   inverse / N
 *   void krl_fft_inv_usc_N(float *out, float *in, float *work)   inverse
 *
 * out receives N complex samples; in and work hold N complex samples each. work may be in, which then is the work area
 * of the kernel; out must not overlap work.
 *
 * Powers of two: a work area apart from in leaves in untouched. A null in takes the input from out. Lengths 2, 4, 8 and
 * 16 need no work area. The results are those of the radix-4 kernel of the same length, to the bit.
 *
 * Mixed lengths: work is ignored; in is the work area and must not overlap out (length 6 may run in place).
 */
/** An entry: `out`, `in` and `work`. */
typedef void krl_fft_entry(float* out, float* in, float* work);

#define KRL_FFT_DECLARE_ENTRIES(N)                                                                                     \
    KRL_API void krl_fft_fwd_scl_##N(float* out, float* in, float* work);                                              \
    KRL_API void krl_fft_fwd_usc_##N(float* out, float* in, float* work);                                              \
    KRL_API void krl_fft_inv_scl_##N(float* out, float* in, float* work);                                              \
    KRL_API void krl_fft_inv_usc_##N(float* out, float* in, float* work);
/** One entry of a length and direction; the parts of the names are said above. */
KRL_FFT_ENTRY_POWERS_OF_TWO(KRL_FFT_DECLARE_ENTRIES)
KRL_FFT_MIXED_LENGTHS(KRL_FFT_DECLARE_ENTRIES)

/** The entries of the powers of two, indexed by log2(N); element 0 is null. */
KRL_API extern krl_fft_entry* const krl_fft_cplx_fwd_scl[KRL_FFT_ENTRY_POWER_OF_TWO_COUNT + 1];
KRL_API extern krl_fft_entry* const krl_fft_cplx_fwd_usc[KRL_FFT_ENTRY_POWER_OF_TWO_COUNT + 1];
KRL_API extern krl_fft_entry* const krl_fft_cplx_inv_scl[KRL_FFT_ENTRY_POWER_OF_TWO_COUNT + 1];
KRL_API extern krl_fft_entry* const krl_fft_cplx_inv_usc[KRL_FFT_ENTRY_POWER_OF_TWO_COUNT + 1];

/** The entries of the mixed lengths, in the order of krl_non_power_two_lengths. */
KRL_API extern krl_fft_entry* const krl_odd_fft_cplx_fwd_scl[KRL_FFT_MIXED_LENGTH_COUNT];
KRL_API extern krl_fft_entry* const krl_odd_fft_cplx_fwd_usc[KRL_FFT_MIXED_LENGTH_COUNT];
KRL_API extern krl_fft_entry* const krl_odd_fft_cplx_inv_scl[KRL_FFT_MIXED_LENGTH_COUNT];
KRL_API extern krl_fft_entry* const krl_odd_fft_cplx_inv_usc[KRL_FFT_MIXED_LENGTH_COUNT];

/** The mixed lengths in ascending order, and their count. */
KRL_API extern const uint32_t krl_non_power_two_lengths[KRL_FFT_MIXED_LENGTH_COUNT];
KRL_API extern const uint32_t krl_num_of_non_power_two_lengths;

/* ---- transforms through a state ------------------------------------------------------------------------------------
 *
 * KRL_fft_state_query_mem tells the bytes to allocate (0: unsupported), KRL_fft_init places a state in them, any number
 * of transforms run through it, KRL_fft_shutdown ends its life; the memory stays the caller's. A state never changes
 * between init and shutdown, so that threads may share it.
 */

/** What a state can be asked for: bits of the `transforms` mask. */
enum {
    KRL_FFT_CPLX_FWD_SCALED = 0x01,
    KRL_FFT_CPLX_FWD_UNSCALED = 0x02,
    KRL_FFT_CPLX_INV_SCALED = 0x04,
    KRL_FFT_CPLX_INV_UNSCALED = 0x08,
    KRL_FFT_REAL_FWD_SCALED = 0x10,
    KRL_FFT_REAL_FWD_UNSCALED = 0x20,
    KRL_FFT_REAL_INV_SCALED = 0x40,
    KRL_FFT_REAL_INV_UNSCALED = 0x80
};

/** A length and its kernels, in memory of the caller. */
typedef struct krl_fft_state krl_fft_state;

/** 1 when a state for n complex samples can run every transform of the mask, else 0.
 *
 * Complex transforms: n is a power of two 2..2048 or a mixed length. As soon as the mask has a real-signal bit, n is a
 * power of two 2..2048 (a real signal of 2n samples). A mask with any bit above 0x80 is not supported; a mask of 0 is.
 */
KRL_API int32_t KRL_fft_is_supported(uint32_t n, uint32_t transforms);

/** Bytes of caller memory for a state, room for its alignment to 8 bytes included: 47, or 0 when not supported. */
KRL_API uint32_t KRL_fft_state_query_mem(uint32_t n, uint32_t transforms);

/** Bytes of scratch memory beside the two buffers: 0. */
KRL_API uint32_t KRL_fft_scratch_query_mem(void);

/** Places a state at the first multiple of 8 in memory and returns it; null when memory is null or the request is not
 * supported. Nothing in front of the state is written. */
KRL_API krl_fft_state* KRL_fft_init(void* memory, uint32_t n, uint32_t transforms);

/** Clears the state. A null state is ignored. */
KRL_API void KRL_fft_shutdown(krl_fft_state* state);

/** Complex transforms of n samples, n as given at init: forward or inverse, with or without the factor 1/n.
 *
 * out and in hold n complex samples and must not overlap. in is the work area: unspecified after the call. The
 * transform must have been asked for at init; a state without it holds no kernel to run.
 */
KRL_API void KRL_fft_CLfwd_scaledCL(const krl_fft_state* state, float* out, float* in);
KRL_API void KRL_fft_CLfwd_unscaledCL(const krl_fft_state* state, float* out, float* in);
KRL_API void KRL_fft_CLinv_scaledCL(const krl_fft_state* state, float* out, float* in);
KRL_API void KRL_fft_CLinv_unscaledCL(const krl_fft_state* state, float* out, float* in);

/** Forward transform of a real signal x[0..2n-1] to its packed spectrum of n complex values.
 *
 * X[k] = sum over m of x[m] * e^(-2*pi*i*m*k/(2n)), divided by 2n in the scaled form. out[0] = (X[0], X[n]), both real;
 * out[k] = X[k] for k = 1..n-1. The bins above n are the conjugates of those below.
 * in holds 2n floats and is unspecified after the call; out and in must not overlap.
 */
KRL_API void KRL_fft_CLfwd_scaledL(const krl_fft_state* state, float* out, float* in);
KRL_API void KRL_fft_CLfwd_unscaledL(const krl_fft_state* state, float* out, float* in);

/** Inverse of the above: packed spectrum to real signal, exactly the inverse when scaled, 2n times that when unscaled.
 *
 * in, the packed spectrum, is rewritten and unspecified after the call; out receives 2n floats; the two must not
 * overlap.
 */
KRL_API void KRL_fft_Linv_scaledCL(const krl_fft_state* state, float* out, float* in);
KRL_API void KRL_fft_Linv_unscaledCL(const krl_fft_state* state, float* out, float* in);

KRL_END_DECLS

#endif
