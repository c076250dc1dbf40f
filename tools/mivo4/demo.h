// The built-in test chart: tones, colour patches, fine lines and text-like
// strokes, always the same pixels.
#pragma once

#include "image.h"

namespace mivo4::host {

constexpr uint32_t kDemoWidth = 1600;
constexpr uint32_t kDemoHeight = 1200;
constexpr int kDemoDpi = 200;  // so the chart is 8 x 6 inches

// A 24-bit chart of kDemoWidth x kDemoHeight pixels at kDemoDpi.
Image makeDemoChart(const PixelAllocator &alloc);

}  // namespace mivo4::host
