/*
 * kt/export.h -- symbol visibility for libkt
 *
 * libkt is built with hidden visibility: only declarations marked KT_API
 * are exported from libkt.so.1. Functions with plain (unmangled) names are
 * additionally declared inside KT_EXTERN_C_BEGIN / KT_EXTERN_C_END.
 */
#ifndef KT_EXPORT_H
#define KT_EXPORT_H

#define KT_API __attribute__((visibility("default")))

#ifdef __cplusplus
#define KT_EXTERN_C_BEGIN extern "C" {
#define KT_EXTERN_C_END }
#else
#define KT_EXTERN_C_BEGIN
#define KT_EXTERN_C_END
#endif

#endif /* KT_EXPORT_H */
