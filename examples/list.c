/* Lists an archive, and reads every file of it to the end, which checks it.
 *
 *   cc list.c $(pkg-config --cflags --libs tolven) -o list
 *   ./list ARCHIVE
 */
#include <inttypes.h>
#include <stdio.h>
#include <tolven/archive.h>

static int walk(tolven_archive* archive) {
  static char buffer[65536];
  tolven_entry entry = {.struct_size = sizeof entry};
  int32_t code;
  while ((code = tolven_next(archive, &entry)) == TOLVEN_OK) {
    uint64_t bytes = 0;
    int64_t count;
    while ((count = tolven_read(archive, buffer, sizeof buffer)) > 0) bytes += (uint64_t)count;
    if (count < 0) return tolven_error_code(archive);
    printf("%c%04" PRIo32 " %12" PRIu64 " %.*s", "?-dls"[entry.type], entry.mode, bytes, (int)entry.name_size,
           entry.name);
    if (entry.target != NULL) printf(" -> %.*s", (int)entry.target_size, entry.target);
    putchar('\n');
  }
  return code == TOLVEN_END ? TOLVEN_OK : code;
}

int main(int argc, char** argv) {
  if (argc != 2) {
    fprintf(stderr, "usage: %s ARCHIVE\n", argv[0]);
    return 1;
  }
  tolven_archive* archive = tolven_new(NULL);
  if (archive == NULL) return 2;
  int32_t code = tolven_open(archive, argv[1]);
  if (code == TOLVEN_OK) code = walk(archive);
  if (code != TOLVEN_OK) fprintf(stderr, "%s\n", tolven_error_text(archive));
  tolven_free(archive);
  return code > 0 ? code : code != TOLVEN_OK;
}
