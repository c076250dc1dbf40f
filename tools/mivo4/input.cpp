#include "input.h"

#include <sys/mman.h>
#include <unistd.h>

#include <cerrno>
#include <string>
#include <utility>

#include "image.h"
#include "membudget.h"
#include "outfile.h"

namespace mivo4::host {

WholeInput::~WholeInput() {
    if (data_ != nullptr) munmap(data_, capacity_);
}

WholeInput::WholeInput(WholeInput &&other) noexcept
    : data_(std::exchange(other.data_, nullptr)), size_(std::exchange(other.size_, 0)),
      capacity_(std::exchange(other.capacity_, 0)) {}

WholeInput &WholeInput::operator=(WholeInput &&other) noexcept {
    if (this != &other) {
        if (data_ != nullptr) munmap(data_, capacity_);
        data_ = std::exchange(other.data_, nullptr);
        size_ = std::exchange(other.size_, 0);
        capacity_ = std::exchange(other.capacity_, 0);
    }
    return *this;
}

WholeInput readWholeInput(int fd) {
    const std::string name = kStandardInputName;
    if (isatty(fd))
        throw ReadError(name + " is a terminal: pipe a picture in (mivo4 export - OUTPUT < PICTURE) or name its file");
    const uint64_t limit = memoryBudget();
    WholeInput in;
    auto grow = [&] {
        const size_t capacity = in.capacity_ == 0 ? size_t{1} << 20 : in.capacity_ * 2;
        void *p = in.data_ == nullptr ? mmap(nullptr, capacity, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0)
                                      : mremap(in.data_, in.capacity_, capacity, MREMAP_MAYMOVE);
        if (p == MAP_FAILED) throw ReadError(name + ": not enough memory to hold it");
        in.data_ = static_cast<uint8_t *>(p);
        in.capacity_ = capacity;
    };
    for (;;) {
        if (in.size_ == in.capacity_) grow();
        const ssize_t n = read(fd, in.data_ + in.size_, in.capacity_ - in.size_);
        if (n < 0 && errno == EINTR) continue;
        if (n < 0) throw ReadError(name + ": cannot read: " + errorText(errno));
        if (n == 0) break;
        in.size_ += static_cast<size_t>(n);
        if (in.size_ > limit)
            throw ReadError(name + ": more than the memory limit of " + describeBytes(limit) +
                            " (--limit-memory); give a picture this large by its file name");
    }
    if (in.size_ == 0) throw ReadError(name + ": empty (nothing was piped in)");
    return in;
}

}  // namespace mivo4::host
