/* A minimal host program: makes a 24-bit image in global memory, converts it
 * to HSV with the library, reads the result and the status code, and frees
 * both blocks. The same source builds on Windows and on Linux. */
#include <stdio.h>

#include "paximage.h"

int main(void)
{
    const LONG width = 5, height = 3;
    const DWORD stride = ((DWORD)width * 3 + 3) / 4 * 4; /* rows are padded to 4 bytes */
    HGLOBAL image = GlobalAlloc(GHND, sizeof(BITMAPINFOHEADER) + stride * height);
    BITMAPINFOHEADER *header;
    BYTE *pixels;
    HDIB hsv;
    LONG x, y;

    if (!image) return 1;
    header = (BITMAPINFOHEADER *)GlobalLock(image);
    header->biSize = sizeof(BITMAPINFOHEADER);
    header->biWidth = width;
    header->biHeight = height; /* positive: the bottom row comes first */
    header->biPlanes = 1;
    header->biBitCount = 24;
    header->biCompression = BI_RGB;
    header->biSizeImage = stride * height;
    pixels = (BYTE *)(header + 1); /* no colour table at 24 bits */
    for (y = 0; y < height; ++y)
        for (x = 0; x < width; ++x) {
            BYTE *p = pixels + y * stride + x * 3; /* blue, green, red */
            p[0] = 0;
            p[1] = (BYTE)(64 * y);
            p[2] = 255;
        }
    GlobalUnlock(image);

    hsv = ConvertDIBColorSpace(image, MODEL_RGB, MODEL_HSV, 0, NULL);
    if (!hsv) {
        printf("ConvertDIBColorSpace failed with code %lu\n",
               (unsigned long)GetLastColorConvertError());
        GlobalFree(image);
        return 1;
    }
    header = (BITMAPINFOHEADER *)GlobalLock(hsv);
    pixels = (BYTE *)(header + 1);
    /* The tag in biCompression says HSV (6 + 8); a pixel stores V, S, H. */
    printf("tag %lu, bottom-left pixel H %u S %u V %u, code %lu\n",
           (unsigned long)header->biCompression, pixels[2], pixels[1], pixels[0],
           (unsigned long)GetLastColorConvertError());
    GlobalUnlock(hsv);
    GlobalFree(hsv);
    GlobalFree(image);
    return 0;
}
