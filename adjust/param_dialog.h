// The parameter dialogs of the adjustments, from the sibling library
// "PAXDlgs.dll", loaded for one call and released right after it.
#ifndef PAX_ADJUST_PARAM_DIALOG_H
#define PAX_ADJUST_PARAM_DIALOG_H

#include "paximage.h"

enum class DialogOutcome {
    Confirmed, // the entry returned nonzero: go on with the values it left
    Cancelled, // the entry returned zero: the user cancelled
    Missing,   // no library or no entry: CCE_NODIALOGENTRY stored, go on
};

// The library, looked for beside the module named "PaxImage.dll" (beside the
// executable when no module has that name), then by bare name; and the entry
// in it. Releases the library when it ends.
class DialogLibrary {
public:
    explicit DialogLibrary(const char *entryName);
    ~DialogLibrary();
    DialogLibrary(const DialogLibrary &) = delete;
    DialogLibrary &operator=(const DialogLibrary &) = delete;
    FARPROC entry() const { return entry_; }

private:
    HMODULE library_ = nullptr;
    FARPROC entry_ = nullptr;
};

// Calls the entry with the caller's image and the operation's arguments, in
// the entry's order and with its exact types.
template <typename... Args>
DialogOutcome RunParamDialog(const char *entryName, HDIB image, Args... args) {
    DialogLibrary library(entryName);
    if (!library.entry()) return DialogOutcome::Missing;
    using Entry = int(WINAPI *)(HDIB, Args...);
    // Through void (*)(void), the generic function pointer type, to the
    // entry's own type.
    auto generic = reinterpret_cast<void (*)(void)>(library.entry());
    int result = reinterpret_cast<Entry>(generic)(image, args...);
    return result ? DialogOutcome::Confirmed : DialogOutcome::Cancelled;
}

#endif
