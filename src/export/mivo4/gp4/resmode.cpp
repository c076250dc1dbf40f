// The resolution table of the output.
#include <mivo4/setup.h>
#include <mivo4/sink.h>

int32_t SetResByResMode(int16_t *lpXResolution, int16_t *lpYResolution, int32_t ResMode,
                        int32_t userdpi) {
    static constexpr int16_t kFixed[] = {200, 240, 300, 400, 600, 1200};
    int16_t dpi;
    if (ResMode >= RES_200 && ResMode <= RES_1200) {
        dpi = kFixed[ResMode - RES_200];
    } else if (ResMode == RES_USER || ResMode == RES_USER2) {
        dpi = static_cast<int16_t>(userdpi);
    } else {
        return -1;
    }
    if (lpXResolution != nullptr) *lpXResolution = dpi;
    if (lpYResolution != nullptr) *lpYResolution = dpi;
    return 0;
}
