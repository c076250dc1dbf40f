// What the drawing framework has been told of the screen and the printer.
#include <mivo4/display.h>

#include <cctype>
#include <cstdlib>

double dspX = 0.0, dspY = 0.0;
int16_t dspXdpi = 0, dspYdpi = 0;
double prtX = 0.0, prtY = 0.0;
int16_t prtXdpi = 0, prtYdpi = 0;
double srcX = 0.0, srcY = 0.0;
int16_t srcXdpi = 0, srcYdpi = 0;

void SetDisplayInfo(double xSize, double ySize, int16_t xDPI, int16_t yDPI) {
    dspX = xSize;
    dspY = ySize;
    dspXdpi = xDPI;
    dspYdpi = yDPI;
}

void SetPrinterInfo(double xSize, double ySize, int16_t xDPI, int16_t yDPI) {
    prtX = xSize;
    prtY = ySize;
    prtXdpi = xDPI;
    prtYdpi = yDPI;
}

// Steps over a run of digits and the one separator after it. A sign is not a
// digit: it is taken as the separator, so a negative number shifts the fields.
void moveptr(const char **dpsinfo) {
    if (dpsinfo == nullptr || *dpsinfo == nullptr) return;
    const char *p = *dpsinfo;
    while (std::isdigit(static_cast<unsigned char>(*p))) ++p;
    if (*p != '\0') ++p;
    *dpsinfo = p;
}

int32_t GetDisplayInfo(double *xSize, double *ySize, int16_t *xDPI, int16_t *yDPI) {
    // 1078 rather than 1024 lines is the framework's screen default.
    double width = 1280.0, height = 1078.0, xdpi = 96.0, ydpi = 96.0;
    const char *env = std::getenv("DISPLAYINFO");
    if (env != nullptr && env[0] != '\0') {
        // The variable replaces the stored values entirely; numbers it lacks read as 0.
        const char *p = env;
        width = std::atoi(p);
        moveptr(&p);
        height = std::atoi(p);
        moveptr(&p);
        xdpi = std::atoi(p);
        moveptr(&p);
        ydpi = std::atoi(p);
    } else {
        if (dspX != 0.0) width = dspX;
        if (dspY != 0.0) height = dspY;
        if (dspXdpi != 0) xdpi = dspXdpi;
        if (dspYdpi != 0) ydpi = dspYdpi;
    }
    // A zero resolution gives a size of 0 inches instead of a division by zero;
    // callers see the zero resolution and keep their own size.
    if (xSize != nullptr) *xSize = xdpi != 0.0 ? width / xdpi : 0.0;
    if (ySize != nullptr) *ySize = ydpi != 0.0 ? height / ydpi : 0.0;
    if (xDPI != nullptr) *xDPI = static_cast<int16_t>(xdpi);
    if (yDPI != nullptr) *yDPI = static_cast<int16_t>(ydpi);
    return 0;
}

int32_t GetPrinterInfo(double *xSize, double *ySize, int16_t *xDPI, int16_t *yDPI) {
    if (xSize != nullptr) *xSize = prtX;
    if (ySize != nullptr) *ySize = prtY;
    if (xDPI != nullptr) *xDPI = prtXdpi;
    if (yDPI != nullptr) *yDPI = prtYdpi;
    return 0;
}

// This platform has no colour information about the display.
int32_t GetDisplayColorInfo(void *) { return 0; }
