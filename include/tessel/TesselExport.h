#ifndef TESSEL_EXPORT_H
#define TESSEL_EXPORT_H

/* Symbols that form the library's interface; everything else is hidden. */
#define TESSEL_EXPORT __attribute__((visibility("default")))

#ifdef __cplusplus
#define TESSEL_EXTERN_C extern "C"
#else
#define TESSEL_EXTERN_C extern
#endif

#endif
