/*
 * kt/files.h -- log directory, log files and paths
 *
 * Small file-system services for the timing and profiling logs and for the
 * product's other components:
 *
 *   - one process-wide log directory (ktRegisterLogDirectory,
 *     ktGetLogDirectory), by default $HOME or the temporary directory;
 *   - a log-file opener that gives every process its own file,
 *     <log directory>/<name>.<process id> (ktOpenLogFile, C++ only);
 *   - fresh temporary file names (ktTmpnam);
 *   - the current directory with an optional automounter prefix rewrite
 *     (ktGetcwd, ktFixAutoMountPrefix, driven by AUTOMOUNT_MAP);
 *   - whether a path is a symbolic link or has several hard links
 *     (ktGetFileLinkStatus).
 *
 * Paths are narrow strings in the file-system encoding (bytes as the
 * kernel sees them).
 *
 * Threads: the log directory is guarded by one process-wide recursive
 * mutex, but ktGetLogDirectory returns the shared buffer itself, so a
 * concurrent re-registration changes the text under a reader: register
 * once at start-up. ktTmpnam keeps one buffer per thread. The path
 * functions are as thread-safe as getenv and lstat.
 */
#ifndef KT_FILES_H
#define KT_FILES_H

#include <stddef.h>

#include "kt/export.h"

/* Size of the log-directory buffer: at most 4095 characters are kept. */
#define KT_LOG_DIRECTORY_SIZE 4096

/* Size of the per-thread ktTmpnam buffer, and the least size of a buffer
   a caller hands to ktTmpnam. */
#define KT_TMPNAM_BUFFER_SIZE 4353

/* Results of ktGetFileLinkStatus. */
#define KT_LINK_STATUS_UNKNOWN 0   /* lstat failed: missing, no permission ... */
#define KT_LINK_STATUS_SINGLE 1    /* not a symbolic link, one hard link */
#define KT_LINK_STATUS_HARD 2      /* more than one hard link (tested first) */
#define KT_LINK_STATUS_SYMBOLIC 3  /* a symbolic link with one hard link */

KT_EXTERN_C_BEGIN

/* ---- log directory -------------------------------------------------------- */

/*
 * Sets the process-wide log directory to a copy of `directory`, cut to
 * its first 4095 bytes. A null `directory` sets the default: the value of
 * HOME when it is set and not empty, else the system's temporary directory
 * (TMPDIR when that names a directory, else /tmp). The directory is not
 * created or checked. Registering "" leaves the buffer empty, so the next
 * ktGetLogDirectory installs the default.
 */
KT_API void ktRegisterLogDirectory(const char* directory);

/*
 * The log directory, after installing the default (see above) when none
 * was set. The pointer designates the process-wide buffer: it stays valid
 * for the life of the process, but its text changes with every
 * registration. Never null.
 */
KT_API const char* ktGetLogDirectory(void);

/* ---- temporary names -------------------------------------------------------- */

/*
 * Writes a fresh file name into `buffer` and returns it: a full path in
 * the temporary directory to an entry that did not exist when the name was
 * made (nothing is created, so another process may take the name first).
 * `buffer` needs KT_TMPNAM_BUFFER_SIZE bytes; a longer name is cut to fit.
 * A null `buffer` uses this thread's own buffer (made on first use, freed
 * when the thread ends), which the next call from the same thread
 * overwrites.
 */
KT_API char* ktTmpnam(char* buffer);

/* ---- current directory and the automounter prefix ---------------------------- */

/*
 * getcwd(buffer, size), then ktFixAutoMountPrefix on the result. Returns
 * the path, or null with errno set when getcwd fails. A rewritten path
 * that no longer fits in `size` bytes gives null with errno ERANGE. With a
 * null `buffer` the C library allocates the result (size 0: as large as
 * needed), which the caller frees with free().
 */
KT_API char* ktGetcwd(char* buffer, size_t size);

/*
 * Rewrites `path` in place according to the environment variable
 * AUTOMOUNT_MAP, "PREFIX -> REPLACEMENT" (blanks around the arrow
 * allowed), and returns it:
 *   - AUTOMOUNT_MAP unset, without "->", with an empty PREFIX (after
 *     removing trailing white space), or PREFIX not a byte-wise prefix of
 *     `path`: `path` is left as it is;
 *   - otherwise PREFIX is replaced by REPLACEMENT (leading and trailing
 *     white space removed; may be empty, which removes PREFIX);
 *   - an empty result, and an empty `path` in every case, becomes "/".
 * A null `path` is returned as it is. The caller's buffer must have room
 * for the rewritten path, which is longer than `path` when REPLACEMENT is
 * longer than PREFIX (at least 2 bytes for an empty path).
 * A PREFIX of PTRDIFF_MAX bytes or more ends the process with the failed
 * assertion "oldlen < PTRDIFF_MAX" (module getcwd).
 */
KT_API char* ktFixAutoMountPrefix(char* path);

/* ---- link status ------------------------------------------------------------- */

/*
 * One of the KT_LINK_STATUS_ codes for `path`, examined with lstat (a
 * symbolic link itself, not its target). The hard-link count is tested
 * before the file type, so a symbolic link with several hard links reports
 * KT_LINK_STATUS_HARD. A null `path` gives KT_LINK_STATUS_UNKNOWN.
 */
KT_API int ktGetFileLinkStatus(const char* path);

KT_EXTERN_C_END

#ifdef __cplusplus

#include <cstdio>
#include <string>
#include <utility>

/*
 * Opens <log directory>/<name>.<process id> with fopen mode "w+" (created
 * or truncated, read and write), reading the directory through
 * ktGetLogDirectory, and returns its full path with the stream. When the
 * open fails the stream is null and the path is still filled in (errno
 * tells why). A separator is put between directory and name only when the
 * directory does not end with one. A null `name` counts as "". The caller
 * closes the stream with fclose.
 */
KT_API std::pair<std::string, FILE*> ktOpenLogFile(const char* name);

#endif /* __cplusplus */

#endif /* KT_FILES_H */
