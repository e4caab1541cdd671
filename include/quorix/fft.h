// Transforms of any length 2^a 3^b 5^c over split arrays (real parts and imaginary parts apart).
//
// forward: X[k] = sum over j of x[j] exp(+2 pi i jk / n), inverse: with exp(-2 pi i jk / n);
// neither divides by n. Plans are built at the first use of a length and kept by the qxfft object,
// which comes into being when it is needed. One transform at a time. A length with another prime
// factor is reported and fatal.
#pragma once

#include <quorix/api.h>

typedef struct qxfft qxfft;
typedef struct qxfftplan qxfftplan;
typedef struct qxfftrealplan qxfftrealplan;

QX_C_BEGIN

QX_API qx_status qx_new_qxfft(void);
QX_API qx_status qx_delete_qxfft(void);
QX_API qxfft* qx_get_qxfft(void);
QX_API qx_status qx_set_qxfft(qxfft* object);

// One complex transform of n points. The outputs may be the inputs; else the inputs, whose contents
// may be lost, must not overlap them.
QX_API qx_status qx_forward_cfft(int32_t n, double* in_re, double* in_im, double* out_re,
                                 double* out_im);
QX_API qx_status qx_inverse_cfft(int32_t n, double* in_re, double* in_im, double* out_re,
                                 double* out_im);

// The full spectrum of n real values. `work` has n doubles; it is used (and zeroed) for odd n only.
QX_API qx_status qx_forward_rfft(int32_t n, const double* in, double* work, double* out_re,
                                 double* out_im);
QX_API qx_status qx_inverse_rfft(int32_t n, const double* in, double* work, double* out_re,
                                 double* out_im);

// The spectra of two real sequences by one complex transform.
QX_API qx_status qx_forward_two_rfft(int32_t n, const double* in_a, const double* in_b,
                                     double* a_re, double* a_im, double* b_re, double* b_im);
QX_API qx_status qx_inverse_two_rfft(int32_t n, const double* in_a, const double* in_b,
                                     double* a_re, double* a_im, double* b_re, double* b_im);
// Takes the transform z of a + i b, a and b real, apart into the spectra of a and b; a may be z.
QX_API void assemble_two_rfft(int32_t n, const double* z_re, const double* z_im, double* a_re,
                              double* a_im, double* b_re, double* b_im);

// Arrays of row pointers, the last index fastest. Complex: the outputs may be the inputs. Real: one
// real array in, the whole spectrum out.
QX_API qx_status qx_forward_cfft_2D(int32_t n0, int32_t n1, double** in_re, double** in_im,
                                    double** out_re, double** out_im);
QX_API qx_status qx_inverse_cfft_2D(int32_t n0, int32_t n1, double** in_re, double** in_im,
                                    double** out_re, double** out_im);
QX_API qx_status qx_forward_rfft_2D(int32_t n0, int32_t n1, double** in, double** out_re,
                                    double** out_im);
QX_API qx_status qx_inverse_rfft_2D(int32_t n0, int32_t n1, double** in, double** out_re,
                                    double** out_im);
QX_API qx_status qx_forward_cfft_3D(int32_t n0, int32_t n1, int32_t n2, double*** in_re,
                                    double*** in_im, double*** out_re, double*** out_im);
QX_API qx_status qx_inverse_cfft_3D(int32_t n0, int32_t n1, int32_t n2, double*** in_re,
                                    double*** in_im, double*** out_re, double*** out_im);
QX_API qx_status qx_forward_rfft_3D(int32_t n0, int32_t n1, int32_t n2, double*** in,
                                    double*** out_re, double*** out_im);
QX_API qx_status qx_inverse_rfft_3D(int32_t n0, int32_t n1, int32_t n2, double*** in,
                                    double*** out_re, double*** out_im);

// Checking twins: the same results by the direct sum along each axis, for any lengths from 1 on.
// The outputs must not be the inputs.
QX_API qx_status qx_forward_cfft_debug(int32_t n, double* in_re, double* in_im, double* out_re,
                                       double* out_im);
QX_API qx_status qx_inverse_cfft_debug(int32_t n, double* in_re, double* in_im, double* out_re,
                                       double* out_im);
QX_API qx_status qx_forward_rfft_debug(int32_t n, const double* in, double* work, double* out_re,
                                       double* out_im);
QX_API qx_status qx_inverse_rfft_debug(int32_t n, const double* in, double* work, double* out_re,
                                       double* out_im);
QX_API qx_status qx_forward_two_rfft_debug(int32_t n, const double* in_a, const double* in_b,
                                           double* a_re, double* a_im, double* b_re, double* b_im);
QX_API qx_status qx_inverse_two_rfft_debug(int32_t n, const double* in_a, const double* in_b,
                                           double* a_re, double* a_im, double* b_re, double* b_im);
QX_API qx_status qx_forward_cfft_2D_debug(int32_t n0, int32_t n1, double** in_re, double** in_im,
                                          double** out_re, double** out_im);
QX_API qx_status qx_inverse_cfft_2D_debug(int32_t n0, int32_t n1, double** in_re, double** in_im,
                                          double** out_re, double** out_im);
QX_API qx_status qx_forward_rfft_2D_debug(int32_t n0, int32_t n1, double** in, double** out_re,
                                          double** out_im);
QX_API qx_status qx_inverse_rfft_2D_debug(int32_t n0, int32_t n1, double** in, double** out_re,
                                          double** out_im);
QX_API qx_status qx_forward_cfft_3D_debug(int32_t n0, int32_t n1, int32_t n2, double*** in_re,
                                          double*** in_im, double*** out_re, double*** out_im);
QX_API qx_status qx_inverse_cfft_3D_debug(int32_t n0, int32_t n1, int32_t n2, double*** in_re,
                                          double*** in_im, double*** out_re, double*** out_im);
QX_API qx_status qx_forward_rfft_3D_debug(int32_t n0, int32_t n1, int32_t n2, double*** in,
                                          double*** out_re, double*** out_im);
QX_API qx_status qx_inverse_rfft_3D_debug(int32_t n0, int32_t n1, int32_t n2, double*** in,
                                          double*** out_re, double*** out_im);

// Plans, found or built; null after a report. The real plan needs an even n; its work arrays then
// hold the even values of `in` as real parts and the odd ones as imaginary parts.
QX_API qxfftplan* get_qxfftcache(int32_t n);
QX_API qxfftrealplan* get_qxfftrealcache(int32_t n, const double* in);

// How many of the configured radices (5, 4, 3, 2, each as often as it divides) make up n; -1 after
// a report.
QX_API int32_t get_fft_nfactors(int32_t n);
// These factors, the products before and the lengths after each; a cofactor is appended as a
// factor.
QX_API qx_status set_fft_factors(int32_t n, int32_t nfact, int32_t* factors, int32_t* before,
                                 int32_t* after);
// Twiddles, n entries each: for every stage but the last and for q = 1 .. factor - 1 the angles
// r q before 2 pi / n, r = 0 .. after - 1; for the last the multiples of 2 pi / factor; then zeros.
QX_API qx_status set_fft_cossin_tab(int32_t n, int32_t nfact, const int32_t* factors,
                                    const int32_t* before, const int32_t* after, double* cosine,
                                    double* sine);

// A transform by the plan's own factors, one published kernel after the other, between the caller's
// arrays; the inputs are overwritten. Slower than the transforms above and independent of them.
QX_API void forward_cfft_gut(const qxfftplan* plan, double* in_re, double* in_im, double* out_re,
                             double* out_im);
QX_API void inverse_cfft_gut(const qxfftplan* plan, double* in_re, double* in_im, double* out_re,
                             double* out_im);

// One stage, arguments by reference: product of the factors before, length after, source,
// destination, twiddle slices. With a length of 1 after it nothing is multiplied. The general pair
// takes any factor first; with a length of 1 after it the slices hold the multiples of
// 2 pi / factor.
QX_API void qx_fft_radix2f_(const int32_t* before, const int32_t* after, const double* in_re,
                            const double* in_im, double* out_re, double* out_im,
                            const double* cosine, const double* sine);
QX_API void qx_fft_radix2i_(const int32_t* before, const int32_t* after, const double* in_re,
                            const double* in_im, double* out_re, double* out_im,
                            const double* cosine, const double* sine);
QX_API void qx_fft_radix3f_(const int32_t* before, const int32_t* after, const double* in_re,
                            const double* in_im, double* out_re, double* out_im,
                            const double* cosine, const double* sine);
QX_API void qx_fft_radix3i_(const int32_t* before, const int32_t* after, const double* in_re,
                            const double* in_im, double* out_re, double* out_im,
                            const double* cosine, const double* sine);
QX_API void qx_fft_radix4f_(const int32_t* before, const int32_t* after, const double* in_re,
                            const double* in_im, double* out_re, double* out_im,
                            const double* cosine, const double* sine);
QX_API void qx_fft_radix4i_(const int32_t* before, const int32_t* after, const double* in_re,
                            const double* in_im, double* out_re, double* out_im,
                            const double* cosine, const double* sine);
QX_API void qx_fft_radix5f_(const int32_t* before, const int32_t* after, const double* in_re,
                            const double* in_im, double* out_re, double* out_im,
                            const double* cosine, const double* sine);
QX_API void qx_fft_radix5i_(const int32_t* before, const int32_t* after, const double* in_re,
                            const double* in_im, double* out_re, double* out_im,
                            const double* cosine, const double* sine);
QX_API void qx_fft_radix_genf_(const int32_t* factor, const int32_t* before, const int32_t* after,
                               const double* in_re, const double* in_im, double* out_re,
                               double* out_im, const double* cosine, const double* sine);
QX_API void qx_fft_radix_geni_(const int32_t* factor, const int32_t* before, const int32_t* after,
                               const double* in_re, const double* in_im, double* out_re,
                               double* out_im, const double* cosine, const double* sine);

QX_C_END
