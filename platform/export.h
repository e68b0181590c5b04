// Visibility of the library's public symbols.
#pragma once

#if defined(ALERTDB_BUILDING_LIBRARY)
#define ALERTDB_API __attribute__((visibility("default")))
#else
#define ALERTDB_API
#endif

#ifdef __cplusplus
#define ALERTDB_EXTERN_C extern "C"
#else
#define ALERTDB_EXTERN_C
#endif
