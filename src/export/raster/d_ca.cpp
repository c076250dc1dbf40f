// Cell array (function code 1033).
#include <mivo4/raster.h>

// TODO: place the element's cells in the picture bitmap and write it out.
void *d_ca(void *data) { return data; }
