#include "gdp_export.h"

#include <mivo4/display.h>

#include <algorithm>
#include <span>

#include "driver_host.h"
#include "elements.h"
#include "trace.h"

namespace mivo4::host {

namespace {

// The driver keeps its connection name in 144 bytes, terminator included.
constexpr size_t kLongestName = 143;
constexpr uint32_t kSmallestBuffer = 4096;

std::string connectName(const std::string &name) {
    if (name.size() > kLongestName)
        throw ExportError("the output path " + name + " is longer than the " + std::to_string(kLongestName) +
                          " characters the driver takes; use a shorter path or --output-mode memory or callback");
    return name;
}

// The screen told to the module, as a bitmap export tells it, so that the
// screen size mode means the same on both ways.
void tellScreen(const Module &module, const ExportSettings &s) {
    if (auto set = reinterpret_cast<decltype(&SetDisplayInfo)>(module.symbol("SetDisplayInfo")))
        set(s.screenWidth, s.screenHeight, static_cast<int16_t>(s.screenDpi), static_cast<int16_t>(s.screenDpi));
}

std::vector<uint8_t> paletteBytes(const Image &image) {
    std::vector<uint8_t> rgb;
    rgb.reserve(image.palette.size() * 3);
    for (const Rgb &c : image.palette) rgb.insert(rgb.end(), {c.red, c.green, c.blue});
    return rgb;
}

}  // namespace

int32_t sendThroughDriver(const Module &module, const Image &image, int srcdpi, const ExportSettings &settings,
                          ZHANDLE setup, const std::string &name, EXPORT_OPTIONS &options) {
    const std::string connect = connectName(name);
    const int32_t w = static_cast<int32_t>(image.width), h = static_cast<int32_t>(image.height);
    const size_t stride = image.stride();
    const int32_t rowsPer = std::clamp<int32_t>(settings.rowsPerElement, 1, std::max(h, 1));
    // The largest element is the colour table of 256 entries.
    const uint32_t bufferSize = kSmallestBuffer;

    TraceWriter trace;
    DriverHost driver(module);
    if (!settings.tracePath.empty()) {
        try {
            trace.open(settings.tracePath);
        } catch (const TraceError &e) {
            throw ExportError(e.what());
        }
        driver.recordTo(&trace);
    }
    tellScreen(module, settings);
    const int32_t started = driver.initialise(setup, &options, connect, bufferSize);
    if (started != 0) return started;

    try {
        driver.send(makeElement(kOpenDevice));
        driver.send(makeElement(kBeginPicture));
        driver.send(deviceWindow(0, 0, w - 1, h - 1));
        // The metric scale makes the driver's units the picture's pixels.
        if (srcdpi > 0) driver.send(viewportMode(1, 25.4 / srcdpi));
        driver.send(makeElement(kBeginPictureBody));
        if (image.depth < 24) driver.send(colourTable(0, paletteBytes(image)));
        driver.send(beginImage(w, h, image.depth));
        // Rows bottom first, running the way the window runs (downwards). The
        // cells stay where the picture is: a negative precision tells the
        // driver to take them at the address in the element.
        for (int32_t y = 0; y < h; y += rowsPer) {
            const int32_t n = std::min(rowsPer, h - y);
            const std::span<const uint8_t> rows(image.pixels + stride * static_cast<size_t>(y), stride * static_cast<size_t>(n));
            driver.send(cellArray(0, y, w - 1, y + n - 1, w, n, -image.depth, nullptr, sizeof(uint64_t)), rows);
        }
        if (settings.pictureSent) settings.pictureSent();
        driver.send(endImage());
        driver.send(makeElement(kEndPicture));
        driver.send(makeElement(kCloseDevice));
        driver.terminate();
        trace.close();
    } catch (const TraceError &e) {
        throw ExportError(e.what());
    }
    return driver.firstError();
}

int32_t replayThroughDriver(const Module &module, const std::vector<TraceElement> &elements, ZHANDLE setup,
                            const std::string &name, EXPORT_OPTIONS &options) {
    const std::string connect = connectName(name);
    size_t largest = kSmallestBuffer;
    for (const TraceElement &e : elements) largest = std::max(largest, e.bytes.size());
    if (largest > UINT32_MAX) throw ExportError("a trace element is larger than an element buffer can be");
    DriverHost driver(module);
    const int32_t started = driver.initialise(setup, &options, connect, static_cast<uint32_t>(largest));
    if (started != 0) return started;
    for (const TraceElement &e : elements) driver.send(e.bytes, e.cells);
    driver.terminate();
    return driver.firstError();
}

}  // namespace mivo4::host
