// The exported tables of every prototype filter: one line each.
#include "dsp/filterbank/prototype_tables.h"

#include "korla/dsp/mfb_tables.h"
#include "korla/dsp/qmf_tables.h"

namespace krl::prototypes {

KRL_DEFINE_TABLE(krl_qmf_filter_coeff_P5, qmf_compact<5>(qmf_p5));
KRL_DEFINE_TABLE(krl_qmf_filter_coeff_P5_vec_ana, qmf_analysis<5>(qmf_p5));
KRL_DEFINE_TABLE(krl_qmf_filter_coeff_P5_vec_syn, qmf_synthesis<5>(qmf_p5));

KRL_DEFINE_TABLE(krl_qmf_filter_coeff_P5_32, qmf_compact<5>(qmf_p5_32));
KRL_DEFINE_TABLE(krl_qmf_filter_coeff_P5_32_vec_ana, qmf_analysis<5>(qmf_p5_32));
KRL_DEFINE_TABLE(krl_qmf_filter_coeff_P5_32_vec_syn, qmf_synthesis<5>(qmf_p5_32));

KRL_DEFINE_TABLE(krl_qmf_filter_coeff_P4, qmf_compact<4>(qmf_p4));
KRL_DEFINE_TABLE(krl_qmf_filter_coeff_P4_vec_ana, qmf_analysis<4>(qmf_p4));
KRL_DEFINE_TABLE(krl_qmf_filter_coeff_P4_vec_syn, qmf_synthesis<4>(qmf_p4));

KRL_DEFINE_TABLE(krl_qmf_filter_coeff_P4_32, qmf_compact<4>(qmf_p4_32));
KRL_DEFINE_TABLE(krl_qmf_filter_coeff_P4_32_vec_ana, qmf_analysis<4>(qmf_p4_32));
KRL_DEFINE_TABLE(krl_qmf_filter_coeff_P4_32_vec_syn, qmf_synthesis<4>(qmf_p4_32));

KRL_DEFINE_TABLE(krl_qmf_filter_coeff_P5_p64kvx301, qmf_compact<5>(qmf_p5_p64kvx301));
KRL_DEFINE_TABLE(krl_qmf_filter_coeff_P5_p64kvx301_vec_ana, qmf_analysis<5>(qmf_p5_p64kvx301));
KRL_DEFINE_TABLE(krl_qmf_filter_coeff_P5_p64kvx301_vec_syn, qmf_synthesis<5>(qmf_p5_p64kvx301));

KRL_DEFINE_TABLE(krl_qmf_filter_coeff_P5_p64kvx301_8, qmf_compact<5>(qmf_p5_p64kvx301_8));
KRL_DEFINE_TABLE(krl_qmf_filter_coeff_P5_p64kvx301_8_vec_ana, qmf_analysis<5>(qmf_p5_p64kvx301_8));
KRL_DEFINE_TABLE(krl_qmf_filter_coeff_P5_p64kvx301_8_vec_syn, qmf_synthesis<5>(qmf_p5_p64kvx301_8));

KRL_DEFINE_TABLE(krl_qmf_filter_coeff_P5_p64kvx301_16, qmf_compact<5>(qmf_p5_p64kvx301_16));
KRL_DEFINE_TABLE(krl_qmf_filter_coeff_P5_p64kvx301_16_vec_ana, qmf_analysis<5>(qmf_p5_p64kvx301_16));
KRL_DEFINE_TABLE(krl_qmf_filter_coeff_P5_p64kvx301_16_vec_syn, qmf_synthesis<5>(qmf_p5_p64kvx301_16));

KRL_DEFINE_TABLE(krl_qmf_filter_coeff_P5_p64kvx301_32, qmf_compact<5>(qmf_p5_p64kvx301_32));
KRL_DEFINE_TABLE(krl_qmf_filter_coeff_P5_p64kvx301_32_vec_ana, qmf_analysis<5>(qmf_p5_p64kvx301_32));
KRL_DEFINE_TABLE(krl_qmf_filter_coeff_P5_p64kvx301_32_vec_syn, qmf_synthesis<5>(qmf_p5_p64kvx301_32));

KRL_DEFINE_TABLE(krl_qmf_filter_coeff_P5_p64kvx301_48, qmf_compact<5>(qmf_p5_p64kvx301_48));
KRL_DEFINE_TABLE(krl_qmf_filter_coeff_P5_p64kvx301_48_vec_ana, qmf_analysis<5>(qmf_p5_p64kvx301_48));
KRL_DEFINE_TABLE(krl_qmf_filter_coeff_P5_p64kvx301_48_vec_syn, qmf_synthesis<5>(qmf_p5_p64kvx301_48));

KRL_DEFINE_TABLE(KRL_MFB_P10KM_P4_319SC, modulated(mfb_p4_319sc));
KRL_DEFINE_TABLE(KRL_MFB_P10KM_P4_319SC_128M, modulated(mfb_p4_319sc_128));
KRL_DEFINE_TABLE(KRL_MFB_P10KM_P4_319SC_256M, modulated(mfb_p4_319sc_256));
KRL_DEFINE_TABLE(KRL_MFB_P10KM_P64KVX301, modulated_symmetric(mfb_p64kvx301));
KRL_DEFINE_TABLE(KRL_MFB_P10KM_P64KVX301_LEGACY, modulated_legacy(qmf_p5_p64kvx301));

} // namespace krl::prototypes
