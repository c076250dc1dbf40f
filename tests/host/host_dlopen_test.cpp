// The module seen as a host sees it: opened with dlopen, driven only through
// fltLoadPointers and exported names.
#include <dlfcn.h>
#include <gtest/gtest.h>
#include <mivo4/filter.h>
#include <mivo4/memory.h>
#include <mivo4/raster.h>
#include <mivo4/setup.h>

#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <string>

namespace {

class HostView : public ::testing::Test {
protected:
    // Loaded once for the whole program and never unloaded, as hosts keep a
    // filter they have opened: the module's handle table lives until the
    // process ends, and unloading the module earlier would strand it.
    static void *loadOnce() {
        static void *module = dlopen(MIVO4_MODULE_PATH, RTLD_NOW | RTLD_LOCAL);
        return module;
    }
    void SetUp() override {
        module_ = loadOnce();
        ASSERT_NE(module_, nullptr) << dlerror();
        auto load = reinterpret_cast<void (*)(FLTPOINTERS *)>(dlsym(module_, "fltLoadPointers"));
        ASSERT_NE(load, nullptr);
        table_.dwHostWord = 0xABCD1234u;
        load(&table_);
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
        "push_er", "dq_es", "d_popes", "d_empes", "mov2buf",
        // raster driver
        "RASTER_dd_entry", "dd_entry", "RASTER_dd_entry32", "dd_entry32", "RASTER_initdvr",
        "RASTER_termdvr", "lpSetup", "List", "InqFunctionList", "getfunc", "d_noop",
        "InquireSupport", "GDPSupport", "InqGDPSupport", "d_opdv", "d_cldv", "d_begp", "d_begpb",
        "d_endp", "ds_dvwn", "ds_bgc", "ds_dvvp", "ds_vpsm", "dq_dvvp", "dq_dvwn", "ds_axc",
        "ds_tran", "ds_clpr", "ds_clip", "d_ca", "d_gdp", "ds_ct", "ds_dm", "escape",
        "RASTER_escape", "rlGetMemory", "rlLockMemory", "rlUnlockMemory", "rlPointertoHandle",
        "rlFreeNewData",
        // streams
        "zepOpen", "zepClose", "zepCloseandDelete", "zepRead", "zepWrite", "zepSeek", "zepCopy",
        "unxSeek", "FillZepIOBuf", "FlushZepIO", "zepReadChar", "zepWriteChar", "zepReadShort",
        "zepReadLong", "zepReadFloat", "zepReadDouble", "zepWriteShort", "zepWriteLong",
        "zepWriteFloat", "zepWriteDouble", "zepReadLine", "zepWriteLine", "zepSetDataFormat",
        "zepGetDataFormat", "zepSetLineFormat", "zepGetLineFormat", "zepNativeToLE", "zepNativeToBE",
        "zepReadStruct", "zepWriteStruct", "GetPadWidth", "GetUnionSize", "docRead", "docSeek",
        "GetCurrentSect", "docOpenStream", "docListEntries",
        // profiles, setup profiles and option escapes
        "GetPrivateProfileString", "GetPrivateProfileInt", "WritePrivateProfileString",
        "GetProfileString", "GetProfileInt", "WriteProfileString", "INIopen", "INIclose",
        "GetProfileDirectory", "StrIsAnInteger", "StrIsHexDigit", "stripChars", "stripComments",
        "stripLdgTrlg", "LoadProfile", "SaveProfile", "xEscapeSetup", "GetRasterInfo",
        "AdjustAspect", "SetResByResMode",
        // display and printer information
        "SetDisplayInfo", "SetPrinterInfo", "GetDisplayInfo", "GetPrinterInfo",
        "GetDisplayColorInfo", "moveptr", "BackupProfile", "LoadProfileList", "dspX", "dspY",
        "dspXdpi", "dspYdpi", "prtX", "prtY", "prtXdpi", "prtYdpi", "srcX", "srcY", "srcXdpi",
        "srcYdpi"};
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
    char connectName[] = "session.gp4";
    init.connect = connectName;
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

TEST_F(HostView, EscapesThroughTheTableSetTheSetupAndKeepValuesInItsProfile) {
    char dir[] = "/tmp/mivo4hostXXXXXX";
    ASSERT_NE(mkdtemp(dir), nullptr);
    std::string profile = std::string(dir) + "/host.ini";
    {
        FILE *f = std::fopen(profile.c_str(), "w");
        ASSERT_NE(f, nullptr);
        std::fputs("[MIVO4]\n~Mode=Fax\n[Fax]\nDriver=GP4.1\nResolution Mode=783\n", f);
        std::fclose(f);
    }
    auto create = reinterpret_cast<ZHANDLE (*)(uint32_t, const char *, const char *, const char *)>(
        entry("CreateSetup"));
    auto destroy = reinterpret_cast<int32_t (*)(ZHANDLE)>(entry("DestroySetup"));
    auto escape = reinterpret_cast<int32_t (*)(ZHANDLE, int32_t, int32_t, void *, void *, int32_t)>(
        entry("EscapeSetup"));
    auto lock = sym<void *(*)(ZHANDLE)>("GlobalLock");
    ASSERT_TRUE(create && destroy && escape && lock);
    EXPECT_EQ(entry("EscapeSetup"), dlsym(module_, "xEscapeSetup"));

    ZHANDLE h = create(0, profile.c_str(), nullptr, nullptr);
    ASSERT_NE(h, 0u);
    int32_t colour = 102, res = 200, size = 1;
    double width = 8.5;
    EXPECT_EQ(escape(h, 1, 4, &colour, nullptr, 1), 1);
    EXPECT_EQ(escape(h, 11, 4, &res, nullptr, 1), 1);
    EXPECT_EQ(escape(h, 13, 8, &width, nullptr, 1), 1);
    EXPECT_EQ(escape(h, 19, 4, &size, nullptr, 0), 1);
    EXPECT_EQ(escape(h, 200, 4, &size, nullptr, 0), 0);
    auto *s = static_cast<Gp4_SetupData *>(lock(h));
    EXPECT_EQ(s->nColorMode, 104);
    EXPECT_EQ(s->XResolution, 200);
    EXPECT_DOUBLE_EQ(s->PrintWidth, 8.5);
    EXPECT_EQ(s->SizeMode, 601);
    EXPECT_EQ(destroy(h), 0);

    ZHANDLE again = create(0, profile.c_str(), nullptr, nullptr);
    auto *t = static_cast<Gp4_SetupData *>(lock(again));
    EXPECT_EQ(t->nColorMode, 104);
    EXPECT_EQ(t->XResolution, 200);
    EXPECT_DOUBLE_EQ(t->PrintWidth, 0.38) << "the width is kept as .38.5";
    EXPECT_EQ(destroy(again), 0);
    std::remove(profile.c_str());
    rmdir(dir);
}

TEST_F(HostView, InternalNamesStayHidden) {
    // Only documented routines leave the module; internals and the test hooks do not.
    EXPECT_EQ(dlsym(module_, "_ZN5mivo43mem7FailNthEj"), nullptr);
    EXPECT_EQ(dlsym(module_, "_ZN5mivo43mem11LiveHandlesEv"), nullptr);
    EXPECT_EQ(dlsym(module_, "_ZN5mivo46driver11ElementRoomEPKv"), nullptr);
}

}  // namespace
