/* Linkage of the public interface: C names, default visibility.
 *
 * Pages that headers name as docs/PAGE.md stand beside the sources, and in an installed tree in
 * share/doc/korladownmixer/docs.
 */
#ifndef KORLA_EXPORT_H
#define KORLA_EXPORT_H

#if defined(KORLA_BUILDING_LIBRARY)
#    define KRL_API __attribute__((visibility("default")))
#else
#    define KRL_API
#endif

#ifdef __cplusplus
#    define KRL_BEGIN_DECLS extern "C" {
#    define KRL_END_DECLS }
#else
#    define KRL_BEGIN_DECLS
#    define KRL_END_DECLS
#endif

#endif
