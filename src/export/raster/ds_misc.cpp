// Settings: device window and viewport, background colour, viewport mode,
// colour table, and the settings this driver accepts and ignores. Parameters
// are read at their fixed offsets after the 16-byte element header; a field
// cut off by the end of the element buffer reads as zero.
#include <mivo4/color.h>
#include <mivo4/raster.h>

#include "export/raster/element.h"
#include "zep_xxxx/truncate.h"

#include <algorithm>
#include <cstring>

using mivo4::driver::ElementRead;
using mivo4::driver::State;

void *ds_dvwn(void *data) {
    MoRastData *s = State();
    if (s == nullptr) return data;
    double v[6];
    ElementRead(data, DVR_WINDOW, v, sizeof v);
    s->dtr.wn = VVRect{{v[0], v[1], v[2]}, {v[3], v[4], v[5]}};
    return data;
}

void *ds_bgc(void *data) {
    MoRastData *s = State();
    if (s == nullptr) return data;
    uint8_t rgb[3];
    ElementRead(data, DVR_BGC, rgb, sizeof rgb);
    s->Bgc = VCD{rgb[0], rgb[1], rgb[2]};
    return data;
}

// Only x and y of the two corners; the z values stay as they were.
void *ds_dvvp(void *data) {
    MoRastData *s = State();
    if (s == nullptr) return data;
    double v[6];
    ElementRead(data, DVR_WINDOW, v, sizeof v);
    s->dtr.vp.p1.x = v[0];
    s->dtr.vp.p1.y = v[1];
    s->dtr.vp.p2.x = v[3];
    s->dtr.vp.p2.y = v[4];
    return data;
}

// Mode 1 (metric) with a scale factor in millimetres per unit gives the
// units per inch; every other accepted mode has no metric scale.
void *ds_vpsm(void *data) {
    MoRastData *s = State();
    if (s == nullptr) return data;
    int16_t mode = 0;
    double factor = 0;
    ElementRead(data, DVR_VPSM_MODE, &mode, sizeof mode);
    ElementRead(data, DVR_VPSM_FACTOR, &factor, sizeof factor);
    if (mode < 0 || mode > 2 || (s->dvrstate & 128) != 0) return data;
    if (mode == 1 && factor != 0) {
        s->inch = mivo4::TruncateToInt32(25.4 / factor + 0.5);
    } else {
        s->inch = 0;
    }
    return data;
}

// Entries from a start index: the element's length less 2, divided by 3, says
// how many. They are adjusted for the colour mode where they stand, then
// copied into the table, never past its last entry.
void *ds_ct(void *data) {
    MoRastData *s = State();
    if (s == nullptr || data == nullptr) return data;
    int32_t length = 0, start = 0;
    ElementRead(data, 4, &length, sizeof length);
    ElementRead(data, DVR_CT_START, &start, sizeof start);
    int64_t n = (int64_t{length} - 2) / 3;
    // A length that claims more entries than the element holds is cut to the
    // entries present.
    const size_t room = mivo4::driver::ElementRoom(data);
    if (room != SIZE_MAX) n = std::min<int64_t>(n, room < DVR_CT_ENTRIES ? 0 : (room - DVR_CT_ENTRIES) / 3);
    if (n <= 0) return data;
    auto *entries = static_cast<uint8_t *>(data) + DVR_CT_ENTRIES;
    rev_rgb(static_cast<uint32_t>(n), entries, s->ColorMode);
    if (start < 0 || start > 255) return data;
    const int64_t count = std::min<int64_t>(n, 256 - start);
    std::memcpy(&s->ColorTable[start], entries, static_cast<size_t>(count) * 3);
    return data;
}

// A raster device has no use for these: accepted and ignored.
void *ds_axc(void *data) { return data; }
void *ds_tran(void *data) { return data; }
void *ds_clpr(void *data) { return data; }
void *ds_clip(void *data) { return data; }
void *ds_dm(void *data) { return data; }
