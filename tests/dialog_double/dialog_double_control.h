/* A stand-in for the parameter-dialog library, for tests.
 *
 * Built as PAXDlgs.dll (Windows) and libPAXDlgs.so (Linux) into the folder of
 * the test programs, where the library's dialog loader finds it. It offers the
 * seven dialog entries with their exact argument types:
 *
 *   "CONTRASTUI"           (HDIB, short *brightness, short *contrast)
 *   "GammaCorrectionUI"    (HDIB, int *red, int *green, int *blue)
 *   "ColorConvUI"          (HDIB, int newImage, int intensityMode, short filterType,
 *                           short kernelSize, const char *filterFile,
 *                           const short *coefficients, int *errorCode)
 *   "ColorHueSaturationUI" (HDIB, int *hueShift, int *saturation, int *lightness,
 *                           int *lo, int *hi)
 *   "DesaturateUI"         (HDIB)
 *   "ReplaceColorUI"       (HDIB, int *hueShift, int *saturation, int *lightness,
 *                           BYTE *target, BYTE *tolerance)
 *   "ColorCMYKLevelsUI"    (HDIB, double *cyan, double *magenta, double *yellow,
 *                           double *black)
 *
 * and exported control functions (all C, names starting "DialogDouble") by
 * which a test scripts what each entry does and reads back every call.
 *
 * State lives in the double's own module, so a test that wants to script or
 * read calls keeps the double loaded itself for as long as it needs them (the
 * operation under test loads and releases it around each call; with the
 * test's own reference the module, and its state, stay).
 * paxtest::DialogDouble (tests/support/dialogs.h) does that.
 *
 * Each entry, when called:
 *   1. records the image and every further argument in order; for a pointer,
 *      the pointer and the value behind it (nothing is read through a null
 *      pointer);
 *   2. writes the values scripted for it behind its pointers (not through a
 *      null pointer);
 *   3. records the values behind its pointers again ("after");
 *   4. returns its scripted result (1, confirm, unless set).
 *
 * A second build, PAXDlgs without entries (CMake target
 * pax_dialog_double_without_entries), offers only the controls; it is put in
 * bin/dialogs_without_entries/ so that a test program built into that folder
 * finds the library but none of its entries.
 *
 * CMake: depend on target pax_dialog_double (add_dependencies) so that the
 * double is built with the test.
 */
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

/* The seven entries, in the order of the table above. */
enum DialogDoubleEntry {
    DD_CONTRAST = 0,
    DD_GAMMA = 1,
    DD_CONVOLUTION = 2,
    DD_HUE_SATURATION = 3,
    DD_DESATURATE = 4,
    DD_REPLACE_COLOR = 5,
    DD_CMYK_LEVELS = 6,
    DD_ENTRY_COUNT = 7
};

/* How an argument was declared by the entry. */
enum DialogDoubleKind {
    DD_INT32 = 1,        /* 32-bit by value: value */
    DD_INT16 = 2,        /* 16-bit by value: value */
    DD_PTR_INT16 = 3,    /* pointer to a 16-bit signed value: before, after */
    DD_PTR_INT32 = 4,    /* pointer to a 32-bit signed value: before, after */
    DD_PTR_DOUBLE = 5,   /* pointer to a double: before, after */
    DD_PTR_BYTES3 = 6,   /* pointer to 3 bytes: bytesBefore, bytesAfter */
    DD_PTR_TEXT = 7,     /* const char *: text (first 259 characters) */
    DD_PTR_INT16_LIST = 8 /* const short *, the coefficients: list, listCount */
};

#define DD_MAX_ARGUMENTS 7
#define DD_MAX_TEXT 260
#define DD_MAX_LIST 50 /* n x n + 1 values for n up to 7 */
#define DD_MAX_CALLS 64

typedef struct DialogDoubleArgument {
    int kind;             /* DialogDoubleKind */
    long long value;      /* by-value argument, sign-extended */
    const void *pointer;  /* pointer argument as received */
    double before, after; /* the scalar behind a pointer, before and after the entry wrote */
    BYTE bytesBefore[3], bytesAfter[3];
    char text[DD_MAX_TEXT];
    short list[DD_MAX_LIST]; /* ColorConvUI: kernelSize^2 + 1 values when the size is 3..7 */
    int listCount;
} DialogDoubleArgument;

typedef struct DialogDoubleCall {
    int entry;          /* DialogDoubleEntry */
    HDIB image;         /* the first argument */
    int argumentCount;  /* arguments after the image */
    DialogDoubleArgument arguments[DD_MAX_ARGUMENTS];
    int returned;       /* what the entry returned */
} DialogDoubleCall;

/* Forgets every script and recorded call: every entry confirms and writes
 * nothing. */
DIALOG_DOUBLE_API void DialogDoubleReset(void);

/* The value the entry returns from now on: 0 is the user's cancel. */
DIALOG_DOUBLE_API void DialogDoubleSetResult(int entry, int result);

/* Has the entry write value behind its pointer argument `argument` (0 = the
 * first argument after the image), converted to the pointee's type (16-bit,
 * 32-bit or double). Ignored for arguments that are not such pointers. */
DIALOG_DOUBLE_API void DialogDoubleSetValue(int entry, int argument, double value);

/* Has the entry write 3 bytes behind its 3-byte pointer argument. */
DIALOG_DOUBLE_API void DialogDoubleSetBytes(int entry, int argument, const BYTE bytes[3]);

/* Calls recorded since the last reset (the first DD_MAX_CALLS are kept). */
DIALOG_DOUBLE_API int DialogDoubleCallCount(void);

/* Copies call `index` (from 0, in call order); 0 when there is no such call. */
DIALOG_DOUBLE_API int DialogDoubleGetCall(int index, DialogDoubleCall *call);

/* The exported name of an entry; null for an unknown number. */
DIALOG_DOUBLE_API const char *DialogDoubleEntryName(int entry);

/* 1 in the build that offers the entries, 0 in the one without. */
DIALOG_DOUBLE_API int DialogDoubleHasEntries(void);


#ifdef __cplusplus
} /* extern "C" */
#endif

#endif
