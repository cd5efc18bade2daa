/*
 * Reads a file sequentially, as a comparison for the time that the product needs to read a whole log.
 *
 *   read_file PATH       reads it from start to end in blocks of 128 KiB
 */
#include <errno.h>
#include <fcntl.h>
#include <stdio.h>
#include <string.h>
#include <unistd.h>

static char block[128 * 1024];

int main(int argc, char** argv) {
  const int fd = argc == 2 ? open(argv[1], O_RDONLY | O_CLOEXEC) : -1;
  ssize_t got = 0;
  if (fd < 0) {
    fprintf(stderr, "read_file: no file\n");
    return 1;
  }
  do {
    got = read(fd, block, sizeof block);
  } while (got > 0 || (got < 0 && errno == EINTR));
  if (got < 0 || close(fd) != 0) {
    fprintf(stderr, "read_file: %s: %s\n", argv[1], strerror(errno));
    return 1;
  }
  return 0;
}
