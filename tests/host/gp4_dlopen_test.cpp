// The GP4 writer seen from a host: its routines and tables are exported by
// name, and a row coded through them gives the expected code.
#include <dlfcn.h>
#include <gtest/gtest.h>
#include <mivo4/gp4.h>
#include <mivo4/memory.h>
#include <mivo4/setup.h>

namespace {

class HostGp4 : public ::testing::Test {
protected:
    void SetUp() override {
        module_ = dlopen(MIVO4_MODULE_PATH, RTLD_NOW | RTLD_LOCAL);
        ASSERT_NE(module_, nullptr) << dlerror();
    }
    void TearDown() override {
        if (module_ != nullptr) dlclose(module_);
    }
    template <class T>
    T sym(const char *name) const {
        return reinterpret_cast<T>(dlsym(module_, name));
    }
    void *module_ = nullptr;
};

TEST_F(HostGp4, EveryGp4RoutineAndTableIsExported) {
    const char *names[] = {"WriteGp4Hdr", "IntToStr", "Encode", "Group4", "SetRefPositions",
                           "AddRun", "AddCode", "IncreaseOutBuf", "twoD", "white", "black"};
    for (const char *name : names) EXPECT_NE(dlsym(module_, name), nullptr) << name;
}

TEST_F(HostGp4, InternalSearchNamesStayHidden) {
    EXPECT_EQ(dlsym(module_, "_ZN5mivo42g415gForceRowSearchE"), nullptr);
}

TEST_F(HostGp4, ARowCodedThroughTheExportedRoutines) {
    auto alloc = sym<ZHANDLE (*)(uint32_t, uint32_t)>("GlobalAlloc");
    auto lock = sym<void *(*)(ZHANDLE)>("GlobalLock");
    auto release = sym<int32_t (*)(ZHANDLE)>("GlobalFree");
    auto group4 = sym<uint32_t (*)(const uint8_t *, ZHANDLE *, uint32_t, uint32_t, uint32_t)>("Group4");
    auto current = sym<Gp4_SetupData **>("lpRaster");
    ASSERT_TRUE(alloc && lock && release && group4 && current);

    Gp4_SetupData setup{};
    *current = &setup;
    // A 16-pixel row, pixel 0 black: horizontal mode with white 0 and black 1,
    // then V0 at the end of the row.
    const uint8_t row[2] = {0x7F, 0xFF};
    ZHANDLE h = alloc(GHND, 2);
    ASSERT_EQ(group4(row, &h, 16, 1, 2), 2u);
    const uint8_t *out = static_cast<const uint8_t *>(lock(h));
    EXPECT_EQ(out[0], 0x26);  // 001 00110 ...
    EXPECT_EQ(out[1], 0xAA);  // ... 101 010 1 + zero fill: 1010 1010
    release(h);
    release(setup.gp4_refLine);
    *current = nullptr;
}

}  // namespace
