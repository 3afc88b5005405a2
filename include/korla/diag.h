/* Diagnostics: levelled log records to standard output or a callback, and an abort hook.
 *
 * The settings are process-wide; any thread may set them and log at any time, without locks. A record that is being
 * logged while the callback is replaced goes to the old or to the new one with its own user pointer: what the old one
 * needs must outlive such a record. The library logs only configuration failures of the downmix engine, at
 * KPF_LOG_ERROR; it never logs on the processing path.
 */
#ifndef KORLA_DIAG_H
#define KORLA_DIAG_H

#include <stdint.h>

#include <korla/export.h>

KRL_BEGIN_DECLS

enum { KPF_LOG_TRACE = 0, KPF_LOG_INFO = 1, KPF_LOG_WARN = 2, KPF_LOG_ERROR = 3 };

/** Receives one record, a line of at most 511 bytes; user is what kpf_log_set_callback was given. */
typedef void (*kpf_log_callback)(void* user, const char* line);

/** Replaces process termination in kpf_abort. */
typedef void (*kpf_abort_handler)(void);

/** Writes the record "LEVEL (file:line): message" and a newline.
 *
 * level: 0..3; a higher one counts as 3. file: only what follows its last '/' or '\' is shown (a separator in first
 * place does not count). fmt: as for printf. A null file or fmt counts as empty.
 *
 * Without a callback the record goes to standard output, which is flushed. With one it is formatted into 512 bytes and
 * the callback is called once; a record that does not fit is dropped, a newline that does not fit is left off.
 */
KRL_API void kpf_log(uint32_t level, const char* file, int32_t line, const char* fmt, ...)
#if defined(__GNUC__)
    __attribute__((format(printf, 4, 5)))
#endif
    ;

/** Records below this level are dropped; 0, every level, at load time. */
KRL_API void kpf_log_set_level(uint32_t level);

/** Sends records to callback; null restores standard output. */
KRL_API void kpf_log_set_callback(kpf_log_callback callback, void* user);

/** Calls the handler and returns when it returns; without one the process ends with abort(). */
KRL_API void kpf_abort(void);

/** Installs the handler of kpf_abort; null removes it. */
KRL_API void kpf_abort_handle(kpf_abort_handler handler);

KRL_END_DECLS

#endif
