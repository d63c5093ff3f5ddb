// The parameter-dialog library's test double: seven scriptable entries that
// record what they receive. See dialog_double_control.h.
#include "dialog_double_control.h"

#include <string.h>

#ifdef _WIN32
#define ENTRY_API __declspec(dllexport)
#define ENTRY_CALL WINAPI
#else
#define ENTRY_API __attribute__((visibility("default")))
#define ENTRY_CALL
#endif

// The result is kept less one, so that the zeroed state of a fresh or reset
// module confirms.
static struct {
    int resultLessOne;
    int set[DD_MAX_ARGUMENTS];
    double value[DD_MAX_ARGUMENTS];
} g_scripts[DD_ENTRY_COUNT];
static DialogDoubleCall g_calls[DD_MAX_CALLS];
static int g_callCount;

void DialogDoubleReset(void) {
    memset(g_scripts, 0, sizeof g_scripts);
    g_callCount = 0;
}

void DialogDoubleSetResult(int entry, int result) {
    if (entry >= 0 && entry < DD_ENTRY_COUNT) g_scripts[entry].resultLessOne = result - 1;
}

void DialogDoubleSetValue(int entry, int argument, double value) {
    if (entry < 0 || entry >= DD_ENTRY_COUNT || argument < 0 || argument >= DD_MAX_ARGUMENTS) return;
    g_scripts[entry].set[argument] = 1;
    g_scripts[entry].value[argument] = value;
}

int DialogDoubleCallCount(void) { return g_callCount; }

int DialogDoubleGetCall(int index, DialogDoubleCall *call) {
    if (!call || index < 0 || index >= g_callCount || index >= DD_MAX_CALLS) return 0;
    *call = g_calls[index];
    return 1;
}

#ifndef DIALOG_DOUBLE_WITHOUT_ENTRIES

static DialogDoubleCall *BeginCall(int entry, HDIB image) {
    static DialogDoubleCall scratch; // once the log is full
    DialogDoubleCall *c = g_callCount < DD_MAX_CALLS ? &g_calls[g_callCount] : &scratch;
    ++g_callCount;
    memset(c, 0, sizeof *c);
    c->entry = entry;
    c->image = image;
    return c;
}

// Reads the pointee of a pointer argument, or writes the script's value there.
static double Pointee(const DialogDoubleArgument *a, const int *set, const double *value) {
    void *p = (void *)a->pointer;
    switch (a->kind) {
    case DD_PTR_INT16:
        if (set && *set) *(short *)p = (short)*value;
        return *(short *)p;
    case DD_PTR_INT32:
        if (set && *set) *(int *)p = (int)*value;
        return *(int *)p;
    case DD_PTR_DOUBLE:
        if (set && *set) *(double *)p = *value;
        return *(double *)p;
    case DD_PTR_BYTES3:
        for (int i = 0; set && *set && i < 3; ++i) ((BYTE *)p)[i] = (BYTE)((unsigned long)*value >> (8 * i));
        return 0;
    }
    return 0;
}

static void Arg(DialogDoubleCall *c, int kind, long long value, const void *p) {
    DialogDoubleArgument *a = &c->arguments[c->argumentCount++];
    a->kind = kind;
    a->value = value;
    a->pointer = p;
    if (p && kind == DD_PTR_TEXT) strncpy(a->text, (const char *)p, sizeof a->text - 1);
    else if (p) a->before = Pointee(a, 0, 0);
}

// Records n pointer arguments of one kind.
static void Pointers(DialogDoubleCall *c, int kind, int n, const void *const *pointers) {
    for (int i = 0; i < n; ++i) Arg(c, kind, 0, pointers[i]);
}

// Writes the scripted values and returns the scripted result.
static int Finish(DialogDoubleCall *c) {
    for (int i = 0; i < c->argumentCount; ++i)
        if (c->arguments[i].pointer) Pointee(&c->arguments[i], &g_scripts[c->entry].set[i], &g_scripts[c->entry].value[i]);
    return g_scripts[c->entry].resultLessOne + 1;
}

ENTRY_API int ENTRY_CALL CONTRASTUI(HDIB image, short *brightness, short *contrast) {
    DialogDoubleCall *c = BeginCall(DD_CONTRAST, image);
    Pointers(c, DD_PTR_INT16, 2, (const void *[]){brightness, contrast});
    return Finish(c);
}

ENTRY_API int ENTRY_CALL GammaCorrectionUI(HDIB image, int *red, int *green, int *blue) {
    DialogDoubleCall *c = BeginCall(DD_GAMMA, image);
    Pointers(c, DD_PTR_INT32, 3, (const void *[]){red, green, blue});
    return Finish(c);
}

ENTRY_API int ENTRY_CALL ColorConvUI(HDIB image, int newImage, int intensityMode, short filterType,
                                     short kernelSize, const char *filterFile, const short *coefficients,
                                     int *errorCode) {
    DialogDoubleCall *c = BeginCall(DD_CONVOLUTION, image);
    Arg(c, DD_INT32, newImage, 0);
    Arg(c, DD_INT32, intensityMode, 0);
    Arg(c, DD_INT16, filterType, 0);
    Arg(c, DD_INT16, kernelSize, 0);
    Arg(c, DD_PTR_TEXT, 0, filterFile);
    Arg(c, DD_PTR_INT16_LIST, 0, coefficients);
    if (coefficients && kernelSize >= 3 && kernelSize <= 7) {
        c->arguments[5].listCount = kernelSize * kernelSize + 1;
        memcpy(c->arguments[5].list, coefficients, sizeof(short) * (size_t)c->arguments[5].listCount);
    }
    Arg(c, DD_PTR_INT32, 0, errorCode);
    return Finish(c);
}

ENTRY_API int ENTRY_CALL ColorHueSaturationUI(HDIB image, int *hueShift, int *saturation, int *lightness, int *lo,
                                              int *hi) {
    DialogDoubleCall *c = BeginCall(DD_HUE_SATURATION, image);
    Pointers(c, DD_PTR_INT32, 5, (const void *[]){hueShift, saturation, lightness, lo, hi});
    return Finish(c);
}

ENTRY_API int ENTRY_CALL DesaturateUI(HDIB image) { return Finish(BeginCall(DD_DESATURATE, image)); }

ENTRY_API int ENTRY_CALL ReplaceColorUI(HDIB image, int *hueShift, int *saturation, int *lightness, BYTE *target,
                                        BYTE *tolerance) {
    DialogDoubleCall *c = BeginCall(DD_REPLACE_COLOR, image);
    Pointers(c, DD_PTR_INT32, 3, (const void *[]){hueShift, saturation, lightness});
    Pointers(c, DD_PTR_BYTES3, 2, (const void *[]){target, tolerance});
    return Finish(c);
}

ENTRY_API int ENTRY_CALL ColorCMYKLevelsUI(HDIB image, double *cyan, double *magenta, double *yellow,
                                           double *black) {
    DialogDoubleCall *c = BeginCall(DD_CMYK_LEVELS, image);
    Pointers(c, DD_PTR_DOUBLE, 4, (const void *[]){cyan, magenta, yellow, black});
    return Finish(c);
}

#endif
