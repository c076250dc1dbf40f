// Inquiries of the device viewport and window; answers go to the element buffer.
#include <mivo4/raster.h>

#include "export/raster/element.h"

// The viewport's corners in the order hosts of this driver read them: x of
// the first corner, y of the second, a free slot, y of the first, x of the
// second, a free slot. The crossed order is what hosts expect; the free
// slots are answered as zero.
void *dq_dvvp(void *data) {
    const MoRastData *s = mivo4::driver::State();
    if (s == nullptr) return data;
    const VVRect &vp = s->dtr.vp;
    const double answer[6] = {vp.p1.x, vp.p2.y, 0.0, vp.p1.y, vp.p2.x, 0.0};
    mov2buf(answer, sizeof answer);
    return data;
}

void *dq_dvwn(void *data) {
    const MoRastData *s = mivo4::driver::State();
    if (s == nullptr) return data;
    mov2buf(&s->dtr.wn, sizeof s->dtr.wn);
    return data;
}
