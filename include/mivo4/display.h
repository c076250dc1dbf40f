/* mivo4: what the drawing framework knows of the screen and the printer. */
#ifndef MIVO4_DISPLAY_H
#define MIVO4_DISPLAY_H

#include "setup.h"
#include "types.h"

/* Display, printer and source-picture values: sizes in pixels, resolutions in
 * dots per inch; all zero at load. */
MIVO4_API double dspX, dspY;
MIVO4_API int16_t dspXdpi, dspYdpi;
MIVO4_API double prtX, prtY;
MIVO4_API int16_t prtXdpi, prtYdpi;
MIVO4_API double srcX, srcY;
MIVO4_API int16_t srcXdpi, srcYdpi;

MIVO4_API void SetDisplayInfo(double xSize, double ySize, int16_t xDPI, int16_t yDPI);
MIVO4_API void SetPrinterInfo(double xSize, double ySize, int16_t xDPI, int16_t yDPI);
/* The display size in inches and its resolution; any pointer may be null.
 * The environment variable DISPLAYINFO ("W,H,XDPI,YDPI", any one-character
 * separators) overrides what was set. */
MIVO4_API int32_t GetDisplayInfo(double *xSize, double *ySize, int16_t *xDPI, int16_t *yDPI);
/* The printer values as stored (sizes in pixels); any pointer may be null. */
MIVO4_API int32_t GetPrinterInfo(double *xSize, double *ySize, int16_t *xDPI, int16_t *yDPI);
MIVO4_API int32_t GetDisplayColorInfo(void *info);
MIVO4_API void moveptr(const char **dpsinfo);
MIVO4_API int32_t BackupProfile(Gp4_SetupData *lpSetup);
MIVO4_API int32_t LoadProfileList(Gp4_SetupData *lpSetup, uint32_t hDlg, uint16_t usDlgId);

#endif /* MIVO4_DISPLAY_H */
