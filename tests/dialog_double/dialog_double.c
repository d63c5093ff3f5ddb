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

static struct {
    int result;
    int set[DD_MAX_ARGUMENTS];
    double value[DD_MAX_ARGUMENTS];
} g_scripts[DD_ENTRY_COUNT];
static DialogDoubleCall g_calls[DD_MAX_CALLS];
static int g_callCount;

void DialogDoubleReset(void) {
    memset(g_scripts, 0, sizeof g_scripts);
    for (int e = 0; e < DD_ENTRY_COUNT; ++e) g_scripts[e].result = 1;
    g_callCount = 0;
}

// The module starts reset.
#ifdef _WIN32
BOOL WINAPI DllMain(HINSTANCE instance, DWORD reason, LPVOID reserved) {
    (void)instance, (void)reserved;
    if (reason == DLL_PROCESS_ATTACH) DialogDoubleReset();
    return TRUE;
}
#else
__attribute__((constructor)) static void Start(void) { DialogDoubleReset(); }
#endif

void DialogDoubleSetResult(int entry, int result) {
    if (entry >= 0 && entry < DD_ENTRY_COUNT) g_scripts[entry].result = result;
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

// Reads (kind > 0) or, with the script's value, writes then reads the
// pointee of a pointer argument.
static double Pointee(DialogDoubleArgument *a, const int *set, const double *value) {
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
        memcpy(set ? a->bytesAfter : a->bytesBefore, p, 3);
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

// Writes the scripted values, records them and returns the scripted result.
static int Finish(DialogDoubleCall *c) {
    for (int i = 0; i < c->argumentCount; ++i) {
        DialogDoubleArgument *a = &c->arguments[i];
        if (a->pointer) a->after = Pointee(a, &g_scripts[c->entry].set[i], &g_scripts[c->entry].value[i]);
    }
    return c->returned = g_scripts[c->entry].result;
}

ENTRY_API int ENTRY_CALL CONTRASTUI(HDIB image, short *brightness, short *contrast) {
    DialogDoubleCall *c = BeginCall(DD_CONTRAST, image);
    Arg(c, DD_PTR_INT16, 0, brightness);
    Arg(c, DD_PTR_INT16, 0, contrast);
    return Finish(c);
}

ENTRY_API int ENTRY_CALL GammaCorrectionUI(HDIB image, int *red, int *green, int *blue) {
    DialogDoubleCall *c = BeginCall(DD_GAMMA, image);
    Arg(c, DD_PTR_INT32, 0, red);
    Arg(c, DD_PTR_INT32, 0, green);
    Arg(c, DD_PTR_INT32, 0, blue);
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
    Arg(c, DD_PTR_INT32, 0, hueShift);
    Arg(c, DD_PTR_INT32, 0, saturation);
    Arg(c, DD_PTR_INT32, 0, lightness);
    Arg(c, DD_PTR_INT32, 0, lo);
    Arg(c, DD_PTR_INT32, 0, hi);
    return Finish(c);
}

ENTRY_API int ENTRY_CALL DesaturateUI(HDIB image) { return Finish(BeginCall(DD_DESATURATE, image)); }

ENTRY_API int ENTRY_CALL ReplaceColorUI(HDIB image, int *hueShift, int *saturation, int *lightness, BYTE *target,
                                        BYTE *tolerance) {
    DialogDoubleCall *c = BeginCall(DD_REPLACE_COLOR, image);
    Arg(c, DD_PTR_INT32, 0, hueShift);
    Arg(c, DD_PTR_INT32, 0, saturation);
    Arg(c, DD_PTR_INT32, 0, lightness);
    Arg(c, DD_PTR_BYTES3, 0, target);
    Arg(c, DD_PTR_BYTES3, 0, tolerance);
    return Finish(c);
}

ENTRY_API int ENTRY_CALL ColorCMYKLevelsUI(HDIB image, double *cyan, double *magenta, double *yellow,
                                           double *black) {
    DialogDoubleCall *c = BeginCall(DD_CMYK_LEVELS, image);
    Arg(c, DD_PTR_DOUBLE, 0, cyan);
    Arg(c, DD_PTR_DOUBLE, 0, magenta);
    Arg(c, DD_PTR_DOUBLE, 0, yellow);
    Arg(c, DD_PTR_DOUBLE, 0, black);
    return Finish(c);
}

#endif
