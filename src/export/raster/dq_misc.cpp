// Inquiries of the device viewport and window; answers go to the element buffer.
#include <mivo4/raster.h>

// TODO: answer the viewport's six doubles.
void *dq_dvvp(void *data) { return data; }

// TODO: answer the 48 bytes of the device window.
void *dq_dvwn(void *data) { return data; }
