// The host's calls of the picture libraries' parts, through their table
// (codecs.h): a part that cannot be had is a picture that cannot be read, a
// stream that does not decode, a PNG that cannot be written.
#include "codecs.h"

namespace mivo4::host {

namespace {

const CodecEntries &readers(const PictureSource &source, Codec which) {
    std::string why;
    const CodecEntries *codecs = codecEntries(which, why);
    if (codecs == nullptr) throw ReadError(source.name + ": " + why);
    return *codecs;
}

}  // namespace

Image readPng(const PictureSource &source, const PixelAllocator &alloc) { return readers(source, Codec::Png).readPng(source, alloc); }

Image readJpeg(const PictureSource &source, const PixelAllocator &alloc) {
    return readers(source, Codec::Jpeg).readJpeg(source, alloc);
}

Image readTiff(const PictureSource &source, const PixelAllocator &alloc) {
    return readers(source, Codec::Tiff).readTiff(source, alloc);
}

DecodeResult decodeG4(const std::vector<uint8_t> &coded, uint32_t width, uint32_t height) {
    std::string why;
    const CodecEntries *codecs = codecEntries(Codec::Tiff, why);
    if (codecs == nullptr) return DecodeResult{std::nullopt, why};
    return codecs->decodeG4(coded, width, height);
}

G4RowDecoder::G4RowDecoder(const std::vector<uint8_t> &coded, uint32_t width, uint32_t rows) {
    codecs_ = codecEntries(Codec::Tiff, problem_);
    if (codecs_ != nullptr) state_ = codecs_->openG4(coded, width, rows, problem_);
}

G4RowDecoder::~G4RowDecoder() {
    if (state_ != nullptr) codecs_->closeG4(state_);
}

bool G4RowDecoder::next(uint8_t *row) {
    if (!problem_.empty() || state_ == nullptr) return false;
    if (!codecs_->nextG4(state_, row, row_, problem_)) return false;
    ++row_;
    return true;
}

namespace {

// A writer that can write nothing: the PNG writer could not be loaded.
class Unwritable : public BilevelWriter {
public:
    explicit Unwritable(std::string why) { error_ = std::move(why); }
    bool row(const uint8_t *) override { return false; }
    bool finish() override { return false; }
};

}  // namespace

bool writePng(const Bilevel &b, FILE *f, const std::string &name, std::string &error) {
    const CodecEntries *codecs = codecEntries(Codec::Png, error);
    return codecs != nullptr && codecs->writePng(b, f, name, error);
}

std::unique_ptr<BilevelWriter> pngWriter(FILE *f, uint32_t width, uint32_t height, const std::string &name) {
    std::string why;
    const CodecEntries *codecs = codecEntries(Codec::Png, why);
    if (codecs == nullptr) return std::make_unique<Unwritable>(name + ": " + why);
    return codecs->pngWriter(f, width, height, name);
}

}  // namespace mivo4::host
