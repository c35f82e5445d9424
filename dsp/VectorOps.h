#pragma once

#include <cstddef>
#include <cstdint>

// Hot loops are compiled twice, for the x86-64 baseline and for AVX2 with FMA, and the loader
// picks one at start-up, so one binary runs everywhere and fast where it can. (Not under
// ThreadSanitizer: the loader runs the choosing code before the sanitizer's runtime is up.)
#if defined(__x86_64__) && defined(__linux__) && defined(__GNUC__) && !defined(__clang__)          \
    && !defined(__SANITIZE_THREAD__)
#define VESK_VECTOR_CLONES __attribute__ ((target_clones ("arch=x86-64-v3", "default")))
#else
#define VESK_VECTOR_CLONES
#endif

namespace vesk::audio
{
/** One complex sample, laid out as an interleaved complex array element. */
struct complex32
{
    float re;
    float im;
};

/* Element-wise primitives on contiguous arrays. None allocates, none checks its arguments,
   and invalid values follow IEEE arithmetic. Any thread. */

void* ippMalloc (std::size_t bytes);
void ippFree (void* pointer);
std::uint8_t* ippsMalloc_8u (int length);
void ippsFree (void* pointer);

void ippsCopy_32f (const float* src, float* dst, int len);
void ippsMove_32f (const float* src, float* dst, int len);
void ippsSet_32f (float value, float* dst, int len);
void ippsSet_32fc (complex32 value, complex32* dst, int len);
void ippsZero_32f (float* dst, int len);
void ippsAdd_32f_I (const float* src, float* srcDst, int len);
void ippsSub_32f_I (const float* src, float* srcDst, int len);
void ippsMul_32f_I (const float* src, float* srcDst, int len);
void ippsDiv_32f_I (const float* src, float* srcDst, int len);
void ippsMulC_32f_I (float value, float* srcDst, int len);
void ippsDivC_32f_I (float value, float* srcDst, int len);
void ippsMul_32fc (const complex32* a, const complex32* b, complex32* dst, int len);
void ippsMul_32fc_I (const complex32* src, complex32* srcDst, int len);
/** srcDst[n] += a[n] * b[n] (complex); the accumulation step of the convolution's partitions. */
void ippsAddProduct_32fc (const complex32* a, const complex32* b, complex32* srcDst, int len);
void ippsSum_32f (const float* src, int len, float* sum);
void ippsNorm_L2_32f (const float* src, int len, float* norm);
void ippsLn_32f (const float* src, float* dst, int len);
void ippsExp_32f (const float* src, float* dst, int len);
void ippsThreshold_LT_32f (const float* src, float* dst, int len, float level);
void ippsFlip_32f (const float* src, float* dst, int len);
void ippsMagnitude_32fc (const complex32* src, float* dst, int len);
void ippsPolarToCart_32fc (const float* magnitude, const float* phase, complex32* dst, int len);
void ippsWinHamming_32f_I (float* srcDst, int len);
void ippsWinBlackman_32f_I (float* srcDst, int len, float alpha);

/* Direct-form FIR with a delay line. The delay line is the (taps - 1) most recent inputs, oldest
   first; it survives new taps so that a filter update continues from the same history. */
struct IppsFIRState_32f;
int ippsFIRInitAlloc_32f (IppsFIRState_32f** state, const float* taps, int tapsLen,
                          const float* dlyLine);
int ippsFIRSetTaps_32f (const float* taps, IppsFIRState_32f* state);
int ippsFIRSetDlyLine_32f (IppsFIRState_32f* state, const float* dlyLine);
int ippsFIR_32f (const float* src, float* dst, int len, IppsFIRState_32f* state);
int ippsFIRFree_32f (IppsFIRState_32f* state);

/* Real and complex transforms of 2^order points. Packing of real spectra is CCS (order/2 + 1
   interleaved bins, imaginary parts of DC and Nyquist zero); nothing is scaled in either
   direction. Preparation may be called from any thread (plans are shared process-wide and
   built under one lock); execution is thread-safe with distinct work buffers. */
enum
{
    IPP_FFT_NODIV_BY_ANY = 8
};
enum IppHintAlgorithm
{
    ippAlgHintNone,
    ippAlgHintFast,
    ippAlgHintAccurate
};
struct IppsFFTSpec_R_32f;
struct IppsFFTSpec_C_32fc;

int ippsFFTInitAlloc_R_32f (IppsFFTSpec_R_32f** spec, int order, int flag, IppHintAlgorithm hint);
int ippsFFTGetBufSize_R_32f (const IppsFFTSpec_R_32f* spec, int* bytes);
int ippsFFTFwd_RToCCS_32f (const float* src, float* dst, const IppsFFTSpec_R_32f* spec,
                           std::uint8_t* buffer);
int ippsFFTInv_CCSToR_32f (const float* src, float* dst, const IppsFFTSpec_R_32f* spec,
                           std::uint8_t* buffer);
int ippsFFTFree_R_32f (IppsFFTSpec_R_32f* spec);

/* Double-precision real transforms, for sums that float rounding would spoil (the
   autocorrelation of high-order linear prediction). Same packing and scaling rules. */
struct IppsFFTSpec_R_64f;
int ippsFFTInitAlloc_R_64f (IppsFFTSpec_R_64f** spec, int order, int flag, IppHintAlgorithm hint);
int ippsFFTGetBufSize_R_64f (const IppsFFTSpec_R_64f* spec, int* bytes);
int ippsFFTFwd_RToCCS_64f (const double* src, double* dst, const IppsFFTSpec_R_64f* spec,
                           std::uint8_t* buffer);
int ippsFFTInv_CCSToR_64f (const double* src, double* dst, const IppsFFTSpec_R_64f* spec,
                           std::uint8_t* buffer);
int ippsFFTFree_R_64f (IppsFFTSpec_R_64f* spec);

int ippsFFTInitAlloc_C_32fc (IppsFFTSpec_C_32fc** spec, int order, int flag, IppHintAlgorithm hint);
int ippsFFTGetBufSize_C_32fc (const IppsFFTSpec_C_32fc* spec, int* bytes);
int ippsFFTFree_C_32fc (IppsFFTSpec_C_32fc* spec);

} // namespace vesk::audio
