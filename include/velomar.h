/*
 * Velomar: 8-bit image filters behind plain exported C functions.
 *
 * Two calling forms:
 *  - Matrix form: Src and Dest are Matrix records, the result is a Status. A
 *    rejected call returns the first failing check's code and leaves Dest as it
 *    was.
 *  - Raw form: Src, Dest, Width, Height, Stride, then the operation's
 *    parameters. Stride is the bytes per row shared by every buffer of the call;
 *    the bytes per pixel are Stride / Width in integer division (1 is grey, 3 is
 *    blue, green, red; a few operations also take 4 with alpha last). Every
 *    buffer holds Height * Stride bytes. Src may equal Dest unless a comment
 *    says otherwise; partially overlapping buffers are not supported. A call
 *    with a null pointer, Width or Height below 1, or a Stride too short for
 *    the layout it implies returns without touching any memory.
 *
 * Calling convention: __stdcall on 32-bit Windows (exported under plain names,
 * "BoxBlur", not "_BoxBlur@28"), the platform default elsewhere. No export
 * throws, keeps state between calls or starts threads.
 */
#ifndef VELOMAR_H
#define VELOMAR_H

/* Library version (libvelomar.so.VELOMAR_VERSION_MAJOR on Linux). */
#define VELOMAR_VERSION_MAJOR  0
#define VELOMAR_VERSION_MINOR  1
#define VELOMAR_VERSION_PATCH  0
#define VELOMAR_VERSION_STRING "0.1.0"

#include <stdint.h>

#if defined(_WIN32) && !defined(__x86_64__) && !defined(_M_X64)
#  define VL_CALL __stdcall
#else
#  define VL_CALL
#endif

#if defined(VELOMAR_BUILD) && !defined(_WIN32)
#  define VL_API __attribute__((visibility("default")))
#else
   /* On Windows the module-definition file names the exports. */
#  define VL_API
#endif

#ifdef __cplusplus
extern "C" {
#endif

/* ---- Matrix core ------------------------------------------------------- */

/* Result of the Matrix-form calls. The gaps (2, 6, 7) are intended.
 * VL_Status is the primary name and Status its short alias. X11's Xlib.h
 * defines Status as a macro (an int, the same type): where it is included
 * first the alias is left to Xlib; included after, its macro takes over the
 * short name. Either order compiles; VL_Status always names this type. */
typedef int32_t VL_Status;
#ifndef Status
typedef VL_Status Status;
#endif
/* The codes, under VL_ names and short names. Windows' winnt.h and ntstatus.h
 * define STATUS_INVALID_PARAMETER and STATUS_NOT_SUPPORTED as NTSTATUS codes:
 * include <windows.h> first and those two short names stay Windows' (the VL_
 * names always hold this library's codes). */
#define VL_STATUS_OK                0
#define VL_STATUS_OUT_OF_MEMORY     1
#define VL_STATUS_NULL_REFERENCE    3
#define VL_STATUS_INVALID_PARAMETER 4
#define VL_STATUS_SIZE_MISMATCH     5
#define VL_STATUS_NOT_SUPPORTED     8
#define STATUS_OK                VL_STATUS_OK
#define STATUS_OUT_OF_MEMORY     VL_STATUS_OUT_OF_MEMORY
#define STATUS_NULL_REFERENCE    VL_STATUS_NULL_REFERENCE
#ifndef STATUS_INVALID_PARAMETER
#  define STATUS_INVALID_PARAMETER VL_STATUS_INVALID_PARAMETER
#endif
#define STATUS_SIZE_MISMATCH     VL_STATUS_SIZE_MISMATCH
#ifndef STATUS_NOT_SUPPORTED
#  define STATUS_NOT_SUPPORTED   VL_STATUS_NOT_SUPPORTED
#endif

/* Element type codes (Matrix.Depth) and their sizes in bytes. */
#define DEPTH_8U  0 /* 1 */
#define DEPTH_8S  1 /* 1 */
#define DEPTH_16S 2 /* 2 */
#define DEPTH_32S 3 /* 4 */
#define DEPTH_32F 4 /* 4 */
#define DEPTH_64F 5 /* 8 */

/* Border rules: replicate clamps to the edge pixel, reflect mirrors about the
 * edge pixel without repeating it. Any non-zero value means reflect. */
#define EDGE_REPLICATE 0
#define EDGE_REFLECT   1

/* The image record. Rows are WidthStep bytes apart (a multiple of 4 for
 * records made by VL_CreateMatrix), top row first. Data is pointer-sized: the
 * record is 28 bytes on 32-bit builds and 40 bytes on 64-bit builds (Data at
 * offset 24 and Reserved at 32 there). */
typedef struct Matrix {
    int32_t Width;
    int32_t Height;
    int32_t WidthStep;
    int32_t Channel;  /* 1 grey; 3 blue, green, red; 4 with alpha */
    int32_t Depth;    /* DEPTH_* */
    unsigned char* Data;
    int32_t Reserved; /* 0 in records made by VL_CreateMatrix; never read */
} Matrix;

/* Creates a record with an uninitialised pixel block; WidthStep pads each row
 * to a multiple of 4 bytes. Returns 4 for Width or Height below 1, an unknown
 * Depth or a Channel outside 1..4 (nothing allocated, *Out untouched), 1 when
 * the pixels cannot be allocated (the record is released, *Out must not be
 * used), else 0. Release with VL_FreeMatrix. */
VL_API VL_Status VL_CALL VL_CreateMatrix(int32_t Width, int32_t Height, int32_t Depth,
                                      int32_t Channel, Matrix** Out);

/* Releases a record and its pixels; takes the address of the caller's pointer,
 * which it does not clear. Returns 3 for a null *Ref, 1 for a record without
 * Data (still released), else 0. */
VL_API VL_Status VL_CALL VL_FreeMatrix(Matrix** Ref);

/* Makes *Out a new 8-bit record holding Src surrounded by Left/Right columns
 * and Top/Bottom rows filled by EdgeMode. 3 for a null Src or Data; 4 for a
 * non-8-bit Src or a negative pad; otherwise VL_CreateMatrix's status. */
VL_API VL_Status VL_CALL GetPadImage(const Matrix* Src, Matrix** Out, int32_t Left, int32_t Right,
                                  int32_t Top, int32_t Bottom, int32_t EdgeMode);

/* ---- Display (Windows only) -------------------------------------------- */

#ifdef _WIN32
/* Draws a 24-bit blue-green-red picture (rows padded to a multiple of 4 bytes,
 * top row first) onto the device context DeviceContext (an HDC) with GDI's
 * StretchDIBits. The destination rectangle is DestX, DestY, DestWidth,
 * DestHeight (0 means the picture's own Width or Height); the source rectangle
 * SrcX, SrcY (negative taken as 0), SrcWidth, SrcHeight (0 means the whole
 * Width or Height; a negative size mirrors: -Width left to right, -Height top
 * to bottom). Halftone exactly 1 stretches with HALFTONE, any other value with
 * COLORONCOLOR. The device context's stretch mode is restored; returns what
 * the restoring SetStretchBltMode returns: the mode used for the drawing (4
 * HALFTONE or 3 COLORONCOLOR), or 0 if the restore failed. Nothing is
 * validated and drawing errors are not reported. Not built on other systems. */
VL_API int32_t VL_CALL Render(const unsigned char* Pixels, int32_t Width, int32_t Height,
                              void* DeviceContext, int32_t DestX, int32_t DestY, int32_t DestWidth,
                              int32_t DestHeight, int32_t SrcX, int32_t SrcY, int32_t SrcWidth,
                              int32_t SrcHeight, uint8_t Halftone);
#endif

/* ---- Point operations -------------------------------------------------- */

/* Complements every byte (alpha and row padding included). Any Channel 1..4;
 * 8-bit only. Src may be Dest. */
VL_API VL_Status VL_CALL Invert(const Matrix* Src, Matrix* Dest);

/* Grey = (max + min) / 2 of blue, green, red written to the three colour
 * bytes; alpha of Dest is left alone. Channel 3 or 4 (else 4), 8-bit (else 8).
 * On success returns the last grey level written (0..255), not 0: treat only
 * 3, 4, 5 and 8 as failures. */
VL_API int32_t VL_CALL Desaturate(const Matrix* Src, Matrix* Dest);

/* Curve 255 * (i / 255) ^ Gamma, truncated. Gamma 0 leaves Dest untouched.
 * Grey (Stride / Width == 1) maps the whole Height * Stride run, padding
 * included; otherwise three bytes per pixel. */
VL_API void VL_CALL GammaCorrection(const unsigned char* Src, unsigned char* Dest, int32_t Width,
                                    int32_t Height, int32_t Stride, double Gamma);

/* Matrix form of GammaCorrection; Channel 1 or 3 are mapped, 2 and 4 left
 * alone. Always returns 0, even for rejected records (Dest is then untouched). */
VL_API VL_Status VL_CALL GammaCorrection1(const Matrix* Src, Matrix* Dest, double Gamma);

/* Levels: input range [InputLow (0..253), InputHigh (2..255)], midtone Gamma
 * (0.01..9.99), output range [OutputLow, OutputHigh]; parameters outside those
 * ranges are clamped into them. */
VL_API void VL_CALL Level(const unsigned char* Src, unsigned char* Dest, int32_t Width,
                          int32_t Height, int32_t Stride, int32_t InputLow, double Gamma,
                          int32_t InputHigh, int32_t OutputLow, int32_t OutputHigh);

/* Reduces each channel to the low byte of Levels (2..255) evenly spaced
 * levels; a low byte of 0 or 1 returns 4. Channel 1 or 3 are mapped; 2 and 4
 * return 0 with Dest untouched. */
VL_API VL_Status VL_CALL Posterize(const Matrix* Src, Matrix* Dest, int32_t Levels);

/* 255 where the value (grey) or B + G + R (colour, against 3 * Threshold) is
 * strictly greater than the threshold, else 0. */
VL_API void VL_CALL Threshold(const unsigned char* Src, unsigned char* Dest, int32_t Width,
                              int32_t Height, int32_t Stride, int32_t Threshold);

/* Brightness offset and contrast stretch about a mean level taken from the
 * top row. Contrast 100 is a hard threshold at that mean, negative values
 * flatten. */
VL_API void VL_CALL AdjustBrightnessAndContrast(const unsigned char* Src, unsigned char* Dest,
                                                int32_t Width, int32_t Height, int32_t Stride,
                                                int32_t Brightness, int32_t Contrast);

/* ---- Histogram auto adjustments, glow, colour transfer ------------------ */

/* Stretches each channel between the levels that clip ClipFraction of the
 * pixels at each end; AutoGamma non-zero also maps each channel's mean to
 * mid-grey. */
VL_API void VL_CALL AutoLevel(const unsigned char* Src, unsigned char* Dest, int32_t Width,
                              int32_t Height, int32_t Stride, double ClipFraction,
                              unsigned char AutoGamma);

/* One stretch for all three channels from their joint range. Grey input runs
 * AutoLevel with AutoGamma forced on. */
VL_API void VL_CALL AutoContrast(const unsigned char* Src, unsigned char* Dest, int32_t Width,
                                 int32_t Height, int32_t Stride, double ClipFraction,
                                 unsigned char AutoGamma);

/* One stretch for all three channels from the luminance histogram. Grey input
 * runs AutoLevel with AutoGamma forced on. */
VL_API void VL_CALL AutoColor(const unsigned char* Src, unsigned char* Dest, int32_t Width,
                              int32_t Height, int32_t Stride, double ClipFraction,
                              unsigned char AutoGamma);

/* Histogram equalisation with one table built from all channels together. */
VL_API void VL_CALL HistEqualize(const unsigned char* Src, unsigned char* Dest, int32_t Width,
                                 int32_t Height, int32_t Stride);

/* Screen-blends a Gaussian-blurred, brightness/contrast-adjusted copy over the
 * image. Always walks three bytes per pixel (grey buffers are left
 * untouched). */
VL_API void VL_CALL SoftGlow(const unsigned char* Src, unsigned char* Dest, int32_t Width,
                             int32_t Height, int32_t Stride, int32_t Sigma, int32_t Brightness,
                             int32_t Contrast);

/* Solarise: bytes above 127 become 255 - value. Bytes of 127 or less are not
 * written, so run it in place (Src == Dest) unless Dest already holds Src. */
VL_API void VL_CALL Exposal(const unsigned char* Src, unsigned char* Dest, int32_t Width,
                            int32_t Height, int32_t Stride);

/* Gives Target the per-channel mean and spread of Reference in a logarithmic
 * l-alpha-beta colour space. Three bytes per pixel; the two images may differ
 * in size. Dest may be Target. */
VL_API void VL_CALL ColorTransfer(const unsigned char* Reference, const unsigned char* Target,
                                  unsigned char* Dest, int32_t ReferenceWidth,
                                  int32_t ReferenceHeight, int32_t ReferenceStride,
                                  int32_t Width, int32_t Height, int32_t Stride);

/* ---- Blurs -------------------------------------------------------------- */

/* Truncated mean of the (2 Radius + 1)^2 box, constant time in Radius.
 * 1, 3 or 4 bytes per pixel; with 4 the colour is weighted by alpha and a
 * pixel whose whole box is transparent is not written. Other layouts are not
 * written. */
VL_API void VL_CALL BoxBlur(const unsigned char* Src, unsigned char* Dest, int32_t Width,
                            int32_t Height, int32_t Stride, int32_t Radius, int32_t EdgeMode);

/* Recursive Gaussian of standard deviation Sigma, constant time in Sigma;
 * results are truncated, not rounded. Grey or three bytes per pixel. */
VL_API void VL_CALL GuassBlur(const unsigned char* Src, unsigned char* Dest, int32_t Width,
                              int32_t Height, int32_t Stride, double Sigma);

/* Percentile filter (Percent 50 is the median, 0 the minimum, 100 the
 * maximum) over the (2 Radius + 1)^2 box, Radius 1..127 (else Dest is left
 * untouched); borders replicate. Constant time in Radius. */
VL_API void VL_CALL MedianBlur(const unsigned char* Src, unsigned char* Dest, int32_t Width,
                               int32_t Height, int32_t Stride, int32_t Radius, int32_t Percent);

/* Motion blur: every pixel becomes the mean of the picture along a segment of
 * Distance pixels centred on it, at Angle degrees (counter-clockwise as seen
 * on screen: 0 is horizontal, 90 vertical). The segment is sampled every
 * quarter pixel and each sample shared bilinearly among the four pixels
 * around it, so any angle and length give a smooth streak; the weights are
 * the integer kernel GetMotionArray returns, and each result is rounded to
 * the nearest level. Distance 0..1000 (0 copies Src), Angle finite, else Dest
 * is left untouched. Borders by EdgeMode. Stride / Width of 1 is grey, 4 is
 * four bytes per pixel (all four blurred alike), any other value from 3 up is
 * three bytes per pixel; 2 is not written. */
VL_API void VL_CALL MotionBlur(const unsigned char* Src, unsigned char* Dest, int32_t Width,
                               int32_t Height, int32_t Stride, int32_t Distance, double Angle,
                               int32_t EdgeMode);

/* The kernel of MotionBlur: fills Kernel with Size * Size weights (rows top to
 * bottom, the pixel itself in the middle, Size = 2 * ((Distance + 1) / 2) + 1)
 * summing to exactly 65536, and returns Size. A null Kernel only returns the
 * Size. Returns 0 and writes nothing for a Distance outside 0..1000 or a
 * non-finite Angle. */
VL_API int32_t VL_CALL GetMotionArray(int32_t* Kernel, int32_t Distance, double Angle);

/* Linear blur: a one-sided trail. Every pixel becomes the mean of the picture
 * along the segment from itself back Distance pixels against the direction
 * Angle, so the picture is smeared toward Angle (90 drags it upward) while
 * edges facing the other way stay sharp. Sampling, weights, rounding, ranges,
 * borders and layouts as MotionBlur; Src may be Dest. */
VL_API void VL_CALL LinearBlur(const unsigned char* Src, unsigned char* Dest, int32_t Width,
                               int32_t Height, int32_t Stride, int32_t Distance, double Angle,
                               int32_t EdgeMode);

/* Reserved entry point: returns at once without reading or writing anything. */
VL_API void VL_CALL SurfaceBlur(const unsigned char* Src, unsigned char* Dest, int32_t Width,
                                int32_t Height, int32_t Stride, int32_t Radius, int32_t Threshold);

/* ---- Edge-preserving smoothing and denoising ---------------------------- */

/* Joint bilateral filter: smooths Src with range weights from Guide (pass Src
 * for the plain filter). SigmaSpatial is in 1/255 of the shorter side,
 * SigmaRange in grey levels; Downsample k > 0 runs the levels at 1/2^k size;
 * UseGaussian 1 selects a Gaussian spatial filter, anything else a box.
 * Colour buffers may have padded rows. Single-channel buffers should have
 * Stride == Width: their levels are filled as one run of Width * Height
 * values but read rows Stride apart, so padded rows give a result that mixes
 * rows (memory is still never touched outside the buffers). */
VL_API void VL_CALL BilateralFilter(const unsigned char* Src, const unsigned char* Guide,
                                    unsigned char* Dest, int32_t Width, int32_t Height,
                                    int32_t Stride, int32_t Downsample, double SigmaSpatial,
                                    double SigmaRange, int32_t UseGaussian);

/* Guided filter of Src following the edges of Guide (may be Src), box of side
 * 2 Radius + 1, regularisation Epsilon in (intensity / 255)^2. */
VL_API void VL_CALL GuidedFilter(const unsigned char* Src, const unsigned char* Guide,
                                 unsigned char* Dest, int32_t Width, int32_t Height,
                                 int32_t Stride, int32_t Radius, double Epsilon);

/* Bi-exponential edge-preserving smoothing: a forward and a backward
 * recursion along every line (reach grows with Lambda, edges above about
 * SigmaRange grey levels stop it), the mean of the rows-first and the
 * columns-first orders. Grey or three bytes per pixel; other layouts are left
 * alone. Lambda 0 returns the image unchanged. */
VL_API void VL_CALL BiExponentialEPF(const unsigned char* Src, unsigned char* Dest, int32_t Width,
                                     int32_t Height, int32_t Stride, double Lambda,
                                     double SigmaRange);

/* Lee's local-statistics filter for additive noise; NoiseVariance 0 estimates
 * it from the image. On grey buffers the local mean is read from Dest as it is
 * on entry (fill Dest with the local mean first for the textbook result). */
VL_API void VL_CALL LeeAdditvieNoiseFilter(const unsigned char* Src, unsigned char* Dest,
                                           int32_t Width, int32_t Height, int32_t Stride,
                                           int32_t Radius, int32_t NoiseVariance);

/* Recursive domain-transform smoothing of Src along the edges of Guide (may
 * be Src): SigmaS spatial scale in pixels, SigmaR range scale in grey levels,
 * Iterations row-and-column pass pairs with shrinking scale (0 or less: the
 * image re-quantised through floats). Grey, else three bytes per pixel. */
VL_API void VL_CALL RecursiveDomainTransformFilter(const unsigned char* Src,
                                                   const unsigned char* Guide, unsigned char* Dest,
                                                   int32_t Width, int32_t Height, int32_t Stride,
                                                   double SigmaS, double SigmaR,
                                                   int32_t Iterations);

/* Speckle-reducing anisotropic diffusion, Iterations steps of Lambda / 4 times
 * the divergence, the speckle scale taken from the flattest 64 x 64 block (an
 * image narrower or shorter than 64 pixels uses the whole image). Three bytes
 * per pixel filter each channel; every other layout filters the first Width
 * bytes of each row. */
VL_API void VL_CALL SpeckleReducingAnisotropicDiffusion(const unsigned char* Src,
                                                        unsigned char* Dest, int32_t Width,
                                                        int32_t Height, int32_t Stride,
                                                        int32_t Iterations, double Lambda);

/* Adaptive Wiener filter; Noise 0 estimates the noise variance per channel. */
VL_API void VL_CALL Wiener2(const unsigned char* Src, unsigned char* Dest, int32_t Width,
                            int32_t Height, int32_t Stride, int32_t Radius, int32_t Noise,
                            int32_t EdgeMode);

/* Moves each pixel against its local-equalisation offset by Amount percent. */
VL_API void VL_CALL ReduceNoise(const unsigned char* Src, unsigned char* Dest, int32_t Width,
                                int32_t Height, int32_t Stride, int32_t Radius, int32_t Amount);

/* ---- Enhancement ------------------------------------------------------- */

/* Tone curves computed per tile of a TilesX x TilesY grid and blended
 * bilinearly between neighbouring tiles. Grey or three bytes per pixel; other
 * layouts, tile counts below 1, null buffers, and grids whose mirrored border
 * would be wider than the image are left alone (Dest is not written). Sides
 * that are not whole numbers of tiles are mirrored out to them (repeating the
 * edge pixel) and the middle is copied back from PadX * 3 bytes into each
 * enlarged row, so a grey image comes back shifted by 2 * PadX pixels, where
 * PadX is half the added columns; whole rows of Stride bytes are copied, row
 * padding included. Src may equal Dest.
 *
 * AdaptEqualize: contrast-limited equalisation; CutLimit 0 clips every bin to
 * the mean count, 1 does not clip; Separate 1 (low byte) gives each colour
 * channel its own curve, 0 one joint curve, other values write 0 to colour
 * images. */
VL_API void VL_CALL AdaptEqualize(const unsigned char* Src, unsigned char* Dest, int32_t Width,
                                  int32_t Height, int32_t Stride, int32_t TilesX, int32_t TilesY,
                                  double CutLimit, int32_t Separate);
/* Per-tile, per-channel stretch of the range left after discarding CutOff of
 * the values at each end onto the occupied range widened by Expand. */
VL_API void VL_CALL AdaptAutoLevel(const unsigned char* Src, unsigned char* Dest, int32_t Width,
                                   int32_t Height, int32_t Stride, int32_t TilesX, int32_t TilesY,
                                   double CutOff, double Expand);
/* As AdaptAutoLevel with one curve per tile shared by all channels. */
VL_API void VL_CALL AdaptAutoContrast(const unsigned char* Src, unsigned char* Dest, int32_t Width,
                                      int32_t Height, int32_t Stride, int32_t TilesX, int32_t TilesY,
                                      double CutOff, double Expand);

/* Automatic white balance: blue, green and red scaled so that a reference
 * white found in the image becomes neutral. Three bytes per pixel (rows that
 * cannot hold them are left alone); the grey-world model works only where
 * Stride / Width is 3. Where no pixel qualifies as the reference white, Dest
 * receives the image unchanged. Src may equal Dest; row padding is not
 * written.
 *
 * Dynamic threshold: near-white pixels in luma/chroma, chosen per square block
 * of BlockSize pixels (Global 0), or by the block statistics averaged over the
 * image (Global 1; other values select no pixel); Squared 1 measures the
 * chroma spread as a mean squared deviation, otherwise a mean absolute one. */
VL_API void VL_CALL AutoWhiteBalanceUseDynamicThreshold(const unsigned char* Src, unsigned char* Dest,
                                                        int32_t Width, int32_t Height, int32_t Stride,
                                                        int32_t BlockSize, unsigned char Global,
                                                        unsigned char Squared);
/* Reflector: the Ratio percent brightest pixels (by B + G + R) are white. */
VL_API void VL_CALL AutoWhiteBalanceUseReflectorTheory(const unsigned char* Src, unsigned char* Dest,
                                                       int32_t Width, int32_t Height, int32_t Stride,
                                                       int32_t Ratio);
/* Grey world: the channel means (taken, as the filter defines them, over the
 * first column) are made equal to their average. */
VL_API void VL_CALL AutoWhiteBalanceUseStandardGrayWorldModel(const unsigned char* Src, unsigned char* Dest,
                                                              int32_t Width, int32_t Height, int32_t Stride);

/* Multi-scale Retinex: per value, ln(v + 1) minus the log of its Gaussian
 * surround, averaged over NScales scales (one: Sigma; two: Sigma / 2 and
 * Sigma; more: evenly spaced from 2 by Sigma / NScales), then stretched over
 * 0..255 from Dynamic standard deviations about the mean. MSRCRGIMP treats
 * each channel (grey, or three bytes per pixel); MSRHSV filters the HSV value
 * of three-byte pixels and keeps their hue and saturation. NScales below 1
 * writes nothing; the time grows with NScales (one blur each). Row padding is
 * not written; Src may equal Dest. */
VL_API void VL_CALL MSRCRGIMP(const unsigned char* Src, unsigned char* Dest, int32_t Width, int32_t Height,
                              int32_t Stride, double Sigma, int32_t NScales, double Dynamic);
VL_API void VL_CALL MSRHSV(const unsigned char* Src, unsigned char* Dest, int32_t Width, int32_t Height,
                           int32_t Stride, double Sigma, int32_t NScales, double Dynamic);

/* Haze removal: the haze model I = J t + A (1 - t) inverted per pixel with
 * a transmission t (floored at 25/255) and an atmospheric light A. Pixels
 * are read as three bytes (blue, green, red); rows that cannot hold them
 * are left alone. Row padding is not written; Src may equal Dest.
 *
 * Dark channel prior: transmission from the minimum-filtered dark channel
 * (radius 1 % of the longer side, 5..30), bright flat regions found by a
 * deterministic four-level brightness segmentation treated as sky, refined
 * by a guided filter (six times the radius), and a closing gamma of 0.9.
 * Scale below 1 estimates the transmission on an image resized by Scale
 * (faster) and enlarges the map bilinearly; a Scale that leaves no pixel
 * writes nothing. */
VL_API void VL_CALL HazeRemovalBasedOnDarkChannelPrior(const unsigned char* Src, unsigned char* Dest,
                                                       int32_t Width, int32_t Height, int32_t Stride,
                                                       double Scale);
/* Fast variant: the veil is the dark channel's box mean (Radius, mirrored
 * borders) scaled by Strength times the image's mean darkness, at most
 * 0.9. Strength 0 returns the image unchanged. A negative Radius writes
 * nothing. */
VL_API void VL_CALL HazeRemovalBasedOnBoxBlur(const unsigned char* Src, unsigned char* Dest, int32_t Width,
                                              int32_t Height, int32_t Stride, int32_t Radius, double Strength);
/* Contrast-driven dehazing: the atmospheric light as for the dark channel
 * prior; in every BlockSize x BlockSize block the transmission among 0.10,
 * 0.15, .., 1.00 that maximises the variance of the recovered values minus
 * LossWeight times the mean squared amount by which they leave 0..255 (0
 * ignores clipping; larger values tolerate less of it); the block map is
 * refined by a guided filter of radius Radius. Suggested: BlockSize 32,
 * LossWeight 5, Radius 40. BlockSize below 1, a negative Radius or a
 * negative or NaN LossWeight write nothing. Deterministic. */
VL_API void VL_CALL HazeRemovalBasedonContrastEnhancement(const unsigned char* Src, unsigned char* Dest,
                                                          int32_t Width, int32_t Height, int32_t Stride,
                                                          int32_t BlockSize, double LossWeight, int32_t Radius);

/* High dynamic range. Exposure blending: each byte s of Src is blended with
 * the byte of ForHighlights (s above 127) or ForShadows (else) at the same
 * place, Src weighted by exp(-4 (b - 127.5)^2 / 127.5^2) with b the byte of
 * Src's self-guided filter (Radius, regularisation 0.01). Grey pixels blend
 * one byte, other layouts three. Tone mapping (HdrBasedOnGuiderFilter): the
 * log base layer of the intensity (40 G + 21 B) / 61 is compressed to a 5:1
 * contrast with its top at full intensity, the detail layer kept; pixels
 * are read as three bytes (grey images are left alone). A uniform image is
 * not compressed, and a pixel without blue and green keeps its values.
 * Negative radii write nothing; Src may equal Dest. */
VL_API void VL_CALL HdrBasedOnExposureBlending(const unsigned char* Src, const unsigned char* ForShadows,
                                               const unsigned char* ForHighlights, unsigned char* Dest,
                                               int32_t Width, int32_t Height, int32_t Stride, int32_t Radius);
VL_API void VL_CALL HdrBasedOnGuiderFilter(const unsigned char* Src, unsigned char* Dest, int32_t Width,
                                           int32_t Height, int32_t Stride, int32_t Radius);

/* Contrast enhancement, every byte of the buffer (row padding included)
 * moved away from a local estimate by Amount percent of its difference.
 * Lee: from the box mean (Radius, replicated borders) stretched from
 * InputLow..InputHigh onto 0..255 (127 everywhere when InputHigh <=
 * InputLow); an in-place call uses the range 0..255 whatever is passed.
 * Detail: from the self-guided filter (Radius, regularisation 0.01).
 * Src may equal Dest. */
VL_API void VL_CALL LeeContrastEnhancement(const unsigned char* Src, unsigned char* Dest, int32_t Width,
                                           int32_t Height, int32_t Stride, int32_t Radius, int32_t Amount,
                                           int32_t InputLow, int32_t InputHigh);
VL_API void VL_CALL DetailEnhanceByEdgePreseveingFilter(const unsigned char* Src, unsigned char* Dest,
                                                        int32_t Width, int32_t Height, int32_t Stride,
                                                        int32_t Radius, int32_t Amount);
/* Local standard deviation: each value is moved from its local mean (box of
 * Radius, mirrored borders) with a gain of Amount percent of the channel's
 * global deviation over the local one, at most MaxGain. Three-byte pixels use
 * the local means of their own bytes; grey pixels use the bytes Dest holds
 * on entry as their means (an in-place call therefore returns the image
 * unchanged). Grey or three bytes per pixel; other layouts write nothing. */
VL_API void VL_CALL LSDContrastEnhancement(const unsigned char* Src, unsigned char* Dest, int32_t Width,
                                           int32_t Height, int32_t Stride, int32_t Radius, int32_t Amount,
                                           int32_t MaxGain);
/* Gamma curve from the image's histogram weighted by the exponent Alpha:
 * value i becomes 255 (i / 255)^(1 - weighted cdf(i)). Grey images get one
 * curve; colour images one per channel, or with UseHsv non-zero one for the
 * HSV value with hue and saturation kept. An image with a flat histogram
 * becomes its first byte. */
VL_API void VL_CALL AdaptiveGammaCorrection(const unsigned char* Src, unsigned char* Dest, int32_t Width,
                                            int32_t Height, int32_t Stride, double Alpha, unsigned char UseHsv);

/* Skin smoothing: the image smoothed by FilterType (0 bi-exponential, 1
 * guided, 2 bilateral, 3 domain transform, 4 Lee; other values do not
 * smooth) with a strength Level 0..10, lifted by a tone curve (ToneMode 0
 * logarithmic with ToneAmount + 2 as its base, 1 parabolic in the
 * mid-tones by ToneAmount; other modes no lift), blended into Src under a
 * soft mask of skin-coloured pixels and, for Level above 0, lightly
 * sharpened. Level outside 0..10 writes nothing. Grey or three bytes per
 * pixel; other layouts write nothing. Src may equal Dest. */
VL_API void VL_CALL DermabrasionFilter(const unsigned char* Src, unsigned char* Dest, int32_t Width,
                                       int32_t Height, int32_t Stride, int32_t FilterType, int32_t ToneMode,
                                       int32_t Level, int32_t ToneAmount);

/* ---- Frequency domain --------------------------------------------------- */

/* Spectrum pictures. Each channel (grey, or the first three bytes of a pixel
 * for any other Stride / Width) is loaded into a float plane padded with zeros
 * to powers of two, transformed, and the centred Width x Height window of the
 * plane is written back, truncated and clamped to 0..255. Fourth bytes and row
 * padding are not written; Src may equal Dest. A Stride / Width of 2 writes
 * nothing. */

/* Amplitude spectrum, zero frequency at the centre: (|re| + |im|) / 255 for
 * Direction 0 (unscaled transform), x 255 for Direction 1 (transform scaled by
 * 1 / (padded width x height)); only Direction's low byte counts. The pixels
 * are the imaginary part of the signal; CopyToReal 1 also copies them into the
 * real part, any other value leaves it zero. */
VL_API void VL_CALL ShowFFT(const unsigned char* Src, unsigned char* Dest, int32_t Width, int32_t Height,
                            int32_t Stride, unsigned char CopyToReal, int32_t Direction);
/* Orthonormal DCT coefficients x 10, low orders at the top-left for
 * power-of-two sizes: Direction 0 the forward transform, 1 the inverse
 * transform of the pixels. */
VL_API void VL_CALL ShowDCT(const unsigned char* Src, unsigned char* Dest, int32_t Width, int32_t Height,
                            int32_t Stride, int32_t Direction);
/* Walsh-Hadamard coefficients (dyadic order, scaled by 1 / padded area)
 * x 2000. */
VL_API void VL_CALL ShowWALSH(const unsigned char* Src, unsigned char* Dest, int32_t Width, int32_t Height,
                              int32_t Stride);

/* Filters Src with Kernel, normalised by the kernel's sum (1 when it sums to
 * 0), rounded and clamped into Dest. Kernel holds Kernel.Width x
 * Kernel.Height floats row after row at Data (its other fields are not read).
 * Conv2 correlates over a border extended by EdgeMode; kernels whose rows,
 * padded to a multiple of 4, hold more than 16 floats but not a multiple of
 * 16 weigh the first floats twice and leave as many out at the end (a 5 x 5
 * kernel counts its first row twice and not its last). FFTConv2 convolves
 * (the kernel mirrored) through the FFT, which pays off for large kernels.
 * Channel 3 is filtered per channel; any other Channel reads and writes only
 * the first Width bytes of each row. Src may equal Dest. Returns 3 for a null
 * record or Data, 5 when Src and Dest differ in shape (Width, Height,
 * Channel, Depth, WidthStep), 4 for a kernel size below 1 (or an image
 * without pixels, or rows shorter than their pixels); Conv2 also returns 4
 * for a Depth other than DEPTH_8U outside Channel 3, while FFTConv2 reads one
 * byte per pixel whatever the Depth. Dest is untouched on any non-zero
 * result. */
VL_API VL_Status VL_CALL Conv2(const Matrix* Src, const Matrix* Kernel, Matrix* Dest, int32_t EdgeMode);
VL_API VL_Status VL_CALL FFTConv2(const Matrix* Src, const Matrix* Kernel, Matrix* Dest, int32_t EdgeMode);

/* ---- Local statistics --------------------------------------------------- */

/* Minimum / maximum / maximum minus minimum over the box clipped to the
 * image. MinValue writes only the Width pixels of each row; MaxValue also
 * copies Src's row padding into Dest's (it works on the complement of the
 * whole buffer); RangeFilter also writes the row padding. */
VL_API void VL_CALL MinValue(const unsigned char* Src, unsigned char* Dest, int32_t Width,
                             int32_t Height, int32_t Stride, int32_t Radius);
VL_API void VL_CALL MaxValue(const unsigned char* Src, unsigned char* Dest, int32_t Width,
                             int32_t Height, int32_t Stride, int32_t Radius);
VL_API void VL_CALL RangeFilter(const unsigned char* Src, unsigned char* Dest, int32_t Width,
                                int32_t Height, int32_t Stride, int32_t Radius);

/* Integer standard deviation of the box (borders by EdgeMode); the row
 * padding of Dest is set to 0. */
VL_API void VL_CALL StdFilter(const unsigned char* Src, unsigned char* Dest, int32_t Width,
                              int32_t Height, int32_t Stride, int32_t Radius, int32_t EdgeMode);

/* Local base-2 entropy of the box, stretched per channel to 0..255. */
VL_API void VL_CALL EntropyFilter(const unsigned char* Src, unsigned char* Dest, int32_t Width,
                                  int32_t Height, int32_t Stride, int32_t Radius,
                                  int32_t EdgeMode);

/* Average of Count copies displaced by Distance pixels in directions spread
 * around a circle, rotated by Angle degrees; borders mirror. 1, 3 or 4 bytes
 * per pixel (4: alpha-weighted, fully transparent samples leave Dest alone).
 * The time grows with Count times the number of pixels: every copy is read
 * for every pixel. */
VL_API void VL_CALL Fragment(const unsigned char* Src, unsigned char* Dest, int32_t Width,
                             int32_t Height, int32_t Stride, int32_t Count, int32_t Distance,
                             double Angle);

/* ---- Sharpening and edges ----------------------------------------------- */

/* Adds Amount percent of (source - Gaussian blur) where its magnitude is at
 * least Threshold. Grey or three bytes per pixel; other layouts are left
 * untouched. */
VL_API void VL_CALL UnsharpMask(const unsigned char* Src, unsigned char* Dest, int32_t Width,
                                int32_t Height, int32_t Stride, double Sigma, int32_t Amount,
                                int32_t Threshold);

/* Source minus its Gaussian blur, offset to 128. Running it in place makes
 * every treated byte 128 (the blur overwrites the source first). */
VL_API void VL_CALL HighPass(const unsigned char* Src, unsigned char* Dest, int32_t Width,
                             int32_t Height, int32_t Stride, double Sigma);

/* Pushes each pixel away from a rank statistic of its neighbourhood. */
VL_API void VL_CALL SharpenByHistgram(const unsigned char* Src, unsigned char* Dest,
                                      int32_t Width, int32_t Height, int32_t Stride,
                                      int32_t Radius);

/* Dark edges on white: 255 minus the capped Sobel magnitude per channel.
 * 1, 3 or 4 bytes per pixel (the fourth byte is not written). */
VL_API void VL_CALL FindEdges(const unsigned char* Src, unsigned char* Dest, int32_t Width,
                              int32_t Height, int32_t Stride);

#ifdef __cplusplus
}
#endif

#endif /* VELOMAR_H */
