// The colour library as a host sees it: every routine and data item is
// exported from the module by name.
#include <dlfcn.h>
#include <gtest/gtest.h>

namespace {

TEST(ColourLibraryExports, EveryColourRoutineAndTableIsExported) {
    void *module = dlopen(MIVO4_MODULE_PATH, RTLD_NOW | RTLD_LOCAL);
    ASSERT_NE(module, nullptr) << dlerror();
    const char *names[] = {
        "_debug_color_res", "rlBytesPerLine", "rlCalcNewSize", "rlGetPixel", "rlSetPixel", "rlNearestRGBIndex",
        "rlBuildColormap", "rlFreeColormap", "rlConvertBitmapDepth", "rlChangeColorResolution", "rlRGB4toCMYK",
        "rlCMYKtoRGB", "rlALPHAtoRGB", "InitColorLib", "TermColorLib", "rlReduceColorTable", "direct_indexed",
        "getCRectData", "clrswap", "HeapSort", "AdjustHeap", "find_median", "split", "GetMaxHistSum", "MonoTable",
        "must_have_colors", "BOUNDARY_CHK", "Range_Chk", "rlDitherBitmap", "rlDitherGetCT", "rlDitherGivenCT",
        "_rlDitherOneLine", "rlShrinkBitmap", "rlStretchBitmap", "Shrink", "Stretch", "ShrinkX", "StretchX",
        "rlFlipBitmap", "rev_rgb"};
    for (const char *name : names) EXPECT_NE(dlsym(module, name), nullptr) << name;
    dlclose(module);
}

}  // namespace
