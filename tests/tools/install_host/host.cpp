// Through the C++ layer: a 3 x 2 image, pure red on the top row, converted to
// HSV (red is hue 0, full saturation and value), then a refused conversion
// whose error names its code.
#include "paximage.hpp"

#include <cstdio>

int main() {
    pax::Image image = pax::Image::Create(3, 2, 24);
    {
        pax::Lock lock(image.get());
        for (int x = 0; x < 3; ++x) lock.row(0)[3 * x + 2] = 255; // B, G, R
    }
    pax::Image hsv = pax::Convert(image, pax::Model::RGB, pax::Model::HSV);
    pax::Lock lock(hsv.get());
    const BYTE *p = lock.row(0);
    std::printf("tag %u H %d S %d V %d\n", (unsigned)lock.header().biCompression, p[2], p[1], p[0]);
    try {
        pax::Convert(image, pax::Model::LAB, pax::Model::RGB);
    } catch (const pax::Error &e) {
        std::printf("%s %ld\n", e.code().name, e.code().value);
    }
    return 0;
}
