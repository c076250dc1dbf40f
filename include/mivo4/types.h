/* mivo4: basic types shared by every public header of the mivo42.flt module. */
#ifndef MIVO4_TYPES_H
#define MIVO4_TYPES_H

#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
#define MIVO4_EXTERN_C extern "C"
#else
#define MIVO4_EXTERN_C extern
#endif

/* Marks every routine and data item that the module exports. */
#define MIVO4_API MIVO4_EXTERN_C __attribute__((visibility("default")))

/* A memory handle: a 32-bit value issued by the module's handle table, 0 = none. */
typedef uint32_t ZHANDLE;

/* A stream handle: the memory handle of one stream record, 0 = none. */
typedef uint32_t HZEPIO;

/* One colour-table entry: red, green, blue. */
typedef struct VCD {
    uint8_t red;
    uint8_t green;
    uint8_t blue;
} VCD;

/* A point of three doubles. */
typedef struct VVPoint {
    double x;
    double y;
    double z;
} VVPoint;

/* A rectangle given by two corner points. */
typedef struct VVRect {
    VVPoint p1;
    VVPoint p2;
} VVRect;

/*
 * The host's status function: progress reports and the user's wish to stop.
 * hostData is handed back unchanged as the first argument; a4..a7 are
 * pointer-sized because one request passes the address of a block.
 */
typedef int32_t (*LPGETSETSTATUS)(intptr_t hostData, int32_t op, int32_t item,
                                  intptr_t a4, intptr_t a5, intptr_t a6, intptr_t a7);

/*
 * The host's stream function (one stream operation per call). The handle
 * argument and argument 1 carry addresses for some operations, so both are
 * pointer-sized.
 */
typedef int32_t (*LPZEPCALLBACK)(intptr_t handle, int32_t op, intptr_t arg1, intptr_t arg2);

/* A plain callback address stored for the host (help hook and the like). */
typedef void (*ZEPFARPROC)(void);

/* The 32-bit entry of a raster device driver: (handle, function code, data). */
typedef int32_t (*LPDDENTRY32)(uint32_t handle, uint16_t function, void *data);

#endif /* MIVO4_TYPES_H */
