// Settings: device window and viewport, background colour, viewport mode,
// colour table, and the settings this driver accepts and ignores.
#include <mivo4/raster.h>

// TODO: device window (six doubles from byte 16) into dtr.wn.
void *ds_dvwn(void *data) { return data; }

// TODO: background colour (bytes 16, 17, 18) into Bgc.
void *ds_bgc(void *data) { return data; }

// TODO: device viewport x and y of both corners (bytes 16, 24, 40, 48) into dtr.vp.
void *ds_dvvp(void *data) { return data; }

// TODO: viewport mode and metric scale into inch.
void *ds_vpsm(void *data) { return data; }

// TODO: colour table entries into ColorTable.
void *ds_ct(void *data) { return data; }

// A raster device has no use for these: accepted and ignored.
void *ds_axc(void *data) { return data; }
void *ds_tran(void *data) { return data; }
void *ds_clpr(void *data) { return data; }
void *ds_clip(void *data) { return data; }
void *ds_dm(void *data) { return data; }
