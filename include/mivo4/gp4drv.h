/* mivo4: the GP4 driver's open and close (the metafile path), and the
 * progress report shared by the writers. */
#ifndef MIVO4_GP4DRV_H
#define MIVO4_GP4DRV_H

#include "raster.h"
#include "types.h"

/* Opens the GP4 output for the setup InitDvr->setup: 0 on success; 22 when the
 * setup or the band state cannot be had; 21 when a memory-block output cannot
 * be allocated; 303 when the output cannot be opened. InitDvr->connect (the
 * file name) is emptied and InitDvr->setup replaced by the platform filter's. */
MIVO4_API int32_t initdvr(VInitDriver *InitDvr);
/* Renders the recorded picture, closes the output: 0, 300 (nothing to draw or
 * stopped), 303 (the output could not be closed), or the platform filter's
 * answer. data is not used. */
MIVO4_API int32_t termdvr(void *data);
/* One progress report (percent) to the host: 901 when the user asked to stop. */
MIVO4_API int32_t UpdateStatus(int32_t Temp);

#endif /* MIVO4_GP4DRV_H */
