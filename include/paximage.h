/* PaxImage: colour-image operations on packed DIBs held in global memory.
 *
 * Every export is a plain C function. Images cross the boundary as HDIB handles
 * to movable global blocks holding a packed DIB (40-byte BITMAPINFOHEADER,
 * colour table, bottom-up rows padded to 4 bytes). An operation reads the
 * caller's image, returns a new image that the caller frees with GlobalFree,
 * and leaves a failure code in the calling thread's status record.
 *
 * On Windows this header includes <windows.h>; elsewhere it includes the
 * library's own small stand-in with the same types, so host code is the same.
 */
#ifndef PAXIMAGE_H
#define PAXIMAGE_H

#ifdef _WIN32
#include <windows.h>
#else
#include "win32lite.h"
#endif

#ifdef __cplusplus
extern "C" {
#endif

#if defined(_WIN32)
#define PAXAPI
#define PAXCALL WINAPI
#else
#define PAXAPI __attribute__((visibility("default")))
#define PAXCALL
#endif

typedef HGLOBAL HDIB;

/* One CMYK value: C, M, Y, K bytes in that order (C in bits 0-7 of the value
 * seen as 32 bits). Every conversion into CMYK returns one by value. */
typedef struct tagCMYKQUAD {
    BYTE c;
    BYTE m;
    BYTE y;
    BYTE k;
} CMYKQUAD;

/* Colour-model codes of the buffer and image conversions. An image converted
 * into model m carries the tag 0 (RGB) or m + 8 in biCompression. */
typedef enum ColorModel {
    MODEL_RGB = 1,
    MODEL_YUV = 2,
    MODEL_CMY = 3,
    MODEL_CMYK = 4,
    MODEL_YIQ = 5,
    MODEL_HSV = 6,
    MODEL_HSI = 7,
    MODEL_XYZ = 8,
    MODEL_LAB = 9
} ColorModel;

/* Codes left in the thread's record: X(name, value, message). The CCE_ codes
 * are read with GetLastColorConvertError; the IMS_ codes are the status of the
 * dithers and of brightness and contrast, and what ColorConvolution stores
 * through its errorCode argument. */
#define PAX_CCE_CODES(X)                                                                \
    X(CCE_NONE, 0, "no error")                                                          \
    X(CCE_NOMEMORY, 1, "the result image could not be allocated")                       \
    X(CCE_BADMODEL, 2, "colour model out of range or not the image's model")            \
    X(CCE_NOCMYKIMAGE, 3, "the CMYK result image could not be created")                 \
    X(CCE_BADARGUMENT, 4, "invalid argument")                                           \
    X(CCE_NOPROGRESS, 6, "the progress dialog could not be created")                    \
    X(CCE_NODIALOGENTRY, 7, "the parameter dialog library or its entry is missing")     \
    X(CCE_CONVERTFAILED, 8, "converting the image to the requested model failed")

#define PAX_IMS_CODES(X)                                                                \
    X(IMS_OK, 0, "success")                                                             \
    X(IMS_NOMEMORY, 1, "out of memory")                                                 \
    X(IMS_BADPARAM, 8, "invalid parameter")                                             \
    X(IMS_BADDEPTH, 13, "bit depth not handled by this operation")                      \
    X(IMS_LOCKFAILED, 17, "a memory block could not be locked")                         \
    X(IMS_COMPRESSED, 18, "compressed image")                                           \
    X(IMS_EMPTYIMAGE, 19, "image width or height is zero")                              \
    X(IMS_BADBITS, 20, "requested or source bit depth not supported by the dither")

#define PAX_CODE_ENUM(name, value, text) name = value,
enum PaxConvertError { PAX_CCE_CODES(PAX_CODE_ENUM) };
enum PaxImageStatus { PAX_IMS_CODES(PAX_CODE_ENUM) };
#undef PAX_CODE_ENUM

/* ColorConvolution filter types. */
#define CONV_KERNEL 1
#define CONV_FILE 2
#define CONV_MEAN 3
#define CONV_SMOOTH 4
#define CONV_SHARPEN 5
#define CONV_SHARPEN_FULL 6

/* Status and version. */
PAXAPI DWORD PAXCALL GetLastColorConvertError(void);
PAXAPI void PAXCALL GetPaxImageVersion(char *buffer, int size);

/* Single-value conversions: (dst, src) writes 3 bytes and returns dst; a
 * conversion into CMYK takes (src) and returns the value. A CMYK source is 4
 * bytes, every other 3. dst may equal src. */
PAXAPI BYTE *PAXCALL RGBtoYUV(BYTE *dst, const BYTE *src);
PAXAPI BYTE *PAXCALL RGBtoCMY(BYTE *dst, const BYTE *src);
PAXAPI CMYKQUAD PAXCALL RGBtoCMYK(const BYTE *src);
PAXAPI BYTE *PAXCALL RGBtoYIQ(BYTE *dst, const BYTE *src);
PAXAPI BYTE *PAXCALL RGBtoHSV(BYTE *dst, const BYTE *src);
PAXAPI BYTE *PAXCALL RGBtoHSI(BYTE *dst, const BYTE *src);
PAXAPI BYTE *PAXCALL RGBtoXYZ(BYTE *dst, const BYTE *src);
PAXAPI BYTE *PAXCALL RGBtoLAB(BYTE *dst, const BYTE *src);

PAXAPI BYTE *PAXCALL YUVtoRGB(BYTE *dst, const BYTE *src);
PAXAPI BYTE *PAXCALL YUVtoCMY(BYTE *dst, const BYTE *src);
PAXAPI CMYKQUAD PAXCALL YUVtoCMYK(const BYTE *src);
PAXAPI BYTE *PAXCALL YUVtoYIQ(BYTE *dst, const BYTE *src);
PAXAPI BYTE *PAXCALL YUVtoHSV(BYTE *dst, const BYTE *src);
PAXAPI BYTE *PAXCALL YUVtoHSI(BYTE *dst, const BYTE *src);
PAXAPI BYTE *PAXCALL YUVtoXYZ(BYTE *dst, const BYTE *src);
PAXAPI BYTE *PAXCALL YUVtoLAB(BYTE *dst, const BYTE *src);

PAXAPI BYTE *PAXCALL CMYtoRGB(BYTE *dst, const BYTE *src);
PAXAPI BYTE *PAXCALL CMYtoYUV(BYTE *dst, const BYTE *src);
PAXAPI CMYKQUAD PAXCALL CMYtoCMYK(const BYTE *src);
PAXAPI BYTE *PAXCALL CMYtoYIQ(BYTE *dst, const BYTE *src);
PAXAPI BYTE *PAXCALL CMYtoHSV(BYTE *dst, const BYTE *src);
PAXAPI BYTE *PAXCALL CMYtoHSI(BYTE *dst, const BYTE *src);
PAXAPI BYTE *PAXCALL CMYtoXYZ(BYTE *dst, const BYTE *src);
PAXAPI BYTE *PAXCALL CMYtoLAB(BYTE *dst, const BYTE *src);

PAXAPI BYTE *PAXCALL CMYKtoRGB(BYTE *dst, const BYTE *src);
PAXAPI BYTE *PAXCALL CMYKtoYUV(BYTE *dst, const BYTE *src);
PAXAPI BYTE *PAXCALL CMYKtoCMY(BYTE *dst, const BYTE *src);
PAXAPI BYTE *PAXCALL CMYKtoYIQ(BYTE *dst, const BYTE *src);
PAXAPI BYTE *PAXCALL CMYKtoHSV(BYTE *dst, const BYTE *src);
PAXAPI BYTE *PAXCALL CMYKtoHSI(BYTE *dst, const BYTE *src);
PAXAPI BYTE *PAXCALL CMYKtoXYZ(BYTE *dst, const BYTE *src);
PAXAPI BYTE *PAXCALL CMYKtoLAB(BYTE *dst, const BYTE *src);

PAXAPI BYTE *PAXCALL YIQtoRGB(BYTE *dst, const BYTE *src);
PAXAPI BYTE *PAXCALL YIQtoYUV(BYTE *dst, const BYTE *src);
PAXAPI BYTE *PAXCALL YIQtoCMY(BYTE *dst, const BYTE *src);
PAXAPI CMYKQUAD PAXCALL YIQtoCMYK(const BYTE *src);
PAXAPI BYTE *PAXCALL YIQtoHSV(BYTE *dst, const BYTE *src);
PAXAPI BYTE *PAXCALL YIQtoHSI(BYTE *dst, const BYTE *src);
PAXAPI BYTE *PAXCALL YIQtoXYZ(BYTE *dst, const BYTE *src);
PAXAPI BYTE *PAXCALL YIQtoLAB(BYTE *dst, const BYTE *src);

PAXAPI BYTE *PAXCALL HSVtoRGB(BYTE *dst, const BYTE *src);
PAXAPI BYTE *PAXCALL HSVtoYUV(BYTE *dst, const BYTE *src);
PAXAPI BYTE *PAXCALL HSVtoCMY(BYTE *dst, const BYTE *src);
PAXAPI CMYKQUAD PAXCALL HSVtoCMYK(const BYTE *src);
PAXAPI BYTE *PAXCALL HSVtoYIQ(BYTE *dst, const BYTE *src);
PAXAPI BYTE *PAXCALL HSVtoHSI(BYTE *dst, const BYTE *src);
PAXAPI BYTE *PAXCALL HSVtoXYZ(BYTE *dst, const BYTE *src);
PAXAPI BYTE *PAXCALL HSVtoLAB(BYTE *dst, const BYTE *src);

PAXAPI BYTE *PAXCALL HSItoRGB(BYTE *dst, const BYTE *src);
PAXAPI BYTE *PAXCALL HSItoYUV(BYTE *dst, const BYTE *src);
PAXAPI BYTE *PAXCALL HSItoCMY(BYTE *dst, const BYTE *src);
PAXAPI CMYKQUAD PAXCALL HSItoCMYK(const BYTE *src);
PAXAPI BYTE *PAXCALL HSItoYIQ(BYTE *dst, const BYTE *src);
PAXAPI BYTE *PAXCALL HSItoHSV(BYTE *dst, const BYTE *src);
PAXAPI BYTE *PAXCALL HSItoXYZ(BYTE *dst, const BYTE *src);
PAXAPI BYTE *PAXCALL HSItoLAB(BYTE *dst, const BYTE *src);

PAXAPI BYTE *PAXCALL XYZtoRGB(BYTE *dst, const BYTE *src);
PAXAPI BYTE *PAXCALL XYZtoYUV(BYTE *dst, const BYTE *src);
PAXAPI BYTE *PAXCALL XYZtoCMY(BYTE *dst, const BYTE *src);
PAXAPI CMYKQUAD PAXCALL XYZtoCMYK(const BYTE *src);
PAXAPI BYTE *PAXCALL XYZtoYIQ(BYTE *dst, const BYTE *src);
PAXAPI BYTE *PAXCALL XYZtoHSV(BYTE *dst, const BYTE *src);
PAXAPI BYTE *PAXCALL XYZtoHSI(BYTE *dst, const BYTE *src);
PAXAPI BYTE *PAXCALL XYZtoLAB(BYTE *dst, const BYTE *src);

PAXAPI BYTE *PAXCALL LABtoRGB(BYTE *dst, const BYTE *src);
PAXAPI BYTE *PAXCALL LABtoYUV(BYTE *dst, const BYTE *src);
PAXAPI BYTE *PAXCALL LABtoCMY(BYTE *dst, const BYTE *src);
PAXAPI CMYKQUAD PAXCALL LABtoCMYK(const BYTE *src);
PAXAPI BYTE *PAXCALL LABtoYIQ(BYTE *dst, const BYTE *src);
PAXAPI BYTE *PAXCALL LABtoHSV(BYTE *dst, const BYTE *src);
PAXAPI BYTE *PAXCALL LABtoHSI(BYTE *dst, const BYTE *src);
PAXAPI BYTE *PAXCALL LABtoXYZ(BYTE *dst, const BYTE *src);

/* Buffers and images. */
PAXAPI int PAXCALL ConvertColorSpace(const BYTE *source, BYTE *destination, int count,
                                     int sourceModel, int destinationModel, int showProgress,
                                     HWND owner);
PAXAPI HDIB PAXCALL ConvertDIBColorSpace(HDIB image, int sourceModel, int destinationModel,
                                         int showProgress, HWND owner);
PAXAPI int PAXCALL SplitColorChannels(HDIB image, HGLOBAL *channels, BYTE model);

/* Colour adjustments. mode: 0 plain, 1 progress dialog, 2 parameter dialog,
 * 3 both; any other value neither. */
PAXAPI HDIB PAXCALL ColorHueSaturation(HDIB hDib, int hue, int saturation, int lightness,
                                       UINT hueFrom, UINT hueTo, int mode, HWND owner);
PAXAPI HDIB PAXCALL Desaturate(HDIB hDib, int mode, HWND owner);
PAXAPI HDIB PAXCALL ReplaceColor(HDIB hDib, const BYTE *target, const BYTE *tolerance, int hue,
                                 int saturation, int lightness, int mode, HWND owner);
PAXAPI HDIB PAXCALL ColorCMYKLevels(HDIB hDib, int cyan, int magenta, int yellow, int black,
                                    int mode, HWND owner);

/* Tone and filters. */
PAXAPI HDIB PAXCALL ColorBrightnessContrast(HDIB hDib, short brightness, short contrast,
                                            int showDialog);
PAXAPI HDIB PAXCALL GammaCorrection(HDIB hDib, int gammaRed, int gammaGreen, int gammaBlue,
                                    int mode, HWND owner);
PAXAPI HDIB PAXCALL ColorConvolution(HDIB hDib, int newImage, int intensityMode,
                                     short filterType, short kernelSize, const char *filterFile,
                                     const short *coefficients, int *errorCode, int mode,
                                     HWND owner);

/* Dithers: the result has 1, 4 or 8 bits per pixel (DitherOrdered: 1). */
PAXAPI HDIB PAXCALL DitherFS4(HDIB image, int bits);
PAXAPI HDIB PAXCALL DitherBurkes(HDIB image, int bits);
PAXAPI HDIB PAXCALL DitherSierra(HDIB image, int bits);
PAXAPI HDIB PAXCALL DitherJJN(HDIB image, int bits);
PAXAPI HDIB PAXCALL DitherStucki(HDIB image, int bits);
PAXAPI HDIB PAXCALL DitherSA(HDIB image, int bits);
PAXAPI HDIB PAXCALL DitherSharp(HDIB image, int bits);
PAXAPI HDIB PAXCALL DitherSmooth(HDIB image, int bits);
PAXAPI HDIB PAXCALL DitherOrdered(HDIB image, int type);

#ifdef __cplusplus
}
#endif

#endif
