#include "progress.h"

#include <unistd.h>

#include <algorithm>
#include <cmath>

#include "exporter.h"
#include "image.h"

namespace mivo4::host {

namespace {

constexpr int kCells = 40;
constexpr size_t kLabelWidth = 16;
constexpr auto kRedrawEvery = std::chrono::milliseconds(100);

ProgressBar *activeBar = nullptr;

}  // namespace

bool progressShown(std::optional<bool> forced) {
    if (forced) return *forced;
    return isatty(STDERR_FILENO) == 1;
}

ProgressBar::ProgressBar(bool show, std::vector<Stage> stages, FILE *out, Clock clock)
    : show_(show), stages_(std::move(stages)), out_(out), clock_(std::move(clock)) {
    if (!clock_) clock_ = [] { return std::chrono::steady_clock::now(); };
    if (stages_.empty()) stages_.push_back({"working", 1});
    for (Stage &s : stages_)
        if (!(s.weight > 0)) s.weight = 0;
    enter(0);
    if (show_) {
        previous_ = activeBar;
        activeBar = this;
    }
}

ProgressBar::~ProgressBar() {
    if (lineOpen_) std::fputc('\n', out_), std::fflush(out_);
    if (activeBar == this) activeBar = previous_;
}

ProgressBar *ProgressBar::active() { return activeBar; }

void ProgressBar::enter(size_t stage) {
    // What is left of the bar is shared among this stage and those after it,
    // so that a skipped stage leaves no gap.
    double rest = 0;
    for (size_t i = stage; i < stages_.size(); ++i) rest += stages_[i].weight;
    current_ = stage;
    stageStart_ = position_;
    stageSpan_ = rest > 0 ? (1.0 - position_) * stages_[stage].weight / rest : 0.0;
}

void ProgressBar::advance(size_t stage, double fraction) {
    if (finished_ || stage >= stages_.size() || stage < current_ || !std::isfinite(fraction)) return;
    if (stage > current_) {
        position_ = std::max(position_, stageStart_ + stageSpan_);
        enter(stage);
    }
    fraction = std::clamp(fraction, 0.0, 1.0);
    position_ = std::min(1.0, std::max(position_, stageStart_ + stageSpan_ * fraction));
    draw(drawnStage_ != current_);
}

void ProgressBar::skip(size_t stage) {
    if (finished_ || stage >= stages_.size() || stage < current_) return;
    stages_[stage].weight = 0;
    // The current stage can be skipped only before it has moved.
    if (stage == current_ && position_ == stageStart_) enter(stage);
}

void ProgressBar::finish() {
    if (finished_) return;
    position_ = 1.0;
    current_ = stages_.size() - 1;
    finished_ = true;
    if (!show_) return;
    draw(true);
    std::fputc('\n', out_);
    std::fflush(out_);
    lineOpen_ = false;
}

void ProgressBar::breakLine() {
    if (!lineOpen_) return;
    std::fputc('\n', out_);
    std::fflush(out_);
    lineOpen_ = false;
    drawnStage_ = SIZE_MAX;  // the next report draws the whole bar again
}

void ProgressBar::draw(bool force) {
    if (!show_) return;
    const int percent = std::clamp(static_cast<int>(position_ * 100.0 + 1e-9), 0, 100);
    const auto now = clock_();
    // A terminal is not redrawn for less than a whole percent, nor more often
    // than ten times a second; a new stage is always shown.
    if (!force && (percent <= drawnPercent_ || now - drawnAt_ < kRedrawEvery)) return;
    drawnPercent_ = percent;
    drawnStage_ = current_;
    drawnAt_ = now;
    char bar[kCells + 1];
    const int full = percent * kCells / 100;
    for (int i = 0; i < kCells; ++i) bar[i] = i < full ? '#' : '.';
    bar[kCells] = '\0';
    std::string label = finished_ ? "done" : stages_[current_].label;
    if (label.size() < kLabelWidth) label.resize(kLabelWidth, ' ');
    std::fprintf(out_, "\rexporting [%s] %3d%% %s", bar, percent, label.c_str());
    std::fflush(out_);
    lineOpen_ = true;
}

void breakProgressLine() {
    if (ProgressBar *bar = ProgressBar::active()) bar->breakLine();
}

int fail(const std::string &message, int code) {
    breakProgressLine();
    std::fprintf(stderr, "mivo4: %s\n", message.c_str());
    return code;
}

// Measured on an A4 page at 300 dpi, 24 bits, from a JPEG: reading about a
// third of the time, the module's work before it codes a fifth, its coding a
// fifth, the check by decoding a quarter.
std::vector<ProgressBar::Stage> exportStages() {
    return {{"reading", 32}, {"reducing colours", 20}, {"coding", 21}, {"checking", 27}};
}

ExportProgress::ExportProgress(ExportSettings &settings)
    : settings_(settings), bar_(progressShown(settings.progress), exportStages()) {
    if (!settings.verify) bar_.skip(kChecking);
    settings.progressBar = &bar_;
    bar_.advance(kReading, 0);
    readOptions().rowsRead = [this](uint64_t done, uint64_t total) {
        if (total > 0) bar_.advance(kReading, static_cast<double>(done) / static_cast<double>(total));
    };
}

ExportProgress::~ExportProgress() {
    readOptions().rowsRead = nullptr;
    if (settings_.progressBar == &bar_) settings_.progressBar = nullptr;
}

}  // namespace mivo4::host
