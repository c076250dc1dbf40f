// The module seen as a host sees it: opened with dlopen, driven only through
// fltLoadPointers and exported names.
#include <dlfcn.h>
#include <gtest/gtest.h>
#include <mivo4/filter.h>
#include <mivo4/memory.h>
#include <mivo4/raster.h>
#include <mivo4/setup.h>

#include <cstring>
#include <string>

namespace {

class HostView : public ::testing::Test {
protected:
    void SetUp() override {
        module_ = dlopen(MIVO4_MODULE_PATH, RTLD_NOW | RTLD_LOCAL);
        ASSERT_NE(module_, nullptr) << dlerror();
        auto load = reinterpret_cast<void (*)(FLTPOINTERS *)>(dlsym(module_, "fltLoadPointers"));
        ASSERT_NE(load, nullptr);
        table_.dwHostWord = 0xABCD1234u;
        load(&table_);
    }
    void TearDown() override {
        if (module_ != nullptr) dlclose(module_);
    }
    void *entry(const char *name) const {
        for (uint16_t i = 0; i < table_.wCount; ++i)
            if (std::strcmp(table_.lpEntries[i].lpszName, name) == 0) return table_.lpEntries[i].lpTarget;
        return nullptr;
    }
    template <class T>
    T sym(const char *name) const {
        return reinterpret_cast<T>(dlsym(module_, name));
    }

    void *module_ = nullptr;
    FLTPOINTERS table_{};
};

TEST_F(HostView, ModuleFileIsNamedMivo42Flt) {
    std::string path = MIVO4_MODULE_PATH;
    EXPECT_EQ(path.substr(path.rfind('/') + 1), "mivo42.flt");
}

TEST_F(HostView, EntryTableHasNineNamedEntriesInOrderWithout1007) {
    ASSERT_EQ(table_.wCount, 9);
    EXPECT_EQ(table_.dwHostWord, 0xABCD1234u) << "the host's first word is left alone";
    const struct {
        const char *name;
        uint16_t id;
    } expected[] = {{"CreateSetup", 1001}, {"DestroySetup", 1002},        {"EditSetup", 1003},
                    {"EscapeSetup", 1004}, {"ZEPGetFilterVersion", 1005}, {"dd_entry", 1006},
                    {"RASTER_dd_entry", 1008}, {"ExportCellData", 1009}, {"szDLLName", 1010}};
    for (int i = 0; i < 9; ++i) {
        EXPECT_STREQ(table_.lpEntries[i].lpszName, expected[i].name) << "entry " << i;
        EXPECT_EQ(table_.lpEntries[i].wId, expected[i].id) << "entry " << i;
        EXPECT_NE(table_.lpEntries[i].wId, 1007);
    }
}

TEST_F(HostView, EntriesPointAtTheExportedRoutines) {
    const char *names[] = {"CreateSetup",         "DestroySetup", "EditSetup",
                           "ZEPGetFilterVersion", "dd_entry",     "RASTER_dd_entry"};
    for (const char *name : names) EXPECT_EQ(entry(name), dlsym(module_, name)) << name;
    EXPECT_EQ(entry("szDLLName"), dlsym(module_, "export_szDLLName"));
    for (const char *name : names) EXPECT_NE(entry(name), nullptr) << name;
}

TEST_F(HostView, FilterVersionIs0x2000005) {
    auto version = reinterpret_cast<uint32_t (*)(void)>(entry("ZEPGetFilterVersion"));
    ASSERT_NE(version, nullptr);
    EXPECT_EQ(version(), 0x2000005u);
}

TEST_F(HostView, SetupIsCreatedEditedAndDestroyedThroughTheTable) {
    auto *dllName = static_cast<char *>(entry("szDLLName"));
    ASSERT_NE(dllName, nullptr);
    std::strcpy(dllName, MIVO4_MODULE_PATH);

    auto create = reinterpret_cast<ZHANDLE (*)(uint32_t, const char *, const char *, const char *)>(
        entry("CreateSetup"));
    auto edit = reinterpret_cast<int32_t (*)(ZHANDLE, ZEPFARPROC, uint32_t)>(entry("EditSetup"));
    auto destroy = reinterpret_cast<int32_t (*)(ZHANDLE)>(entry("DestroySetup"));
    auto lock = sym<void *(*)(ZHANDLE)>("GlobalLock");
    ASSERT_TRUE(create && edit && destroy && lock);

    ZHANDLE h = create(0, nullptr, nullptr, nullptr);
    ASSERT_NE(h, 0u);
    auto *setup = static_cast<Gp4_SetupData *>(lock(h));
    ASSERT_NE(setup, nullptr);
    EXPECT_EQ(setup->nColorMode, 103);
    EXPECT_EQ(setup->SizeMode, 602);
    EXPECT_EQ(setup->ResMode, 779);
    EXPECT_EQ(setup->XResolution, 96);
    EXPECT_DOUBLE_EQ(setup->PrintWidth, 6.67);
    EXPECT_STREQ(setup->out_type, "MIVO4.1");
    EXPECT_STREQ(setup->szProfile, "");

    auto **current = sym<Gp4_SetupData **>("lpRaster");
    ASSERT_NE(current, nullptr);
    EXPECT_EQ(*current, setup) << "a new setup is the current record";

    EXPECT_EQ(edit(h, nullptr, 0), 0);
    setup->SizeMode = 600;  // the host edits the record in place
    EXPECT_EQ(static_cast<Gp4_SetupData *>(lock(h))->SizeMode, 600);

    EXPECT_EQ(destroy(h), 0);
    EXPECT_EQ(*current, nullptr);
    EXPECT_EQ(lock(h), nullptr) << "a destroyed setup's handle is stale";
    EXPECT_EQ(destroy(h), 1) << "a stale handle cannot be destroyed twice";
    EXPECT_EQ(edit(h, nullptr, 0), -1);
}

TEST_F(HostView, EveryFoundationRoutineAndDataItemIsExported) {
    const char *names[] = {
        // memory handles
        "GlobalAlloc", "GlobalLock", "GlobalUnlock", "GlobalFree", "GlobalReAlloc", "GlobalHandle",
        "GlobalSize", "GlobalCompact", "GlobalPointerToHandle", "zepPtrGlobalAlloc",
        "zepPtrGlobalFree", "zepPtrGlobalReAlloc", "zepPtrGlobalHandle", "AllocGlobal", "FreeGlobal",
        "LockGlobal", "UnlockGlobal", "hEMData", "lpEMData", "hCommon",
        // utilities
        "strupr", "strlower", "strlwr", "stricmp", "strnicmp", "dabs", "feqi", "roundd", "lroundd",
        "s_getname", "s_getpath", "ZEPGetTempFileName", "CallGetSet_Status", "esc_mode",
        "AltFontsAvailable",
        // entry table and setups
        "fltLoadPointers", "ZEPGetFilterVersion", "CreateSetup", "EditSetup", "DestroySetup",
        "UseDefaultSettings", "LoadString", "hRaster", "lpRaster", "hDLLModule", "export_szDLLName",
        "szFilter",
        // error stack
        "push_er", "dq_es", "d_popes", "d_empes", "mov2buf"};
    for (const char *name : names) EXPECT_NE(dlsym(module_, name), nullptr) << name;
}

TEST_F(HostView, DriverEntryHandsOutTheAddressOfThe32BitEntry) {
    auto dd = reinterpret_cast<int32_t (*)(int16_t, void *, int32_t)>(entry("RASTER_dd_entry"));
    ASSERT_NE(dd, nullptr);
    void *address = nullptr;
    EXPECT_EQ(dd(-3, &address, sizeof address), 0);
    EXPECT_NE(address, nullptr);
    EXPECT_EQ(address, dlsym(module_, "RASTER_dd_entry32"));
    uint32_t version = 0;
    auto alias = reinterpret_cast<int32_t (*)(int16_t, void *, int16_t)>(entry("dd_entry"));
    ASSERT_NE(alias, nullptr);
    EXPECT_EQ(alias(-2, &version, 4), 0);
    EXPECT_EQ(version, 0x2000005u);
}

int32_t progressCalls = 0;
int32_t countProgress(intptr_t, int32_t, int32_t, intptr_t, intptr_t, intptr_t, intptr_t) {
    ++progressCalls;
    return 0;
}

TEST_F(HostView, ElementSessionRunsThroughTheDriverEntry) {
    auto *dllName = static_cast<char *>(entry("szDLLName"));
    std::strcpy(dllName, MIVO4_MODULE_PATH);
    auto create = reinterpret_cast<ZHANDLE (*)(uint32_t, const char *, const char *, const char *)>(
        entry("CreateSetup"));
    auto destroy = reinterpret_cast<int32_t (*)(ZHANDLE)>(entry("DestroySetup"));
    ASSERT_TRUE(create && destroy);
    ZHANDLE setup = create(0, nullptr, nullptr, nullptr);
    ASSERT_NE(setup, 0u);

    // The 32-bit entry as a host finds it: through the 16-bit entry's -3.
    LPDDENTRY32 dd32 = nullptr;
    auto dd = reinterpret_cast<int32_t (*)(int16_t, void *, int32_t)>(entry("RASTER_dd_entry"));
    ASSERT_EQ(dd(-3, &dd32, sizeof dd32), 0);
    ASSERT_NE(dd32, nullptr);
    auto **record = sym<MoRastData **>("lpEMData");
    ASSERT_NE(record, nullptr);

    EXPORT_OPTIONS options{};
    options.GetSet_Status = &countProgress;
    options.hDialog = 1;
    uint32_t support[64] = {};
    VInitDriver init{};
    init.connect = "session.gp4";
    init.elbufsz = 128;
    init.setup = setup;
    init.export_ = &options;
    init.InqSupData = support;
    progressCalls = 0;
    ASSERT_EQ(dd32(0, 0, &init), 0);
    ASSERT_NE(init.elbuf, nullptr);
    ASSERT_NE(*record, nullptr);
    EXPECT_EQ(progressCalls, 1) << "the progress display was started";
    EXPECT_EQ(support[0], 100u);
    EXPECT_EQ(support[47], 0u) << "colour mode 103 of the default setup";
    EXPECT_EQ(support[38], 1u);

    auto *buffer = static_cast<uint8_t *>(init.elbuf);
    auto sendElement = [&](int32_t code, int32_t param) {
        std::memset(buffer, 0, 20);
        std::memcpy(buffer, &code, 4);
        std::memcpy(buffer + DVR_ELEMENT_HEADER, &param, 4);
        return dd32(0, 2, buffer);
    };
    const struct {
        int32_t code;
        int32_t state;
    } steps[] = {{1, 2}, {3, 4}, {4, 8}, {5, 16}, {3, 4}, {4, 8}, {5, 16}, {2, 1}};
    for (const auto &step : steps) {
        EXPECT_EQ(sendElement(step.code, 0), 0) << step.code;
        EXPECT_EQ((*record)->dvrstate, step.state) << "after " << step.code;
    }
    EXPECT_EQ(sendElement(4, 0), 0);
    EXPECT_EQ((*record)->dvrstate, 1) << "a body without a picture is ignored";

    buffer[0] = 0xEE;
    EXPECT_EQ(sendElement(3842, 5), 0);
    int32_t popped = -1;
    std::memcpy(&popped, buffer, 4);
    EXPECT_EQ(popped, 0) << "the error stack is empty";

    uint32_t version = 0;
    EXPECT_EQ(dd32(0, 65534, &version), 4);
    EXPECT_EQ(version, 0x2000005u);

    EXPECT_EQ(dd32(0, 65535, nullptr), 0);
    EXPECT_EQ(*record, nullptr);
    EXPECT_EQ(destroy(setup), 0);
}

TEST_F(HostView, InternalNamesStayHidden) {
    // Only documented routines leave the module; internals and the test hooks do not.
    EXPECT_EQ(dlsym(module_, "_ZN5mivo43mem7FailNthEj"), nullptr);
    EXPECT_EQ(dlsym(module_, "_ZN5mivo43mem11LiveHandlesEv"), nullptr);
    EXPECT_EQ(dlsym(module_, "_ZN5mivo46driver11ElementRoomEPKv"), nullptr);
}

}  // namespace
