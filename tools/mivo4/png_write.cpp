// libpng's writer of decoded pictures: the GP4 inspection's part that needs
// libpng.
#include <png.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>

#include "codecs.h"

namespace mivo4::host {

namespace {
struct PngWriteState {
    std::string message;
};
void pngError(png_structp png, png_const_charp message) {
    static_cast<PngWriteState *>(png_get_error_ptr(png))->message = message;
    png_longjmp(png, 1);
}
void pngWarning(png_structp, png_const_charp) {}
}  // namespace

bool codec::writePng(const Bilevel &b, FILE *f, const std::string &path, std::string &error) {
    PngWriteState state;
    png_structp png = png_create_write_struct(PNG_LIBPNG_VER_STRING, &state, pngError, pngWarning);
    png_infop info = png != nullptr ? png_create_info_struct(png) : nullptr;
    if (info == nullptr) {
        png_destroy_write_struct(&png, nullptr);
        error = path + ": not enough memory";
        return false;
    }
    if (setjmp(png_jmpbuf(png))) {
        png_destroy_write_struct(&png, &info);
        error = path + ": cannot write PNG: " + state.message;
        return false;
    }
    png_init_io(png, f);
    png_set_IHDR(png, info, b.width, b.height, 1, PNG_COLOR_TYPE_GRAY, PNG_INTERLACE_NONE,
                 PNG_COMPRESSION_TYPE_DEFAULT, PNG_FILTER_TYPE_DEFAULT);
    png_write_info(png, info);
    png_set_invert_mono(png);  // our set bits are black; PNG's grey 1 is white
    for (uint32_t y = 0; y < b.height; ++y)
        png_write_row(png, const_cast<png_bytep>(b.bits.data() + b.stride() * y));
    png_write_end(png, nullptr);
    png_destroy_write_struct(&png, &info);
    if (std::fflush(f) != 0) {
        error = path + ": cannot write: " + std::strerror(errno);
        return false;
    }
    return true;
}

namespace {

class PngRows : public BilevelWriter {
public:
    PngRows(FILE *f, uint32_t width, uint32_t height, const std::string &name) : f_(f), name_(name) {
        png_ = png_create_write_struct(PNG_LIBPNG_VER_STRING, this, onError, onWarning);
        info_ = png_ != nullptr ? png_create_info_struct(png_) : nullptr;
        if (info_ == nullptr) {
            error_ = name + ": not enough memory";
            return;
        }
        if (setjmp(png_jmpbuf(png_))) {
            error_ = name_ + ": cannot write PNG: " + message_;
            return;
        }
        png_init_io(png_, f);
        png_set_IHDR(png_, info_, width, height, 1, PNG_COLOR_TYPE_GRAY, PNG_INTERLACE_NONE,
                     PNG_COMPRESSION_TYPE_DEFAULT, PNG_FILTER_TYPE_DEFAULT);
        png_write_info(png_, info_);
        png_set_invert_mono(png_);  // our set bits are black; PNG's grey 1 is white
    }
    ~PngRows() override { png_destroy_write_struct(&png_, info_ != nullptr ? &info_ : nullptr); }
    bool row(const uint8_t *bits) override {
        if (!error_.empty()) return false;
        if (setjmp(png_jmpbuf(png_))) {
            error_ = name_ + ": cannot write PNG: " + message_;
            return false;
        }
        png_write_row(png_, const_cast<png_bytep>(bits));
        return true;
    }
    bool finish() override {
        if (!error_.empty()) return false;
        if (setjmp(png_jmpbuf(png_))) {
            error_ = name_ + ": cannot write PNG: " + message_;
            return false;
        }
        png_write_end(png_, nullptr);
        if (std::fflush(f_) != 0) {
            error_ = name_ + ": cannot write: " + std::strerror(errno);
            return false;
        }
        return true;
    }

private:
    static void onError(png_structp png, png_const_charp message) {
        static_cast<PngRows *>(png_get_error_ptr(png))->message_ = message;
        png_longjmp(png, 1);
    }
    static void onWarning(png_structp, png_const_charp) {}
    FILE *f_;
    std::string name_;
    std::string message_;
    png_structp png_ = nullptr;
    png_infop info_ = nullptr;
};

}  // namespace

std::unique_ptr<BilevelWriter> codec::pngWriter(FILE *f, uint32_t width, uint32_t height, const std::string &name) {
    return std::make_unique<PngRows>(f, width, height, name);
}

}  // namespace mivo4::host
