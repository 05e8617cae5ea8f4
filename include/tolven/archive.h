/* TOLVEN archives through handles: walk, read at any offset, extract and check an archive, in C11 and C++17.
 *
 * Threads: a handle serves one thread at a time, whichever it is; handles do not know of each other. Two
 * calls may be made beside any other of the same handle: tolven_cancel, tolven_entry_pread and
 * tolven_entry_check. A handle works in the thread that calls; the environment variable TOLVEN_THREADS, or
 * `threads` of its options, lets it have more.
 *
 * Nothing is printed, no exception leaves a call, no signal handler is installed, and neither the working
 * directory nor the umask is changed. A process that is killed while it extracts leaves the temporary file it
 * was writing; SIGPIPE and SIGXFSZ are the process's own business.
 *
 * Errors: a call returns TOLVEN_OK, a code of this header (negative), or the number that the program would
 * end with (positive: the table in tolven(1)). tolven_error_code and tolven_error_text tell the same again.
 *
 * Structures begin with their size: set `struct_size` to sizeof before a call. A library that is newer fills
 * and reads no more than that, an older one refuses none of it as long as what it does not know is zero.
 *
 * Archives of the older text-headed format are extracted by tolven.h; here they are code 1.
 */
#ifndef TOLVEN_ARCHIVE_H
#define TOLVEN_ARCHIVE_H

#include <stddef.h>
#include <stdint.h>

#include "tolven.h"

#ifdef __cplusplus
extern "C" {
#endif

#define TOLVEN_OK 0
#define TOLVEN_END (-1) /* no more entries */
#define TOLVEN_E_ARGUMENT \
  (-2)                      /* a null pointer, a structure without its size, a name that cannot be stored */
#define TOLVEN_E_STATE (-3) /* not at this point: nothing is open, or an earlier failure ended the walk */
#define TOLVEN_E_CANCELLED (-4) /* by tolven_cancel, or by the progress callback */
#define TOLVEN_E_LENGTH (-5)    /* data that is shorter or longer than was said */
#define TOLVEN_E_NOT_FOUND (-6) /* no entry of that name or number */

/* Types of entries. */
#define TOLVEN_FILE 1
#define TOLVEN_DIRECTORY 2
#define TOLVEN_LINK 3      /* symbolic */
#define TOLVEN_SIGNATURE 4 /* the signed manifest: data like a file's, never extracted */

typedef struct tolven_archive tolven_archive;

/* What a handle tells while it works. All may be null. A callback must not call the handle, but for
 * tolven_cancel, and must not throw. */
typedef struct tolven_options {
  size_t struct_size;
  void* context; /* passed to the callbacks */
  /* Bytes of the archive that were passed or written, and its size, 0 where that is not known. Called once
   * for every piece that is read or written, 64 KiB at most. Anything but 0 cancels. */
  int (*progress)(void* context, uint64_t position, uint64_t total);
  /* A line that the program would have printed: a name that was changed to make it safe, a link that could
   * not be made. Without a newline; good for the length of the call. */
  void (*message)(void* context, const char* text);
  uint32_t threads; /* 0: one, the caller's, unless TOLVEN_THREADS says otherwise */
} tolven_options;

/* An archive that is no file. */
typedef struct tolven_callbacks {
  size_t struct_size;
  void* context;
  /* Up to `size` bytes; their number, 0 at the end, or a negative errno. */
  int64_t (*read)(void* context, void* buffer, size_t size);
  /* As lseek; the new position from the start, or a negative errno. */
  int64_t (*seek)(void* context, int64_t offset, int whence);
  /* For writing alone; `read` and `seek` are then not needed. The number written, at least 1, or a negative
   * errno. */
  int64_t (*write)(void* context, const void* buffer, size_t size);
} tolven_callbacks;

/* One entry. The texts belong to the handle: until its next call that moves to another entry, or, of an
 * index, until it is closed. They are bytes as stored, in no known encoding, with a zero byte behind them. */
typedef struct tolven_entry {
  size_t struct_size;
  tolven_archive* archive;
  const char* name;   /* of a link: without its target */
  size_t name_size;   /* bytes */
  const char* target; /* of a link; else null */
  size_t target_size;
  int32_t type;  /* TOLVEN_FILE ... */
  uint32_t mode; /* permission, set-id and sticky bits: 07777 at most */
  uint64_t
      size; /* bytes of data, as the header says; of a file in an index, where its blocks tell, their sum */
  int64_t mtime;   /* seconds since 1970-01-01 UTC */
  uint64_t number; /* of the entry, from 0, in the order of the archive */
} tolven_entry;

/* --- Handles. */

/* The release: "1.0.0". */
TOLVEN_API const char* tolven_version(void);

/* A handle with nothing open. `options` may be null and is copied; what it points to must outlive the handle.
 * Null when memory runs out, or for options without their size. */
TOLVEN_API tolven_archive* tolven_new(const tolven_options* options);

/* Closes and frees. Harmless for null. A file whose extraction was not completed leaves nothing; links and
 * the modes of directories come with tolven_extract_finish only. */
TOLVEN_API void tolven_free(tolven_archive* archive);

/* Of the last call that was made with the handle: TOLVEN_OK or its code, and "" or its text, which stays
 * until the next call. */
TOLVEN_API int32_t tolven_error_code(const tolven_archive* archive);
TOLVEN_API const char* tolven_error_text(const tolven_archive* archive);

/* From any thread, or from a signal handler: the call that is running, or else the next one, ends with
 * TOLVEN_E_CANCELLED at its next piece of the archive. Opening again forgets it. */
TOLVEN_API void tolven_cancel(tolven_archive* archive);

/* --- Opening. What was open before is closed. */

/* A regular file. */
TOLVEN_API int32_t tolven_open(tolven_archive* archive, const char* path);
/* A descriptor of a regular file, from its beginning. It is duplicated, its position neither used nor moved.
 */
TOLVEN_API int32_t tolven_open_descriptor(tolven_archive* archive, int descriptor);
/* `read` and `seek` are needed; the structure is copied. */
TOLVEN_API int32_t tolven_open_callbacks(tolven_archive* archive, const tolven_callbacks* callbacks);

/* --- The walk. */

/* The next entry, whatever of the one before was read. `entry` may be null. TOLVEN_END behind the last. After
 * a failure the walk cannot go on; tolven_rewind begins it again. */
TOLVEN_API int32_t tolven_next(tolven_archive* archive, tolven_entry* entry);
TOLVEN_API int32_t tolven_rewind(tolven_archive* archive);

/* Data of the current entry: bytes read, at most `size`, or -1. 0 at the end, and then all of it was right:
 * its checksum, and its digest once tolven_verify accepted the archive. */
TOLVEN_API int64_t tolven_read(tolven_archive* archive, void* buffer, size_t size);

/* --- Extracting, with the program's own safety: nothing leaves the directory, no link of the archive is ever
 * followed, a file takes its name when all of it is right.
 *
 * Links are made, and directories get their times and modes, when the extraction is finished. */

/* Extract below the open directory `directory` (it may be closed afterwards) from now on. `flags`: 0, or
 * TOLVEN_KEEP_DIRECTORIES: directories that are there already keep their modes. */
#define TOLVEN_KEEP_DIRECTORIES 1U
TOLVEN_API int32_t tolven_extract_to(tolven_archive* archive, int directory, uint32_t flags);
/* The current entry, of which nothing may have been read. */
TOLVEN_API int32_t tolven_extract(tolven_archive* archive);
TOLVEN_API int32_t tolven_extract_finish(tolven_archive* archive);
/* All of it: rewinds, extracts every entry, finishes. The first failure ends it, but for links that cannot be
 * made and files that differ from the signature, which fail at the end. */
TOLVEN_API int32_t tolven_extract_all(tolven_archive* archive, int directory, uint32_t flags);

/* --- Any entry, at any offset. */

/* Walks the headers once, and remembers what it found: some 60 bytes an entry, its name and 16 bytes a block.
 * The walk of tolven_next begins again afterwards. Archives of version 2.00 are indexed like any other; their
 * data has to be decompressed from the start of the entry. */
TOLVEN_API int32_t tolven_index(tolven_archive* archive);
/* 0 without an index. */
TOLVEN_API uint64_t tolven_index_count(const tolven_archive* archive);
/* The entry of that number, or the last one of that name: the one that an extraction would leave. */
TOLVEN_API int32_t tolven_index_entry(tolven_archive* archive, uint64_t number, tolven_entry* entry);
TOLVEN_API int32_t tolven_index_find(tolven_archive* archive, const char* name, size_t name_size,
                                     tolven_entry* entry);
/* Data of an entry of the index, from `offset` on: bytes read, fewer than `size` only at the end, or -1.
 * Costs the blocks that it touches. Any number of threads may call it at a time; which of them a code and a
 * text are of is then not known. No checksum is behind a part of the data: see tolven_entry_check. */
TOLVEN_API int64_t tolven_entry_pread(const tolven_entry* entry, void* buffer, size_t size, uint64_t offset);
/* Reads all data of an entry of the index: its checksum, and its digest once tolven_verify accepted the
 * archive. Any number of threads. */
TOLVEN_API int32_t tolven_entry_check(const tolven_entry* entry);

/* --- Signatures. */

/* Whom to trust. All members may be null or 0: then it is the installed certificates (QELverify and
 * QELvalidation in SECUDIR). */
typedef struct tolven_trust {
  size_t struct_size;
  const char* file;   /* what the program takes behind -key: a path with a "/", or a name in SECUDIR */
  const void* memory; /* or what would be in that file: PEM or PKCS#12 */
  size_t memory_size;
  const char* password; /* of either */
  const void* crl;      /* revocation lists, PEM or DER; without them revocation is not looked at */
  size_t crl_size;
  const char*
      library; /* the cryptographic library; null: libqelcrypto.so. The first one of the process counts */
} tolven_trust;

typedef struct tolven_text {
  const char* bytes; /* with a zero byte behind them */
  size_t size;
} tolven_text;

/* What a signature was found to be. The texts belong to the handle until it verifies again, opens or is
 * freed;
 * "" where nothing is known. */
typedef struct tolven_verdict {
  size_t struct_size;
  int32_t code;          /* what tolven_verify returned */
  int32_t manifest_code; /* 0; 24: by a key of `trust`; 25: by the validation key; else what is wrong */
  int32_t crypto_code;   /* of the cryptographic library */
  const char* reason;    /* warnings, or what is wrong; may be several lines */
  const char* key;       /* "QEL software", "QEL validation", "External" */
  const char* subject;   /* of the signer */
  const char* issuer;
  const char* signing_time; /* as the signer says: "2026-11-21 12:34:56 UTC" */
  const char* time_stamp;   /* the name of the authority that stamped it; "" without a time stamp */
  const char* digest;       /* "SHA256" */
  const tolven_text*
      covered; /* the files that the signature lists, in its order; a name may be there twice */
  uint64_t covered_count;
} tolven_verdict;

/* Checks the signature of the open archive, whose last entry it must be: 59 without one, 54 to 61 for one
 * that is not good. Once it is, tolven_read, tolven_extract, tolven_extract_all and tolven_entry_check accept
 * files only that are what was signed; modes lose what a signature does not vouch for, as with the program.
 * With TOLVEN_VERIFY_DATA all files are read and compared here, and all that are listed must be there.
 * `trust` and `verdict` may be null. The walk begins again.
 *
 * Loading the library may set SECUDIR in the environment, and handles of several threads wait for each other
 * while a signature is checked. */
#define TOLVEN_VERIFY_DATA 1U
TOLVEN_API int32_t tolven_verify(tolven_archive* archive, const tolven_trust* trust, uint32_t flags,
                                 tolven_verdict* verdict);

/* --- Writing. Whatever happens, a path holds what it held before, or the whole archive. */

typedef struct tolven_writer tolven_writer;

/* As tolven_new, tolven_free, tolven_error_code, tolven_error_text and tolven_cancel. Freeing a writer that
 * was not finished aborts it. */
TOLVEN_API tolven_writer* tolven_writer_new(const tolven_options* options);
TOLVEN_API void tolven_writer_free(tolven_writer* writer);
TOLVEN_API int32_t tolven_writer_error_code(const tolven_writer* writer);
TOLVEN_API const char* tolven_writer_error_text(const tolven_writer* writer);
TOLVEN_API void tolven_writer_cancel(tolven_writer* writer);

/* Begins an archive of version 2.01. What was begun before is aborted.
 *
 * A path: written beside it, and moved onto it by tolven_finish; nothing but a regular file may stand there.
 */
TOLVEN_API int32_t tolven_create(tolven_writer* writer, const char* path);
/* A descriptor: duplicated, written in order from its position. A pipe will do. */
TOLVEN_API int32_t tolven_create_descriptor(tolven_writer* writer, int descriptor);
/* `write` is needed; the structure is copied. */
TOLVEN_API int32_t tolven_create_callbacks(tolven_writer* writer, const tolven_callbacks* callbacks);

/* A file, directory (the entry alone, not what is in it) or symbolic link of the file system, under the name
 * of `name_size` bytes; null: under its own. 44 when it cannot be opened; then nothing was written, and the
 * writer goes on. After any other failure but TOLVEN_E_ARGUMENT only tolven_abort is left. */
TOLVEN_API int32_t tolven_add_path(tolven_writer* writer, const char* path, const char* name,
                                   size_t name_size);

/* What `entry` says: name, type, mode, mtime, `size` of a file, target of a link. The data of a file comes
 * from `read`: up to `size` bytes, their number, 0 at the end, or a negative errno; exactly entry->size in
 * all, or else TOLVEN_E_LENGTH. It may be null where there is none. */
TOLVEN_API int32_t tolven_add_entry(tolven_writer* writer, const tolven_entry* entry,
                                    int64_t (*read)(void* context, void* buffer, size_t size), void* context);

/* Writes what is left; an archive at a path gets its name. A failure aborts. */
TOLVEN_API int32_t tolven_finish(tolven_writer* writer);
/* Gives it up. What went to a descriptor or a callback stays there. */
TOLVEN_API void tolven_abort(tolven_writer* writer);

#ifdef __cplusplus
}
#endif

#endif
