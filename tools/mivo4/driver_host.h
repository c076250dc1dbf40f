// A host's side of a raster-driver session: the 32-bit entry taken from the
// module's entry table, initialisation with the setup and export options,
// elements copied into the element buffer and sent one at a time, and
// termination. Every element sent can be recorded in a trace.
#pragma once

#include <mivo4/raster.h>

#include <array>
#include <span>
#include <string>
#include <vector>

#include "elements.h"
#include "module.h"
#include "trace.h"

namespace mivo4::host {

class DriverHost {
public:
    // The driver's 32-bit entry from the module; throws std::runtime_error
    // when the module has none.
    explicit DriverHost(const Module &module);
    DriverHost(const DriverHost &) = delete;
    DriverHost &operator=(const DriverHost &) = delete;
    ~DriverHost();  // terminates a driver still running

    // Starts the driver for `setup` with an element buffer of `bufferSize`
    // bytes; `connect` names the output file ("" for the memory way). Answers
    // the entry's result (0 done).
    int32_t initialise(ZHANDLE setup, EXPORT_OPTIONS *options, const std::string &connect, uint32_t bufferSize);

    // Sends one element. `cells`, for a cell array of negative precision, are
    // the cells its address points at (none: a null address). Answers the
    // element's result (the last error the driver reported, 0 none); the
    // first non-zero one is kept.
    int32_t send(const Element &element, std::span<const uint8_t> cells = {});

    int32_t terminate();

    // Records every element sent from now on.
    void recordTo(TraceWriter *trace) { trace_ = trace; }
    // The first non-zero result of an element, 0 if none.
    int32_t firstError() const { return firstError_; }

private:
    LPDDENTRY32 entry_ = nullptr;
    bool running_ = false;
    std::vector<char> connect_;
    std::array<uint32_t, 64> support_{};
    uint8_t *buffer_ = nullptr;
    uint32_t bufferSize_ = 0;
    TraceWriter *trace_ = nullptr;
    int32_t firstError_ = 0;
};

}  // namespace mivo4::host
