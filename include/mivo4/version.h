/* mivo4: the version of this release of the headers and the module. The
 * build takes its project version from these three numbers. */
#ifndef MIVO4_VERSION_H
#define MIVO4_VERSION_H

#define MIVO4_VERSION_MAJOR 0
#define MIVO4_VERSION_MINOR 2
#define MIVO4_VERSION_PATCH 0

/* One number for comparisons: major * 10000 + minor * 100 + patch. */
#define MIVO4_VERSION (MIVO4_VERSION_MAJOR * 10000 + MIVO4_VERSION_MINOR * 100 + MIVO4_VERSION_PATCH)

#endif /* MIVO4_VERSION_H */
