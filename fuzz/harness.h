// What every fuzz target shares: reading the input, making the caller's
// block, and the checks after each call. A failed check prints what broke
// and aborts, which libFuzzer (or the replay driver) reports as a crash.
#ifndef PAX_FUZZ_HARNESS_H
#define PAX_FUZZ_HARNESS_H

#include "image_exports.h"

#include <cstddef>
#include <cstdint>

namespace paxfuzz {

using paxtest::Args;
using paxtest::ImageExport;
using paxtest::Outcome;

// The input, consumed from the front; reads past its end give zeros.
struct Bytes {
    const uint8_t *p;
    size_t n;
    uint8_t U8() { return n ? (--n, *p++) : 0; }
    int32_t I32() {
        uint32_t v = 0;
        for (int i = 0; i < 4; ++i) v |= static_cast<uint32_t>(U8()) << (8 * i);
        return static_cast<int32_t>(v);
    }
};

[[noreturn]] void Fail(const char *what, const char *detail = "");
inline void Require(bool ok, const char *what, const char *detail = "") {
    if (!ok) Fail(what, detail);
}

// Once per process: the thread's record, an owner window, a valid filter
// file for every image export (a 3 x 3 list, with room for any size), and an
// allocation ceiling of 64 MiB (a header may ask for 4 GiB).
void Setup();
HWND OwnerWindow();
// Writes bytes as the content of a second file and returns its path.
const char *WriteScratchFile(const uint8_t *data, size_t size);

// A global block holding `bytes`, then `zeros` zero bytes; fixed or movable.
HGLOBAL MakeBlock(const uint8_t *bytes, size_t size, size_t zeros, bool fixed);

// One image export on a block made of the input:
//   [export] [flags] [6 x int32 arguments] [int32 mode] [block bytes...]
// flags: bit 0 fixed block, bit 1 an owner window, bits 2..7 x 256 zero bytes
// appended to the block. With faults, four bytes come first: the kind (1
// allocation, 2 lock, 3 file open), N, the dialog script (bit 0 creation
// fails, bits 1..7 Cancel after that many steps) and the parameter dialog's
// answer (bit 0: cancel); the mode is then 1 to 3.
void RunImageExport(Bytes in, bool faults);

// Runs `which` on `image` with the checks: caller's block unchanged (the
// in-place convolution may change only its pixel rows), allocated and
// unlocked; results unlocked, movable, their rows inside their blocks; the
// census back once results are freed; no dialog open, owner enabled.
// arm(nth), when given, sets up a fault right before the call.
Outcome CheckedInvoke(size_t which, HGLOBAL image, const Args &args, void (*arm)(long) = nullptr,
                      long nth = 0);

} // namespace paxfuzz

#endif
