// The host's own ways to bring a picture to one bit before the module sees
// it. The module's black-and-white conversion (error diffusion onto eight
// greys) stays the default; these are the field's usual alternatives, made
// from the picture's luminance, and the module passes one-bit pictures
// through unchanged.
#pragma once

#include "image.h"

namespace mivo4::host {

enum class Tones {
    Module,     // leave the picture to the module
    Floyd,      // Floyd-Steinberg error diffusion, serpentine rows
    Threshold,  // black below a fixed share of white
    Ordered,    // an 8 x 8 Bayer matrix
};

// Luminance 0..255 of every pixel (Rec. 601 weights), rows top first.
std::vector<uint8_t> luminance(const Image &image);

// A one-bit picture (white, black) made from image by `tones`; thresholdPercent
// is the grey level, in percent of white, below which Threshold gives black.
// The new pixels come from alloc.
Image toOneBit(const Image &image, Tones tones, int thresholdPercent, const PixelAllocator &alloc);

}  // namespace mivo4::host
