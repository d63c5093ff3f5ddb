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
 * dialogdouble::Double below does that.
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

typedef void (*DialogDoubleResetFn)(void);
typedef void (*DialogDoubleSetResultFn)(int, int);
typedef void (*DialogDoubleSetValueFn)(int, int, double);
typedef void (*DialogDoubleSetBytesFn)(int, int, const BYTE *);
typedef int (*DialogDoubleCallCountFn)(void);
typedef int (*DialogDoubleGetCallFn)(int, DialogDoubleCall *);
typedef const char *(*DialogDoubleEntryNameFn)(int);
typedef int (*DialogDoubleHasEntriesFn)(void);

#ifdef __cplusplus
} /* extern "C" */

#include <cstring>
#include <string>

namespace dialogdouble {

#ifdef _WIN32
constexpr char kSeparator = '\\';
#else
constexpr char kSeparator = '/';
#endif

// The folder of the running program, with its trailing separator.
inline std::string ExecutableFolder() {
    char path[4096];
    DWORD n = GetModuleFileNameA(nullptr, path, sizeof path);
    std::string s(path, n < sizeof path ? n : 0);
    size_t cut = s.find_last_of(kSeparator);
    return cut == std::string::npos ? std::string() : s.substr(0, cut + 1);
}

// The double beside the running program, loaded for the life of this object,
// with its controls resolved. loaded() is false when there is none.
class Double {
public:
    Double() : module_(LoadLibraryA((ExecutableFolder() + "PAXDlgs.dll").c_str())) {
        if (!module_) return;
        Resolve(reset_, "DialogDoubleReset");
        Resolve(setResult_, "DialogDoubleSetResult");
        Resolve(setValue_, "DialogDoubleSetValue");
        Resolve(setBytes_, "DialogDoubleSetBytes");
        Resolve(callCount_, "DialogDoubleCallCount");
        Resolve(getCall_, "DialogDoubleGetCall");
        Resolve(entryName_, "DialogDoubleEntryName");
        Resolve(hasEntries_, "DialogDoubleHasEntries");
        if (reset_) reset_();
    }
    ~Double() {
        if (module_) FreeLibrary(module_);
    }
    Double(const Double &) = delete;
    Double &operator=(const Double &) = delete;

    bool loaded() const { return module_ && reset_ && getCall_; }
    HMODULE module() const { return module_; }

    void Reset() const { reset_(); }
    void SetResult(int entry, int result) const { setResult_(entry, result); }
    void SetValue(int entry, int argument, double value) const { setValue_(entry, argument, value); }
    void SetBytes(int entry, int argument, const BYTE bytes[3]) const {
        setBytes_(entry, argument, bytes);
    }
    int CallCount() const { return callCount_(); }
    DialogDoubleCall Call(int index) const {
        DialogDoubleCall c;
        std::memset(&c, 0, sizeof c);
        c.entry = -1;
        getCall_(index, &c);
        return c;
    }
    const char *EntryName(int entry) const { return entryName_(entry); }
    bool HasEntries() const { return hasEntries_() != 0; }

private:
    template <typename F> void Resolve(F &f, const char *name) {
        f = reinterpret_cast<F>(reinterpret_cast<void *>(GetProcAddress(module_, name)));
    }

    HMODULE module_;
    DialogDoubleResetFn reset_ = nullptr;
    DialogDoubleSetResultFn setResult_ = nullptr;
    DialogDoubleSetValueFn setValue_ = nullptr;
    DialogDoubleSetBytesFn setBytes_ = nullptr;
    DialogDoubleCallCountFn callCount_ = nullptr;
    DialogDoubleGetCallFn getCall_ = nullptr;
    DialogDoubleEntryNameFn entryName_ = nullptr;
    DialogDoubleHasEntriesFn hasEntries_ = nullptr;
};

} // namespace dialogdouble

#endif /* __cplusplus */

#endif
