/* mivo4: the cell bitmap sink, through which a rendered picture reaches the
 * GP4 writer, and its resolution and sizing helpers. */
#ifndef MIVO4_SINK_H
#define MIVO4_SINK_H

#include "types.h"

/* Both resolutions from a resolution mode: 777..782 give 200, 240, 300, 400,
 * 600, 1200 dots per inch, 783 and 784 the user's value. Returns 0, or -1 for
 * any other mode (resolutions untouched). */
MIVO4_API int32_t SetResByResMode(int16_t *lpXResolution, int16_t *lpYResolution, int32_t ResMode,
                                  int32_t userdpi);

#endif /* MIVO4_SINK_H */
