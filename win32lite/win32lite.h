/* win32lite: the small part of the Win32 API that PaxImage uses, for Linux.
 *
 * Global memory, thread-local storage, module lookup and loading, 16-bit style
 * file reading, and a headless window layer that is just enough for a modeless
 * dialog with a progress bar, an owner window that can be disabled, and a
 * message pump. Types and constants carry their Win32 names and values so that
 * host code is the same on both platforms.
 *
 * Only the Global* functions are exported from libPAXIMGUser.so (host programs
 * allocate the DIBs they pass in with them); the rest stays inside the library.
 */
#ifndef WIN32LITE_H
#define WIN32LITE_H

#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

#define W32L_EXPORT __attribute__((visibility("default")))
#define W32L_INTERNAL __attribute__((visibility("hidden")))

#define WINAPI
#define CALLBACK
#define APIENTRY

typedef int BOOL;
typedef unsigned char BYTE;
typedef unsigned short WORD;
typedef uint32_t DWORD;
typedef int32_t LONG;
typedef uint32_t ULONG;
typedef unsigned int UINT;
typedef int INT;
typedef short SHORT;
typedef char CHAR;
typedef size_t SIZE_T;
typedef intptr_t INT_PTR;
typedef uintptr_t UINT_PTR;
typedef intptr_t LONG_PTR;
typedef uintptr_t ULONG_PTR;
typedef UINT_PTR WPARAM;
typedef LONG_PTR LPARAM;
typedef LONG_PTR LRESULT;
typedef void *LPVOID;
typedef const void *LPCVOID;
typedef BYTE *LPBYTE;
typedef char *LPSTR;
typedef const char *LPCSTR;
typedef void *HANDLE;
typedef HANDLE HGLOBAL;
typedef struct HWND__ *HWND;
typedef struct HINSTANCE__ *HINSTANCE;
typedef HINSTANCE HMODULE;
typedef int HFILE;
typedef INT_PTR (*FARPROC)(void);
typedef INT_PTR (*DLGPROC)(HWND, UINT, WPARAM, LPARAM);
typedef LRESULT (*WNDPROC)(HWND, UINT, WPARAM, LPARAM);

#ifndef FALSE
#define FALSE 0
#endif
#ifndef TRUE
#define TRUE 1
#endif
#define MAX_PATH 260

typedef struct tagPOINT { LONG x, y; } POINT;

typedef struct tagMSG {
    HWND hwnd;
    UINT message;
    WPARAM wParam;
    LPARAM lParam;
    DWORD time;
    POINT pt;
} MSG;

#pragma pack(push, 2)
typedef struct tagBITMAPFILEHEADER {
    WORD bfType;
    DWORD bfSize;
    WORD bfReserved1;
    WORD bfReserved2;
    DWORD bfOffBits;
} BITMAPFILEHEADER;
#pragma pack(pop)

typedef struct tagBITMAPINFOHEADER {
    DWORD biSize;
    LONG biWidth;
    LONG biHeight;
    WORD biPlanes;
    WORD biBitCount;
    DWORD biCompression;
    DWORD biSizeImage;
    LONG biXPelsPerMeter;
    LONG biYPelsPerMeter;
    DWORD biClrUsed;
    DWORD biClrImportant;
} BITMAPINFOHEADER;

typedef struct tagBITMAPCOREHEADER {
    DWORD bcSize;
    WORD bcWidth;
    WORD bcHeight;
    WORD bcPlanes;
    WORD bcBitCount;
} BITMAPCOREHEADER;

typedef struct tagRGBQUAD { BYTE rgbBlue, rgbGreen, rgbRed, rgbReserved; } RGBQUAD;
typedef struct tagRGBTRIPLE { BYTE rgbtBlue, rgbtGreen, rgbtRed; } RGBTRIPLE;

#define BI_RGB 0L

typedef struct _OFSTRUCT {
    BYTE cBytes;
    BYTE fFixedDisk;
    WORD nErrCode;
    WORD Reserved1;
    WORD Reserved2;
    CHAR szPathName[128];
} OFSTRUCT;

/* Global memory. */
#define GMEM_FIXED 0x0000
#define GMEM_MOVEABLE 0x0002
#define GMEM_ZEROINIT 0x0040
#define GMEM_LOCKCOUNT 0x00FF
#define GHND (GMEM_MOVEABLE | GMEM_ZEROINIT)
#define GPTR (GMEM_FIXED | GMEM_ZEROINIT)
#define GMEM_INVALID_HANDLE 0x8000
#define GMEM_DISCARDED 0x4000

W32L_EXPORT HGLOBAL GlobalAlloc(UINT flags, SIZE_T bytes);
W32L_EXPORT LPVOID GlobalLock(HGLOBAL mem);
W32L_EXPORT BOOL GlobalUnlock(HGLOBAL mem);
W32L_EXPORT HGLOBAL GlobalFree(HGLOBAL mem);
W32L_EXPORT SIZE_T GlobalSize(HGLOBAL mem);
W32L_EXPORT UINT GlobalFlags(HGLOBAL mem);

/* Thread-local storage and threads. */
#define TLS_OUT_OF_INDEXES 0xFFFFFFFFu
W32L_INTERNAL DWORD TlsAlloc(void);
W32L_INTERNAL LPVOID TlsGetValue(DWORD index);
W32L_INTERNAL BOOL TlsSetValue(DWORD index, LPVOID value);
W32L_INTERNAL BOOL TlsFree(DWORD index);
W32L_INTERNAL DWORD GetVersion(void);
W32L_INTERNAL void ExitThread(DWORD code) __attribute__((noreturn));
W32L_INTERNAL LPSTR lstrcpyA(LPSTR dst, LPCSTR src);

#define DLL_PROCESS_DETACH 0
#define DLL_PROCESS_ATTACH 1
#define DLL_THREAD_ATTACH 2
#define DLL_THREAD_DETACH 3

/* Modules. A name ending in ".dll" stands for the shared object "lib<name>.so"
 * in the same folder, so "dir/PAXDlgs.dll" is loaded from "dir/libPAXDlgs.so". */
W32L_INTERNAL HMODULE GetModuleHandleA(LPCSTR name);
W32L_INTERNAL DWORD GetModuleFileNameA(HMODULE module, LPSTR path, DWORD size);
W32L_INTERNAL HMODULE LoadLibraryA(LPCSTR name);
W32L_INTERNAL FARPROC GetProcAddress(HMODULE module, LPCSTR name);
W32L_INTERNAL BOOL FreeLibrary(HMODULE module);

/* Files, in the old 16-bit style. */
#define OF_READ 0x0000
#define HFILE_ERROR ((HFILE)-1)
W32L_INTERNAL HFILE OpenFile(LPCSTR path, OFSTRUCT *info, UINT style);
W32L_INTERNAL UINT _lread(HFILE file, LPVOID buffer, UINT bytes);
W32L_INTERNAL HFILE _lclose(HFILE file);

/* Windows, dialogs and messages (headless). */
#define WM_DESTROY 0x0002
#define WM_CLOSE 0x0010
#define WM_INITDIALOG 0x0110
#define WM_COMMAND 0x0111
#define WM_TIMER 0x0113
#define WM_USER 0x0400
#define BM_CLICK 0x00F5
#define BN_CLICKED 0
#define IDOK 1
#define IDCANCEL 2
#define PBM_SETRANGE 0x0401
#define PBM_SETPOS 0x0402
#define PBM_SETSTEP 0x0404
#define PBM_STEPIT 0x0405
#define PBM_SETRANGE32 0x0406
#define PBM_GETRANGE 0x0407
#define PBM_GETPOS 0x0408
#define PM_NOREMOVE 0x0000
#define PM_REMOVE 0x0001
#define SW_HIDE 0
#define SW_SHOW 5

#define LOWORD(l) ((WORD)(((UINT_PTR)(l)) & 0xffff))
#define HIWORD(l) ((WORD)((((UINT_PTR)(l)) >> 16) & 0xffff))
#define MAKEWPARAM(l, h) ((WPARAM)(DWORD)(((WORD)(l)) | ((DWORD)((WORD)(h))) << 16))
#define MAKEINTRESOURCEA(i) ((LPCSTR)((ULONG_PTR)((WORD)(i))))

W32L_INTERNAL HWND CreateDialogParamA(HINSTANCE instance, LPCSTR templateName, HWND parent,
                                      DLGPROC proc, LPARAM param);
W32L_INTERNAL BOOL ShowWindow(HWND window, int command);
W32L_INTERNAL BOOL UpdateWindow(HWND window);
W32L_INTERNAL BOOL IsWindowEnabled(HWND window);
W32L_INTERNAL BOOL EnableWindow(HWND window, BOOL enable);
W32L_INTERNAL BOOL DestroyWindow(HWND window);
W32L_INTERNAL BOOL IsWindow(HWND window);
W32L_INTERNAL HWND GetDlgItem(HWND dialog, int id);
W32L_INTERNAL LRESULT SendMessageA(HWND window, UINT message, WPARAM wParam, LPARAM lParam);
W32L_INTERNAL BOOL PostMessageA(HWND window, UINT message, WPARAM wParam, LPARAM lParam);
W32L_INTERNAL BOOL PeekMessageA(MSG *msg, HWND window, UINT first, UINT last, UINT remove);
W32L_INTERNAL BOOL IsDialogMessageA(HWND dialog, MSG *msg);
W32L_INTERNAL BOOL TranslateMessage(const MSG *msg);
W32L_INTERNAL LRESULT DispatchMessageA(const MSG *msg);

#ifdef __cplusplus
}
#endif

#endif
