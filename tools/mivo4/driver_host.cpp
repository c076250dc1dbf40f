#include "driver_host.h"

#include <algorithm>
#include <cstring>
#include <stdexcept>

namespace mivo4::host {

DriverHost::DriverHost(const Module &module) {
    // The framework's way: the 16-bit-style entry hands out the 32-bit one.
    auto entry16 = reinterpret_cast<decltype(&RASTER_dd_entry)>(module.entry("RASTER_dd_entry"));
    if (entry16 == nullptr) throw std::runtime_error(module.path() + ": this module has no raster driver entry");
    entry16(DVR_FN16_ENTRY32, &entry_, sizeof entry_);
    if (entry_ == nullptr) throw std::runtime_error(module.path() + ": the raster driver gave no 32-bit entry");
}

DriverHost::~DriverHost() {
    if (running_) terminate();
}

int32_t DriverHost::initialise(ZHANDLE setup, EXPORT_OPTIONS *options, const std::string &connect,
                               uint32_t bufferSize) {
    // The driver keeps the name in a record of 144 bytes.
    connect_.assign(connect.begin(), connect.end());
    connect_.push_back('\0');
    VInitDriver init{};
    init.connect = connect_.data();
    init.elbufsz = bufferSize;
    init.setup = setup;
    init.export_ = options;
    init.InqSupData = support_.data();
    const int32_t rc = entry_(0, DVR_FN_INITIALISE, &init);
    if (rc == 0 && init.elbuf != nullptr) {
        running_ = true;
        buffer_ = static_cast<uint8_t *>(init.elbuf);
        bufferSize_ = bufferSize;
    }
    return rc != 0 ? rc : (running_ ? 0 : RASTER_ERR_MEMORY);
}

int32_t DriverHost::send(const Element &element, std::span<const uint8_t> cells) {
    if (!running_) return RASTER_ERR_MEMORY;
    if (element.size() > bufferSize_) throw std::runtime_error("an element larger than the element buffer");
    std::copy(element.begin(), element.end(), buffer_);
    const bool pointerCells = hasPointerCells(element.data(), element.size());
    if (trace_ != nullptr) {
        // The address means nothing in another process: it is recorded as 0
        // and the cells follow as a record of their own.
        if (pointerCells && element.size() >= DVR_CA_CELLS + 8) std::memset(buffer_ + DVR_CA_CELLS, 0, 8);
        trace_->record(buffer_, element.size());
        if (pointerCells) trace_->record(cells.data(), cells.size());
    }
    // The address goes at its place even when the element ends before it:
    // the driver reads the buffer there, and a stale address must not stay.
    if (pointerCells && bufferSize_ >= DVR_CA_CELLS + sizeof(uintptr_t)) {
        const auto address = reinterpret_cast<uintptr_t>(cells.empty() ? nullptr : cells.data());
        std::memcpy(buffer_ + DVR_CA_CELLS, &address, sizeof address);
    }
    const int32_t rc = entry_(0, DVR_FN_ELEMENT, buffer_);
    if (firstError_ == 0) firstError_ = rc;
    return rc;
}

int32_t DriverHost::terminate() {
    if (!running_) return 0;
    running_ = false;
    buffer_ = nullptr;
    return entry_(0, DVR_FN_TERMINATE, nullptr);
}

}  // namespace mivo4::host
