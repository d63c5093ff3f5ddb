// Prints one digest per single-value conversion of the library: a 64-bit
// FNV-1a hash of its results over every source value, in the order of the
// source bytes (byte 0 varying fastest). Three-byte models take all 2^24
// values; CMYK takes the 2^24 values that RGBtoCMYK produces. Two builds of
// the library that print the same 72 lines give the same bytes for every
// value. Calls the exported functions of the shared library.
//
// A last line digests GammaCorrection over every gamma 10..500 and every
// component value: it is the one operation computed with the platform's own
// pow and log, so it is compared across builds here too.
//
// Usage: conversion_digests
#include "conversion_list.h"
#include "conversion_table.h"
#include "paximage.h"

#include <atomic>
#include <cstdint>
#include <cstdio>
#include <thread>
#include <vector>

namespace {

struct Item {
    const char *name;
    int from;
    pax::Conversion fn;
    uint64_t digest;
};

uint64_t Digest(const Item &item) {
    uint64_t h = 0xcbf29ce484222325ull;
    auto mix = [&h](BYTE b) { h = (h ^ b) * 0x100000001b3ull; };
    BYTE src[4], out[3];
    for (uint32_t i = 0; i < (1u << 24); ++i) {
        const BYTE rgb[3] = {BYTE(i), BYTE(i >> 8), BYTE(i >> 16)};
        if (item.from == MODEL_CMYK) {
            const CMYKQUAD q = RGBtoCMYK(rgb);
            src[0] = q.c;
            src[1] = q.m;
            src[2] = q.y;
            src[3] = q.k;
        } else {
            src[0] = rgb[0];
            src[1] = rgb[1];
            src[2] = rgb[2];
        }
        if (item.fn.toCmyk) {
            const CMYKQUAD q = item.fn.toCmyk(src);
            mix(q.c);
            mix(q.m);
            mix(q.y);
            mix(q.k);
        } else {
            item.fn.toThree(out, src);
            mix(out[0]);
            mix(out[1]);
            mix(out[2]);
        }
    }
    return h;
}

// GammaCorrection of a one-row image holding every component value, for every
// gamma the operation accepts.
uint64_t GammaDigest() {
    uint64_t h = 0xcbf29ce484222325ull;
    const int width = 256;
    const SIZE_T stride = width * 3;
    HGLOBAL image = GlobalAlloc(GHND, 40 + stride);
    if (!image) return 0;
    BYTE *p = static_cast<BYTE *>(GlobalLock(image));
    auto *header = reinterpret_cast<BITMAPINFOHEADER *>(p);
    header->biSize = 40;
    header->biWidth = width;
    header->biHeight = 1;
    header->biPlanes = 1;
    header->biBitCount = 24;
    for (int x = 0; x < width; ++x) p[40 + 3 * x] = p[41 + 3 * x] = p[42 + 3 * x] = BYTE(x);
    GlobalUnlock(image);
    for (int gamma = 10; gamma <= 500; ++gamma) {
        HGLOBAL out = GammaCorrection(image, gamma, gamma, gamma, 0, nullptr);
        if (!out) return 0;
        const BYTE *q = static_cast<const BYTE *>(GlobalLock(out));
        for (SIZE_T i = 40; i < 40 + stride; ++i) h = (h ^ q[i]) * 0x100000001b3ull;
        GlobalUnlock(out);
        GlobalFree(out);
    }
    GlobalFree(image);
    return h;
}

} // namespace

int main() {
#define PAX_ITEM(F, T, P) {#F "to" #T, MODEL_##F, PAX_CONVERSION_FN(T, F##to##T), 0},
    std::vector<Item> items = {PAX_CONVERSIONS(PAX_ITEM)};
#undef PAX_ITEM
    std::atomic<size_t> next{0};
    unsigned n = std::thread::hardware_concurrency();
    if (n < 1) n = 1;
    if (n > 8) n = 8;
    std::vector<std::thread> workers;
    for (unsigned t = 0; t < n; ++t)
        workers.emplace_back([&] {
            for (size_t i; (i = next++) < items.size();) items[i].digest = Digest(items[i]);
        });
    for (std::thread &w : workers) w.join();
    for (const Item &item : items)
        std::printf("%-10s %016llx\n", item.name, static_cast<unsigned long long>(item.digest));
    std::printf("%-10s %016llx\n", "Gamma", static_cast<unsigned long long>(GammaDigest()));
    return 0;
}
