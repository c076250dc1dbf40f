// JPEG pictures through libjpeg-turbo.
#include <cstdio>
// jpeglib.h needs size_t and FILE declared first.
#include <jpeglib.h>
#include <jerror.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cmath>
#include <csetjmp>
#include <cstring>
#include <memory>
#include <vector>

#include "exif.h"
#include "codecs.h"
#include "image.h"
#include "membudget.h"

namespace mivo4::host {

namespace {

struct ErrorManager {
    jpeg_error_mgr pub;
    jmp_buf jump;
    char message[JMSG_LENGTH_MAX];
};

void onError(j_common_ptr cinfo) {
    auto *err = reinterpret_cast<ErrorManager *>(cinfo->err);
    (*cinfo->err->format_message)(cinfo, err->message);
    std::longjmp(err->jump, 1);
}

// Warnings are ignored but those of missing data: a file that ends, or a
// scan whose data ends at a marker, before the picture does is an error
// unless the user accepts the decoder's filling in.
void onMessage(j_common_ptr cinfo, int level) {
    const int code = cinfo->err->msg_code;
    if (level != -1 || (code != JWRN_JPEG_EOF && code != JWRN_HIT_MARKER) || readOptions().allowTruncated) return;
    auto *err = reinterpret_cast<ErrorManager *>(cinfo->err);
    std::snprintf(err->message, sizeof err->message,
                  "the data is cut short (it ends before the picture does); --allow-truncated reads it anyway");
    std::longjmp(err->jump, 1);
}

struct Decompressor {
    jpeg_decompress_struct cinfo{};
    ErrorManager err{};
    bool created = false;
    ~Decompressor() {
        if (created) jpeg_destroy_decompress(&cinfo);
    }
};

// The first EXIF segment's orientation; 1 (upright) without one.
int jpegOrientation(const jpeg_decompress_struct &cinfo) {
    for (jpeg_saved_marker_ptr m = cinfo.marker_list; m != nullptr; m = m->next) {
        if (m->marker != JPEG_APP0 + 1 || m->data_length < 6 || std::memcmp(m->data, "Exif\0\0", 6) != 0) continue;
        const int o = exifOrientation(m->data, m->data_length);
        return o != 0 ? o : 1;
    }
    return 1;
}

}  // namespace

Image codec::readJpeg(const PictureSource &source, const PixelAllocator &alloc) {
    const std::string &path = source.name;
    std::unique_ptr<FILE, int (*)(FILE *)> f(source.inMemory ? nullptr : std::fopen(path.c_str(), "rb"), &std::fclose);
    if (!source.inMemory && !f) throw ReadError(path + ": cannot open: " + std::strerror(errno));

    Decompressor d;
    Image image;
    std::vector<uint8_t> cmyk;
    d.cinfo.err = jpeg_std_error(&d.err.pub);
    d.err.pub.error_exit = onError;
    d.err.pub.emit_message = onMessage;
    if (setjmp(d.err.jump)) throw ReadError(path + ": bad JPEG: " + d.err.message);
    jpeg_create_decompress(&d.cinfo);
    d.created = true;
    if (source.inMemory)
        jpeg_mem_src(&d.cinfo, source.bytes.data(), static_cast<unsigned long>(source.bytes.size()));
    else
        jpeg_stdio_src(&d.cinfo, f.get());
    // APP1 segments are kept (each at most 64 KiB) for the EXIF orientation.
    jpeg_save_markers(&d.cinfo, JPEG_APP0 + 1, 0xFFFF);
    jpeg_read_header(&d.cinfo, TRUE);
    image.orientation = jpegOrientation(d.cinfo);

    if (d.cinfo.saw_JFIF_marker && d.cinfo.X_density > 0) {
        if (d.cinfo.density_unit == 1) image.dpi = d.cinfo.X_density;
        else if (d.cinfo.density_unit == 2) image.dpi = static_cast<int>(std::lround(d.cinfo.X_density * 2.54));
    }
    const bool grey = d.cinfo.jpeg_color_space == JCS_GRAYSCALE;
    const bool inks = d.cinfo.jpeg_color_space == JCS_CMYK || d.cinfo.jpeg_color_space == JCS_YCCK;
    d.cinfo.out_color_space = grey ? JCS_GRAYSCALE : inks ? JCS_CMYK : JCS_RGB;

    // The size is checked before anything is decoded: a progressive file
    // decodes all its scans into whole-picture coefficient arrays (two bytes
    // a sample) as it starts. The decoder's memory manager gets the same
    // budget, so that what this estimate misses still stops there.
    jpeg_calc_output_dimensions(&d.cinfo);
    checkPictureSize(path, d.cinfo.output_width, d.cinfo.output_height);
    uint64_t work = static_cast<uint64_t>(d.cinfo.output_width) * (inks ? 4 : 0);
    if (d.cinfo.progressive_mode || d.cinfo.buffered_image)
        for (int c = 0; c < d.cinfo.num_components; ++c)
            work += uint64_t{d.cinfo.comp_info[c].width_in_blocks} * d.cinfo.comp_info[c].height_in_blocks * 128;
    const uint64_t pixels = Image::rowBytes(d.cinfo.output_width, grey ? 8 : 24) * uint64_t{d.cinfo.output_height};
    // The decoder's work space is gone before the picture is turned.
    work = std::max(work, orientationWork(source, image.orientation, d.cinfo.output_width, d.cinfo.output_height, grey ? 8 : 24));
    checkMemoryBudget(path, d.cinfo.output_width, d.cinfo.output_height, pixels + work);
    d.cinfo.mem->max_memory_to_use = static_cast<long>(std::min<uint64_t>(memoryBudget(), LONG_MAX));
    jpeg_start_decompress(&d.cinfo);

    allocatePixels(image, path, d.cinfo.output_width, d.cinfo.output_height, grey ? 8 : 24, alloc, work);
    if (grey) image.palette = greyPalette();
    if (inks) cmyk.resize(static_cast<size_t>(d.cinfo.output_width) * 4);
    // Files written by the usual publishing programs store inverted inks.
    const bool inverted = d.cinfo.saw_Adobe_marker;
    while (d.cinfo.output_scanline < d.cinfo.output_height) {
        uint32_t y = d.cinfo.output_scanline;
        reportRows(y, d.cinfo.output_height);
        JSAMPROW row = inks ? cmyk.data() : image.row(y);
        jpeg_read_scanlines(&d.cinfo, &row, 1);
        if (!inks) continue;
        uint8_t *dst = image.row(y);
        for (uint32_t x = 0; x < d.cinfo.output_width; ++x) {
            uint32_t c = cmyk[4 * x], m = cmyk[4 * x + 1], yl = cmyk[4 * x + 2], k = cmyk[4 * x + 3];
            if (!inverted) c = 255 - c, m = 255 - m, yl = 255 - yl, k = 255 - k;
            // Now 255 means no ink: each channel is what its ink and black leave.
            dst[3 * x] = static_cast<uint8_t>((c * k + 127) / 255);
            dst[3 * x + 1] = static_cast<uint8_t>((m * k + 127) / 255);
            dst[3 * x + 2] = static_cast<uint8_t>((yl * k + 127) / 255);
        }
    }
    jpeg_finish_decompress(&d.cinfo);
    return image;
}

}  // namespace mivo4::host
