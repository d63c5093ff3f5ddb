// The switch that forces the straightforward code paths.
#include "reference.h"

#include <cstdlib>

bool UseReferencePaths() {
    // A function-local static is initialised once, thread-safely.
    static const bool forced = [] {
        const char *value = std::getenv("PAXIMAGE_REFERENCE");
        return value != nullptr && value[0] == '1';
    }();
    return forced;
}
