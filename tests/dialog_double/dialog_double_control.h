// A stand-in for the parameter-dialog library, for tests.
//
// Built as PAXDlgs.dll (Windows) and libPAXDlgs.so (Linux) into the folder of
// the test programs, where the library's dialog loader finds it. It offers the
// seven dialog entries with their exact argument types:
//
//   "CONTRASTUI"           (HDIB, short *brightness, short *contrast)
//   "GammaCorrectionUI"    (HDIB, int *red, int *green, int *blue)
//   "ColorConvUI"          (HDIB, int newImage, int intensityMode, short filterType,
//                           short kernelSize, const char *filterFile,
//                           const short *coefficients, int *errorCode)
//   "ColorHueSaturationUI" (HDIB, int *hueShift, int *saturation, int *lightness,
//                           int *lo, int *hi)
//   "DesaturateUI"         (HDIB)
//   "ReplaceColorUI"       (HDIB, int *hueShift, int *saturation, int *lightness,
//                           BYTE *target, BYTE *tolerance)
//   "ColorCMYKLevelsUI"    (HDIB, double *cyan, double *magenta, double *yellow,
//                           double *black)
//
// and exported controls (names starting "DialogDouble") by which a test
// scripts what each entry does and reads back every call. Each entry, when
// called, records the image and every further argument in order (for a
// pointer, the pointer and the value behind it; nothing is read or written
// through a null pointer), writes the values scripted for it behind its
// pointers, and returns its scripted result (1, confirm, unless set).
//
// State lives in the double's own module, so a test that scripts or reads
// calls keeps the double loaded itself meanwhile (the operation under test
// loads and releases it around each call): paxtest::DialogDouble in
// tests/support/dialogs.h does that. A second build without the entries
// (target pax_dialog_double_without_entries) goes to bin/dialogs_without_entries/.
#ifndef PAX_TESTS_DIALOG_DOUBLE_CONTROL_H
#define PAX_TESTS_DIALOG_DOUBLE_CONTROL_H

#include "paximage.h"

#ifdef __cplusplus
extern "C" {
#endif

#ifdef _WIN32
#define DIALOG_DOUBLE_API __declspec(dllexport)
#else
#define DIALOG_DOUBLE_API __attribute__((visibility("default")))
#endif

// The seven entries, in the order of the table above.
enum DialogDoubleEntry {
    DD_CONTRAST, DD_GAMMA, DD_CONVOLUTION, DD_HUE_SATURATION, DD_DESATURATE, DD_REPLACE_COLOR, DD_CMYK_LEVELS,
    DD_ENTRY_COUNT
};

// How an argument was declared by the entry, and where it is recorded.
enum DialogDoubleKind {
    DD_INT32 = 1,         // 32-bit by value: value
    DD_INT16 = 2,         // 16-bit by value: value
    DD_PTR_INT16 = 3,     // pointer to a 16-bit signed value: before
    DD_PTR_INT32 = 4,     // pointer to a 32-bit signed value: before
    DD_PTR_DOUBLE = 5,    // pointer to a double: before
    DD_PTR_BYTES3 = 6,    // pointer to 3 bytes: the pointer only
    DD_PTR_TEXT = 7,      // const char *: text (first 259 characters)
    DD_PTR_INT16_LIST = 8 // const short *, the coefficients: list, listCount
};

#define DD_MAX_ARGUMENTS 7
#define DD_MAX_CALLS 64

typedef struct DialogDoubleArgument {
    int kind;             // DialogDoubleKind
    long long value;      // by-value argument, sign-extended
    const void *pointer;  // pointer argument as received
    double before;        // the scalar behind a pointer, before the entry wrote
    char text[260];
    short list[50]; // ColorConvUI: kernelSize^2 + 1 values when the size is 3..7
    int listCount;
} DialogDoubleArgument;

typedef struct DialogDoubleCall {
    int entry;         // DialogDoubleEntry
    HDIB image;        // the first argument
    int argumentCount; // arguments after the image
    DialogDoubleArgument arguments[DD_MAX_ARGUMENTS];
} DialogDoubleCall;

// Forgets every script and recorded call: every entry confirms and writes nothing.
DIALOG_DOUBLE_API void DialogDoubleReset(void);
// The value the entry returns from now on: 0 is the user's cancel.
DIALOG_DOUBLE_API void DialogDoubleSetResult(int entry, int result);
// Has the entry write value behind its pointer argument `argument` (0 = the
// first after the image), as the pointee's type; for 3 bytes, byte i is
// bits 8i..8i+7 of the value.
DIALOG_DOUBLE_API void DialogDoubleSetValue(int entry, int argument, double value);
// Calls recorded since the last reset (the first DD_MAX_CALLS are kept), and
// a copy of call `index` (0 when there is no such call).
DIALOG_DOUBLE_API int DialogDoubleCallCount(void);
DIALOG_DOUBLE_API int DialogDoubleGetCall(int index, DialogDoubleCall *call);

#ifdef __cplusplus
} // extern "C"
#endif

#endif
