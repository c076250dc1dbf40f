/* mivo4: the raster device driver: its state record, entries and error stack. */
#ifndef MIVO4_RASTER_H
#define MIVO4_RASTER_H

#include "export.h"
#include "setup.h"
#include "types.h"

/* Error codes the driver reports. */
#define RASTER_ERR_MEMORY 300
#define RASTER_ERR_OUTPUT 303
#define RASTER_ERR_STOPPED 901

/* Driver states (dvrstate). */
#define DVR_INITIALISED 1
#define DVR_DEVICE_OPEN 2
#define DVR_PICTURE_BEGUN 4
#define DVR_BODY_BEGUN 8
#define DVR_PICTURE_ENDED 16

/* Size of an element's header; parameters follow it. */
#define DVR_ELEMENT_HEADER 16

/*
 * Byte offsets of the parameters of elements, as a host places them in the
 * element buffer (little-endian, IEEE doubles; a "long" is 32 bits; a point is
 * three doubles, or two doubles and a 16-bit flag, padded to 24 bytes).
 * Header: item (function code) at 0, length at 4, state handle at 8, 4 free.
 */
#define DVR_WINDOW 16          /* 518, 520, 767: six doubles, x y z of two corners */
#define DVR_BGC 16             /* 519: red, green, blue bytes */
#define DVR_VPSM_MODE 16       /* 521: 16-bit mode (1 metric) */
#define DVR_VPSM_FACTOR 24     /* 521: double, millimetres per unit */
#define DVR_CT_START 16        /* 1314: 32-bit start index; the length field is 3n + 2 */
#define DVR_CT_ENTRIES 20      /* 1314: n red, green, blue triples */
#define DVR_CA_P 16            /* 1033: the points P, Q, R: x, y (double), 16-bit flag */
#define DVR_CA_Q 40
#define DVR_CA_R 64
#define DVR_CA_SIZE_X 88       /* 1033: cells per row */
#define DVR_CA_SIZE_Y 92       /* 1033: rows */
#define DVR_CA_PRECISION 96    /* 1033: bits per cell; negative: the cells are elsewhere */
#define DVR_CA_MODE 100        /* 1033: 16-bit mode */
#define DVR_CA_CELLS 102       /* 1033: the cells, or (negative precision) their address,
                                  pointer-sized; rows padded to 4 bytes */
#define DVR_GDP_FUNCTION 16    /* 1034: primitive identifier (-5 begin image, -6 end image) */
#define DVR_GDP_NUMPTS 20      /* 1034: number of points */
#define DVR_GDP_POINTS 24      /* 1034: the points, 24 bytes each; then the data length
                                  (32-bit) and the data record */
#define DVR_GDP_POINT_SIZE 24
#define DVR_GDP_BEGIN_IMAGE (-5)
#define DVR_GDP_END_IMAGE (-6)
/* Precision -32768 stands for one bit per cell. */
#define DVR_PRECISION_ONE_BIT (-32768)

/* The data record of the begin-image primitive. */
typedef struct Vgdp_BeginCellArrayData {
    int32_t nx;         /* columns */
    int32_t ny;         /* rows */
    int32_t precision;  /* bits per pixel */
    int32_t colr_mode;
    int32_t comp_mode;
    int32_t draw_mode;
    int32_t tran_mode;
} Vgdp_BeginCellArrayData;

/* One error report: the function code of the element in hand and the code. */
typedef struct VErrorReport {
    int32_t item;
    int16_t code;
} VErrorReport;

/* The error stack. */
typedef struct ErrorState {
    int32_t maxdepth;   /* never set: the depth limit is 0 */
    int32_t curdepth;
    int32_t numlost;
    VErrorReport oldest;
    VErrorReport stack[10];
} ErrorState;

/* Device transformation: window, viewport, scales, rotation. */
typedef struct Dtrans {
    VVRect wn;
    VVRect vp;
    double rsx;
    double rsy;
    int32_t rotate;
} Dtrans;

/* The driver's single state record. */
typedef struct MoRastData {
    uint32_t hFile;          /* output stream */
    uint32_t hBuffer;        /* bitmap being built */
    int32_t bInCellArray;
    int32_t CurrentScanLine;
    VCD ColorTable[256];
    VCD Bgc;
    VErrorReport errep;      /* last report; errep.code is every dispatch's result */
    ErrorState esl;
    Dtrans dtr;
    int32_t dvrstate;
    int32_t element;         /* function code of the element in hand */
    int32_t readct;          /* write position in the element buffer */
    uint32_t DvrBufSz;
    uint32_t hDvrBuf;
    uint8_t *lpDvrBuf;
    char szFileName[144];
    uint32_t Width;
    uint32_t Height;
    uint32_t BitsPerPixel;
    uint32_t hData;
    EXPORT_OPTIONS *lpExport;
    int32_t ColorMode;
    uint32_t hSetup;
    int32_t inch;
    int16_t ColorSpecMode;
} MoRastData;

/* The setup record the driver works under: the GP4 setup of the export. */
typedef Gp4_SetupData Rast_SetupData;

/*
 * One element handler: takes the element (a 16-byte header, then its
 * parameters) and returns it unchanged. Failures go on the error stack.
 */
typedef void *(*DVRFUNCTION)(void *data);

/* One row of the dispatch table: a function code, its handler and the mask of
 * driver states (dvrstate values) in which the handler may run. */
typedef struct FUNCTION_LIST {
    int32_t opcode;
    DVRFUNCTION function;
    uint32_t status;
} FUNCTION_LIST;

/* One row of the support table handed to the host at initialisation: the
 * index into VInitDriver.InqSupData and the flags stored there. */
typedef struct VINQ_FUNCTION_LIST {
    uint8_t function;
    uint32_t supFlags;
} VINQ_FUNCTION_LIST;

#define DVR_FUNCTION_COUNT 74     /* rows of List */
#define DVR_INQ_FUNCTION_COUNT 46 /* rows of InqFunctionList */
/* The support rows use indices up to 59, so the host's InqSupData array must
 * hold at least this many entries. Index 47 receives the colour mode. */
#define DVR_INQ_SUPDATA_MIN 60
#define DVR_INQ_COLORMODE 47

/* Function codes of the 32-bit entry. */
#define DVR_FN_INITIALISE 0
#define DVR_FN_NOTHING 1
#define DVR_FN_ELEMENT 2
#define DVR_FN_VERSION 65534
#define DVR_FN_TERMINATE 65535

/* Function codes of the 16-bit-style entry. */
#define DVR_FN16_VERSION (-2)
#define DVR_FN16_ENTRY32 (-3)

/*
 * The record a host passes with function 0 (initialise). Every field that
 * holds an address is pointer-sized. The driver reads connect, elbufsz,
 * setup and export_ and writes elbuf and InqSupData; the other fields are
 * the host's.
 */
typedef struct VInitDriver {
    ZEPFARPROC dvrmgr;            /* the host's driver-manager callback */
    uint32_t handle;
    int32_t id;
    char *connect;                /* output connection name (file), or null/empty; the GP4
                                     driver's open empties it, so it must be writable */
    int32_t type;
    const char *drpath;
    const char *fntpath;
    const char *tmpath;
    const char *wkpath;
    uint32_t elbufsz;             /* size of the element buffer to make */
    void *elbuf;                  /* returned: the element buffer (answers land here) */
    uint32_t grbufsz;
    void *grbuf;
    ZHANDLE setup;                /* memory handle of the Rast_SetupData */
    EXPORT_OPTIONS *export_;      /* the host's export options (named "export" in the
                                     host's terms; renamed because C++ reserves it) */
    uint32_t *InqSupData;         /* filled on return; at least DVR_INQ_SUPDATA_MIN entries */
    void *HatchInqTable;
} VInitDriver;

/*
 * Entries. The 16-bit-style entry answers only two inquiries:
 *   -2: the filter version, 4 bytes, written to data;
 *   -3: the address of RASTER_dd_entry32, written to data as a pointer-sized
 *       value (8 bytes on a 64-bit host, 4 on a 32-bit one).
 * data must have room for what is asked; size is not consulted. Every other
 * code, and a null data, does nothing. The result is always 0.
 *
 * The 32-bit entry takes function codes 0 (initialise, data is a VInitDriver),
 * 1 (nothing), 2 (one element in data), 65534 (the filter version into the
 * first 4 bytes of data; result 4) and 65535 (terminate); other codes do
 * nothing and give 0. The result of an element is the last error code its
 * handler reported, 0 when none. An element is ignored (result 0) before
 * initialisation, in a state its table row does not allow, with an unknown
 * code, when data is null, and when it starts fewer than 16 bytes before the
 * end of the element buffer. Answers to inquiries are written from the start
 * of the element buffer, cut at its end. A null data on 65534 answers nothing
 * (result 0); a null VInitDriver, a setup handle that does not lock, or no
 * memory for the state record or element buffer fail initialisation with 300
 * and leave nothing behind. A second initialise while the driver runs
 * returns 0 and changes nothing.
 */
MIVO4_API int32_t RASTER_dd_entry(int16_t function, void *data, int32_t size);
MIVO4_API int32_t dd_entry(int16_t function, void *data, int16_t size);
MIVO4_API int32_t RASTER_dd_entry32(uint32_t handle, uint16_t function, void *data);
MIVO4_API int32_t dd_entry32(uint32_t handle, uint32_t function, void *data, int32_t size);

/* Life of the driver. */
MIVO4_API int32_t RASTER_initdvr(VInitDriver *InitDvr);
MIVO4_API int32_t RASTER_termdvr(void);

/* The setup locked at initialisation. */
MIVO4_API Rast_SetupData *lpSetup;

/* Dispatch. */
MIVO4_API const FUNCTION_LIST List[DVR_FUNCTION_COUNT];
MIVO4_API const VINQ_FUNCTION_LIST InqFunctionList[DVR_INQ_FUNCTION_COUNT];
MIVO4_API DVRFUNCTION getfunc(int32_t code);
MIVO4_API void *d_noop(void *arg);
MIVO4_API int32_t InquireSupport(int32_t opcode, int32_t arg);

/* Generalized drawing primitives: support words indexed by the negated
 * primitive identifier (0 to 7). */
MIVO4_API uint32_t GDPSupport[8];
MIVO4_API int32_t InqGDPSupport(int32_t GDPID);

/* Restores the per-picture attributes of a freshly initialised driver
 * (called with 0 and 4 when a picture begins). */
MIVO4_API void d_reset(int32_t a, int32_t b);

/* Brings a cell bitmap (hBuffer, src_width x src_height pixels of src_depth
 * bits, rows padded to 4 bytes; src_colorformat 0 indexed, 1 RGB, 2 CMYK,
 * 3 RGB with alpha) to the output size and depth of the current setup and
 * writes it through the cell bitmap sink to the device's stream. DPI is the
 * driver's units per inch (0: sizes in pixels). hBuffer stays the caller's. */
MIVO4_API void RasterWriteCellData(ZHANDLE hBuffer, uint32_t src_width, uint32_t src_height,
                                   int32_t DPI, int16_t src_depth, int16_t src_colorformat);

/* Element handlers. */
MIVO4_API void *d_opdv(void *data);   /* 1: open the device */
MIVO4_API void *d_cldv(void *data);   /* 2: close the device */
MIVO4_API void *d_begp(void *data);   /* 3: begin picture */
MIVO4_API void *d_begpb(void *data);  /* 4: begin picture body */
MIVO4_API void *d_endp(void *data);   /* 5: end picture */
MIVO4_API void *ds_dvwn(void *data);  /* 518: device window */
MIVO4_API void *ds_bgc(void *data);   /* 519: background colour */
MIVO4_API void *ds_dvvp(void *data);  /* 520: device viewport */
MIVO4_API void *ds_vpsm(void *data);  /* 521: viewport mode */
MIVO4_API void *dq_dvvp(void *data);  /* 765: inquire device viewport */
MIVO4_API void *dq_dvwn(void *data);  /* 767: inquire device window */
MIVO4_API void *ds_axc(void *data);   /* 771 */
MIVO4_API void *ds_tran(void *data);  /* 772 */
MIVO4_API void *ds_clpr(void *data);  /* 773 */
MIVO4_API void *ds_clip(void *data);  /* 774 */
MIVO4_API void *d_ca(void *data);     /* 1033: cell array */
MIVO4_API void *d_gdp(void *data);    /* 1034: generalized drawing primitive */
MIVO4_API void *ds_ct(void *data);    /* 1314: colour table entries */
MIVO4_API void *ds_dm(void *data);    /* 2310 */

/* Error stack. */
MIVO4_API void push_er(int16_t code);
MIVO4_API void *dq_es(void *data);
MIVO4_API void *d_popes(void *data);  /* 3842 */
MIVO4_API void *d_empes(void *data);  /* 3843 */
MIVO4_API void mov2buf(const void *data, int32_t len);

/*
 * Progress and stop requests through the host's status function in the
 * export options. Both push 901 and return 901 when the host answers
 * non-zero (the user stopped), else return 0; without a driver or export
 * options they return 0. escape() reports the share of the current picture's
 * rows received so far, in percent; RASTER_escape() reports 0.
 */
MIVO4_API int32_t escape(void);
MIVO4_API int32_t RASTER_escape(void);

/* Memory helpers of the colour library. rlGetMemory allocates count * size
 * zero-filled bytes (count is 16-bit); rlFreeNewData frees a non-zero handle
 * and returns 1, or returns 0 for handle 0. */
MIVO4_API ZHANDLE rlGetMemory(int16_t count, int32_t size);
MIVO4_API void *rlLockMemory(ZHANDLE handle);
MIVO4_API int32_t rlUnlockMemory(ZHANDLE handle);
MIVO4_API ZHANDLE rlPointertoHandle(const void *pointer);
MIVO4_API int32_t rlFreeNewData(ZHANDLE handle);

#endif /* MIVO4_RASTER_H */
