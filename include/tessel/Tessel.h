#ifndef TESSEL_TESSEL_H
#define TESSEL_TESSEL_H

/* The C interface of the Tessel notification server library. */

#include <tessel/TesselExport.h>

#ifdef __cplusplus
extern "C" {
#endif

TESSEL_EXPORT extern const double TesselVersionNumber;
TESSEL_EXPORT extern const unsigned char TesselVersionString[];

#ifdef __cplusplus
}
#endif

#endif
