// Fast forms of the per-pixel work of the hue-based adjustments, run over a
// run of stored pixels (blue, green, red) of one row; each keeps the
// straightforward pixel function beside it and takes it when
// UseReferencePaths() is set. The straightforward forms write only the
// pixels they change into a copy of the caller's block; the fast forms
// write every pixel (copying those they leave alone) into a block that holds
// only the bytes around the rows (result_frame.h).
//
// - HSI by tables: the hue and saturation bytes of RGBtoHSI depend only on
//   the integer max, min and the sector difference, so tables built with the
//   very same double expressions give the same bytes (HsiForward), whose
//   indices are formed eight pixels at a time with AVX2; the way back takes
//   h, s and l from tables of the same quotients and evaluates the rest as
//   HSItoRGB does, one ramp per pixel, four (AVX2) or two (SSE2) pixels at a
//   time in vector registers (hsi_back.h). Tests compare both with the
//   exported conversions over every input.
// - Desaturate: the grey is (max + min) / 2 in every byte (GreyTable proves
//   that the way back gives exactly that), taken 16 pixels at a time on
//   SSE2 from the interleaved bytes.
// - CMYK levels: one table per ink of the scaled ink (ScaleInk), and the
//   per-pixel form 255 - K' - ink', limited at 0, in integers.
#ifndef PAX_ADJUST_HUE_FAST_H
#define PAX_ADJUST_HUE_FAST_H

#include "desaturate.h"
#include "hsi_back.h"
#include "paximage.h"

#include <cstdint>

namespace hueadjust {

// The hue and saturation bytes of RGBtoHSI by table.
struct HsiForward {
    HsiForward();
    BYTE saturation[256 * 256]; // [d][denominator], denominator = sum or 510 - sum
    BYTE hue[3][256 * 256];     // [sector][d * d + difference + d]
    // (H, S, I) of R, G, B as RGBtoHSI gives them.
    void Convert(int r, int g, int b, BYTE hsi[3]) const;
    inline void ConvertInline(int r, int g, int b, BYTE hsi[3]) const;
};

// HSItoRGB with h, s and l taken from tables and what each channel takes
// (m2, m1 or the hue's one ramp) known per hue byte (hsi_back.h).
using HsiBack = pax::HsiBackTables;

// The tables of the process, built on first use.
const HsiForward &ForwardTables();
const HsiBack &BackTables();

// The HSI move of ColorHueSaturation and ReplaceColor over runs of pixels.
// selectByHue: pixels whose hue lies in lo..hi; else pixels inside the box.
struct HueMoveRun {
    bool reference;
    int shift, saturation, lightness;
    bool selectByHue;
    int lo, hi;                                      // hue range
    int blueLo, blueHi, greenLo, greenHi, redLo, redHi; // colour box
    // Per byte value: the moved hue (-1 where the hue range leaves the pixel
    // alone), saturation and lightness. Prepare() fills them from the fields.
    int16_t movedHue[256];
    BYTE movedSaturation[256], movedLightness[256];
    bool avx2; // the AVX2 forms; Prepare() sets it where they are built and the processor has them
    void Prepare();
    void Run(const BYTE *in, BYTE *out, int64_t count) const;
};

struct DesaturateRun {
    bool reference;
    GreyTable table;
    bool identity; // every grey of the table is its lightness byte
    DesaturateRun();
    void Run(const BYTE *in, BYTE *out, int64_t count) const;
};

// Each scaled ink as min(255, ink x multiplier >> shift), shift 8..16, when
// that gives the ink's table for all 256 inks (FindCmykForm checks it).
struct CmykIntegerForm {
    uint16_t multiplier[4];
    int shift[4];
};
bool FindCmykForm(const BYTE scaled[4][256], CmykIntegerForm *form);
// Pixels done, a multiple of 32 (cmyk_levels_avx2.cpp).
int64_t CmykLevelsAvx2(const BYTE *in, BYTE *out, int64_t count, const CmykIntegerForm &form);

struct CmykLevelsRun {
    bool reference;
    double factors[4]; // cyan, magenta, yellow, black
    BYTE scaled[4][256];
    bool vector;   // the integer form holds and the processor has AVX2
    CmykIntegerForm form;
    explicit CmykLevelsRun(const double f[4]);
    void Run(const BYTE *in, BYTE *out, int64_t count) const;
};

} // namespace hueadjust

#endif
