#include "VectorOps.h"

#include <fftw3.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <map>
#include <mutex>
#include <new>
#include <utility>

namespace vesk::audio
{
namespace
{
constexpr std::size_t alignment = 64;
}

void* ippMalloc (std::size_t bytes)
{
    const auto rounded =
        std::max<std::size_t> (alignment, (bytes + alignment - 1) / alignment * alignment);
    return std::aligned_alloc (alignment, rounded);
}

void ippFree (void* pointer) { std::free (pointer); }

std::uint8_t* ippsMalloc_8u (int length)
{
    return static_cast<std::uint8_t*> (ippMalloc (static_cast<std::size_t> (std::max (length, 0))));
}

void ippsFree (void* pointer) { ippFree (pointer); }

void ippsCopy_32f (const float* src, float* dst, int len)
{
    if (len > 0)
        std::memcpy (dst, src, static_cast<std::size_t> (len) * sizeof (float));
}

void ippsMove_32f (const float* src, float* dst, int len)
{
    if (len > 0)
        std::memmove (dst, src, static_cast<std::size_t> (len) * sizeof (float));
}

void ippsSet_32f (float value, float* dst, int len)
{
    for (int n = 0; n < len; ++n)
        dst[n] = value;
}

void ippsSet_32fc (complex32 value, complex32* dst, int len)
{
    for (int n = 0; n < len; ++n)
        dst[n] = value;
}

void ippsZero_32f (float* dst, int len)
{
    if (len > 0)
        std::memset (dst, 0, static_cast<std::size_t> (len) * sizeof (float));
}

VESK_VECTOR_CLONES void ippsAdd_32f_I (const float* __restrict src, float* __restrict srcDst,
                                       int len)
{
    for (int n = 0; n < len; ++n)
        srcDst[n] += src[n];
}

VESK_VECTOR_CLONES void ippsSub_32f_I (const float* __restrict src, float* __restrict srcDst,
                                       int len)
{
    for (int n = 0; n < len; ++n)
        srcDst[n] -= src[n];
}

VESK_VECTOR_CLONES void ippsMul_32f_I (const float* __restrict src, float* __restrict srcDst,
                                       int len)
{
    for (int n = 0; n < len; ++n)
        srcDst[n] *= src[n];
}

void ippsDiv_32f_I (const float* __restrict src, float* __restrict srcDst, int len)
{
    for (int n = 0; n < len; ++n)
        srcDst[n] = srcDst[n] / src[n];
}

VESK_VECTOR_CLONES void ippsMulC_32f_I (float value, float* srcDst, int len)
{
    for (int n = 0; n < len; ++n)
        srcDst[n] *= value;
}

void ippsDivC_32f_I (float value, float* srcDst, int len)
{
    for (int n = 0; n < len; ++n)
        srcDst[n] /= value;
}

VESK_VECTOR_CLONES void ippsMul_32fc (const complex32* a, const complex32* b, complex32* dst,
                                      int len)
{
    auto* af = reinterpret_cast<const float*> (a);
    auto* bf = reinterpret_cast<const float*> (b);
    auto* df = reinterpret_cast<float*> (dst);
    for (int n = 0; n < len; ++n)
    {
        const float ar = af[2 * n], ai = af[2 * n + 1];
        const float br = bf[2 * n], bi = bf[2 * n + 1];
        df[2 * n] = ar * br - ai * bi;
        df[2 * n + 1] = ar * bi + ai * br;
    }
}

void ippsMul_32fc_I (const complex32* src, complex32* srcDst, int len)
{
    ippsMul_32fc (src, srcDst, srcDst, len);
}

VESK_VECTOR_CLONES void ippsAddProduct_32fc (const complex32* __restrict a,
                                             const complex32* __restrict b,
                                             complex32* __restrict srcDst, int len)
{
    auto* af = reinterpret_cast<const float*> (a);
    auto* bf = reinterpret_cast<const float*> (b);
    auto* df = reinterpret_cast<float*> (srcDst);
    for (int n = 0; n < len; ++n)
    {
        const float ar = af[2 * n], ai = af[2 * n + 1];
        const float br = bf[2 * n], bi = bf[2 * n + 1];
        df[2 * n] += ar * br - ai * bi;
        df[2 * n + 1] += ar * bi + ai * br;
    }
}

void ippsSum_32f (const float* src, int len, float* sum)
{
    // Eight partial sums: the loop vectorises and rounding error grows more slowly than with one.
    float partial[8] = {};
    int n = 0;
    for (; n + 8 <= len; n += 8)
        for (int k = 0; k < 8; ++k)
            partial[k] += src[n + k];
    float total = 0.0f;
    for (; n < len; ++n)
        total += src[n];
    for (float p : partial)
        total += p;
    *sum = total;
}

void ippsNorm_L2_32f (const float* src, int len, float* norm)
{
    double sum = 0.0;
    for (int n = 0; n < len; ++n)
        sum += static_cast<double> (src[n]) * src[n];
    *norm = static_cast<float> (std::sqrt (sum));
}

void ippsLn_32f (const float* src, float* dst, int len)
{
    for (int n = 0; n < len; ++n)
        dst[n] = std::log (src[n]);
}

void ippsExp_32f (const float* src, float* dst, int len)
{
    for (int n = 0; n < len; ++n)
        dst[n] = std::exp (src[n]);
}

void ippsThreshold_LT_32f (const float* src, float* dst, int len, float level)
{
    for (int n = 0; n < len; ++n)
        dst[n] = src[n] < level ? level : src[n];
}

void ippsFlip_32f (const float* src, float* dst, int len)
{
    if (src == dst)
    {
        std::reverse (dst, dst + std::max (len, 0));
        return;
    }
    for (int n = 0; n < len; ++n)
        dst[n] = src[len - 1 - n];
}

void ippsMagnitude_32fc (const complex32* src, float* dst, int len)
{
    for (int n = 0; n < len; ++n)
        dst[n] = std::sqrt (src[n].re * src[n].re + src[n].im * src[n].im);
}

void ippsPolarToCart_32fc (const float* magnitude, const float* phase, complex32* dst, int len)
{
    for (int n = 0; n < len; ++n)
        dst[n] = {magnitude[n] * std::cos (phase[n]), magnitude[n] * std::sin (phase[n])};
}

void ippsWinHamming_32f_I (float* srcDst, int len)
{
    if (len < 2)
        return; // a single sample has no taper (the formula would divide by zero)
    const double step = 2.0 * M_PI / (len - 1);
    for (int k = 0; k < len; ++k)
        srcDst[k] *= static_cast<float> (0.54 - 0.46 * std::cos (step * k));
}

void ippsWinBlackman_32f_I (float* srcDst, int len, float alpha)
{
    if (len < 2)
        return;
    const double step = 2.0 * M_PI / (len - 1);
    const double a = alpha;
    for (int k = 0; k < len; ++k)
        srcDst[k] *= static_cast<float> ((a + 1.0) / 2.0 - 0.5 * std::cos (step * k)
                                         - (a / 2.0) * std::cos (2.0 * step * k));
}

//==============================================================================
struct IppsFIRState_32f
{
    static constexpr int chunk = 256;
    static constexpr int slack = 32; // read (not used) by the kernel's last, partial run
    int tapsLen = 0;
    float* taps = nullptr;
    float* buffer = nullptr; // (tapsLen - 1) delay samples, then room for one chunk of input
};

namespace
{
// Accumulating over taps in the outer loop keeps a run of outputs in registers and streams
// the input contiguously, which vectorises without reordering any float sums. A last, partial
// run is computed as a whole one (the state's buffer has room for it) and cut, so every output
// takes the same arithmetic wherever the block boundaries fall: two hosts that split the same
// stream differently get the same bits.
VESK_VECTOR_CLONES void firKernel (const float* __restrict taps, int tapsLen,
                                   const float* __restrict x, float* __restrict y, int count)
{
    constexpr int run = 32;
    for (int i = 0; i < count; i += run)
    {
        float acc[run] = {};
        for (int k = 0; k < tapsLen; ++k)
        {
            const float h = taps[k];
            const float* xp = x + (tapsLen - 1 - k) + i;
            for (int j = 0; j < run; ++j)
                acc[j] += h * xp[j];
        }
        const int keep = count - i < run ? count - i : run;
        for (int j = 0; j < keep; ++j)
            y[i + j] = acc[j];
    }
}
} // namespace

int ippsFIRInitAlloc_32f (IppsFIRState_32f** state, const float* taps, int tapsLen,
                          const float* dlyLine)
{
    auto* s = new IppsFIRState_32f();
    s->tapsLen = std::max (tapsLen, 1);
    s->taps =
        static_cast<float*> (ippMalloc (sizeof (float) * static_cast<std::size_t> (s->tapsLen)));
    const int bufferLength = s->tapsLen - 1 + IppsFIRState_32f::chunk + IppsFIRState_32f::slack;
    s->buffer =
        static_cast<float*> (ippMalloc (sizeof (float) * static_cast<std::size_t> (bufferLength)));
    if (s->taps == nullptr || s->buffer == nullptr)
    {
        ippsFIRFree_32f (s);
        throw std::bad_alloc();
    }
    ippsZero_32f (s->taps, s->tapsLen);
    ippsZero_32f (s->buffer, bufferLength);
    if (taps != nullptr)
        ippsCopy_32f (taps, s->taps, tapsLen);
    ippsFIRSetDlyLine_32f (s, dlyLine);
    *state = s;
    return 0;
}

int ippsFIRSetTaps_32f (const float* taps, IppsFIRState_32f* state)
{
    ippsCopy_32f (taps, state->taps, state->tapsLen);
    return 0;
}

int ippsFIRSetDlyLine_32f (IppsFIRState_32f* state, const float* dlyLine)
{
    if (dlyLine != nullptr)
        ippsCopy_32f (dlyLine, state->buffer, state->tapsLen - 1);
    else
        ippsZero_32f (state->buffer, state->tapsLen - 1);
    return 0;
}

int ippsFIR_32f (const float* src, float* dst, int len, IppsFIRState_32f* state)
{
    const int history = state->tapsLen - 1;
    float* buffer = state->buffer;
    for (int done = 0; done < len;)
    {
        const int count = std::min (IppsFIRState_32f::chunk, len - done);
        ippsCopy_32f (src + done, buffer + history, count);
        firKernel (state->taps, state->tapsLen, buffer, dst + done, count);
        ippsMove_32f (buffer + count, buffer, history);
        done += count;
    }
    return 0;
}

int ippsFIRFree_32f (IppsFIRState_32f* state)
{
    if (state != nullptr)
    {
        ippFree (state->taps);
        ippFree (state->buffer);
        delete state;
    }
    return 0;
}

//==============================================================================
namespace
{
enum class PlanKind
{
    realForward,
    realInverse,
    complexForward,
    complexInverse
};

// FFTW's planner is not thread-safe and several plug-in instances share one process: every plan
// is made once per size under this lock and kept for the life of the process, so preparing a
// size that was seen before costs a look-up, not a new plan.
std::mutex& planLock()
{
    static std::mutex lock;
    return lock;
}

// Plans live until the process (or the plug-in library) is unloaded.
struct PlanCache
{
    ~PlanCache()
    {
        std::lock_guard<std::mutex> guard (planLock());
        for (auto& entry : plans)
            fftwf_destroy_plan (entry.second);
        plans.clear();
        fftwf_cleanup();
    }

    std::map<std::pair<int, int>, fftwf_plan> plans;
};

fftwf_plan getPlan (PlanKind kind, int n)
{
    std::lock_guard<std::mutex> guard (planLock());
    static PlanCache cache;
    auto& plans = cache.plans;
    const auto key = std::make_pair (static_cast<int> (kind), n);
    if (auto found = plans.find (key); found != plans.end())
        return found->second;

    auto* in =
        static_cast<float*> (fftwf_malloc (sizeof (float) * 2 * static_cast<std::size_t> (n + 2)));
    auto* out =
        static_cast<float*> (fftwf_malloc (sizeof (float) * 2 * static_cast<std::size_t> (n + 2)));
    if (in == nullptr || out == nullptr)
    {
        fftwf_free (in);
        fftwf_free (out);
        throw std::bad_alloc();
    }
    auto* cin = reinterpret_cast<fftwf_complex*> (in);
    auto* cout = reinterpret_cast<fftwf_complex*> (out);
    // Estimated plans: planning stays quick and deterministic, so two runs give the same bits.
    const unsigned flags = FFTW_ESTIMATE;
    fftwf_plan plan = nullptr;
    switch (kind)
    {
        case PlanKind::realForward: plan = fftwf_plan_dft_r2c_1d (n, in, cout, flags); break;
        case PlanKind::realInverse: plan = fftwf_plan_dft_c2r_1d (n, cin, out, flags); break;
        case PlanKind::complexForward:
            plan = fftwf_plan_dft_1d (n, cin, cout, FFTW_FORWARD, flags);
            break;
        case PlanKind::complexInverse:
            plan = fftwf_plan_dft_1d (n, cin, cout, FFTW_BACKWARD, flags);
            break;
    }
    fftwf_free (in);
    fftwf_free (out);
    if (plan == nullptr)
        throw std::bad_alloc();
    plans.emplace (key, plan);
    return plan;
}

// The double-precision plans, kept the same way.
struct PlanCache64
{
    ~PlanCache64()
    {
        std::lock_guard<std::mutex> guard (planLock());
        for (auto& entry : plans)
            fftw_destroy_plan (entry.second);
        plans.clear();
        fftw_cleanup();
    }

    std::map<std::pair<int, int>, fftw_plan> plans;
};

fftw_plan getPlan64 (bool forward, int n)
{
    std::lock_guard<std::mutex> guard (planLock());
    static PlanCache64 cache;
    const auto key = std::make_pair (forward ? 0 : 1, n);
    if (auto found = cache.plans.find (key); found != cache.plans.end())
        return found->second;
    auto* in =
        static_cast<double*> (fftw_malloc (sizeof (double) * 2 * static_cast<std::size_t> (n + 2)));
    auto* out =
        static_cast<double*> (fftw_malloc (sizeof (double) * 2 * static_cast<std::size_t> (n + 2)));
    fftw_plan plan = nullptr;
    if (in != nullptr && out != nullptr)
        plan = forward ? fftw_plan_dft_r2c_1d (n, in, reinterpret_cast<fftw_complex*> (out),
                                               FFTW_ESTIMATE)
                       : fftw_plan_dft_c2r_1d (n, reinterpret_cast<fftw_complex*> (in), out,
                                               FFTW_ESTIMATE);
    fftw_free (in);
    fftw_free (out);
    if (plan == nullptr)
        throw std::bad_alloc();
    cache.plans.emplace (key, plan);
    return plan;
}

// Where the second half of a real transform's work buffer starts: past room for a packed
// spectrum, rounded up so that both halves keep the alignment the plans were made for.
int secondHalf (int n) { return (n + 2 + 15) / 16 * 16; }

bool isAligned (const void* p)
{
    return fftwf_alignment_of (reinterpret_cast<float*> (const_cast<void*> (p))) == 0;
}
} // namespace

struct IppsFFTSpec_R_32f
{
    int size = 0;
    fftwf_plan forward = nullptr;
    fftwf_plan inverse = nullptr;
};

struct IppsFFTSpec_C_32fc
{
    int size = 0;
    fftwf_plan forward = nullptr;
    fftwf_plan inverse = nullptr;
};

int ippsFFTInitAlloc_R_32f (IppsFFTSpec_R_32f** spec, int order, int, IppHintAlgorithm)
{
    auto* s = new IppsFFTSpec_R_32f();
    s->size = 1 << order;
    try
    {
        s->forward = getPlan (PlanKind::realForward, s->size);
        s->inverse = getPlan (PlanKind::realInverse, s->size);
    }
    catch (...)
    {
        delete s;
        throw;
    }
    *spec = s;
    return 0;
}

int ippsFFTGetBufSize_R_32f (const IppsFFTSpec_R_32f* spec, int* bytes)
{
    // Room for a copy of a packed spectrum and for one real block, each padded to keep alignment.
    const int floats = 2 * secondHalf (spec->size);
    *bytes = floats * static_cast<int> (sizeof (float));
    return 0;
}

int ippsFFTFwd_RToCCS_32f (const float* src, float* dst, const IppsFFTSpec_R_32f* spec,
                           std::uint8_t* buffer)
{
    const int n = spec->size;
    auto* work = reinterpret_cast<float*> (buffer);
    float* in = const_cast<float*> (src);
    if (!isAligned (src) || src == dst)
    {
        ippsCopy_32f (src, work, n);
        in = work;
    }
    if (isAligned (dst) && in != dst)
    {
        fftwf_execute_dft_r2c (spec->forward, in, reinterpret_cast<fftwf_complex*> (dst));
    }
    else
    {
        float* spectrum = work + secondHalf (n);
        fftwf_execute_dft_r2c (spec->forward, in, reinterpret_cast<fftwf_complex*> (spectrum));
        ippsCopy_32f (spectrum, dst, n + 2);
    }
    return 0;
}

int ippsFFTInv_CCSToR_32f (const float* src, float* dst, const IppsFFTSpec_R_32f* spec,
                           std::uint8_t* buffer)
{
    // FFTW's inverse real transform overwrites its input, so it always runs on a copy.
    const int n = spec->size;
    auto* work = reinterpret_cast<float*> (buffer);
    ippsCopy_32f (src, work, n + 2);
    if (isAligned (dst))
    {
        fftwf_execute_dft_c2r (spec->inverse, reinterpret_cast<fftwf_complex*> (work), dst);
    }
    else
    {
        float* block = work + secondHalf (n);
        fftwf_execute_dft_c2r (spec->inverse, reinterpret_cast<fftwf_complex*> (work), block);
        ippsCopy_32f (block, dst, n);
    }
    return 0;
}

int ippsFFTFree_R_32f (IppsFFTSpec_R_32f* spec)
{
    delete spec; // the plans stay cached for the next preparation of the same size
    return 0;
}

struct IppsFFTSpec_R_64f
{
    int size = 0;
    fftw_plan forward = nullptr;
    fftw_plan inverse = nullptr;
};

int ippsFFTInitAlloc_R_64f (IppsFFTSpec_R_64f** spec, int order, int, IppHintAlgorithm)
{
    auto* s = new IppsFFTSpec_R_64f();
    s->size = 1 << order;
    try
    {
        s->forward = getPlan64 (true, s->size);
        s->inverse = getPlan64 (false, s->size);
    }
    catch (...)
    {
        delete s;
        throw;
    }
    *spec = s;
    return 0;
}

int ippsFFTGetBufSize_R_64f (const IppsFFTSpec_R_64f* spec, int* bytes)
{
    *bytes = 2 * secondHalf (spec->size) * static_cast<int> (sizeof (double));
    return 0;
}

int ippsFFTFwd_RToCCS_64f (const double* src, double* dst, const IppsFFTSpec_R_64f* spec,
                           std::uint8_t* buffer)
{
    // Always through the (aligned) work buffer: simple, and these transforms are not on a hot path.
    const int n = spec->size;
    auto* work = reinterpret_cast<double*> (buffer);
    double* spectrum = work + secondHalf (n);
    std::memcpy (work, src, sizeof (double) * static_cast<std::size_t> (n));
    fftw_execute_dft_r2c (spec->forward, work, reinterpret_cast<fftw_complex*> (spectrum));
    std::memcpy (dst, spectrum, sizeof (double) * static_cast<std::size_t> (n + 2));
    return 0;
}

int ippsFFTInv_CCSToR_64f (const double* src, double* dst, const IppsFFTSpec_R_64f* spec,
                           std::uint8_t* buffer)
{
    const int n = spec->size;
    auto* work = reinterpret_cast<double*> (buffer);
    double* block = work + secondHalf (n);
    std::memcpy (work, src, sizeof (double) * static_cast<std::size_t> (n + 2));
    fftw_execute_dft_c2r (spec->inverse, reinterpret_cast<fftw_complex*> (work), block);
    std::memcpy (dst, block, sizeof (double) * static_cast<std::size_t> (n));
    return 0;
}

int ippsFFTFree_R_64f (IppsFFTSpec_R_64f* spec)
{
    delete spec;
    return 0;
}

int ippsFFTInitAlloc_C_32fc (IppsFFTSpec_C_32fc** spec, int order, int, IppHintAlgorithm)
{
    auto* s = new IppsFFTSpec_C_32fc();
    s->size = 1 << order;
    try
    {
        s->forward = getPlan (PlanKind::complexForward, s->size);
        s->inverse = getPlan (PlanKind::complexInverse, s->size);
    }
    catch (...)
    {
        delete s;
        throw;
    }
    *spec = s;
    return 0;
}

int ippsFFTGetBufSize_C_32fc (const IppsFFTSpec_C_32fc* spec, int* bytes)
{
    *bytes = (spec->size + 16) * 2 * static_cast<int> (sizeof (float));
    return 0;
}

int ippsFFTFree_C_32fc (IppsFFTSpec_C_32fc* spec)
{
    delete spec;
    return 0;
}

} // namespace vesk::audio
