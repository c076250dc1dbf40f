/* mivo4: the setup record of one export and its lifecycle. */
#ifndef MIVO4_SETUP_H
#define MIVO4_SETUP_H

#include "export.h"
#include "types.h"

/* Size modes. */
#define SIZE_SCREEN 600
#define SIZE_PRINTER 601
#define SIZE_USER 602
#define SIZE_PICTURE 603

/* Resolution modes. */
#define RES_200 777
#define RES_240 778
#define RES_300 779
#define RES_400 780
#define RES_600 781
#define RES_1200 782
#define RES_USER 783
#define RES_USER2 784
#define RES_SCREEN 307

/* Colour modes. */
#define COLOR_MODE_FIRST 103
#define COLOR_MODE_LAST 107

/* The setup record of one export, reached through a memory handle. */
typedef struct Gp4_SetupData {
    /* The block common to the framework's export filters. */
    char szHeader[144];
    char szDriver[144];     /* mode name: the profile section of this setup */
    char szProfile[144];    /* profile file name; empty without a profile directory */
    char szBackup[144];     /* backup profile name */
    char out_type[13];      /* output type tag, "MIVO4.1" by default */
    int32_t EndDialog;
    ZEPFARPROC lpfnHelpHook;
    LPGETSETSTATUS lpfnGetSetStatus;
    int32_t nColorMode;     /* 103..107 */
    int32_t DevFontAttrMax;
    void *DevFontAttr[32];
    LPZEPCALLBACK pIOCBProc; /* the host's output callback */
    VCD BkgColor;
    VVRect Window;
    double Scale;
    int32_t BkgColorDefine;
    int32_t nLineMode;
    unsigned char FileName[144];
    int32_t SizeMode;       /* SIZE_* */
    int32_t ResMode;        /* RES_* */
    int32_t ImageWidth;
    int32_t ImageLength;
    int16_t XResolution;    /* dots per inch */
    int16_t YResolution;
    uint32_t Handle;
    uint32_t hMF;
    char *lpMFile;
    double PrintWidth;      /* inches */
    double PrintHeight;
    uint32_t hDC;
    uint32_t hIC;
    uint32_t hInst;
    uint32_t hDIBitMap;
    char CGI_GDIPath[144];
    EXPORT_OPTIONS *lpExport;
    char DeferralFile[144];
    int32_t IDoPalettes;
    uint32_t DeviceColors;
    int32_t IHaveAPrinter;
    uint32_t FileHandle;    /* output stream of the driver path */
    uint32_t hPlatHandle;
    LPDDENTRY32 dd_entry32_metafile;
    /* Group 4 coder band state. */
    int32_t gp4_FGC;
    uint32_t gp4_BitOffset;
    uint32_t gp4_refLine;
    uint8_t gp4_stateInfoSaved;
    uint32_t GreyThreshold;
} Gp4_SetupData;

/* The current setup: its handle and locked record. */
MIVO4_API ZHANDLE hRaster;
MIVO4_API Gp4_SetupData *lpRaster;
/* The module instance handle (passed to LoadString, which ignores it). */
MIVO4_API uint32_t hDLLModule;
/* The module's file path, filled by the host through the "szDLLName" entry. */
MIVO4_API char export_szDLLName[260];
/* The filter's short name, turned to upper case by CreateSetup. */
MIVO4_API char *szFilter;

/* Threads: the module is one instance per process (the current setup, the
 * coder's band state and the raster driver's state are global). CreateSetup,
 * EditSetup, DestroySetup, xEscapeSetup, LoadProfile, ExportCellData,
 * GetRasterInfo, AdjustAspect and the GP4 driver's initdvr and termdvr take
 * one module-wide lock: called from several threads they run one at a time,
 * each as it would alone. The raster driver (RASTER_dd_entry32) is a single
 * instance: one driven picture at a time per process.
 *
 * A setup handle is one that CreateSetup returned and DestroySetup has not
 * taken back; any other handle (a block of the host's, a destroyed setup)
 * gets the answer of an invalid handle from every entry. */
MIVO4_API ZHANDLE CreateSetup(uint32_t hInstance, const char *lpszProfile, const char *lpszDriver,
                              const char *lpszFileSpec);
MIVO4_API int32_t EditSetup(ZHANDLE hSetup, ZEPFARPROC pfnHelp, uint32_t hParentWnd);
MIVO4_API int32_t DestroySetup(ZHANDLE hRaster);
MIVO4_API int32_t UseDefaultSettings(Gp4_SetupData *p);
MIVO4_API int32_t LoadString(uint32_t hmod, uint32_t lId, char *pszOutput, int32_t lSize);

/* Fills the current setup from its mode section (szDriver) of its profile
 * (szProfile); 1 when the mode exists (it has a "Driver" key), else 0 and the
 * setup is left untouched. bFontTable is not used. */
MIVO4_API int32_t LoadProfile(int32_t bFontTable);
/* Settings are kept one at a time by the option escapes: returns 1. */
MIVO4_API int32_t SaveProfile(int32_t bFontTable);

/* Option escapes (published in the entry table as "EscapeSetup"). */
#define ESC_COLOR_MODE 1
#define ESC_X_RESOLUTION 11
#define ESC_Y_RESOLUTION 12
#define ESC_WIDTH 13
#define ESC_HEIGHT 14
#define ESC_SIZE_QUERY 17
#define ESC_RES_SPECIAL 18
#define ESC_SIZE_MODE 19
#define ESC_RASTER_INFO 56
#define ESC_COLOR_QUERY 57
#define ESC_RES_MODE 70
#define ESC_OUTPUT_CALLBACK 81

/* Sets or queries one option of a setup. nCount is the size in bytes of the
 * data at lpInData; Retain also keeps the new value in the setup's profile.
 * Returns 1 when carried out, 0 for an escape that is not handled, -1 for no
 * setup, a wrong size or a value out of range. No more than nCount bytes are
 * read; a count too small for the escape's value is refused with -1.
 * Escape 56 answers for the current setup, as GetRasterInfo does. */
MIVO4_API int32_t xEscapeSetup(ZHANDLE hSetup, int32_t nEscape, int32_t nCount, void *lpInData,
                               void *lpOutData, int32_t Retain);

#endif /* MIVO4_SETUP_H */
