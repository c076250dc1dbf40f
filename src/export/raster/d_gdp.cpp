// Generalized drawing primitives (function code 1034) and the host's support
// inquiry for them.
#include <mivo4/raster.h>

// One support word per primitive identifier, indexed by the negated
// identifier; this driver declares none of them supported.
uint32_t GDPSupport[8] = {0, 0, 0, 0, 0, 0, 0, 0};

int32_t InqGDPSupport(int32_t GDPID) {
    if (GDPID >= 0 || GDPID < -7) return 0;
    return static_cast<int32_t>(GDPSupport[-GDPID]);
}

// TODO: begin image (-5) allocates the picture bitmap; end image (-6) renders it.
void *d_gdp(void *data) { return data; }
