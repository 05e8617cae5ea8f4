/* Extracts an archive in-process and prints what the program would have printed.
 *
 *   cc extract.c $(pkg-config --cflags --libs tolven) -o extract
 *   ./extract ARCHIVE [DIRECTORY]
 */
#include <stdio.h>
#include <tolven/tolven.h>

int main(int argc, char** argv) {
  if (argc < 2 || argc > 3) {
    fprintf(stderr, "usage: %s ARCHIVE [DIRECTORY]\n", argv[0]);
    return 1;
  }
  int code = (int)extractTOLVENArchive(argv[1], argc == 3 ? argv[2] : NULL);
  const char* output = getTOLVENOutput();
  if (output != NULL) fputs(output, stdout);
  return code;
}
