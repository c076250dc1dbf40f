// Sizing helpers of the GP4 writer.
#include <mivo4/setup.h>
#include <mivo4/sink.h>

#include <cstdint>

#include "zep_xxxx/truncate.h"

namespace {

double truncated(double v) { return mivo4::TruncateToInt32(v); }

}  // namespace

// The picture's size at the output resolution, cut to whole pixels so that
// the pixel aspect matches the picture's.
int32_t RasterAdjustAspect(double *NewSize, double dWidth, double dHeight) {
    if (NewSize == nullptr) return 0;
    const Gp4_SetupData *s = lpRaster;
    if (s == nullptr || s->XResolution <= 0 || s->YResolution <= 0) {
        // No output resolution to count pixels in: the size stands.
        NewSize[0] = dWidth;
        NewSize[1] = dHeight;
        return 0;
    }
    double vpxsize = truncated(s->XResolution * dWidth);
    double vpysize = truncated(s->YResolution * dHeight);
    if (vpxsize > 0 && vpysize > 0 && dWidth > 0 && dHeight > 0) {
        double vpratio = vpxsize / vpysize;
        double wnratio = dWidth / dHeight;
        if (wnratio < vpratio) {
            vpxsize -= truncated(vpxsize - vpysize * wnratio);
        } else if (wnratio > vpratio) {
            vpysize -= truncated(vpysize - vpxsize / wnratio);
        }
    }
    NewSize[0] = vpxsize / s->XResolution;
    NewSize[1] = vpysize / s->YResolution;
    return 0;
}

int32_t ScaleImageSize(double *lpWidth, double *lpHeight) {
    if (lpWidth == nullptr || lpHeight == nullptr) return 0;
    constexpr double kLargest = 22.0;
    // On a tie the width counts as the larger side.
    if (*lpWidth >= *lpHeight) {
        if (*lpWidth > kLargest) {
            *lpHeight *= kLargest / *lpWidth;
            *lpWidth = kLargest;
        }
    } else if (*lpHeight > kLargest) {
        *lpWidth *= kLargest / *lpHeight;
        *lpHeight = kLargest;
    }
    return 0;
}
