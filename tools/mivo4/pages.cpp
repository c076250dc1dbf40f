#include "pages.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>

#include "demo.h"
#include "image.h"
#include "input.h"
#include "export.h"
#include "outfile.h"
#include "progress.h"

namespace mivo4::host {

namespace {

// The length of the page number at output[at] ("%d", "%07d"), 0 if none is there.
size_t pageNumberAt(const std::string &output, size_t at) {
    if (output.compare(at, 2, "%d") == 0) return 2;
    if (at + 3 < output.size() && output[at] == '%' && output[at + 1] == '0' && output[at + 2] >= '1' &&
        output[at + 2] <= '9' && output[at + 3] == 'd')
        return 4;
    return 0;
}

// Exports one page of source to output.
int exportPage(const Module &module, PictureSource source, bool demo, const std::string &input,
               const std::string &output, const ExportSettings &settings, uint32_t &pages) {
    ModuleMemory memory(module.api());
    source.release = [&memory](uint8_t *pixels) { memory.release(pixels); };
    ExportSettings s = settings;
    ExportProgress progress(s);  // the page's whole job: reading, reduction, coding, checking
    Image image;
    try {
        image = demo ? makeDemoChart(memory.allocator()) : readImage(source, memory.allocator());
    } catch (const ReadError &e) {
        return fail(e.what());
    }
    pages = image.pages;
    AtomicOutput out;
    if (!out.open(output, demo || input == "-" ? std::string() : input)) return fail(out.error());
    // Once the driver holds every row, the picture's own block can go.
    s.pictureSent = [&] { memory.release(image.pixels); };
    try {
        ExportReport report = exportImage(module, memory, image, s, out);
        if (!out.commit()) return fail(out.error());
        // The summary says the resolution written; without it, an override
        // that changed the pixel size is still told.
        if (output != "-" && !s.quiet)
            std::fprintf(stderr, "mivo4: wrote %s: %u x %u pixels at %u dpi, %llu bytes\n", output.c_str(),
                         report.width, report.height, report.density,
                         static_cast<unsigned long long>(report.bytes));
        else if (std::string note = dpiOverride(s, report, output); !note.empty())
            std::fprintf(stderr, "mivo4: %s\n", note.c_str());
    } catch (const ExportError &e) {
        out.abandon();
        return fail(e.what(), e.exitCode);
    }
    return 0;
}

}  // namespace

bool isPageTemplate(const std::string &output) {
    for (size_t i = 0; i < output.size(); ++i) {
        if (output[i] != '%') continue;
        if (pageNumberAt(output, i) != 0) return true;
        if (output.compare(i, 2, "%%") == 0) ++i;
    }
    return false;
}

std::string pageTemplateProblem(const std::string &output) {
    if (!isPageTemplate(output)) return {};
    for (size_t i = 0; i < output.size(); ++i) {
        if (output[i] != '%') continue;
        if (size_t n = pageNumberAt(output, i); n != 0) {
            i += n - 1;
        } else if (output.compare(i, 2, "%%") == 0) {
            ++i;
        } else {
            return output + ": in an OUTPUT with a page number (%d), write %% for a percent sign";
        }
    }
    return {};
}

std::string pageOutputName(const std::string &output, uint32_t page) {
    std::string name;
    for (size_t i = 0; i < output.size(); ++i) {
        const size_t n = output[i] == '%' ? pageNumberAt(output, i) : 0;
        if (n != 0) {
            char number[32];
            std::snprintf(number, sizeof number, "%0*u", n == 4 ? output[i + 2] - '0' : 1, page);
            name += number;
            i += n - 1;
        } else if (output.compare(i, 2, "%%") == 0) {
            name += '%';
            ++i;
        } else {
            name += output[i];
        }
    }
    return name;
}

bool parsePageNumber(const std::string &text, uint32_t &page) {
    if (text.empty() || text[0] < '0' || text[0] > '9') return false;
    char *end = nullptr;
    errno = 0;
    const unsigned long v = std::strtoul(text.c_str(), &end, 10);
    if (errno != 0 || *end != '\0' || v < 1 || v > 0xFFFFFFFFul) return false;
    page = static_cast<uint32_t>(v);
    return true;
}

int exportPictures(const Module &module, const std::string &input, const std::string &output,
                   const ExportSettings &settings) {
    const bool demo = input.empty();
    if (demo && settings.page > 1) return fail("the test chart has 1 page; --page " + std::to_string(settings.page) + " is past the last");
    PictureSource source(input);
    source.orient = settings.orient;
    WholeInput held;  // standard input, read once for every page
    if (input == "-") {
        try {
            held = readWholeInput(0);
        } catch (const ReadError &e) {
            return fail(e.what());
        }
        source.name = kStandardInputName;
        source.inMemory = true;
        source.bytes = held.bytes();
    }
    const bool numbered = isPageTemplate(output);
    const bool everyPage = numbered && settings.page == 0;
    uint32_t page = settings.page == 0 ? 1 : settings.page;
    for (uint32_t last = page; page <= last; ++page) {
        source.page = page;
        uint32_t pages = 1;
        const int rc = exportPage(module, source, demo, input, numbered ? pageOutputName(output, page) : output,
                                  settings, pages);
        if (rc != 0) return rc;
        if (everyPage) last = pages;
        else if (settings.page == 0 && pages > 1 && !settings.quiet)
            std::fprintf(stderr, "mivo4: warning: %s has %u pages; only page 1 was written (--page N for another, an "
                                 "OUTPUT with %%d for all)\n",
                         source.name.c_str(), pages);
    }
    return 0;
}

}  // namespace mivo4::host
