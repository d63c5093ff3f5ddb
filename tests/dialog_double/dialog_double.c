/* The parameter-dialog library's test double: seven scriptable entries that
 * record what they receive. See dialog_double_control.h. */
#include "dialog_double_control.h"

#include <string.h>

#ifdef _WIN32
#define ENTRY_API __declspec(dllexport)
#define ENTRY_CALL WINAPI
#else
#define ENTRY_API __attribute__((visibility("default")))
#define ENTRY_CALL
#endif

static const char *const kEntryNames[DD_ENTRY_COUNT] = {
    "CONTRASTUI",           "GammaCorrectionUI", "ColorConvUI",      "ColorHueSaturationUI",
    "DesaturateUI",         "ReplaceColorUI",    "ColorCMYKLevelsUI",
};

/* What one entry is scripted to do. */
typedef struct EntryScript {
    int result;
    int setValue[DD_MAX_ARGUMENTS];
    double value[DD_MAX_ARGUMENTS];
    int setBytes[DD_MAX_ARGUMENTS];
    BYTE bytes[DD_MAX_ARGUMENTS][3];
} EntryScript;

static EntryScript g_scripts[DD_ENTRY_COUNT];
static DialogDoubleCall g_calls[DD_MAX_CALLS];
static int g_callCount;
static int g_initialised;

static void ResetAll(void) {
    memset(g_scripts, 0, sizeof g_scripts);
    memset(g_calls, 0, sizeof g_calls);
    for (int e = 0; e < DD_ENTRY_COUNT; ++e) g_scripts[e].result = 1;
    g_callCount = 0;
    g_initialised = 1;
}

static int ValidEntry(int entry) { return entry >= 0 && entry < DD_ENTRY_COUNT; }

static int ValidArgument(int argument) { return argument >= 0 && argument < DD_MAX_ARGUMENTS; }

#ifndef DIALOG_DOUBLE_WITHOUT_ENTRIES

/* ---- Recording ---------------------------------------------------------- */

/* The record of a new call, or a scratch record once the log is full. */
static DialogDoubleCall *BeginCall(int entry, HDIB image) {
    static DialogDoubleCall scratch;
    if (!g_initialised) ResetAll();
    DialogDoubleCall *c = g_callCount < DD_MAX_CALLS ? &g_calls[g_callCount] : &scratch;
    ++g_callCount;
    memset(c, 0, sizeof *c);
    c->entry = entry;
    c->image = image;
    return c;
}

static DialogDoubleArgument *Next(DialogDoubleCall *c, int kind) {
    DialogDoubleArgument *a = &c->arguments[c->argumentCount++];
    a->kind = kind;
    return a;
}

static void ByValue(DialogDoubleCall *c, int kind, long long v) { Next(c, kind)->value = v; }

static void PointerInt16(DialogDoubleCall *c, short *p) {
    DialogDoubleArgument *a = Next(c, DD_PTR_INT16);
    a->pointer = p;
    if (p) a->before = *p;
}

static void PointerInt32(DialogDoubleCall *c, int *p) {
    DialogDoubleArgument *a = Next(c, DD_PTR_INT32);
    a->pointer = p;
    if (p) a->before = *p;
}

static void PointerDouble(DialogDoubleCall *c, double *p) {
    DialogDoubleArgument *a = Next(c, DD_PTR_DOUBLE);
    a->pointer = p;
    if (p) a->before = *p;
}

static void PointerBytes(DialogDoubleCall *c, BYTE *p) {
    DialogDoubleArgument *a = Next(c, DD_PTR_BYTES3);
    a->pointer = p;
    if (p) memcpy(a->bytesBefore, p, 3);
}

static void PointerText(DialogDoubleCall *c, const char *p) {
    DialogDoubleArgument *a = Next(c, DD_PTR_TEXT);
    a->pointer = p;
    if (p) {
        size_t n = 0;
        while (n < DD_MAX_TEXT - 1 && p[n]) ++n;
        memcpy(a->text, p, n);
    }
}

static void PointerList(DialogDoubleCall *c, const short *p, short kernelSize) {
    DialogDoubleArgument *a = Next(c, DD_PTR_INT16_LIST);
    a->pointer = p;
    if (p && kernelSize >= 3 && kernelSize <= 7) {
        a->listCount = kernelSize * kernelSize + 1;
        memcpy(a->list, p, (size_t)a->listCount * sizeof(short));
    }
}

/* Steps 2 to 4 of every entry: the scripted writes, the values after them,
 * and the scripted result. */
static int Finish(DialogDoubleCall *c) {
    const EntryScript *s = &g_scripts[c->entry];
    for (int i = 0; i < c->argumentCount; ++i) {
        DialogDoubleArgument *a = &c->arguments[i];
        void *p = (void *)a->pointer;
        if (!p) continue;
        switch (a->kind) {
        case DD_PTR_INT16:
            if (s->setValue[i]) *(short *)p = (short)s->value[i];
            a->after = *(short *)p;
            break;
        case DD_PTR_INT32:
            if (s->setValue[i]) *(int *)p = (int)s->value[i];
            a->after = *(int *)p;
            break;
        case DD_PTR_DOUBLE:
            if (s->setValue[i]) *(double *)p = s->value[i];
            a->after = *(double *)p;
            break;
        case DD_PTR_BYTES3:
            if (s->setBytes[i]) memcpy(p, s->bytes[i], 3);
            memcpy(a->bytesAfter, p, 3);
            break;
        default:
            break;
        }
    }
    c->returned = s->result;
    return s->result;
}

/* ---- The entries -------------------------------------------------------- */

ENTRY_API int ENTRY_CALL CONTRASTUI(HDIB image, short *brightness, short *contrast) {
    DialogDoubleCall *c = BeginCall(DD_CONTRAST, image);
    PointerInt16(c, brightness);
    PointerInt16(c, contrast);
    return Finish(c);
}

ENTRY_API int ENTRY_CALL GammaCorrectionUI(HDIB image, int *red, int *green, int *blue) {
    DialogDoubleCall *c = BeginCall(DD_GAMMA, image);
    PointerInt32(c, red);
    PointerInt32(c, green);
    PointerInt32(c, blue);
    return Finish(c);
}

ENTRY_API int ENTRY_CALL ColorConvUI(HDIB image, int newImage, int intensityMode,
                                     short filterType, short kernelSize, const char *filterFile,
                                     const short *coefficients, int *errorCode) {
    DialogDoubleCall *c = BeginCall(DD_CONVOLUTION, image);
    ByValue(c, DD_INT32, newImage);
    ByValue(c, DD_INT32, intensityMode);
    ByValue(c, DD_INT16, filterType);
    ByValue(c, DD_INT16, kernelSize);
    PointerText(c, filterFile);
    PointerList(c, coefficients, kernelSize);
    PointerInt32(c, errorCode);
    return Finish(c);
}

ENTRY_API int ENTRY_CALL ColorHueSaturationUI(HDIB image, int *hueShift, int *saturation,
                                              int *lightness, int *lo, int *hi) {
    DialogDoubleCall *c = BeginCall(DD_HUE_SATURATION, image);
    PointerInt32(c, hueShift);
    PointerInt32(c, saturation);
    PointerInt32(c, lightness);
    PointerInt32(c, lo);
    PointerInt32(c, hi);
    return Finish(c);
}

ENTRY_API int ENTRY_CALL DesaturateUI(HDIB image) {
    return Finish(BeginCall(DD_DESATURATE, image));
}

ENTRY_API int ENTRY_CALL ReplaceColorUI(HDIB image, int *hueShift, int *saturation,
                                        int *lightness, BYTE *target, BYTE *tolerance) {
    DialogDoubleCall *c = BeginCall(DD_REPLACE_COLOR, image);
    PointerInt32(c, hueShift);
    PointerInt32(c, saturation);
    PointerInt32(c, lightness);
    PointerBytes(c, target);
    PointerBytes(c, tolerance);
    return Finish(c);
}

ENTRY_API int ENTRY_CALL ColorCMYKLevelsUI(HDIB image, double *cyan, double *magenta,
                                           double *yellow, double *black) {
    DialogDoubleCall *c = BeginCall(DD_CMYK_LEVELS, image);
    PointerDouble(c, cyan);
    PointerDouble(c, magenta);
    PointerDouble(c, yellow);
    PointerDouble(c, black);
    return Finish(c);
}

#endif /* DIALOG_DOUBLE_WITHOUT_ENTRIES */

/* ---- Controls ----------------------------------------------------------- */

void DialogDoubleReset(void) { ResetAll(); }

void DialogDoubleSetResult(int entry, int result) {
    if (!g_initialised) ResetAll();
    if (ValidEntry(entry)) g_scripts[entry].result = result;
}

void DialogDoubleSetValue(int entry, int argument, double value) {
    if (!g_initialised) ResetAll();
    if (!ValidEntry(entry) || !ValidArgument(argument)) return;
    g_scripts[entry].setValue[argument] = 1;
    g_scripts[entry].value[argument] = value;
}

void DialogDoubleSetBytes(int entry, int argument, const BYTE bytes[3]) {
    if (!g_initialised) ResetAll();
    if (!ValidEntry(entry) || !ValidArgument(argument) || !bytes) return;
    g_scripts[entry].setBytes[argument] = 1;
    memcpy(g_scripts[entry].bytes[argument], bytes, 3);
}

int DialogDoubleCallCount(void) { return g_callCount; }

int DialogDoubleGetCall(int index, DialogDoubleCall *call) {
    if (!call || index < 0 || index >= g_callCount || index >= DD_MAX_CALLS) return 0;
    *call = g_calls[index];
    return 1;
}

const char *DialogDoubleEntryName(int entry) { return ValidEntry(entry) ? kEntryNames[entry] : 0; }

int DialogDoubleHasEntries(void) {
#ifdef DIALOG_DOUBLE_WITHOUT_ENTRIES
    return 0;
#else
    return 1;
#endif
}
