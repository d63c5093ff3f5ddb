// A headless window layer: just enough for the progress dialog.
//
// Windows are records; a dialog made from "PROGRESSDLG" gets the template's
// three controls (Cancel button 2, progress bar 1000, static -1). Messages go
// through a per-thread queue, so the library's own message pump is what
// delivers a click on Cancel, as it is on Windows. When stderr is a terminal a
// shown dialog draws a text bar there, and Ctrl-C clicks its Cancel button.
// Windows are meant to be used by the thread that created them.
#include "win32lite.h"
#include "win32lite_test.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <deque>
#include <mutex>
#include <string>
#include <unordered_map>
#include <vector>

namespace {

enum class Kind { Plain, Dialog, Button, ProgressBar, Static };

struct Window {
    Kind kind = Kind::Plain;
    HWND parent = nullptr;
    int id = 0;
    bool enabled = true;
    bool visible = false;
    DLGPROC dialogProc = nullptr;
    WNDPROC windowProc = nullptr;
    std::vector<HWND> children;
    long rangeMin = 0, rangeMax = 100, step = 10, position = 0;
    long drawn = -1; // percentage last drawn on the terminal
};

std::mutex g_mutex;
std::unordered_map<HWND, Window *> g_windows;
win32lite::DialogScript g_script;
win32lite::DialogRecord g_last;
thread_local std::deque<MSG> t_queue;

// Terminal bar and Ctrl-C, for the one dialog that is drawing.
HWND g_ttyDialog = nullptr;
volatile std::sig_atomic_t g_interrupted = 0;
struct sigaction g_oldInterrupt;

void OnInterrupt(int) { g_interrupted = 1; }

Window *Find(HWND h) {
    auto it = g_windows.find(h);
    return it == g_windows.end() ? nullptr : it->second;
}

HWND Add(Window *w) {
    HWND h = reinterpret_cast<HWND>(w);
    g_windows.emplace(h, w);
    return h;
}

// The terminal's width in columns (80 when it does not say).
long TerminalColumns() {
    struct winsize size = {};
    if (ioctl(STDERR_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col > 0) return size.ws_col;
    return 80;
}

// "Process Image... [####    ]  42%", fitted into one line of the terminal
// (the bar shrinks, then goes; the percentage stays). Drawn only when the
// percentage changes: steps can be many thousands.
void DrawBar(Window &bar, bool last) {
    long span = bar.rangeMax - bar.rangeMin;
    long percent = span > 0 ? (bar.position - bar.rangeMin) * 100 / span : 0;
    if (percent < 0) percent = 0;
    if (percent > 100) percent = 100;
    if (!last && percent == bar.drawn) return;
    bar.drawn = percent;
    const std::string label = "Process Image...";
    const long columns = TerminalColumns() - 1; // never write into the last column
    long width = std::min(40L, columns - (long)label.size() - 8); // " [" "] " "100%"
    char figure[8];
    std::snprintf(figure, sizeof figure, "%3ld%%", percent);
    std::string line;
    if (width >= 4) {
        const long done = percent * width / 100;
        line = label + " [" + std::string(static_cast<size_t>(done), '#') +
               std::string(static_cast<size_t>(width - done), ' ') + "] " + figure;
    } else {
        line = (columns >= (long)label.size() + 5 ? label + " " : std::string()) + figure;
    }
    line = "\r" + line;
    if (last) line = "\r" + std::string(line.size() - 1, ' ') + "\r";
    ssize_t ignored = write(STDERR_FILENO, line.data(), line.size());
    (void)ignored;
}

void StartTerminalBar(HWND dialog) {
    if (g_ttyDialog || !isatty(STDERR_FILENO)) return;
    g_ttyDialog = dialog;
    g_interrupted = 0;
    struct sigaction sa = {};
    sa.sa_handler = OnInterrupt;
    sigemptyset(&sa.sa_mask);
    sigaction(SIGINT, &sa, &g_oldInterrupt);
}

void StopTerminalBar(HWND dialog, Window *bar) {
    if (g_ttyDialog != dialog) return;
    if (bar) DrawBar(*bar, true);
    sigaction(SIGINT, &g_oldInterrupt, nullptr);
    g_ttyDialog = nullptr;
}

// A click on a button tells its parent dialog, as BM_CLICK does on Windows.
void Click(HWND button) {
    DLGPROC proc = nullptr;
    HWND dialog = nullptr;
    int id = 0;
    {
        std::lock_guard<std::mutex> lock(g_mutex);
        Window *b = Find(button);
        if (!b || !b->enabled) return;
        Window *d = Find(b->parent);
        if (!d || d->kind != Kind::Dialog) return;
        proc = d->dialogProc;
        dialog = b->parent;
        id = b->id;
    }
    if (proc) proc(dialog, WM_COMMAND, MAKEWPARAM(id, BN_CLICKED), reinterpret_cast<LPARAM>(button));
}

HWND CancelButtonOf(HWND dialog) {
    Window *d = Find(dialog);
    if (!d) return nullptr;
    for (HWND c : d->children) {
        Window *w = Find(c);
        if (w && w->id == IDCANCEL) return c;
    }
    return nullptr;
}

} // namespace

namespace win32lite {

HWND CreateTestWindow(WNDPROC proc) {
    std::lock_guard<std::mutex> lock(g_mutex);
    Window *w = new Window;
    w->windowProc = proc;
    return Add(w);
}

void ScriptDialogs(const DialogScript &script) {
    std::lock_guard<std::mutex> lock(g_mutex);
    g_script = script;
}

DialogRecord LastDialog() {
    std::lock_guard<std::mutex> lock(g_mutex);
    return g_last;
}

long LiveWindows() {
    std::lock_guard<std::mutex> lock(g_mutex);
    return static_cast<long>(g_windows.size());
}

} // namespace win32lite

extern "C" {

HWND CreateDialogParamA(HINSTANCE, LPCSTR templateName, HWND parent, DLGPROC proc, LPARAM param) {
    HWND dialog;
    {
        std::lock_guard<std::mutex> lock(g_mutex);
        if (g_script.failCreate || !proc || !templateName ||
            reinterpret_cast<uintptr_t>(templateName) < 0x10000 ||
            std::string(templateName) != "PROGRESSDLG")
            return nullptr;
        if (parent && !Find(parent)) return nullptr;
        Window *d = new Window;
        d->kind = Kind::Dialog;
        d->parent = parent;
        d->dialogProc = proc;
        dialog = Add(d);
        const struct { Kind kind; int id; } controls[] = {
            {Kind::Button, IDCANCEL}, {Kind::ProgressBar, 1000}, {Kind::Static, -1}};
        for (const auto &c : controls) {
            Window *w = new Window;
            w->kind = c.kind;
            w->id = c.id;
            w->parent = dialog;
            d->children.push_back(Add(w));
        }
        g_last = win32lite::DialogRecord();
        g_last.created = true;
        g_last.dialog = dialog;
        g_last.parent = parent;
    }
    proc(dialog, WM_INITDIALOG, 0, param);
    return dialog;
}

BOOL ShowWindow(HWND window, int command) {
    std::lock_guard<std::mutex> lock(g_mutex);
    Window *w = Find(window);
    if (!w) return FALSE;
    bool was = w->visible;
    w->visible = command != SW_HIDE;
    if (w->kind == Kind::Dialog && w->visible) {
        if (g_last.dialog == window) g_last.shown = true;
        StartTerminalBar(window);
    }
    return was;
}

BOOL UpdateWindow(HWND window) {
    std::lock_guard<std::mutex> lock(g_mutex);
    return Find(window) != nullptr;
}

BOOL IsWindow(HWND window) {
    std::lock_guard<std::mutex> lock(g_mutex);
    return Find(window) != nullptr;
}

BOOL IsWindowEnabled(HWND window) {
    std::lock_guard<std::mutex> lock(g_mutex);
    Window *w = Find(window);
    return w && w->enabled;
}

// Returns nonzero when the window was disabled before the call, as on Windows.
BOOL EnableWindow(HWND window, BOOL enable) {
    std::lock_guard<std::mutex> lock(g_mutex);
    Window *w = Find(window);
    if (!w) return FALSE;
    bool wasDisabled = !w->enabled;
    w->enabled = enable != FALSE;
    return wasDisabled;
}

BOOL DestroyWindow(HWND window) {
    std::lock_guard<std::mutex> lock(g_mutex);
    Window *w = Find(window);
    if (!w) return FALSE;
    Window *bar = nullptr;
    for (HWND c : w->children) {
        Window *cw = Find(c);
        if (cw && cw->kind == Kind::ProgressBar) bar = cw;
    }
    StopTerminalBar(window, bar);
    if (g_last.dialog == window) g_last.destroyed = true;
    for (HWND c : w->children) {
        delete Find(c);
        g_windows.erase(c);
    }
    g_windows.erase(window);
    delete w;
    return TRUE;
}

HWND GetDlgItem(HWND dialog, int id) {
    std::lock_guard<std::mutex> lock(g_mutex);
    Window *d = Find(dialog);
    if (!d) return nullptr;
    for (HWND c : d->children) {
        Window *w = Find(c);
        if (w && w->id == id) return c;
    }
    return nullptr;
}

LRESULT SendMessageA(HWND window, UINT message, WPARAM wParam, LPARAM lParam) {
    DLGPROC dialogProc = nullptr;
    WNDPROC windowProc = nullptr;
    {
        std::lock_guard<std::mutex> lock(g_mutex);
        Window *w = Find(window);
        if (!w) return 0;
        if (w->kind == Kind::ProgressBar) {
            bool tracked = g_last.dialog == w->parent;
            LRESULT result = 0;
            switch (message) {
            case PBM_SETRANGE32:
                result = static_cast<LRESULT>((w->rangeMin & 0xffff) | (w->rangeMax << 16));
                w->rangeMin = static_cast<long>(wParam);
                w->rangeMax = static_cast<long>(lParam);
                w->position = w->rangeMin;
                break;
            case PBM_SETSTEP:
                result = w->step;
                w->step = static_cast<long>(wParam);
                break;
            case PBM_SETPOS:
                result = w->position;
                w->position = static_cast<long>(wParam);
                break;
            case PBM_STEPIT:
                result = w->position;
                w->position += w->step;
                // Past the maximum the bar starts over, as the common control does.
                if (w->position > w->rangeMax)
                    w->position = w->rangeMin + (w->position - w->rangeMax);
                if (tracked) {
                    ++g_last.stepsTaken;
                    if (g_script.cancelAfterSteps > 0 &&
                        g_last.stepsTaken == g_script.cancelAfterSteps) {
                        HWND cancel = CancelButtonOf(w->parent);
                        if (cancel) t_queue.push_back(MSG{cancel, BM_CLICK, 0, 0, 0, {0, 0}});
                    }
                }
                if (g_ttyDialog == w->parent) DrawBar(*w, false);
                break;
            case PBM_GETPOS:
                return w->position;
            case PBM_GETRANGE:
                return wParam ? w->rangeMin : w->rangeMax;
            default:
                return 0;
            }
            if (tracked) {
                g_last.rangeMin = w->rangeMin;
                g_last.rangeMax = w->rangeMax;
                g_last.step = w->step;
                g_last.position = w->position;
            }
            return result;
        }
        if (w->kind == Kind::Button && message == BM_CLICK) {
            // handled below, outside the lock
        } else if (w->kind == Kind::Dialog) {
            dialogProc = w->dialogProc;
        } else {
            windowProc = w->windowProc;
        }
    }
    if (message == BM_CLICK && !dialogProc && !windowProc) {
        Click(window);
        return 0;
    }
    if (dialogProc) return dialogProc(window, message, wParam, lParam);
    if (windowProc) return windowProc(window, message, wParam, lParam);
    return 0;
}

BOOL PostMessageA(HWND window, UINT message, WPARAM wParam, LPARAM lParam) {
    {
        std::lock_guard<std::mutex> lock(g_mutex);
        if (window && !Find(window)) return FALSE;
    }
    t_queue.push_back(MSG{window, message, wParam, lParam, 0, {0, 0}});
    return TRUE;
}

BOOL PeekMessageA(MSG *msg, HWND, UINT, UINT, UINT remove) {
    if (g_interrupted) {
        g_interrupted = 0;
        std::lock_guard<std::mutex> lock(g_mutex);
        HWND cancel = g_ttyDialog ? CancelButtonOf(g_ttyDialog) : nullptr;
        if (cancel) t_queue.push_back(MSG{cancel, BM_CLICK, 0, 0, 0, {0, 0}});
    }
    if (t_queue.empty() || !msg) return FALSE;
    *msg = t_queue.front();
    if (remove & PM_REMOVE) t_queue.pop_front();
    return TRUE;
}

// Takes the messages meant for the dialog or one of its controls.
BOOL IsDialogMessageA(HWND dialog, MSG *msg) {
    if (!dialog || !msg) return FALSE;
    bool mine;
    {
        std::lock_guard<std::mutex> lock(g_mutex);
        Window *target = Find(msg->hwnd);
        mine = Find(dialog) && target && (msg->hwnd == dialog || target->parent == dialog);
        if (mine && g_last.dialog == dialog && msg->message == BM_CLICK) ++g_last.pumpsWithCancel;
    }
    if (!mine) return FALSE;
    SendMessageA(msg->hwnd, msg->message, msg->wParam, msg->lParam);
    return TRUE;
}

BOOL TranslateMessage(const MSG *) { return FALSE; }

LRESULT DispatchMessageA(const MSG *msg) {
    if (!msg || !msg->hwnd) return 0;
    return SendMessageA(msg->hwnd, msg->message, msg->wParam, msg->lParam);
}

} // extern "C"
