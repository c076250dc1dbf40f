// How large in pixels the output of a picture will be, and how a picture's
// aspect is fitted into the output box.
#include "export/mivo4/rasinfo.h"

#include <cmath>
#include <cstdlib>

#include <mivo4/sink.h>

#include "export/mivo4/modlock.h"
#include "zep_xxxx/truncate.h"

namespace mivo4 {

namespace {

int32_t truncate(double v) { return TruncateToInt32(v); }

int32_t pixels(double v) { return truncate(std::ceil(v)); }

}  // namespace

void FitAspect(const Gp4_SetupData &s, double *newSize, int32_t lWidth, int32_t lHeight) {
    if (newSize == nullptr) return;
    if (s.XResolution <= 0 || s.YResolution <= 0) {
        // No pixels to fit into: the box stands as it is.
        newSize[0] = s.PrintWidth;
        newSize[1] = s.PrintHeight;
        return;
    }
    double vpxsize = truncate(s.XResolution * s.PrintWidth);
    double vpysize = truncate(s.YResolution * s.PrintHeight);
    if (vpxsize > 0 && vpysize > 0) {
        double vpratio = vpxsize / vpysize;
        // One is added to each extent on purpose: the fit is of (w+1) x (h+1).
        double wnratio = (std::abs(static_cast<double>(lWidth)) + 1) /
                         (std::abs(static_cast<double>(lHeight)) + 1);
        if (wnratio < vpratio) {
            vpxsize -= truncate(vpxsize - vpysize * wnratio);
        } else if (wnratio > vpratio) {
            vpysize -= truncate(vpysize - vpxsize / wnratio);
        }
    }
    newSize[0] = vpxsize / s.XResolution;
    newSize[1] = vpysize / s.YResolution;
}

void RasterInfo(Gp4_SetupData &s, const zepRasterInfoInput &rin, _outdata &rout) {
    if (s.SizeMode == SIZE_USER && rin.dpipicture != 0) {
        s.PrintWidth = static_cast<double>(rin.picture_width) / rin.dpipicture;
        s.PrintHeight = static_cast<double>(rin.picture_height) / rin.dpipicture;
    } else if (s.SizeMode == SIZE_SCREEN && rin.dpiscreen != 0) {
        s.PrintWidth = static_cast<double>(rin.screen_width) / rin.dpiscreen;
        s.PrintHeight = static_cast<double>(rin.screen_height) / rin.dpiscreen;
    }

    // The screen's resolution (307) is known to this query only.
    if (s.ResMode == RES_USER && rin.dpipicture != 0) {
        s.XResolution = s.YResolution = static_cast<int16_t>(rin.dpipicture);
    } else if (s.ResMode == RES_SCREEN && rin.dpiscreen != 0) {
        s.XResolution = s.YResolution = static_cast<int16_t>(rin.dpiscreen);
    } else if (s.ResMode >= RES_200 && s.ResMode <= RES_1200) {
        SetResByResMode(&s.XResolution, &s.YResolution, s.ResMode, 0);
    }

    double size[2] = {s.PrintWidth, s.PrintHeight};
    if (!(rin.dpipicture != 0 && s.SizeMode == SIZE_USER))
        FitAspect(s, size, rin.picture_width, rin.picture_height);
    rout.width = pixels(s.XResolution * size[0]);
    rout.height = pixels(s.YResolution * size[1]);
    rout.depth = 1;
}

}  // namespace mivo4

void GetRasterInfo(uint32_t, const zepRasterInfoInput *rin, _outdata *rout) {
    mivo4::ModuleLock lock;
    if (lpRaster == nullptr || rin == nullptr || rout == nullptr) return;
    mivo4::RasterInfo(*lpRaster, *rin, *rout);
}

void AdjustAspect(double *NewSize, int32_t lWidth, int32_t lHeight) {
    mivo4::ModuleLock lock;
    if (lpRaster == nullptr) return;
    mivo4::FitAspect(*lpRaster, NewSize, lWidth, lHeight);
}
