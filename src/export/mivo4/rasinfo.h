// Output-size arithmetic of a setup, shared by the exported query and the
// option escape that answers it.
#pragma once

#include <mivo4/export.h>
#include <mivo4/setup.h>

namespace mivo4 {

void RasterInfo(Gp4_SetupData &s, const zepRasterInfoInput &rin, _outdata &rout);
void FitAspect(const Gp4_SetupData &s, double *newSize, int32_t lWidth, int32_t lHeight);

}  // namespace mivo4
