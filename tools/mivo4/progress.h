// The progress bar on standard error: one line that follows a job through
// weighted stages (reading, colour reduction, coding, checking), only ever
// forwards, redrawn at most once per whole percent and once per 100 ms, and
// ended with a newline.
#pragma once

#include <chrono>
#include <cstdint>
#include <cstdio>
#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace mivo4::host {

// Whether a bar is drawn: forced on (--progress) or off (--no-progress), else
// only when standard error is a terminal, so that logs and pipes stay clean.
bool progressShown(std::optional<bool> forced);

class ProgressBar {
public:
    struct Stage {
        std::string label;
        double weight = 1;  // its share of the bar, against the other stages' weights
    };
    using Clock = std::function<std::chrono::steady_clock::time_point()>;

    // A bar of these stages, drawn into out when show is set, from its first
    // report on; clock is for tests (the steady clock by default).
    ProgressBar(bool show, std::vector<Stage> stages, FILE *out = stderr, Clock clock = {});
    ~ProgressBar();
    ProgressBar(const ProgressBar &) = delete;
    ProgressBar &operator=(const ProgressBar &) = delete;

    // Stage `stage` has done `fraction` (0 to 1) of its work. A later stage
    // than the current one ends the current one and starts it (the stages
    // between are skipped, their share going to it and those after it); an
    // earlier stage, or less than already shown, changes nothing.
    void advance(size_t stage, double fraction);
    // The stage will not run: its share goes to the stages after it. Only
    // for stages not yet started.
    void skip(size_t stage);
    // The job is done: 100 % and the newline (once; only if something was drawn).
    void finish();
    // Ends the line drawn so far without finishing, so that a message can
    // follow on a line of its own; the next report draws the bar afresh.
    void breakLine();

    bool shown() const { return show_; }
    size_t stage() const { return current_; }
    // The whole job's progress in percent, as last worked out (drawn or not).
    int percent() const { return static_cast<int>(position_ * 100.0); }

    // The bar a message on standard error should break first (the newest
    // shown one), null when none is shown.
    static ProgressBar *active();

private:
    void enter(size_t stage);
    void draw(bool force);

    bool show_;
    std::vector<Stage> stages_;
    FILE *out_;
    Clock clock_;
    size_t current_ = 0;
    double stageStart_ = 0, stageSpan_ = 0;  // the current stage's part of 0..1
    double position_ = 0;                    // 0..1, never less than before
    int drawnPercent_ = -1;
    size_t drawnStage_ = SIZE_MAX;
    bool lineOpen_ = false, finished_ = false;
    std::chrono::steady_clock::time_point drawnAt_{};
    ProgressBar *previous_ = nullptr;
};

// Ends the line of the bar on show, if any, before a message on standard error.
void breakProgressLine();

// Says "mivo4: MESSAGE" on a line of its own on standard error; answers code,
// the exit code the failure gives.
int fail(const std::string &message, int code = 1);

struct ExportSettings;

// The stages of one picture's export, in the order they run: the reader's
// rows; the colour reduction (the host's own dithering, then the module's
// work before it codes, of which it says nothing); the module's coding; the
// host's check of the result by decoding it.
enum ExportStage : size_t { kReading, kReducing, kCoding, kChecking };

// The bar of one export from the command line, for as long as it lives: the
// readers report their rows to it, and settings.progressBar points at it so
// that the export moves it on.
class ExportProgress {
public:
    explicit ExportProgress(ExportSettings &settings);
    ~ExportProgress();
    ExportProgress(const ExportProgress &) = delete;
    ExportProgress &operator=(const ExportProgress &) = delete;
    ProgressBar &bar() { return bar_; }

private:
    ExportSettings &settings_;
    ProgressBar bar_;
};

// The stages of an export as a bar takes them; weights measured on an A4
// picture of 24 bits (see docs/behaviour.md). Without reading (a picture
// already in memory, a replayed session) or checking, those stages are
// skipped by the caller.
std::vector<ProgressBar::Stage> exportStages();

}  // namespace mivo4::host
